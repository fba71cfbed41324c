/* vector_copies: copies the points of a vector into new arrays for the caller. */
#ifndef KSUTIL_OBJECTS_VECTORS_SHARED_INTERNAL_VECTOR_COPIES_H
#define KSUTIL_OBJECTS_VECTORS_SHARED_INTERNAL_VECTOR_COPIES_H

#include <algorithm>
#include <memory>

#include "objects/vectors/shared/internal/vector_access.h"
#include "platform/elog/failure.h"

namespace ksutil::vectors {

template <class Vector>
struct Releaser {
  void operator()(void *block) const { VectorAccess<Vector>::release(block); }
};

/* A new array of zeros, or null. */
template <class T, class Vector>
std::unique_ptr<T, Releaser<Vector>> new_array(int n) {
  return std::unique_ptr<T, Releaser<Vector>>(
      static_cast<T *>(VectorAccess<Vector>::zeroed(
          static_cast<std::size_t>(std::max(n, 1)), sizeof(T))));
}

/* Owns an array of blocks, and the blocks, until they are released together. */
template <class T, class Vector>
class BlockArray {
 public:
  explicit BlockArray(int n) : n_(n), blocks_(new_array<T *, Vector>(n)) {}
  ~BlockArray() {
    for (int i = 0; blocks_ != nullptr && i < n_; i++) {
      VectorAccess<Vector>::release(blocks_.get()[i]);
    }
  }
  BlockArray(const BlockArray &) = delete;
  BlockArray &operator=(const BlockArray &) = delete;

  explicit operator bool() const { return blocks_ != nullptr; }
  T *&operator[](int i) { return blocks_.get()[i]; }
  T **release() { return blocks_.release(); }

 private:
  int n_;
  std::unique_ptr<T *, Releaser<Vector>> blocks_;
};

template <class Vector>
auto copy_x(const Vector &vector) {
  auto x = new_array<double, Vector>(vector.npts);
  for (int i = 0; x != nullptr && i < vector.npts; i++) {
    x.get()[i] = is_series(vector) ? vector.time + i * vector.dt : x_at(vector, i);
  }
  return x;
}

template <class Vector>
auto copy_column(const Vector &vector, int iy) {
  auto y = new_array<double, Vector>(vector.npts);
  for (int i = 0; y != nullptr && i < vector.npts; i++) {
    y.get()[i] = is_series(vector) ? vector.data[i] : y_at(vector, i)[iy];
  }
  return y;
}

template <class Vector>
bool copy_labels(const Vector &vector, BlockArray<char, Vector> &copies) {
  for (int i = 0; copies && i < vector.npts; i++) {
    const char *const label = VectorAccess<Vector>::label(vector, i);
    if (label == nullptr) continue;
    copies[i] = VectorAccess<Vector>::duplicate(label);
    if (copies[i] == nullptr) return false;
  }
  return static_cast<bool>(copies);
}

/* Column iy, or an array of all columns when it is below 0. */
template <class Vector>
void *copy_y(const Vector &vector, int iy) {
  if (iy >= 0) return copy_column(vector, iy).release();
  BlockArray<double, Vector> columns(vector.ny);
  for (int j = 0; columns && j < vector.ny; j++) {
    columns[j] = copy_column(vector, j).release();
    if (columns[j] == nullptr) return nullptr;
  }
  return columns.release();
}

template <class Vector>
int get_points(const char *who, const Vector *vector, int *npts, int *iy, double **x,
               void **y, char ***labels) {
  if (vector == nullptr) return -1;
  if (*iy >= vector->ny) {
    return fail(who, "index out of range");
  }
  auto xs = copy_x(*vector);
  BlockArray<char, Vector> texts(labels == nullptr ? 0 : vector->npts);
  const bool labelled = labels == nullptr || copy_labels(*vector, texts);
  void *const ys = xs == nullptr || !labelled ? nullptr : copy_y(*vector, *iy);
  if (ys == nullptr) {
    return fail_memory(who);
  }
  *npts = vector->npts;
  *x = xs.release();
  *y = ys;
  if (labels != nullptr) *labels = texts.release();
  if (*iy < 0) *iy = vector->ny;
  return 0;
}

/* The body of a get_tsamp function. */
template <class Vector>
int get_samples(const char *who, const Vector *vector, int *npts, double *time,
                double *samprate, double **samples) {
  if (vector == nullptr) return -1;
  if (!is_series(*vector)) return fail(who, "Not a time-sampled vector");
  auto copy = copy_column(*vector, 0);
  if (copy == nullptr) return fail_memory(who);
  *npts = vector->npts;
  *time = vector->time;
  *samprate = 1.0 / vector->dt;
  *samples = copy.release();
  return 0;
}

}  // namespace ksutil::vectors
#endif
