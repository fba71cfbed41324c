/* FdsnStationWriter: writes stations in the text form of the FDSN station service. */
#ifndef KSUTIL_FORMATS_EXCHANGE_FDSN_STATION_FDSN_STATION_WRITER_H
#define KSUTIL_FORMATS_EXCHANGE_FDSN_STATION_FDSN_STATION_WRITER_H

#include <string>
#include <vector>

#include "formats/exchange/fdsn_station/fdsn_station_columns.h"
#include "formats/exchange/stations/stations.h"
#include "formats/exchange/unplaced.h"
#include "formats/exchange/writer.h"

namespace ksutil::exchange {

/* Values that the reader does not take, and what the level has no column for, are left out
 * and counted. */
class FdsnStationWriter final : public StationWriter {
 public:
  FdsnStationWriter(TextSink &sink, FdsnLevel level) : sink_(sink), level_(level) {}

  bool begin() override;
  bool put(const StationItem &item) override;
  bool end() override;
  std::vector<Unplaced> without_place() const override { return unplaced_.list(); }
  std::int64_t stations_left_out() const override { return stations_left_out_; }

 private:
  void count_names(const StationItem &item);
  void close_station();
  bool put_row(const std::vector<std::string> &cells);
  bool finish_network();

  TextSink &sink_;
  const FdsnLevel level_;
  /* At the network level a line is written when all stations have been counted. */
  bool network_open_ = false;
  Network network_;
  std::int64_t stations_ = 0;
  /* At the channel level a station has only the lines of its channels. */
  bool station_bare_ = false;
  std::int64_t stations_left_out_ = 0;
  UnplacedCounts unplaced_;
};

}  // namespace ksutil::exchange
#endif
