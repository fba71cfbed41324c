/* ksvector2_points: grows vectors, and inserts, overwrites and reads their points. */
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include "objects/vectors/cached/internal/vector2.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"

namespace {

using namespace ksutil::vector2;
using ksutil::fail, ksutil::fail_errno;

bool has_point(const ksvector2 &vector, int index) {
  return index >= 0 && index < vector.npts;
}

/* Takes over an array of another size. */
void account_array(ksvector2 &vector, double *data, int bytes) {
  vector.data = data;
  vector.heap_size += bytes - vector.size;
  vector.size = bytes;
}

bool grow_labels(ksvector2 &vector, int nalloc) {
  if (vector.labels == nullptr) return true;
  void *const labels =
      resized(vector.labels, static_cast<std::size_t>(nalloc) * sizeof(char *));
  if (labels == nullptr) return false;
  vector.labels = static_cast<char **>(labels);
  std::fill(vector.labels + vector.nalloc, vector.labels + nalloc, nullptr);
  return true;
}

/* Room for `count` points and one more; with the vector as it was and errno set when
 * memory is short. */
bool make_room(ksvector2 &vector, int count) {
  double wanted = std::max(vector.nalloc, 1);
  while (wanted <= count) wanted *= 2;
  if (wanted == vector.nalloc) return true;
  const int bytes = array_bytes(wanted, static_cast<double>(stride(vector)));
  if (bytes < 0 || bytes - vector.size > INT_MAX - vector.heap_size) {
    errno = ENOMEM;
    return false;
  }
  const int nalloc = static_cast<int>(wanted);
  if (!grow_labels(vector, nalloc)) return false;
  auto *const data =
      static_cast<double *>(resized(vector.data, static_cast<std::size_t>(bytes)));
  if (data == nullptr) return false;
  std::fill(data + static_cast<std::size_t>(vector.nalloc) * stride(vector),
            data + static_cast<std::size_t>(nalloc) * stride(vector), 0.0);
  account_array(vector, data, bytes);
  vector.nalloc = nalloc;
  return true;
}

/* Lays the array out for more y values; the new ones are 0. */
bool widen(ksvector2 &vector, int ny) {
  const int bytes = array_bytes(vector.nalloc, ny + 1.0);
  if (bytes < 0 || bytes - vector.size > INT_MAX - vector.heap_size) {
    errno = ENOMEM;
    return false;
  }
  auto *const data = static_cast<double *>(zeroed(1, static_cast<std::size_t>(bytes)));
  if (data == nullptr) return false;
  const std::size_t wide = static_cast<std::size_t>(ny) + 1;
  for (int i = 0; i < vector.nalloc; ++i) {
    std::copy_n(row(vector, i), static_cast<std::size_t>(vector.ny) + 1,
                data + static_cast<std::size_t>(i) * wide);
  }
  release(vector.data);
  account_array(vector, data, bytes);
  vector.nyalloc = ny;
  return true;
}

/* The label of an existing point; null leaves it. */
bool replace_label(ksvector2 &vector, int index, const char *label,
                   const char *function) {
  if (label == nullptr || vector.tsamp != 0 || set_label(vector, index, label)) {
    return true;
  }
  return fail_errno(function, "strdup() error");
}

void put_values(const ksvector2 &vector, int index, const double *y) {
  double *const to = row(vector, index) + (vector.tsamp != 0 ? 0 : 1);
  std::memmove(to, y, static_cast<std::size_t>(vector.ny) * sizeof(double));
}

}  // namespace

Inserted ksutil::vector2::insert_point(ksvector2 &vector, int index, double x,
                                       const double *y, const char *label) {
  const int end = vector.npts;
  if (end == INT_MAX || !make_room(vector, end + 1)) return Inserted::kNoRoom;
  /* The label is made in the free slot, where a failure harms nothing, and then turned
   * into its place together with the labels that move up. */
  if (!set_label(vector, end, label)) return Inserted::kNoLabel;
  if (!has_point(vector, index)) index = end;
  std::copy_backward(row(vector, index), row(vector, end), row(vector, end + 1));
  if (vector.labels != nullptr) {
    std::rotate(vector.labels + index, vector.labels + end, vector.labels + end + 1);
  }
  row(vector, index)[0] = x;
  put_values(vector, index, y);
  vector.npts++;
  return Inserted::kYes;
}

int ksvector2_resize(const char *tag) {
  ksvector2 *const vector = Vectors2::find("ksvector2_resize", tag);
  if (vector == nullptr) return -1;
  if (make_room(*vector, vector->npts)) return 0;
  return fail_errno("ksvector2_resize", "realloc() error");
}

int ksvector2_resize_y(const char *tag, int ny) {
  ksvector2 *const vector = Vectors2::find("ksvector2_resize_y", tag);
  if (vector == nullptr) return -1;
  if (vector->tsamp != 0) {
    return fail("ksvector2_resize_y", "Cannot resize time sample data");
  }
  if (ny < 1) return fail("ksvector2_resize_y", "Number of y values must be positive");
  if (ny > vector->nyalloc) {
    if (!widen(*vector, ny)) return fail_errno("ksvector2_resize_y", "malloc() error");
  } else if (ny > vector->ny) {
    for (int i = 0; i < vector->nalloc; ++i) {
      std::fill(row(*vector, i) + vector->ny + 1, row(*vector, i) + ny + 1, 0.0);
    }
  }
  vector->ny = ny;
  return 0;
}

int ksvector2_append(const char *tag, int index, const double *y, const char *label,
                     double x) {
  ksvector2 *const vector = Vectors2::find("ksvector2_append", tag);
  if (vector == nullptr) return -1;
  if (vector->tsamp != 0) {
    elog_log(0, "ksvector2_append: Cannot append to time sample vector\n");
    return -1;
  }
  switch (insert_point(*vector, index, x, y, label)) {
    case Inserted::kYes:
      return 0;
    case Inserted::kNoRoom:
      fail_errno("ksvector2_append", "ksvector2_resize() error");
      return -1;
    case Inserted::kNoLabel:
      fail_errno("ksvector2_append", "strdup() error");
      return -1;
  }
  return -1;
}

int ksvector2_put(const char *tag, int index, const double *y, const char *label,
                  double x) {
  ksvector2 *const vector = Vectors2::find("ksvector2_put", tag);
  if (vector == nullptr) return -1;
  if (vector->tsamp != 0) {
    return fail("ksvector2_put", "Cannot put X(time) value for constant sampled data");
  }
  if (!has_point(*vector, index)) {
    elog_log(0, "ksvector2_put: Illegal ix value\n");
    return -1;
  }
  if (!replace_label(*vector, index, label, "ksvector2_put")) return -1;
  row(*vector, index)[0] = x;
  put_values(*vector, index, y);
  return 0;
}

int ksvector2_puty(const char *tag, int index, const double *y, const char *label) {
  ksvector2 *const vector = Vectors2::find("ksvector2_puty", tag);
  if (vector == nullptr) return -1;
  if (!has_point(*vector, index)) {
    elog_log(0, "ksvector2_puty: Illegal ix value\n");
    return -1;
  }
  if (!replace_label(*vector, index, label, "ksvector2_puty")) return -1;
  put_values(*vector, index, y);
  return 0;
}

int ksvector2_get_point(const char *tag, int index, double *x, double *y, char *label) {
  const ksvector2 *const vector = Vectors2::find("ksvector2_get_point", tag);
  if (vector == nullptr) return -1;
  if (!has_point(*vector, index)) {
    elog_log(0, "ksvector2_get_point: Illegal index value\n");
    return -1;
  }
  if (vector->tsamp != 0) {
    *x = vector->time + index * vector->dt;
    *y = vector->data[index];
    return 0;
  }
  *x = row(*vector, index)[0];
  std::copy_n(row(*vector, index) + 1, vector->ny, y);
  if (label != nullptr && vector->labels != nullptr &&
      vector->labels[index] != nullptr) {
    std::strcpy(label, vector->labels[index]);
  }
  return 0;
}
