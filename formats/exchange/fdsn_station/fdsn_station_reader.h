/* FdsnStationReader: reads the text form of the FDSN station service.
 *
 * The first line names the columns, which may stand in any order.  Columns without a place
 * are counted.  Lines that cannot be right are refused alone; the last columns may be
 * missing. */
#ifndef KSUTIL_FORMATS_EXCHANGE_FDSN_STATION_FDSN_STATION_READER_H
#define KSUTIL_FORMATS_EXCHANGE_FDSN_STATION_FDSN_STATION_READER_H

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "formats/exchange/fdsn_station/fdsn_station_columns.h"
#include "formats/exchange/stations/stations.h"
#include "formats/exchange/text/text_lines.h"

namespace ksutil::exchange {

class FdsnStationReader final : public StationReader {
 public:
  FdsnStationReader(Input &input, FdsnLevel level)
      : name_(input.name()), level_(level), lines_(input) {}

  /* Reads the line with the names of the columns; false, with the cause, when it lacks what
   * the level needs. */
  bool begin(std::string &problem);

  Got next(StationItem &item) override;
  std::int64_t line() const override { return lines_.number(); }
  const std::string &problem() const override { return problem_; }
  std::vector<Unplaced> without_place() const override;

 private:
  bool read_row(const std::string &line, std::string &cause);
  bool cut(std::string_view line, std::string &cause);
  std::string_view cell(std::string_view column) const;
  bool number(std::string_view column, double factor, double &value,
              std::string &cause) const;
  bool read_network(std::string &cause);
  bool read_station(std::string &cause);
  bool read_channel(std::string &cause);
  bool read_place(double &lat, double &lon, double &elevation,
                  std::string &cause) const;
  bool read_epoch_of_row(Epoch &epoch, std::string &cause) const;

  const std::string name_;
  const FdsnLevel level_;
  TextLines lines_;
  std::vector<std::string> columns_;            // lower-case names
  std::map<std::string, std::size_t> indexes_;  // of the columns
  std::vector<std::string_view> cells_;
  std::string text_;
  StationItem row_;
  /* What the row tells of that is still to be given: network, station, channel. */
  std::array<bool, 3> waiting_{};
  std::int64_t rows_ = 0;
  std::string problem_;
};

}  // namespace ksutil::exchange
#endif
