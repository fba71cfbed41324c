/* Interpolation, in both families of vectors. */
#include <algorithm>
#include <cmath>

#include "objects/vectors/shared/internal/vector_access.h"
#include "objects/vectors/shared/internal/vector_eval.h"
#include "platform/elog/elog.h"
#include "platform/trace/trace.h"

namespace ksutil {
namespace {

struct Sample {
  double x, y;
};

double interpolate(double xa, double ya, double xb, double yb, double x) {
  return ya + (yb - ya) * (x - xa) / (xb - xa);
}

double interpolate(const Sample &a, const Sample &b, double x) {
  return a.x == b.x ? (a.y + b.y) / 2.0 : interpolate(a.x, a.y, b.x, b.y, x);
}

/* The first point whose x is not below the given one, counted from the end with the lower
 * x; npts upward, -1 downward when every x is below it. */
int find_point(const KSVector &vector, bool descending, double x) {
  return vector.storage->search.find(vector.points, vector.npts, descending, x);
}
int find_point(const ksvector2 &vector, bool descending, double x) {
  const int step = descending ? -1 : 1, end = descending ? -1 : vector.npts;
  int i = descending ? vector.npts - 1 : 0;
  while (i != end && !(x_at(vector, i) >= x)) i += step;
  return i;
}

template <class Vector>
void evaluate_points(const Vector &vector, double x, double *y) {
  const int end = vector.npts - 1;
  const bool descending = !(x_at(vector, end) >= x_at(vector, 0));
  const int i = find_point(vector, descending, x);
  const int before = descending ? i + 1 : i - 1, after = descending ? i - 1 : i + 1;
  const auto exists = [end](int at) { return at >= 0 && at <= end; };
  /* Of two points at x neither is better: a step is passed half way up. */
  if (exists(i) && exists(after) && x_at(vector, i) == x && x_at(vector, after) == x) {
    const double *const a = y_at(vector, i), *const b = y_at(vector, after);
    for (int j = 0; j < vector.ny; j++) y[j] = (a[j] + b[j]) / 2.0;
    return;
  }
  if (!exists(i) || !exists(before)) {
    std::copy_n(y_at(vector, std::clamp(i, 0, end)), vector.ny, y);
    return;
  }
  const double xa = x_at(vector, before), xb = x_at(vector, i);
  const double *const a = y_at(vector, before), *const b = y_at(vector, i);
  for (int j = 0; j < vector.ny; j++) y[j] = interpolate(xa, a[j], xb, b[j], x);
}

double gap_value() {
  static float gap = 0.0F;
  if (gap == 0.0F) trfill_gap(&gap, 1);
  return gap;
}

template <class Vector>
double evaluate_series(const Vector &vector, double x) {
  const double nearest = std::round((x - vector.time) / vector.dt);
  const double last = vector.time + (vector.npts - 1) * vector.dt;
  const bool inside =
      nearest >= 0.0 && nearest < vector.npts && x >= vector.time && x <= last;
  if (!inside) return gap_value();
  const auto known = [&](int i) {
    return i >= 0 && i < vector.npts && vector.data[i] <= kLargestSample;
  };
  const auto sample = [&](int i) {
    return Sample{vector.time + i * vector.dt, vector.data[i]};
  };
  const int k = static_cast<int>(nearest);
  if (!known(k)) return gap_value();
  const Sample at_k = sample(k);
  if (at_k.x > x && known(k - 1)) return interpolate(sample(k - 1), at_k, x);
  if (at_k.x == x) return at_k.y;
  if (at_k.x < x && known(k + 1)) return interpolate(at_k, sample(k + 1), x);
  return gap_value();
}

template <class Vector>
void evaluate_any(const Vector &vector, double x, double *y) {
  const bool series = is_series(vector);
  if (vector.npts > 1 && !series) {
    evaluate_points(vector, x, y);
  } else if (vector.npts > 1) {
    *y = evaluate_series(vector, x);
  } else if (!series) {
    std::copy_n(y_at(vector, 0), vector.ny, y);
  } else {
    *y = *vector.data;
  }
}

template <class Vector>
int evaluate_found(const char *function, const Vector *vector, const char *tag,
                   double *y, double x) {
  if (vector == nullptr) return -1;
  if (vector->npts < 1) {
    elog_log(0, "%s: No points in vector %s.\n", function, tag);
    return -1;
  }
  evaluate_any(*vector, x, y);
  return 0;
}

}  // namespace

void evaluate(const KSVector &vector, double x, double *y) {
  evaluate_any(vector, x, y);
}

}  // namespace ksutil

int ksvector_eval(const char *tag, double *y, double x) {
  const char *const self = "ksvector_eval";
  return ksutil::evaluate_found(self, ksutil::find_vector(self, tag), tag, y, x);
}

int ksvector2_eval(const char *tag, double *y, double x) {
  const char *const self = "ksvector2_eval";
  return ksutil::evaluate_found(self, ksutil::vector2::look_up(tag, self), tag, y, x);
}
