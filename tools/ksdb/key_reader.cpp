#include "tools/ksdb/key_reader.h"

#include <algorithm>
#include <charconv>

#include "platform/elog/elog.h"
#include "platform/stock/text.h"

namespace ksutil::tools {
namespace {

/* Appends a value and a separator, a character that texts of rows do not hold. */
void put_value(const expr::Value &value, std::string &key) {
  char digits[32];
  switch (value.type) {
    case expr::Type::kText:
      key += right_trimmed(value.text);
      break;
    case expr::Type::kReal:
    case expr::Type::kTime:
      key.append(digits, std::to_chars(digits, digits + sizeof digits, value.real).ptr);
      break;
    default:
      key += std::to_string(value.integer);
  }
  key += '\n';
}

}  // namespace

KeyReader::KeyReader(const db::Relation &layout, const db::Key &key) {
  for (const std::string &item : key) {
    const std::size_t colons = item.find("::");
    std::vector<std::string> names{item.substr(0, colons)};
    if (colons != item.npos) names.push_back(item.substr(colons + 2));
    for (const std::string &name : names) {
      const db::Field *const field = layout.find(name);
      if (field == nullptr || field->type == db::FieldType::kPointer) {
        fields_.clear();
        return;
      }
      fields_.emplace_back(layout, *field, 0);
    }
  }
}

bool KeyReader::read(std::string_view row, std::string &key) const {
  const ElogScope quiet;
  key.clear();
  bool null = true;
  for (const ViewField &field : fields_) {
    expr::Value value;
    if (!field.value(row, value)) return false;
    null = null && value.null;
    put_value(value, key);
  }
  return !null;
}

std::string KeyReader::describe(std::string_view row) const {
  std::string text;
  for (const ViewField &field : fields_) {
    std::string cell;
    field.cell(row, cell);
    text += (text.empty() ? "" : ", ") + field.name() + " " +
            (cell.empty() ? std::string("-") : cell);
  }
  return text;
}

bool KeyReader::names(const std::string &name) const {
  return std::any_of(fields_.begin(), fields_.end(),
                     [&](const ViewField &field) { return field.name() == name; });
}

}  // namespace ksutil::tools
