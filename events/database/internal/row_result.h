/* How reading rows ends, and what becomes of its messages. */
#ifndef KSUTIL_EVENTS_DATABASE_INTERNAL_ROW_RESULT_H
#define KSUTIL_EVENTS_DATABASE_INTERNAL_ROW_RESULT_H

#include <algorithm>

#include "platform/elog/elog.h"

namespace ksutil::events {

/* What reading gives for a row that cannot be read, and is to be skipped. */
inline constexpr int kUnreadable = 10;

/* What it gives when the table cannot be read for now; the reading has failed. */
inline constexpr int kFailed = -1;

/* The graver of two results. */
inline int graver(int result1, int result2) {
  return result1 < 0 || result2 < 0 ? kFailed : std::max(result1, result2);
}

/* Drops the messages about rows that are skipped, and keeps those of a failed reading. */
using MessagesOfFailure = ElogScope;

}  // namespace ksutil::events
#endif
