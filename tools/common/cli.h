/* cli: runs the command-line programs, whose subcommands each program lists in a table.
 *
 * CONTRIBUTING.md, "Programs", has the rules that all programs keep. */
#ifndef KSUTIL_TOOLS_COMMON_CLI_H
#define KSUTIL_TOOLS_COMMON_CLI_H

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tools/common/messages.h"

namespace ksutil::tools {

inline constexpr int kOk = 0;
inline constexpr int kFailure = 1;
inline constexpr int kUsage = 2;

/* The work of the chosen subcommand; set while the command line is parsed. */
using Action = std::function<int()>;

/* One subcommand of a program. */
struct Command {
  std::string name, description;
  /* Command lines that run as printed; the first one also stands in the help of the
   * program. */
  std::vector<std::string> examples;
  /* Adds the options and operands to the parser of the subcommand, and the callback that
   * sets the action. */
  std::function<void(CLI::App &, Action &)> add;
  /* Left out of the program's help and of the completion: an older name. */
  bool hidden = false;
};

/* A subcommand with its options in a record: `describe` adds them to the parser, `act` runs
 * with them and returns the exit code. */
template <class Options>
Command make_command(std::string name, std::string description,
                     std::vector<std::string> examples,
                     void (*describe)(CLI::App &, Options &),
                     int (*act)(const Options &)) {
  return {std::move(name), std::move(description), std::move(examples),
          [describe, act](CLI::App &command, Action &action) {
            const auto options = std::make_shared<Options>();
            describe(command, *options);
            command.callback([options, act, &action] {
              action = [options, act] { return act(*options); };
            });
          },
          false};
}

struct Program {
  std::string name, description;
  std::vector<Command> commands;
  std::string notes;  // of the help, after the examples; whole lines, or empty
};

/* Parses the command line, runs the chosen subcommand and returns the exit code.  Answers
 * --help, --version and --completion (a script for bash) itself.  After a failed action
 * the causes in the error register are printed to standard error. */
int run_program(const Program &program, int argc, char **argv);

}  // namespace ksutil::tools
#endif
