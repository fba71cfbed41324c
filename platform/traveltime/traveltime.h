/* traveltime: first-arriving P-type and S-type travel times of the public Earth models.
 *
 * The models are spherical; times are for a receiver at the surface, without
 * corrections for ellipticity or station height.
 * First means the earliest of
 *   P-type  p, Pg, Pb, Pn, P, Pdiff, PKP, PKiKP, PKIKP
 *   S-type  s, Sg, Sb, Sn, S, Sdiff, SKS, SKIKS
 * Both exist at every distance and depth.  Rays that leave upward are p and s; others
 * are named after where they turn: Pg above 20 km, Pb above 35 km, Pn above 210 km, P
 * below.
 *
 * Pdiff continues from the ray that grazes the core, with the slowness of that ray, to
 * the distance at which PKIKP begins (113.7 degrees in iasp91, 115.3 in ak135 for a
 * source at the surface, a degree less for the deepest): the time rises there by about
 * 230 s.  PKiKP meets PKIKP at that point; it is later than Pdiff before and later than
 * PKIKP beyond, so never first.  PKP is ahead of PKIKP for one or two degrees from its
 * caustic (144.6 degrees in iasp91, 145.0 in ak135, two less for the deepest): the time
 * falls there by 0.7 to 2.7 s.  Sdiff is never first, because SKS overtakes S at 80 to
 * 84 degrees.
 * Apart from the two steps of P-type times, time is continuous and rises with distance.
 *
 * Method: tau-p.  Ray integrals in closed form over thin shells, tabulated per kind of
 * ray (so that folds and crossings stay sharp) and interpolated over distance and
 * depth.
 * Source: Kennett & Engdahl, Geophys. J. Int. 105 (1991), 429-465 (iasp91); Kennett,
 * Engdahl & Buland, Geophys. J. Int. 122 (1995), 108-124 (ak135); Buland & Chapman,
 * Bull.  Seism. Soc. Am. 73 (1983), 1271-1302 (tau-p).
 *
 * A table (a model and a type of wave, 10 MB) is computed at its first use, in less
 * than a second, and then shared by all threads; an evaluation allocates nothing.
 * Accuracy: within 0.05 s of the model nearly everywhere and within 0.2 s everywhere,
 * except next to the two steps, whose distance is accurate to 0.02 degrees. */
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
  double slowness = 0.0;  // s/degree: slope of time over distance up to 180 degrees
  const char *phase = "";
};

/* The first arrival.
 *
 * delta   degrees; 0 to 180 (up to 360 is taken as 360 - delta)
 * depth   km, 0 to 700; above the surface (negative, down to -10) counts as 0
 * False, with the result untouched, outside these ranges and for NaN.  The first use of
 * a table may throw std::bad_alloc; a later call tries again. */
KSUTIL_API bool first_arrival(Model model, Wave wave, double delta, double depth,
                              Arrival &arrival);

/* "iasp91" or "ak135"; false for another name. */
KSUTIL_API bool find_model(std::string_view name, Model &model);

}  // namespace ksutil::traveltime
#endif
