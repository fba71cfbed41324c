/* vector_access: lets algorithms be written once for both families of vectors.
 *
 * Each family specialises VectorAccess for its record, beside the record:
 *
 *     template <>
 *     struct VectorAccess<Record> {
 *       static bool is_series(const Record &);             // time-sampled: time, dt, data
 *       static double &x(const Record &, int i);           // of a vector of points
 *       static double *y(const Record &, int i);           // [ny]
 *       static const char *label(const Record &, int i);   // null: none
 *       static int find_point(const Record &, bool descending, double x);  // vector_eval.h
 *       static void x_changed(Record &);                   // x values were written
 *       static void *zeroed(std::size_t count, std::size_t size);          // null: no memory
 *       static char *duplicate(const char *);
 *       static void release(void *);
 *     };
 *
 * Both records have npts, ny and, for series, time, dt and data. */
#ifndef KSUTIL_OBJECTS_VECTORS_SHARED_INTERNAL_VECTOR_ACCESS_H
#define KSUTIL_OBJECTS_VECTORS_SHARED_INTERNAL_VECTOR_ACCESS_H

namespace ksutil::vectors {

template <class Vector>
struct VectorAccess;

template <class Vector>
bool is_series(const Vector &vector) {
  return VectorAccess<Vector>::is_series(vector);
}
template <class Vector>
double &x_at(const Vector &vector, int i) {
  return VectorAccess<Vector>::x(vector, i);
}
template <class Vector>
double *y_at(const Vector &vector, int i) {
  return VectorAccess<Vector>::y(vector, i);
}

}  // namespace ksutil::vectors
#endif
