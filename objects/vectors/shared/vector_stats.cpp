#include "objects/vectors/shared/internal/vector_stats.h"

#include <array>
#include <cstring>

namespace ksutil::vectors {
namespace {

double largest(StatisticValues values) {
  double best = values[0];
  for (const double value : values) best = value > best ? value : best;
  return best;
}

double smallest(StatisticValues values) {
  double best = values[0];
  for (const double value : values) best = value < best ? value : best;
  return best;
}

/* NaN counts as the largest value: the order would be undefined otherwise. */
double median(StatisticValues values) {
  const auto below = [](double a, double b) {
    return a < b || (!std::isnan(a) && std::isnan(b));
  };
  std::sort(values.begin(), values.end(), below);
  const std::size_t middle = values.size() / 2;
  if (values.size() % 2 != 0) return values[middle];
  return (values[middle - 1] + values[middle]) / 2.0;
}

constexpr std::array<Statistic, 5> kStatistics{{{"max", largest, false},
                                                {"min", smallest, false},
                                                {"amax", largest, true},
                                                {"amin", smallest, true},
                                                {"median", median, false}}};

}  // namespace

const Statistic *find_statistic(const char *who, const char *type) {
  for (const Statistic &statistic : kStatistics) {
    if (type != nullptr && std::strcmp(statistic.type, type) == 0) return &statistic;
  }
  elog_log(0, "%s: Unrecognized type '%s'\n", who, type == nullptr ? "" : type);
  return nullptr;
}

}  // namespace ksutil::vectors
