#include "formats/exchange/text/columns.h"

#include <algorithm>
#include <cmath>

#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

bool is_control(char c) { return static_cast<unsigned char>(c) < ' ' || c == 127; }

/* The bytes of the UTF-8 character at the beginning of a text; 0 when it is not one. */
std::size_t utf8_length(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char first = byte(0);
  std::size_t length = 1;
  if (first >= 0xf0 && first < 0xf5) {
    length = 4;
  } else if (first >= 0xe0 && first < 0xf0) {
    length = 3;
  } else if (first >= 0xc2 && first < 0xe0) {
    length = 2;
  } else if (first >= 0x80) {
    return 0;
  }
  if (length > text.size()) return 0;
  for (std::size_t i = 1; i < length; i++) {
    if ((byte(i) & 0xc0) != 0x80) return 0;
  }
  if (first == 0xe0 && byte(1) < 0xa0) return 0;
  if (first == 0xed && byte(1) > 0x9f) return 0;
  if (first == 0xf0 && byte(1) < 0x90) return 0;
  if (first == 0xf4 && byte(1) > 0x8f) return 0;
  return length;
}

bool is_utf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = utf8_length(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

}  // namespace

std::string record_text(std::string_view text) {
  std::string result(text);
  if (!is_utf8(text)) {
    result.clear();
    for (const char c : text) {
      const auto byte = static_cast<unsigned char>(c);
      if (byte < 0x80) {
        result += c;
      } else {
        result += static_cast<char>(0xc0 | byte >> 6);
        result += static_cast<char>(0x80 | (byte & 0x3f));
      }
    }
  }
  std::replace_if(result.begin(), result.end(), is_control, ' ');
  return std::string(trimmed(result));
}

std::string fault_text(const char *name, std::string_view text) {
  std::string shown(text.substr(0, 60));
  std::replace_if(shown.begin(), shown.end(), is_control, '?');
  return std::string(name) + " is '" + shown + "'";
}

std::vector<std::string_view> words_of(std::string_view line, std::size_t most) {
  std::vector<std::string_view> words;
  while (words.size() < most) {
    const std::size_t begin = line.find_first_not_of(" \t\r");
    if (begin == line.npos) break;
    line.remove_prefix(begin);
    const std::size_t end = std::min(line.find_first_of(" \t\r"), line.size());
    words.push_back(line.substr(0, end));
    line.remove_prefix(end);
  }
  return words;
}

bool read_real(std::string_view text, const char *name, double low, double high,
               double &value, std::string &problem) {
  double number = 0.0;
  if (!parse_real(text, number) || !std::isfinite(number) || number < low ||
      number > high) {
    problem = fault_text(name, text);
    return false;
  }
  value = number;
  return true;
}

std::string_view Columns::text(std::size_t first, std::size_t last) const {
  if (line_.size() < first) return {};
  return trimmed(line_.substr(first - 1, last - first + 1));
}

void Columns::fault(const char *name, std::string_view text) {
  if (problem_.empty()) problem_ = fault_text(name, text);
}

void Columns::real(std::size_t first, std::size_t last, const char *name,
                   const Range &range, double &value) {
  const std::string_view number = text(first, last);
  std::string problem;
  if (!number.empty() &&
      !read_real(number, name, range.low, range.high, value, problem)) {
    fault(name, number);
  }
}

void Columns::count(std::size_t first, std::size_t last, const char *name,
                    std::int64_t &value) {
  const std::string_view number = text(first, last);
  std::int64_t result = 0;
  if (number.empty()) return;
  if (!parse_integer(number, result) || result < 0) return fault(name, number);
  value = result;
}

void Columns::needed(std::size_t first, std::size_t last, const char *name) {
  if (blank(first, last)) fault(name, "");
}

}  // namespace ksutil::exchange
