/* profile: describes the Earth for one type of wave by thin shells in which ray
 * integrals are exact.
 *
 * Within a shell the velocity is v = a r^b, so that distance and time along a ray have
 * closed forms in eta = r/v.  P-type waves travel as P everywhere; S-type waves as S in
 * the mantle and, changed to P, through the core (SKS, SKIKS).
 * Source: Bullen & Bolt, An Introduction to the Theory of Seismology, 4th ed. (1985),
 * sec. 7.2 and 7.3. */
#ifndef KSUTIL_PLATFORM_TRAVELTIME_INTERNAL_PROFILE_H
#define KSUTIL_PLATFORM_TRAVELTIME_INTERNAL_PROFILE_H

#include <cstddef>
#include <vector>

#include "platform/traveltime/internal/earth_model.h"
#include "platform/traveltime/traveltime.h"

namespace ksutil::traveltime {

/* Epicentral distance and time along a piece of a ray. */
struct Path {
  double x = 0.0;  // rad
  double t = 0.0;  // s

  Path &operator+=(const Path &other) {
    x += other.x;
    t += other.t;
    return *this;
  }
};

struct Shell {
  double top = 0.0, bottom = 0.0;          // depth, km
  double eta_top = 0.0, eta_bottom = 0.0;  // r/v, s/rad; eta_top > eta_bottom
  double factor = 1.0;                     // 1 / (1 - b)

  /* One way through the shell for slowness p (s/rad) <= eta_bottom. */
  Path crossing(double p) const;
  /* From the top to the turning point for eta_bottom <= p <= eta_top. */
  Path descent(double p) const;
};

enum class Region {
  kUpperCrust,
  kLowerCrust,
  kUppermostMantle,
  kMantle,
  kOuterCore,
  kInnerCore
};

/* Shells [first_shell, end_shell) in which the distance grows steadily as rays turn
 * deeper; layers meet where the velocity jumps or its gradient steepens, which is where
 * travel-time curves fold. */
struct Layer {
  std::size_t first_shell = 0, end_shell = 0;
  std::vector<double> etas;  // r/v at the model's points, falling, s/rad
  Region region = Region::kMantle;
  bool above_core = false;  // its bottom is the core: the wave diffracts there
};

struct Profile {
  double radius = 0.0;  // km
  std::vector<Shell> shells;
  std::vector<Layer> layers;

  /* The largest slowness with which a ray from the surface enters the layer, s/rad. */
  double entry_slowness(const Layer &layer) const;
};

Profile make_profile(const EarthModel &model, Wave wave);

}  // namespace ksutil::traveltime
#endif
