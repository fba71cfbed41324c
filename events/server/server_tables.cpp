#include "events/server/internal/server_tables.h"

#include <string_view>
#include <utility>

#include "core/register.h"
#include "platform/db/access.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"
#include "platform/stock/fspath.h"
#include "platform/stock/memory.h"

namespace ksutil::events {
namespace {

constexpr const char *kOpenTable = "EVServer::openTable";

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

/* False if the file is refused. */
bool accept_mount(const EVTable &table, int remote_mount_mode) {
  if (remote_mount_mode < 0) return true;
  int present = 0;
  if (dbquery(table.db, dbq_table_present, &present) < 0) return false;
  if (present == 0 || !is_remote(table.filename)) return true;
  if (remote_mount_mode >= 1) {
    return fail(kOpenTable, "Database file %s appears to be remotely mounted",
                table.filename.c_str());
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
    return fail(kOpenTable, "no %s table in the schema", name.c_str());
  }
  {
    const ElogScope quiet;
    table.null_record =
        db::record_text(dblookup(table.db, nullptr, nullptr, nullptr, "dbNULL")).str();
  }
  if (table.null_record.empty()) {
    return fail(kOpenTable, "no %s table null record", name.c_str());
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

DatabaseOwner server_database(const std::atomic<int32_t> &remote_mount_mode) {
  DatabaseOwner owner;
  owner.name = "EVServer";
  owner.tables = kEVTableNames;
  owner.mode = "r+";
  owner.open_function = "dbopen_noshare";
  owner.table_function = "openTable";
  owner.open_table = [&remote_mount_mode](Dbptr db, const char *name, EVTable &table) {
    /* Station tables may be shared by many sites over a mount. */
    const int mode = std::string_view(name) == "site" ? -1 : remote_mount_mode.load();
    return open_table(db, name, mode, table);
  };
  return owner;
}

}  // namespace ksutil::events
