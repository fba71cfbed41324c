/* The subcommands of ksgrid: each adds itself to the program and sets the action. */
#ifndef KSUTIL_TOOLS_KSGRID_COMMANDS_H
#define KSUTIL_TOOLS_KSGRID_COMMANDS_H

#include "tools/common/cli.h"

namespace ksutil::tools {

void add_info(CLI::App &app, Action &action);
void add_eval(CLI::App &app, Action &action);
void add_plot(CLI::App &app, Action &action);
void add_make(CLI::App &app, Action &action);

}  // namespace ksutil::tools
#endif
