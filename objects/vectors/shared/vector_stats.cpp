/* Statistics over vectors, point by point, of both families. */
#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <new>
#include <span>
#include <vector>

#include "objects/vectors/shared/internal/vector_access.h"
#include "platform/elog/elog.h"

namespace {

using ksutil::is_series, ksutil::x_at, ksutil::y_at;

/* What differs between the families. */
struct Family1 {
  using Vector = KSVector;
  static constexpr char kStats[] = "ksvector_stats";
  static constexpr char kInputs[] = "ksvector_append";  // the name that users know
  static constexpr char kGet[] = "ksvector_get_vector";
  static constexpr char kCopy[] = "ksvector_copy";
  static constexpr auto get = ksvector_get_vector;
  static constexpr auto copy = ksvector_copy;
  static constexpr auto free = ksvector_free_vector;
};
struct Family2 {
  using Vector = ksvector2;
  static constexpr char kStats[] = "ksvector2_stats";
  static constexpr char kInputs[] = "ksvector2_stats";
  static constexpr char kGet[] = "ksvector2_get_vector";
  static constexpr char kCopy[] = "ksvector2_copy";
  static constexpr auto get = ksvector2_get_vector;
  static constexpr auto copy = ksvector2_copy;
  static constexpr auto free = ksvector2_free_vector;
};

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

const Statistic *find_statistic(const char *function, const char *type) {
  for (const Statistic &statistic : kStatistics) {
    if (type != nullptr && std::strcmp(statistic.type, type) == 0) return &statistic;
  }
  elog_log(0, "%s: Unrecognized type '%s'\n", function, type == nullptr ? "" : type);
  return nullptr;
}

template <class Vector>
bool has_same_x(const Vector &a, const Vector &b) {
  if (a.npts != b.npts || a.ny != b.ny || is_series(b)) return false;
  for (int i = 0; i < a.npts; i++) {
    if (x_at(a, i) != x_at(b, i)) return false;
  }
  return true;
}

/* The look-up of an input; its failure bears the result's tag. */
template <class Family>
const typename Family::Vector *find_input(Tbl *tags, long i, const char *result_tag) {
  const auto *const vector = Family::get(static_cast<const char *>(gettbl(tags, i)));
  if (vector == nullptr) {
    elog_log(0, "%s: %s(%s) error.\n", Family::kInputs, Family::kGet, result_tag);
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

/* Takes in the inputs after the first that go with it; false for an unknown tag. */
template <class Family>
bool fill(typename Family::Vector &result, Tbl *tags, const Statistic &statistic,
          const char *tag) {
  try {
    std::vector<const typename Family::Vector *> others;
    for (long i = 1; i < counttbl(tags); i++) {
      const auto *const other = find_input<Family>(tags, i, tag);
      if (other == nullptr) return false;
      if (has_same_x(result, *other)) others.push_back(other);
    }
    if (statistic.absolute) make_absolute(result);
    if (!others.empty()) combine(result, others, statistic);
    return true;
  } catch (const std::bad_alloc &) {
    errno = ENOMEM;
    elog_log(1, "%s: malloc() error.\n", Family::kStats);
    return false;
  }
}

template <class Family>
typename Family::Vector *stats(Tbl *tags, const char *type, const char *name,
                               char *tag) {
  const auto none = [tag] {
    if (tag != nullptr) *tag = '\0';
    return nullptr;
  };
  const Statistic *const statistic = find_statistic(Family::kStats, type);
  if (statistic == nullptr) return none();
  const auto *const first = find_input<Family>(tags, 0, "");
  if (first == nullptr) return none();
  if (is_series(*first)) {
    elog_log(0, "%s: Can only do stats on point vectors.\n", Family::kInputs);
    return none();
  }
  /* Not yet into the caller's buffer, which may be one of the tags. */
  char made[KS_TAG_SIZE] = "";
  auto *const result = Family::copy(static_cast<const char *>(gettbl(tags, 0)), name,
                                    tag == nullptr ? nullptr : made);
  if (result == nullptr) {
    elog_log(0, "%s: %s() error.\n", Family::kStats, Family::kCopy);
    return none();
  }
  if (!fill<Family>(*result, tags, *statistic, made)) {
    Family::free(result);
    return none();
  }
  if (tag != nullptr) std::copy_n(made, sizeof made, tag);
  return result;
}

}  // namespace

KSVector *ksvector_stats(Tbl *tags, const char *type, const char *name, char *tag) {
  return stats<Family1>(tags, type, name, tag);
}

ksvector2 *ksvector2_stats(Tbl *tags, const char *type, const char *name, char *tag) {
  return stats<Family2>(tags, type, name, tag);
}
