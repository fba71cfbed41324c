/* ksvector_values: evaluates, measures and transforms the vectors of this family. */
#include "objects/ksvector.h"
#include "objects/vectors/points/internal/point_access.h"
#include "objects/vectors/shared/internal/vector_copies.h"
#include "objects/vectors/shared/internal/vector_eval.h"
#include "objects/vectors/shared/internal/vector_measure.h"
#include "objects/vectors/shared/internal/vector_stats.h"
#include "objects/vectors/shared/internal/vector_transforms.h"

namespace vectors = ksutil::vectors;
using ksutil::Vectors;

namespace {

struct Stats {
  using Vector = KSVector;
  static constexpr char kStats[] = "ksvector_stats";
  /* The name that users know from messages about the inputs. */
  static constexpr char kInputs[] = "ksvector_append";
  static constexpr char kGet[] = "ksvector_get_vector";
  static constexpr char kCopy[] = "ksvector_copy";
  static constexpr auto get = ksvector_get_vector;
  static constexpr auto copy = ksvector_copy;
  static constexpr auto free = ksvector_free_vector;
};

}  // namespace

int ksvector_eval(const char *tag, double *y, double x) {
  const char *const self = "ksvector_eval";
  return vectors::evaluate_found(self, Vectors::find(self, tag), tag, y, x);
}

int ksvector_maxmin(const char *tag, int iy, double *xmin, double *xmax, double *ymin,
                    double *ymax) {
  const char *const self = "ksvector_maxmin";
  return vectors::maxmin(self, Vectors::find(self, tag), tag, iy,
                         {xmin, xmax, ymin, ymax});
}

int ksvector_nearest(const char *tag, int iy, double x, double y) {
  const char *const self = "ksvector_nearest";
  return vectors::nearest(self, Vectors::find(self, tag), tag, iy, x, y);
}

int ksvector_get_points(const char *tag, int *npts, int *iy, double **x, void **y,
                        char ***labels) {
  const char *const self = "ksvector_get_points";
  return vectors::get_points(self, Vectors::find(self, tag), npts, iy, x, y, labels);
}

KSVector *ksvector_stats(Tbl *tags, const char *type, const char *name, char *tag) {
  return vectors::stats<Stats>(tags, type, name, tag);
}

int ksvector_transform_edp(const char *tag, double lat0, double lon0) {
  const char *const self = "ksvector_transform_edp";
  return vectors::transform_edp(self, Vectors::find(self, tag), lat0, lon0);
}

int ksvector_transform_invertx(const char *tag) {
  const char *const self = "ksvector_transform_invertx";
  return vectors::transform_invertx(self, Vectors::find(self, tag));
}

int ksvector_transform_spec(const char *tag, int power, int iy) {
  const char *const self = "ksvector_transform_spec";
  return vectors::transform_spec(self, Vectors::find(self, tag), power, iy);
}

int ksvector_transform_ygain(const char *tag, int iy, double gain) {
  const char *const self = "ksvector_transform_ygain";
  return vectors::transform_ygain(self, Vectors::find(self, tag), tag, iy, gain);
}

void latlon2xydel(double *x, double *y, int /*flag*/, double lat0, double lon0,
                  double lat1, double lon1) {
  const vectors::Offset offset = vectors::offset_of(lat0, lon0, lat1, lon1);
  *x = offset.east;
  *y = offset.north;
}
