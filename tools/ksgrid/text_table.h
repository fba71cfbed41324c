/* text_table: reads text tables of numbers. */
#ifndef KSUTIL_TOOLS_KSGRID_TEXT_TABLE_H
#define KSUTIL_TOOLS_KSGRID_TEXT_TABLE_H

#include <string>
#include <vector>

namespace ksutil::tools {

/* Rows of single-precision numbers, all of the same length. */
struct TextTable {
  std::size_t columns = 0;
  std::vector<float> values;  // [rows][columns]
  std::vector<long> lines;    // [rows] their line numbers in the file, from 1

  std::size_t rows() const { return lines.size(); }
  const float *row(std::size_t i) const { return &values[i * columns]; }
};

/* Reads the numbers of a file, or of standard input for "-", in columns separated by
 * blanks, tabs, commas or semicolons.  Empty lines and lines that begin with # are
 * skipped; nan stands for a missing value.
 *
 * fewest, most   columns that a line may have
 * False with a complaint that names the line. */
bool read_table(const std::string &path, std::size_t fewest, std::size_t most,
                TextTable &table);

/* Whether a number can be held in single precision, as infinities and NaN can. */
bool fits_float(double value);

}  // namespace ksutil::tools
#endif
