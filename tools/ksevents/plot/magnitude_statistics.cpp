#include "tools/ksevents/plot/magnitude_statistics.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

namespace ksutil::tools {
namespace {

constexpr double kLowest = -10.0, kHighest = 12.0;
constexpr long kFewest = 10;  // events of a fit

bool is_usable(double magnitude) {
  return magnitude >= kLowest && magnitude <= kHighest;
}

}  // namespace

long MagnitudeCounts::at_least(std::size_t i) const {
  return std::accumulate(counts.begin() + static_cast<std::ptrdiff_t>(i), counts.end(),
                         0L);
}

MagnitudeCounts count_magnitudes(const std::vector<double> &magnitudes, double width) {
  MagnitudeCounts result;
  result.width = width;
  std::vector<long> bins;
  for (const double magnitude : magnitudes) {
    if (is_usable(magnitude)) bins.push_back(std::lround(magnitude / width));
  }
  if (bins.empty()) return result;
  const auto [low, high] = std::minmax_element(bins.begin(), bins.end());
  result.low = static_cast<double>(*low) * width;
  result.counts.resize(static_cast<std::size_t>(*high - *low + 1));
  for (const long bin : bins) result.counts[static_cast<std::size_t>(bin - *low)]++;
  return result;
}

std::optional<double> completeness(const MagnitudeCounts &counts) {
  const auto fullest = std::max_element(counts.counts.begin(), counts.counts.end());
  if (fullest == counts.counts.end()) return std::nullopt;
  return counts.magnitude(static_cast<std::size_t>(fullest - counts.counts.begin())) +
         0.2;
}

std::optional<FrequencyMagnitude> fit_frequencies(const std::vector<double> &magnitudes,
                                                  double mc, double width) {
  double sum = 0.0;
  FrequencyMagnitude fit;
  std::vector<double> used;
  for (const double magnitude : magnitudes) {
    if (!is_usable(magnitude) || magnitude < mc - 0.5 * width + 1e-9) continue;
    used.push_back(magnitude);
    sum += magnitude;
  }
  fit.events = static_cast<long>(used.size());
  if (fit.events < kFewest) return std::nullopt;
  const auto n = static_cast<double>(fit.events);
  const double mean = sum / n;
  const double above = mean - (mc - 0.5 * width);
  double squares = 0.0;
  for (const double magnitude : used)
    squares += (magnitude - mean) * (magnitude - mean);
  if (!(above > 0.0) || squares == 0.0) return std::nullopt;
  fit.b = std::numbers::log10e / above;
  fit.error = std::numbers::ln10 * fit.b * fit.b * std::sqrt(squares / (n * (n - 1.0)));
  fit.a = std::log10(n) + fit.b * mc;
  return fit;
}

}  // namespace ksutil::tools
