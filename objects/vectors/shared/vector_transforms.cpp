/* Changes of x and y values in place, in both families of vectors. */
#include <cmath>
#include <numbers>

#include "objects/vectors/shared/internal/vector_access.h"
#include "platform/elog/elog.h"
#include "platform/geo/geo.h"

namespace {

constexpr double kDegree = std::numbers::pi / 180.0;
constexpr double kReciprocalOfZero = 1e30;
/* Multiplications until a power is finished by its logarithm: so many differ from it by
 * rounding only, and an argument must not keep a program busy for hours. */
constexpr int kMaxSteps = 100'000;

using ksutil::find_vector, ksutil::is_series, ksutil::x_at, ksutil::y_at;
using ksutil::vector2::look_up;

/* What follows a change of x values. */
void x_changed(KSVector &vector) { ksutil::x_changed(vector); }
void x_changed(ksvector2 & /*vector*/) {}

/* Whether a vector was found and is one of points. */
template <class Vector>
bool has_points(const char *function, const Vector *vector) {
  if (vector == nullptr) return false;
  if (!is_series(*vector)) return true;
  elog_log(0, "%s: Cannot transform time sample data.\n", function);
  return false;
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

void scale(double *y, int iy, int ny, double factor) {
  for (int j = iy < 0 ? 0 : iy; j < (iy < 0 ? ny : iy + 1); j++) y[j] *= factor;
}

template <class Vector>
int transform_edp(const char *function, Vector *vector, double lat0, double lon0) {
  if (!has_points(function, vector)) return -1;
  for (int i = 0; i < vector->npts; i++) {
    double &x = x_at(*vector, i), &y = *y_at(*vector, i);
    double east = 0.0, north = 0.0;
    latlon2xydel(&east, &north, 0, lat0, lon0, y, x);
    x = east;
    y = north;
  }
  x_changed(*vector);
  return 0;
}

template <class Vector>
int transform_invertx(const char *function, Vector *vector) {
  if (!has_points(function, vector)) return -1;
  for (int i = 0; i < vector->npts; i++) {
    double &x = x_at(*vector, i);
    if (x == 0.0) {
      x = kReciprocalOfZero;
    } else {
      x = x == kReciprocalOfZero ? 0.0 : 1.0 / x;
    }
  }
  x_changed(*vector);
  return 0;
}

template <class Vector>
int transform_spec(const char *function, Vector *vector, int power, int iy) {
  if (!has_points(function, vector)) return -1;
  if (power == 0) return 0;
  if (iy >= vector->ny) {
    elog_log(0, "%s: iy too large.\n", function);
    return -1;
  }
  for (int i = 0; i < vector->npts; i++) {
    const double omega = 2.0 * std::numbers::pi * x_at(*vector, i);
    scale(y_at(*vector, i), iy, vector->ny, power_of(omega, power));
  }
  return 0;
}

template <class Vector>
int transform_ygain(const char *function, Vector *vector, const char *tag, int iy,
                    double gain) {
  if (vector == nullptr) return -1;
  if (gain == 1.0) return 0;
  if (vector->npts < 1) {
    elog_log(0, "%s: No points in vector %s.\n", function, tag);
    return -1;
  }
  if (iy >= vector->ny) {
    elog_log(0, "%s: iy too large.\n", function);
    return -1;
  }
  for (int i = 0; i < vector->npts; i++) {
    if (is_series(*vector)) {
      vector->data[i] *= gain;
    } else {
      scale(y_at(*vector, i), iy, vector->ny, gain);
    }
  }
  return 0;
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
  const char *const self = "ksvector_transform_edp";
  return transform_edp(self, find_vector(self, tag), lat0, lon0);
}

int ksvector2_transform_edp(const char *tag, double lat0, double lon0) {
  const char *const self = "ksvector2_transform_edp";
  return transform_edp(self, look_up(tag, self), lat0, lon0);
}

int ksvector_transform_invertx(const char *tag) {
  const char *const self = "ksvector_transform_invertx";
  return transform_invertx(self, find_vector(self, tag));
}

int ksvector2_transform_invertx(const char *tag) {
  const char *const self = "ksvector2_transform_invertx";
  return transform_invertx(self, look_up(tag, self));
}

int ksvector_transform_spec(const char *tag, int power, int iy) {
  const char *const self = "ksvector_transform_spec";
  return transform_spec(self, find_vector(self, tag), power, iy);
}

int ksvector2_transform_spec(const char *tag, int power, int iy) {
  const char *const self = "ksvector2_transform_spec";
  return transform_spec(self, look_up(tag, self), power, iy);
}

int ksvector_transform_ygain(const char *tag, int iy, double gain) {
  const char *const self = "ksvector_transform_ygain";
  return transform_ygain(self, find_vector(self, tag), tag, iy, gain);
}

int ksvector2_transform_ygain(const char *tag, int iy, double gain) {
  const char *const self = "ksvector2_transform_ygain";
  return transform_ygain(self, look_up(tag, self), tag, iy, gain);
}
