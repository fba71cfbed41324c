/* TableRows: keeps the rows of a table that a program reads, and tells whether all of them
 * could be read. */
#ifndef KSUTIL_TOOLS_COMMON_TABLE_ROWS_H
#define KSUTIL_TOOLS_COMMON_TABLE_ROWS_H

#include <memory>

#include "platform/db/access.h"
#include "platform/elog/elog.h"

namespace ksutil::tools {

class TableRows {
 public:
  /* Looks at the table, whose rows are kept while the object lives: what else reads them
   * meanwhile meets the same failures.  Not good(), with messages, when it cannot. */
  explicit TableRows(Dbptr table) : table_(table), rows_(db::table_snapshot(table)) {}

  bool good() const { return rows_ != nullptr; }
  Dbptr table() const { return table_; }
  /* After the rows were read: false, with a message, when the disk or memory failed.  Rows
   * that are broken do not count. */
  bool complete() const {
    if (rows_->complete()) return true;
    elog_log(0, "cannot read all rows of %s.\n", rows_->layout().name.c_str());
    return false;
  }

 private:
  Dbptr table_;
  std::shared_ptr<const db::Snapshot> rows_;
};

}  // namespace ksutil::tools
#endif
