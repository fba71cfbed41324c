/* The subcommands of kshistory: each adds itself to the program and sets the action. */
#ifndef KSUTIL_TOOLS_KSHISTORY_COMMANDS_H
#define KSUTIL_TOOLS_KSHISTORY_COMMANDS_H

#include "tools/common/cli.h"

namespace ksutil::tools {

void add_show(CLI::App &app, Action &action);
void add_add(CLI::App &app, Action &action);
void add_plot(CLI::App &app, Action &action);

}  // namespace ksutil::tools
#endif
