#include "formats/exchange/fdsn_station/fdsn_station_writer.h"

#include <cmath>
#include <iterator>

#include "formats/exchange/stations/station_values.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

constexpr double kMetres = 1000.0;  // in a km
constexpr double kNoValue = -999.0;
constexpr double kUpright = 90.0;  // degrees

std::string value_text(double value, double missing = kNoValue) {
  return value == missing ? "" : format_text("%.10g", value);
}

std::string metres_text(double kilometres) {
  return kilometres == kNoValue ? "" : format_text("%.10g", kilometres * kMetres);
}

/* A text that cannot end its cell or its line. */
std::string cell_text(const std::string &text) {
  std::string cell = text;
  for (char &c : cell) {
    if (c == '|') c = '/';
    if (static_cast<unsigned char>(c) < ' ') c = ' ';
  }
  return cell;
}

}  // namespace

bool FdsnStationWriter::begin() {
  std::string line = "#";
  for (const std::string_view column : fdsn_columns(level_)) {
    if (line.size() > 1) line += " | ";
    line += column;
  }
  return sink_.put(line + "\n");
}

bool FdsnStationWriter::put_row(const std::vector<std::string> &cells) {
  std::string line;
  for (const std::string &cell : cells) {
    line += cell_text(cell);
    line += '|';
  }
  line.back() = '\n';
  return sink_.put(line);
}

bool FdsnStationWriter::finish_network() {
  if (!network_open_) return true;
  network_open_ = false;
  return put_row({network_.code, network_.description,
                  exchange_time(network_.epoch.start),
                  exchange_time(network_.epoch.end), std::to_string(stations_)});
}

/* Counts what the lines of a level leave out of a record that they tell of. */
void FdsnStationWriter::count_names(const StationItem &item) {
  switch (item.kind) {
    case StationItem::Kind::kNetwork:
      if (const auto count = std::ssize(item.network.comments); count > 0) {
        unplaced_.add("comments", count);
      }
      if (level_ != FdsnLevel::kNetwork && !item.network.description.empty()) {
        unplaced_.add("names of networks");
      }
      break;
    case StationItem::Kind::kStation:
      if (level_ == FdsnLevel::kChannel && !item.station.name.empty()) {
        unplaced_.add("names of stations");
      }
      break;
    case StationItem::Kind::kChannel:
      if (item.channel.response != nullptr) unplaced_.add("responses");
      if (level_ != FdsnLevel::kChannel) break;
      if (!item.channel.description.empty()) unplaced_.add("descriptions of channels");
      if (!item.channel.sensor_model.empty()) unplaced_.add("models of sensors");
      break;
  }
}

void FdsnStationWriter::close_station() {
  if (!station_bare_) return;
  station_bare_ = false;
  stations_left_out_++;
  unplaced_.add("stations without channels");
}

bool FdsnStationWriter::put(const StationItem &item) {
  count_names(item);
  if (item.kind != StationItem::Kind::kChannel) close_station();
  const Network &network = item.network;
  const Station &station = item.station;
  const Channel &channel = item.channel;
  if (item.kind == StationItem::Kind::kNetwork) {
    if (level_ != FdsnLevel::kNetwork) return true;
    if (!finish_network()) return false;
    network_ = network;
    network_open_ = true;
    stations_ = 0;
    return true;
  }
  if (item.kind == StationItem::Kind::kStation) {
    stations_++;
    if (level_ == FdsnLevel::kNetwork) return true;
    if (!has_place(station.lat, station.lon)) {
      unplaced_.add("a station without coordinates");
      stations_left_out_++;
      return true;
    }
    station_bare_ = level_ == FdsnLevel::kChannel;
    if (level_ != FdsnLevel::kStation) return true;
    return put_row({network.code, station.code, value_text(station.lat),
                    value_text(station.lon), metres_text(station.elevation),
                    station.name, exchange_time(station.epoch.start),
                    exchange_time(station.epoch.end)});
  }
  station_bare_ = false;
  if (level_ != FdsnLevel::kChannel) return true;
  if (!has_place(channel.lat, channel.lon)) {
    unplaced_.add("a channel of a station without coordinates");
    return true;
  }
  double dip = channel.dip;
  if (dip != kNoValue && !(std::fabs(dip) <= kUpright)) {
    unplaced_.add("a dip outside -90 to 90 degrees");
    dip = kNoValue;
  }
  return put_row(
      {network.code, station.code, channel.location, channel.code,
       value_text(channel.lat), value_text(channel.lon), metres_text(channel.elevation),
       metres_text(channel.depth), value_text(channel.azimuth), value_text(dip),
       channel.sensor, value_text(channel.sensitivity, 0.0),
       value_text(channel.sensitivity_frequency, 0.0), channel.input_unit,
       value_text(channel.samprate, -1.0), exchange_time(channel.epoch.start),
       exchange_time(channel.epoch.end)});
}

bool FdsnStationWriter::end() {
  close_station();
  return finish_network();
}

}  // namespace ksutil::exchange
