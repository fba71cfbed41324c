#include "platform/expr/internal/convert.h"

#include <charconv>
#include <cmath>
#include <cstring>

#include "platform/clock/clock.h"
#include "platform/stock/text.h"

namespace ksutil::expr {

namespace {

bool holds_integer(Type type) {
  return type == Type::kInteger || type == Type::kBoolean;
}

template <class Number>
std::string_view number_text(Number number, char *buffer) {
  const auto end = std::to_chars(buffer, buffer + kConvertedSize, number).ptr;
  return {buffer, static_cast<std::size_t>(end - buffer)};
}

bool make_text(const Value &value, char *buffer, Value &result) {
  switch (value.type) {
    case Type::kText:
      result.text = value.text;
      break;
    case Type::kInteger:
      result.text = number_text(value.integer, buffer);
      break;
    case Type::kReal:
      result.text = number_text(value.real, buffer);
      break;
    case Type::kBoolean:
      result.text = value.integer != 0 ? "true" : "false";
      break;
    case Type::kTime: {
      const std::string text = time_text(value.real);
      std::memcpy(buffer, text.data(), text.size());
      result.text = {buffer, text.size()};
    }
  }
  return true;
}

bool read_boolean(std::string_view text, std::int64_t &result) {
  const std::string_view word = trimmed(text);
  if (word != "true" && word != "false") return false;
  result = word == "true" ? 1 : 0;
  return true;
}

bool read_text(std::string_view text, Type type, Value &result) {
  double real = 0.0;
  switch (type) {
    case Type::kBoolean:
      return read_boolean(text, result.integer);
    case Type::kTime:
      return parse_date_text(text, result.real) ||
             (parse_real(text, result.real) && std::isfinite(result.real));
    case Type::kReal:
      return parse_real(text, result.real) && std::isfinite(result.real);
    default:
      return parse_integer(text, result.integer) ||
             (parse_real(text, real) && real_to_integer(real, result.integer));
  }
}

}  // namespace

bool real_to_integer(double real, std::int64_t &integer) {
  constexpr double kLimit = 9223372036854775808.0;
  if (!(real > -kLimit - 1.0 && real < kLimit)) return false;
  integer = static_cast<std::int64_t>(real);
  return true;
}

void set_null(Value &value) {
  value.null = true;
  switch (value.type) {
    case Type::kInteger:
      value.integer = -1;
      break;
    case Type::kBoolean:
      value.integer = 0;
      break;
    case Type::kReal:
      value.real = -999.0;
      break;
    case Type::kTime:
      value.real = -9999999999.999;
      break;
    case Type::kText:
      value.text = "-";
      break;
  }
}

bool convert_into(const Value &value, Type type, char *buffer, Value &result) {
  if (value.type == type) {
    result = value;
    return true;
  }
  Value made;
  made.type = type;
  bool known = true;
  if (value.null && (type == Type::kText || value.type == Type::kText)) {
    set_null(made);
  } else if (type == Type::kText) {
    known = make_text(value, buffer, made);
  } else if (value.type == Type::kText) {
    known = read_text(value.text, type, made);
  } else if (type == Type::kBoolean) {
    made.integer = holds_integer(value.type) ? value.integer != 0 : value.real != 0.0;
  } else if (type == Type::kInteger) {
    if (holds_integer(value.type)) {
      made.integer = value.integer;
    } else {
      known = real_to_integer(value.real, made.integer);
    }
  } else {
    made.real =
        holds_integer(value.type) ? static_cast<double>(value.integer) : value.real;
  }
  if (value.null) {
    /* A null number keeps its value where that is possible. */
    if (!known) set_null(made);
    made.null = known = true;
  }
  if (known) result = made;
  return known;
}

}  // namespace ksutil::expr
