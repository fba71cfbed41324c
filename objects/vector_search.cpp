#include "objects/internal/vector_search.h"

#include <cmath>
#include <limits>

#include "objects/ksvector.h"

namespace ksutil {
namespace {

/* So few points are counted sooner than looked up. */
constexpr int kFewPoints = 16;

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
  const auto fits = [&](int rank) {
    return (rank == known_ || bounds[rank] >= x) && (rank == 0 || bounds[rank - 1] < x);
  };
  if (fits(last_)) return last_;
  if (last_ < known_ && fits(last_ + 1)) return ++last_;
  /* Halves without branches, which random questions would mispredict. */
  const double *from = bounds;
  for (int left = known_; left > 1;) {
    const int half = left / 2;
    from += from[half - 1] < x ? half : 0;
    left -= half;
  }
  last_ = static_cast<int>(from - bounds) + (*from < x ? 1 : 0);
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
