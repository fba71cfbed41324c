#include "formats/exchange/fdsn_station/fdsn_station_writer.h"

#include "formats/exchange/stations/station_values.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

constexpr double kMetres = 1000.0;  // in a km

std::string value_text(double value, double missing = -999.0) {
  return value == missing ? "" : format_text("%.10g", value);
}

std::string metres_text(double kilometres) {
  return kilometres == -999.0 ? "" : format_text("%.10g", kilometres * kMetres);
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

bool FdsnStationWriter::put(const StationItem &item) {
  const Network &network = item.network;
  const Station &station = item.station;
  const Channel &channel = item.channel;
  if (item.kind == StationItem::Kind::kNetwork) {
    comments_ += static_cast<std::int64_t>(network.comments.size());
    if (level_ != FdsnLevel::kNetwork) return true;
    if (!finish_network()) return false;
    network_ = network;
    network_open_ = true;
    stations_ = 0;
    return true;
  }
  if (item.kind == StationItem::Kind::kStation) {
    stations_++;
    if (level_ != FdsnLevel::kStation) return true;
    return put_row({network.code, station.code, value_text(station.lat),
                    value_text(station.lon), metres_text(station.elevation),
                    station.name, exchange_time(station.epoch.start),
                    exchange_time(station.epoch.end)});
  }
  if (channel.response != nullptr) responses_++;
  if (level_ != FdsnLevel::kChannel) return true;
  return put_row(
      {network.code, station.code, channel.location, channel.code,
       value_text(channel.lat), value_text(channel.lon), metres_text(channel.elevation),
       metres_text(channel.depth), value_text(channel.azimuth), value_text(channel.dip),
       channel.sensor, value_text(channel.sensitivity, 0.0),
       value_text(channel.sensitivity_frequency, 0.0), channel.input_unit,
       value_text(channel.samprate, -1.0), exchange_time(channel.epoch.start),
       exchange_time(channel.epoch.end)});
}

bool FdsnStationWriter::end() { return finish_network(); }

std::vector<Unplaced> FdsnStationWriter::without_place() const {
  std::vector<Unplaced> left;
  if (comments_ > 0) left.push_back({"comments", comments_});
  if (responses_ > 0) left.push_back({"responses", responses_});
  return left;
}

}  // namespace ksutil::exchange
