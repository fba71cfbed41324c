#include "tools/plot/projection.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numbers>

#include "platform/geo/angle.h"
#include "tools/plot/figure.h"

namespace ksutil::plot {
namespace {

constexpr const char *kProjections[] = {"plate-carree", "mercator", "equal-area",
                                        "azimuthal"};
constexpr double kEarth = 6371.0;          // km
constexpr double kMercatorLimit = 85.0;    // degrees of latitude
constexpr double kEqualAreaLimit = 160.0;  // degrees from the centre
constexpr double kEquidistantLimit = 179.5;

/* The auxiliary angle of Mollweide's projection: 2 t + sin 2 t = pi sin(lat). */
double mollweide_angle(double lat) {
  const double wanted = std::numbers::pi * std::sin(lat);
  double t = lat;
  for (int i = 0; i < 50; i++) {
    const double slope = 2.0 + 2.0 * std::cos(2.0 * t);
    if (slope < 1e-9) break;
    const double step = (2.0 * t + std::sin(2.0 * t) - wanted) / slope;
    t -= step;
    if (std::fabs(step) < 1e-10) break;
  }
  return t;
}

}  // namespace

const char *projection_name(Projection projection) {
  return kProjections[static_cast<std::size_t>(projection)];
}

bool parse_projection(std::string_view name, Projection &projection) {
  const auto *found = std::find(std::begin(kProjections), std::end(kProjections), name);
  if (found == std::end(kProjections)) return false;
  projection = static_cast<Projection>(found - kProjections);
  return true;
}

PlaneMap::PlaneMap(Kind kind, double centre_lon, double centre_lat)
    : kind_(kind),
      lon_(centre_lon),
      lat_(centre_lat),
      sin_lat_(std::sin(radians(centre_lat))),
      cos_lat_(std::cos(radians(centre_lat))) {}

double PlaneMap::turned(double lon) const { return std::remainder(lon - lon_, 360.0); }

bool PlaneMap::cut_between(double lon, double next_lon) const {
  if (kind_ == Kind::kLambertEqualArea || kind_ == Kind::kAzimuthalEquidistant) {
    return false;
  }
  return std::fabs(turned(lon) - turned(next_lon)) > 180.0;
}

std::optional<Position> PlaneMap::at(double lon, double lat) const {
  const double x = radians(turned(lon)), y = radians(lat);
  switch (kind_) {
    case Kind::kMercator:
      if (std::fabs(lat) > kMercatorLimit) return std::nullopt;
      return Position{kEarth * x, kEarth * std::asinh(std::tan(y))};
    case Kind::kMollweide: {
      const double t = mollweide_angle(y);
      return Position{
          kEarth * 2.0 * std::numbers::sqrt2 / std::numbers::pi * x * std::cos(t),
          kEarth * std::numbers::sqrt2 * std::sin(t)};
    }
    default:
      break;
  }
  /* Both azimuthal projections: the direction from the centre times a length. */
  const double east = std::cos(y) * std::sin(x);
  const double north = cos_lat_ * std::sin(y) - sin_lat_ * std::cos(y) * std::cos(x);
  const double along = sin_lat_ * std::sin(y) + cos_lat_ * std::cos(y) * std::cos(x);
  const double across = std::hypot(east, north);
  const double distance = std::atan2(across, along);
  const bool equal_area = kind_ == Kind::kLambertEqualArea;
  if (degrees(distance) > (equal_area ? kEqualAreaLimit : kEquidistantLimit)) {
    return std::nullopt;
  }
  if (across == 0.0) return Position{};
  const double length =
      kEarth * (equal_area ? 2.0 * std::sin(0.5 * distance) : distance);
  return Position{length * east / across, length * north / across};
}

}  // namespace ksutil::plot
