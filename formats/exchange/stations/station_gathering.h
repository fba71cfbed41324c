/* StationGathering: all stations of an import, and their response files.
 *
 * Memory holds about 500 bytes for each channel; responses wait in files. */
#ifndef KSUTIL_FORMATS_EXCHANGE_STATIONS_STATION_GATHERING_H
#define KSUTIL_FORMATS_EXCHANGE_STATIONS_STATION_GATHERING_H

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "formats/exchange/stations/response_files.h"
#include "formats/exchange/stations/stations.h"
#include "formats/exchange/unplaced.h"

namespace ksutil::exchange {

struct GatheredStation {
  std::string network;
  Station station;
  std::int64_t line = 0;
};

struct GatheredChannel {
  std::string network, station;
  Channel channel;            // without its response
  std::string response_file;  // its staged name; "" without one
  std::string response_kind;
  std::int64_t line = 0;

  bool has_same_content(const GatheredChannel &other) const {
    return network == other.network && station == other.station &&
           channel == other.channel && response_file == other.response_file;
  }
};

class StationGathering {
 public:
  /* Adds what is new in an item that stands at `line`; false with problem(). */
  bool add(const StationItem &item, std::int64_t line);
  const std::string &problem() const { return problem_; }

  const std::vector<Network> &networks() const { return networks_; }
  const std::vector<GatheredStation> &stations() const { return stations_; }
  const std::vector<GatheredChannel> &channels() const { return channels_; }
  ResponseFiles &responses() { return responses_; }

  /* Values of the items that no table has a place for. */
  const UnplacedCounts &unplaced() const { return unplaced_; }

 private:
  void add_network(const Network &network);
  bool add_channel(const StationItem &item, std::int64_t line);

  std::vector<Network> networks_;
  std::unordered_map<std::string, std::size_t> by_code_;  // places in networks_
  std::vector<GatheredStation> stations_;
  std::vector<GatheredChannel> channels_;
  ResponseFiles responses_;
  UnplacedCounts unplaced_;
  std::string problem_;
};

}  // namespace ksutil::exchange
#endif
