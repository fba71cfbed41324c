#include "bindings/events/event_edits.h"

#include <ksutil/cxx/platform/db/columns.h>
#include <ksutil/platform/elog/elog.h>

#include "bindings/interpreter/failure.h"
#include "platform/db/store.h"
#include "tools/ksdb/row_values.h"

namespace ksutil::python {
namespace {

using db::FieldType;

constexpr std::size_t kBlockBytes = std::size_t{1} << 20;  // of a table, in memory

std::int64_t integer_of(const db::Field &field, const py::handle &value) {
  if (PyIndex_Check(value.ptr()) == 0) {
    throw py::type_error(field.name + " is a whole number");
  }
  const auto integer = py::reinterpret_steal<py::object>(PyNumber_Index(value.ptr()));
  if (!integer) throw py::error_already_set();
  const long long number = PyLong_AsLongLong(integer.ptr());
  if (number == -1 && PyErr_Occurred() != nullptr) throw py::error_already_set();
  return number;
}

double real_of(const py::handle &value) {
  const double number = PyFloat_AsDouble(value.ptr());
  if (number == -1.0 && PyErr_Occurred() != nullptr) throw py::error_already_set();
  return number;
}

bool write_value(const db::Field &field, const py::handle &value, std::string &row) {
  switch (field.type) {
    case FieldType::kInteger:
    case FieldType::kYearday:
      return db::write_integer(
          field, value.is_none() ? field.null_integer : integer_of(field, value), row);
    case FieldType::kReal:
    case FieldType::kTime:
    case FieldType::kDate:
      return db::write_real(field, value.is_none() ? field.null_real : real_of(value),
                            row);
    case FieldType::kText:
    case FieldType::kPointer:
      break;
  }
  if (field.type == FieldType::kPointer) {
    throw py::type_error(field.name + " cannot be written");
  }
  if (value.is_none()) return db::write_text(field, "", row);
  if (!py::isinstance<py::str>(value)) throw py::type_error(field.name + " is a text");
  return db::write_text(field, value.cast<std::string>(), row);
}

void write_values(const db::Relation &layout, const py::dict &values,
                  std::string &row) {
  const Failure failure;
  for (const auto &[name, value] : values) {
    const auto wanted = name.cast<std::string>();
    const db::Field *const field = layout.find(wanted);
    if (field == nullptr) throw py::key_error(layout.name + "." + wanted);
    if (!write_value(*field, value, row)) failure.raise();
  }
}

/* Whether every field of a row can be read; if not, registers a message. */
bool is_acceptable(const db::Relation &layout, std::string_view row) {
  for (const db::Field &field : layout.fields) {
    if (db::is_readable(layout, field, row)) continue;
    elog_log(0, "field %s of the record of %s cannot be read.\n", field.name.c_str(),
             layout.name.c_str());
    return false;
  }
  return true;
}

}  // namespace

std::string edited_text(const TableRow &row, const py::dict &values) {
  std::string text = row.text.str();
  const db::Relation *const layout = row.layouts->layout(row.table, text);
  if (layout == nullptr || static_cast<std::size_t>(layout->width) + 1 != text.size()) {
    throw Error("the layout of the row is not that of its table");
  }
  write_values(*layout, values, text);
  return text;
}

std::string made_text(const RowLayouts &layouts, const std::string &table,
                      const py::dict &values) {
  const auto &known = layouts.of_table(table);
  if (known.empty()) throw py::key_error(table);
  std::string text = db::null_record(*known.front());
  write_values(*known.front(), values, text);
  return text;
}

void replace_row(const std::string &database, const TableRow &row, std::string text,
                 bool stamped) {
  const Failure failure;
  const auto store = db::open_store(database, "r+", kBlockBytes);
  db::TableStore *const table = store == nullptr ? nullptr : store->table(row.table);
  if (table == nullptr) failure.raise();
  bool changed = false;
  const auto replace = [&](db::TableStore::Exclusive &locked) {
    const auto rows = locked.snapshot();
    if (rows == nullptr) return false;
    changed = row.recno >= rows->count() || rows->text(row.recno) != row.text;
    if (changed) return false;
    if (stamped) tools::stamp_row(rows->layout(), text);
    return is_acceptable(rows->layout(), text) && locked.overwrite(row.recno, text);
  };
  const bool done = table->exclusively(replace);
  if (changed) {
    throw Error("row " + std::to_string(row.recno) + " of " + row.table +
                " has changed since it was read");
  }
  if (!done) failure.raise();
}

}  // namespace ksutil::python
