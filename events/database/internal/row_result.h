/* row_result: the result codes of the row readers, and a scope that drops their
 * messages unless the reading failed. */
#ifndef KSUTIL_EVENTS_DATABASE_INTERNAL_ROW_RESULT_H
#define KSUTIL_EVENTS_DATABASE_INTERNAL_ROW_RESULT_H

#include <algorithm>

#include "platform/elog/elog.h"

namespace ksutil::events {

/* The row cannot be read and is to be skipped. */
inline constexpr int kUnreadable = 10;

/* The table cannot be read for now: the whole reading has failed. */
inline constexpr int kFailed = -1;

/* The worse of two results: kFailed, kUnreadable, 0. */
inline int graver(int result1, int result2) {
  return result1 < 0 || result2 < 0 ? kFailed : std::max(result1, result2);
}

/* Drops the messages about rows that are skipped, and keeps those of a failed
 * reading. */
using MessagesOfFailure = ElogScope;

}  // namespace ksutil::events
#endif
