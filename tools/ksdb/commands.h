/* The subcommands of ksdb: each adds itself to the program and sets the action. */
#ifndef KSUTIL_TOOLS_KSDB_COMMANDS_H
#define KSUTIL_TOOLS_KSDB_COMMANDS_H

#include <string>

#include "platform/db/db.h"
#include "tools/common/cli.h"

namespace ksutil::tools {

void add_info(CLI::App &app, Action &action);
void add_list(CLI::App &app, Action &action);
void add_schema(CLI::App &app, Action &action);
void add_verify(CLI::App &app, Action &action);
void add_nextid(CLI::App &app, Action &action);
void add_views(CLI::App &app, Action &action);  // subset, sort, join, group
void add_plot(CLI::App &app, Action &action);
void add_import(CLI::App &app, Action &action);

/* A database that is open for one scope. */
class OpenDatabase {
 public:
  OpenDatabase(const std::string &name, const char *mode) {
    open_ = dbopen_noshare(name.c_str(), mode, &db_) == 0;
  }
  ~OpenDatabase() {
    if (open_) dbclose(db_);
  }
  OpenDatabase(const OpenDatabase &) = delete;
  OpenDatabase &operator=(const OpenDatabase &) = delete;

  explicit operator bool() const { return open_; }
  Dbptr get() const { return db_; }
  Dbptr table(const std::string &name) const {
    return dblookup(db_, "", name.c_str(), "", "");
  }

 private:
  Dbptr db_ = dbinvalid();
  bool open_ = false;
};

}  // namespace ksutil::tools
#endif
