/* vector_record: makes, grows and frees the records of the ksvector family. */
#ifndef KSUTIL_OBJECTS_VECTORS_POINTS_INTERNAL_VECTOR_RECORD_H
#define KSUTIL_OBJECTS_VECTORS_POINTS_INTERNAL_VECTOR_RECORD_H

#include <cstdint>
#include <memory>
#include <vector>

#include "objects/family/shared/family.h"
#include "objects/ksvector.h"
#include "objects/vectors/points/internal/vector_search.h"
#include "platform/stock/memory.h"
#include "platform/trace/segment.h"

/* The y arrays of all slots lie in blocks, one for each growth, that are freed with the
 * vector: after a point was inserted in the middle two slots share an array, so no slot
 * may free its own. */
struct KSVectorStorage : ksutil::SeamAllocated {
  std::vector<ksutil::MallocPtr<double>> blocks;
  ksutil::VectorSearch search;
};

namespace ksutil {

/* Frees a record that is not registered; null accepted. */
void destroy_vector(KSVector *vector);

struct VectorTraits {
  using Record = KSVector;
  static constexpr char kWord[] = "vect";
  static constexpr char kGet[] = "ksvector_get_vector";
  static constexpr char kPlural[] = "vectors";
  static constexpr char kEntering[] = "setarr";
  static constexpr char kListing[] = "malloc";
  static bool is_record(const KSVector &vector);
  static const char *name(const KSVector &vector) { return vector.name; }
  static void destroy(KSVector *vector) { destroy_vector(vector); }
  static std::int64_t bytes(const KSVector &vector) { return vector.heap_size; }
};
using Vectors = Family<VectorTraits>;
using VectorPtr = Vectors::Ptr;

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

/* ksvector_create_from_segment, with messages in the name of `who`. */
KSVector *create_series(const char *who, const Segment &segment, const char *name,
                        char *tag);

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

}  // namespace ksutil
#endif
