#include "formats/exchange/fdsn_station/fdsn_station_formats.h"

#include <array>

#include "formats/exchange/fdsn_station/fdsn_station_reader.h"
#include "formats/exchange/fdsn_station/fdsn_station_writer.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

/* The level of a first line such as "#Network | Station | ..."; false for another line. */
bool level_of(std::string_view line, FdsnLevel &level) {
  const std::string header = lowered(line);
  const std::size_t name = header.find_first_not_of("# ");
  if (!header.starts_with('#') || header.find('|') == header.npos ||
      name == header.npos || !header.substr(name).starts_with("network")) {
    return false;
  }
  const auto has = [&](const char *column) {
    return header.find(column, header.find('|')) != header.npos;
  };
  level = has("channel")    ? FdsnLevel::kChannel
          : has("latitude") ? FdsnLevel::kStation
                            : FdsnLevel::kNetwork;
  return true;
}

template <FdsnLevel kLevel>
bool is_level(const Beginning &beginning) {
  FdsnLevel level;
  return level_of(beginning.first_line, level) && level == kLevel;
}

template <FdsnLevel kLevel>
std::unique_ptr<StationReader> open_level(Input &input, std::string &problem) {
  auto reader = std::make_unique<FdsnStationReader>(input, kLevel);
  if (!reader->begin(problem)) return nullptr;
  return reader;
}

template <FdsnLevel kLevel>
std::unique_ptr<StationWriter> write_level(TextSink &sink) {
  return std::make_unique<FdsnStationWriter>(sink, kLevel);
}

constexpr std::array<Mapping, 2> kNetworkMappings{
    {{"Network", "network.net"}, {"Description", "network.netname"}}};

constexpr std::array<Mapping, 6> kStationMappings{
    {{"Network", "network.net, affiliation.net"},
     {"Station", "site.sta, affiliation.sta"},
     {"Latitude, Longitude", "site.lat, site.lon"},
     {"Elevation", "site.elev"},
     {"SiteName", "site.staname"},
     {"StartTime, EndTime", "site.ondate, site.offdate"}}};

constexpr std::array<Mapping, 11> kChannelMappings{
    {{"Network", "network.net, affiliation.net, seedcode.net"},
     {"Station", "site.sta, sitechan.sta, seedcode.seedsta"},
     {"Channel, Location", "sitechan.chan, seedcode.seedchan, seedcode.loc"},
     {"Latitude, Longitude, Elevation", "site.lat, site.lon, site.elev"},
     {"Depth", "sitechan.edepth"},
     {"Azimuth, Dip", "sitechan.hang, sitechan.vang"},
     {"SensorDescription", "instrument.insname"},
     {"Scale, ScaleUnits", "instrument.ncalib, instrument.rsptype"},
     {"ScaleFreq", "instrument.ncalper, sensor.calper"},
     {"SampleRate", "instrument.samprate"},
     {"StartTime, EndTime",
      "sensor.time, sensor.endtime, sitechan.ondate, sitechan.offdate"}}};

template <FdsnLevel kLevel>
constexpr Format format_of_level(const char *word, const char *name,
                                 std::span<const Mapping> mappings) {
  Format format{word, name, is_level<kLevel>};
  format.mappings = mappings;
  format.open_station_reader = open_level<kLevel>;
  format.open_station_writer = write_level<kLevel>;
  return format;
}

}  // namespace

const Format kFdsnNetworkFormat = format_of_level<FdsnLevel::kNetwork>(
    "fdsn-network", "FDSN station text of networks", kNetworkMappings);
const Format kFdsnStationFormat = format_of_level<FdsnLevel::kStation>(
    "fdsn-station", "FDSN station text of stations", kStationMappings);
const Format kFdsnChannelFormat = format_of_level<FdsnLevel::kChannel>(
    "fdsn-channel", "FDSN station text of channels", kChannelMappings);

}  // namespace ksutil::exchange
