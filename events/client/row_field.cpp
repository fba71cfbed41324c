#include "events/client/internal/row_field.h"

#include "platform/elog/failure.h"

namespace ksutil::events {
namespace {

/* The type that queries see; false for a field that has no value. */
bool query_type(db::FieldType type, expr::Type &result) {
  switch (type) {
    case db::FieldType::kInteger:
    case db::FieldType::kYearday:
      result = expr::Type::kInteger;
      return true;
    case db::FieldType::kReal:
      result = expr::Type::kReal;
      return true;
    case db::FieldType::kTime:
    case db::FieldType::kDate:
      result = expr::Type::kTime;
      return true;
    case db::FieldType::kText:
      result = expr::Type::kText;
      return true;
    case db::FieldType::kPointer:
      return false;
  }
  return false;
}

/* The row without its newline. */
std::string_view line_of(std::string_view row) {
  if (!row.empty() && row.back() == '\n') row.remove_suffix(1);
  return row;
}

bool read_column(const db::IntegerColumn &column, std::string_view row,
                 expr::Value &value) {
  if (!column.read(row, value.integer)) return false;
  value.null = value.integer == column.null();
  return true;
}

bool read_column(const db::RealColumn &column, std::string_view row,
                 expr::Value &value) {
  if (!column.read(row, value.real)) return false;
  value.null = value.real == column.null();
  return true;
}

bool read_column(const db::TextColumn &column, std::string_view row,
                 expr::Value &value) {
  if (!column.read(row, value.text)) return false;
  value.null = column.is_null(value.text);
  return true;
}

}  // namespace

RowField::RowField(const Layouts &layouts, std::string_view field) : field_(field) {
  for (const auto &layout : layouts) {
    const db::Field *const found = layout->find(field);
    expr::Type type;
    if (found == nullptr || !query_type(found->type, type)) continue;
    if (readers_.empty()) {
      table_ = layout->name;
      type_ = type;
    }
    if (type == type_) {
      readers_.push_back(
          {static_cast<std::size_t>(layout->width), layout, column(*layout)});
    }
  }
}

RowField::Column RowField::column(const db::Relation &layout) const {
  switch (type_) {
    case expr::Type::kInteger:
      return db::IntegerColumn(layout, field_);
    case expr::Type::kText:
      return db::TextColumn(layout, field_);
    default:
      return db::RealColumn(layout, field_);
  }
}

bool RowField::read(const db::RowText &row, expr::Value &value,
                    std::string &text) const {
  const db::RowText::Reading reading(row);
  if (!read_row(reading.text(), value)) return false;
  if (value.type == expr::Type::kText) value.text = text.assign(value.text);
  return true;
}

bool RowField::read_row(std::string_view row, expr::Value &value) const {
  value = {};
  value.type = type_;
  value.null = true;
  const std::string_view line = line_of(row);
  if (line.empty()) return true;
  for (const Reader &reader : readers_) {
    if (reader.width != line.size()) continue;
    return std::visit(
               [&](const auto &column) { return read_column(column, line, value); },
               reader.column) ||
           unreadable(row);
  }
  return read_stretched(line, value);
}

/* No layout has this width: take one whose last field may be wider or narrower. */
bool RowField::read_stretched(std::string_view line, expr::Value &value) const {
  if (line.back() == '\r') line.remove_suffix(1);
  for (const Reader &reader : readers_) {
    const auto layout = db::stretched_layout(*reader.layout, line);
    if (!layout) continue;
    return std::visit(
               [&](const auto &column) { return read_column(column, line, value); },
               column(*layout)) ||
           unreadable(line);
  }
  return unreadable(line);
}

bool RowField::unreadable(std::string_view row) const {
  const std::string_view line = line_of(row);
  return fail("EVClient::getValue", "cannot read %s.%s in '%.*s'", table_.c_str(),
              field_.c_str(), static_cast<int>(line.size()), line.data());
}

}  // namespace ksutil::events
