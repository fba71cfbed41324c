#include "tools/ksdb/view_field.h"

#include "platform/stock/text.h"
#include "tools/common/cells.h"
#include "tools/ksdb/quantity.h"

namespace ksutil::tools {

bool read_tables_of(Dbptr view, std::vector<db::TableStore *> &tables) {
  view.record = dbNULL;
  std::vector<Dbptr> parts;
  if (!db::view_parts(view, parts)) return false;
  for (const Dbptr &part : parts) {
    tables.push_back(db::table_store(part));
    if (tables.back() == nullptr) return false;
  }
  return true;
}

const db::Field *find_field(const std::vector<db::TableStore *> &tables,
                            std::string_view name, std::size_t &part) {
  const std::size_t point = name.find('.');
  for (part = 0; part < tables.size(); part++) {
    const db::Relation &layout = tables[part]->layout();
    if (point != name.npos && name.substr(0, point) != layout.name) continue;
    const db::Field *const field =
        layout.find(point == name.npos ? name : name.substr(point + 1));
    if (field != nullptr) return field;
  }
  return nullptr;
}

ViewField::ViewField(const db::Relation &layout, const db::Field &field,
                     std::size_t part)
    : field_(field), part_(part) {
  switch (type()) {
    case expr::Type::kInteger:
    case expr::Type::kBoolean:
      reader_ = db::IntegerColumn(layout, field.name);
      break;
    case expr::Type::kReal:
    case expr::Type::kTime:
      reader_ = db::RealColumn(layout, field.name);
      break;
    case expr::Type::kText:
      reader_ = db::TextColumn(layout, field.name);
      break;
  }
}

expr::Type ViewField::type() const {
  switch (field_.type) {
    case db::FieldType::kInteger:
    case db::FieldType::kYearday:
      return expr::Type::kInteger;
    case db::FieldType::kReal:
      return expr::Type::kReal;
    case db::FieldType::kTime:
    case db::FieldType::kDate:
      return expr::Type::kTime;
    case db::FieldType::kText:
    case db::FieldType::kPointer:
      return expr::Type::kText;
  }
  return expr::Type::kText;
}

bool ViewField::value(std::string_view row, expr::Value &result) const {
  result = expr::Value();
  result.type = type();
  if (const auto *integer = std::get_if<db::IntegerColumn>(&reader_)) {
    if (!integer->read(row, result.integer)) return false;
    result.null = result.integer == integer->null();
  } else if (const auto *real = std::get_if<db::RealColumn>(&reader_)) {
    if (!real->read(row, result.real)) return false;
    result.null = result.real == real->null();
  } else {
    const auto &text = std::get<db::TextColumn>(reader_);
    if (!text.read(row, result.text)) return false;
    result.null = text.is_null(result.text);
  }
  return true;
}

bool ViewField::cell(std::string_view row, std::string &text) const {
  text.clear();
  expr::Value read;
  if (!value(row, read)) return false;
  if (read.null) return true;
  if (read.type == expr::Type::kInteger || read.type == expr::Type::kReal) {
    text.assign(stored(row));
  } else if (read.type == expr::Type::kText) {
    text.assign(trimmed(read.text));
  } else {
    text = value_cell(read);
  }
  return true;
}

std::string_view ViewField::stored(std::string_view row) const {
  const auto offset = static_cast<std::size_t>(field_.offset);
  if (offset >= row.size()) return {};
  return trimmed(row.substr(offset, static_cast<std::size_t>(field_.width)));
}

Column ViewField::column() const {
  Column column = column_of(field_.name, type());
  column.unit = unit_of(field_);
  return column;
}

std::string value_cell(const expr::Value &value) {
  if (value.null) return "";
  switch (value.type) {
    case expr::Type::kInteger:
    case expr::Type::kBoolean:
      return std::to_string(value.integer);
    case expr::Type::kReal:
      return shortest_cell(value.real);
    case expr::Type::kTime:
      return time_cell(value.real);
    case expr::Type::kText:
      return std::string(trimmed(value.text));
  }
  return "";
}

Column column_of(const std::string &name, expr::Type type) {
  const bool number = type != expr::Type::kText && type != expr::Type::kTime;
  return {name, number, number};
}

}  // namespace ksutil::tools
