/* read_rows: locks a database, takes snapshots of its tables and runs one short
 * reading. */
#ifndef KSUTIL_EVENTS_READING_INTERNAL_READ_ROWS_H
#define KSUTIL_EVENTS_READING_INTERNAL_READ_ROWS_H

#include "events/database/internal/row_result.h"
#include "events/database/internal/watched_database.h"
#include "events/reading/internal/tree_reader.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"

namespace ksutil::events {

inline constexpr const char *kTablesUnreadable = "cannot read the tables";

/* The messages of a reading: "<who>: <unbound>.\n" when the snapshots of the tables
 * cannot be taken, "<who>: <failed>.\n" when the reading itself fails. */
struct ReadingName {
  const char *who;  // the public function: "KSEventView::findEvid"
  const char *unbound = kTablesUnreadable;
  const char *failed = nullptr;  // null: the reading registers its own message
};

/* How often a reading begins when other programs change the rows under it.  The last time
 * the rows are held, so that it ends. */
inline constexpr int kReadingAttempts = 5;

/* Runs read(reader) with the lock of the database held and snapshots of `tables`
 * (kReadList and so on, added up) taken.  Returns its result; kFailed with a message
 * when no database is open, the snapshots cannot be taken, or memory is short (`read`
 * may throw std::bad_alloc).  A reading that failed because rows have changed since the
 * snapshots were taken runs again with new ones, so `read` must set all that it hands
 * out each time. */
template <class Read>
int read_rows(WatchedDatabase &database, const ReadingName &name, unsigned tables,
              const Read &read) {
  return at_boundary(name.who, kFailed, [&]() -> int {
    const WatchedDatabase::Hold hold = database.hold();
    if (!database.require_open(name.who)) return kFailed;
    const int mark = elog_mark();
    for (int attempt = 1;; attempt++) {
      TreeReader reader(database);
      if (attempt == kReadingAttempts) reader.keep_rows();
      const bool bound = reader.bind(tables);
      const int result = bound ? read(reader) : kFailed;
      if (result < 0 && attempt < kReadingAttempts && reader.overtaken()) {
        elog_flush(0, mark);
        continue;
      }
      if (!bound) return fail(name.who, "%s", name.unbound);
      if (result < 0 && name.failed != nullptr) fail(name.who, "%s", name.failed);
      return result;
    }
  });
}

/* The same, and the messages about rows that are skipped are dropped: none is left
 * unless the reading fails. */
template <class Read>
int read_rows_quietly(WatchedDatabase &database, const ReadingName &name,
                      unsigned tables, const Read &read) {
  return read_rows(database, name, tables, [&](TreeReader &reader) {
    MessagesOfFailure messages;
    return messages.note(read(reader));
  });
}

}  // namespace ksutil::events
#endif
