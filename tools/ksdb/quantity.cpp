#include "tools/ksdb/quantity.h"

#include <string_view>
#include <vector>

#include "platform/db/access.h"
#include "platform/db/schema.h"
#include "platform/elog/elog.h"
#include "platform/stock/text.h"

namespace ksutil::tools {
namespace {

/* The field that an expression names; null when it is something else. */
const db::Field *field_of(Dbptr view, const std::string &expression) {
  const ElogScope quiet;
  view.record = dbNULL;
  std::vector<Dbptr> parts;
  if (!db::view_parts(view, parts)) return nullptr;
  for (const Dbptr &part : parts) {
    const int field =
        dblookup(part, nullptr, nullptr, expression.c_str(), nullptr).field;
    if (field < 0) continue;
    return &db::table_store(part)->layout().fields[static_cast<std::size_t>(field)];
  }
  return nullptr;
}

/* The unit with which the description of a field begins; empty for another beginning. */
std::string unit_of(std::string_view meaning) {
  const std::string_view first = meaning.substr(0, meaning.find_first_of(",; "));
  if (first == "deg") return "°";
  if (first == "percent") return "%";
  for (const std::string_view unit : {"km", "s", "s/deg", "km^2", "nm", "1/s"}) {
    if (first == unit) return std::string(unit);
  }
  return "";
}

}  // namespace

Quantity quantity_of(Dbptr view, const std::string &expression) {
  Quantity quantity;
  quantity.label = trimmed(expression);
  const db::Field *const field = field_of(view, quantity.label);
  if (field == nullptr) return quantity;
  quantity.time =
      field->type == db::FieldType::kTime || field->type == db::FieldType::kDate;
  quantity.down = field->meaning.find("positive down") != std::string::npos;
  const std::string unit = quantity.time ? "" : unit_of(field->meaning);
  if (!unit.empty()) quantity.label += " (" + unit + ")";
  return quantity;
}

}  // namespace ksutil::tools
