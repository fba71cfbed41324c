/* ksvector2_signal: fills gaps of time-sampled vectors and filters them. */
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <new>
#include <span>
#include <string_view>
#include <vector>

#include "objects/vectors/cached/internal/butterworth.h"
#include "objects/vectors/cached/internal/vector2.h"
#include "platform/elog/failure.h"
#include "platform/trace/trace.h"

namespace {

using namespace ksutil::vector2;
using ksutil::fail;

const int kHighestOrder = 10;

/* The time-sampled vector of a tag; null with messages. */
ksvector2 *look_up_series(const char *tag, const char *function) {
  ksvector2 *const vector = Vectors2::find(function, tag);
  if (vector == nullptr || vector->tsamp != 0) return vector;
  return fail(function, "Not a time-sampled vector");
}

std::span<double> samples_of(const ksvector2 &vector) {
  return {vector.data, static_cast<std::size_t>(vector.npts)};
}

/* Calls `take` with each longest run of samples of which `test` is true. */
template <class Test, class Take>
void for_runs(std::span<double> samples, const Test &test, const Take &take) {
  for (auto at = samples.begin(); at != samples.end();) {
    const auto begin = std::find_if(at, samples.end(), test);
    at = std::find_if_not(begin, samples.end(), test);
    if (begin != at) take(std::span<double>(begin, at));
  }
}

bool is_gap(double sample) { return ksutil::is_gap_sample(sample); }
bool usable(double sample) { return std::isfinite(sample) && !is_gap(sample); }

/* Nearer to zero, or to half the sample rate, than this many cycles per sample the rounded
 * coefficients of a section no longer hold its gain. */
const double kCornerMargin = 1e-7;

/* Whether a filter can be made; logs why not. */
bool corners_fit(double flow, double fhigh, double dt) {
  if (!(flow > 0) && !(fhigh > 0)) {
    return fail("ksvector2_filter", "No corner frequency");
  }
  for (const double corner : {flow, fhigh}) {
    if (!(corner > 0)) continue;
    if (!(corner * dt <= 0.5 - kCornerMargin)) {
      return fail("ksvector2_filter",
                  "Corner frequency %g is not below half the sample rate, %g", corner,
                  0.5 / dt);
    }
    if (corner * dt >= kCornerMargin) continue;
    return fail("ksvector2_filter", "Corner frequency %g is too low for sample rate %g",
                corner, 1 / dt);
  }
  if (!(flow > 0) || !(fhigh > 0) || (fhigh - flow) * dt >= kCornerMargin) return true;
  return fail("ksvector2_filter", "Corner frequencies %g and %g enclose no band", flow,
              fhigh);
}

/* Samples after a run in which the forward filter may ring out before the way back; bounded
 * by the run, so that many short ones between gaps stay cheap. */
std::size_t tail(const ksutil::ButterworthFilter &filter, std::size_t run) {
  const auto most = static_cast<double>(8 * run + 64);
  return static_cast<std::size_t>(std::min(std::ceil(filter.memory()), most));
}

void filter_both_ways(const ksutil::ButterworthFilter &filter, std::span<double> run,
                      std::vector<double> &work) {
  work.assign(run.begin(), run.end());
  work.resize(run.size() + tail(filter, run.size()), run.back());
  filter.run_forward(work);
  filter.run_backward(work);
  std::copy_n(work.begin(), run.size(), run.begin());
}

void filter_runs(const ksutil::ButterworthFilter &filter, std::span<double> samples,
                 bool zero_phase) {
  if (!zero_phase) {
    for_runs(samples, usable, [&](std::span<double> run) { filter.run_forward(run); });
    return;
  }
  /* Memory first: a failure half-way would leave the series filtered in part. */
  std::size_t longest = 0;
  for_runs(samples, usable,
           [&](std::span<double> run) { longest = std::max(longest, run.size()); });
  std::vector<double> work;
  work.reserve(longest + tail(filter, longest));
  for_runs(samples, usable,
           [&](std::span<double> run) { filter_both_ways(filter, run, work); });
}

/* A gap's samples on the line between its neighbours; 0 when it has but one. */
int fill_on_line(std::span<double> samples, std::span<double> gap) {
  if (gap.data() == samples.data()) return 0;
  if (gap.data() + gap.size() == samples.data() + samples.size()) return 0;
  const double before = *(gap.data() - 1);
  const double after = *(gap.data() + gap.size());
  const double steps = static_cast<double>(gap.size()) + 1;
  for (std::size_t i = 0; i < gap.size(); ++i) {
    gap[i] = before + (after - before) * static_cast<double>(i + 1) / steps;
  }
  return static_cast<int>(gap.size());
}

}  // namespace

int ksvector2_fill(const char *tag, const char *method, double value, int maxgap) {
  ksvector2 *const vector = look_up_series(tag, "ksvector2_fill");
  if (vector == nullptr) return -1;
  if (method == nullptr) method = "";
  const bool linear = std::string_view(method) == "linear";
  if (!linear && std::string_view(method) != "value") {
    return fail("ksvector2_fill", "Unrecognized method '%s'", method);
  }
  if (!linear && !usable(value)) {
    return fail("ksvector2_fill", "Cannot fill gaps with %g", value);
  }
  const std::span<double> samples = samples_of(*vector);
  int filled = 0;
  for_runs(samples, is_gap, [&](std::span<double> gap) {
    if (maxgap > 0 && gap.size() > static_cast<std::size_t>(maxgap)) return;
    if (linear) {
      filled += fill_on_line(samples, gap);
    } else {
      std::fill(gap.begin(), gap.end(), value);
      filled += static_cast<int>(gap.size());
    }
  });
  return filled;
}

int ksvector2_filter(const char *tag, double flow, double fhigh, int order,
                     int zero_phase) {
  ksvector2 *const vector = look_up_series(tag, "ksvector2_filter");
  if (vector == nullptr) return -1;
  if (order < 1 || order > kHighestOrder) {
    return fail("ksvector2_filter", "Order %d is not from 1 to %d", order,
                kHighestOrder);
  }
  if (!corners_fit(flow, fhigh, vector->dt)) return -1;
  return ksutil::at_boundary("ksvector2_filter", [&] {
    const ksutil::ButterworthFilter filter(flow > 0 ? flow * vector->dt : 0,
                                           fhigh > 0 ? fhigh * vector->dt : 0, order);
    filter_runs(filter, samples_of(*vector), zero_phase != 0);
    return 0;
  });
}
