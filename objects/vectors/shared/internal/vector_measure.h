/* vector_measure: finds the extremes of a vector and the point nearest to a place. */
#ifndef KSUTIL_OBJECTS_VECTORS_SHARED_INTERNAL_VECTOR_MEASURE_H
#define KSUTIL_OBJECTS_VECTORS_SHARED_INTERNAL_VECTOR_MEASURE_H

#include <algorithm>
#include <cmath>
#include <limits>

#include "objects/vectors/shared/internal/vector_access.h"
#include "platform/elog/failure.h"
#include "platform/trace/trace.h"

namespace ksutil::vectors {

struct Range {
  double low = std::numeric_limits<double>::infinity(), high = -low;
  void take(double value) {
    if (value < low) low = value;
    if (value > high) high = value;
  }
};

template <class Vector>
Range x_range(const Vector &vector) {
  if (is_series(vector)) {
    return {vector.time, vector.time + (vector.npts - 1) * vector.dt};
  }
  Range range{x_at(vector, 0), x_at(vector, 0)};
  for (int i = 1; i < vector.npts; i++) range.take(x_at(vector, i));
  return range;
}

/* Of the columns `first` to `end` - 1. */
template <class Vector>
Range y_range(const Vector &vector, int first, int end) {
  if (is_series(vector)) {
    Range range{vector.data[0], vector.data[0]};
    for (int i = 1; i < vector.npts; i++) range.take(vector.data[i]);
    return range;
  }
  Range range{y_at(vector, 0)[first], y_at(vector, 0)[first]};
  for (int i = 0; i < vector.npts; i++) {
    const double *const y = y_at(vector, i);
    for (int j = first; j < end; j++) range.take(y[j]);
  }
  return range;
}

/* The extremes over the points within the window that have a value in a column from
 * `first` to `end` - 1; a gap and NaN are not values. */
template <class Vector>
void ranges_within(const Vector &vector, int first, int end, const Range &window,
                   Range &xs, Range &ys) {
  const bool series = is_series(vector);
  for (int i = 0; i < vector.npts; i++) {
    const double x = series ? vector.time + i * vector.dt : x_at(vector, i);
    if (!(x >= window.low && x <= window.high)) continue;
    const double *const y = series ? vector.data + i : y_at(vector, i);
    for (int j = first; j < end; j++) {
      if (std::isnan(y[j]) || (series && is_gap_sample(y[j]))) continue;
      xs.take(x);
      ys.take(y[j]);
    }
  }
}

template <class Vector>
int nearest_point(const Vector &vector, int iy, double x, double y) {
  int nearest = 0;
  double best = 9e99;
  for (int i = 0; i < vector.npts; i++) {
    const double dx = x - x_at(vector, i), dy = y - y_at(vector, i)[iy];
    /* Roots are compared, not squares: rounding makes more of them equal. */
    const double distance = std::sqrt(dx * dx + dy * dy);
    if (distance < best) {
      best = distance;
      nearest = i;
    }
  }
  return nearest;
}

template <class Vector>
int nearest_sample(const Vector &vector, double x) {
  const int last = vector.npts - 1;
  if (x <= vector.time) return 0;
  if (x >= vector.time + last * vector.dt) return last;
  const double index = std::trunc((x - vector.time) / vector.dt);
  /* NaN is nowhere; rounding may reach beyond the last sample. */
  return index >= 0.0 ? static_cast<int>(std::min<double>(index, last)) : 0;
}

/* Whether the vector has points and column iy (below 0: all); a message if not. */
template <class Vector>
bool has_column(const char *who, const Vector &vector, const char *tag, int iy) {
  if (vector.npts < 1) {
    return fail(who, "No points in vector %s", tag);
  }
  if (is_series(vector) && iy > 0) {
    return fail(who, "iy out of range");
  }
  if (iy >= vector.ny) {
    return fail(who, "iy too large");
  }
  return true;
}

struct Extremes {
  double *xmin, *xmax, *ymin, *ymax;
  void give(const Range &x, const Range &y) const {
    *xmin = x.low;
    *xmax = x.high;
    *ymin = y.low;
    *ymax = y.high;
  }
};

template <class Vector>
int maxmin(const char *who, const Vector *vector, const char *tag, int iy,
           const Extremes &extremes) {
  if (vector == nullptr || !has_column(who, *vector, tag, iy)) return -1;
  extremes.give(x_range(*vector), iy < 0 ? y_range(*vector, 0, vector->ny)
                                         : y_range(*vector, iy, iy + 1));
  return 0;
}

template <class Vector>
int nearest(const char *who, const Vector *vector, const char *tag, int iy, double x,
            double y) {
  if (vector == nullptr) return -2;
  if (vector->npts < 1) {
    return fail(who, "No points in vector %s", tag);
  }
  if (!is_series(*vector) && iy >= vector->ny) {
    fail(who, "iy too large");
    return -3;
  }
  if (iy < 0 || (is_series(*vector) && iy > 0)) {
    fail(who, "iy out of range");
    return -4;
  }
  return is_series(*vector) ? nearest_sample(*vector, x)
                            : nearest_point(*vector, iy, x, y);
}

/* The body of maxmin2: the points with x from x0 to x1, in either order. */
template <class Vector>
int maxmin_within(const char *who, const Vector *vector, const char *tag, int iy,
                  double x0, double x1, const Extremes &extremes) {
  if (vector == nullptr || !has_column(who, *vector, tag, iy)) return -1;
  Range xs, ys;
  ranges_within(*vector, iy < 0 ? 0 : iy, iy < 0 ? vector->ny : iy + 1,
                {std::min(x0, x1), std::max(x0, x1)}, xs, ys);
  if (ys.low > ys.high) return 1;
  extremes.give(xs, ys);
  return 0;
}

}  // namespace ksutil::vectors
#endif
