/* cells: writes values as the cells of tables, CSV and JSON; an empty cell is a null. */
#ifndef KSUTIL_TOOLS_COMMON_CELLS_H
#define KSUTIL_TOOLS_COMMON_CELLS_H

#include <string>

namespace ksutil::tools {

/* "2015-08-01T00:00:00.000Z": UTC with milliseconds, or as many digits as the time has up to
 * microseconds.  Empty for a null: below -9999999998, above 9999999998, or not finite. */
std::string time_cell(double epoch);

/* The number with that many decimals; empty for -999, the null of reals, and for
 * numbers that are not finite. */
std::string real_cell(double value, int decimals);

/* The shortest text that reads back as the same number; empty if it is not finite. */
std::string shortest_cell(double value);

/* The number; empty for -1, the null of ids. */
std::string id_cell(long id);

/* The text; empty for "-", the null of texts, unless raw values are asked for. */
std::string text_cell(const std::string &text, bool raw = false);

}  // namespace ksutil::tools
#endif
