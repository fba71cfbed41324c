#include "formats/exchange/stations/station_gathering.h"

#include <cmath>

#include "formats/exchange/stations/station_rows.h"
#include "formats/exchange/stations/station_values.h"

namespace ksutil::exchange {
namespace {

constexpr std::size_t kInstrumentType = 6;

bool differ(double a, double b, double tolerance) {
  return a != -999.0 && b != -999.0 && std::fabs(a - b) > tolerance;
}

}  // namespace

bool StationGathering::add(const StationItem &item, std::int64_t line) {
  switch (item.kind) {
    case StationItem::Kind::kNetwork:
      add_network(item.network);
      return true;
    case StationItem::Kind::kStation:
      stations_.push_back({item.network.code, item.station, line});
      return true;
    case StationItem::Kind::kChannel:
      return add_channel(item, line);
  }
  return true;
}

/* Several epochs of a network share a row: the last epoch describes it. */
void StationGathering::add_network(const Network &network) {
  if (network.code.empty()) return;
  const auto [place, fresh] = by_code_.try_emplace(network.code, networks_.size());
  if (fresh) {
    networks_.push_back(network);
    return;
  }
  Network *const known = &networks_[place->second];
  if (!network.description.empty() &&
      (known->description.empty() || network.epoch.start >= known->epoch.start)) {
    known->description = network.description;
    known->epoch = network.epoch;
  }
  known->comments.insert(known->comments.end(), network.comments.begin(),
                         network.comments.end());
}

bool StationGathering::add_channel(const StationItem &item, std::int64_t line) {
  GatheredChannel gathered;
  gathered.network = item.network.code;
  gathered.station = item.station.code;
  gathered.channel = item.channel;
  gathered.line = line;
  Channel &channel = gathered.channel;
  if (differ(channel.lat, item.station.lat, kSameDegrees) ||
      differ(channel.lon, item.station.lon, kSameDegrees) ||
      differ(channel.elevation, item.station.elevation, kSameKilometres)) {
    unplaced_.add("a channel's own coordinates or elevation");
  }
  if (channel.sensor_model.size() > kInstrumentType) {
    unplaced_.add("a sensor model of more than 6 characters");
  }
  if (channel.sensitivity != 0.0) {
    std::string unit = channel.input_unit;
    if (unit.empty() && channel.response != nullptr) {
      unit = channel.response->input_unit();
    }
    const bool ground = unit.empty() || !natural_unit(unit).empty();
    if (!ground && channel.response == nullptr) {
      unplaced_.add("a sensitivity for " + unit.substr(0, 20));
    } else if (ground && channel.response == nullptr &&
               ncalib_of(channel.sensitivity, channel.sensitivity_frequency, unit) ==
                   0.0) {
      unplaced_.add("a sensitivity without frequency");
    }
  }
  if (channel.response != nullptr) {
    gathered.response_kind = response_kind(*channel.response);
    if (!responses_.stage(*channel.response, channel.sensor, gathered.response_file,
                          problem_)) {
      return false;
    }
    if (channel.input_unit.empty()) channel.input_unit = channel.response->input_unit();
    channel.response.reset();
  }
  channels_.push_back(std::move(gathered));
  return true;
}

}  // namespace ksutil::exchange
