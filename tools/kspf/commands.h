/* The subcommands of kspf: each adds itself to the program and sets the action. */
#ifndef KSUTIL_TOOLS_KSPF_COMMANDS_H
#define KSUTIL_TOOLS_KSPF_COMMANDS_H

#include <string>

#include "config/kspf.h"
#include "tools/common/cli.h"

namespace ksutil::tools {

void add_get(CLI::App &app, Action &action);
void add_set(CLI::App &app, Action &action);
void add_insert(CLI::App &app, Action &action);
void add_delete(CLI::App &app, Action &action);
void add_check(CLI::App &app, Action &action);
void add_merge(CLI::App &app, Action &action);
void add_format(CLI::App &app, Action &action);

/* Reads a file, "-" for standard input, or with `search` what the search path has under a
 * name; false with messages in the error register. */
bool read_input(const std::string &file, bool search, KSPf &pf);

/* Writes to a file, or to standard output when it is empty; an exit code. */
int write_output(const KSPf &pf, const std::string &file);

}  // namespace ksutil::tools
#endif
