/* StationXmlWriter: writes StationXML 1.2. */
#ifndef KSUTIL_FORMATS_EXCHANGE_STATIONXML_STATIONXML_WRITER_H
#define KSUTIL_FORMATS_EXCHANGE_STATIONXML_STATIONXML_WRITER_H

#include "formats/exchange/stations/stations.h"
#include "formats/exchange/text/xml_writer.h"
#include "formats/exchange/unplaced.h"

namespace ksutil::exchange {

/* The result is valid by the published schema.  Values that it requires and a record lacks:
 * elevations and depths are 0, names are empty; a station without coordinates is left out
 * with its channels, and counted, as are values outside the ranges of the schema. */
class StationXmlWriter final : public StationWriter {
 public:
  explicit StationXmlWriter(TextSink &sink) : xml_(sink) {}

  bool begin() override;
  bool put(const StationItem &item) override;
  bool end() override;
  std::vector<Unplaced> without_place() const override { return unplaced_.list(); }
  std::int64_t stations_left_out() const override { return stations_left_out_; }

 private:
  void close_station();
  void close_network();
  void put_epoch(const Epoch &epoch);
  void put_network(const Network &network);
  void put_station(const Station &station);
  void put_channel(const Station &station, const Channel &channel);
  void put_distance(const char *name, double kilometres);

  XmlWriter xml_;
  bool network_open_ = false, station_open_ = false, any_ = false;
  std::int64_t stations_left_out_ = 0;
  UnplacedCounts unplaced_;
};

}  // namespace ksutil::exchange
#endif
