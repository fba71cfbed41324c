/* commands: lists the subcommands of ksmoment. */
#ifndef KSUTIL_TOOLS_KSMOMENT_COMMANDS_H
#define KSUTIL_TOOLS_KSMOMENT_COMMANDS_H

#include "tools/common/cli.h"

namespace ksutil::tools {

Command info_command();
Command compare_command();
Command plot_command();

}  // namespace ksutil::tools
#endif
