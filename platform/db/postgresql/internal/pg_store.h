/* PgStore: a database whose tables are on a server that speaks the PostgreSQL protocol.
 *
 * It reads over one connection, to any of the hosts of the descriptor, and writes over
 * others, to the host that accepts writes.  From its first write on it reads from that
 * host too, so that it sees what it has written. */
#ifndef KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_STORE_H
#define KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_STORE_H

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/postgresql/internal/pg_reader.h"
#include "platform/db/postgresql/internal/pg_request.h"
#include "platform/db/postgresql/internal/pg_snapshot.h"
#include "platform/db/postgresql/internal/pg_state.h"
#include "platform/db/store_plugin.h"

namespace ksutil::db {

class PgTable;
class PgWriters;

class PgStore final : public DatabaseStore {
 public:
  PgStore(const StoreDescriptor &descriptor, PgOptions options, bool writable,
          std::size_t block_budget);
  ~PgStore() override;

  /* Connects and reads which schema the database has; false with a message. */
  bool open();

  const std::string &name() const override { return descriptor_.name; }
  std::shared_ptr<const Schema> schema() const override { return schema_; }
  bool writable() const override { return writable_; }
  TableStore *table(std::string_view name) override;
  bool transaction(const std::vector<std::string> &tables,
                   const std::function<bool(Transaction &)> &work) override;
  std::string description() const override;
  void begin_look() override;
  void end_look() override;

  /* For the tables of the store. */

  PgTable *own_table(std::string_view name);
  /* The states of all tables, of now or of the look that has begun; null with a
   * message. */
  const PgStates *states(const char *who);
  /* Reads the changes of the tables that a snapshot has been made of and that have
   * changed, of `wanted` in any case, all of one moment; false with a message.  `anew` reads
   * every row of `wanted`, and makes a new snapshot of it. */
  bool refresh(const char *who, PgTable &wanted, bool anew = false);
  /* To be called before a write: ends a look, and reads from the host that writes. */
  void begin_write();
  const std::string &directory() const { return directory_; }
  std::string file_name(const std::string &table) const;
  PgPlace place(const Relation &relation) const;
  PgWriters &writers() { return *writers_; }

 private:
  bool ask_states(const char *who, PgStates &states);
  bool ask(const char *who, std::vector<PgRequest> &requests, PgStates &states);
  bool behind(const PgStates &states) const;

  const StoreDescriptor descriptor_;
  const PgOptions options_;
  const bool writable_;
  std::string directory_, database_;
  std::shared_ptr<const Schema> schema_;
  const std::shared_ptr<PgReader> reader_;
  const std::shared_ptr<BlockBudget> budget_;
  std::unique_ptr<PgWriters> writers_;
  std::map<std::string, std::unique_ptr<PgTable>, std::less<>> tables_;
  PgStates states_;           // the last ones
  bool looking_ = false;      // between begin_look and end_look
  bool states_hold_ = false;  // states_ are those of the look
};

}  // namespace ksutil::db
#endif
