/* First-arriving P-type and S-type travel times of the public Earth models.
 *
 * The models are spherical; times are for a receiver at the surface, without corrections
 * for ellipticity or station height.
 * P-type: p, P, Pn, Pg, Pb, Pdiff (to where the core phases follow), PKP, PKiKP, PKIKP.
 * S-type: s, S, Sn, Sg, Sb, Sdiff, SKS, SKIKS.  Every distance and depth has both.
 *
 * A model's table is computed at its first use and then shared by all threads.
 * Accuracy: within 0.05 s of the model nearly everywhere, never more than 0.2 s off. */
#ifndef KSUTIL_PLATFORM_TRAVELTIME_TRAVELTIME_H
#define KSUTIL_PLATFORM_TRAVELTIME_TRAVELTIME_H

#include <string_view>

#include "platform/stock/export.h"

namespace ksutil::traveltime {

enum class Model { kIasp91, kAk135 };
enum class Wave { kP, kS };

/* `phase` is a text of static storage, such as "Pn". */
struct Arrival {
  double time = 0.0;      // s after the origin time
  double slowness = 0.0;  // s/degree: the slope of time over distance
  const char *phase = "";
};

/* The first arrival.
 *
 * delta   degrees; 0 to 180 (up to 360 is taken as 360 - delta)
 * depth   km, 0 to 700; above the surface (negative, down to -10) counts as 0
 * False, with the result untouched, outside these ranges and for NaN. */
KSUTIL_API bool first_arrival(Model model, Wave wave, double delta, double depth,
                              Arrival &arrival);

/* "iasp91" or "ak135"; false for another name. */
KSUTIL_API bool find_model(std::string_view name, Model &model);

}  // namespace ksutil::traveltime
#endif
