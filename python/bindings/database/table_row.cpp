#include "bindings/database/table_row.h"

#include <functional>
#include <string>

#include "bindings/bindings.h"
#include "bindings/interpreter/arrays.h"

namespace ksutil::python {
namespace {

py::object row_value(const TableRow &row, const std::string &name) {
  if (row.layouts->field(row.table, name) == nullptr) throw py::key_error(name);
  return field_value(*row.layouts, row.table, row.text, name);
}

py::dict row_dict(const TableRow &row) {
  py::dict values;
  add_fields(*row.layouts, row.table, row.text, values);
  return values;
}

}  // namespace

void bind_table_row(py::module_ &m) {
  py::class_<TableRow>(
      m, "TableRow",
      "A copy of one row of a table: fields by attribute or index, None for nulls.")
      .def_property_readonly(
          "table", [](const TableRow &row) { return row.table; }, "Name of the table.")
      .def_property_readonly(
          "recno", [](const TableRow &row) { return row.recno; },
          "Record number when it was read, from 0.")
      .def_property_readonly(
          "record", [](const TableRow &row) { return decoded(row.text.str()); },
          "The text of the row, with its newline.")
      .def("__getattr__",
           [](const TableRow &row, const std::string &name) {
             if (name.starts_with('_') ||
                 row.layouts->field(row.table, name) == nullptr) {
               throw py::attribute_error(row.table + " has no field '" + name + "'");
             }
             return row_value(row, name);
           })
      .def("__getitem__", row_value, py::arg("name"))
      .def("__contains__",
           [](const TableRow &row, const std::string &name) {
             return row.layouts->field(row.table, name) != nullptr;
           })
      .def("__len__", [](const TableRow &row) { return row_dict(row).size(); })
      .def("__iter__",
           [](const TableRow &row) { return py::iter(py::list(row_dict(row))); })
      .def("keys", [](const TableRow &row) { return py::list(row_dict(row)); })
      .def("as_dict", row_dict, "The fields by name.")
      .def(
          "__dir__",
          [](const py::object &self) {
            py::set names(py::module_::import("builtins").attr("dir")(self.get_type()));
            for (const auto &entry : row_dict(self.cast<const TableRow &>())) {
              names.add(entry.first);
            }
            return py::list(names);
          })
      .def("__eq__",
           [](const TableRow &row, const py::object &other) -> py::object {
             if (!py::isinstance<TableRow>(other)) {
               return py::reinterpret_borrow<py::object>(Py_NotImplemented);
             }
             const auto &that = other.cast<const TableRow &>();
             return py::bool_(row.table == that.table && row.text == that.text);
           })
      .def("__hash__",
           [](const TableRow &row) { return std::hash<db::RowText>()(row.text); })
      .def("__repr__",
           [](const TableRow &row) {
             return "TableRow('" + row.table + "', recno=" + std::to_string(row.recno) +
                    ")";
           })
      .def("_repr_html_", [](const py::object &self) {
        return py::module_::import("ksutil._tables").attr("record_table")(self);
      });
}

}  // namespace ksutil::python
