/* angle: converts between degrees and radians.  The library has no other constant for it. */
#ifndef KSUTIL_PLATFORM_GEO_ANGLE_H
#define KSUTIL_PLATFORM_GEO_ANGLE_H

#include <numbers>

namespace ksutil {

inline constexpr double kRadiansPerDegree = std::numbers::pi / 180.0;

/* Degrees to radians and back. */
constexpr double radians(double degrees) { return degrees * kRadiansPerDegree; }
constexpr double degrees(double radians) { return radians / kRadiansPerDegree; }

}  // namespace ksutil
#endif
