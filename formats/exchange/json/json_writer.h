/* JsonLinesWriter: an event as one JSON object on a line.
 *
 * The names are those of `ksevents show --json`, and those of the database's fields for what
 * stands there besides.  A value that is not known is null. */
#ifndef KSUTIL_FORMATS_EXCHANGE_JSON_JSON_WRITER_H
#define KSUTIL_FORMATS_EXCHANGE_JSON_JSON_WRITER_H

#include <string>
#include <vector>

#include "formats/exchange/text/json_text.h"
#include "formats/exchange/text/sink_buffer.h"
#include "formats/exchange/writer.h"

namespace ksutil::exchange {

class JsonLinesWriter final : public Writer {
 public:
  explicit JsonLinesWriter(TextSink &sink) : buffer_(sink), json_(buffer_.text()) {}

  bool begin() override { return true; }
  bool put(const Event &event) override;
  bool end() override { return buffer_.flush(); }

 private:
  void put_time(const char *name, double time);
  void put_letter(const char *name, char letter);
  void put_comments(const std::vector<std::string> &comments);
  void put_channel(const ChannelCode &channel);
  void put_origin(const Event &event, std::size_t index);
  void put_errors(const Origin &origin);
  void put_magnitude(const Magnitude &magnitude, bool preferred);
  void put_association(const Event &event, const Association &association);
  void put_station_magnitude(const Origin &origin, const StationMagnitude &magnitude);
  void put_tensor(const MomentTensor &tensor);

  SinkBuffer buffer_;
  JsonText json_;
};

}  // namespace ksutil::exchange
#endif
