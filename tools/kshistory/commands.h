/* commands: lists the subcommands of kshistory. */
#ifndef KSUTIL_TOOLS_KSHISTORY_COMMANDS_H
#define KSUTIL_TOOLS_KSHISTORY_COMMANDS_H

#include "tools/common/cli.h"

namespace ksutil::tools {

Command add_command();
Command show_command();
Command plot_command();

}  // namespace ksutil::tools
#endif
