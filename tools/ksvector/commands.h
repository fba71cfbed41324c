/* commands: lists the subcommands of ksvector. */
#ifndef KSUTIL_TOOLS_KSVECTOR_COMMANDS_H
#define KSUTIL_TOOLS_KSVECTOR_COMMANDS_H

#include "tools/common/cli.h"

namespace ksutil::tools {

Command info_command();
Command read_command();
Command eval_command();
Command stats_command();
Command plot_command();

}  // namespace ksutil::tools
#endif
