#include "config/internal/pf_path.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "platform/pf/shared/pf_parse.h"
#include "platform/pf/shared/pf_write.h"

namespace ksutil {
namespace {

constexpr std::string_view kSpecial = ".[]\"";

bool take_index(std::string_view &rest, long &index) {
  rest.remove_prefix(1);
  const char *const end = rest.data() + rest.size();
  const auto parsed = std::from_chars(rest.data(), end, index);
  if (parsed.ec != std::errc() || parsed.ptr == end || *parsed.ptr != ']' ||
      index < 0) {
    return false;
  }
  rest.remove_prefix(static_cast<std::size_t>(parsed.ptr - rest.data()) + 1);
  return true;
}

bool take_step_name(std::string_view &rest, std::string &name, std::string &cause) {
  if (rest.starts_with('"')) return take_quoted(rest, name, cause);
  const std::size_t end = std::min(rest.find_first_of(kSpecial), rest.size());
  if (end == 0) {
    cause = "A name is missing";
    return false;
  }
  name = rest.substr(0, end);
  rest.remove_prefix(end);
  return true;
}

}  // namespace

bool parse_path(std::string_view text, PfPath &path, std::string &cause) {
  path.clear();
  if (text.find('\0') != text.npos) {
    cause = "It holds a NUL byte";
    return false;
  }
  std::string_view rest = text;
  while (!rest.empty()) {
    PfStep step;
    if (rest.front() == '[') {
      if (!take_index(rest, step.index)) {
        cause = "An index is a number from 0 in brackets";
        return false;
      }
    } else {
      if (!path.empty()) {
        if (rest.front() != '.') {
          cause = "A dot or an index must follow a name";
          return false;
        }
        rest.remove_prefix(1);
      }
      if (!take_step_name(rest, step.name, cause)) return false;
    }
    path.push_back(std::move(step));
  }
  return true;
}

std::string path_text(const PfPath &path, std::size_t steps) {
  std::string text;
  for (std::size_t i = 0; i < steps; ++i) {
    const PfStep &step = path[i];
    if (step.is_item()) {
      text += '[' + std::to_string(step.index) + ']';
      continue;
    }
    if (i > 0) text += '.';
    const bool quote =
        step.name.empty() || step.name.find_first_of(kSpecial) != step.name.npos ||
        std::any_of(step.name.begin(), step.name.end(),
                    [](char c) { return static_cast<unsigned char>(c) < ' '; });
    text += quote ? written_quoted(step.name) : step.name;
  }
  return text;
}

}  // namespace ksutil
