#include "events/database/internal/watched_database.h"

#include <utility>
#include <vector>

#include "events/database/internal/match_hooks.h"
#include "events/database/internal/table_change.h"
#include "platform/db/access.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"
#include "platform/stock/fspath.h"

namespace ksutil::events {

/* A database with its tables before it becomes the open one. */
class WatchedDatabase::Opened {
 public:
  Opened() = default;
  ~Opened() {
    if (db_.database != dbINVALID) dbclose(db_);
  }
  Opened(const Opened &) = delete;
  Opened &operator=(const Opened &) = delete;

  /* path: that of the database `name` from the root, or the name itself. */
  bool open(const std::string &name, const std::string &path,
            const DatabaseOwner &owner, const char *who) {
    path_ = absolute_path(path);
    /* Not shared: the program does not know when other threads use the handle. */
    if (dbopen_noshare(path.c_str(), owner.mode, &db_) < 0) {
      db_ = dbinvalid();
      elog_log(0, "%s: %s(%s) error\n", who, owner.open_function, name.c_str());
      return false;
    }
    for (const char *table : owner.tables) {
      EVTable opened;
      if (!owner.open_table(db_, table, opened)) {
        return fail(who, "%s: %s() error", table, owner.table_function);
      }
      opened.name = table;
      tables_.push_back(std::move(opened));
    }
    const char *schema = nullptr;
    if (dbquery(db_, dbq_schema_name, &schema) < 0 || schema == nullptr) {
      return fail(who, "dbquery(dbSCHEMA_NAME) error");
    }
    name_ = name;
    schema_name_ = schema;
    return true;
  }

  /* Throws nothing once the old database is closed: half of a new one must not stay. */
  void install(WatchedDatabase &database) {
    database.close();
    for (EVTable &table : tables_) *database.table(table.name) = std::move(table);
    database.db_ = std::exchange(db_, dbinvalid());
    database.name_ = std::move(name_);
    database.path_ = std::move(path_);
    database.schema_name_ = std::move(schema_name_);
    database.binding_++;
  }

 private:
  Dbptr db_ = dbinvalid();
  std::vector<EVTable> tables_;
  std::string name_, path_, schema_name_;
};

WatchedDatabase::WatchedDatabase(DatabaseOwner owner) : owner_(std::move(owner)) {}

WatchedDatabase::~WatchedDatabase() {
  free_indexes();
  if (is_open()) dbclose(db_);
}

bool WatchedDatabase::open(const std::string &name, const char *who) {
  Opened opened;
  if (!opened.open(name, name, owner_, who)) return false;
  opened.install(*this);
  return true;
}

bool WatchedDatabase::reopen(const char *who) {
  if (name_.empty()) return fail(who, "No database currently open");
  Opened opened;
  if (!opened.open(name_, path_, owner_, who)) return false;
  opened.install(*this);
  return true;
}

void WatchedDatabase::close() {
  for (const std::string &name : vars_.tables.keys()) table(name)->db = dbinvalid();
  forget_changes();
  free_indexes();
  if (is_open()) dbclose(std::exchange(db_, dbinvalid()));
  binding_++;
}

void WatchedDatabase::unbind() {
  close();
  name_.clear();
}

bool WatchedDatabase::require_open(const char *who) const {
  return is_open() || fail(who, "No database currently open");
}

int WatchedDatabase::check(EVTable &table, bool remember) {
  TableMemory seen{table.count, table.filetime};
  const int code = table_change(table.db, seen);
  if (code >= 0 && remember) {
    table.count = seen.count;
    table.filetime = seen.filetime;
  }
  return code;
}

void WatchedDatabase::forget_changes() {
  for (const std::string &name : vars_.tables.keys()) {
    EVTable &forgotten = *table(name);
    forgotten.count = -1;
    forgotten.filetime = 0.0;
  }
}

std::shared_ptr<const db::Snapshot> WatchedDatabase::rows(const char *table_name) {
  return db::table_snapshot(table(table_name)->db);
}

const db::KeyIndex *WatchedDatabase::index(
    const std::shared_ptr<const db::Snapshot> &rows, EVMatch &key) {
  return db::match_index(rows, key.kpattern, key.tpattern, &key.hook);
}

bool WatchedDatabase::index(std::initializer_list<Wanted> all) {
  std::vector<db::IndexRequest> requests;
  requests.reserve(all.size());
  for (const Wanted &each : all) {
    requests.push_back(
        {each.rows, each.key.kpattern, each.key.tpattern, &each.key.hook});
  }
  if (!db::match_indexes(requests)) return false;
  auto request = requests.cbegin();
  for (const Wanted &each : all) each.found = (request++)->index;
  return true;
}

void WatchedDatabase::free_indexes() {
  free_match_hooks(vars_);
  sites_.follow(nullptr);
  detection_times_.follow(nullptr);
}

}  // namespace ksutil::events
