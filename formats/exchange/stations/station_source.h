/* StationSource: gives the networks, stations and channels of a database as records, for
 * the writers of stations.
 *
 * Each epoch of a sensor is a channel, with the position and orientation of its row of
 * sitechan; a row of sitechan without sensor is a channel of whole days.  A station stands
 * with its channels in the network that seedcode, else affiliation, names first, and
 * without channels in its further networks; network, station and channel codes are those of
 * seedcode.  Memory holds indexes of the station tables and one channel with its response. */
#ifndef KSUTIL_FORMATS_EXCHANGE_STATIONS_STATION_SOURCE_H
#define KSUTIL_FORMATS_EXCHANGE_STATIONS_STATION_SOURCE_H

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "formats/exchange/stations/station_table.h"
#include "formats/exchange/stations/stations.h"
#include "formats/exchange/unplaced.h"
#include "platform/db/shared/read_only_tables.h"

namespace ksutil::exchange {

class StationSource {
 public:
  /* Null, with a message, when the tables cannot be read.  The store must outlive the
   * source. */
  static std::unique_ptr<StationSource> open(db::DatabaseStore &store);

  /* The next item; false at the end. */
  bool next(StationItem &item);

  /* What could not be given: rows that refer to nothing, response files that cannot be
   * read. */
  const UnplacedCounts &faults() const { return faults_; }
  /* The cause of the first fault of a response file; "" without one. */
  const std::string &problem() const { return problem_; }

 private:
  enum Table : std::size_t {
    kRemark,
    kNetwork,
    kInstrument,
    kSeedcode,
    kAffiliation,
    kSensor,
    kSitechan,
    kSite,
    kTableCount
  };
  struct NetworkStation {
    std::string sta;
    bool with_channels = true;
  };
  struct ChannelRow {
    std::size_t sitechan = 0;
    std::int64_t sensor = -1;
    Epoch epoch;
  };

  explicit StationSource(db::DatabaseStore &store) : store_(store) {}
  bool open_tables();
  bool has(Table which) const { return tables_[which].is_open(); }
  void list_networks();
  std::vector<std::string> networks_of(const std::string &sta) const;
  void begin_network();
  void begin_station();
  void begin_epoch();
  std::vector<ChannelRow> channels_of(const std::string &sta);
  void fill_channel(const ChannelRow &row, Channel &channel);
  void fill_instrument(const ChannelRow &row, Channel &channel);
  void read_response(std::size_t instrument, double time, Channel &channel);

  db::DatabaseStore &store_;
  std::unique_ptr<db::ReadOnlyTables> view_;
  std::array<StationTable, kTableCount> tables_;
  std::vector<std::string> networks_;
  std::map<std::string, std::vector<NetworkStation>> stations_;  // by network

  /* What is to be given next: places in the lists of the level above. */
  std::size_t network_ = 0, station_ = 0, epoch_ = 0, channel_ = 0;
  bool network_begun_ = false, station_begun_ = false, epoch_begun_ = false;
  std::vector<std::size_t> epochs_;    // rows of site, by their first days
  std::vector<ChannelRow> channels_;   // of the station
  std::vector<std::size_t> of_epoch_;  // places in channels_ of the epoch
  StationItem now_;
  UnplacedCounts faults_;
  std::string problem_;
};

}  // namespace ksutil::exchange
#endif
