/* FdsnWriter: events in the text form of the FDSN event service.
 *
 * Source: FDSN Web Service Specifications, version 1.2 (2019), fdsnws-event, text format. */
#ifndef KSUTIL_FORMATS_EXCHANGE_TABLE_FDSN_WRITER_H
#define KSUTIL_FORMATS_EXCHANGE_TABLE_FDSN_WRITER_H

#include <string_view>
#include <vector>

#include "formats/exchange/export/left_out.h"
#include "formats/exchange/text/sink_buffer.h"
#include "formats/exchange/writer.h"

namespace ksutil::exchange {

class FdsnWriter final : public Writer {
 public:
  explicit FdsnWriter(TextSink &sink) : buffer_(sink) {}

  bool begin() override;
  bool put(const Event &event) override;
  bool end() override { return buffer_.flush(); }
  std::vector<Unplaced> without_place() const override { return left_out_.list(); }

 private:
  /* A cell with the bar behind it; a bar within the text becomes a blank. */
  void cell(std::string_view text);

  SinkBuffer buffer_;
  LeftOut left_out_;
};

}  // namespace ksutil::exchange
#endif
