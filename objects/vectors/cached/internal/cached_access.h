/* cached_access: shows a ksvector2 to the algorithms of both families. */
#ifndef KSUTIL_OBJECTS_VECTORS_CACHED_INTERNAL_CACHED_ACCESS_H
#define KSUTIL_OBJECTS_VECTORS_CACHED_INTERNAL_CACHED_ACCESS_H

#include "objects/vectors/cached/internal/vector2.h"
#include "objects/vectors/shared/internal/vector_access.h"

namespace ksutil::vectors {

template <>
struct VectorAccess<ksvector2> {
  static bool is_series(const ksvector2 &vector) { return vector.tsamp != 0; }
  static double &x(const ksvector2 &vector, int i) {
    return vector2::row(vector, i)[0];
  }
  static double *y(const ksvector2 &vector, int i) {
    return vector2::row(vector, i) + 1;
  }
  static const char *label(const ksvector2 &vector, int i) {
    return vector.labels == nullptr ? nullptr : vector.labels[i];
  }
  static int find_point(const ksvector2 &vector, bool descending, double x) {
    const int step = descending ? -1 : 1, end = descending ? -1 : vector.npts;
    int i = descending ? vector.npts - 1 : 0;
    while (i != end && !(VectorAccess::x(vector, i) >= x)) i += step;
    return i;
  }
  static void x_changed(ksvector2 & /*vector*/) {}
  static void *zeroed(std::size_t count, std::size_t size) {
    return vector2::zeroed(count, size);
  }
  static char *duplicate(const char *text) { return vector2::duplicate(text); }
  static void release(void *block) { vector2::release(block); }
};

}  // namespace ksutil::vectors
#endif
