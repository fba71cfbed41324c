#include "tools/common/options.h"

#include <cstdint>

#include "platform/stock/text.h"

namespace ksutil::tools {
namespace {

/* How much of a wrong argument an error message repeats. */
constexpr std::size_t kShown = 40;

std::string shown(const std::string &text) {
  return text.size() <= kShown ? "'" + text + "'"
                               : "'" + text.substr(0, kShown) + "...'";
}

}  // namespace

void add_database(CLI::App &command, std::string &database) {
  command.add_option("database", database, "path/name of the database")->required();
}

void add_evid(CLI::App &command, long &evid) {
  command.add_option("evid", evid, "id of the event")
      ->required()
      ->check(whole_number(0));
}

void add_limit(CLI::App &command, long &limit, const std::string &things) {
  command.add_option("--limit", limit, "At most N " + things)
      ->type_name("N")
      ->check(whole_number(0));
}

void add_quiet(CLI::App &command, bool &quiet) {
  command.add_flag("-q,--quiet", quiet, "No progress bar and no line about success");
}

void add_raw(CLI::App &command, bool &raw) {
  command.add_flag("--raw", raw, "Values as stored: times in epoch seconds, no nulls");
}

CLI::Option *add_list(CLI::App &command, const std::string &name,
                      std::vector<std::string> &items, const std::string &description) {
  return command
      .add_option_function<std::string>(
          name, [&items](const std::string &list) { items = split_list(list); },
          description)
      ->type_name("A,B,...");
}

std::vector<std::string> split_list(const std::string &list) {
  std::vector<std::string> items(1);
  int depth = 0;
  char quote = '\0';
  for (std::size_t i = 0; i < list.size(); i++) {
    const char c = list[i];
    if (quote != '\0') {
      if (c == '\\' && i + 1 < list.size()) {
        items.back() += c;
        items.back() += list[++i];
        continue;
      }
      if (c == quote) quote = '\0';
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else if (c == '(' || c == '[') {
      depth++;
    } else if (c == ')' || c == ']') {
      depth--;
    } else if (c == ',' && depth <= 0) {
      items.emplace_back();
      continue;
    }
    items.back() += c;
  }
  for (std::string &item : items) item = std::string(trimmed(item));
  return items;
}

CLI::Validator whole_number(long low, long high) {
  return {[low, high](const std::string &text) -> std::string {
            std::int64_t value = 0;
            if (parse_integer(text, value) && value >= low && value <= high) return "";
            return shown(text) + " is not a whole number " +
                   (high == LONG_MAX ? "from " + std::to_string(low) + " up"
                                     : format_text("from %ld to %ld", low, high));
          },
          "", "whole number"};
}

CLI::Validator number_between(double low, double high) {
  return {[low, high](const std::string &text) -> std::string {
            double value = 0.0;
            if (parse_real(text, value) && value >= low && value <= high) return "";
            return shown(text) + " is not a number " +
                   format_text("from %g to %g", low, high);
          },
          "", "number"};
}

}  // namespace ksutil::tools
