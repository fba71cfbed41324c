/* KmlWriter: events as placemarks, whose size shows the magnitude and whose colour the
 * depth.
 *
 * Source: OGC 12-007r2, KML 2.3. */
#ifndef KSUTIL_FORMATS_EXCHANGE_KML_KML_WRITER_H
#define KSUTIL_FORMATS_EXCHANGE_KML_KML_WRITER_H

#include <cstdint>
#include <string_view>
#include <vector>

#include "formats/exchange/export/left_out.h"
#include "formats/exchange/text/xml_writer.h"
#include "formats/exchange/writer.h"

namespace ksutil::exchange {

class KmlWriter final : public Writer {
 public:
  explicit KmlWriter(TextSink &sink) : xml_(sink) {}

  bool begin() override;
  bool put(const Event &event) override;
  bool end() override;
  std::vector<Unplaced> without_place() const override;

 private:
  void put_data(const char *name, std::string_view value);

  XmlWriter xml_;
  LeftOut left_out_;
  std::int64_t count_ = 0;
};

}  // namespace ksutil::exchange
#endif
