/* earth_model: reads a spherical Earth model as published in a .tvel file. */
#ifndef KSUTIL_PLATFORM_TRAVELTIME_INTERNAL_EARTH_MODEL_H
#define KSUTIL_PLATFORM_TRAVELTIME_INTERNAL_EARTH_MODEL_H

#include <optional>
#include <string_view>
#include <vector>

namespace ksutil::traveltime {

struct ModelPoint {
  double depth = 0.0;  // km
  double vp = 0.0;     // km/s
  double vs = 0.0;     // km/s, 0 in a fluid
};

/* Velocities are linear in depth between neighbouring points; two points of the same
 * depth are the upper and the lower side of a discontinuity. */
struct EarthModel {
  std::vector<ModelPoint> points;  // from the surface to the centre
  double radius = 0.0;             // km
  double core_depth = 0.0;         // km, top of the fluid outer core
  double inner_core_depth = 0.0;   // km, top of the solid inner core
};

/* Reads two title lines and then rows of depth (km), vp, vs (km/s) and density, of
 * which the density is not used.  Nothing when a row is unreadable, when the depths
 * fall, when the Earth is not a solid shell, a fluid outer and a solid inner core, or
 * when within a layer the velocity falls so fast with depth that no ray can turn in
 * it. */
std::optional<EarthModel> parse_tvel(std::string_view text);

}  // namespace ksutil::traveltime
#endif
