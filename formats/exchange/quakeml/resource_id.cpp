#include "formats/exchange/quakeml/resource_id.h"

#include <algorithm>

#include "formats/exchange/import/gathering.h"
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
  const std::size_t from = kLocalPrefix.size();
  std::replace_if(
      text.begin() + static_cast<std::ptrdiff_t>(from), text.end(),
      [](char c) { return !is_of_resource(c); }, '_');
  if (text.size() == from || !is_of_authority(text[from])) text.insert(from, "_");
  return text + format_text("~%016llx", static_cast<unsigned long long>(hash_of(id)));
}

std::string_view id_of_resource(std::string_view identifier) {
  if (identifier.starts_with(kLocalPrefix))
    identifier.remove_prefix(kLocalPrefix.size());
  return identifier;
}

}  // namespace ksutil::exchange
