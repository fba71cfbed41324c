/* fdsn_station_columns: the columns of the FDSN station text at its three levels. */
#ifndef KSUTIL_FORMATS_EXCHANGE_FDSN_STATION_FDSN_STATION_COLUMNS_H
#define KSUTIL_FORMATS_EXCHANGE_FDSN_STATION_FDSN_STATION_COLUMNS_H

#include <array>
#include <span>
#include <string_view>

namespace ksutil::exchange {

enum class FdsnLevel { kNetwork, kStation, kChannel };

inline constexpr std::array<std::string_view, 5> kFdsnNetworkColumns{
    "Network", "Description", "StartTime", "EndTime", "TotalStations"};
inline constexpr std::array<std::string_view, 8> kFdsnStationColumns{
    "Network",   "Station",  "Latitude",  "Longitude",
    "Elevation", "SiteName", "StartTime", "EndTime"};
inline constexpr std::array<std::string_view, 17> kFdsnChannelColumns{
    "Network",           "Station",   "Location",  "Channel",    "Latitude",
    "Longitude",         "Elevation", "Depth",     "Azimuth",    "Dip",
    "SensorDescription", "Scale",     "ScaleFreq", "ScaleUnits", "SampleRate",
    "StartTime",         "EndTime"};

inline std::span<const std::string_view> fdsn_columns(FdsnLevel level) {
  switch (level) {
    case FdsnLevel::kNetwork:
      return kFdsnNetworkColumns;
    case FdsnLevel::kStation:
      return kFdsnStationColumns;
    case FdsnLevel::kChannel:
      break;
  }
  return kFdsnChannelColumns;
}

}  // namespace ksutil::exchange
#endif
