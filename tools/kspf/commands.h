/* commands: lists the subcommands of kspf. */
#ifndef KSUTIL_TOOLS_KSPF_COMMANDS_H
#define KSUTIL_TOOLS_KSPF_COMMANDS_H

#include <string>

#include "config/kspf.h"
#include "tools/common/cli.h"

namespace ksutil::tools {

Command get_command();
Command set_command();
Command insert_command();
Command delete_command();
Command check_command();
Command merge_command();
Command format_command();

/* Reads a file, "-" for standard input, or with `search` what the search path has under a
 * name; false with messages in the error register. */
bool read_input(const std::string &file, bool search, KSPf &pf);

/* Writes to a file, or to standard output when it is empty; an exit code. */
int write_output(const KSPf &pf, const std::string &file);

}  // namespace ksutil::tools
#endif
