#include "tools/kssac/header_names.h"

#include <strings.h>

#include <algorithm>
#include <array>

#include "platform/stock/text.h"

namespace ksutil::tools {
namespace {

/* In the order of their numbers, which begin with 1. */
constexpr std::array<std::string_view, 88> kNames = {
    "ITIME",  "IRLIM",    "IAMPH",  "IXY",    "IUNKN",  "IDISP", "IVEL",     "IACC",
    "IB",     "IDAY",     "IO",     "IA",     "IT0",    "IT1",   "IT2",      "IT3",
    "IT4",    "IT5",      "IT6",    "IT7",    "IT8",    "IT9",   "IRADNV",   "ITANNV",
    "IRADEV", "ITANEV",   "INORTH", "IEAST",  "IHORZA", "IDOWN", "IUP",      "ILLLBB",
    "IWWSN1", "IWWSN2",   "IHGLP",  "ISRO",   "INUCL",  "IPREN", "IPOSTN",   "IQUAKE",
    "IPREQ",  "IPOSTQ",   "ICHEM",  "IOTHER", "IGOOD",  "IGLCH", "IDROP",    "ILOWSN",
    "IRLDTA", "IVOLTS",   "IXYZ",   "IMB",    "IMS",    "IML",   "IMW",      "IMD",
    "IMX",    "INEIC",    "IPDEQ",  "IPDEW",  "IPDE",   "IISC",  "IREB",     "IUSGS",
    "IBRK",   "ICALTECH", "ILLNL",  "IEVLOC", "IJSOP",  "IUSER", "IUNKNOWN", "IQB",
    "IQB1",   "IQB2",     "IQBX",   "IQMT",   "IEQ",    "IEQ1",  "IEQ2",     "IME",
    "IEX",    "INU",      "INC",    "IO_",    "IL",     "IR",    "IT",       "IU"};

bool same_letters(std::string_view text, const char *word) {
  return strcasecmp(std::string(text).c_str(), word) == 0;
}

}  // namespace

std::string enumerated_name(std::int64_t value) {
  if (value < 1 || value > static_cast<std::int64_t>(kNames.size())) {
    return std::to_string(value);
  }
  return std::string(kNames[static_cast<std::size_t>(value - 1)]);
}

bool parse_enumerated(std::string_view text, std::int64_t &value) {
  const auto *const found = std::find(kNames.begin(), kNames.end(), text);
  if (found == kNames.end()) return parse_integer(std::string(text), value);
  value = found - kNames.begin() + 1;
  return true;
}

bool parse_logical(std::string_view text, std::int64_t &value) {
  if (same_letters(text, "TRUE")) {
    value = 1;
  } else if (same_letters(text, "FALSE")) {
    value = 0;
  } else {
    return parse_integer(std::string(text), value) && (value == 0 || value == 1);
  }
  return true;
}

}  // namespace ksutil::tools
