/* Points of ksvector2: growing, inserting, overwriting, copying out. */
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <vector>

#include "objects/internal/vector2.h"
#include "platform/elog/elog.h"

namespace {

using namespace ksutil::vector2;

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

/* A copy of column j of the points, x being column 0; of a series, its samples. */
Block<double> copy_column(const ksvector2 &vector, int j) {
  const auto npts = static_cast<std::size_t>(vector.npts);
  Block<double> copy(
      static_cast<double *>(zeroed(std::max<std::size_t>(npts, 1), sizeof(double))));
  if (copy == nullptr) return nullptr;
  const double *from = vector.data + j;
  for (std::size_t i = 0; i < npts; ++i, from += stride(vector)) copy.get()[i] = *from;
  return copy;
}

Block<double> copy_x(const ksvector2 &vector) {
  if (vector.tsamp == 0) return copy_column(vector, 0);
  Block<double> x = copy_column(vector, 0);
  for (int i = 0; x != nullptr && i < vector.npts; ++i) {
    x.get()[i] = vector.time + i * vector.dt;
  }
  return x;
}

Block<double> copy_y(const ksvector2 &vector, int iy) {
  return copy_column(vector, vector.tsamp != 0 ? 0 : iy + 1);
}

/* A list of blocks that is freed with them until it is handed out. */
template <class T>
class BlockList {
 public:
  explicit BlockList(int count)
      : count_(count),
        list_(static_cast<T **>(
            zeroed(static_cast<std::size_t>(std::max(count, 1)), sizeof(T *)))) {}
  ~BlockList() {
    for (int i = 0; list_ != nullptr && i < count_; ++i) release(list_.get()[i]);
  }
  BlockList(const BlockList &) = delete;
  BlockList &operator=(const BlockList &) = delete;

  bool made() const { return list_ != nullptr; }
  T *&at(int i) { return list_.get()[i]; }
  T **hand_out() { return list_.release(); }

 private:
  int count_;
  Block<T *> list_;
};

bool copy_all_y(const ksvector2 &vector, BlockList<double> &columns) {
  if (!columns.made()) return false;
  for (int j = 0; j < vector.ny; ++j) {
    if ((columns.at(j) = copy_y(vector, j).release()) == nullptr) return false;
  }
  return true;
}

bool copy_labels(const ksvector2 &vector, BlockList<char> &labels) {
  if (!labels.made()) return false;
  for (int i = 0; vector.labels != nullptr && i < vector.npts; ++i) {
    if (vector.labels[i] == nullptr) continue;
    if ((labels.at(i) = duplicate(vector.labels[i])) == nullptr) return false;
  }
  return true;
}

int no_memory(const char *function) {
  elog_log(1, "%s: malloc() error.\n", function);
  return -1;
}

/* The label of an existing point; null leaves it. */
bool replace_label(ksvector2 &vector, int index, const char *label,
                   const char *function) {
  if (label == nullptr || vector.tsamp != 0 || set_label(vector, index, label)) {
    return true;
  }
  elog_log(1, "%s: strdup() error.\n", function);
  return false;
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
  ksvector2 *const vector = look_up(tag, "ksvector2_resize");
  if (vector == nullptr) return -1;
  if (make_room(*vector, vector->npts)) return 0;
  elog_log(1, "ksvector2_resize: realloc() error.\n");
  return -1;
}

int ksvector2_resize_y(const char *tag, int ny) {
  ksvector2 *const vector = look_up(tag, "ksvector2_resize_y");
  if (vector == nullptr) return -1;
  if (vector->tsamp != 0) {
    elog_log(0, "ksvector2_resize_y: Cannot resize time sample data.\n");
    return -1;
  }
  if (ny < 1) {
    elog_log(0, "ksvector2_resize_y: Number of y values must be positive.\n");
    return -1;
  }
  if (ny > vector->nyalloc) {
    if (!widen(*vector, ny)) return no_memory("ksvector2_resize_y");
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
  ksvector2 *const vector = look_up(tag, "ksvector2_append");
  if (vector == nullptr) return -1;
  if (vector->tsamp != 0) {
    elog_log(0, "ksvector2_append: Cannot append to time sample vector\n");
    return -1;
  }
  switch (insert_point(*vector, index, x, y, label)) {
    case Inserted::kYes:
      return 0;
    case Inserted::kNoRoom:
      elog_log(1, "ksvector2_append: ksvector2_resize() error.\n");
      return -1;
    case Inserted::kNoLabel:
      elog_log(1, "ksvector2_append: strdup() error.\n");
      return -1;
  }
  return -1;
}

int ksvector2_put(const char *tag, int index, const double *y, const char *label,
                  double x) {
  ksvector2 *const vector = look_up(tag, "ksvector2_put");
  if (vector == nullptr) return -1;
  if (vector->tsamp != 0) {
    elog_log(0, "ksvector2_put: Cannot put X(time) value for constant sampled data.\n");
    return -1;
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
  ksvector2 *const vector = look_up(tag, "ksvector2_puty");
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
  const ksvector2 *const vector = look_up(tag, "ksvector2_get_point");
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

int ksvector2_get_points(const char *tag, int *npts, int *iy, double **x, void **y,
                         char ***labels) {
  const char *const self = "ksvector2_get_points";
  const ksvector2 *const vector = look_up(tag, self);
  if (vector == nullptr) return -1;
  if (*iy >= vector->ny) {
    elog_log(0, "ksvector2_get_points: index out of range.\n");
    return -1;
  }
  Block<double> x_copy = copy_x(*vector);
  if (x_copy == nullptr) return no_memory(self);
  const int nlabels = labels == nullptr ? 0 : vector->npts;
  BlockList<char> label_copies(nlabels);
  if (labels != nullptr && !copy_labels(*vector, label_copies)) return no_memory(self);
  if (*iy >= 0) {
    Block<double> column = copy_y(*vector, *iy);
    if (column == nullptr) return no_memory(self);
    *y = column.release();
  } else {
    BlockList<double> columns(vector->ny);
    if (!copy_all_y(*vector, columns)) return no_memory(self);
    *y = columns.hand_out();
    *iy = vector->ny;
  }
  *npts = vector->npts;
  *x = x_copy.release();
  if (labels != nullptr) *labels = label_copies.hand_out();
  return 0;
}

int ksvector2_get_tsamp(const char *tag, int *npts, double *time, double *samprate,
                        double **samples) {
  const ksvector2 *const vector = look_up(tag, "ksvector2_get_tsamp");
  if (vector == nullptr) return -1;
  if (vector->tsamp == 0) {
    elog_log(0, "ksvector2_get_tsamp: Not a time-sampled vector.\n");
    return -1;
  }
  Block<double> copy = copy_y(*vector, 0);
  if (copy == nullptr) return no_memory("ksvector2_get_tsamp");
  *npts = vector->npts;
  *time = vector->time;
  *samprate = 1.0 / vector->dt;
  *samples = copy.release();
  return 0;
}
