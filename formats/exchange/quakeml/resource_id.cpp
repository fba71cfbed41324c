#include "formats/exchange/quakeml/resource_id.h"

#include <algorithm>

#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

bool is_letter_or_digit(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

/* Characters of an authority, and the first one of a resource. */
bool is_of_authority(char c) {
  return is_letter_or_digit(c) ||
         std::string_view("-.*()_~'").find(c) != std::string_view::npos;
}

bool is_of_resource(char c) {
  return is_of_authority(c) ||
         std::string_view("+?=,;#/&").find(c) != std::string_view::npos;
}

/* The value of a digit as resource_id writes them, or -1. */
int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

}  // namespace

bool is_resource_id(std::string_view text) {
  if (text.starts_with("smi:")) {
    text.remove_prefix(4);
  } else if (text.starts_with("quakeml:")) {
    text.remove_prefix(8);
  } else {
    return false;
  }
  const std::size_t slash = text.find('/');
  if (slash == text.npos || slash < 3 || slash + 1 == text.size()) return false;
  const std::string_view authority = text.substr(0, slash);
  const std::string_view resource = text.substr(slash + 1);
  return (is_letter_or_digit(authority[0]) || authority[0] == '_') &&
         std::all_of(authority.begin(), authority.end(), is_of_authority) &&
         is_of_authority(resource[0]) &&
         std::all_of(resource.begin(), resource.end(), is_of_resource);
}

std::string resource_id(std::string_view id) {
  if (is_resource_id(id)) return std::string(id);
  std::string text(kLocalPrefix);
  text += id;
  if (is_resource_id(text)) return text;
  text = kEscapedPrefix;
  for (std::size_t i = 0; i < id.size(); i++) {
    const bool plain =
        id[i] != '*' && (i == 0 ? is_of_authority(id[i]) : is_of_resource(id[i]));
    text += plain ? std::string(1, id[i])
                  : format_text("*%02X", static_cast<unsigned char>(id[i]));
  }
  return text;
}

std::string id_of_resource(std::string_view identifier) {
  if (identifier.starts_with(kLocalPrefix))
    return std::string(identifier.substr(kLocalPrefix.size()));
  if (!identifier.starts_with(kEscapedPrefix)) return std::string(identifier);
  std::string id;
  for (std::size_t i = kEscapedPrefix.size(); i < identifier.size(); i++) {
    if (identifier[i] != '*') {
      id += identifier[i];
      continue;
    }
    const int high = i + 2 < identifier.size() ? hex_digit(identifier[i + 1]) : -1;
    const int low = high < 0 ? -1 : hex_digit(identifier[i + 2]);
    const int byte = high * 16 + low;
    if (low < 0 || byte < 0x20 || byte == 0x7f) return std::string(identifier);
    id += static_cast<char>(byte);
    i += 2;
  }
  return id;
}

}  // namespace ksutil::exchange
