#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <new>
#include <span>
#include <vector>

#include "objects/internal/vector_record.h"
#include "platform/elog/elog.h"

namespace {

/* The values at one point and column, the result's own first; they may be reordered. */
using Values = std::span<double>;

double largest(Values values) {
  double best = values[0];
  for (const double value : values) best = value > best ? value : best;
  return best;
}

double smallest(Values values) {
  double best = values[0];
  for (const double value : values) best = value < best ? value : best;
  return best;
}

/* NaN values are the largest: without a place the order would be undefined. */
double median(Values values) {
  const auto below = [](double a, double b) {
    return a < b || (!std::isnan(a) && std::isnan(b));
  };
  std::sort(values.begin(), values.end(), below);
  const std::size_t middle = values.size() / 2;
  if (values.size() % 2 != 0) return values[middle];
  return (values[middle - 1] + values[middle]) / 2.0;
}

struct Statistic {
  const char *type;
  double (*of)(Values);
  bool absolute;
};

constexpr std::array<Statistic, 5> kStatistics{{{"max", largest, false},
                                                {"min", smallest, false},
                                                {"amax", largest, true},
                                                {"amin", smallest, true},
                                                {"median", median, false}}};

const Statistic *find_statistic(const char *type) {
  for (const Statistic &statistic : kStatistics) {
    if (type != nullptr && std::strcmp(statistic.type, type) == 0) return &statistic;
  }
  elog_log(0, "ksvector_stats: Unrecognized type '%s'\n", type == nullptr ? "" : type);
  return nullptr;
}

bool has_same_x(const KSVector &a, const KSVector &b) {
  if (a.npts != b.npts || a.ny != b.ny || b.points == nullptr) return false;
  for (int i = 0; i < a.npts; i++) {
    if (a.points[i].x != b.points[i].x) return false;
  }
  return true;
}

/* The look-up of an input; its failure bears the result's tag and append's name, which
 * users know. */
const KSVector *find_input(Tbl *tags, long i, const char *result_tag) {
  const auto *const vector =
      ksvector_get_vector(static_cast<const char *>(gettbl(tags, i)));
  if (vector == nullptr) {
    elog_log(0, "ksvector_append: ksvector_get_vector(%s) error.\n",
             result_tag == nullptr ? "" : result_tag);
  }
  return vector;
}

/* The inputs after the first that go with it; false for an unknown tag. */
bool collect(Tbl *tags, const KSVector &result, const char *result_tag,
             std::vector<const KSVector *> &others) {
  for (long i = 1; i < counttbl(tags); i++) {
    const KSVector *const other = find_input(tags, i, result_tag);
    if (other == nullptr) return false;
    if (has_same_x(result, *other)) others.push_back(other);
  }
  return true;
}

void combine(KSVector &result, const std::vector<const KSVector *> &others,
             const Statistic &statistic) {
  std::vector<double> values(others.size() + 1);
  for (int i = 0; i < result.npts; i++) {
    for (int j = 0; j < result.ny; j++) {
      values[0] = result.points[i].y[j];
      for (std::size_t k = 0; k < others.size(); k++) {
        const double value = others[k]->points[i].y[j];
        values[k + 1] = statistic.absolute ? std::fabs(value) : value;
      }
      result.points[i].y[j] = statistic.of(values);
    }
  }
}

void make_absolute(KSVector &vector) {
  for (int i = 0; i < vector.npts; i++) {
    double *const y = vector.points[i].y;
    std::transform(y, y + vector.ny, y, [](double value) { return std::fabs(value); });
  }
}

bool fill(KSVector &result, Tbl *tags, const Statistic &statistic, const char *tag) {
  try {
    std::vector<const KSVector *> others;
    if (!collect(tags, result, tag, others)) return false;
    if (statistic.absolute) make_absolute(result);
    if (!others.empty()) combine(result, others, statistic);
    return true;
  } catch (const std::bad_alloc &) {
    elog_log(0, "ksvector_stats: malloc() error.\n");
    return false;
  }
}

}  // namespace

KSVector *ksvector_stats(Tbl *tags, const char *type, const char *name, char *tag) {
  const Statistic *const statistic = find_statistic(type);
  if (statistic == nullptr) return ksutil::no_vector(tag);
  const KSVector *const first = find_input(tags, 0, nullptr);
  if (first == nullptr) return ksutil::no_vector(tag);
  if (first->points == nullptr) {
    elog_log(0, "ksvector_append: Can only do stats on point vectors.\n");
    return ksutil::no_vector(tag);
  }
  KSVector *const result =
      ksvector_copy(static_cast<const char *>(gettbl(tags, 0)), name, tag);
  if (result == nullptr) {
    elog_log(0, "ksvector_stats: ksvector_copy() error.\n");
    return nullptr;
  }
  if (fill(*result, tags, *statistic, tag)) return result;
  ksvector_free_vector(result);
  return ksutil::no_vector(tag);
}
