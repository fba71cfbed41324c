#include <algorithm>
#include <cerrno>
#include <utility>

#include "objects/internal/vector_record.h"
#include "platform/elog/elog.h"

using ksutil::FreeDeleter;
using ksutil::MallocPtr;

namespace {

/* Owns an array of malloced blocks, and the blocks, until both are released together. */
template <class T>
class BlockArray {
 public:
  explicit BlockArray(int n) : n_(n) {
    blocks_.reset(
        static_cast<T **>(ks_calloc(static_cast<std::size_t>(n), sizeof(T *))));
  }
  ~BlockArray() {
    for (int i = 0; blocks_ != nullptr && i < n_; i++) std::free(blocks_.get()[i]);
  }
  BlockArray(const BlockArray &) = delete;
  BlockArray &operator=(const BlockArray &) = delete;

  explicit operator bool() const { return blocks_ != nullptr; }
  T *&operator[](int i) { return blocks_.get()[i]; }
  T **release() { return blocks_.release(); }

 private:
  int n_;
  MallocPtr<T *> blocks_;
};

double *new_doubles(int n) {
  return static_cast<double *>(ks_malloc(static_cast<std::size_t>(n) * sizeof(double)));
}

double *copy_x(const KSVector &vector) {
  double *const x = new_doubles(vector.npts);
  for (int i = 0; x != nullptr && i < vector.npts; i++) {
    x[i] = vector.points != nullptr ? vector.points[i].x : vector.time + i * vector.dt;
  }
  return x;
}

double *copy_column(const KSVector &vector, int iy) {
  double *const y = new_doubles(vector.npts);
  if (y == nullptr) return nullptr;
  if (vector.points == nullptr) {
    std::copy_n(vector.data, vector.npts, y);
  } else {
    for (int i = 0; i < vector.npts; i++) y[i] = vector.points[i].y[iy];
  }
  return y;
}

bool copy_columns(const KSVector &vector, int ny, BlockArray<double> &columns) {
  for (int iy = 0; columns && iy < ny; iy++) {
    columns[iy] = copy_column(vector, iy);
    if (columns[iy] == nullptr) return false;
  }
  return static_cast<bool>(columns);
}

bool copy_labels(const KSVector &vector, BlockArray<char> &labels) {
  if (!labels) return false;
  for (int i = 0; vector.points != nullptr && i < vector.npts; i++) {
    MallocPtr<char> label;
    if (!ksutil::copy_label(vector.points[i].label, label)) return false;
    labels[i] = label.release();
  }
  return true;
}

int out_of_memory() {
  elog_log(1, "ksvector_get_points: malloc() error.\n");
  return -1;
}

}  // namespace

int ksvector_get_points(const char *tag, int *npts, int *iy, double **x, void **y,
                        char ***labels) {
  const KSVector *const vector = ksutil::find_vector("ksvector_get_points", tag);
  if (vector == nullptr) return -1;
  const int ny = vector->points != nullptr ? vector->ny : 1;
  if (*iy >= ny) {
    elog_log(0, "ksvector_get_points: index out of range.\n");
    return -1;
  }
  const bool all = *iy < 0;
  MallocPtr<double> xs(copy_x(*vector));
  BlockArray<double> columns(all ? ny : 1);
  BlockArray<char> texts(labels != nullptr ? vector->npts : 0);
  if (xs == nullptr || !texts || !columns) return out_of_memory();
  if (all) {
    if (!copy_columns(*vector, ny, columns)) return out_of_memory();
  } else {
    columns[0] = copy_column(*vector, *iy);
    if (columns[0] == nullptr) return out_of_memory();
  }
  if (labels != nullptr) {
    if (!copy_labels(*vector, texts)) return out_of_memory();
    *labels = texts.release();
  }
  *npts = vector->npts;
  *x = xs.release();
  if (all) {
    *iy = ny;
    *y = columns.release();
  } else {
    *y = std::exchange(columns[0], nullptr);
  }
  return 0;
}
