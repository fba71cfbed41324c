#include "formats/exchange/text/json_text.h"

#include <cmath>

#include "formats/exchange/text/value_text.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {

void JsonText::separate() {
  if (!first_) text_ += ',';
  first_ = false;
}

void JsonText::begin(char bracket) {
  separate();
  text_ += bracket;
  first_ = true;
}

void JsonText::end(char bracket) {
  text_ += bracket;
  first_ = false;
}

void JsonText::key(std::string_view name) {
  text(name);
  text_ += ':';
  first_ = true;
}

void JsonText::number(double value) {
  if (!std::isfinite(value)) return null();
  separate();
  text_ += number_text(value);
}

void JsonText::integer(std::int64_t value) {
  separate();
  text_ += std::to_string(value);
}

void JsonText::null() {
  separate();
  text_ += "null";
}

void JsonText::text(std::string_view value) {
  separate();
  text_ += '"';
  for (std::size_t at = 0; at < value.size();) {
    const std::size_t from = at;
    std::uint32_t code = 0;
    if (!next_character(value, at, code)) {
      text_ += "\xef\xbf\xbd";
    } else if (code == '"' || code == '\\') {
      text_ += '\\';
      text_ += static_cast<char>(code);
    } else if (code < 0x20 || code == 0x7f) {
      text_ += format_text("\\u%04x", static_cast<unsigned>(code));
    } else {
      text_ += value.substr(from, at - from);
    }
  }
  text_ += '"';
}

void JsonText::put(std::string_view name, double value, double null_value) {
  key(name);
  value == null_value ? null() : number(value);
}

void JsonText::put(std::string_view name, std::int64_t value, std::int64_t null_value) {
  key(name);
  value == null_value ? null() : integer(value);
}

void JsonText::put(std::string_view name, std::string_view value) {
  key(name);
  value.empty() ? null() : text(value);
}

}  // namespace ksutil::exchange
