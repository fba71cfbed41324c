/* GeoJsonWriter: events as a FeatureCollection with the properties of the ComCat feed.
 *
 * Times are milliseconds of epoch time, as the feed has them, with decimals where the
 * database has more digits.
 * Source: RFC 7946; the GeoJSON summary format of the ComCat event feed. */
#ifndef KSUTIL_FORMATS_EXCHANGE_GEOJSON_GEOJSON_WRITER_H
#define KSUTIL_FORMATS_EXCHANGE_GEOJSON_GEOJSON_WRITER_H

#include <vector>

#include "formats/exchange/export/left_out.h"
#include "formats/exchange/text/json_text.h"
#include "formats/exchange/text/sink_buffer.h"
#include "formats/exchange/writer.h"

namespace ksutil::exchange {

class GeoJsonWriter final : public Writer {
 public:
  explicit GeoJsonWriter(TextSink &sink) : buffer_(sink), json_(buffer_.text()) {}

  bool begin() override;
  bool put(const Event &event) override;
  bool end() override;
  std::vector<Unplaced> without_place() const override { return left_out_.list(); }

 private:
  void put_time(const char *name, double time);

  SinkBuffer buffer_;
  JsonText json_;
  bool first_ = true;  // of the events
  LeftOut left_out_;
};

}  // namespace ksutil::exchange
#endif
