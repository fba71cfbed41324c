#include "objects/vectors/points/internal/vector_search.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "objects/ksvector.h"

namespace ksutil {
namespace {

/* Up to this number of points, counting is faster than the search. */
constexpr int kFewPoints = 16;

/* Ranks around the last result that are tried first: curves are drawn, and spectra
 * corrected, at x values in order. */
constexpr int kWindow = 8;
static_assert(kWindow <= kFewPoints);

/* How many of n >= 1 ascending values are below x.  Halves without branches, which would
 * be mispredicted for random x values. */
inline int count_below(const double *values, int n, double x) {
  const double *from = values;
  for (int left = n; left > 1;) {
    const int half = left / 2;
    from += from[half - 1] < x ? half : 0;
    left -= half;
  }
  return static_cast<int>(from - values) + (*from < x ? 1 : 0);
}

int count_up(const KSVectorPoint *points, int n, double x) {
  int i = 0;
  while (i < n && !(points[i].x >= x)) i++;
  return i;
}

int count_down(const KSVectorPoint *points, int n, double x) {
  int i = n - 1;
  while (i >= 0 && !(points[i].x >= x)) i--;
  return i;
}

/* Whether counting would stop at point i, coming from the point before it. */
bool stops(const KSVectorPoint *points, int n, int i, int before, double x) {
  const auto reached = [&](int at) { return points[at].x >= x; };
  const auto exists = [n](int at) { return at >= 0 && at < n; };
  return (!exists(i) || reached(i)) && (!exists(before) || !reached(before));
}

}  // namespace

bool VectorSearch::lay_out(const KSVectorPoint *points, int n, bool descending) {
  known_ = 0;
  if (room_ < n) {
    bounds_.reset(
        static_cast<double *>(ks_malloc(static_cast<std::size_t>(n) * sizeof(double))));
    room_ = bounds_ == nullptr ? 0 : n;
    if (room_ == 0) return false;
  }
  double bound = -std::numeric_limits<double>::infinity();
  for (int rank = 0; rank < n; rank++) {
    const double x = points[descending ? n - 1 - rank : rank].x;
    if (x > bound) bound = x;
    bounds_.get()[rank] = bound;
  }
  known_ = n;
  descending_ = descending;
  last_ = 0;
  return true;
}

/* The first rank whose bound is not below x; known_ when there is none. */
int VectorSearch::rank(double x) {
  const double *const bounds = bounds_.get();
  const auto lies_from = [&](int low) {
    const int end = low + kWindow;
    return (low == 0 || bounds[low - 1] < x) && (end == known_ || bounds[end - 1] >= x);
  };
  const int up = std::min(last_, known_ - kWindow);
  const int down = std::clamp(last_ - kWindow + 1, 0, known_ - kWindow);
  if (lies_from(up)) {
    last_ = up + count_below(bounds + up, kWindow, x);
  } else if (lies_from(down)) {
    last_ = down + count_below(bounds + down, kWindow, x);
  } else {
    last_ = count_below(bounds, known_, x);
  }
  return last_;
}

int VectorSearch::find(const KSVectorPoint *points, int n, bool descending, double x) {
  if (n > kFewPoints && !std::isnan(x)) {
    bool usable = known_ == n && descending_ == descending;
    if (!usable && asked_ == n) usable = lay_out(points, n, descending);
    asked_ = n;
    if (usable) {
      const int found = rank(x);
      const int i = descending ? n - 1 - found : found;
      if (stops(points, n, i, descending ? i + 1 : i - 1, x)) return i;
      known_ = 0;
    }
  }
  return descending ? count_down(points, n, x) : count_up(points, n, x);
}

}  // namespace ksutil
