/* PgWrite: changes tables in one SQL transaction.
 *
 * begin() locks the tables in the order of their names, so that no two writers wait for
 * each other.  Appended and overwritten rows are collected, and sent together with the
 * COMMIT when they are few.  The COMMIT comes with a token; after a connection was lost in
 * it, the token tells whether the change was made. */
#ifndef KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_WRITE_H
#define KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_WRITE_H

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/postgresql/internal/pg_snapshot.h"
#include "platform/db/postgresql/internal/pg_writers.h"
#include "platform/db/row_removal.h"
#include "platform/db/store.h"

namespace ksutil::db {

class PgStore;
class PgTable;

class PgWrite {
 public:
  PgWrite(PgStore &store, std::vector<PgTable *> tables);
  ~PgWrite();
  PgWrite(const PgWrite &) = delete;
  PgWrite &operator=(const PgWrite &) = delete;

  /* Each of these is false, -1 or null with a message on failure. */
  bool begin();
  /* Many rows are sent at once if `at_once` is set, else when enough have come. */
  long append(std::size_t table, std::string_view rows, bool at_once);
  bool overwrite(std::size_t table, long record, std::string_view row);
  bool remove(std::size_t table, const std::vector<long> &records);
  bool clear(std::size_t table);
  bool commit();

  /* The rows as they were at begin(). */
  std::shared_ptr<const PgSnapshot> before(std::size_t table);
  /* The rows with the changes so far. */
  std::shared_ptr<const PgSnapshot> now(std::size_t table);
  const Relation &layout(std::size_t table) const;
  /* Whether commit() failed for a reason that is gone when the work is done again. */
  bool again() const { return again_; }

 private:
  struct Pending {
    PgTable *table;
    long count = 0;  // rows with all changes
    std::shared_ptr<const PgSnapshot> before, now;
    std::string lines;                            // appended rows, for COPY
    long appended = 0;                            // rows in `lines`
    std::map<std::int64_t, std::string> changed;  // by key: the line of the row
    bool changes = false;                         // since `now` was read
  };

  bool lock();
  void keep_whole();
  /* Runs statements in the transaction; false when that is lost. */
  bool send(const std::string &statements, const PgAnswers &answers = {});
  bool refuse(const char *who);
  bool whole_rows(const Pending &pending, std::string_view rows, const char *who) const;
  bool send_appended(Pending &pending);
  bool flush();
  std::string small_statements();

  PgStore &store_;
  std::vector<Pending> pending_;
  std::shared_ptr<PgConnection> connection_;
  long session_ = 0;     // of the transaction
  std::string missing_;  // a table that ks_tables does not know
  bool written_ = false, again_ = false, done_ = false;
};

class PgExclusive final : public TableStore::Exclusive, public RowRemoval {
 public:
  explicit PgExclusive(PgWrite &write) : write_(write) {}
  std::shared_ptr<const Snapshot> snapshot() override { return write_.now(0); }
  long append(std::string_view row) override { return append_all(row); }
  long append_all(std::string_view rows) override {
    return write_.append(0, rows, true);
  }
  bool overwrite(long record, std::string_view row) override {
    return write_.overwrite(0, record, row);
  }
  bool remove(const std::vector<long> &records) override {
    return write_.remove(0, records);
  }

 private:
  PgWrite &write_;
};

class PgTransaction final : public Transaction, public TableClearing {
 public:
  explicit PgTransaction(PgWrite &write) : write_(write) {}
  const Relation &layout(std::size_t table) const override {
    return write_.layout(table);
  }
  std::shared_ptr<const Snapshot> snapshot(std::size_t table) override {
    return write_.before(table);
  }
  long append(std::size_t table, std::string_view rows) override {
    return write_.append(table, rows, false);
  }
  bool overwrite(std::size_t table, long record, std::string_view row) override {
    return write_.overwrite(table, record, row);
  }
  bool clear(std::size_t table) override { return write_.clear(table); }

 private:
  PgWrite &write_;
};

}  // namespace ksutil::db
#endif
