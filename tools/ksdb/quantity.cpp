#include "tools/ksdb/quantity.h"

#include <new>
#include <string_view>
#include <vector>

#include "platform/stock/text.h"
#include "tools/ksdb/view_field.h"

namespace ksutil::tools {
namespace {

/* The field that an expression names, "depth" or "origin.depth"; null for any other
 * expression. */
const db::Field *field_of(Dbptr view, const std::string &expression) {
  std::vector<db::TableStore *> tables;
  if (!read_tables_of(view, tables)) throw std::bad_alloc();
  std::size_t part = 0;
  return find_field(tables, expression, part);
}

}  // namespace

std::string unit_of(const db::Field &field) {
  if (field.type != db::FieldType::kReal && field.type != db::FieldType::kInteger) {
    return "";
  }
  const std::string_view meaning = field.meaning;
  const std::string_view first = meaning.substr(0, meaning.find_first_of(",; "));
  if (first == "percent") return "%";
  if (first == "1/s") return "Hz";
  for (const std::string_view unit : {"deg", "km", "s", "s/deg", "km^2", "nm"}) {
    if (first == unit) return std::string(unit);
  }
  return "";
}

Quantity quantity_of(Dbptr view, const std::string &expression) {
  Quantity quantity;
  quantity.label = trimmed(expression);
  const db::Field *const field = field_of(view, quantity.label);
  if (field == nullptr) return quantity;
  quantity.time =
      field->type == db::FieldType::kTime || field->type == db::FieldType::kDate;
  quantity.down = field->meaning.find("positive down") != std::string::npos;
  const std::string unit = unit_of(*field);
  if (!unit.empty()) quantity.label += " (" + (unit == "deg" ? "°" : unit) + ")";
  return quantity;
}

}  // namespace ksutil::tools
