/* nordic_phases: the phase lines of Nordic files, in the columns of before and since 2017.
 *
 * Times are hours, minutes and seconds after the midnight before the event; hours beyond 23
 * are of the next day.  Amplitudes are in nm, apparent velocities in km/s, distances in km. */
#ifndef KSUTIL_FORMATS_EXCHANGE_NORDIC_NORDIC_PHASES_H
#define KSUTIL_FORMATS_EXCHANGE_NORDIC_NORDIC_PHASES_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "formats/exchange/records.h"

namespace ksutil::exchange {

enum class NordicColumns { kOld, kNew };

/* Whether a line of type 7 heads the columns since 2017. */
bool heads_new_columns(std::string_view line);

struct NordicPhase {
  Pick pick;
  Association association;
  std::vector<const char *> without_place;  // further values of the line
  /* The line gives azimuth and velocity of an earlier line of the same station and time,
   * whose phase this is. */
  std::string azimuth_of;
};

/* The columns that a phase line needs: the last one may be left out, as it is blank. */
inline constexpr std::size_t kNordicPhaseWidth = 79;

/* Whether a phase line ends before the last column of a value that it has begun. */
bool ends_within_value(std::string_view line, NordicColumns form);

/* Reads a phase line.  midnight: of the day of the event.  False, with `problem` set, for a
 * line that breaks the rules. */
bool read_nordic_phase(std::string_view line, NordicColumns form, double midnight,
                       NordicPhase &phase, std::string &problem);

}  // namespace ksutil::exchange
#endif
