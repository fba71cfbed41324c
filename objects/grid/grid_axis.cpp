#include "objects/grid/internal/grid_axis.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "objects/ksgrid.h"

namespace ksutil::grids {
namespace {

/* The index of the first of coords[1..n-1] that is not less than the value, which is at
 * most the last; n > 1.  Has no branches that depend on the value: they could not be
 * predicted. */
int first_not_below(int n, const float *coords, float value) {
  const float *base = coords + 1;
  int count = n - 1;
  while (count > 1) {
    const int half = count / 2;
    base += half & -static_cast<int>(base[half - 1] < value);
    count -= half;
  }
  return static_cast<int>(base - coords);
}

/* Whether coords[upper] is the element that first_not_below finds; one condition, so
 * that there is no branch that could not be predicted. */
bool ends_interval(const float *coords, int upper, float value) {
  return (value <= coords[upper]) & ((value > coords[upper - 1]) | (upper == 1));
}

/* The part that all searches share: the axis, and places in an interval and off the
 * axis. */
struct Finder {
  int n;
  const float *coords;
  float first, last;

  bool on_axis(float value) const { return first <= value && value <= last; }
  Place between(int i0, int i1, float value) const {
    const double c0 = coords[i0], c1 = coords[i1];
    return {i0, i1, c0 != c1 ? (value - c0) / (c1 - c0) : 0.5};
  }
  Place outside(float value) const {
    if (value < first || value > last) return {-1, -1, 0.0};
    return {0, 0, 0.5};
  }
};

struct EvenFinder : Finder {
  double per_unit;

  /* The computed interval is wrong by one at most; the comparisons correct it. */
  Place operator()(float value) const {
    if (!on_axis(value)) return outside(value);
    int upper = static_cast<int>((double{value} - first) * per_unit) + 1;
    upper = std::min(upper, n - 1);
    upper += static_cast<int>(value > coords[upper]);  // at most n - 1
    upper -= static_cast<int>((value <= coords[upper - 1]) & (upper > 1));
    return between(upper - 1, upper, value);
  }
};

struct UnevenFinder : Finder {
  int upper = 1;  // end of the interval of the previous value

  Place operator()(float value) {
    if (!on_axis(value) || n == 1) return outside(value);
    if (!ends_interval(coords, upper, value)) {
      upper = std::min(upper + 1, n - 1);
      if (!ends_interval(coords, upper, value))
        upper = first_not_below(n, coords, value);
    }
    return between(upper - 1, upper, value);
  }
};

struct UnorderedFinder : Finder {
  Place operator()(float value) const {
    for (int i = 0; i < n - 1 && coords[i] <= value; ++i) {
      if (value <= coords[i + 1]) return between(i, i + 1, value);
    }
    return outside(value);
  }
};

/* Values often repeat along a row or a column of points. */
template <class Find>
void locate_each(const float *values, int count, Place *places, Find find) {
  float before = std::numeric_limits<float>::quiet_NaN();
  Place place = {};
  for (int i = 0; i < count; ++i) {
    if (values[i] != before) place = find(values[i]);
    before = values[i];
    places[i] = place;
  }
}

}  // namespace

Axis::Axis(int n, const float *coords) : n_(n), coords_(coords) {
  bool ascending = true;
  for (int i = 1; i < n; ++i) ascending &= coords[i - 1] <= coords[i];
  per_unit_ = (n - 1) / (double{coords[n - 1]} - coords[0]);
  kind_ = !ascending ? Kind::kUnordered : is_even() ? Kind::kEven : Kind::kUneven;
}

/* Whether the axis is so even that a computed place is wrong by one interval at
 * most. */
bool Axis::is_even() const {
  const double first = coords_[0], step = 1.0 / per_unit_;
  if (n_ == 1 || !std::isfinite(per_unit_) || !std::isfinite(step)) return false;
  bool even = true;
  for (int i = 1; i < n_; ++i) {
    even &= std::abs(coords_[i] - (first + i * step)) < 0.4 * step;
  }
  return even;
}

void Axis::locate(const float *values, int count, Place *places) const {
  const Finder finder = {n_, coords_, coords_[0], coords_[n_ - 1]};
  switch (kind_) {
    case Kind::kEven:
      return locate_each(values, count, places, EvenFinder{finder, per_unit_});
    case Kind::kUneven:
      return locate_each(values, count, places, UnevenFinder{finder});
    case Kind::kUnordered:
      return locate_each(values, count, places, UnorderedFinder{finder});
  }
}

}  // namespace ksutil::grids

int ksgrid_find_interval(int n, const float *coords, int *i0, int *i1, float *c0,
                         float *width, float value) {
  *i0 = *i1 = 0;
  *c0 = *width = 0.0F;
  if (n < 1 || coords == nullptr) return -1;
  int result = 0;
  if (value < coords[0]) {
    result = -1;
  } else if (value > coords[n - 1]) {
    *i0 = *i1 = n - 1;
    result = 1;
  } else if (n > 1 && coords[0] <= value && value <= coords[n - 1]) {
    *i1 = ksutil::grids::first_not_below(n, coords, value);
    *i0 = *i1 - 1;
    *width = coords[*i1] - coords[*i0];
  }
  *c0 = coords[*i0];
  return result;
}
