#include "tools/ksdb/row_conversion.h"

#include <cstdint>

#include "platform/elog/elog.h"
#include "platform/stock/text.h"

namespace ksutil::tools {

using db::FieldType;

namespace {

/* Reads a field of both rows; two nulls are equal whatever their texts. */
template <class Column, class Value>
bool equal_in(const Column &mine, std::string_view row, const Column &theirs,
              std::string_view copy) {
  Value a{}, b{};
  if (!mine.read(row, a) || !theirs.read(copy, b)) return false;
  return a == b || (a == mine.null() && b == theirs.null());
}

}  // namespace

RowConversion::RowConversion(const db::Relation &from, const db::Relation &to)
    : from_(from), to_(to), null_(db::null_record(to)) {
  same_places_ = from.width == to.width && from.fields.size() == to.fields.size();
  for (const db::Field &field : from.fields) {
    const db::Field *const other = to.find(field.name);
    if (other == nullptr) {
      missing_ += (missing_.empty() ? "" : ", ") + field.name;
      continue;
    }
    same_places_ = same_places_ && field.type == other->type &&
                   field.offset == other->offset && field.width == other->width;
    pairs_.push_back({&field, other});
  }
}

bool RowConversion::readable(std::string_view row) const {
  for (const Pair &pair : pairs_) {
    if (!db::is_readable(from_, *pair.from, row)) return false;
  }
  return true;
}

namespace {

/* Writes a real in the format of its field, or as it stands where it only fits so: fields
 * written by hand have fewer decimals than their formats. */
bool write_number(const db::Field &from, std::string_view row, const db::Field &to,
                  double value, std::string &made) {
  {
    const ElogScope quiet;
    if (db::write_real(to, value, made)) return true;
  }
  std::string_view text = row.substr(static_cast<std::size_t>(from.offset),
                                     static_cast<std::size_t>(from.width));
  text = trimmed(text);
  const auto width = static_cast<std::size_t>(to.width);
  if (text.size() > width) return db::write_real(to, value, made);
  const auto place = static_cast<std::size_t>(to.offset);
  made.replace(place, width, std::string(width - text.size(), ' ') + std::string(text));
  return true;
}

}  // namespace

bool RowConversion::append(std::string_view row, std::string &rows) const {
  if (same_places_) {
    rows += row;
    return true;
  }
  std::string made = null_;
  for (const auto &[from, to] : pairs_) {
    bool written = true;
    switch (from->type) {
      case FieldType::kInteger:
      case FieldType::kYearday: {
        const db::IntegerColumn column(from_, from->name);
        std::int64_t value = 0;
        written = column.read(row, value) &&
                  (value == column.null() || db::write_integer(*to, value, made));
        break;
      }
      case FieldType::kReal:
      case FieldType::kTime:
      case FieldType::kDate: {
        const db::RealColumn column(from_, from->name);
        double value = 0.0;
        written =
            column.read(row, value) &&
            (value == column.null() || write_number(*from, row, *to, value, made));
        break;
      }
      case FieldType::kText: {
        const db::TextColumn column(from_, from->name);
        std::string_view value;
        written = column.read(row, value) &&
                  (column.is_null(value) || db::write_text(*to, value, made));
        break;
      }
      case FieldType::kPointer:
        break;
    }
    if (!written) return false;
  }
  rows += made;
  return true;
}

const db::Field *RowConversion::difference(std::string_view row, std::string_view copy,
                                           long &rounded) const {
  if (same_places_ && row == copy) return nullptr;
  for (const Pair &pair : pairs_) {
    if (!same_value(pair, row, copy, rounded)) return pair.from;
  }
  return nullptr;
}

bool RowConversion::same_value(const Pair &pair, std::string_view row,
                               std::string_view copy, long &rounded) const {
  const std::string &name = pair.from->name;
  switch (pair.from->type) {
    case FieldType::kInteger:
    case FieldType::kYearday:
      return equal_in<db::IntegerColumn, std::int64_t>({from_, name}, row, {to_, name},
                                                       copy);
    case FieldType::kReal:
    case FieldType::kTime:
    case FieldType::kDate: {
      const db::RealColumn mine(from_, name), theirs(to_, name);
      if (equal_in<db::RealColumn, double>(mine, row, theirs, copy)) return true;
      double value = 0.0, rounded_value = 0.0, copied = 0.0;
      std::string formatted = null_;
      if (!mine.read(row, value) || !db::write_real(*pair.to, value, formatted) ||
          !theirs.read(formatted, rounded_value) || !theirs.read(copy, copied) ||
          rounded_value != copied) {
        return false;
      }
      rounded++;
      return true;
    }
    case FieldType::kText: {
      const db::TextColumn mine(from_, name), theirs(to_, name);
      std::string_view a, b;
      return mine.read(row, a) && theirs.read(copy, b) &&
             (a == b || (mine.is_null(a) && theirs.is_null(b)));
    }
    case FieldType::kPointer:
      return true;
  }
  return true;
}

}  // namespace ksutil::tools
