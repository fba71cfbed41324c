#include <algorithm>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "core/register.h"
#include "events/evserver.h"
#include "events/server/internal/server_state.h"
#include "events/server/internal/server_tables.h"
#include "platform/db/access.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"

namespace ksutil::events {
namespace {

constexpr const char *kMonitoredTables[] = {"wfdisc", "arrival", "detection"};

/* Points checkDatabase's memory to the tables that are open now; counts and times
 * stay. */
void monitor_open_tables(ServerState &state) {
  for (const char *name : kMonitoredTables) {
    EVTable *const monitored = state.monitored.find(name);
    if (monitored != nullptr) monitored->db = state.database.table(name)->db;
  }
}

void prime_monitor(ServerState &state) {
  for (const char *name : kMonitoredTables) {
    EVTable table = *state.database.table(name);
    WatchedDatabase::check(table);
    state.monitored.set(name, std::move(table));
  }
}

/* The table of that name; null, with a message, if it is not watched. */
EVTable *watched_table(ServerState &state, const char *who, const std::string &name) {
  EVTable *const table = state.database.table(name);
  if (table == nullptr) fail(who, "no %s table", name.c_str());
  return table;
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
  constexpr const char *kWho = "EVServer::checkTable";
  if (!state.database.require_open(kWho)) return -1;
  EVTable *const table = watched_table(state, kWho, name);
  return table == nullptr ? -1 : WatchedDatabase::check(*table, update != 0);
}

}  // namespace
}  // namespace ksutil::events

using namespace ksutil::events;
using ksutil::fail;

int EVServer::setDb(std::string dbname) {
  constexpr const char *kWho = "EVServer::setDb";
  WatchedDatabase &database = state_->database;
  {
    const WatchedDatabase::Hold hold = database.hold();
    if (!database.name().empty()) {
      if (database.name() == dbname) return 0;
      return fail(kWho, "Cannot reset Db name");
    }
    if (!database.open(dbname, kWho)) return -1;
    state_->forget_tables();
    prime_monitor(*state_);
  }
  if (launchThread() < 0) {
    ks_register_error(0, "%s: launchThread() error\n", kWho);
    const WatchedDatabase::Hold hold = database.hold();
    database.unbind();
    return -1;
  }
  return 0;
}

int EVServer::openTable(Dbptr db, std::string table, int remote_mount_mode) {
  const WatchedDatabase::Hold hold = state_->database.hold();
  EVTable opened;
  if (!open_table(db, table, remote_mount_mode, opened)) return -1;
  state_->database.vars().tables.set(table, std::move(opened));
  return 0;
}

int EVServer::checkTable(EVTable *table, int update) {
  constexpr const char *kWho = "EVServer::checkTable";
  if (table == nullptr) return fail(kWho, "no table given");
  const WatchedDatabase::Hold hold = state_->database.hold();
  if (!state_->database.require_open(kWho)) return -1;
  return WatchedDatabase::check(*table, update != 0);
}

int EVServer::checkTable(std::string table, int update) {
  const WatchedDatabase::Hold hold = state_->database.hold();
  return check_named(*state_, table, update);
}

int EVServer::checkTableTables(std::string table, int update) {
  const WatchedDatabase::Hold hold = state_->database.hold();
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
    const WatchedDatabase::Hold hold = state_->database.hold();
    if (!state_->database.require_open("EVServer::checkDatabase")) return -1;
    const ksutil::ElogScope quiet;
    const ksutil::db::OneLook look(
        ksutil::db::database_store(state_->database.handle()));
    for (const char *name : kMonitoredTables) {
      changes.set(name, WatchedDatabase::check(*state_->monitored.find(name)));
    }
  }
  state_->clients.database_checked(changes);
  return 0;
}

int EVServer::reset() {
  const WatchedDatabase::Hold hold = state_->database.hold();
  if (!state_->database.reopen("EVServer::reset")) return -1;
  state_->forget_tables();
  monitor_open_tables(*state_);
  return 0;
}

int EVServer::closeDb() {
  const WatchedDatabase::Hold hold = state_->database.hold();
  if (!state_->database.require_open("EVServer::closeDb")) return -1;
  state_->database.close();
  state_->forget_tables();
  monitor_open_tables(*state_);
  return 0;
}

void EVServer::freeHooks() {
  const WatchedDatabase::Hold hold = state_->database.hold();
  state_->database.free_indexes();
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
  /* Forget the tables last: otherwise a refresh in between would remember them and
   * publish a list that is then freed. */
  const WatchedDatabase::Hold hold = state_->database.hold();
  state_->forget_tables();
}

int EVServer::getsetScratch(std::string table, std::string &record, int set) {
  constexpr const char *kWho = "EVServer::getsetScratch";
  const WatchedDatabase::Hold hold = state_->database.hold();
  if (!state_->database.require_open(kWho)) return -1;
  const EVTable *const watched = watched_table(*state_, kWho, table);
  if (watched == nullptr) return -1;
  if (set != 0) {
    if (ksutil::db::set_scratch(watched->db, record)) return 0;
    return fail(kWho, "cannot set the scratch record of %s", table.c_str());
  }
  const ksutil::db::RowText text = ksutil::db::record_text(
      dblookup(watched->db, nullptr, nullptr, nullptr, "dbSCRATCH"));
  if (text.empty()) {
    return fail(kWho, "cannot read the scratch record of %s", table.c_str());
  }
  record = text.str();
  return 0;
}
