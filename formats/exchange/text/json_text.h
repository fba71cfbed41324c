/* JsonText: appends JSON to a text, value by value. */
#ifndef KSUTIL_FORMATS_EXCHANGE_TEXT_JSON_TEXT_H
#define KSUTIL_FORMATS_EXCHANGE_TEXT_JSON_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>

namespace ksutil::exchange {

/* Commas are put where they belong.  Texts may hold any bytes: those that are not UTF-8 are
 * replaced by U+FFFD, and control characters are escaped. */
class JsonText {
 public:
  explicit JsonText(std::string &text) : text_(text) {}

  /* Nothing stands before the next value. */
  void restart() { first_ = true; }

  void begin_object() { begin('{'); }
  void end_object() { end('}'); }
  void begin_array() { begin('['); }
  void end_array() { end(']'); }
  /* The name of the next value. */
  void key(std::string_view name);

  void number(double value);
  void integer(std::int64_t value);
  void text(std::string_view value);
  void null();

  /* A named value; null for the null that is given, and for "". */
  void put(std::string_view name, double value, double null);
  void put(std::string_view name, std::int64_t value, std::int64_t null = -1);
  void put(std::string_view name, std::string_view value);

 private:
  void begin(char bracket);
  void end(char bracket);
  void separate();

  std::string &text_;
  bool first_ = true;  // nothing stands before the next value at its level
};

}  // namespace ksutil::exchange
#endif
