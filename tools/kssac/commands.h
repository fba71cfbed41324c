/* commands: lists the subcommands of kssac. */
#ifndef KSUTIL_TOOLS_KSSAC_COMMANDS_H
#define KSUTIL_TOOLS_KSSAC_COMMANDS_H

#include "tools/common/cli.h"

namespace ksutil::tools {

Command from_db_command();
Command header_command();
Command dump_command();
Command set_command();
Command swap_command();
Command plot_command();
Command to_db_command();

}  // namespace ksutil::tools
#endif
