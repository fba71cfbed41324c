/* commands: lists the subcommands of ksgrid. */
#ifndef KSUTIL_TOOLS_KSGRID_COMMANDS_H
#define KSUTIL_TOOLS_KSGRID_COMMANDS_H

#include "tools/common/cli.h"

namespace ksutil::tools {

Command make_grid_command();
Command info_command();
Command eval_command();
Command plot_command();

}  // namespace ksutil::tools
#endif
