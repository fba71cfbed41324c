#include "platform/stock/text.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

locale_t c_locale() {
  static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
  return locale;
}

constexpr std::string_view kBlanks = " \t\r\n";

/* The characters of numbers, infinities and "nan(...)". */
constexpr const char *kNumberCharacters =
    "0123456789+-._()abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";

/* Removes one plus sign, which from_chars does not accept. */
std::string_view without_plus(std::string_view text) {
  if (text.size() > 1 && text[0] == '+' && text[1] != '-' && text[1] != '+') {
    text.remove_prefix(1);
  }
  return text;
}

bool is_hexadecimal(std::string_view number) {
  if (!number.empty() && (number[0] == '-' || number[0] == '+'))
    number.remove_prefix(1);
  return number.size() > 1 && number[0] == '0' &&
         (number[1] == 'x' || number[1] == 'X');
}

}  // namespace

double fix_strtod(const char *text, char **end) {
  const char *first = text + std::strspn(text, " \t\n\v\f\r");
  const std::string_view number(first, std::strspn(first, kNumberCharacters));
  const char *stop = first + number.size();
  double value = 0.0;
  if (!is_hexadecimal(number)) {
    const std::string_view plain = without_plus(number);
    const auto result = std::from_chars(plain.data(), stop, value);
    if (result.ec == std::errc()) {
      if (end != nullptr) *end = const_cast<char *>(result.ptr);
      return value;
    }
    if (result.ec == std::errc::invalid_argument) {
      if (end != nullptr) *end = const_cast<char *>(text);
      return 0.0;
    }
  }
  /* Hexadecimal or out of the range of double: rare, so strtod_l may be slow. */
  return strtod_l(text, end, c_locale());
}

namespace ksutil {

ScopedCLocale::ScopedCLocale() : previous_(uselocale(c_locale())) {}

ScopedCLocale::~ScopedCLocale() { uselocale(previous_); }

std::string_view right_trimmed(std::string_view text) {
  return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  return first == text.npos ? text.substr(0, 0) : right_trimmed(text.substr(first));
}

std::string_view location_code(std::string_view text) {
  text = trimmed(text);
  return text == "-" || text == "--" ? text.substr(0, 0) : text;
}

std::string lowered(std::string_view text) {
  std::string result(text);
  for (char &c : result) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return result;
}

bool parse_integer(std::string_view text, std::int64_t &result) {
  const std::string_view number = without_plus(trimmed(text));
  std::int64_t value = 0;
  const char *end = number.data() + number.size();
  const auto parsed = std::from_chars(number.data(), end, value);
  if (parsed.ec != std::errc() || parsed.ptr != end) return false;
  result = value;
  return true;
}

bool parse_real(std::string_view text, double &result) {
  const std::string_view number = without_plus(trimmed(text));
  double value = 0.0;
  const char *end = number.data() + number.size();
  const auto parsed = std::from_chars(number.data(), end, value);
  if (parsed.ptr != end) return false;
  if (parsed.ec == std::errc::result_out_of_range) {
    /* A number that is too small becomes denormal or zero; one too large is refused. */
    const int saved = errno;
    value = strtod_l(std::string(number).c_str(), nullptr, c_locale());
    errno = saved;
    if (std::isinf(value)) return false;
  } else if (parsed.ec != std::errc()) {
    return false;
  }
  result = value;
  return true;
}

std::string format_text(const char *format, ...) {
  const ScopedCLocale locale;
  char room[256];
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
  const int length = std::vsnprintf(room, sizeof room, format, args);
  va_end(args);
  std::string text;
  if (length > 0) {
    const auto size = static_cast<std::size_t>(length);
    if (size < sizeof room) {
      text.assign(room, size);
    } else {
      text.resize(size);
      std::vsnprintf(text.data(), size + 1, format, again);
    }
  }
  va_end(again);
  return text;
}

}  // namespace ksutil
