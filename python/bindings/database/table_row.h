/* table_row: shows a row of a table as an object of Python. */
#ifndef KSUTIL_PYTHON_BINDINGS_DATABASE_TABLE_ROW_H
#define KSUTIL_PYTHON_BINDINGS_DATABASE_TABLE_ROW_H

#include <ksutil/platform/db/row_text.h>

#include <memory>
#include <string>

#include "bindings/events/event_fields.h"

namespace ksutil::python {

/* A row of any table. */
struct TableRow {
  std::string table;
  long recno = -1;
  db::RowText text;
  std::shared_ptr<const RowLayouts> layouts;
};

}  // namespace ksutil::python
#endif
