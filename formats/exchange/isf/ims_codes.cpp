#include "formats/exchange/isf/ims_codes.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

#include "formats/exchange/event_types.h"
#include "formats/exchange/text/columns.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

/* The words of a letter; the first is the one that is read. */
constexpr std::array<std::pair<char, std::string_view>, 9> kTypes{
    {{'e', "earthquake"},
     {'r', "rock burst"},
     {'i', "induced or triggered event"},
     {'m', "mining explosion"},
     {'h', "chemical explosion"},
     {'x', "experimental explosion"},
     {'n', "nuclear explosion"},
     {'m', "quarry blast"},
     {'x', "explosion"}}};

bool is_name(std::string_view word) {
  return word.size() >= 2 && std::all_of(word.begin(), word.end(), [](unsigned char c) {
           return std::isupper(c) != 0 || std::isdigit(c) != 0 || c == '_' || c == '-';
         });
}

}  // namespace

std::string ims_event_type(std::string_view code) {
  if (code == "ls") return "landslide";
  if (code.size() != 2 || code == "uk") return "";
  const auto *const known = std::find_if(
      kTypes.begin(), kTypes.end(), [&](const auto &t) { return t.first == code[1]; });
  return known == kTypes.end() ? "" : std::string(known->second);
}

bool is_ims_event_type(std::string_view code) {
  return code == "ls" || (code.size() == 2 && code.find_first_of("uksfd") == 0 &&
                          !ims_event_type(code).empty());
}

bool ims_event_type_says_more(std::string_view code) {
  return code.size() == 2 && (code[0] == 's' || code[0] == 'f' || code[0] == 'd');
}

std::string ims_code_of_event_type(const std::string &type) {
  std::string_view word = event_type_word(event_type_code(type));
  if (word == "landslide") return "ls";
  const auto *const known =
      std::find_if(kTypes.begin(), kTypes.end(),
                   [&](const auto &entry) { return entry.second == word; });
  return known == kTypes.end() ? "uk" : std::string{'k', known->first};
}

std::string ims_status(char code) {
  return code == 'a'   ? "automatic"
         : code == 'm' ? "manual"
         : code == 'g' ? "guess"
                       : "";
}

char ims_code_of_status(const std::string &status) {
  if (status.empty() || status == "rejected") return ' ';
  if (status == "guess") return 'g';
  return status == "automatic" ? 'a' : 'm';
}

std::string ims_method(char code) {
  switch (code) {
    case 'i':
      return "inversion";
    case 'p':
      return "pattern recognition";
    case 'g':
      return "ground truth";
    case 'o':
      return "other";
    default:
      return "";
  }
}

char ims_code_of_method(const std::string &method) {
  for (const char code : {'i', 'p', 'g'}) {
    if (method == ims_method(code)) return code;
  }
  return method.empty() ? ' ' : 'o';
}

char ims_depth_type(char flag) { return flag == 'f' ? 'g' : flag == 'd' ? 'd' : 'f'; }

void set_ims_quality(char type, char motion, char onset, Pick &pick) {
  const auto lower = [](char c) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  };
  pick.automatic = lower(type) == 'a';
  if (lower(motion) == 'c' || lower(motion) == 'd') pick.first_motion = lower(motion);
  if (lower(onset) == 'i' || lower(onset) == 'e') pick.onset = lower(onset);
  if (lower(onset) == 'q') pick.onset = 'w';
}

std::string ims_source_of_title(std::string_view title) {
  if (title.find("International Seismological Centre") != title.npos) return "ISC";
  const std::vector<std::string_view> words = words_of(title);
  if (words.size() >= 2 && is_name(words[0])) return std::string(words[0]);
  for (std::size_t i = 2; i < words.size(); i++) {
    if (words[i - 2] == "of" && words[i - 1] == "the" && is_name(words[i])) {
      return std::string(words[i]);
    }
  }
  return "";
}

}  // namespace ksutil::exchange
