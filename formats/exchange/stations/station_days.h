/* station_days: the days of rows of stations and the epochs of exchange formats, as ends of
 * stretches of time. */
#ifndef KSUTIL_FORMATS_EXCHANGE_STATIONS_STATION_DAYS_H
#define KSUTIL_FORMATS_EXCHANGE_STATIONS_STATION_DAYS_H

#include <cstdint>

#include "formats/exchange/stations/stations.h"
#include "platform/clock/clock.h"

namespace ksutil::exchange {

inline constexpr double kSecondsOfDay = 86400.0;
/* Where a stretch begins that has no beginning (negative), and where an open one ends. */
inline constexpr double kAlways = 1e12;

/* Whether a field offdate says that an epoch goes on: -1, or what some databases have for
 * it. */
inline bool is_open_day(std::int64_t day) { return day == -1 || day == 2286324; }

inline double begin_of(const Epoch &epoch) {
  return epoch.start == kNoTime ? -kAlways : epoch.start;
}
inline double end_of(const Epoch &epoch) {
  return epoch.end == kNoTime ? kAlways : epoch.end;
}

/* The first moment of the day of a field ondate, and the end of the day of a field
 * offdate. */
inline double begin_of_day(std::int64_t ondate) {
  return ondate == -1 ? -kAlways : yearday_epoch(static_cast<int>(ondate));
}
inline double end_of_day(std::int64_t offdate) {
  return is_open_day(offdate)
             ? kAlways
             : yearday_epoch(static_cast<int>(offdate)) + kSecondsOfDay;
}

}  // namespace ksutil::exchange
#endif
