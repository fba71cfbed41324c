/* StationPlan: decides which rows the gathered stations add and change. */
#ifndef KSUTIL_FORMATS_EXCHANGE_STATIONS_STATION_PLAN_H
#define KSUTIL_FORMATS_EXCHANGE_STATIONS_STATION_PLAN_H

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "formats/exchange/stations/station_gathering.h"
#include "formats/exchange/stations/station_import.h"
#include "formats/exchange/stations/station_rows.h"
#include "formats/exchange/stations/station_table.h"

namespace ksutil::exchange {

class StationPlan {
 public:
  using Refused = std::function<void(std::int64_t line, const std::string &reason)>;

  /* The tables that the schema has, children before their parents; site, sitechan, sensor,
   * instrument and lastid must be among them: else empty, with a message.  wfdisc, arrival and
   * calibration, whose rows name channels, are among them when they have rows and a row of
   * sitechan may be taken over. */
  static std::vector<std::string> names(db::DatabaseStore &store);

  StationPlan(db::DatabaseStore &store, StationGathering &stations,
              const Refused &refused, StationImportCounts &counts)
      : gathered_(stations),
        refused_(refused),
        counts_(counts),
        counters_(store, tables_[kLastid]) {}

  /* Takes the rows of the tables; false with a message.  `directory` is where response
   * files go; "" for a database in memory. */
  bool open(db::Transaction &step, const std::vector<std::string> &names,
            const std::string &directory);
  /* Decides everything; false with a message. */
  bool run();
  /* Writes the rows; false with a message. */
  bool write(double now);

  /* The response files that rows name, as staged. */
  std::vector<std::string> files() const { return {files_.begin(), files_.end()}; }
  /* Where they go. */
  const std::string &directory() const { return directory_; }

 private:
  enum Table : std::size_t {
    kLastid,
    kRemark,
    kNetwork,
    kInstrument,
    kSeedcode,
    kAffiliation,
    kSensor,
    kSitechan,
    kSite,
    kWfdisc,
    kArrival,
    kCalibration,
    kTableCount
  };
  enum class Change { kAdded, kUpdated, kUnchanged };
  struct TableName;
  static const std::array<TableName, kTableCount> &table_names();

  /* A channel of the input with its codes in the database. */
  struct Placed {
    const GatheredChannel *from = nullptr;
    std::string geometry;  // the fields of sitechan that it decides
    Change change = Change::kUnchanged;
    std::int64_t chanid = -1;
  };
  /* Epochs that share a row of sitechan. */
  struct Run {
    Epoch epoch;
    std::vector<Placed *> channels;
  };
  using Codes = std::pair<std::string, std::string>;  // sta and chan

  StationTable &table(Table which) { return tables_[which]; }
  bool has(Table which) const { return tables_[which].is_open(); }

  /* One station or channel has no more rows: each is compared with all others of it. */
  static constexpr std::size_t kMostEpochs = 5000;

  bool plan_network(const Network &network);
  void complete_networks();
  bool plan_comments(const Network &network, std::string &row, bool &changed);
  void plan_station(const GatheredStation &gathered);
  void plan_epoch(const GatheredStation &gathered, const std::string &sta);
  void plan_derived(const GatheredStation &gathered, const std::string &sta);
  std::string check(const GatheredStation &gathered, const std::string &sta);
  void affiliate(const std::string &network, const std::string &sta);
  std::string code_of(const std::string &network, const std::string &station);
  std::string stranger(const std::string &network, const Station &station,
                       const std::string &sta);
  std::set<std::string> &networks_of(const std::string &sta);

  void place_channel(const GatheredChannel &gathered);
  std::string check(const GatheredChannel &gathered, const std::string &sta,
                    const std::string &chan, Placed &placed);
  std::string find_chan(const GatheredChannel &gathered, std::string &sta,
                        std::string &chan);
  void enter_codes(const GatheredChannel &gathered, const Codes &codes);
  bool plan_channels(const Codes &codes, std::vector<Placed> &channels);
  void drop_repeated(const Codes &codes, std::vector<Placed> &channels);
  static std::vector<Run> runs_of(std::vector<Placed> &channels);
  std::int64_t find_sitechan(const Codes &codes, const Run &run,
                             const std::set<std::int64_t> &taken,
                             const std::set<std::int64_t> &days);
  bool plan_sitechan(const Codes &codes, const std::vector<Placed> &channels, Run &run,
                     std::set<std::int64_t> &taken, const std::set<std::int64_t> &days);

  /* In station_plan_references.cpp. */
  static bool may_move(db::DatabaseStore &store, const char *table);
  bool lacks_orientation(const Codes &codes, std::size_t sitechan);
  void move_references();
  void move_references(StationTable &references);
  std::int64_t chanid_at(const Codes &codes, double time);
  bool plan_sensor(const Codes &codes, Placed &placed);
  bool plan_instrument(const GatheredChannel &gathered, std::int64_t sensor,
                       std::int64_t &inid, bool &changed);
  std::string geometry_of(std::string_view row) const;

  /* Edits a row as RowEdit does; report_ is cleared first. */
  RowEdit edit(Table which, std::string &row);
  bool lacks_place(std::size_t site);
  Change change_of(std::size_t site);
  void refuse(std::int64_t line, const std::string &reason);
  static void count(RecordCounts &counts, Change change);
  bool take_id(const char *key, std::int64_t &id);

  StationGathering &gathered_;
  const Refused &refused_;
  StationImportCounts &counts_;
  std::array<StationTable, kTableCount> tables_;
  StationCounters counters_;
  std::string directory_;
  std::map<Codes, std::vector<Placed>> channels_;
  std::set<std::string> files_;
  /* What has been looked up: networks of stations, codes of stations by network and code. */
  std::map<std::string, std::set<std::string>> networks_;
  std::map<Codes, std::string> codes_;
  std::map<std::int64_t, std::int64_t> uses_;  // rows of sensor for each inid
  FillReport report_;
  std::set<std::size_t> sites_;        // rows of site that the input has
  std::set<std::int64_t> taken_over_;  // chanids of rows that lacked orientation
};

}  // namespace ksutil::exchange
#endif
