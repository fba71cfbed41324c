#include "objects/ksvector2.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

#include "objects/vectors/cached/internal/vector2.h"
#include "platform/elog/failure.h"
#include "platform/stock/memory.h"
#include "platform/stock/text.h"

using namespace ksutil::vector2;
using ksutil::at_boundary, ksutil::fail;

namespace {

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
    return fail("ksvector2_copy", "ksvector2_make_lblbuf() error");
  }
  for (int i = 0; i < from.npts; ++i) {
    const char *const label = from.labels[i];
    if (label == nullptr) continue;
    if (*label == '\0') {  // set_label would leave it out
      to.labels[i] = duplicate(label);
    } else {
      set_label(to, i, label);
    }
    if (to.labels[i] == nullptr) {
      return ksutil::fail_errno("ksvector2_copy", "strdup() error");
    }
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

}  // namespace

namespace ksutil::vector2 {

void set_name(ksvector2 &vector, const char *name) {
  if (name == nullptr) return;
  const std::size_t length = strnlen(name, sizeof vector.name - 1);
  std::memcpy(vector.name, name, length);
  vector.name[length] = '\0';
}

void set_series(ksvector2 &vector, int nsamp, double time, double samprate,
                const char *name) {
  vector.npts = nsamp;
  vector.time = time;
  vector.dt = 1.0 / samprate;
  set_name(vector, name);
}

bool begin_creation(const char *who, char *tag) {
  Vectors2::none(tag);
  return Vectors2::open(who);
}

}  // namespace ksutil::vector2

ksvector2 *ksvector2_get_vector(const char *tag) { return Vectors2::get(tag); }

ksvector2 *ksvector2_create(int npts, int ny, const char *name, char *tag) {
  const char *const self = "ksvector2_create";
  if (!begin_creation(self, tag)) return nullptr;
  Vector2Ptr vector(ksvector2_find_space(npts, ny, 0));
  if (vector == nullptr) return fail(self, "ksvector2_find_space() error");
  set_name(*vector, name);
  return Vectors2::publish(self, std::move(vector), tag);
}

ksvector2 *ksvector2_create_tsamp(int nsamp, const double *samples, const char *name,
                                  char *tag, double time, double samprate) {
  const char *const self = "ksvector2_create_tsamp";
  if (!begin_creation(self, tag)) return nullptr;
  if (!(samprate > 0) || !std::isfinite(samprate)) {
    return fail(self, "Sample rate must be positive");
  }
  if (nsamp > 0 && samples == nullptr) return fail(self, "No samples");
  Vector2Ptr vector(ksvector2_find_space(nsamp, 1, 1));
  if (vector == nullptr) return fail(self, "ksvector2_find_space() error");
  nsamp = std::max(nsamp, 0);
  std::copy_n(samples, nsamp, vector->data);
  set_series(*vector, nsamp, time, samprate, name);
  return Vectors2::publish(self, std::move(vector), tag);
}

ksvector2 *ksvector2_copy(const char *tag, const char *name, char *new_tag) {
  const char *const self = "ksvector2_copy";
  Vectors2::none(new_tag);
  const ksvector2 *const source = Vectors2::find(self, tag);
  if (source == nullptr) return nullptr;
  if (source->tsamp != 0) {
    ksvector2 *const copy = ksvector2_create_tsamp(
        source->npts, source->data, name, new_tag, source->time, 1.0 / source->dt);
    if (copy == nullptr) fail(self, "ksvector2_create_tsamp() error");
    return copy;
  }
  Vector2Ptr copy(ksvector2_create(source->npts, source->ny, name, new_tag));
  if (copy == nullptr) return fail(self, "ksvector2_create() error");
  copy_points(*source, *copy);
  if (copy_labels(*source, *copy)) return copy.release();
  return Vectors2::none(new_tag);
}

int ksvector2_dump(const char *tag) {
  const ksvector2 *const vector = Vectors2::find("ksvector2_dump", tag);
  if (vector == nullptr) return -1;
  if (vector->tsamp != 0) return 0;
  return at_boundary("ksvector2_dump", [vector] {
    for (int i = 0; i < vector->npts; ++i) {
      std::puts(dump_line(*vector, i).c_str());
    }
    return 0;
  });
}

int ksvector2_free(const char *tag) { return Vectors2::free_if_known(tag); }

int ksvector2_free_tag(const char *name) {
  return Vectors2::free_tag("ksvector2_free_tag", name);
}

int ksvector2_get_heap_size(const char *name, const char *tag, int *count,
                            long *bytes) {
  return Vectors2::heap_size("ksvector2_get_heap_size", name, tag, count, bytes);
}
