#include "formats/exchange/text/csv_rows.h"

#include <algorithm>
#include <new>

#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

constexpr const char *kUnclosed = "a quoted text is not closed";

}  // namespace

CsvRows::CsvRows(Input &input, char delimiter, bool quotes)
    : input_(input), delimiter_(delimiter), quotes_(quotes) {
  csv_init(&parser_, CSV_STRICT | CSV_STRICT_FINI);
  restart();
}

CsvRows::~CsvRows() { csv_free(&parser_); }

void CsvRows::restart() {
  csv_free(&parser_);
  csv_init(&parser_, CSV_STRICT | CSV_STRICT_FINI);
  csv_set_delim(&parser_, static_cast<unsigned char>(delimiter_));
  /* No text holds this byte: UTF-8 does not use it. */
  if (!quotes_) csv_set_quote(&parser_, 0xff);
  text_.clear();
  ends_.clear();
  in_row_ = row_done_ = false;
}

void CsvRows::take_cell(void *text, std::size_t size, void *self) {
  auto &rows = *static_cast<CsvRows *>(self);
  if (text != nullptr) rows.text_.append(static_cast<const char *>(text), size);
  rows.ends_.push_back(rows.text_.size());
}

void CsvRows::take_row(int, void *self) {
  static_cast<CsvRows *>(self)->row_done_ = true;
}

/* The next place of `c` from at_ on, the buffer's size when there is none.  A place that
 * is still ahead is not looked for again, so that each byte is looked at once. */
std::size_t CsvRows::find(char c, std::size_t &known) const {
  if (known == kNotLooked || known < at_)
    known = std::min(buffer_.find(c, at_), buffer_.size());
  return known;
}

/* Drops what lies before the row. */
void CsvRows::compact() {
  if (row_start_ == 0) return;
  buffer_.erase(0, row_start_);
  at_ -= row_start_;
  first_end_ -= std::min(first_end_, row_start_);
  next_lf_ = next_cr_ = kNotLooked;
  row_start_ = 0;
}

/* The end of the line at at_, its line break included.  False when the line is longer
 * than a row may be. */
bool CsvRows::find_line(std::size_t &end) {
  for (;;) {
    const std::size_t lf = find('\n', next_lf_), cr = find('\r', next_cr_);
    const std::size_t found = std::min(lf, cr);
    /* A CR at the end of the buffer may have its LF in the next piece. */
    if (found < buffer_.size() &&
        (found == lf || found + 1 < buffer_.size() || input_ended_)) {
      const bool both = found == cr && lf == cr + 1 && lf < buffer_.size();
      end = found + (both ? 2 : 1);
      return end - at_ <= kMaxRow;
    }
    if (buffer_.size() - at_ > kMaxRow) return false;
    if (input_ended_) {
      end = buffer_.size();
      return true;
    }
    compact();
    input_ended_ = !input_.read(buffer_);
    next_lf_ = next_cr_ = kNotLooked;
  }
}

/* Goes back to the row's second line.  That takes linear time in all: a line that leaves a
 * quote open when it is read first closes one that was open before it. */
CsvRows::Got CsvRows::bad(const char *reason) {
  problem_ = reason;
  at_ = first_end_;
  line_ = row_line_;
  next_lf_ = next_cr_ = kNotLooked;
  restart();
  return Got::kBad;
}

CsvRows::Got CsvRows::skip_long_line() {
  const bool quoted = in_row_;
  if (!quoted) row_line_ = line_ + 1;
  for (;;) {
    const std::size_t end = buffer_.find_first_of("\r\n", at_);
    if (end != buffer_.npos) {
      at_ = end;  // the line break counts as that of an empty rest
      break;
    }
    buffer_.clear();
    at_ = row_start_ = 0;
    next_lf_ = next_cr_ = kNotLooked;
    if (input_ended_ || !input_.read(buffer_)) {
      input_ended_ = true;
      break;
    }
  }
  row_start_ = at_;
  next_lf_ = next_cr_ = kNotLooked;
  restart();
  problem_ = "the line is too long";
  return Got::kBad;
}

void CsvRows::cut_cells() {
  cells_.clear();
  std::size_t from = 0;
  for (const std::size_t end : ends_) {
    cells_.push_back(std::string_view(text_).substr(from, end - from));
    from = end;
  }
}

CsvRows::Got CsvRows::next() {
  text_.clear();
  ends_.clear();
  row_done_ = in_row_ = false;
  row_start_ = at_;
  for (;;) {
    std::size_t end = 0;
    if (!find_line(end)) return skip_long_line();
    if (!input_.problem().empty()) {
      problem_ = input_.problem();
      return Got::kFailed;
    }
    if (end == at_) return finish();
    const std::string_view line(buffer_.data() + at_, end - at_);
    line_++;
    at_ = end;
    if (!in_row_) {
      if (trimmed(line).empty()) {
        row_start_ = at_;
        continue;
      }
      in_row_ = true;
      row_line_ = line_;
      first_end_ = end;
    }
    if (csv_parse(&parser_, line.data(), line.size(), take_cell, take_row, this) !=
        line.size()) {
      if (csv_error(&parser_) == CSV_ENOMEM) throw std::bad_alloc();
      return bad("a quote stands where none belongs");
    }
    if (row_done_) break;
    if (at_ - row_start_ > kMaxRow) return bad(kUnclosed);
  }
  cut_cells();
  return Got::kRow;
}

/* The input has ended; a row may lack its line break. */
CsvRows::Got CsvRows::finish() {
  if (!in_row_) return Got::kEnd;
  if (csv_fini(&parser_, take_cell, take_row, this) != 0) return bad(kUnclosed);
  in_row_ = false;
  cut_cells();
  return Got::kRow;
}

}  // namespace ksutil::exchange
