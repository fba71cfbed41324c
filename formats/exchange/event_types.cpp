#include "formats/exchange/event_types.h"

#include <algorithm>
#include <array>
#include <utility>

#include "formats/exchange/isf/ims_codes.h"

namespace ksutil::exchange {
namespace {

/* The words of EventType in QuakeML 1.2, and of catalogues that write them otherwise.  The
 * first word of a code is the one that is written. */
constexpr std::array<std::pair<std::string_view, std::string_view>, 50> kTypes{
    {{"earthquake", "eq"},
     {"quarry blast", "qb"},
     {"explosion", "ex"},
     {"mining explosion", "me"},
     {"nuclear explosion", "nu"},
     {"ice quake", "iq"},
     {"volcanic eruption", "ve"},
     {"sonic boom", "sb"},
     {"landslide", "ls"},
     {"rock burst", "rb"},
     {"not existing", "none"},
     {"not reported", "nr"},
     {"anthropogenic event", "an"},
     {"collapse", "co"},
     {"cavity collapse", "cc"},
     {"mine collapse", "mc"},
     {"building collapse", "bc"},
     {"accidental explosion", "ax"},
     {"chemical explosion", "cx"},
     {"controlled explosion", "ox"},
     {"experimental explosion", "xx"},
     {"industrial explosion", "ix"},
     {"road cut", "rc"},
     {"blasting levee", "bl"},
     {"induced or triggered event", "in"},
     {"reservoir loading", "rl"},
     {"fluid injection", "fi"},
     {"fluid extraction", "fx"},
     {"crash", "cr"},
     {"plane crash", "pc"},
     {"train crash", "tc"},
     {"boat crash", "boat"},
     {"other event", "ot"},
     {"atmospheric event", "at"},
     {"sonic blast", "sbl"},
     {"acoustic noise", "ac"},
     {"thunder", "th"},
     {"avalanche", "av"},
     {"snow avalanche", "sa"},
     {"debris avalanche", "da"},
     {"hydroacoustic event", "hy"},
     {"slide", "sl"},
     {"rockslide", "rs"},
     {"meteorite", "mt"},
     {"rockburst", "rb"},
     {"icequake", "iq"},
     {"quarry", "qb"},
     {"mine blast", "me"},
     {"chemical blast", "cx"},
     {"nuclear", "nu"}}};

}  // namespace

namespace {

std::string_view code_of_word(std::string_view word) {
  const auto *known = std::find_if(kTypes.begin(), kTypes.end(), [&](const auto &type) {
    return type.first == word;
  });
  return known == kTypes.end() ? std::string_view() : known->second;
}

}  // namespace

std::string_view event_type_code(std::string_view word) {
  const std::string_view code = code_of_word(word);
  if (!code.empty()) return code;
  /* "fi" is both a code of origin.etype and one of IMS: the former comes first. */
  if (!event_type_word(word).empty() || !is_ims_event_type(word)) return word;
  return code_of_word(ims_event_type(word));
}

std::string_view event_type_word(std::string_view code) {
  const auto *known = std::find_if(kTypes.begin(), kTypes.end(), [&](const auto &type) {
    return type.second == code;
  });
  return known == kTypes.end() ? std::string_view() : known->first;
}

}  // namespace ksutil::exchange
