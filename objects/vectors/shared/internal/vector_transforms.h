/* vector_transforms: changes the x and y values of a vector in place. */
#ifndef KSUTIL_OBJECTS_VECTORS_SHARED_INTERNAL_VECTOR_TRANSFORMS_H
#define KSUTIL_OBJECTS_VECTORS_SHARED_INTERNAL_VECTOR_TRANSFORMS_H

#include <numbers>

#include "objects/vectors/shared/internal/vector_access.h"
#include "platform/elog/failure.h"

namespace ksutil::vectors {

/* Stands for 1/0 in a vector, and becomes 0 again. */
inline constexpr double kReciprocalOfZero = 1e30;

/* base^power, kReciprocalOfZero for a negative power of 0.  Exact as repeated
 * multiplication or division gives it for up to 100,000 of them. */
double power_of(double base, int power);

/* Degrees east and north of point 0, at which point 1 lies: azimuthal equidistant. */
struct Offset {
  double east, north;
};
Offset offset_of(double lat0, double lon0, double lat1, double lon1);

/* Whether a vector was found and is one of points. */
template <class Vector>
bool has_points(const char *who, const Vector *vector) {
  if (vector == nullptr) return false;
  if (!is_series(*vector)) return true;
  return fail(who, "Cannot transform time sample data");
}

/* Columns iy, or all of them for iy below 0. */
inline void scale(double *y, int iy, int ny, double factor) {
  for (int j = iy < 0 ? 0 : iy; j < (iy < 0 ? ny : iy + 1); j++) y[j] *= factor;
}

template <class Vector>
int transform_edp(const char *who, Vector *vector, double lat0, double lon0) {
  if (!has_points(who, vector)) return -1;
  for (int i = 0; i < vector->npts; i++) {
    double &x = x_at(*vector, i), &y = *y_at(*vector, i);
    const Offset offset = offset_of(lat0, lon0, y, x);
    x = offset.east;
    y = offset.north;
  }
  VectorAccess<Vector>::x_changed(*vector);
  return 0;
}

template <class Vector>
int transform_invertx(const char *who, Vector *vector) {
  if (!has_points(who, vector)) return -1;
  for (int i = 0; i < vector->npts; i++) {
    double &x = x_at(*vector, i);
    if (x == 0.0) {
      x = kReciprocalOfZero;
    } else {
      x = x == kReciprocalOfZero ? 0.0 : 1.0 / x;
    }
  }
  VectorAccess<Vector>::x_changed(*vector);
  return 0;
}

template <class Vector>
int transform_spec(const char *who, Vector *vector, int power, int iy) {
  if (!has_points(who, vector)) return -1;
  if (power == 0) return 0;
  if (iy >= vector->ny) {
    return fail(who, "iy too large");
  }
  for (int i = 0; i < vector->npts; i++) {
    const double omega = 2.0 * std::numbers::pi * x_at(*vector, i);
    scale(y_at(*vector, i), iy, vector->ny, power_of(omega, power));
  }
  return 0;
}

template <class Vector>
int transform_ygain(const char *who, Vector *vector, const char *tag, int iy,
                    double gain) {
  if (vector == nullptr) return -1;
  if (gain == 1.0) return 0;
  if (vector->npts < 1) {
    return fail(who, "No points in vector %s", tag);
  }
  if (iy >= vector->ny) {
    return fail(who, "iy too large");
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

}  // namespace ksutil::vectors
#endif
