/* completion: makes a script with which bash completes the command line of a program. */
#ifndef KSUTIL_TOOLS_COMMON_COMPLETION_H
#define KSUTIL_TOOLS_COMMON_COMPLETION_H

#include <CLI/CLI.hpp>

namespace ksutil::tools {

/* Prints the script to standard output: it knows the subcommands and their options;
 * operands are completed as file names. */
void print_completion(const CLI::App &app);

}  // namespace ksutil::tools
#endif
