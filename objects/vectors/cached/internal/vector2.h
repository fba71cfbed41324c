/* What the sources of the ksvector2 family share. */
#ifndef KSUTIL_OBJECTS_VECTORS_CACHED_INTERNAL_VECTOR2_H
#define KSUTIL_OBJECTS_VECTORS_CACHED_INTERNAL_VECTOR2_H

#include <cstddef>

#include "objects/family/internal/tag_registry.h"
#include "objects/ksvector2.h"

namespace ksutil::vector2 {

/* The family's allocations: those of memory.h, counted. */
void *zeroed(std::size_t count, std::size_t size);
void *resized(void *block, std::size_t bytes);
char *duplicate(const char *text);
void release(void *block);  // null accepted, not counted

TagRegistry<ksvector2> &registry();

bool is_vector(const ksvector2 *vector);

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
 * kYes, the points are as they were and errno tells why. */
enum class Inserted { kYes, kNoRoom, kNoLabel };
Inserted insert_point(ksvector2 &vector, int index, double x, const double *y,
                      const char *label);

/* The bytes of an array of `count` points in doubles, where they and a record fit into
 * the int members that count them; else -1. */
int array_bytes(double count, double values_per_point);

/* Names the record and registers it when there is a tag buffer; frees it and gives null,
 * with a message of `function`, when memory is short.  The registry must be open. */
ksvector2 *enter(ksvector2 *vector, const char *name, char *tag, const char *function);

/* Opens the registry; false, with a message of `function`, when memory is short. */
bool open_registry(const char *function);

/* ksvector2_get_vector, with a message of `function` after its own. */
ksvector2 *look_up(const char *tag, const char *function);

}  // namespace ksutil::vector2
#endif
