/* The subcommands of kssac: each adds itself to the program and sets the action. */
#ifndef KSUTIL_TOOLS_KSSAC_COMMANDS_H
#define KSUTIL_TOOLS_KSSAC_COMMANDS_H

#include "tools/common/cli.h"

namespace ksutil::tools {

void add_header(CLI::App &app, Action &action);
void add_dump(CLI::App &app, Action &action);
void add_set(CLI::App &app, Action &action);
void add_from_db(CLI::App &app, Action &action);
void add_to_db(CLI::App &app, Action &action);
void add_swap(CLI::App &app, Action &action);
void add_sac_plot(CLI::App &app, Action &action);

}  // namespace ksutil::tools
#endif
