#include "bindings/events/event_fields.h"

#include <ksutil/cxx/platform/db/access.h>
#include <ksutil/cxx/platform/db/columns.h>
#include <ksutil/events/vars.h>
#include <ksutil/platform/db/db.h>

#include "bindings/interpreter/arrays.h"
#include "bindings/interpreter/failure.h"

namespace ksutil::python {
namespace {

using db::FieldType;

class OpenHandle {
 public:
  explicit OpenHandle(const std::string &name) {
    const Failure failure;
    failure.check(dbopen(name.c_str(), "r", &db_));
  }
  ~OpenHandle() { dbclose(db_); }
  OpenHandle(const OpenHandle &) = delete;
  OpenHandle &operator=(const OpenHandle &) = delete;
  Dbptr get() const { return db_; }

 private:
  Dbptr db_ = dbinvalid();
};

/* The row without the end of its line. */
std::string_view line_of(std::string_view row) {
  while (!row.empty() && (row.back() == '\n' || row.back() == '\r')) {
    row.remove_suffix(1);
  }
  return row;
}

/* One field of one row; false when it cannot be read. */
bool read_field(const db::Relation &layout, const db::Field &field,
                std::string_view line, py::object &value) {
  switch (field.type) {
    case FieldType::kInteger:
    case FieldType::kYearday: {
      const db::IntegerColumn column(layout, field.name);
      std::int64_t integer = 0;
      if (!column.read(line, integer)) return false;
      value = integer_or_none(integer, column.null());
      return true;
    }
    case FieldType::kReal:
    case FieldType::kTime:
    case FieldType::kDate: {
      const db::RealColumn column(layout, field.name);
      double real = 0.0;
      if (!column.read(line, real)) return false;
      value = real_or_none(real, column.null());
      return true;
    }
    case FieldType::kText: {
      const db::TextColumn column(layout, field.name);
      std::string_view text;
      if (!column.read(line, text)) return false;
      value = column.is_null(text) ? py::none() : text_or_none(std::string(text));
      return true;
    }
    case FieldType::kPointer:
      break;
  }
  value = py::none();
  return true;
}

py::object value_in_line(const db::Relation &layout, const db::Field &field,
                         std::string_view line) {
  py::object value;
  if (static_cast<std::size_t>(layout.width) == line.size()) {
    if (read_field(layout, field, line, value)) return value;
  } else if (const auto stretched = db::stretched_layout(layout, line)) {
    if (read_field(*stretched, field, line, value)) return value;
  }
  throw Error("cannot read " + layout.name + "." + field.name + " in '" +
              std::string(line) + "'");
}

}  // namespace

std::shared_ptr<const RowLayouts> RowLayouts::of_database(const std::string &name) {
  auto layouts = std::make_shared<RowLayouts>();
  const OpenHandle opened(name);
  const Failure quiet;  // a table whose layout cannot be had has that of its schema
  for (const char *table : kEVTableNames) {
    const Dbptr found = dblookup(opened.get(), "", table, "", "");
    if (found.table == dbINVALID) continue;
    if (db::TableStore *const store = db::table_store(found)) {
      layouts->tables_[table].push_back(
          std::make_shared<const db::Relation>(store->layout()));
    }
  }
  std::vector<std::shared_ptr<const db::Schema>> schemas;
  if (db::DatabaseStore *const store = db::database_store(opened.get())) {
    schemas.push_back(store->schema());
  }
  for (const std::string &builtin : db::builtin_schemas()) {
    schemas.push_back(db::Schema::load(builtin));
  }
  for (const auto &schema : schemas) {
    if (schema == nullptr) continue;
    for (const db::Relation &relation : schema->relations()) {
      layouts->tables_[relation.name].emplace_back(schema, &relation);
    }
  }
  return layouts;
}

const RowLayouts::List &RowLayouts::of_table(std::string_view table) const {
  static const List none;
  const auto found = tables_.find(table);
  return found == tables_.end() ? none : found->second;
}

const db::Relation *RowLayouts::layout(std::string_view table,
                                       std::string_view row) const {
  const std::string_view line = line_of(row);
  const List &layouts = of_table(table);
  for (const auto &layout : layouts) {
    if (static_cast<std::size_t>(layout->width) == line.size()) return layout.get();
  }
  for (const auto &layout : layouts) {
    if (db::stretched_layout(*layout, line)) return layout.get();
  }
  return nullptr;
}

const db::Field *RowLayouts::field(std::string_view table,
                                   std::string_view name) const {
  for (const auto &layout : of_table(table)) {
    if (const db::Field *const field = layout->find(name)) return field;
  }
  return nullptr;
}

py::object field_value(const RowLayouts &layouts, std::string_view table,
                       const db::RowText &row, std::string_view name) {
  const std::string text = row.str();
  if (text.empty()) return py::none();
  const db::Relation *const layout = layouts.layout(table, text);
  if (layout == nullptr) {
    throw Error("not a row of " + std::string(table) + ": '" +
                std::string(line_of(text)) + "'");
  }
  const db::Field *const field = layout->find(name);
  if (field == nullptr) return py::none();
  return value_in_line(*layout, *field, line_of(text));
}

void add_fields(const RowLayouts &layouts, std::string_view table,
                const db::RowText &row, py::dict &values) {
  const std::string text = row.str();
  const auto &known = layouts.of_table(table);
  if (known.empty()) return;
  const db::Relation *layout =
      text.empty() ? known.front().get() : layouts.layout(table, text);
  if (layout == nullptr) return;
  for (const db::Field &field : layout->fields) {
    const py::str name(field.name);
    if (values.contains(name)) continue;
    values[name] = text.empty() ? py::object(py::none())
                                : value_in_line(*layout, field, line_of(text));
  }
}

}  // namespace ksutil::python
