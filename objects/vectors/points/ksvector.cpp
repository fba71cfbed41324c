#include "objects/ksvector.h"

#include "objects/vectors/points/internal/vector_record.h"

using ksutil::Vectors;

KSVector *ksvector_get_vector(const char *tag) {
  KSVector *const vector = Vectors::get(tag);
  /* The caller may write into the points: what was known about their order is void. */
  if (vector != nullptr) ksutil::x_changed(*vector);
  return vector;
}

int ksvector_free(const char *tag) { return Vectors::free_if_known(tag); }

int ksvector_free_vector(KSVector *vector) { return Vectors::free_record(vector); }

int ksvector_free_tag(const char *name) {
  return Vectors::free_tag("ksvector_free_tag", name);
}

int ksvector_get_heap_size(const char *name, const char *tag, int *count, long *bytes) {
  return Vectors::heap_size("ksvector_get_heap_size", name, tag, count, bytes);
}
