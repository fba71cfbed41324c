/* vector2: makes, grows and frees the records of the ksvector2 family. */
#ifndef KSUTIL_OBJECTS_VECTORS_CACHED_INTERNAL_VECTOR2_H
#define KSUTIL_OBJECTS_VECTORS_CACHED_INTERNAL_VECTOR2_H

#include <cstddef>

#include "objects/family/shared/family.h"
#include "objects/ksvector2.h"
#include "platform/trace/segment.h"

namespace ksutil::vector2 {

/* The family's allocations: those of memory.h, counted. */
void *zeroed(std::size_t count, std::size_t size);
void *resized(void *block, std::size_t bytes);
char *duplicate(const char *text);
void release(void *block);  // null accepted, not counted

/* Whether a record is not null and has the identity field of the family. */
bool is_vector(const ksvector2 *vector);

/* Frees the labels of an unregistered record and puts it into the cache, or frees it. */
void destroy_vector(ksvector2 *vector);

struct Vector2Traits {
  using Record = ksvector2;
  static constexpr char kWord[] = "2vect";
  static constexpr char kGet[] = "ksvector2_get_vector";
  static constexpr char kPlural[] = "vectors";
  static constexpr char kEntering[] = "malloc";
  static constexpr char kListing[] = "malloc";
  static bool is_record(const ksvector2 &vector) { return is_vector(&vector); }
  static const char *name(const ksvector2 &vector) { return vector.name; }
  static void destroy(ksvector2 *vector) { destroy_vector(vector); }
  static long bytes(const ksvector2 &vector) { return vector.heap_size; }
};
using Vectors2 = Family<Vector2Traits>;
using Vector2Ptr = Vectors2::Ptr;

/* Values from one point to the next, and the values of point or sample i. */
inline std::size_t stride(const ksvector2 &vector) {
  return vector.tsamp != 0 ? 1 : static_cast<std::size_t>(vector.nyalloc) + 1;
}
inline double *row(const ksvector2 &vector, int i) {
  return vector.data + static_cast<std::size_t>(i) * stride(vector);
}

/* Gives point i a copy of the label in place of the one that it has; null or "": none.
 * False, with all as it was, when memory is short. */
bool set_label(ksvector2 &vector, int i, const char *label);

/* Inserts a point before point `index`; outside 0..npts-1 at the end.  Unless the result is
 * kYes, the points are unchanged and errno has the cause. */
enum class Inserted { kYes, kNoRoom, kNoLabel };
Inserted insert_point(ksvector2 &vector, int index, double x, const double *y,
                      const char *label);

/* The bytes of an array of `count` points in doubles; -1 if they and a record do not fit
 * into the int members that count them. */
int array_bytes(double count, double values_per_point);

/* Sets the name of a record, cut to fit; null leaves it. */
void set_name(ksvector2 &vector, const char *name);

/* Makes a record with nsamp samples in its array a series. */
void set_series(ksvector2 &vector, int nsamp, double time, double samprate,
                const char *name);

/* ksvector2_create_from_segment, with messages in the name of `who`. */
ksvector2 *create_series(const char *who, const Segment &segment, const char *name,
                         char *tag);

/* Begins a creator: empties the tag buffer (may be null) and opens the registry; false with
 * a message. */
bool begin_creation(const char *who, char *tag);

}  // namespace ksutil::vector2
#endif
