#include <algorithm>
#include <cstring>

#include "objects/vectors/points/internal/vector_record.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"

using ksutil::fail, ksutil::fail_errno;
using ksutil::MallocPtr;
using ksutil::Vectors;

namespace {

bool has_point(const KSVector &vector, int index) {
  return index >= 0 && index < vector.npts;
}

/* Replaces the label of a point unless it is null; an empty one removes it. */
bool replace_label(const char *function, KSVectorPoint &point, const char *label) {
  if (label == nullptr) return true;
  MallocPtr<char> copy;
  if (!ksutil::copy_label(label, copy)) return fail_errno(function, "strdup() error");
  std::free(point.label);
  point.label = copy.release();
  return true;
}

/* The values may be those of a point of the same vector. */
void put_values(const KSVector &vector, double *to, const double *from) {
  std::memmove(to, from, static_cast<std::size_t>(vector.ny) * sizeof(double));
}

}  // namespace

int ksvector_resize(const char *tag) {
  KSVector *const vector = Vectors::find("ksvector_resize", tag);
  if (vector == nullptr) return -1;
  if (ksutil::grow_vector(*vector)) return 0;
  return fail_errno("ksvector_resize", "realloc() error");
}

int ksvector_append(const char *tag, int index, const double *y, const char *label,
                    double x) {
  KSVector *const vector = Vectors::find("ksvector_append", tag);
  if (vector == nullptr) return -1;
  if (vector->points == nullptr) {
    elog_log(0, "ksvector_append: Cannot append to time sample vector\n");
    return -1;
  }
  MallocPtr<char> copy;
  if (!ksutil::copy_label(label, copy)) {
    return fail_errno("ksvector_append", "strdup() error");
  }
  if (!ksutil::grow_for_one(*vector)) {
    fail_errno("ksvector_resize", "realloc() error");
    return fail_errno("ksvector_append", "ksvector_resize() error");
  }
  if (!has_point(*vector, index)) index = vector->npts;
  /* Whole slots move, so slots `index` and `index` + 1 come to share one y array: the new
   * values show in both.  Only the label is the moved point's alone.  A free slot may hold
   * a label when somebody lowered npts. */
  KSVectorPoint *const slot = vector->points + index;
  KSVectorPoint *const end = vector->points + vector->npts;
  std::free(end->label);
  std::copy_backward(slot, end, end + 1);
  slot->x = x;
  put_values(*vector, slot->y, y);
  slot->label = copy.release();
  vector->npts++;
  ksutil::x_changed(*vector);
  return 0;
}

int ksvector_put(const char *tag, int index, const double *y, const char *label,
                 double x) {
  KSVector *const vector = Vectors::find("ksvector_put", tag);
  if (vector == nullptr) return -1;
  if (vector->points == nullptr) {
    return fail("ksvector_put", "Cannot put X(time) value for constant sampled data");
  }
  if (!has_point(*vector, index)) {
    elog_log(0, "ksvector_put: Illegal ix value\n");
    return -1;
  }
  KSVectorPoint &point = vector->points[index];
  if (!replace_label("ksvector_put", point, label)) return -1;
  point.x = x;
  put_values(*vector, point.y, y);
  ksutil::x_changed(*vector);
  return 0;
}

int ksvector_puty(const char *tag, int index, const double *y, const char *label) {
  KSVector *const vector = Vectors::find("ksvector_puty", tag);
  if (vector == nullptr) return -1;
  if (!has_point(*vector, index)) {
    elog_log(0, "ksvector_puty: Illegal ix value\n");
    return -1;
  }
  if (vector->points == nullptr) {
    vector->data[index] = *y;
    return 0;
  }
  KSVectorPoint &point = vector->points[index];
  if (!replace_label("ksvector_puty", point, label)) return -1;
  put_values(*vector, point.y, y);
  return 0;
}

int ksvector_get_point(const char *tag, int index, double *x, double *y, char *label) {
  const KSVector *const vector = Vectors::find("ksvector_get_point", tag);
  if (vector == nullptr) return -1;
  if (!has_point(*vector, index)) {
    elog_log(0, "ksvector_get_point: Illegal index value\n");
    return -1;
  }
  if (vector->points == nullptr) {
    *x = vector->time + index * vector->dt;
    *y = vector->data[index];
    return 0;
  }
  const KSVectorPoint &point = vector->points[index];
  *x = point.x;
  std::copy_n(point.y, vector->ny, y);
  if (label != nullptr && point.label != nullptr) std::strcpy(label, point.label);
  return 0;
}
