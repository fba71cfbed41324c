#include "objects/vectors/points/internal/vector_record.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

namespace ksutil {
namespace {

constexpr char kIdent[8] = "ksvec";
constexpr std::int64_t kValueSize = sizeof(double);

VectorPtr make_record(int ny, const char *name) {
  VectorPtr vector(static_cast<KSVector *>(ks_calloc(1, sizeof(KSVector))));
  if (vector == nullptr) return nullptr;
  std::copy_n(kIdent, sizeof kIdent, vector->ident);
  vector->ny = ny;
  vector->heap_size = sizeof(KSVector);
  vector->storage = new (std::nothrow) KSVectorStorage;
  if (vector->storage == nullptr) return nullptr;
  if (name != nullptr) {
    vector->name = ks_strdup(name);
    if (vector->name == nullptr) return nullptr;
    vector->heap_size += static_cast<std::int64_t>(std::strlen(name)) + 1;
  }
  return vector;
}

/* Zeroed; null for a negative number, which stands for one beyond an int. */
template <class Slot>
Slot *allocate_slots(int n) {
  if (n >= 0)
    return static_cast<Slot *>(ks_calloc(static_cast<std::size_t>(n), sizeof(Slot)));
  errno = ENOMEM;
  return nullptr;
}

std::int64_t slot_bytes(const KSVector &vector) {
  if (vector.points == nullptr) return kValueSize;
  return static_cast<std::int64_t>(sizeof(KSVectorPoint)) + vector.ny * kValueSize;
}

/* Gives the empty slots from `first` up to `end` a zeroed y array each. */
bool add_y_arrays(KSVector &vector, KSVectorPoint *points, int first, int end) {
  const auto ny = static_cast<std::size_t>(vector.ny);
  MallocPtr<double> block(static_cast<double *>(
      ks_calloc(static_cast<std::size_t>(end - first), ny * sizeof(double))));
  if (block == nullptr) return false;
  double *y = block.get();
  try {
    vector.storage->blocks.push_back(std::move(block));
  } catch (const std::bad_alloc &) {
    errno = ENOMEM;
    return false;
  }
  for (int i = first; i < end; i++, y += ny) points[i] = {0.0, y, nullptr};
  return true;
}

bool grow_points(KSVector &vector, int nalloc) {
  void *const points = ks_realloc(
      vector.points, static_cast<std::size_t>(nalloc) * sizeof(KSVectorPoint));
  if (points == nullptr) return false;
  vector.points = static_cast<KSVectorPoint *>(points);
  return add_y_arrays(vector, vector.points, vector.nalloc, nalloc);
}

bool grow_samples(KSVector &vector, int nalloc) {
  void *const data =
      ks_realloc(vector.data, static_cast<std::size_t>(nalloc) * sizeof(double));
  if (data == nullptr) return false;
  vector.data = static_cast<double *>(data);
  std::fill(vector.data + vector.nalloc, vector.data + nalloc, 0.0);
  return true;
}

}  // namespace

bool VectorTraits::is_record(const KSVector &vector) {
  return std::memcmp(vector.ident, kIdent, sizeof kIdent) == 0;
}

void destroy_vector(KSVector *vector) {
  if (vector == nullptr) return;
  if (vector->points != nullptr) {
    for (int i = 0; i < vector->nalloc; i++) std::free(vector->points[i].label);
  }
  std::free(vector->points);
  std::free(vector->data);
  std::free(vector->name);
  delete vector->storage;
  std::free(vector);
}

int slots_for(long expected, int none) {
  if (expected <= 0) return none;
  const double slots = 1.2 * static_cast<double>(expected);
  return slots > std::numeric_limits<int>::max() ? -1 : static_cast<int>(slots);
}

VectorPtr make_point_vector(int nalloc, int ny, const char *name,
                            const char **missing) {
  const char *unheard = nullptr;
  const char *&part = missing != nullptr ? *missing : unheard;
  part = "vector";
  VectorPtr vector = make_record(ny, name);
  if (vector == nullptr) return nullptr;
  part = "vector->point";
  vector->points = allocate_slots<KSVectorPoint>(nalloc);
  if (vector->points == nullptr) return nullptr;
  part = "vector->point.y";
  if (!add_y_arrays(*vector, vector->points, 0, nalloc)) return nullptr;
  vector->nalloc = nalloc;
  vector->heap_size += nalloc * slot_bytes(*vector);
  return vector;
}

VectorPtr make_series(int nalloc, const char *name) {
  VectorPtr vector = make_record(1, name);
  if (vector == nullptr) return nullptr;
  vector->data = allocate_slots<double>(nalloc);
  if (vector->data == nullptr) return nullptr;
  vector->nalloc = nalloc;
  vector->heap_size += nalloc * slot_bytes(*vector);
  return vector;
}

bool grow_vector(KSVector &vector) {
  x_changed(vector);
  std::int64_t wanted = vector.nalloc;
  while (vector.npts >= wanted) wanted = std::max<std::int64_t>(1, 2 * wanted);
  if (wanted == vector.nalloc) return true;
  if (wanted > std::numeric_limits<int>::max()) {
    errno = ENOMEM;
    return false;
  }
  const int nalloc = static_cast<int>(wanted);
  const bool grown = vector.points != nullptr ? grow_points(vector, nalloc)
                                              : grow_samples(vector, nalloc);
  if (!grown) return false;
  vector.heap_size += (nalloc - vector.nalloc) * slot_bytes(vector);
  vector.nalloc = nalloc;
  return true;
}

bool grow_for_one(KSVector &vector) {
  if (vector.npts == std::numeric_limits<int>::max()) {
    errno = ENOMEM;
    return false;
  }
  vector.npts++;
  const bool grown = grow_vector(vector);
  vector.npts--;
  return grown;
}

bool add_point(KSVector &vector, double x, const double *y, const char *label) {
  MallocPtr<char> copy;
  if (!copy_label(label, copy)) return false;
  KSVectorPoint &slot = vector.points[vector.npts];
  slot.x = x;
  std::copy_n(y, vector.ny, slot.y);
  std::free(slot.label);
  slot.label = copy.release();
  vector.npts++;
  x_changed(vector);
  return true;
}

bool copy_label(const char *label, MallocPtr<char> &copy) {
  if (label == nullptr || *label == '\0') return true;
  copy.reset(ks_strdup(label));
  return copy != nullptr;
}

}  // namespace ksutil
