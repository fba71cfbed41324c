/* Printing the records of tables and views. */
#ifndef KSUTIL_TOOLS_KSDB_VIEW_ROWS_H
#define KSUTIL_TOOLS_KSDB_VIEW_ROWS_H

#include <string>
#include <vector>

#include "platform/db/db.h"
#include "tools/common/rows.h"

namespace ksutil::tools {

/* Some fields of a table or view. */
class ViewFields {
 public:
  /* The named fields, or all; false, with a message, for a wrong name. */
  bool choose(Dbptr view, const std::vector<std::string> &names);

  std::vector<Column> columns() const;

  /* The texts of a record as they are stored, without blanks around them; false with a
   * message in the register. */
  bool read(long record, std::vector<std::string> &cells) const;

 private:
  struct Shown {
    Column column;
    std::size_t part;  // of the view's tables
    int field;         // in that table
  };
  Dbptr view_ = dbinvalid();
  std::vector<Shown> shown_;
};

/* A column for what a name or expression gives: right-justified and a number in JSON when
 * it is a field of numbers. */
Column column_of(Dbptr view, const std::string &name);

}  // namespace ksutil::tools
#endif
