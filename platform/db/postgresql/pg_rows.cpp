#include "platform/db/postgresql/internal/pg_rows.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/db/postgresql/internal/pg_options.h"
#include "platform/elog/failure.h"
#include "platform/stock/text.h"

namespace ksutil::db {
namespace {

/* Room for any double in fixed form with as many decimals as a schema may have. */
constexpr std::size_t kNumberRoom = 400;
constexpr std::size_t kToldCharacters = 40;  // of a value, in a message

bool is_real(FieldType type) {
  return type == FieldType::kReal || type == FieldType::kTime ||
         type == FieldType::kDate;
}

bool is_integer(FieldType type) {
  return type == FieldType::kInteger || type == FieldType::kYearday;
}

bool has_control_character(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < ' ' || byte == 127;
  });
}

/* Takes the escapes of COPY out of a value; false when it holds a control character. */
bool unescape(std::string_view value, std::string &text) {
  text.clear();
  for (std::size_t at = 0; at < value.size(); ++at) {
    char c = value[at];
    if (c == '\\') {
      if (++at == value.size() || value[at] != '\\') return false;
      c = '\\';
    }
    text += c;
  }
  return !has_control_character(text);
}

bool put(std::string_view text, bool left, char *place, std::size_t width) {
  if (text.size() > width) return false;
  const std::size_t indent = left ? 0 : width - text.size();
  std::memcpy(place + indent, text.data(), text.size());
  return true;
}

std::string_view field_text(const Field &field, std::string_view row) {
  return row.substr(static_cast<std::size_t>(field.offset),
                    static_cast<std::size_t>(field.width));
}

template <class Number, class... Format>
std::string number_text(Number number, Format... format) {
  char digits[kNumberRoom];
  const auto end = std::to_chars(digits, digits + sizeof digits, number, format...).ptr;
  return {digits, end};
}

}  // namespace

PgRows::PgRows(std::shared_ptr<const Relation> relation)
    : relation_(std::move(relation)),
      length_(static_cast<std::size_t>(relation_->width) + 1) {
  for (const Field &field : relation_->fields) {
    if (!columns_.empty()) columns_ += ',';
    columns_ += pg_name(field.name);
    int decimals = 6;
    const std::size_t point = field.format.find('.');
    if (point != field.format.npos) {
      std::from_chars(field.format.data() + point + 1,
                      field.format.data() + field.format.size(), decimals);
    }
    const char conversion = field.format.empty() ? 'f' : field.format.back();
    const auto style = conversion == 'e'   ? std::chars_format::scientific
                       : conversion == 'g' ? std::chars_format::general
                                           : std::chars_format::fixed;
    const bool flush_left = field.format.size() > 1 && field.format[1] == '-';
    plans_.push_back({field.type, static_cast<std::size_t>(field.offset),
                      static_cast<std::size_t>(field.width),
                      flush_left || field.type == FieldType::kDate, style, decimals,
                      field.null_real, field.null_integer, field.null_text});
    const auto column = [&](auto made, bool wanted) {
      return wanted ? decltype(made)(*relation_, field.name) : made;
    };
    integers_.push_back(column(IntegerColumn(), is_integer(field.type)));
    reals_.push_back(column(RealColumn(), is_real(field.type)));
    texts_.push_back(column(TextColumn(), field.type == FieldType::kText));
  }
}

const char *PgRows::type_of(const Field &field) {
  if (is_integer(field.type)) return "bigint";
  if (is_real(field.type)) return "double precision";
  return field.type == FieldType::kText ? "text" : "";
}

bool PgRows::render_field(const Plan &plan, std::string_view value, char *place,
                          const char *&cause) const {
  cause = "does not fit its field";
  if (value == "\\N") return put(plan.null_text, plan.left, place, plan.width);
  char digits[kNumberRoom];
  const char *const end = value.data() + value.size();
  if (is_real(plan.type)) {
    double real = 0.0;
    const auto read = std::from_chars(value.data(), end, real);
    if (read.ec != std::errc() || read.ptr != end || !std::isfinite(real)) {
      cause = "is not a number that a field can show";
      return false;
    }
    if (real == plan.null_real) {
      return put(plan.null_text, plan.left, place, plan.width);
    }
    /* A value that all decimals leave no room for is shown with fewer, where these show
     * it exactly: files have such values. */
    for (int decimals = plan.decimals; decimals >= 0; --decimals) {
      const char *const last =
          std::to_chars(digits, digits + sizeof digits, real, plan.style, decimals).ptr;
      double shown = real;
      if (decimals < plan.decimals) std::from_chars(digits, last, shown);
      if (shown != real) break;
      if (put({digits, last}, plan.left, place, plan.width)) return true;
    }
    return false;
  }
  if (is_integer(plan.type)) {
    std::int64_t integer = 0;
    const auto read = std::from_chars(value.data(), end, integer);
    if (read.ec != std::errc() || read.ptr != end) {
      cause = "is not an integer";
      return false;
    }
    if (integer == plan.null_integer) {
      return put(plan.null_text, plan.left, place, plan.width);
    }
    return put(value, plan.left, place, plan.width);
  }
  std::string unescaped;
  if (value.find('\\') != value.npos || has_control_character(value)) {
    if (!unescape(value, unescaped)) {
      cause = "holds a control character";
      return false;
    }
    value = unescaped;
  }
  value = right_trimmed(value);
  return put(value.empty() ? std::string_view(plan.null_text) : value, plan.left, place,
             plan.width);
}

bool PgRows::blank_row(std::size_t field, std::string_view value, const char *cause,
                       char *row, std::string &told) const {
  std::memset(row, ' ', length_);
  told = relation_->fields[field].name + " ";
  for (const char c : value.substr(0, kToldCharacters)) told += c < ' ' ? '?' : c;
  if (value.size() > kToldCharacters) told += "...";
  told += std::string(" ") + cause;
  return false;
}

bool PgRows::render(std::string_view line, char *row, std::string &cause) const {
  std::memset(row, ' ', length_);
  for (std::size_t field = 0; field < plans_.size(); ++field) {
    const std::size_t tab = std::min(line.find('\t'), line.size());
    const std::string_view value = line.substr(0, tab);
    const bool last = field + 1 == plans_.size();
    if (last != (tab == line.size())) {
      return blank_row(field, value, "is not followed by the columns of the table", row,
                       cause);
    }
    const Plan &plan = plans_[field];
    const char *found = "";
    if (!render_field(plan, value, row + plan.offset, found)) {
      return blank_row(field, value, found, row, cause);
    }
    if (!last) line.remove_prefix(tab + 1);
  }
  row[length_ - 1] = '\n';
  return true;
}

bool PgRows::value_of(const char *who, std::size_t field, std::string_view row,
                      bool &null, std::string &value) const {
  const Field &known = relation_->fields[field];
  bool readable = false;
  if (is_real(known.type)) {
    double real = 0.0;
    readable = reals_[field].read(row, real);
    null = real == reals_[field].null();
    /* The readers of columns.h give no sign to a zero that is printed with one. */
    const bool negative = field_text(known, row).find('-') != row.npos;
    value = real == 0.0 && negative ? "-0" : number_text(real);
  } else if (is_integer(known.type)) {
    std::int64_t integer = 0;
    readable = integers_[field].read(row, integer);
    null = integer == integers_[field].null();
    value = number_text(integer);
  } else if (known.type == FieldType::kText) {
    std::string_view text;
    readable = texts_[field].read(row, text) && !has_control_character(text);
    null = texts_[field].is_null(text);
    value = text;
  }
  if (readable) return true;
  const std::string_view shown = row.substr(static_cast<std::size_t>(known.offset),
                                            static_cast<std::size_t>(known.width));
  return fail(who, "%s: %s: \"%.*s\" is not a value of the field",
              relation_->name.c_str(), known.name.c_str(),
              static_cast<int>(shown.size()), shown.data());
}

bool PgRows::to_copy(const char *who, std::string_view row, std::string &line) const {
  bool null = false;
  std::string value;
  for (std::size_t field = 0; field < plans_.size(); ++field) {
    if (!value_of(who, field, row, null, value)) return false;
    if (field > 0) line += '\t';
    if (null) {
      line += "\\N";
      continue;
    }
    for (const char c : value) {
      if (c == '\\') line += '\\';
      line += c;
    }
  }
  line += '\n';
  return true;
}

void PgRows::to_values(std::string_view line, bool typed,
                       const std::function<std::string(std::string_view)> &quote,
                       std::string &values) const {
  std::string text;
  for (std::size_t field = 0; field < plans_.size(); ++field) {
    const std::size_t end = std::min(line.find_first_of("\t\n"), line.size());
    const std::string_view value = line.substr(0, end);
    values += field == 0 ? '(' : ',';
    if (value == "\\N") {
      values += "NULL";
    } else {
      unescape(value, text);
      values += quote(text);
    }
    if (typed) values += std::string("::") + type_of(relation_->fields[field]);
    line.remove_prefix(std::min(end + 1, line.size()));
  }
  values += ')';
}

}  // namespace ksutil::db
