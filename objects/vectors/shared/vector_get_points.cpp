/* Copies of all points, for callers that work on arrays, from both families of vectors. */
#include <algorithm>

#include "objects/vectors/shared/internal/vector_access.h"
#include "platform/elog/elog.h"

namespace {

using ksutil::is_series, ksutil::x_at, ksutil::y_at;

/* The allocations of a family. */
template <class Vector>
struct Memory;
template <>
struct Memory<KSVector> {
  static constexpr auto zeroed = ks_calloc;
  static constexpr auto duplicate = ks_strdup;
  static void release(void *block) { std::free(block); }
};
template <>
struct Memory<ksvector2> {
  static constexpr auto zeroed = ksutil::vector2::zeroed;
  static constexpr auto duplicate = ksutil::vector2::duplicate;
  static constexpr auto release = ksutil::vector2::release;
};

template <class Vector>
struct Releaser {
  void operator()(void *block) const { Memory<Vector>::release(block); }
};

/* A new array of zeros, or null. */
template <class T, class Vector>
std::unique_ptr<T, Releaser<Vector>> new_array(int n) {
  return std::unique_ptr<T, Releaser<Vector>>(static_cast<T *>(
      Memory<Vector>::zeroed(static_cast<std::size_t>(std::max(n, 1)), sizeof(T))));
}

/* Owns an array of blocks, and the blocks, until they are released together. */
template <class T, class Vector>
class BlockArray {
 public:
  explicit BlockArray(int n) : n_(n), blocks_(new_array<T *, Vector>(n)) {}
  ~BlockArray() {
    for (int i = 0; blocks_ != nullptr && i < n_; i++) {
      Memory<Vector>::release(blocks_.get()[i]);
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

const char *label_at(const KSVector &vector, int i) {
  return vector.points == nullptr ? nullptr : vector.points[i].label;
}
const char *label_at(const ksvector2 &vector, int i) {
  return vector.labels == nullptr ? nullptr : vector.labels[i];
}

template <class Vector>
bool copy_labels(const Vector &vector, BlockArray<char, Vector> &copies) {
  for (int i = 0; copies && i < vector.npts; i++) {
    const char *const label = label_at(vector, i);
    if (label == nullptr) continue;
    copies[i] = Memory<Vector>::duplicate(label);
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
int get_points(const char *function, const Vector *vector, int *npts, int *iy,
               double **x, void **y, char ***labels) {
  if (vector == nullptr) return -1;
  if (*iy >= vector->ny) {
    elog_log(0, "%s: index out of range.\n", function);
    return -1;
  }
  auto xs = copy_x(*vector);
  BlockArray<char, Vector> texts(labels == nullptr ? 0 : vector->npts);
  const bool labelled = labels == nullptr || copy_labels(*vector, texts);
  void *const ys = xs == nullptr || !labelled ? nullptr : copy_y(*vector, *iy);
  if (ys == nullptr) {
    elog_log(1, "%s: malloc() error.\n", function);
    return -1;
  }
  *npts = vector->npts;
  *x = xs.release();
  *y = ys;
  if (labels != nullptr) *labels = texts.release();
  if (*iy < 0) *iy = vector->ny;
  return 0;
}

}  // namespace

int ksvector_get_points(const char *tag, int *npts, int *iy, double **x, void **y,
                        char ***labels) {
  const char *const self = "ksvector_get_points";
  return get_points(self, ksutil::find_vector(self, tag), npts, iy, x, y, labels);
}

int ksvector2_get_points(const char *tag, int *npts, int *iy, double **x, void **y,
                         char ***labels) {
  const char *const self = "ksvector2_get_points";
  return get_points(self, ksutil::vector2::look_up(tag, self), npts, iy, x, y, labels);
}

int ksvector2_get_tsamp(const char *tag, int *npts, double *time, double *samprate,
                        double **samples) {
  const ksvector2 *const vector = ksutil::vector2::look_up(tag, "ksvector2_get_tsamp");
  if (vector == nullptr) return -1;
  if (!is_series(*vector)) {
    elog_log(0, "ksvector2_get_tsamp: Not a time-sampled vector.\n");
    return -1;
  }
  auto copy = copy_column(*vector, 0);
  if (copy == nullptr) {
    elog_log(1, "ksvector2_get_tsamp: malloc() error.\n");
    return -1;
  }
  *npts = vector->npts;
  *time = vector->time;
  *samprate = 1.0 / vector->dt;
  *samples = copy.release();
  return 0;
}
