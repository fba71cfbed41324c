#include <algorithm>
#include <cmath>

#include "objects/internal/vector_eval.h"
#include "objects/internal/vector_record.h"
#include "platform/elog/elog.h"
#include "platform/trace/trace.h"

namespace ksutil {
namespace {

constexpr double kLargestSample = 1e30;  // above it: a gap

struct Sample {
  double x, y;
};

double interpolate(double xa, double ya, double xb, double yb, double x) {
  return ya + (yb - ya) * (x - xa) / (xb - xa);
}

double interpolate(const Sample &a, const Sample &b, double x) {
  return a.x == b.x ? (a.y + b.y) / 2.0 : interpolate(a.x, a.y, b.x, b.y, x);
}

void mean_of(const KSVectorPoint &a, const KSVectorPoint &b, int ny, double *y) {
  for (int j = 0; j < ny; j++) y[j] = (a.y[j] + b.y[j]) / 2.0;
}

void evaluate_points(const KSVector &vector, double x, double *y) {
  const KSVectorPoint *const points = vector.points;
  const int end = vector.npts - 1;
  const bool descending = !(points[end].x >= points[0].x);
  const int i = vector.storage->search.find(points, vector.npts, descending, x);
  const int before = descending ? i + 1 : i - 1, after = descending ? i - 1 : i + 1;
  const auto exists = [end](int at) { return at >= 0 && at <= end; };
  /* Of two points at x neither is better: a step is passed half way up. */
  if (exists(i) && exists(after) && points[i].x == x && points[after].x == x) {
    mean_of(points[i], points[after], vector.ny, y);
    return;
  }
  if (!exists(i) || !exists(before)) {
    std::copy_n(points[std::clamp(i, 0, end)].y, vector.ny, y);
    return;
  }
  const KSVectorPoint &a = points[before], &b = points[i];
  for (int j = 0; j < vector.ny; j++) {
    y[j] = interpolate(a.x, a.y[j], b.x, b.y[j], x);
  }
}

double gap_value() {
  static float gap = 0.0F;
  if (gap == 0.0F) trfill_gap(&gap, 1);
  return gap;
}

double evaluate_series(const KSVector &vector, double x) {
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

}  // namespace

void evaluate(const KSVector &vector, double x, double *y) {
  if (vector.npts > 1 && vector.points != nullptr) {
    evaluate_points(vector, x, y);
  } else if (vector.npts > 1) {
    *y = evaluate_series(vector, x);
  } else if (vector.points != nullptr) {
    std::copy_n(vector.points->y, vector.ny, y);
  } else {
    *y = *vector.data;
  }
}

}  // namespace ksutil

int ksvector_eval(const char *tag, double *y, double x) {
  const KSVector *const vector = ksutil::find_vector("ksvector_eval", tag);
  if (vector == nullptr) return -1;
  if (vector->npts < 1) {
    elog_log(0, "ksvector_eval: No points in vector %s.\n", tag);
    return -1;
  }
  ksutil::evaluate(*vector, x, y);
  return 0;
}
