/* TableScan: visits rows of one table for a command. */
#ifndef KSUTIL_EVENTS_SERVER_COMMANDS_INTERNAL_TABLE_SCAN_H
#define KSUTIL_EVENTS_SERVER_COMMANDS_INTERNAL_TABLE_SCAN_H

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "events/database/internal/watched_database.h"
#include "platform/db/db.h"
#include "platform/db/snapshot.h"

namespace ksutil::events {

struct ServerState;

/* Command: holds the lock of the database in short steps while one database command
 * runs, and names it in messages. */
class Command {
 public:
  /* Takes the lock.  `who` names the operation in messages and must outlive this. */
  Command(ServerState &state, const char *who);

  /* False, with a message, if no database is open. */
  bool open() const { return database().require_open(who_); }

  /* To be called after each row: lets other threads in now and then.  False if the
   * database has been closed meanwhile. */
  bool step() { return steps_.step(); }

  /* A table of the database; dbinvalid(), with a message, if there is none. */
  Dbptr table(const std::string &name) const;

  WatchedDatabase &database() const { return steps_.database(); }
  const char *who() const { return who_; }

 private:
  const char *who_;
  Steps steps_;
};

/* TableScan: a snapshot of a table, taken when the scan begins. */
class TableScan {
 public:
  /* Takes the snapshot; rows() is null, with a message, if that fails. */
  TableScan(Command &command, const std::string &table);

  const std::shared_ptr<const db::Snapshot> &rows() const { return rows_; }
  Dbptr table() const { return table_; }

  using Visit = std::function<void(long record, std::string_view row)>;

  /* Visits all rows, or those of `records`, in order.  Rows that cannot be read are
   * left out, with one message for all of them.  False, with a message, when the
   * database has been closed meanwhile. */
  bool each(const Visit &visit);
  bool each(const std::vector<long> &records, const Visit &visit);

 private:
  template <class RecordAt>
  bool visit_all(long count, RecordAt record_at, const Visit &visit);

  Command &command_;
  std::string name_;
  Dbptr table_;
  std::shared_ptr<const db::Snapshot> rows_;
};

}  // namespace ksutil::events
#endif
