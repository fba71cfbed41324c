/* ksvector2_values: evaluates, measures and transforms the vectors of this family. */
#include "objects/ksvector2.h"
#include "objects/vectors/cached/internal/cached_access.h"
#include "objects/vectors/shared/internal/vector_copies.h"
#include "objects/vectors/shared/internal/vector_eval.h"
#include "objects/vectors/shared/internal/vector_measure.h"
#include "objects/vectors/shared/internal/vector_stats.h"
#include "objects/vectors/shared/internal/vector_transforms.h"

namespace vectors = ksutil::vectors;
using ksutil::vector2::Vectors2;

namespace {

struct Stats {
  using Vector = ksvector2;
  static constexpr char kStats[] = "ksvector2_stats";
  static constexpr char kInputs[] = "ksvector2_stats";
  static constexpr char kGet[] = "ksvector2_get_vector";
  static constexpr char kCopy[] = "ksvector2_copy";
  static constexpr auto get = ksvector2_get_vector;
  static constexpr auto copy = ksvector2_copy;
  static constexpr auto free = ksvector2_free_vector;
};

}  // namespace

int ksvector2_eval(const char *tag, double *y, double x) {
  const char *const self = "ksvector2_eval";
  return vectors::evaluate_found(self, Vectors2::find(self, tag), tag, y, x);
}

int ksvector2_maxmin(const char *tag, int iy, double *xmin, double *xmax, double *ymin,
                     double *ymax) {
  const char *const self = "ksvector2_maxmin";
  return vectors::maxmin(self, Vectors2::find(self, tag), tag, iy,
                         {xmin, xmax, ymin, ymax});
}

int ksvector2_nearest(const char *tag, int iy, double x, double y) {
  const char *const self = "ksvector2_nearest";
  return vectors::nearest(self, Vectors2::find(self, tag), tag, iy, x, y);
}

int ksvector2_get_points(const char *tag, int *npts, int *iy, double **x, void **y,
                         char ***labels) {
  const char *const self = "ksvector2_get_points";
  return vectors::get_points(self, Vectors2::find(self, tag), npts, iy, x, y, labels);
}

ksvector2 *ksvector2_stats(Tbl *tags, const char *type, const char *name, char *tag) {
  return vectors::stats<Stats>(tags, type, name, tag);
}

int ksvector2_transform_edp(const char *tag, double lat0, double lon0) {
  const char *const self = "ksvector2_transform_edp";
  return vectors::transform_edp(self, Vectors2::find(self, tag), lat0, lon0);
}

int ksvector2_transform_invertx(const char *tag) {
  const char *const self = "ksvector2_transform_invertx";
  return vectors::transform_invertx(self, Vectors2::find(self, tag));
}

int ksvector2_transform_spec(const char *tag, int power, int iy) {
  const char *const self = "ksvector2_transform_spec";
  return vectors::transform_spec(self, Vectors2::find(self, tag), power, iy);
}

int ksvector2_transform_ygain(const char *tag, int iy, double gain) {
  const char *const self = "ksvector2_transform_ygain";
  return vectors::transform_ygain(self, Vectors2::find(self, tag), tag, iy, gain);
}

int ksvector2_maxmin2(const char *tag, int iy, double x0, double x1, double *xmin,
                      double *xmax, double *ymin, double *ymax) {
  const char *const self = "ksvector2_maxmin2";
  return vectors::maxmin_within(self, Vectors2::find(self, tag), tag, iy, x0, x1,
                                {xmin, xmax, ymin, ymax});
}

int ksvector2_get_tsamp(const char *tag, int *npts, double *time, double *samprate,
                        double **samples) {
  const char *const self = "ksvector2_get_tsamp";
  return vectors::get_samples(self, Vectors2::find(self, tag), npts, time, samprate,
                              samples);
}
