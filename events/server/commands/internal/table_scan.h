/* Reading rows of one table for a command. */
#ifndef KSUTIL_EVENTS_SERVER_COMMANDS_INTERNAL_TABLE_SCAN_H
#define KSUTIL_EVENTS_SERVER_COMMANDS_INTERNAL_TABLE_SCAN_H

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "events/database/internal/fair_lock.h"
#include "events/server/internal/server_state.h"
#include "platform/db/db.h"
#include "platform/db/snapshot.h"

namespace ksutil::events {

/* The database lock for one command, which lets others in between steps. */
class CommandSteps {
 public:
  /* Takes the lock.  `who` names the operation in messages and must outlive this. */
  CommandSteps(ServerState &state, const char *who);

  /* False, with a message, when no database is open. */
  bool open() const;

  /* Lets others in now and then; false when the database has been closed meanwhile. */
  bool step();

  /* A table of the database; its member table is dbINVALID, with a message, for none. */
  Dbptr table(const std::string &name) const;

  ServerState &state() const { return state_; }
  const char *who() const { return who_; }

 private:
  ServerState &state_;
  const char *who_;
  std::unique_lock<FairLock> lock_;
  long binding_;
  int rows_ = 0;
};

/* The rows of a table as they are when the scan begins. */
class TableScan {
 public:
  /* Looks at the table; afterwards rows() is null, with a message, when that failed. */
  TableScan(CommandSteps &steps, const std::string &table);

  const std::shared_ptr<const db::Snapshot> &rows() const { return rows_; }
  Dbptr table() const { return table_; }

  using Visit = std::function<void(long record, std::string_view row)>;

  /* Visits all rows, or those of `records`, in order.  Rows that cannot be read are left
   * out, with one message for all of them.  False, with a message, when the database has
   * been closed meanwhile. */
  bool each(const Visit &visit);
  bool each(const std::vector<long> &records, const Visit &visit);

 private:
  template <class RecordAt>
  bool visit_all(long count, RecordAt record_at, const Visit &visit);

  CommandSteps &steps_;
  std::string name_;
  Dbptr table_;
  std::shared_ptr<const db::Snapshot> rows_;
};

}  // namespace ksutil::events
#endif
