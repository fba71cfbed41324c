#include "platform/db/columns.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "platform/clock/clock.h"
#include "platform/stock/text.h"

namespace ksutil::db {
namespace {

constexpr double kPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,
                                   1e7,  1e8,  1e9,  1e10, 1e11, 1e12, 1e13,
                                   1e14, 1e15, 1e16, 1e17, 1e18};

bool cut(std::string_view row, int offset, int width, std::string_view &text) {
  const auto end = static_cast<std::size_t>(offset) + static_cast<std::size_t>(width);
  if (row.size() < end) return false;
  text = row.substr(static_cast<std::size_t>(offset), static_cast<std::size_t>(width));
  return true;
}

/* The form of nearly every number in a table: blanks, a sign, digits with at most one
 * point, blanks.  The number is `mantissa` / 10^decimals; at most 18 digits. */
bool scan_plain(std::string_view text, std::int64_t &mantissa, int &decimals) {
  const char *at = text.data();
  const char *end = at + text.size();
  while (at != end && *at == ' ') ++at;
  while (at != end && end[-1] == ' ') --end;
  const bool negative = at != end && *at == '-';
  if (negative) ++at;
  if (end - at > 19) return false;
  std::int64_t value = 0;
  int digits = 0, after_point = 0, point = 0;
  for (; at != end; ++at) {
    const auto digit = static_cast<unsigned>(*at) - '0';
    if (digit <= 9) {
      value = value * 10 + digit;
      ++digits;
      after_point += point;
    } else if (*at == '.' && point == 0) {
      point = 1;
    } else {
      return false;
    }
  }
  if (digits == 0 || digits > 18) return false;
  mantissa = negative ? -value : value;
  decimals = after_point;
  return true;
}

bool is_null_text(std::string_view text) { return text.empty() || text == "-"; }

/* A finite number of any printing; NaN gives the null. */
bool read_real(std::string_view field, double null, double &value) {
  std::int64_t mantissa;
  int decimals;
  if (scan_plain(field, mantissa, decimals) &&
      std::abs(mantissa) <= (std::int64_t{1} << 53)) {
    /* Mantissa and power of ten are exact, so that one division rounds correctly. */
    value = static_cast<double>(mantissa) / kPowersOfTen[decimals];
    return true;
  }
  const std::string_view text = trimmed(field);
  if (is_null_text(text)) {
    value = null;
    return true;
  }
  double parsed;
  if (!parse_real(text, parsed) || std::isinf(parsed)) return false;
  value = std::isnan(parsed) ? null : parsed;
  return true;
}

bool read_address(std::string_view text, std::int64_t &value) {
  if (!text.starts_with("0x")) return false;
  std::uint64_t address;
  const char *end = text.data() + text.size();
  const auto result = std::from_chars(text.data() + 2, end, address, 16);
  if (result.ec != std::errc() || result.ptr != end) return false;
  value = static_cast<std::int64_t>(address);
  return true;
}

/* An 8-digit integer in this range is a day of the calendar, not an epoch. */
bool is_calendar_day(std::string_view text) {
  std::int64_t day;
  return text.size() == 8 && text.find('.') == text.npos && parse_integer(text, day) &&
         day >= 19000101 && day <= 20991231;
}

}  // namespace

IntegerColumn::IntegerColumn(const Relation &layout, std::string_view field) {
  if (const Field *found = layout.find(field)) {
    offset_ = found->offset;
    width_ = found->width;
    null_ = found->null_integer;
  }
}

bool IntegerColumn::read(std::string_view row, std::int64_t &value) const {
  if (!valid()) {
    value = null_;
    return true;
  }
  std::string_view field;
  if (!cut(row, offset_, width_, field)) return false;
  int decimals;
  std::int64_t parsed;
  if (scan_plain(field, parsed, decimals) && decimals == 0) {
    value = parsed;
    return true;
  }
  const std::string_view text = trimmed(field);
  if (is_null_text(text)) {
    value = null_;
    return true;
  }
  if (parse_integer(text, value) || read_address(text, value)) return true;
  double real;
  if (!parse_real(text, real)) return false;
  if (std::isnan(real)) {
    value = null_;
    return true;
  }
  if (real != std::trunc(real) || std::abs(real) > 9e15) return false;
  value = static_cast<std::int64_t>(real);
  return true;
}

RealColumn::RealColumn(const Relation &layout, std::string_view field) {
  if (const Field *found = layout.find(field)) {
    offset_ = found->offset;
    width_ = found->width;
    null_ = found->null_real;
    date_ = found->type == FieldType::kDate;
  }
}

bool RealColumn::read(std::string_view row, double &value) const {
  if (!valid()) {
    value = null_;
    return true;
  }
  std::string_view field;
  if (!cut(row, offset_, width_, field)) return false;
  return date_ ? read_load_date(field, null_, value) : read_real(field, null_, value);
}

TextColumn::TextColumn(const Relation &layout, std::string_view field) {
  if (const Field *found = layout.find(field)) {
    offset_ = found->offset;
    width_ = found->width;
    null_ = found->null_text;
  }
}

bool TextColumn::read(std::string_view row, std::string_view &value) const {
  if (!valid()) {
    value = null_;
    return true;
  }
  std::string_view field;
  if (!cut(row, offset_, width_, field)) return false;
  value = right_trimmed(field);
  return true;
}

bool read_load_date(std::string_view text, double null, double &epoch) {
  text = trimmed(text);
  if (is_calendar_day(text)) return parse_date_text(text, epoch);
  return read_real(text, null, epoch) || parse_date_text(text, epoch);
}

std::optional<Relation> stretched_layout(const Relation &layout, std::string_view row) {
  const Field &last = layout.fields.back();
  if (row.size() <= static_cast<std::size_t>(last.offset) ||
      !std::all_of(layout.fields.begin() + 1, layout.fields.end(),
                   [row](const Field &field) {
                     return row[static_cast<std::size_t>(field.offset) - 1] == ' ';
                   })) {
    return std::nullopt;
  }
  Relation stretched = layout;
  stretched.width = static_cast<int>(row.size());
  stretched.fields.back().width = stretched.width - last.offset;
  return stretched;
}

bool is_readable(const Relation &layout, const Field &field, std::string_view row) {
  std::int64_t integer = 0;
  double real = 0.0;
  std::string_view text;
  switch (field.type) {
    case FieldType::kInteger:
    case FieldType::kYearday:
      return IntegerColumn(layout, field.name).read(row, integer);
    case FieldType::kReal:
    case FieldType::kTime:
    case FieldType::kDate:
      return RealColumn(layout, field.name).read(row, real);
    case FieldType::kText:
      return TextColumn(layout, field.name).read(row, text);
    case FieldType::kPointer:
      return false;
  }
  return false;
}

}  // namespace ksutil::db
