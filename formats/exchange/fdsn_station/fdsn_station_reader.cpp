#include "formats/exchange/fdsn_station/fdsn_station_reader.h"

#include <algorithm>
#include <cmath>

#include "formats/exchange/stations/station_values.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

constexpr double kMetre = 0.001;  // in km
constexpr std::size_t kMostColumns = 100;

bool is_known(FdsnLevel level, const std::string &column) {
  const auto known = fdsn_columns(level);
  return std::any_of(known.begin(), known.end(),
                     [&](std::string_view name) { return lowered(name) == column; });
}

bool same_place(const Station &a, const Station &b) {
  return a.lat == b.lat && a.lon == b.lon && a.elevation == b.elevation;
}

bool same_epoch(const Epoch &a, const Epoch &b) {
  return a.start == b.start && a.end == b.end;
}

}  // namespace

bool FdsnStationReader::begin(std::string &problem) {
  do {
    if (!lines_.next(text_)) {
      problem = lines_.problem().empty() ? name_ + " is empty" : lines_.problem();
      return false;
    }
  } while (trimmed(text_).empty());
  std::string_view header = trimmed(text_);
  while (header.starts_with('#')) header.remove_prefix(1);
  for (std::size_t from = 0; from <= header.size() && columns_.size() < kMostColumns;) {
    const std::size_t end = std::min(header.find('|', from), header.size());
    columns_.push_back(lowered(trimmed(header.substr(from, end - from))));
    indexes_.try_emplace(columns_.back(), columns_.size() - 1);
    from = end + 1;
  }
  std::vector<std::string_view> needed{"network"};
  if (level_ != FdsnLevel::kNetwork) {
    needed.insert(needed.end(), {"station", "latitude", "longitude"});
  }
  if (level_ == FdsnLevel::kChannel) needed.emplace_back("channel");
  for (const std::string_view column : needed) {
    if (indexes_.contains(std::string(column))) continue;
    problem = name_ + ":" + std::to_string(lines_.number()) + ": there is no column " +
              std::string(column);
    return false;
  }
  return true;
}

FdsnStationReader::Got FdsnStationReader::next(StationItem &item) {
  while (std::find(waiting_.begin(), waiting_.end(), true) == waiting_.end()) {
    if (!lines_.next(text_)) {
      problem_ = lines_.problem();
      return problem_.empty() ? Got::kEnd : Got::kFailed;
    }
    const std::string_view line = trimmed(text_);
    if (line.empty() || line.starts_with('#')) continue;
    const StationItem before = row_;
    std::string cause;
    if (!read_row(text_, cause)) {
      row_ = before;
      problem_ = cause;
      return Got::kRefused;
    }
    const bool other_network = rows_ == 0 || before.network.code != row_.network.code;
    const bool other_station = other_network ||
                               before.station.code != row_.station.code ||
                               !same_place(before.station, row_.station) ||
                               !same_epoch(before.station.epoch, row_.station.epoch);
    waiting_ = {other_network || level_ == FdsnLevel::kNetwork,
                level_ == FdsnLevel::kStation ||
                    (level_ == FdsnLevel::kChannel && other_station),
                level_ == FdsnLevel::kChannel};
    rows_++;
  }
  const auto kind = std::find(waiting_.begin(), waiting_.end(), true);
  *kind = false;
  row_.kind = static_cast<StationItem::Kind>(kind - waiting_.begin());
  item = row_;
  return Got::kRecord;
}

std::vector<Unplaced> FdsnStationReader::without_place() const {
  std::vector<Unplaced> left;
  for (const std::string &column : columns_) {
    if (!column.empty() && !is_known(level_, column)) {
      left.push_back({"column " + column, rows_});
    }
  }
  return left;
}

bool FdsnStationReader::read_row(const std::string &line, std::string &cause) {
  if (!cut(line, cause)) return false;
  if (cell("network").empty() && level_ == FdsnLevel::kNetwork) {
    cause = "there is no network code";
    return false;
  }
  switch (level_) {
    case FdsnLevel::kNetwork:
      return read_network(cause);
    case FdsnLevel::kStation:
      return read_station(cause);
    case FdsnLevel::kChannel:
      break;
  }
  return read_channel(cause);
}

bool FdsnStationReader::cut(std::string_view line, std::string &cause) {
  cells_.clear();
  for (std::size_t from = 0; from <= line.size();) {
    const std::size_t end = std::min(line.find('|', from), line.size());
    cells_.push_back(trimmed(line.substr(from, end - from)));
    from = end + 1;
    if (cells_.size() > columns_.size()) break;
  }
  if (cells_.size() <= columns_.size()) return true;
  cause =
      "there are more values than the " + std::to_string(columns_.size()) + " columns";
  return false;
}

std::string_view FdsnStationReader::cell(std::string_view column) const {
  const auto found = indexes_.find(std::string(column));
  if (found == indexes_.end() || found->second >= cells_.size()) return {};
  return cells_[found->second];
}

/* Leaves the value alone when the cell is empty. */
bool FdsnStationReader::number(std::string_view column, double factor, double &value,
                               std::string &cause) const {
  const std::string_view text = cell(column);
  if (text.empty() || lowered(text) == "nan") return true;
  double read = 0.0;
  if (parse_real(text, read) && std::isfinite(read)) {
    value = read * factor;
    return true;
  }
  cause = std::string(column) + " '" + std::string(text.substr(0, 40)) +
          "' is not a number";
  return false;
}

bool FdsnStationReader::read_place(double &lat, double &lon, double &elevation,
                                   std::string &cause) const {
  if (!number("latitude", 1.0, lat, cause) || !number("longitude", 1.0, lon, cause) ||
      !number("elevation", kMetre, elevation, cause)) {
    return false;
  }
  if (lat == -999.0 || lon == -999.0) {
    cause = "there are no coordinates";
  } else {
    cause = fit_place(lat, lon);
  }
  return cause.empty();
}

bool FdsnStationReader::read_epoch_of_row(Epoch &epoch, std::string &cause) const {
  return read_epoch(cell("starttime"), cell("endtime"), epoch, cause);
}

bool FdsnStationReader::read_network(std::string &cause) {
  row_.network = Network();
  row_.network.code = cell("network");
  row_.network.description = cell("description");
  return read_epoch_of_row(row_.network.epoch, cause);
}

bool FdsnStationReader::read_station(std::string &cause) {
  row_.network = Network();
  row_.network.code = cell("network");
  row_.station = Station();
  Station &station = row_.station;
  station.code = cell("station");
  station.name = cell("sitename");
  if (station.code.empty()) {
    cause = "there is no station code";
    return false;
  }
  return read_place(station.lat, station.lon, station.elevation, cause) &&
         read_epoch_of_row(station.epoch, cause);
}

bool FdsnStationReader::read_channel(std::string &cause) {
  if (!read_station(cause)) return false;
  row_.station.derived = true;
  row_.channel = Channel();
  Channel &channel = row_.channel;
  channel.code = cell("channel");
  channel.location = location_code(cell("location"));
  if (channel.code.empty()) {
    cause = "there is no channel code";
    return false;
  }
  channel.epoch = row_.station.epoch;
  channel.lat = row_.station.lat;
  channel.lon = row_.station.lon;
  channel.elevation = row_.station.elevation;
  channel.sensor = cell("sensordescription");
  channel.input_unit = cell("scaleunits");
  if (!number("depth", kMetre, channel.depth, cause) ||
      !number("azimuth", 1.0, channel.azimuth, cause) ||
      !number("dip", 1.0, channel.dip, cause) ||
      !number("scale", 1.0, channel.sensitivity, cause) ||
      !number("scalefreq", 1.0, channel.sensitivity_frequency, cause) ||
      !number("samplerate", 1.0, channel.samprate, cause)) {
    return false;
  }
  if (channel.dip != -999.0 && std::fabs(channel.dip) > 90.0) {
    cause = "the dip is not between -90 and 90";
  } else if (channel.samprate < 0.0 && channel.samprate != -1.0) {
    cause = "the sample rate is negative";
  }
  return cause.empty();
}

}  // namespace ksutil::exchange
