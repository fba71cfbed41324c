/* RowSource: reads rows for a table as lists of fields and values: from the command line,
 * from CSV with the names of fields in its first line, or from JSON lines. */
#ifndef KSUTIL_TOOLS_KSDB_ROW_SOURCE_H
#define KSUTIL_TOOLS_KSDB_ROW_SOURCE_H

#include <functional>
#include <string>
#include <vector>

#include "tools/ksdb/row_values.h"

namespace ksutil::tools {

/* `place` names the source of the row, "rows.csv:3"; empty for the command line.
 * `problem` is empty, or says why the row cannot be used. */
using TakeRow =
    std::function<void(const std::string &place, const std::vector<FieldText> &values,
                       const std::string &problem)>;

/* Gives the rows of a CSV file, "-" for standard input; false after a complaint when the
 * file cannot be read on.  An empty cell gives no value. */
bool read_csv_rows(const std::string &path, const TakeRow &take);

/* Gives the rows of a file with a JSON object on each line.  Members are texts and numbers;
 * null is the null of the field. */
bool read_json_rows(const std::string &path, const TakeRow &take);

}  // namespace ksutil::tools
#endif
