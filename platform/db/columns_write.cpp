/* columns_write: implements the writers of columns.h. */
#include "platform/db/columns.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string>

#include "platform/elog/failure.h"
#include "platform/stock/text.h"

namespace ksutil::db {
namespace {

/* Room for any double in fixed form with as many decimals as a schema may have. */
constexpr std::size_t kNumberRoom = 400;

bool refuse(const Field &field, const std::string &value, const char *cause) {
  return fail("dbput", "%s: %s %s", field.name.c_str(), value.c_str(), cause);
}

bool flush_left(const Field &field) {
  return field.format.size() > 1 && field.format[1] == '-';
}

/* Puts a text into the field, padded with blanks. */
bool place(const Field &field, std::string_view text, bool left, std::string &row) {
  const auto offset = static_cast<std::size_t>(field.offset);
  const auto width = static_cast<std::size_t>(field.width);
  if (text.size() > width) {
    return refuse(field, std::string(text),
                  format_text("does not fit into %d characters", field.width).c_str());
  }
  if (row.size() < offset + width) {
    return refuse(field, std::string(text), "has no place in a row that short");
  }
  const auto begin = row.begin() + static_cast<std::ptrdiff_t>(offset);
  std::fill_n(begin, width, ' ');
  const std::size_t indent = left ? 0 : width - text.size();
  std::copy(text.begin(), text.end(), begin + static_cast<std::ptrdiff_t>(indent));
  return true;
}

std::string print_real(std::string_view format, double value) {
  int precision = 6;
  const std::size_t point = format.find('.');
  if (point != format.npos) {
    std::from_chars(format.data() + point + 1, format.data() + format.size(),
                    precision);
  }
  const char conversion = format.empty() ? 'f' : format.back();
  const auto style = conversion == 'e'   ? std::chars_format::scientific
                     : conversion == 'g' ? std::chars_format::general
                                         : std::chars_format::fixed;
  char digits[kNumberRoom];
  const auto end =
      std::to_chars(digits, digits + sizeof digits, value, style, precision).ptr;
  return std::string(digits, end);
}

bool has_control_character(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < ' ' || byte == 127;
  });
}

}  // namespace

bool write_integer(const Field &field, std::int64_t value, std::string &row) {
  switch (field.type) {
    case FieldType::kText:
      return refuse(field, std::to_string(value), "is not a text");
    case FieldType::kReal:
    case FieldType::kTime:
    case FieldType::kDate:
      return write_real(field, static_cast<double>(value), row);
    case FieldType::kPointer: {
      char digits[16];
      const auto address = static_cast<std::uint64_t>(value);
      const auto end = std::to_chars(digits, digits + sizeof digits, address, 16).ptr;
      return place(field, "0x" + std::string(digits, end), false, row);
    }
    default:
      return place(field, std::to_string(value), flush_left(field), row);
  }
}

bool write_real(const Field &field, double value, std::string &row) {
  switch (field.type) {
    case FieldType::kText:
    case FieldType::kPointer:
      return refuse(field, format_text("%g", value),
                    "is a number, the field takes none");
    case FieldType::kInteger:
    case FieldType::kYearday:
      if (!(std::abs(value) <= 9e15) || value != std::trunc(value)) {
        return refuse(field, format_text("%g", value), "is not an integer");
      }
      return write_integer(field, static_cast<std::int64_t>(value), row);
    default:
      break;
  }
  if (!std::isfinite(value))
    return refuse(field, format_text("%g", value), "is not a number");
  const bool left = flush_left(field) || field.type == FieldType::kDate;
  if (value == field.null_real) return place(field, field.null_text, left, row);
  return place(field, print_real(field.format, value), left, row);
}

bool write_text(const Field &field, std::string_view value, std::string &row) {
  const std::string_view text = right_trimmed(value);
  if (has_control_character(text)) {
    return refuse(field, "The text", "holds a control character");
  }
  if (field.type == FieldType::kText) {
    return place(field, text.empty() ? std::string_view(field.null_text) : text,
                 flush_left(field), row);
  }
  std::int64_t integer;
  double real;
  if (field.type == FieldType::kDate && read_load_date(text, field.null_real, real)) {
    return write_real(field, real, row);
  }
  if (text.empty() || text == "-") {
    return place(field, field.null_text, flush_left(field), row);
  }
  if (parse_integer(text, integer)) return write_integer(field, integer, row);
  if (parse_real(text, real)) return write_real(field, real, row);
  return refuse(field, "\"" + std::string(text) + "\"", "is not a number");
}

}  // namespace ksutil::db
