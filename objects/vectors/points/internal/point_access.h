/* point_access: shows a ksvector to the algorithms of both families. */
#ifndef KSUTIL_OBJECTS_VECTORS_POINTS_INTERNAL_POINT_ACCESS_H
#define KSUTIL_OBJECTS_VECTORS_POINTS_INTERNAL_POINT_ACCESS_H

#include "objects/vectors/points/internal/vector_record.h"
#include "objects/vectors/shared/internal/vector_access.h"

namespace ksutil::vectors {

template <>
struct VectorAccess<KSVector> {
  static bool is_series(const KSVector &vector) { return vector.points == nullptr; }
  static double &x(const KSVector &vector, int i) { return vector.points[i].x; }
  static double *y(const KSVector &vector, int i) { return vector.points[i].y; }
  static const char *label(const KSVector &vector, int i) {
    return vector.points == nullptr ? nullptr : vector.points[i].label;
  }
  static int find_point(const KSVector &vector, bool descending, double x) {
    return vector.storage->search.find(vector.points, vector.npts, descending, x);
  }
  static void x_changed(KSVector &vector) { ksutil::x_changed(vector); }
  static void *zeroed(std::size_t count, std::size_t size) {
    return ks_calloc(count, size);
  }
  static char *duplicate(const char *text) { return ks_strdup(text); }
  static void release(void *block) { std::free(block); }
};

}  // namespace ksutil::vectors
#endif
