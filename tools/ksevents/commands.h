/* The subcommands of ksevents: each adds itself to the program and sets the action. */
#ifndef KSUTIL_TOOLS_KSEVENTS_COMMANDS_H
#define KSUTIL_TOOLS_KSEVENTS_COMMANDS_H

#include "tools/common/cli.h"

namespace ksutil::tools {

void add_list(CLI::App &app, Action &action);
void add_show(CLI::App &app, Action &action);
void add_view(CLI::App &app, Action &action);
void add_watch(CLI::App &app, Action &action);
void add_diff(CLI::App &app, Action &action);

}  // namespace ksutil::tools
#endif
