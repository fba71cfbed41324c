#include <cmath>
#include <numbers>

#include "objects/internal/vector_record.h"
#include "platform/elog/elog.h"
#include "platform/geo/geo.h"

namespace {

constexpr double kDegree = std::numbers::pi / 180.0;
constexpr double kReciprocalOfZero = 1e30;
/* Multiplications until a power is finished by its logarithm: so many differ from it by
 * rounding only, and an argument must not keep a program busy for hours. */
constexpr int kMaxSteps = 100'000;

/* The vector, when it is one of points. */
KSVector *find_points(const char *function, const char *tag) {
  KSVector *const vector = ksutil::find_vector(function, tag);
  if (vector == nullptr || vector->points != nullptr) return vector;
  elog_log(0, "%s: Cannot transform time sample data.\n", function);
  return nullptr;
}

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

void scale(KSVectorPoint &point, int iy, int ny, double factor) {
  for (int j = iy < 0 ? 0 : iy; j < (iy < 0 ? ny : iy + 1); j++) point.y[j] *= factor;
}

}  // namespace

void latlon2xydel(double *x, double *y, int /*flag*/, double lat0, double lon0,
                  double lat1, double lon1) {
  *x = *y = 0.0;
  if (lat0 == lat1 && lon0 == lon1) return;
  double delta = 0.0, azimuth = 0.0;
  dist(lat0 * kDegree, lon0 * kDegree, lat1 * kDegree, lon1 * kDegree, &delta,
       &azimuth);
  delta /= kDegree;
  *x = delta * std::sin(azimuth);
  *y = delta * std::cos(azimuth);
}

int ksvector_transform_edp(const char *tag, double lat0, double lon0) {
  KSVector *const vector = find_points("ksvector_transform_edp", tag);
  if (vector == nullptr) return -1;
  for (int i = 0; i < vector->npts; i++) {
    KSVectorPoint &point = vector->points[i];
    double east = 0.0, north = 0.0;
    latlon2xydel(&east, &north, 0, lat0, lon0, point.y[0], point.x);
    point.x = east;
    point.y[0] = north;
  }
  ksutil::x_changed(*vector);
  return 0;
}

int ksvector_transform_invertx(const char *tag) {
  KSVector *const vector = find_points("ksvector_transform_invertx", tag);
  if (vector == nullptr) return -1;
  for (int i = 0; i < vector->npts; i++) {
    double &x = vector->points[i].x;
    if (x == 0.0) {
      x = kReciprocalOfZero;
    } else {
      x = x == kReciprocalOfZero ? 0.0 : 1.0 / x;
    }
  }
  ksutil::x_changed(*vector);
  return 0;
}

int ksvector_transform_spec(const char *tag, int power, int iy) {
  KSVector *const vector = find_points("ksvector_transform_spec", tag);
  if (vector == nullptr) return -1;
  if (power == 0) return 0;
  if (iy >= vector->ny) {
    elog_log(0, "ksvector_transform_spec: iy too large.\n");
    return -1;
  }
  for (int i = 0; i < vector->npts; i++) {
    KSVectorPoint &point = vector->points[i];
    scale(point, iy, vector->ny, power_of(2.0 * std::numbers::pi * point.x, power));
  }
  return 0;
}

int ksvector_transform_ygain(const char *tag, int iy, double gain) {
  KSVector *const vector = ksutil::find_vector("ksvector_transform_ygain", tag);
  if (vector == nullptr) return -1;
  if (gain == 1.0) return 0;
  if (vector->npts < 1) {
    elog_log(0, "ksvector_transform_ygain: No points in vector %s.\n", tag);
    return -1;
  }
  if (iy >= vector->ny) {
    elog_log(0, "ksvector_transform_ygain: iy too large.\n");
    return -1;
  }
  for (int i = 0; i < vector->npts; i++) {
    if (vector->points != nullptr) {
      scale(vector->points[i], iy, vector->ny, gain);
    } else {
      vector->data[i] *= gain;
    }
  }
  return 0;
}
