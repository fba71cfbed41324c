#include <cstdlib>
#include <string>

#include "core/register.h"
#include "events/database/internal/table_change.h"
#include "events/server/internal/list_follower.h"
#include "events/server/internal/tables.h"
#include "platform/db/access.h"
#include "platform/elog/elog.h"
#include "platform/stock/fspath.h"
#include "platform/stock/memory.h"

namespace ksutil::events {
namespace {

bool query_text(Dbptr table, int code, std::string &text) {
  const char *found = nullptr;
  if (dbquery(table, code, &found) < 0 || found == nullptr) return false;
  text = found;
  return true;
}

bool is_remote(const std::string &path) {
  char *local = nullptr, *host = nullptr;
  if (fspath(path.c_str(), &local, &host) != 0) return false;
  const MallocPtr<char> local_owner(local), host_owner(host);
  return host != nullptr && *host != '\0';
}

/* False when the file is refused. */
bool accept_mount(const EVTable &table, int remote_mount_mode) {
  if (remote_mount_mode < 0) return true;
  int present = 0;
  if (dbquery(table.db, dbq_table_present, &present) < 0) return false;
  if (present == 0 || !is_remote(table.filename)) return true;
  if (remote_mount_mode >= 1) {
    ks_register_error(
        0, "EVServer::openTable: Database file %s appears to be remotely mounted.\n",
        table.filename.c_str());
    return false;
  }
  ks_complain(0,
              "EVServer::openTable: WARNING: Database file %s appears to be remotely "
              "mounted.\n",
              table.filename.c_str());
  return true;
}

}  // namespace

bool open_table(Dbptr db, const std::string &name, int remote_mount_mode,
                EVTable &opened) {
  EVTable table;
  table.name = name;
  table.db = dblookup(db, nullptr, name.c_str(), nullptr, nullptr);
  if (table.db.table == dbINVALID) {
    ks_register_error(0, "EVServer::openTable: no %s table in the schema.\n",
                      name.c_str());
    return false;
  }
  {
    const ElogScope quiet;
    table.null_record =
        db::record_text(dblookup(table.db, nullptr, nullptr, nullptr, "dbNULL")).str();
  }
  if (table.null_record.empty()) {
    ks_register_error(0, "EVServer::openTable: no %s table null record.\n",
                      name.c_str());
    return false;
  }
  long record_size = 0;
  if (!query_text(table.db, dbq_file_name, table.filename) ||
      !query_text(table.db, dbq_dir_name, table.dirname) ||
      dbquery(table.db, dbq_record_size, &record_size) < 0) {
    return false;
  }
  table.record_size = record_size;
  if (!accept_mount(table, remote_mount_mode)) return false;
  opened = std::move(table);
  return true;
}

int check_table(EVTable &table, int update) {
  TableMemory seen{table.count, table.filetime};
  const int code = table_change(table.db, seen);
  if (code >= 0 && update != 0) {
    table.count = seen.count;
    table.filetime = seen.filetime;
  }
  return code;
}

bool database_open(const ServerState &state, const char *function) {
  if (state.db.database != dbINVALID) return true;
  ks_register_error(0, "%s: No database currently open.\n", function);
  return false;
}

EVTable *watched_table(ServerState &state, const std::string &name,
                       const char *function) {
  EVTable *table = state.vars.tables.find(name);
  if (table == nullptr) {
    ks_register_error(0, "%s: no %s table.\n", function, name.c_str());
  }
  return table;
}

void forget_tables(ServerState &state) {
  for (const std::string &name : state.vars.tables.keys()) {
    state.vars.tables.find(name)->count = -1;
  }
  state.last_event_count = -1;
  state.last_detection_count = -1;
  state.follower.forget();
}

}  // namespace ksutil::events
