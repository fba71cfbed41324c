/* station_values: rules for values of stations that all formats share. */
#ifndef KSUTIL_FORMATS_EXCHANGE_STATIONS_STATION_VALUES_H
#define KSUTIL_FORMATS_EXCHANGE_STATIONS_STATION_VALUES_H

#include <string>
#include <string_view>

#include "formats/exchange/stations/stations.h"

namespace ksutil::exchange {

/* The greatest differences that the fields of site cannot tell apart. */
inline constexpr double kSameDegrees = 0.00006, kSameKilometres = 0.00006;

/* Reads the ends of an epoch, as XML Schema and the FDSN services write times: date and
 * time, UTC unless an offset follows; "" gives kNoTime.  An end that no table can hold (from
 * 2286-11-20 on) means that the epoch is open.  False, with the cause, for a text that is
 * not a time and for an end before the beginning. */
bool read_epoch(std::string_view start, std::string_view end, Epoch &epoch,
                std::string &cause);

/* A time as the FDSN services write it, with decimals only where they are needed; "" for
 * kNoTime. */
std::string exchange_time(double time);

/* Whether coordinates are given. */
inline bool has_place(double lat, double lon) { return lat != -999.0 && lon != -999.0; }

/* The cause why coordinates in degrees cannot be a place; "" when they can, or are not
 * given.  Longitudes up to 360 are taken to -180 to 180. */
std::string fit_place(double lat, double &lon);

/* Whether a code can be the key of rows: "-" is the null, and control characters have no
 * place in a table. */
bool can_be_code(std::string_view code);

}  // namespace ksutil::exchange
#endif
