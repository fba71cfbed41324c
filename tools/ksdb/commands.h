/* commands: lists the subcommands of ksdb. */
#ifndef KSUTIL_TOOLS_KSDB_COMMANDS_H
#define KSUTIL_TOOLS_KSDB_COMMANDS_H

#include "tools/common/cli.h"
#include "tools/common/open_database.h"

namespace ksutil::tools {

Command info_command();
Command create_command();
Command copy_command();
Command list_command();
Command subset_command();
Command sort_command();
Command join_command();
Command group_command();
Command plot_command();
Command schema_command();
Command verify_command();
Command nextid_command();
Command import_command();
Command add_command();
Command set_command();
Command delete_command();
Command prefer_command();
Command dedup_command();
Command export_command();
Command formats_command();
Command follow_command();

}  // namespace ksutil::tools
#endif
