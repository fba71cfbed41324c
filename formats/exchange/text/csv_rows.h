/* CsvRows: the rows of a comma-separated text (RFC 4180), one after the other.
 *
 * Quoted texts may hold delimiters, doubled quotes and line breaks; rows end in LF, CR or
 * CRLF; empty lines are skipped.  A row that breaks the rules costs itself only: reading
 * goes on at the next line.  Memory is bounded by kMaxRow. */
#ifndef KSUTIL_FORMATS_EXCHANGE_TEXT_CSV_ROWS_H
#define KSUTIL_FORMATS_EXCHANGE_TEXT_CSV_ROWS_H

#include <csv.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "formats/exchange/text/input.h"

namespace ksutil::exchange {

class CsvRows {
 public:
  static constexpr std::size_t kMaxRow = 65536;  // bytes of a row with its line breaks

  /* The input must outlive the reader.  `quotes` false: a quote is a character like any
   * other. */
  CsvRows(Input &input, char delimiter, bool quotes = true);
  ~CsvRows();
  CsvRows(const CsvRows &) = delete;
  CsvRows &operator=(const CsvRows &) = delete;

  /* kBad: the row at line() cannot be read, for the reason in problem(); go on.
   * kFailed: nothing more can be read; see problem(). */
  enum class Got { kRow, kBad, kEnd, kFailed };
  Got next();

  /* The cells of the row, without blanks around those that are not quoted; valid until
   * the next call. */
  const std::vector<std::string_view> &cells() const { return cells_; }
  std::int64_t line() const { return row_line_; }  // at which the row begins, from 1
  const std::string &problem() const { return problem_; }

 private:
  static void take_cell(void *text, std::size_t size, void *self);
  static void take_row(int end, void *self);

  void restart();
  bool find_line(std::size_t &end);
  std::size_t find(char c, std::size_t &known) const;
  void compact();
  Got finish();
  Got bad(const char *reason);
  Got skip_long_line();
  void cut_cells();

  Input &input_;
  const char delimiter_;
  const bool quotes_;
  csv_parser parser_;
  std::string buffer_;         // text from the beginning of the row
  std::size_t at_ = 0;         // of the next line in the buffer
  std::size_t row_start_ = 0;  // of the row in the buffer
  std::size_t first_end_ = 0;  // of the row's first line in the buffer
  static constexpr std::size_t kNotLooked = static_cast<std::size_t>(-1);
  std::size_t next_lf_ = kNotLooked, next_cr_ = kNotLooked;  // places found before
  bool input_ended_ = false, in_row_ = false, row_done_ = false;
  std::int64_t line_ = 0, row_line_ = 0;
  std::string text_;               // of the cells
  std::vector<std::size_t> ends_;  // of the cells in text_
  std::vector<std::string_view> cells_;
  std::string problem_;
};

}  // namespace ksutil::exchange
#endif
