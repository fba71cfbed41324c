#include <algorithm>
#include <cmath>

#include "objects/internal/vector_record.h"
#include "platform/elog/elog.h"

namespace {

struct Range {
  double low, high;
  void take(double value) {
    if (value < low) low = value;
    if (value > high) high = value;
  }
};

Range x_range(const KSVector &vector) {
  if (vector.points == nullptr) {
    return {vector.time, vector.time + (vector.npts - 1) * vector.dt};
  }
  Range range{vector.points[0].x, vector.points[0].x};
  for (int i = 1; i < vector.npts; i++) range.take(vector.points[i].x);
  return range;
}

/* Of the columns from `first` up to `end`. */
Range y_range(const KSVector &vector, int first, int end) {
  if (vector.points == nullptr) {
    Range range{vector.data[0], vector.data[0]};
    for (int i = 1; i < vector.npts; i++) range.take(vector.data[i]);
    return range;
  }
  Range range{vector.points[0].y[first], vector.points[0].y[first]};
  for (int i = 0; i < vector.npts; i++) {
    const double *const y = vector.points[i].y;
    for (int j = first; j < end; j++) range.take(y[j]);
  }
  return range;
}

int nearest_point(const KSVector &vector, int iy, double x, double y) {
  int nearest = 0;
  double best = 9e99;
  for (int i = 0; i < vector.npts; i++) {
    const double dx = x - vector.points[i].x, dy = y - vector.points[i].y[iy];
    /* The roots are compared, not the squares: they differ for fewer points. */
    const double distance = std::sqrt(dx * dx + dy * dy);
    if (distance < best) {
      best = distance;
      nearest = i;
    }
  }
  return nearest;
}

int nearest_sample(const KSVector &vector, double x) {
  const int last = vector.npts - 1;
  if (x <= vector.time) return 0;
  if (x >= vector.time + last * vector.dt) return last;
  const double index = std::trunc((x - vector.time) / vector.dt);
  /* No number lies nowhere; rounding may reach beyond the last sample. */
  return index >= 0.0 ? static_cast<int>(std::min<double>(index, last)) : 0;
}

}  // namespace

int ksvector_maxmin(const char *tag, int iy, double *xmin, double *xmax, double *ymin,
                    double *ymax) {
  const KSVector *const vector = ksutil::find_vector("ksvector_maxmin", tag);
  if (vector == nullptr) return -1;
  if (vector->npts < 1) {
    elog_log(0, "ksvector_maxmin: No points in vector %s.\n", tag);
    return -1;
  }
  if (vector->points == nullptr && iy > 0) {
    elog_log(0, "ksvector_maxmin: iy out of range.\n");
    return -1;
  }
  if (vector->points != nullptr && iy >= vector->ny) {
    elog_log(0, "ksvector_maxmin: iy too large.\n");
    return -1;
  }
  const Range x = x_range(*vector);
  const Range y =
      iy < 0 ? y_range(*vector, 0, vector->ny) : y_range(*vector, iy, iy + 1);
  *xmin = x.low;
  *xmax = x.high;
  *ymin = y.low;
  *ymax = y.high;
  return 0;
}

int ksvector_nearest(const char *tag, int iy, double x, double y) {
  const KSVector *const vector = ksutil::find_vector("ksvector_nearest", tag);
  if (vector == nullptr) return -2;
  if (vector->npts < 1) {
    elog_log(0, "ksvector_nearest: No points in vector %s.\n", tag);
    return -1;
  }
  if (vector->points != nullptr && iy >= vector->ny) {
    elog_log(0, "ksvector_nearest: iy too large.\n");
    return -3;
  }
  if (iy < 0 || (vector->points == nullptr && iy > 0)) {
    elog_log(0, "ksvector_nearest: iy out of range.\n");
    return -4;
  }
  return vector->points != nullptr ? nearest_point(*vector, iy, x, y)
                                   : nearest_sample(*vector, x);
}
