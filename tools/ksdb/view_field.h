/* view_field: reads one field of the stored rows behind a record of a view. */
#ifndef KSUTIL_TOOLS_KSDB_VIEW_FIELD_H
#define KSUTIL_TOOLS_KSDB_VIEW_FIELD_H

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/db/access.h"
#include "platform/db/columns.h"
#include "platform/expr/expr.h"
#include "tools/common/rows.h"

namespace ksutil::tools {

class ViewField {
 public:
  /* `part` is the place of the field's table among the tables of the view. */
  ViewField(const db::Relation &layout, const db::Field &field, std::size_t part);

  std::size_t part() const { return part_; }
  const std::string &name() const { return field_.name; }
  expr::Type type() const;

  /* The value in a row, as expressions use it; false when it cannot be read.  A text lives
   * in `row`. */
  bool value(std::string_view row, expr::Value &result) const;

  /* The value in a row as a cell: a number as it is stored, a time as ISO 8601, a null as an
   * empty cell.  False, with an empty cell, when it cannot be read. */
  bool cell(std::string_view row, std::string &text) const;

  /* The characters in a row, without blanks around them. */
  std::string_view stored(std::string_view row) const;

  Column column() const;

 private:
  db::Field field_;
  std::size_t part_;
  std::variant<db::TextColumn, db::IntegerColumn, db::RealColumn> reader_;
};

/* The tables of a view, or the table itself; false when memory is short. */
bool read_tables_of(Dbptr view, std::vector<db::TableStore *> &tables);

/* The field that a name, "time" or "origin.time", means: that of the first table with such
 * a field, whose place is `part`.  Null for an unknown name. */
const db::Field *find_field(const std::vector<db::TableStore *> &tables,
                            std::string_view name, std::size_t &part);

/* A computed value as a cell; empty for a null. */
std::string value_cell(const expr::Value &value);

/* A column for values of a type. */
Column column_of(const std::string &name, expr::Type type);

}  // namespace ksutil::tools
#endif
