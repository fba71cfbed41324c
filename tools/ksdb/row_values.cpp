#include "tools/ksdb/row_values.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "platform/clock/clock.h"
#include "platform/db/columns.h"
#include "platform/elog/elog.h"
#include "platform/stock/text.h"

namespace ksutil::tools {
namespace {

/* The kind of value that a field takes, for messages. */
const char *kind_of(const db::Field &field) {
  switch (field.type) {
    case db::FieldType::kInteger:
      return "a whole number";
    case db::FieldType::kReal:
      return "a number";
    case db::FieldType::kTime:
    case db::FieldType::kDate:
      return "a time: epoch seconds, or a date such as 2015-08-01T12:00:00";
    case db::FieldType::kYearday:
      return "a day: YYYYDDD, or a date such as 2015-08-01";
    default:
      return "a text";
  }
}

bool is_null_text(std::string_view text) { return text.empty() || text == "-"; }

bool is_day(std::int64_t day) {
  const std::int64_t of_year = day % 1000;
  return day >= 0 && day <= 9999366 && of_year <= 366;
}

/* False when the field does not take the text; `fits` is then false if the text was of
 * the right kind and only did not fit. */
bool write_value(const db::Field &field, std::string_view text, std::string &row,
                 bool &fits) {
  fits = true;
  std::int64_t integer = 0;
  double real = 0.0;
  if (field.type == db::FieldType::kText) {
    return fits = db::write_text(field, text, row);
  }
  if (is_null_text(text)) return fits = db::write_text(field, "", row);
  switch (field.type) {
    case db::FieldType::kTime:
    case db::FieldType::kDate:
      if (!parse_real(text, real) && !parse_date_text(text, real)) return false;
      break;
    case db::FieldType::kYearday:
      if (parse_integer(text, integer)) {
        if (!is_day(integer)) return false;
      } else if (parse_date_text(text, real)) {
        integer = yearday(real);
      } else {
        return false;
      }
      return fits = db::write_integer(field, integer, row);
    case db::FieldType::kInteger:
      if (parse_integer(text, integer))
        return fits = db::write_integer(field, integer, row);
      if (!parse_real(text, real) || real != std::trunc(real)) return false;
      break;
    case db::FieldType::kReal:
      if (!parse_real(text, real)) return false;
      break;
    default:
      return false;
  }
  if (!std::isfinite(real)) return false;
  return fits = db::write_real(field, real, row);
}

bool has_control(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char c) {
    return static_cast<unsigned char>(c) < ' ' || c == 127;
  });
}

}  // namespace

bool split_assignment(const std::string &operand, FieldText &value) {
  const std::size_t equals = operand.find('=');
  if (equals == operand.npos || equals == 0) return false;
  value = {std::string(trimmed(operand.substr(0, equals))), operand.substr(equals + 1)};
  return true;
}

bool is_named(const std::vector<FieldText> &values, std::string_view field) {
  return std::any_of(values.begin(), values.end(),
                     [field](const FieldText &value) { return value.field == field; });
}

bool write_values(const db::Relation &layout, const std::vector<FieldText> &values,
                  std::string &row, std::string &problem) {
  const ElogScope quiet;
  for (std::size_t i = 0; i < values.size(); i++) {
    const FieldText &value = values[i];
    const db::Field *const field = layout.find(value.field);
    if (field == nullptr) {
      problem = layout.name + " has no field '" + value.field.substr(0, 60) + "'";
      return false;
    }
    if (std::any_of(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(i),
                    [&](const FieldText &v) { return v.field == value.field; })) {
      problem = "field " + value.field + " is given twice";
      return false;
    }
    const std::string_view text = field->type == db::FieldType::kText
                                      ? right_trimmed(value.text)
                                      : trimmed(value.text);
    bool fits = true;
    if (write_value(*field, text, row, fits)) continue;
    const std::string shown =
        text.size() > 60 ? std::string(text.substr(0, 60)) + "..." : std::string(text);
    problem = layout.name + "." + field->name + ": '" + shown + "' ";
    if (!fits && has_control(text)) {
      problem += "holds a control character";
    } else if (!fits) {
      problem += "does not fit its " + std::to_string(field->width) + " characters";
    } else {
      problem += std::string("is not ") + kind_of(*field);
    }
    return false;
  }
  if (is_named(values, "time") && !is_named(values, "jdate")) date_row(layout, row);
  return true;
}

void date_row(const db::Relation &layout, std::string &row) {
  const db::Field *const jdate = layout.find("jdate");
  double time = kNullTime;
  if (jdate == nullptr || jdate->type != db::FieldType::kYearday ||
      !db::RealColumn(layout, "time").read(row, time)) {
    return;
  }
  if (time == kNullTime) {
    db::write_text(*jdate, "", row);
  } else {
    db::write_integer(*jdate, yearday(time), row);
  }
}

void stamp_row(const db::Relation &layout, std::string &row) {
  const db::Field *const lddate = layout.find("lddate");
  if (lddate != nullptr) db::write_real(*lddate, std_now(), row);
}

}  // namespace ksutil::tools
