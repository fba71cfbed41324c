/* What the files of the ksvector family share: making, growing, finding and registering
 * records. */
#ifndef KSUTIL_OBJECTS_VECTORS_POINTS_INTERNAL_VECTOR_RECORD_H
#define KSUTIL_OBJECTS_VECTORS_POINTS_INTERNAL_VECTOR_RECORD_H

#include <cstdint>
#include <memory>
#include <vector>

#include "objects/family/internal/tag_registry.h"
#include "objects/ksvector.h"
#include "objects/vectors/points/internal/vector_search.h"
#include "platform/stock/memory.h"

/* The y arrays of all slots lie in blocks, one for each growth, that are freed with the
 * vector: after a point was inserted in the middle two slots share an array, so no slot
 * may free its own. */
struct KSVectorStorage : ksutil::SeamAllocated {
  std::vector<ksutil::MallocPtr<double>> blocks;
  ksutil::VectorSearch search;
};

namespace ksutil {

/* Frees a record that is not, or no longer, registered; null accepted. */
void destroy_vector(KSVector *vector);

struct VectorDeleter {
  void operator()(KSVector *vector) const { destroy_vector(vector); }
};
using VectorPtr = std::unique_ptr<KSVector, VectorDeleter>;

/* Slots to allocate for the points that a caller expects: a fifth more, `none` when it
 * expects none; -1 when that is beyond an int. */
int slots_for(long expected, int none);

/* An empty point vector with nalloc slots, ny >= 1; a series of nalloc zero samples, none
 * in use.  Null, with errno set and nothing logged, when memory is short or nalloc is
 * negative; `missing` (may be null) then names what could not be allocated: "vector",
 * "vector->point" or "vector->point.y". */
VectorPtr make_point_vector(int nalloc, int ny, const char *name,
                            const char **missing = nullptr);
VectorPtr make_series(int nalloc, const char *name);

/* Makes room so that nalloc > npts, doubling; false, with the vector as it was and errno
 * set, when memory is short. */
bool grow_vector(KSVector &vector);

/* Room for one point more, and one slot beyond it. */
bool grow_for_one(KSVector &vector);

/* Fills the slot after the last point and counts it; `label` may be null.  There must be
 * a free slot.  False, with errno set, when memory for the label is short. */
bool add_point(KSVector &vector, double x, const double *y, const char *label);

/* Must follow every change of x values: the next evaluation looks at them anew. */
inline void x_changed(KSVector &vector) { vector.storage->search.forget(); }

/* A copy for a slot: null for a null or empty label; false when memory is short. */
bool copy_label(const char *label, MallocPtr<char> &copy);

TagRegistry<KSVector> &vector_registry();

/* The record under a tag; logs the failure in the name of `function` after that of the
 * look-up. */
KSVector *find_vector(const char *function, const char *tag);

/* Makes the registry when there is none yet; logs the failure. */
bool open_vector_registry(const char *function);

/* Hands out a new record, entered under the next tag when `tag` is given.  On failure
 * frees it, logs and returns null. */
KSVector *publish_vector(const char *function, VectorPtr vector, char *tag);

/* For a creator that failed: empties the tag buffer (which may be null). */
KSVector *no_vector(char *tag);

}  // namespace ksutil
#endif
