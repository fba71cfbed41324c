#include "tools/common/cli.h"

#include <cxxabi.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <typeinfo>

#include "core/version.h"
#include "platform/stock/nearest_name.h"
#include "tools/common/completion.h"
#include "tools/common/help.h"
#include "tools/common/out_of_memory.h"

namespace ksutil::tools {
namespace {

std::string examples_text(const std::vector<std::string> &examples) {
  std::string text = examples.size() == 1 ? "Example:\n" : "Examples:\n";
  for (const std::string &example : examples) text += "  " + example + "\n";
  return text;
}

std::string program_footer(const Program &program) {
  std::vector<std::string> examples;
  for (const Command &command : program.commands) {
    if (!command.hidden && !command.examples.empty()) {
      examples.push_back(command.examples.front());
    }
  }
  return examples_text(examples) + "'" + program.name +
         " COMMAND --help' shows the options and examples of a command.\n" +
         program.notes + "Exit codes: 0 success, 1 failure, 2 wrong usage.";
}

/* The parser's sentences, shortened where they add nothing to the argument itself. */
std::string usage_text(const CLI::ParseError &error) {
  const std::string text = error.what();
  const std::string conversion = "Could not convert: ";
  if (text.starts_with(conversion)) {
    const std::string pair = text.substr(conversion.size());
    const std::size_t end = std::min(pair.find(" = "), pair.size());
    return pair.substr(0, end) + ": '" + pair.substr(std::min(end + 3, pair.size())) +
           "' is not a number";
  }
  return text;
}

/* What is wrong with arguments that a command does not take: an unknown option is named
 * alone, without the operands beside it.  Empty when none looks like an option. */
std::string unknown_option_text(const CLI::App &app) {
  const std::vector<std::string> extras = app.remaining(true);
  const auto option = std::find_if(extras.begin(), extras.end(), [](const auto &word) {
    return word.size() > 1 && word[0] == '-' && word.find_first_of("0123456789.") != 1;
  });
  if (option == extras.end()) return "";
  const std::string name = option->substr(0, option->find('='));
  std::vector<std::string> known;
  for (const CLI::App *command : app.get_subcommands()) {
    for (const CLI::Option *each : command->get_options()) {
      for (const std::string &word : each->get_lnames()) known.push_back("--" + word);
    }
  }
  return "there is no option " + name +
         nearest_hint(name, {known.begin(), known.end()});
}

/* Prints help or version (kOk), or one line about the wrong usage. */
int end_parsing(const CLI::App &app, const CLI::ParseError &error) {
  if (error.get_exit_code() == 0) return app.exit(error);
  std::string name = app.get_name();
  for (const CLI::App *command : app.get_subcommands()) {
    name += " " + command->get_name();
  }
  std::string text;
  if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError)) {
    text = unknown_option_text(app);
  }
  if (text.empty()) text = usage_text(error);
  complain(text + "; see '" + name + " --help'");
  return kUsage;
}

/* Memory can be short where no exception may pass, as in a destructor that allocates. */
[[noreturn]] void end_without_exception() {
  const std::type_info *const thrown = abi::__cxa_current_exception_type();
  /* The type is not known where a destructor throws; memory is all that it can lack. */
  const bool of_memory = thrown == nullptr ? std::uncaught_exceptions() > 0
                                           : *thrown == typeid(std::bad_alloc);
  if (!of_memory) std::abort();
  complain_of_memory();
  std::_Exit(kFailure);
}

int run_action(const Action &action) {
  int result = kFailure;
  try {
    result = action();
  } catch (const std::bad_alloc &) {
    complain_of_memory();
  } catch (const std::exception &error) {
    complain(error.what());
  } catch (const char *error) {
    complain(error);
  }
  if (result != kOk) print_register();
  /* This flush does not repeat a write that failed earlier: ferror reports that one. */
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    complain("cannot write the output");
    result = kFailure;
  }
  return result;
}

/* Whether the first argument is a word that is not a command: the parser would complain
 * about the words after it instead. */
bool is_unknown_command(const Program &program, int argc, char **argv) {
  return argc > 1 && argv[1][0] != '-' &&
         std::none_of(program.commands.begin(), program.commands.end(),
                      [&](const Command &command) { return command.name == argv[1]; });
}

std::string command_names(const Program &program) {
  std::string names;
  for (const Command &command : program.commands) {
    if (!command.hidden) names += (names.empty() ? "" : ", ") + command.name;
  }
  return names;
}

}  // namespace

int run_program(const Program &program, int argc, char **argv) {
  /* Without this, a write beyond the file-size limit of the process would end it; now
   * the write fails with a message. */
  std::signal(SIGXFSZ, SIG_IGN);
  std::set_terminate(end_without_exception);
  CLI::App app(program.description, program.name);
  app.footer(program_footer(program));
  app.formatter(std::make_shared<HelpFormatter>());
  app.set_version_flag("--version", program.name + " " KSUTIL_VERSION);
  app.add_flag_callback(
      "--completion",
      [&] {
        print_completion(app);
        throw CLI::Success();
      },
      "Print a completion script for bash and exit");
  app.require_subcommand(1);
  Action action;
  for (const Command &command : program.commands) {
    CLI::App *parser = app.add_subcommand(command.name, command.description);
    parser->footer(command.examples.empty() ? "" : examples_text(command.examples));
    parser->group(command.hidden ? "" : "Commands");
    command.add(*parser, action);
  }
  if (argc < 2) {
    complain("a command is needed: " + command_names(program) + "; see '" +
             program.name + " --help'");
    return kUsage;
  }
  if (is_unknown_command(program, argc, argv)) {
    complain("'" + std::string(argv[1]) + "' is not a command (" +
             command_names(program) + ")");
    return kUsage;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError &error) {
    return end_parsing(app, error);
  }
  return run_action(action);
}

}  // namespace ksutil::tools
