/* commands: lists the subcommands of ksevents. */
#ifndef KSUTIL_TOOLS_KSEVENTS_COMMANDS_H
#define KSUTIL_TOOLS_KSEVENTS_COMMANDS_H

#include "tools/common/cli.h"

namespace ksutil::tools {

Command list_command();
Command show_command();
Command view_command();  // the older name of show
Command plot_command();
Command watch_command();
Command diff_command();

}  // namespace ksutil::tools
#endif
