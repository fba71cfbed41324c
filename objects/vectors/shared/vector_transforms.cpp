#include "objects/vectors/shared/internal/vector_transforms.h"

#include <cmath>

#include "platform/geo/angle.h"
#include "platform/geo/geo.h"

namespace ksutil::vectors {
namespace {

/* After kMaxSteps multiplications std::pow computes the rest: by then both differ only by
 * rounding, and a huge power must not run for hours. */
constexpr int kMaxSteps = 100'000;

}  // namespace

double power_of(double base, int power) {
  if (base == 0.0 && power < 0) return kReciprocalOfZero;
  double factor = 1.0;
  for (int done = 0; done != power; done += power > 0 ? 1 : -1) {
    if (std::abs(done) == kMaxSteps) {
      return factor * std::pow(base, static_cast<double>(power) - done);
    }
    const double next = power > 0 ? factor * base : factor / base;
    /* From here on only the sign changes, if anything. */
    const bool settled = std::fabs(next) == std::fabs(factor) || std::isnan(next);
    if (settled) return power % 2 != 0 ? std::copysign(next, base) : std::fabs(next);
    factor = next;
  }
  return factor;
}

Offset offset_of(double lat0, double lon0, double lat1, double lon1) {
  if (lat0 == lat1 && lon0 == lon1) return {0.0, 0.0};
  double delta = 0.0, azimuth = 0.0;
  dist(radians(lat0), radians(lon0), radians(lat1), radians(lon1), &delta, &azimuth);
  delta = degrees(delta);
  return {delta * std::sin(azimuth), delta * std::cos(azimuth)};
}

}  // namespace ksutil::vectors
