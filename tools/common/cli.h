/* What every command-line program shares: exit codes, error output, subcommands. */
#ifndef KSUTIL_TOOLS_COMMON_CLI_H
#define KSUTIL_TOOLS_COMMON_CLI_H

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

namespace ksutil::tools {

inline constexpr int kOk = 0;
inline constexpr int kFailure = 1;
inline constexpr int kUsage = 2;

/* What the chosen subcommand will do; set while the command line is parsed. */
using Action = std::function<int()>;

/* Parses the command line, runs the action and returns the exit code.  A failed action's
 * messages in the error register are printed to standard error. */
int run(CLI::App &app, Action &action, int argc, char **argv);

/* Adds --version. */
void add_version(CLI::App &app);

/* Prints a line of this program's own to standard error, after its name. */
void complain(const std::string &text);

/* Prints the error register to standard error and empties it. */
void print_register();

}  // namespace ksutil::tools
#endif
