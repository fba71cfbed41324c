#include "tools/common/help.h"

#include <algorithm>
#include <sstream>

namespace ksutil::tools {
namespace {

constexpr std::size_t kNames = 28;         // columns of names and arguments
constexpr std::size_t kDescriptions = 52;  // columns beside them

/* Words as lines of at most kDescriptions columns. */
std::string wrapped(const std::string &text) {
  std::istringstream words(text);
  std::string lines, word;
  std::size_t column = 0;
  while (words >> word) {
    if (column > 0 && column + 1 + word.size() > kDescriptions) {
      lines += '\n';
      column = 0;
    }
    if (column > 0) {
      lines += ' ';
      column++;
    }
    lines += word;
    column += word.size();
  }
  return lines;
}

}  // namespace

HelpFormatter::HelpFormatter() {
  column_width(kNames);
  label("SUBCOMMAND", "COMMAND");
  label("Subcommands", "Commands");
  label("Positionals", "Operands");
}

std::string HelpFormatter::make_subcommand(const CLI::App *command) const {
  std::ostringstream out;
  CLI::detail::format_help(out, command->get_name(),
                           wrapped(command->get_description()), kNames);
  return out.str();
}

/* Leaves out the options that exclude each other, which the error message names, and
 * the operands, which the usage line shows: only the kind of argument and the default
 * remain. */
std::string HelpFormatter::make_option_opts(const CLI::Option *option) const {
  if (option->get_positional()) return option->get_expected_max() > 1 ? " ..." : "";
  if (option->get_type_size() == 0) return "";
  std::string text = " " + option->get_type_name();
  if (!option->get_default_str().empty()) text += "=" + option->get_default_str();
  return text;
}

std::string HelpFormatter::make_option_desc(const CLI::Option *option) const {
  return wrapped(option->get_description());
}

}  // namespace ksutil::tools
