/* event_fields: reads the fields of the rows that records of events hold. */
#ifndef KSUTIL_PYTHON_BINDINGS_EVENTS_EVENT_FIELDS_H
#define KSUTIL_PYTHON_BINDINGS_EVENTS_EVENT_FIELDS_H

#include <ksutil/cxx/platform/db/schema.h>
#include <ksutil/platform/db/row_text.h>
#include <pybind11/pybind11.h>

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace ksutil::python {

namespace py = pybind11;

/* RowLayouts: the layouts that the rows of each table of a database may have.  Immutable:
 * any thread may call any function. */
class RowLayouts {
 public:
  using List = std::vector<std::shared_ptr<const db::Relation>>;

  /* Those of the tables as they are now, of the database's schema and of the built-in
   * ones, in this order.  Throws Error when the database cannot be opened. */
  static std::shared_ptr<const RowLayouts> of_database(const std::string &name);

  /* Empty for an unknown table. */
  const List &of_table(std::string_view table) const;

  /* The layout of a row; null when none fits. */
  const db::Relation *layout(std::string_view table, std::string_view row) const;

  /* The field in the first layout that has it; null without one. */
  const db::Field *field(std::string_view table, std::string_view name) const;

 private:
  std::map<std::string, List, std::less<>> tables_;
};

/* The value of a field of a row: None for a null, for an empty row, and for a field that
 * only other layouts have.  Throws Error for a value that cannot be read. */
py::object field_value(const RowLayouts &layouts, std::string_view table,
                       const db::RowText &row, std::string_view name);

/* Sets all fields of a row in a dictionary, under their names; those that are there
 * already stay. */
void add_fields(const RowLayouts &layouts, std::string_view table,
                const db::RowText &row, py::dict &values);

}  // namespace ksutil::python
#endif
