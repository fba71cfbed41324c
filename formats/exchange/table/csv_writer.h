/* CsvWriter: events as a table with the columns of the ComCat event feed.
 *
 * Texts with commas, quotes or line breaks are quoted as RFC 4180 has it. */
#ifndef KSUTIL_FORMATS_EXCHANGE_TABLE_CSV_WRITER_H
#define KSUTIL_FORMATS_EXCHANGE_TABLE_CSV_WRITER_H

#include <string>
#include <string_view>
#include <vector>

#include "formats/exchange/export/left_out.h"
#include "formats/exchange/text/sink_buffer.h"
#include "formats/exchange/writer.h"

namespace ksutil::exchange {

class CsvWriter final : public Writer {
 public:
  explicit CsvWriter(TextSink &sink) : buffer_(sink) {}

  bool begin() override;
  bool put(const Event &event) override;
  bool end() override { return buffer_.flush(); }
  std::vector<Unplaced> without_place() const override { return left_out_.list(); }

 private:
  void cell(std::string_view text);
  /* A blank cell for a value beyond what readers take, which is counted. */
  void number(double value, double low, double high);

  SinkBuffer buffer_;
  LeftOut left_out_;
  std::string clean_;
  bool first_ = true;  // of the cells of a row
};

}  // namespace ksutil::exchange
#endif
