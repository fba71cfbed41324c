#include "formats/exchange/stations/station_source.h"

#include <algorithm>

#include "formats/exchange/stations/station_days.h"
#include "formats/exchange/stations/station_rows.h"
#include "platform/clock/clock.h"
#include "waveforms/response.h"

namespace ksutil::exchange {
namespace {

constexpr double kOpenTime = 9999999999.0;
/* Length of a SEED channel code; the letters behind it are the location. */
constexpr std::size_t kSeedChannel = 3;

Epoch epoch_of_days(std::int64_t on, std::int64_t off) {
  Epoch epoch;
  if (on > 0) epoch.start = yearday_epoch(static_cast<int>(on));
  if (off > 0 && !is_open_day(off)) epoch.end = end_of_day(off);
  return epoch;
}

}  // namespace

std::unique_ptr<StationSource> StationSource::open(db::DatabaseStore &store) {
  std::unique_ptr<StationSource> source(new StationSource(store));
  if (!source->open_tables()) return nullptr;
  source->list_networks();
  return source;
}

bool StationSource::open_tables() {
  struct Name {
    const char *name;
    std::vector<StationTable::Fields> keys;
  };
  const std::array<Name, kTableCount> kNames{{{"remark", {{"commid"}}},
                                              {"network", {{"net"}}},
                                              {"instrument", {{"inid"}}},
                                              {"seedcode", {{"sta", "chan"}, {"sta"}}},
                                              {"affiliation", {{"sta"}}},
                                              {"sensor", {{"sta", "chan"}}},
                                              {"sitechan", {{"sta"}}},
                                              {"site", {{"sta"}}}}};
  std::vector<std::string> names;
  for (const Name &table : kNames) {
    if (store_.schema()->find(table.name) != nullptr) names.emplace_back(table.name);
  }
  view_ = std::make_unique<db::ReadOnlyTables>(store_, names);
  for (std::size_t which = 0; which < kTableCount; which++) {
    const auto place = std::find(names.begin(), names.end(), kNames[which].name);
    if (place == names.end()) continue;
    if (!tables_[which].open(*view_, static_cast<std::size_t>(place - names.begin()),
                             kNames[which].keys)) {
      return false;
    }
  }
  return true;
}

std::vector<std::string> StationSource::networks_of(const std::string &sta) const {
  std::vector<std::string> networks;
  const auto take = [&](const StationTable &table, std::size_t key) {
    if (!table.is_open()) return;
    for (const std::size_t row : table.find(key, {sta})) {
      const std::string net = table.text(row, "net");
      if (!net.empty() &&
          std::find(networks.begin(), networks.end(), net) == networks.end()) {
        networks.push_back(net);
      }
    }
  };
  take(tables_[kSeedcode], 1);
  take(tables_[kAffiliation], 0);
  if (networks.empty()) networks.emplace_back();
  return networks;
}

/* The networks in the order of their rows, then those that have none. */
void StationSource::list_networks() {
  const auto add = [this](const std::string &net) {
    if (stations_.try_emplace(net).second) networks_.push_back(net);
  };
  if (has(kNetwork)) {
    for (std::size_t row = 0; row < tables_[kNetwork].size(); row++) {
      const std::string net = tables_[kNetwork].text(row, "net");
      if (!net.empty()) add(net);
    }
  }
  if (!has(kSite)) return;
  std::map<std::string, bool> known;
  for (std::size_t row = 0; row < tables_[kSite].size(); row++) {
    const std::string sta = tables_[kSite].text(row, "sta");
    if (sta.empty() || !known.try_emplace(sta, true).second) continue;
    bool first = true;
    for (const std::string &net : networks_of(sta)) {
      add(net);
      stations_[net].push_back({sta, first});
      first = false;
    }
  }
}

bool StationSource::next(StationItem &item) {
  while (network_ < networks_.size()) {
    const auto &stations = stations_[networks_[network_]];
    if (!network_begun_) {
      begin_network();
      item = now_;
      return true;
    }
    if (station_ == stations.size()) {
      network_++;
      network_begun_ = false;
      continue;
    }
    if (!station_begun_) begin_station();
    if (epoch_ == epochs_.size()) {
      station_++;
      station_begun_ = false;
      continue;
    }
    if (!epoch_begun_) {
      begin_epoch();
      item = now_;
      return true;
    }
    if (channel_ == of_epoch_.size()) {
      epoch_++;
      epoch_begun_ = false;
      continue;
    }
    now_.kind = StationItem::Kind::kChannel;
    fill_channel(channels_[of_epoch_[channel_++]], now_.channel);
    item = now_;
    return true;
  }
  return false;
}

void StationSource::begin_network() {
  now_ = StationItem();
  now_.network.code = networks_[network_];
  network_begun_ = true;
  station_ = 0;
  station_begun_ = false;
  if (!has(kNetwork)) return;
  const StationTable &networks = tables_[kNetwork];
  const auto rows = networks.find(0, {now_.network.code});
  if (rows.empty()) return;
  now_.network.description = networks.text(rows.front(), "netname");
  const std::string commid = networks.text(rows.front(), "commid");
  if (commid.empty() || !has(kRemark)) return;
  std::map<std::int64_t, std::string> lines;
  for (const std::size_t row : tables_[kRemark].find(0, {commid})) {
    lines[tables_[kRemark].integer(row, "lineno")] =
        tables_[kRemark].text(row, "remark");
  }
  for (const auto &[number, line] : lines) now_.network.comments.push_back(line);
}

void StationSource::begin_station() {
  const NetworkStation &station = stations_[networks_[network_]][station_];
  station_begun_ = true;
  epoch_ = 0;
  epoch_begun_ = false;
  epochs_ = tables_[kSite].find(0, {station.sta});
  std::stable_sort(epochs_.begin(), epochs_.end(),
                   [this](std::size_t a, std::size_t b) {
                     return tables_[kSite].integer(a, "ondate") <
                            tables_[kSite].integer(b, "ondate");
                   });
  channels_.clear();
  if (station.with_channels) channels_ = channels_of(station.sta);
}

/* The station as the row has it, with the channels that begin while it holds. */
void StationSource::begin_epoch() {
  const StationTable &sites = tables_[kSite];
  const std::size_t row = epochs_[epoch_];
  now_.kind = StationItem::Kind::kStation;
  Station &station = now_.station;
  station = Station();
  station.code = stations_[networks_[network_]][station_].sta;
  if (has(kSeedcode)) {
    for (const std::size_t codes : tables_[kSeedcode].find(1, {station.code})) {
      const std::string seed = tables_[kSeedcode].text(codes, "seedsta");
      if (seed.empty()) continue;
      station.code = seed;
      break;
    }
  }
  station.name = sites.text(row, "staname");
  station.epoch =
      epoch_of_days(sites.integer(row, "ondate"), sites.integer(row, "offdate"));
  station.lat = sites.real(row, "lat", -999.0);
  station.lon = sites.real(row, "lon", -999.0);
  station.elevation = sites.real(row, "elev", -999.0);
  epoch_begun_ = true;
  channel_ = 0;
  of_epoch_.clear();
  /* A channel belongs to the last epoch that has begun by then, else to the first. */
  const auto begins = [&](std::size_t epoch) {
    return begin_of(epoch_of_days(sites.integer(epochs_[epoch], "ondate"), -1));
  };
  for (std::size_t i = 0; i < channels_.size(); i++) {
    std::size_t own = 0;
    for (std::size_t epoch = 1; epoch < epochs_.size(); epoch++) {
      if (begins(epoch) <= begin_of(channels_[i].epoch)) own = epoch;
    }
    if (own == epoch_) of_epoch_.push_back(i);
  }
}

std::vector<StationSource::ChannelRow> StationSource::channels_of(
    const std::string &sta) {
  std::vector<ChannelRow> channels;
  if (!has(kSitechan)) return channels;
  const StationTable &sitechans = tables_[kSitechan];
  for (const std::size_t row : sitechans.find(0, {sta})) {
    const Epoch days = epoch_of_days(sitechans.integer(row, "ondate"),
                                     sitechans.integer(row, "offdate"));
    const std::string chan = sitechans.text(row, "chan");
    const std::string chanid = sitechans.text(row, "chanid");
    const std::size_t before = channels.size();
    if (has(kSensor)) {
      const StationTable &sensors = tables_[kSensor];
      for (const std::size_t sensor : sensors.find(0, {sta, chan})) {
        Epoch epoch{sensors.real(sensor, "time", kNoTime),
                    sensors.real(sensor, "endtime", kNoTime)};
        if (epoch.end >= kOpenTime) epoch.end = kNoTime;
        const std::string named = sensors.text(sensor, "chanid");
        const bool meets =
            begin_of(epoch) < end_of(days) && begin_of(days) < end_of(epoch);
        if (named.empty() || chanid.empty() ? meets : named == chanid) {
          channels.push_back({row, static_cast<std::int64_t>(sensor), epoch});
        }
      }
    }
    if (channels.size() == before) channels.push_back({row, -1, days});
  }
  return channels;
}

void StationSource::fill_channel(const ChannelRow &row, Channel &channel) {
  const StationTable &sitechans = tables_[kSitechan];
  channel = Channel();
  channel.epoch = row.epoch;
  const std::string sta = sitechans.text(row.sitechan, "sta");
  const std::string chan = sitechans.text(row.sitechan, "chan");
  channel.code = chan.substr(0, kSeedChannel);
  if (chan.size() > kSeedChannel) channel.location = chan.substr(kSeedChannel);
  if (has(kSeedcode)) {
    const auto codes = tables_[kSeedcode].find(0, {sta, chan});
    if (!codes.empty()) {
      channel.code = tables_[kSeedcode].text(codes.front(), "seedchan");
      channel.location = tables_[kSeedcode].text(codes.front(), "loc");
    }
  }
  channel.lat = now_.station.lat;
  channel.lon = now_.station.lon;
  channel.elevation = now_.station.elevation;
  channel.description = sitechans.text(row.sitechan, "descrip");
  channel.depth = sitechans.real(row.sitechan, "edepth", -999.0);
  channel.azimuth = sitechans.real(row.sitechan, "hang", -999.0);
  const double vang = sitechans.real(row.sitechan, "vang", -999.0);
  if (vang != -999.0) channel.dip = dip_of_vang(vang);
  if (row.sensor >= 0) fill_instrument(row, channel);
}

void StationSource::fill_instrument(const ChannelRow &row, Channel &channel) {
  const std::string inid =
      tables_[kSensor].text(static_cast<std::size_t>(row.sensor), "inid");
  const auto found = has(kInstrument) ? tables_[kInstrument].find(0, {inid})
                                      : std::vector<std::size_t>();
  if (found.empty()) {
    faults_.add("a sensor whose instrument is not there");
    return;
  }
  const StationTable &instruments = tables_[kInstrument];
  const std::size_t instrument = found.front();
  channel.sensor = instruments.text(instrument, "insname");
  channel.sensor_model = instruments.text(instrument, "instype");
  channel.samprate = instruments.real(instrument, "samprate", -1.0);
  read_response(instrument, row.epoch.start, channel);
  if (channel.response != nullptr) {
    channel.input_unit = channel.response->input_unit();
    channel.output_unit = channel.response->output_unit();
    channel.sensitivity = channel.response->sensitivity;
    channel.sensitivity_frequency = channel.response->sensitivity_frequency;
  }
  const double ncalib = instruments.real(instrument, "ncalib", 0.0);
  if (channel.sensitivity != 0.0 || ncalib == 0.0) return;
  if (channel.input_unit.empty() || natural_unit(channel.input_unit).empty()) {
    channel.input_unit = unit_of_letter(instruments.text(instrument, "rsptype"));
  }
  if (channel.input_unit.empty()) channel.input_unit = "M";
  channel.sensitivity_frequency =
      frequency_of(instruments.real(instrument, "ncalper", -1.0));
  channel.sensitivity =
      sensitivity_of(ncalib, channel.sensitivity_frequency, channel.input_unit);
}

void StationSource::read_response(std::size_t instrument, double time,
                                  Channel &channel) {
  const StationTable &instruments = tables_[kInstrument];
  const std::string dir = instruments.text(instrument, "dir");
  const std::string file = instruments.text(instrument, "dfile");
  if (file.empty()) return;
  std::string path = dir.empty() ? file : dir + "/" + file;
  if (!path.starts_with('/')) {
    path = store_.table("instrument")->directory() + "/" + path;
  }
  auto response = std::make_shared<Response>();
  std::string problem;
  if (read_response_file(path, *response, problem,
                         time == kNoTime ? kNullTime : time)) {
    channel.response = std::move(response);
    return;
  }
  faults_.add("a response file that cannot be read");
  if (problem_.empty()) problem_ = problem;
}

}  // namespace ksutil::exchange
