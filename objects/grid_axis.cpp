#include "objects/internal/grid_axis.h"

#include <cmath>

#include "objects/ksgrid.h"

namespace ksutil::grids {
namespace {

/* The first of coords[1..n-1] that is no less than the value, which is at most the last;
 * n > 1.  Without branches that depend on the value, which no processor could foresee. */
int first_not_below(int n, const float *coords, float value) {
  const float *base = coords + 1;
  int count = n - 1;
  while (count > 1) {
    const int half = count / 2;
    base += base[half - 1] < value ? half : 0;
    count -= half;
  }
  return static_cast<int>(base - coords);
}

/* Off the axis, or no value. */
int beyond(int n, const float *coords, float value, Interval &found) {
  found = {0, 0};
  if (value < coords[0]) return -1;
  if (!(value > coords[n - 1])) return 0;
  found = {n - 1, n - 1};
  return 1;
}

}  // namespace

Axis::Axis(int n, const float *coords)
    : n_(n), coords_(coords), first_(coords[0]), last_(coords[n - 1]) {
  for (int i = 1; i < n; ++i) ascending_ &= coords[i - 1] <= coords[i];
  const double step = (last_ - first_) / (n - 1);
  if (n == 1 || !ascending_ || !(step > 0) || !std::isfinite(step)) return;
  per_unit_ = 1.0 / step;
  even_ = std::isfinite(per_unit_);
  for (int i = 1; i < n; ++i) {
    even_ &= std::abs(coords[i] - (first_ + i * step)) < 0.5 * step;
  }
}

/* The rule in its plain form, for axes that are not ordered. */
int Axis::locate_by_steps(float value, Interval &found) const {
  for (int i = 0; i < n_ - 1 && coords_[i] <= value; ++i) {
    if (value <= coords_[i + 1]) {
      found = {i, i + 1};
      return 0;
    }
  }
  return outside(value, found);
}

int Axis::outside(float value, Interval &found) const {
  return beyond(n_, coords_, value, found);
}

int Axis::search(float value) const { return first_not_below(n_, coords_, value); }

}  // namespace ksutil::grids

int ksgrid_find_interval(int n, const float *coords, int *i0, int *i1, float *c0,
                         float *width, float value) {
  ksutil::grids::Interval found = {0, 0};
  *i0 = *i1 = 0;
  *c0 = *width = 0.0F;
  if (n < 1 || coords == nullptr) return -1;
  int result = 0;
  if (n > 1 && coords[0] <= value && value <= coords[n - 1]) {
    found.i1 = ksutil::grids::first_not_below(n, coords, value);
    found.i0 = found.i1 - 1;
  } else {
    result = ksutil::grids::beyond(n, coords, value, found);
  }
  *i0 = found.i0;
  *i1 = found.i1;
  *c0 = coords[found.i0];
  if (found.i0 != found.i1) *width = coords[found.i1] - coords[found.i0];
  return result;
}
