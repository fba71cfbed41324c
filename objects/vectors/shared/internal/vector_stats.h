/* vector_stats: combines vectors point by point into a vector of statistics. */
#ifndef KSUTIL_OBJECTS_VECTORS_SHARED_INTERNAL_VECTOR_STATS_H
#define KSUTIL_OBJECTS_VECTORS_SHARED_INTERNAL_VECTOR_STATS_H

#include <algorithm>
#include <cmath>
#include <span>
#include <vector>

#include "objects/family/shared/tag_registry.h"
#include "objects/vectors/shared/internal/vector_access.h"
#include "platform/elog/failure.h"

namespace ksutil::vectors {

/* The values at one point and column, the result's own first; they may be reordered. */
using StatisticValues = std::span<double>;

struct Statistic {
  const char *type;  // "max", "min", "amax", "amin" or "median"
  double (*of)(StatisticValues);
  bool absolute;  // of absolute values
};

/* The statistic of a type; null, with a message in the name of `who`, for another type. */
const Statistic *find_statistic(const char *who, const char *type);

template <class Vector>
bool has_same_x(const Vector &a, const Vector &b) {
  if (a.npts != b.npts || a.ny != b.ny || is_series(b)) return false;
  for (int i = 0; i < a.npts; i++) {
    if (x_at(a, i) != x_at(b, i)) return false;
  }
  return true;
}

/* Looks up an input; the message of a failure has the tag of the result. */
template <class Stats>
const typename Stats::Vector *find_input(Tbl *tags, long i, const char *result_tag) {
  const auto *const vector = Stats::get(static_cast<const char *>(gettbl(tags, i)));
  if (vector == nullptr) {
    fail(Stats::kInputs, "%s(%s) error", Stats::kGet, result_tag);
  }
  return vector;
}

template <class Vector>
void combine(Vector &result, const std::vector<const Vector *> &others,
             const Statistic &statistic) {
  std::vector<double> values(others.size() + 1);
  for (int i = 0; i < result.npts; i++) {
    for (int j = 0; j < result.ny; j++) {
      values[0] = y_at(result, i)[j];
      for (std::size_t k = 0; k < others.size(); k++) {
        const double value = y_at(*others[k], i)[j];
        values[k + 1] = statistic.absolute ? std::fabs(value) : value;
      }
      y_at(result, i)[j] = statistic.of(values);
    }
  }
}

template <class Vector>
void make_absolute(Vector &vector) {
  for (int i = 0; i < vector.npts; i++) {
    double *const y = y_at(vector, i);
    std::transform(y, y + vector.ny, y, [](double value) { return std::fabs(value); });
  }
}

/* Combines the first input with those of the others that match it; false, with a
 * message, for an unknown tag or when memory is short. */
template <class Stats>
bool combine_inputs(typename Stats::Vector &result, Tbl *tags,
                    const Statistic &statistic, const char *tag) {
  return at_boundary(Stats::kStats, [&] {
    std::vector<const typename Stats::Vector *> others;
    for (long i = 1; i < counttbl(tags); i++) {
      const auto *const other = find_input<Stats>(tags, i, tag);
      if (other == nullptr) return false;
      if (has_same_x(result, *other)) others.push_back(other);
    }
    if (statistic.absolute) make_absolute(result);
    if (!others.empty()) combine(result, others, statistic);
    return true;
  });
}

/* The body of a stats function.  `Stats` has what differs between the families: the type
 * Vector; the functions get, copy and free; and the names in messages kStats, kInputs (for
 * faults of the inputs), kGet and kCopy. */
template <class Stats>
typename Stats::Vector *stats(Tbl *tags, const char *type, const char *name,
                              char *tag) {
  const auto none = [tag] {
    if (tag != nullptr) *tag = '\0';
    return nullptr;
  };
  const Statistic *const statistic = find_statistic(Stats::kStats, type);
  if (statistic == nullptr) return none();
  const auto *const first = find_input<Stats>(tags, 0, "");
  if (first == nullptr) return none();
  if (is_series(*first)) {
    fail(Stats::kInputs, "Can only do stats on point vectors");
    return none();
  }
  /* The caller's buffer may be one of the input tags: it is written last. */
  char made[KS_TAG_SIZE] = "";
  auto *const result = Stats::copy(static_cast<const char *>(gettbl(tags, 0)), name,
                                   tag == nullptr ? nullptr : made);
  if (result == nullptr) {
    fail(Stats::kStats, "%s() error", Stats::kCopy);
    return none();
  }
  if (!combine_inputs<Stats>(*result, tags, *statistic, made)) {
    Stats::free(result);
    return none();
  }
  if (tag != nullptr) copy_tag(made, tag);
  return result;
}

}  // namespace ksutil::vectors
#endif
