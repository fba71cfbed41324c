/* view_cells: reads fields and expressions of the records of a table or view as the cells
 * of a printed row. */
#ifndef KSUTIL_TOOLS_KSDB_VIEW_CELLS_H
#define KSUTIL_TOOLS_KSDB_VIEW_CELLS_H

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/access.h"
#include "platform/expr/expr.h"
#include "tools/common/rows.h"

namespace ksutil::tools {

/* One field of a view's tables, and its reader. */
class ViewField;

class ViewCells {
 public:
  ViewCells();
  ~ViewCells();
  ViewCells(const ViewCells &) = delete;
  ViewCells &operator=(const ViewCells &) = delete;

  /* Chooses what to read of each record: names of fields and expressions over them, or
   * all fields when the list is empty.  With `raw` a field gives its text as stored.
   * An exit code, other than kOk with a message registered: kUsage for an item that does not
   * compile, kFailure when the fields cannot be had now, as without memory. */
  int choose(Dbptr view, const std::vector<std::string> &items, bool raw);

  std::vector<Column> columns() const;

  /* The rows of the record that the functions below read, one for each table of the
   * view. */
  void show(const std::string_view *rows) { rows_ = rows; }

  /* The cells of the record: numbers as they are stored, times as ISO 8601, a null and a
   * value that cannot be read as an empty cell. */
  void read(std::vector<std::string> &cells);

  /* One item of the record; false, with the value counted, when it cannot be read.  A text
   * lives until the next call. */
  bool value(std::size_t item, expr::Value &result);
  /* The type of the values of an item. */
  expr::Type type(std::size_t item) const;

  /* How many values could not be read so far. */
  long unreadable_values() const { return unreadable_values_; }

 private:
  struct Item {
    std::string text;
    std::unique_ptr<const expr::Program> program;
    int field = -1;  // of fields_, when the item is a bare field
  };
  class Names;
  class Values;

  bool evaluate(const Item &item, std::string &cell);

  bool raw_ = false;
  std::vector<db::TableStore *> parts_;  // the tables of the view
  const std::string_view *rows_ = nullptr;
  std::vector<ViewField> fields_;  // that the items name
  std::vector<Item> items_;
  expr::Workspace workspace_;
  long unreadable_values_ = 0;
};

}  // namespace ksutil::tools
#endif
