#include "tools/common/cells.h"

#include <charconv>
#include <cmath>

#include "platform/clock/clock.h"
#include "platform/stock/text.h"

namespace ksutil::tools {
namespace {

constexpr double kLatestTime =
    9999999998.0;  // null times are beyond it and its negative
constexpr double kNullReal = -999.0;
constexpr std::size_t kMilliseconds = 23;  // length of "YYYY-MM-DDThh:mm:ss.mmm"

}  // namespace

std::string time_cell(double epoch) {
  if (!(std::abs(epoch) < kLatestTime)) return "";
  std::string text = time_text(epoch, 6);
  while (text.size() > kMilliseconds && text.back() == '0') text.pop_back();
  return text + 'Z';
}

std::string real_cell(double value, int decimals) {
  if (value == kNullReal || !std::isfinite(value)) return "";
  return format_text("%.*f", decimals, value);
}

std::string shortest_cell(double value) {
  if (!std::isfinite(value)) return "";
  char text[32];
  const auto result = std::to_chars(text, text + sizeof text, value);
  return {text, result.ptr};
}

std::string id_cell(long id) { return id == -1 ? "" : std::to_string(id); }

std::string text_cell(const std::string &text, bool raw) {
  return text == "-" && !raw ? std::string() : text;
}

}  // namespace ksutil::tools
