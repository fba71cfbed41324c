#include "mechanisms/internal/moment.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "platform/elog/failure.h"
#include "platform/geo/angle.h"

namespace ksutil::mechanisms {
namespace {

constexpr double kLargest = 1e150;  // of an element, so that squares stay finite

/* Azimuths in degrees, in [0, 360). */
double turned(double azimuth) {
  const double result = std::fmod(azimuth, 360.0);
  return result < 0.0 ? std::fmod(result + 360.0, 360.0) : result + 0.0;
}

}  // namespace

bool is_tensor(const char *who, const double *m) {
  const bool good = m != nullptr && std::all_of(m, m + 6, [](double element) {
                      return std::fabs(element) <= kLargest;
                    });
  if (!good) fail(who, "Not a moment tensor");
  return good;
}

bool is_plane(const char *who, const KSMomentPlane *plane) {
  const bool good = plane != nullptr && std::isfinite(plane->strike) &&
                    std::isfinite(plane->rake) && plane->dip >= 0.0 &&
                    plane->dip <= 90.0;
  if (!good) fail(who, "Not a nodal plane");
  return good;
}

Couple couple_of(const KSMomentPlane &plane) {
  const double strike = radians(turned(plane.strike)), dip = radians(plane.dip),
               rake = radians(turned(plane.rake));
  const double cs = std::cos(strike), ss = std::sin(strike);
  const double cd = std::cos(dip), sd = std::sin(dip);
  const double cr = std::cos(rake), sr = std::sin(rake);
  return {{-sd * ss, sd * cs, -cd},
          {cr * cs + cd * sr * ss, cr * ss - cd * sr * cs, -sd * sr}};
}

KSMomentPlane plane_of(const Couple &couple) {
  constexpr double kNone = 1e-10;
  Vector3 normal = couple.normal, slip = couple.slip;
  /* Of a vertical plane the side is chosen by which it strikes below 180 degrees. */
  const bool vertical = std::fabs(normal[2]) < kNone;
  if (vertical ? normal[0] > kNone || (normal[0] > -kNone && normal[1] < 0.0)
               : normal[2] > 0.0) {
    normal = opposite(normal);
    slip = opposite(slip);
  }
  const double across = std::hypot(normal[0], normal[1]);
  const double strike = across < kNone ? 0.0 : std::atan2(-normal[0], normal[1]);
  const double cs = std::cos(strike), ss = std::sin(strike);
  const double cd = -normal[2], sd = across;
  const double along = slip[0] * cs + slip[1] * ss;
  const double up_dip = dot(slip, {cd * ss, -cd * cs, -sd});
  double rake = degrees(std::atan2(up_dip, along));
  if (rake <= -180.0) rake = 180.0;
  return {turned(degrees(strike)), degrees(std::atan2(sd, std::max(cd, 0.0))),
          rake + 0.0};
}

bool equal_values(const Vector3 &values, std::size_t i, std::size_t j) {
  constexpr double kRounding = 1e-12;
  const double size = std::max(std::fabs(values[0]), std::fabs(values[2]));
  return std::fabs(values[i] - values[j]) <= kRounding * size;
}

std::array<Couple, 2> couples_of(const Eigen &eigen) {
  constexpr double kHalf = std::numbers::sqrt2 / 2.0;
  const Vector3 &t = eigen.vectors[0], &p = eigen.vectors[2];
  const Vector3 sum = combine(kHalf, t, kHalf, p),
                difference = combine(kHalf, t, -kHalf, p);
  return {Couple{sum, difference}, Couple{difference, sum}};
}

void direction_of(const Vector3 &line, double &plunge, double &azimuth) {
  constexpr double kNone = 1e-14;
  const bool up = line[2] < -kNone;
  const Vector3 down = up ? opposite(line) : line;
  const double across = std::hypot(down[0], down[1]);
  plunge = degrees(std::atan2(std::max(down[2], 0.0), across));
  azimuth = across < kNone ? 0.0 : turned(degrees(std::atan2(down[1], down[0])));
}

}  // namespace ksutil::mechanisms
