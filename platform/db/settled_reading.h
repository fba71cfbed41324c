/* read_settled: reads all rows of a table while other programs may overwrite some. */
#ifndef KSUTIL_PLATFORM_DB_SETTLED_READING_H
#define KSUTIL_PLATFORM_DB_SETTLED_READING_H

#include <memory>

#include "platform/db/snapshot.h"
#include "platform/elog/elog.h"

namespace ksutil::db {

/* Calls read(rows) with a snapshot of the table that `look` gives, and again with the next
 * one while rows that had to be read a second time were others by then; the last time the
 * snapshot keeps its rows.  Messages of readings that are repeated are dropped.
 *
 * False, with messages, when look() gives none or rows cannot be read. */
template <class Look, class Read>
bool read_settled(const Look &look, const Read &read) {
  constexpr int kAttempts = 4;
  for (int attempt = 1;; ++attempt) {
    ElogScope messages;
    const std::shared_ptr<const Snapshot> rows = look();
    if (rows != nullptr) {
      if (attempt == kAttempts) rows->keep_rows();
      read(rows);
      if (!rows->complete() && rows->overtaken() && attempt < kAttempts) continue;
    }
    messages.keep();
    return rows != nullptr && rows->complete();
  }
}

}  // namespace ksutil::db
#endif
