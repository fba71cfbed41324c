/* RowPrinter: prints rows of named columns to standard output while they come. */
#ifndef KSUTIL_TOOLS_COMMON_ROW_PRINTER_H
#define KSUTIL_TOOLS_COMMON_ROW_PRINTER_H

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "tools/common/cell_store.h"
#include "tools/common/rows.h"

namespace ksutil::tools {

/* An empty cell is a null: blank in a table and in CSV, null in JSON.  Control characters
 * are shown as question marks in a table and in CSV, where a cell may hold line breaks.
 * CSV and JSON are printed at once.  The widths of a table's columns are known only after
 * the last row: finish() prints it. */
class RowPrinter {
 public:
  RowPrinter(std::vector<Column> columns, Form form);
  RowPrinter(const RowPrinter &) = delete;
  RowPrinter &operator=(const RowPrinter &) = delete;

  /* Prints or keeps a row with a cell for each column. */
  void add(const std::vector<std::string> &cells);
  /* Prints the rest, after the last row. */
  void finish();

 private:
  void put_table_line(const std::vector<std::string> &cells);
  void put_csv_line(const std::vector<std::string> &cells);
  void put_object(const std::vector<std::string> &cells);
  void write();
  void write_when_due();

  std::vector<Column> columns_;
  Form form_;
  std::string output_;  // not yet written
  std::chrono::steady_clock::time_point written_{};

  CellStore cells_;                  // of a table
  std::vector<std::size_t> widths_;  // of its columns
  std::vector<std::string> names_;   // of the columns as JSON
  std::vector<std::size_t> shown_;   // columns of an object: the last one of each name
  bool any_ = false;
};

}  // namespace ksutil::tools
#endif
