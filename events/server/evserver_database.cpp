#include "events/server/internal/tables.h"

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

#include "core/register.h"
#include "events/evserver.h"
#include "events/server/internal/list_follower.h"
#include "events/server/internal/threads.h"
#include "platform/db/access.h"
#include "platform/elog/elog.h"

namespace ksutil::events {
namespace {

constexpr const char *kMonitoredTables[] = {"wfdisc", "arrival", "detection"};

/* A database with its tables, before it becomes the server's. */
class OpenDatabase {
 public:
  OpenDatabase() = default;
  OpenDatabase(const OpenDatabase &) = delete;
  OpenDatabase &operator=(const OpenDatabase &) = delete;
  ~OpenDatabase() {
    if (db_.database != dbINVALID) dbclose(db_);
  }

  /* Opens all tables, or logs why it cannot as the server's function `function`. */
  bool open(const std::string &name, int remote_mount_mode, const char *function) {
    if (dbopen_noshare(name.c_str(), "r+", &db_) < 0) {
      db_ = dbinvalid();
      ks_register_error(0, "EVServer::%s: dbopen_noshare(%s) error\n", function,
                        name.c_str());
      return false;
    }
    for (const char *table : kEVTableNames) {
      /* Station tables may be shared by many sites over a mount. */
      const int mode = std::string_view(table) == "site" ? -1 : remote_mount_mode;
      EVTable opened;
      if (!open_table(db_, table, mode, opened)) {
        ks_register_error(0, "EVServer::%s: %s: openTable() error.\n", function, table);
        return false;
      }
      tables_.push_back(std::move(opened));
    }
    const char *schema = nullptr;
    if (dbquery(db_, dbq_schema_name, &schema) < 0 || schema == nullptr) {
      ks_register_error(0, "EVServer::%s: dbquery(dbSCHEMA_NAME) error.\n", function);
      return false;
    }
    schema_name_ = schema;
    return true;
  }

  /* Hands the database to the server, which must have none.  The memory of
   * checkDatabase goes on from what it had seen. */
  void install(ServerState &state) {
    state.db = std::exchange(db_, dbinvalid());
    state.schema_name = schema_name_;
    for (EVTable &table : tables_) {
      if (EVTable *monitored = state.monitored.find(table.name)) {
        monitored->db = table.db;
      }
      const std::string name = table.name;
      state.vars.tables.set(name, std::move(table));
    }
    forget_tables(state);
  }

 private:
  Dbptr db_ = dbinvalid();
  std::vector<EVTable> tables_;
  std::string schema_name_;
};

void prime_monitor(ServerState &state) {
  for (const char *name : kMonitoredTables) {
    EVTable table = state.vars.tables.get(name);
    check_table(table, 1);
    state.monitored.set(name, std::move(table));
  }
}

void close_database(ServerState &state) {
  free_match_hooks(state.vars);
  forget_tables(state);
  state.follower.unbind();
  for (const std::string &name : state.vars.tables.keys()) {
    state.vars.tables.find(name)->db = dbinvalid();
  }
  for (const std::string &name : state.monitored.keys()) {
    state.monitored.find(name)->db = dbinvalid();
  }
  dbclose(std::exchange(state.db, dbinvalid()));
}

/* The tables that are read together with a table. */
std::vector<std::string> tables_read_with(const std::string &table) {
  if (table == "event") return {"event", "origin", "origerr", "netmag", "mt"};
  if (table == "origin") return {"origin", "origerr", "netmag", "mt"};
  if (table == "assoc") return {"assoc", "arrival", "site"};
  if (table == "detection") return {"detection", "site"};
  if (table == "netmag") return {"netmag", "stamag"};
  return {table};
}

int check_named(ServerState &state, const std::string &name, int update) {
  if (!database_open(state, "EVServer::checkTable")) return -1;
  EVTable *table = watched_table(state, name, "EVServer::checkTable");
  return table == nullptr ? -1 : check_table(*table, update);
}

}  // namespace
}  // namespace ksutil::events

using namespace ksutil::events;

int EVServer::setDb(std::string dbname) {
  {
    const std::lock_guard lock(state_->database_lock);
    if (!state_->dbname.empty()) {
      if (state_->dbname == dbname) return 0;
      ks_register_error(0, "EVServer::setDb: Cannot reset Db name.\n");
      return -1;
    }
    OpenDatabase opened;
    if (!opened.open(dbname, state_->remote_mount_mode, "setDb")) return -1;
    opened.install(*state_);
    prime_monitor(*state_);
  }
  if (launchThread() < 0) {
    ks_register_error(0, "EVServer::setDb: launchThread() error\n");
    return -1;
  }
  const std::lock_guard lock(state_->database_lock);
  state_->dbname = std::move(dbname);
  return 0;
}

int EVServer::openTable(Dbptr db, std::string table, int remote_mount_mode) {
  const std::lock_guard lock(state_->database_lock);
  EVTable opened;
  if (!open_table(db, table, remote_mount_mode, opened)) return -1;
  state_->vars.tables.set(table, std::move(opened));
  return 0;
}

int EVServer::checkTable(EVTable *table, int update) {
  if (table == nullptr) {
    ks_register_error(0, "EVServer::checkTable: no table given.\n");
    return -1;
  }
  const std::lock_guard lock(state_->database_lock);
  return database_open(*state_, "EVServer::checkTable") ? check_table(*table, update)
                                                        : -1;
}

int EVServer::checkTable(std::string table, int update) {
  const std::lock_guard lock(state_->database_lock);
  return check_named(*state_, table, update);
}

int EVServer::checkTableTables(std::string table, int update) {
  const std::lock_guard lock(state_->database_lock);
  int highest = 0;
  bool failed = false;
  for (const std::string &name : tables_read_with(table)) {
    const int code = check_named(*state_, name, update);
    failed = failed || code < 0;
    highest = std::max(highest, code);
  }
  return failed ? -1 : highest;
}

int EVServer::checkDatabase() {
  Array<std::string, int> changes;
  {
    const std::lock_guard lock(state_->database_lock);
    if (!database_open(*state_, "EVServer::checkDatabase")) return -1;
    const ksutil::ElogScope quiet;
    for (const char *name : kMonitoredTables) {
      changes.set(name, check_table(*state_->monitored.find(name), 1));
    }
  }
  state_->clients.database_checked(changes);
  return 0;
}

int EVServer::reset() {
  const std::lock_guard lock(state_->database_lock);
  if (state_->dbname.empty()) {
    ks_register_error(0, "EVServer::reset: No database currently open.\n");
    return -1;
  }
  OpenDatabase opened;
  if (!opened.open(state_->dbname, state_->remote_mount_mode, "reset")) return -1;
  if (state_->db.database != dbINVALID) close_database(*state_);
  opened.install(*state_);
  return 0;
}

int EVServer::closeDb() {
  const std::lock_guard lock(state_->database_lock);
  if (!database_open(*state_, "EVServer::closeDb")) return -1;
  close_database(*state_);
  return 0;
}

void EVServer::freeHooks() {
  const std::lock_guard lock(state_->database_lock);
  free_match_hooks(state_->vars);
}

void EVServer::freeVectors() {
  Published &published = state_->published;
  const std::lock_guard lock(published.lock);
  published.set_events(std::make_shared<Table<EVEvent>>());
  published.detections = std::make_shared<Table<EVDetection>>();
  published.expanded.clear();
  published.reads.clear();
  published.set_latest_time(0.0);
  published.lastmodified_evid = -1;
  published.mostrecent_evid = -1;
  /* Not before: a refresh in between would take note of the tables, and publish what it
   * has read only to have it freed. */
  const std::lock_guard database(state_->database_lock);
  forget_tables(*state_);
}

int EVServer::getsetScratch(std::string table, std::string &record, int set) {
  constexpr const char *kName = "EVServer::getsetScratch";
  const std::lock_guard lock(state_->database_lock);
  if (!database_open(*state_, kName)) return -1;
  const EVTable *watched = watched_table(*state_, table, kName);
  if (watched == nullptr) return -1;
  if (set != 0) {
    if (ksutil::db::set_scratch(watched->db, record)) return 0;
    ks_register_error(0, "%s: cannot set the scratch record of %s.\n", kName,
                      table.c_str());
    return -1;
  }
  const ksutil::db::RowText text = ksutil::db::record_text(
      dblookup(watched->db, nullptr, nullptr, nullptr, "dbSCRATCH"));
  if (text.empty()) {
    ks_register_error(0, "%s: cannot read the scratch record of %s.\n", kName,
                      table.c_str());
    return -1;
  }
  record = text.str();
  return 0;
}
