/* The subcommands of ksdb: each adds itself to the program and sets the action. */
#ifndef KSUTIL_TOOLS_KSDB_COMMANDS_H
#define KSUTIL_TOOLS_KSDB_COMMANDS_H

#include "tools/common/cli.h"
#include "tools/common/open_database.h"

namespace ksutil::tools {

void add_info(CLI::App &app, Action &action);
void add_list(CLI::App &app, Action &action);
void add_schema(CLI::App &app, Action &action);
void add_verify(CLI::App &app, Action &action);
void add_nextid(CLI::App &app, Action &action);
void add_views(CLI::App &app, Action &action);  // subset, sort, join, group
void add_plot(CLI::App &app, Action &action);
void add_import(CLI::App &app, Action &action);

}  // namespace ksutil::tools
#endif
