/* signal_runs: goes through the runs of samples between gaps. */
#ifndef KSUTIL_WAVEFORMS_SIGNAL_INTERNAL_SIGNAL_RUNS_H
#define KSUTIL_WAVEFORMS_SIGNAL_INTERNAL_SIGNAL_RUNS_H

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <span>

#include "platform/trace/trace.h"

namespace ksutil {

inline bool is_sample(double value) {
  return std::isfinite(value) && !is_gap_sample(value);
}

/* The value that marks a gap. */
inline double gap_mark() {
  float gap;
  trfill_gap(&gap, 1);
  return gap;
}

/* Calls take(first, run) for each longest run of samples; `first` is the place of its
 * first one. */
template <class Number, class Take>
void for_each_run(std::span<Number> samples, const Take &take) {
  const auto test = [](Number value) { return is_sample(static_cast<double>(value)); };
  for (auto at = samples.begin(); at != samples.end();) {
    const auto begin = std::find_if(at, samples.end(), test);
    at = std::find_if_not(begin, samples.end(), test);
    if (begin == at) continue;
    take(static_cast<std::size_t>(begin - samples.begin()),
         std::span<Number>(begin, at));
  }
}

}  // namespace ksutil
#endif
