/* TableScan: visits rows of one table for a command. */
#ifndef KSUTIL_EVENTS_SERVER_COMMANDS_INTERNAL_TABLE_SCAN_H
#define KSUTIL_EVENTS_SERVER_COMMANDS_INTERNAL_TABLE_SCAN_H

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "events/database/internal/watched_database.h"
#include "platform/db/db.h"
#include "platform/db/settled_reading.h"
#include "platform/db/snapshot.h"
#include "platform/db/write_attempt.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"

namespace ksutil::events {

struct ServerState;

/* Command: holds the lock of the database in short steps while one database command
 * runs, and names it in messages. */
class Command {
 public:
  /* Takes the lock.  `who` names the operation in messages and must outlive this. */
  Command(ServerState &state, const char *who);

  /* False, with a message, if no database is open, or if step() has seen it closed. */
  bool open() const;

  /* To be called after each row: lets other threads in now and then.  False if the
   * database has been closed meanwhile. */
  bool step() {
    closed_ = closed_ || !steps_.step();
    return !closed_;
  }

  /* A table of the database; dbinvalid(), with a message, if there is none. */
  Dbptr table(const std::string &name) const;

  /* The result of write(), which writes to the database and gives a number, below 0 after
   * messages.  It runs again, after the lock was let go, while another program holds the
   * lock of what it writes and wanted(), if there is such a function, is true.  -1, with a
   * message, without a database, or when the result is not wanted any more. */
  using Wanted = std::function<bool()>;
  template <class Write>
  int64_t write(const Wanted &wanted, const Write &write);

  WatchedDatabase &database() const { return steps_.database(); }
  const char *who() const { return who_; }

 private:
  const char *who_;
  Steps steps_;
  bool closed_ = false;
};

template <class Write>
int64_t Command::write(const Wanted &wanted, const Write &write) {
  while (open()) {
    ElogScope messages;
    const db::WriteAttempt attempt;
    const int64_t result = write();
    if (result >= 0 || !attempt.busy()) {
      messages.keep();
      return result;
    }
    messages.drop();
    steps_.let_go();
    if (!attempt.wait(wanted)) {
      messages.keep();
      return fail(who_, "given up while another program holds the lock");
    }
    closed_ = !steps_.take_again();
  }
  return -1;
}

/* TableScan: a snapshot of a table, taken when the scan begins. */
class TableScan {
 public:
  /* Takes the snapshot; rows() is null, with a message, if that fails. */
  TableScan(Command &command, const std::string &table);
  /* Visits rows of a table that were looked at before. */
  TableScan(Command &command, Dbptr table, std::shared_ptr<const db::Snapshot> rows);

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

/* Returns read(scan) for a scan of the table, whose rows() are there; `none`, with a
 * message, without a snapshot.  When other programs have overwritten rows under the scan,
 * read() runs again with a new one, see db::read_settled; it must set all that it hands
 * out each time. */
template <class Read>
auto scan_table(Command &command, const std::string &table, const Read &read,
                std::invoke_result_t<Read, TableScan &> none = {}) {
  auto result = none;
  std::optional<TableScan> scan;
  db::read_settled(
      [&] {
        result = none;
        return scan.emplace(command, table).rows();
      },
      [&](const auto &) { result = read(*scan); });
  return result;
}

}  // namespace ksutil::events
#endif
