#include "formats/exchange/second_names.h"

#include <algorithm>

#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

bool is_number(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(),
                                      [](char c) { return c >= '0' && c <= '9'; });
}

/* What stands behind a word, up to the end of a part of a query or path. */
std::string_view value_after(std::string_view text, std::string_view word) {
  const std::size_t at = lowered(text).find(word);
  if (at == std::string::npos) return {};
  text.remove_prefix(at + word.size());
  return text.substr(0, text.find_first_of("&/#?;"));
}

}  // namespace

void add_alias(Event &event, std::string_view id) {
  if (id.empty() || id == event.id) return;
  const auto known = std::find(event.aliases.begin(), event.aliases.end(), id);
  if (known == event.aliases.end()) event.aliases.emplace_back(id);
}

std::string numbered_id(std::string_view source, std::string_view id) {
  if (source.empty() || !is_number(id)) return "";
  return std::string(source) + ":" + std::string(id);
}

std::string networked_id(std::string_view network, std::string_view number) {
  if (network.empty() || number.empty()) return "";
  const bool whole = lowered(number).starts_with(lowered(network));
  return (whole ? "" : std::string(network)) + std::string(number);
}

std::string id_in_identifier(std::string_view identifier) {
  constexpr std::string_view kNetworks = ".anss.org/event/";
  const std::size_t colon = identifier.find(':');
  const std::size_t slash = identifier.find('/');
  if (colon == identifier.npos || slash == identifier.npos || slash < colon) return "";
  const std::string_view authority = identifier.substr(colon + 1, slash - colon - 1);
  const std::size_t network = identifier.find(kNetworks);
  if (network != identifier.npos && network > colon && network < slash) {
    return networked_id(identifier.substr(colon + 1, network - colon - 1),
                        value_after(identifier, kNetworks));
  }
  if (authority == "eu.emsc") return std::string(value_after(identifier, "/event/"));
  const std::string_view evid = value_after(identifier, "/evid=");
  if (!evid.empty()) return numbered_id(authority, evid);
  const std::string_view queried = value_after(identifier, "eventid=");
  return is_number(queried) ? "" : std::string(queried);
}

}  // namespace ksutil::exchange
