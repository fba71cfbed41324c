#include "formats/exchange/text/value_text.h"

#include <charconv>
#include <cmath>

#include "platform/clock/clock.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

constexpr std::string_view kReplacementText = "\xef\xbf\xbd";  // U+FFFD
constexpr std::size_t kSeconds = 19;  // length of "YYYY-MM-DDThh:mm:ss"

bool is_character(std::uint32_t code) {
  const bool control = code < 0x20 && code != '\t' && code != '\n' && code != '\r';
  return !control && code != 0x7f && (code & 0xfffe) != 0xfffe;
}

std::int64_t append_cleaned(std::string_view text, bool line, std::string &to) {
  std::int64_t replaced = 0;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t from = at;
    std::uint32_t code = 0;
    if (!next_character(text, at, code) || !is_character(code)) {
      to += kReplacementText;
      replaced++;
    } else if (line && code < 0x20) {
      to += ' ';
    } else {
      to += text.substr(from, at - from);
    }
  }
  return replaced;
}

}  // namespace

std::string number_text(double value) {
  if (value == 0.0) return "0";  // not "-0"
  /* With an exponent only where a row of zeros would stand instead. */
  const double size = std::abs(value);
  char text[64];
  const auto result =
      size >= 1e-5 && size < 1e15
          ? std::to_chars(text, text + sizeof text, value, std::chars_format::fixed)
          : std::to_chars(text, text + sizeof text, value);
  return {text, result.ptr};
}

std::string scaled_text(double value, double factor) {
  double rounded = 0.0;
  const std::string text = format_text("%.12g", value * factor);
  return parse_real(text, rounded) ? number_text(rounded) : text;
}

bool is_writable_time(double epoch) {
  constexpr double kFirst = -62135596800.0, kEnd = 253402300799.0;  // years 1 to 9999
  return epoch >= kFirst && epoch < kEnd;
}

std::string utc_text(double epoch, std::size_t decimals) {
  std::string text = time_text(epoch, 6);
  const std::size_t least = kSeconds + (decimals > 0 ? 1 + decimals : 0);
  while (text.size() > least && text.back() == '0') text.pop_back();
  if (text.back() == '.') text.pop_back();
  return text + 'Z';
}

bool next_character(std::string_view text, std::size_t &at, std::uint32_t &code) {
  const auto byte = [&](std::size_t i) {
    return std::uint32_t{static_cast<unsigned char>(text[i])};
  };
  const std::uint32_t first = byte(at++);
  if (first < 0x80) {
    code = first;
    return true;
  }
  const std::size_t more = first >= 0xf0 ? 3 : first >= 0xe0 ? 2 : 1;
  if (first < 0xc2 || first > 0xf4 || at + more > text.size()) return false;
  std::uint32_t value = first & (0x3fU >> more);
  for (std::size_t i = 0; i < more; i++) {
    if ((byte(at + i) & 0xc0) != 0x80) return false;
    value = value << 6 | (byte(at + i) & 0x3f);
  }
  const bool too_long = (more == 2 && value < 0x800) || (more == 3 && value < 0x10000);
  if (too_long || value > 0x10ffff || (value >= 0xd800 && value < 0xe000)) return false;
  at += more;
  code = value;
  return true;
}

std::int64_t append_clean(std::string_view text, std::string &to) {
  return append_cleaned(text, false, to);
}

std::int64_t append_clean_line(std::string_view text, std::string &to) {
  return append_cleaned(text, true, to);
}

}  // namespace ksutil::exchange
