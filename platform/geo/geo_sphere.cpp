#include <cmath>
#include <limits>
#include <numbers>

#include "platform/geo/angle.h"
#include "platform/geo/geo.h"

namespace {

using std::numbers::pi;

/* Points closer than this, rad (some nanometres on Earth), coincide: their azimuth
 * would depend on the rounding of their coordinates, such as two longitudes at a
 * pole. */
constexpr double kCoinciding = 1e-15;

double square(double x) { return x * x; }

}  // namespace

void dist(double lat1, double lon1, double lat2, double lon2, double *delta,
          double *azimuth) {
  if (!std::isfinite(lat1) || !std::isfinite(lon1) || !std::isfinite(lat2) ||
      !std::isfinite(lon2)) {
    if (delta != nullptr) *delta = std::numeric_limits<double>::quiet_NaN();
    if (azimuth != nullptr) *azimuth = std::numeric_limits<double>::quiet_NaN();
    return;
  }
  const double dlon = lon2 - lon1;
  const double sin1_cos2 = std::sin(lat1) * std::cos(lat2);
  const double east = std::cos(lat2) * std::sin(dlon);
  /* cos(lat1) sin(lat2) - sin(lat1) cos(lat2) cos(dlon), written so that its large
   * terms do not cancel for near points, nor for near antipodes. */
  const double north =
      std::cos(dlon) >= 0.0
          ? std::sin(lat2 - lat1) + 2.0 * sin1_cos2 * square(std::sin(dlon / 2.0))
          : std::sin(lat1 + lat2) - 2.0 * sin1_cos2 * square(std::cos(dlon / 2.0));
  const double sine = std::hypot(east, north);
  const double cosine = std::sin(lat1) * std::sin(lat2) +
                        std::cos(lat1) * std::cos(lat2) * std::cos(dlon);
  if (delta != nullptr) *delta = std::atan2(sine, cosine);
  if (azimuth == nullptr) return;
  double angle = std::atan2(east, north);
  if (sine < kCoinciding && cosine > 0.0) angle = 0.0;
  if (angle < 0.0) angle += 2.0 * pi;
  *azimuth = angle < 2.0 * pi ? angle : 0.0;
}

namespace ksutil {

double distance_degrees(double lat1, double lon1, double lat2, double lon2) {
  double delta = 0.0;
  dist(radians(lat1), radians(lon1), radians(lat2), radians(lon2), &delta, nullptr);
  return degrees(delta);
}

double azimuth_degrees(double lat1, double lon1, double lat2, double lon2) {
  double azimuth = 0.0;
  dist(radians(lat1), radians(lon1), radians(lat2), radians(lon2), nullptr, &azimuth);
  azimuth = degrees(azimuth);
  return azimuth >= 360.0 ? 0.0 : azimuth;
}

}  // namespace ksutil
