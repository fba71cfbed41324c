#include "platform/db/internal/bound_layout.h"

#include <charconv>
#include <cstring>
#include <string>

#include "platform/elog/failure.h"
#include "platform/stock/text.h"

namespace ksutil::db {
namespace {

/* FNV-1a over the table's name and its fields' names and types. */
std::uint64_t signature_of(const Relation &layout) {
  std::uint64_t hash = 14695981039346656037U;
  const auto mix = [&hash](std::string_view text) {
    for (const char c : text) {
      hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    }
    hash = (hash ^ 0xffU) * 1099511628211U;
  };
  mix(layout.name);
  for (const Field &field : layout.fields) {
    mix(field.name);
    mix(std::to_string(static_cast<int>(field.type)));
  }
  return hash;
}

std::string_view field_text(const Field &field, std::string_view row) {
  const auto offset = static_cast<std::size_t>(field.offset);
  if (offset >= row.size()) return {};
  return row.substr(offset, static_cast<std::size_t>(field.width));
}

bool read_pointer(std::string_view text, std::int64_t &address) {
  text = trimmed(text);
  address = 0;
  if (text.empty() || text == "-") return true;
  if (text.starts_with("0x")) text.remove_prefix(2);
  std::uintptr_t bits = 0;
  const char *const end = text.data() + text.size();
  const auto [at, error] = std::from_chars(text.data(), end, bits, 16);
  if (error != std::errc() || at != end) return false;
  address = static_cast<std::int64_t>(bits);
  return true;
}

}  // namespace

bool expression_type(FieldType type, expr::Type &result) {
  switch (type) {
    case FieldType::kInteger:
    case FieldType::kYearday:
      result = expr::Type::kInteger;
      return true;
    case FieldType::kReal:
      result = expr::Type::kReal;
      return true;
    case FieldType::kTime:
    case FieldType::kDate:
      result = expr::Type::kTime;
      return true;
    case FieldType::kText:
      result = expr::Type::kText;
      return true;
    case FieldType::kPointer:
      return false;
  }
  return false;
}

BoundLayout::BoundLayout(const Relation &layout)
    : relation_(layout), signature_(signature_of(layout)) {
  columns_.reserve(relation_.fields.size());
  for (const Field &field : relation_.fields) {
    expr::Type type;
    if (!expression_type(field.type, type)) {
      columns_.emplace_back();
    } else if (type == expr::Type::kInteger) {
      columns_.emplace_back(IntegerColumn(relation_, field.name));
    } else if (type == expr::Type::kText) {
      columns_.emplace_back(TextColumn(relation_, field.name));
    } else {
      columns_.emplace_back(RealColumn(relation_, field.name));
    }
  }
}

bool BoundLayout::read(std::size_t field, std::string_view row,
                       expr::Value &result) const {
  const Column &column = columns_[field];
  if (const auto *integer = std::get_if<IntegerColumn>(&column)) {
    std::int64_t value;
    if (!integer->read(row, value)) return false;
    result = expr::Value::of_integer(value);
    result.null = value == integer->null();
  } else if (const auto *real = std::get_if<RealColumn>(&column)) {
    double value;
    if (!real->read(row, value)) return false;
    result = relation_.fields[field].type == FieldType::kReal
                 ? expr::Value::of_real(value)
                 : expr::Value::of_time(value);
    result.null = value == real->null();
  } else if (const auto *text = std::get_if<TextColumn>(&column)) {
    std::string_view value;
    if (!text->read(row, value)) return false;
    result = expr::Value::of_text(value);
    result.null = text->is_null(value);
  } else {
    std::int64_t address;
    if (!read_pointer(field_text(relation_.fields[field], row), address)) return false;
    result = expr::Value::of_integer(address);
    result.null = address == 0;
  }
  return true;
}

bool BoundLayout::readable(std::string_view row) const {
  if (row.empty()) return false;
  expr::Value value;
  for (std::size_t field = 0; field < columns_.size(); ++field) {
    if (!read(field, row, value)) return false;
  }
  return true;
}

bool BoundLayout::value(int field, std::string_view row, expr::Value &result) const {
  const auto index = static_cast<std::size_t>(field);
  if (read(index, row, result)) return true;
  const Field &broken = relation_.fields[index];
  const std::string text(trimmed(field_text(broken, row)));
  return fail("db", "%s.%s: '%s' cannot be read", relation_.name.c_str(),
              broken.name.c_str(), text.c_str());
}

}  // namespace ksutil::db
