/* commands: lists the subcommands of kswave. */
#ifndef KSUTIL_TOOLS_KSWAVE_COMMANDS_H
#define KSUTIL_TOOLS_KSWAVE_COMMANDS_H

#include "tools/common/cli.h"

namespace ksutil::tools {

Command list_command();
Command get_command();
Command plot_command();
Command response_command();
Command spectrum_command();
Command pick_command();

}  // namespace ksutil::tools
#endif
