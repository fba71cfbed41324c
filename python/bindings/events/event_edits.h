/* event_edits: makes the texts of rows that programs write through an event server. */
#ifndef KSUTIL_PYTHON_BINDINGS_EVENTS_EVENT_EDITS_H
#define KSUTIL_PYTHON_BINDINGS_EVENTS_EVENT_EDITS_H

#include <pybind11/pybind11.h>

#include <string>

#include "bindings/database/table_row.h"

namespace ksutil::python {

/* The text of `row` with some fields replaced; None writes the null.  Throws KeyError for
 * an unknown field, TypeError for a value of the wrong kind, Error for one that does not
 * fit. */
std::string edited_text(const TableRow &row, const py::dict &values);

/* The text of a new row of a table: the null record with some fields replaced. */
std::string made_text(const RowLayouts &layouts, const std::string &table,
                      const py::dict &values);

/* Puts `text` in the place of a row, with the load date of now when `stamped`, in one step
 * for other writers.  Throws Error, and writes nothing, when the row is not in its place
 * any more or has another text.  Without the GIL. */
void replace_row(const std::string &database, const TableRow &row, std::string text,
                 bool stamped);

}  // namespace ksutil::python
#endif
