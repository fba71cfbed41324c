#include "tools/common/messages.h"

#include <errno.h>

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "platform/elog/elog.h"
#include "platform/stock/memory.h"
#include "platform/stock/text.h"
#include "tools/common/out_of_memory.h"

namespace ksutil::tools {
namespace {

bool is_name_character(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == ':' ||
         c == '~';
}

/* The length of "function: " or "Class::function: " in front of a message, else 0. */
std::size_t prefix_length(std::string_view line) {
  const std::size_t end = line.find(": ");
  if (end == std::string_view::npos || end == 0) return 0;
  const std::string_view name = line.substr(0, end);
  const bool function = std::all_of(name.begin(), name.end(), is_name_character) &&
                        std::isdigit(static_cast<unsigned char>(name[0])) == 0;
  return function ? end + 2 : 0;
}

/* "cannot open PATH: why" for "open(PATH) error: why"; so for fopen and read. */
std::string without_call(const std::string &message) {
  constexpr std::string_view kError = ") error";
  const std::size_t end = message.find(kError);
  if (end == std::string::npos) return message;
  for (const std::string call : {"open(", "fopen(", "read("}) {
    if (!message.starts_with(call)) continue;
    const std::string verb = call == "read(" ? "read " : "open ";
    return "cannot " + verb + message.substr(call.size(), end - call.size()) +
           message.substr(end + kError.size());
  }
  return message;
}

/* The message that a caller adds to that of the function that failed. */
bool is_of_a_caller(std::string_view text) {
  return text.starts_with("cannot ") || text.ends_with(" error.");
}

}  // namespace

std::string printable_text(std::string text) {
  for (char &c : text) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = '?';
  }
  return text;
}

void complain(const std::string &text) {
  std::fprintf(stderr, "%s: %s\n", program_invocation_short_name,
               printable_text(text).c_str());
}

std::vector<std::string> register_causes(std::string_view text) {
  std::vector<std::string> messages;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    const std::string_view line = trimmed(text.substr(start, end - start));
    start = end + 1;
    if (line.empty()) continue;
    const std::size_t prefix = prefix_length(line);
    std::string message(line.substr(prefix));
    if (prefix == 0 && !messages.empty()) {
      if (messages.back().ends_with('.')) messages.back().pop_back();
      messages.back() += ": " + message;
    } else {
      messages.push_back(std::move(message));
    }
  }
  std::vector<std::string> causes;
  for (const std::string &registered : messages) {
    const std::string message = without_call(registered);
    if ((causes.empty() || !is_of_a_caller(registered)) &&
        std::find(causes.begin(), causes.end(), message) == causes.end()) {
      causes.push_back(message);
    }
  }
  return causes;
}

std::vector<std::string> registered_causes() {
  const MallocPtr<char> text(elog_string(0));
  return register_causes(text == nullptr ? "" : text.get());
}

bool anything_registered() {
  const MallocPtr<char> text(elog_string(0));
  if (text == nullptr) complain_of_memory();
  return text == nullptr || *text.get() != '\0';
}

void print_register() {
  const MallocPtr<char> text(elog_string(0));
  if (text == nullptr) {
    complain_of_memory();
    return;
  }
  for (const std::string &cause : register_causes(text.get())) complain(cause);
  elog_clear_register(0);
}

}  // namespace ksutil::tools
