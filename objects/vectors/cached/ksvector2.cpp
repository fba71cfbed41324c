#include "objects/ksvector2.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "objects/vectors/cached/internal/vector2.h"
#include "platform/elog/elog.h"
#include "platform/stock/memory.h"
#include "platform/stock/text.h"

namespace {

using namespace ksutil::vector2;

const std::size_t kDumpWidth = 128;

/* Copies the points into a vector of the same ny with room for them. */
void copy_points(const ksvector2 &from, ksvector2 &to) {
  const auto values = static_cast<std::size_t>(from.ny) + 1;
  for (int i = 0; i < from.npts; ++i) std::copy_n(row(from, i), values, row(to, i));
  to.npts = from.npts;
}

bool copy_labels(const ksvector2 &from, ksvector2 &to) {
  if (from.labels == nullptr) return true;
  if (ksvector2_make_lblbuf(&to) != 0) {
    elog_log(0, "ksvector2_copy: ksvector2_make_lblbuf() error.\n");
    return false;
  }
  for (int i = 0; i < from.npts; ++i) {
    if (from.labels[i] == nullptr || set_label(to, i, from.labels[i])) continue;
    elog_log(1, "ksvector2_copy: strdup() error.\n");
    return false;
  }
  return true;
}

/* The beginning of a line; what would be cut from it is not printed in the first place. */
std::string dump_line(const ksvector2 &vector, int i) {
  const double *const values = row(vector, i);
  std::string line = ksutil::format_text("%d: %.3f", i, values[0]);
  for (int j = 1; j <= vector.ny && line.size() < kDumpWidth; ++j) {
    line += ksutil::format_text(" %.3f", values[j]);
  }
  if (line.size() > kDumpWidth) line.resize(kDumpWidth);
  return line;
}

/* All registered vectors of a name, or simply all for a null one. */
std::vector<ksvector2 *> named(const char *name) {
  std::vector<ksvector2 *> found = registry().records();
  if (name != nullptr) {
    std::erase_if(found, [name](const ksvector2 *vector) {
      return std::strcmp(vector->name, name) != 0;
    });
  }
  return found;
}

}  // namespace

namespace ksutil::vector2 {

TagRegistry<ksvector2> &registry() {
  /* Never destroyed: vectors may be freed by destructors of other static objects. */
  static auto *const tags = new TagRegistry<ksvector2>("2vect");
  return *tags;
}

bool open_registry(const char *function) {
  if (registry().open()) return true;
  elog_log(1, "%s: newarr() error.\n", function);
  return false;
}

ksvector2 *enter(ksvector2 *vector, const char *name, char *tag, const char *function) {
  if (name != nullptr) {
    const std::size_t length = strnlen(name, sizeof vector->name - 1);
    std::memcpy(vector->name, name, length);
    vector->name[length] = '\0';
  }
  if (tag == nullptr || registry().add(vector, tag)) return vector;
  elog_log(1, "%s: malloc() error.\n", function);
  ksvector2_free_vector(vector);
  return nullptr;
}

ksvector2 *look_up(const char *tag, const char *function) {
  ksvector2 *const vector = ksvector2_get_vector(tag);
  if (vector == nullptr) elog_log(0, "%s: ksvector2_get_vector() error.\n", function);
  return vector;
}

}  // namespace ksutil::vector2

ksvector2 *ksvector2_get_vector(const char *tag) {
  if (!registry().opened()) {
    elog_log(0, "ksvector2_get_vector: No vectors defined");
    return nullptr;
  }
  ksvector2 *const vector = registry().find(tag);
  if (vector == nullptr) {
    elog_log(0, "ksvector2_get_vector: Cannot find %s", tag == nullptr ? "" : tag);
    return nullptr;
  }
  if (!is_vector(vector)) {
    elog_log(0, "ksvector2_get_vector: Wrong ident for %s", tag);
    return nullptr;
  }
  return vector;
}

ksvector2 *ksvector2_create(int npts, int ny, const char *name, char *tag) {
  if (tag != nullptr) tag[0] = '\0';
  if (!open_registry("ksvector2_create")) return nullptr;
  ksvector2 *const vector = ksvector2_find_space(npts, ny, 0);
  if (vector == nullptr) {
    elog_log(0, "ksvector2_create: ksvector2_find_space() error.\n");
    return nullptr;
  }
  return enter(vector, name, tag, "ksvector2_create");
}

ksvector2 *ksvector2_create_tsamp(int nsamp, const double *samples, const char *name,
                                  char *tag, double time, double samprate) {
  if (tag != nullptr) tag[0] = '\0';
  if (!open_registry("ksvector2_create_tsamp")) return nullptr;
  if (!(samprate > 0) || !std::isfinite(samprate)) {
    elog_log(0, "ksvector2_create_tsamp: Sample rate must be positive.\n");
    return nullptr;
  }
  if (nsamp > 0 && samples == nullptr) {
    elog_log(0, "ksvector2_create_tsamp: No samples.\n");
    return nullptr;
  }
  ksvector2 *const vector = ksvector2_find_space(nsamp, 1, 1);
  if (vector == nullptr) {
    elog_log(0, "ksvector2_create_tsamp: ksvector2_find_space() error.\n");
    return nullptr;
  }
  if (nsamp > 0) {
    std::copy_n(samples, nsamp, vector->data);
    vector->npts = nsamp;
  }
  vector->time = time;
  vector->dt = 1.0 / samprate;
  return enter(vector, name, tag, "ksvector2_create_tsamp");
}

ksvector2 *ksvector2_copy(const char *tag, const char *name, char *new_tag) {
  if (new_tag != nullptr) new_tag[0] = '\0';
  const ksvector2 *const source = look_up(tag, "ksvector2_copy");
  if (source == nullptr) return nullptr;
  if (source->tsamp != 0) {
    ksvector2 *const copy = ksvector2_create_tsamp(
        source->npts, source->data, name, new_tag, source->time, 1.0 / source->dt);
    if (copy == nullptr)
      elog_log(0, "ksvector2_copy: ksvector2_create_tsamp() error.\n");
    return copy;
  }
  ksvector2 *const copy = ksvector2_create(source->npts, source->ny, name, new_tag);
  if (copy == nullptr) {
    elog_log(0, "ksvector2_copy: ksvector2_create() error.\n");
    return nullptr;
  }
  copy_points(*source, *copy);
  if (copy_labels(*source, *copy)) return copy;
  ksvector2_free_vector(copy);
  if (new_tag != nullptr) new_tag[0] = '\0';
  return nullptr;
}

int ksvector2_dump(const char *tag) {
  const ksvector2 *const vector = look_up(tag, "ksvector2_dump");
  if (vector == nullptr) return -1;
  if (vector->tsamp != 0) return 0;
  try {
    for (int i = 0; i < vector->npts; ++i) {
      std::puts(dump_line(*vector, i).c_str());
    }
    return 0;
  } catch (const std::bad_alloc &) {
    errno = ENOMEM;
    elog_log(1, "ksvector2_dump: malloc() error.\n");
    return -1;
  }
}

int ksvector2_free(const char *tag) {
  const ksutil::ElogScope discard;
  ksvector2_free_vector(ksvector2_get_vector(tag));
  return 0;
}

int ksvector2_free_tag(const char *name) {
  if (name == nullptr) return 0;
  try {
    for (ksvector2 *vector : named(name)) ksvector2_free_vector(vector);
  } catch (const std::bad_alloc &) {
    errno = ENOMEM;
    elog_log(1, "ksvector2_free_tag: malloc() error.\n");
  }
  return 0;
}

int ksvector2_get_heap_size(const char *name, const char *tag, int *count,
                            long *bytes) {
  *count = 0;
  *bytes = 0;
  if (name == nullptr && tag != nullptr) {
    const ksvector2 *const vector = look_up(tag, "ksvector2_get_heap_size");
    if (vector == nullptr) return -1;
    *count = 1;
    *bytes = vector->heap_size;
    return 0;
  }
  try {
    for (const ksvector2 *vector : named(name)) {
      ++*count;
      *bytes += vector->heap_size;
    }
    return 0;
  } catch (const std::bad_alloc &) {
    errno = ENOMEM;
    elog_log(1, "ksvector2_get_heap_size: malloc() error.\n");
    return -1;
  }
}
