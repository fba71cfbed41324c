#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "objects/vectors/points/internal/vector_record.h"
#include "platform/elog/elog.h"

namespace {

bool is_named(const KSVector &vector, const char *name) {
  return name != nullptr && vector.name != nullptr &&
         std::strcmp(vector.name, name) == 0;
}

}  // namespace

int ksvector_free(const char *tag) {
  KSVector *vector = nullptr;
  {
    const ksutil::ElogScope unheard;
    vector = ksvector_get_vector(tag);
  }
  ksvector_free_vector(vector);
  return 0;
}

int ksvector_free_vector(KSVector *vector) {
  if (vector == nullptr) return 0;
  ksutil::vector_registry().remove(vector);
  ksutil::destroy_vector(vector);
  return 0;
}

int ksvector_free_tag(const char *name) {
  if (name == nullptr) return 0;
  try {
    const std::string group(name);  // which may be that of a vector to be freed
    for (KSVector *const vector : ksutil::vector_registry().records()) {
      if (is_named(*vector, group.c_str())) ksvector_free_vector(vector);
    }
  } catch (const std::bad_alloc &) {
    errno = ENOMEM;
    elog_log(1, "ksvector_free_tag: malloc() error.\n");
  }
  return 0;
}

int ksvector_get_heap_size(const char *name, const char *tag, int *count, long *bytes) {
  *count = 0;
  *bytes = 0;
  if (name == nullptr && tag != nullptr) {
    const KSVector *const vector = ksutil::find_vector("ksvector_get_heap_size", tag);
    if (vector == nullptr) return -1;
    *count = 1;
    *bytes = vector->heap_size;
    return 0;
  }
  try {
    for (const KSVector *const vector : ksutil::vector_registry().records()) {
      if (name != nullptr && !is_named(*vector, name)) continue;
      ++*count;
      *bytes += vector->heap_size;
    }
  } catch (const std::bad_alloc &) {
    errno = ENOMEM;
    elog_log(1, "ksvector_get_heap_size: malloc() error.\n");
    return -1;
  }
  return 0;
}
