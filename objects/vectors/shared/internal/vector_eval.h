/* vector_eval: interpolates in a vector that has been looked up. */
#ifndef KSUTIL_OBJECTS_VECTORS_SHARED_INTERNAL_VECTOR_EVAL_H
#define KSUTIL_OBJECTS_VECTORS_SHARED_INTERNAL_VECTOR_EVAL_H

#include <algorithm>
#include <cmath>

#include "objects/vectors/shared/internal/vector_access.h"
#include "platform/elog/failure.h"
#include "platform/trace/trace.h"

namespace ksutil::vectors {

struct SamplePoint {
  double x, y;
};

inline double interpolate(double xa, double ya, double xb, double yb, double x) {
  return ya + (yb - ya) * (x - xa) / (xb - xa);
}

inline double interpolate(const SamplePoint &a, const SamplePoint &b, double x) {
  return a.x == b.x ? (a.y + b.y) / 2.0 : interpolate(a.x, a.y, b.x, b.y, x);
}

/* The result of an evaluation where the vector has no value. */
double gap_value();

/* VectorAccess::find_point gives the first point whose x is not below the given one,
 * counted from the end of the vector with the lower x; npts (upward) or -1 (downward) when
 * every x is below it. */
template <class Vector>
void evaluate_points(const Vector &vector, double x, double *y) {
  const int end = vector.npts - 1;
  const bool descending = !(x_at(vector, end) >= x_at(vector, 0));
  const int i = VectorAccess<Vector>::find_point(vector, descending, x);
  const int before = descending ? i + 1 : i - 1, after = descending ? i - 1 : i + 1;
  const auto exists = [end](int at) { return at >= 0 && at <= end; };
  /* Neither of two points at x is better: a step has the mean value there. */
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

template <class Vector>
double evaluate_series(const Vector &vector, double x) {
  const double nearest = std::round((x - vector.time) / vector.dt);
  const double last = vector.time + (vector.npts - 1) * vector.dt;
  const bool inside =
      nearest >= 0.0 && nearest < vector.npts && x >= vector.time && x <= last;
  if (!inside) return gap_value();
  const auto known = [&](int i) {
    return i >= 0 && i < vector.npts && !is_gap_sample(vector.data[i]);
  };
  const auto sample = [&](int i) {
    return SamplePoint{vector.time + i * vector.dt, vector.data[i]};
  };
  const int k = static_cast<int>(nearest);
  if (!known(k)) return gap_value();
  const SamplePoint at_k = sample(k);
  if (at_k.x > x && known(k - 1)) return interpolate(sample(k - 1), at_k, x);
  if (at_k.x == x) return at_k.y;
  if (at_k.x < x && known(k + 1)) return interpolate(at_k, sample(k + 1), x);
  return gap_value();
}

/* Writes the values at x into y[ny]; the vector has points. */
template <class Vector>
void evaluate(const Vector &vector, double x, double *y) {
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

/* The body of an eval function; `vector` may be null. */
template <class Vector>
int evaluate_found(const char *who, const Vector *vector, const char *tag, double *y,
                   double x) {
  if (vector == nullptr) return -1;
  if (vector->npts < 1) return fail(who, "No points in vector %s", tag);
  evaluate(*vector, x, y);
  return 0;
}

}  // namespace ksutil::vectors
#endif
