/* Extremes and the nearest point, of both families of vectors. */
#include <algorithm>
#include <cmath>
#include <limits>

#include "objects/vectors/shared/internal/vector_access.h"
#include "platform/elog/elog.h"

namespace {

using ksutil::is_series, ksutil::x_at, ksutil::y_at;

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

/* Of the columns from `first` up to `end`. */
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

/* The extremes of the points from `low` to `high` with a value in one of the columns from
 * `first` up to `end`; a gap and NaN are none. */
template <class Vector>
void ranges_within(const Vector &vector, int first, int end, const Range &window,
                   Range &xs, Range &ys) {
  const bool series = is_series(vector);
  for (int i = 0; i < vector.npts; i++) {
    const double x = series ? vector.time + i * vector.dt : x_at(vector, i);
    if (!(x >= window.low && x <= window.high)) continue;
    const double *const y = series ? vector.data + i : y_at(vector, i);
    for (int j = first; j < end; j++) {
      if (std::isnan(y[j]) || (series && y[j] > ksutil::kLargestSample)) continue;
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
    /* The roots are compared, not the squares: they differ for fewer points. */
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
  /* No number lies nowhere; rounding may reach beyond the last sample. */
  return index >= 0.0 ? static_cast<int>(std::min<double>(index, last)) : 0;
}

/* Whether there are points and column iy of them (below 0: all); logs why not. */
template <class Vector>
bool has_column(const char *function, const Vector &vector, const char *tag, int iy) {
  if (vector.npts < 1) {
    elog_log(0, "%s: No points in vector %s.\n", function, tag);
    return false;
  }
  if (is_series(vector) && iy > 0) {
    elog_log(0, "%s: iy out of range.\n", function);
    return false;
  }
  if (iy >= vector.ny) {
    elog_log(0, "%s: iy too large.\n", function);
    return false;
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
int maxmin(const char *function, const Vector *vector, const char *tag, int iy,
           const Extremes &extremes) {
  if (vector == nullptr || !has_column(function, *vector, tag, iy)) return -1;
  extremes.give(x_range(*vector), iy < 0 ? y_range(*vector, 0, vector->ny)
                                         : y_range(*vector, iy, iy + 1));
  return 0;
}

template <class Vector>
int nearest(const char *function, const Vector *vector, const char *tag, int iy,
            double x, double y) {
  if (vector == nullptr) return -2;
  if (vector->npts < 1) {
    elog_log(0, "%s: No points in vector %s.\n", function, tag);
    return -1;
  }
  if (!is_series(*vector) && iy >= vector->ny) {
    elog_log(0, "%s: iy too large.\n", function);
    return -3;
  }
  if (iy < 0 || (is_series(*vector) && iy > 0)) {
    elog_log(0, "%s: iy out of range.\n", function);
    return -4;
  }
  return is_series(*vector) ? nearest_sample(*vector, x)
                            : nearest_point(*vector, iy, x, y);
}

}  // namespace

int ksvector_maxmin(const char *tag, int iy, double *xmin, double *xmax, double *ymin,
                    double *ymax) {
  const char *const self = "ksvector_maxmin";
  return maxmin(self, ksutil::find_vector(self, tag), tag, iy,
                {xmin, xmax, ymin, ymax});
}

int ksvector2_maxmin(const char *tag, int iy, double *xmin, double *xmax, double *ymin,
                     double *ymax) {
  const char *const self = "ksvector2_maxmin";
  return maxmin(self, ksutil::vector2::look_up(tag, self), tag, iy,
                {xmin, xmax, ymin, ymax});
}

int ksvector2_maxmin2(const char *tag, int iy, double x0, double x1, double *xmin,
                      double *xmax, double *ymin, double *ymax) {
  const char *const self = "ksvector2_maxmin2";
  const ksvector2 *const vector = ksutil::vector2::look_up(tag, self);
  if (vector == nullptr || !has_column(self, *vector, tag, iy)) return -1;
  Range xs, ys;
  ranges_within(*vector, iy < 0 ? 0 : iy, iy < 0 ? vector->ny : iy + 1,
                {std::min(x0, x1), std::max(x0, x1)}, xs, ys);
  if (ys.low > ys.high) return 1;
  Extremes{xmin, xmax, ymin, ymax}.give(xs, ys);
  return 0;
}

int ksvector_nearest(const char *tag, int iy, double x, double y) {
  const char *const self = "ksvector_nearest";
  return nearest(self, ksutil::find_vector(self, tag), tag, iy, x, y);
}

int ksvector2_nearest(const char *tag, int iy, double x, double y) {
  const char *const self = "ksvector2_nearest";
  return nearest(self, ksutil::vector2::look_up(tag, self), tag, iy, x, y);
}
