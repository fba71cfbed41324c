/* One way to the points of both families of vectors, for what is written once for them.
 * Both records have npts, ny and, for series, time, dt and data. */
#ifndef KSUTIL_OBJECTS_VECTORS_SHARED_INTERNAL_VECTOR_ACCESS_H
#define KSUTIL_OBJECTS_VECTORS_SHARED_INTERNAL_VECTOR_ACCESS_H

#include "objects/vectors/cached/internal/vector2.h"
#include "objects/vectors/points/internal/vector_record.h"

namespace ksutil {

/* A sample above it is a gap. */
constexpr double kLargestSample = 1e30;

inline bool is_series(const KSVector &vector) { return vector.points == nullptr; }
inline bool is_series(const ksvector2 &vector) { return vector.tsamp != 0; }

/* Of a vector of points: x, and the y values, of point i. */
inline double &x_at(const KSVector &vector, int i) { return vector.points[i].x; }
inline double &x_at(const ksvector2 &vector, int i) {
  return vector2::row(vector, i)[0];
}
inline double *y_at(const KSVector &vector, int i) { return vector.points[i].y; }
inline double *y_at(const ksvector2 &vector, int i) {
  return vector2::row(vector, i) + 1;
}

}  // namespace ksutil
#endif
