/* signal_samples: resampling, rotation and onsets. */
#include <cmath>
#include <numbers>

#include "platform/geo/angle.h"
#include "waveforms/signal.h"
#include "waveforms/signal/internal/signal_runs.h"

namespace ksutil {
namespace {

using std::numbers::pi;

constexpr double kMostSamples = 250e6;
constexpr int kCrossings = 54;  // of the sinc on each side
constexpr int kSteps = 1024;    // of the table between two of them
constexpr double kBeta = 8.6;
constexpr double kPassed = 0.9;  // of half the lower rate

/* The sinc under its window at kSteps places for each crossing, and 0 behind the last. */
std::vector<double> kernel_table() {
  std::vector<double> table(static_cast<std::size_t>(kCrossings) * kSteps + 2, 0.0);
  for (std::size_t i = 0; i + 2 < table.size(); ++i) {
    const double x = static_cast<double>(i) / kSteps;
    const double part = x / kCrossings;
    const double window = std::cyl_bessel_i(0.0, kBeta * std::sqrt(1.0 - part * part)) /
                          std::cyl_bessel_i(0.0, kBeta);
    table[i] = window * (x == 0.0 ? 1.0 : std::sin(pi * x) / (pi * x));
  }
  return table;
}

/* One run on its own clock: sample `first` of the series is its first one. */
class Interpolation {
 public:
  /* scale: crossings of the sinc for one sample in. */
  Interpolation(std::span<const double> run, double scale)
      : run_(run), scale_(scale), table_(shared_table()) {}

  /* The value at a place between the samples, 0 <= at <= size - 1. */
  double operator()(double at) const {
    const double reach = kCrossings / scale_;
    const auto last = static_cast<double>(run_.size() - 1);
    const double low = std::max(std::ceil(at - reach), 0.0);
    const double high = std::min(std::floor(at + reach), last);
    double sum = 0.0, weights = 0.0;
    for (auto i = static_cast<std::size_t>(low); i <= static_cast<std::size_t>(high);
         ++i) {
      const double weight = value(std::abs(static_cast<double>(i) - at) * scale_);
      sum += weight * run_[i];
      weights += weight;
    }
    return weights != 0.0 ? sum / weights : run_[static_cast<std::size_t>(at)];
  }

 private:
  static const std::vector<double> &shared_table() {
    static const std::vector<double> table = kernel_table();
    return table;
  }
  double value(double crossings) const {
    const double place = crossings * kSteps;
    const auto i = static_cast<std::size_t>(place);
    if (i + 1 >= table_.size()) return 0.0;
    const double along = place - static_cast<double>(i);
    return table_[i] + along * (table_[i + 1] - table_[i]);
  }

  std::span<const double> run_;
  double scale_;
  const std::vector<double> &table_;
};

/* The energies of a run without their mean over a stretch, from running sums. */
class Energies {
 public:
  template <class Number>
  explicit Energies(std::span<const Number> run) {
    /* Sums stay exact enough when they count from the level of the run. */
    const auto level = static_cast<double>(run.front());
    sums_.reserve(run.size() + 1);
    squares_.reserve(run.size() + 1);
    sums_.push_back(0.0);
    squares_.push_back(0.0);
    for (const Number sample : run) {
      const double value = static_cast<double>(sample) - level;
      sums_.push_back(sums_.back() + value);
      squares_.push_back(squares_.back() + value * value);
    }
  }
  double mean(std::size_t from, std::size_t to) const {
    return (sums_[to] - sums_[from]) / static_cast<double>(to - from);
  }
  /* The mean of the squares of samples less `level`. */
  double energy(std::size_t from, std::size_t to, double level) const {
    const double square =
        (squares_[to] - squares_[from]) / static_cast<double>(to - from);
    return std::max(square - 2 * level * mean(from, to) + level * level, 0.0);
  }

 private:
  std::vector<double> sums_, squares_;  // of the samples before i
};

template <class Number>
std::vector<Onset> onsets_of(std::span<const Number> samples, double samprate,
                             const OnsetSearch &search) {
  std::vector<Onset> onsets;
  const double most = static_cast<double>(samples.size());
  const auto window = [&](double seconds) {
    return static_cast<std::size_t>(
        std::min(std::max(std::round(seconds * samprate), 1.0), most + 1.0));
  };
  if (!(samprate > 0.0)) return onsets;
  const std::size_t brief = window(search.sta), before = window(search.lta);
  for_each_run(samples, [&](std::size_t first, std::span<const Number> run) {
    if (run.size() < before + brief) return;
    const Energies energies(run);
    bool on = false;
    for (std::size_t i = before; i + brief <= run.size(); ++i) {
      const double level = energies.mean(i - before, i);
      const double noise = energies.energy(i - before, i, level);
      const double signal = energies.energy(i, i + brief, level);
      if (on) {
        on = signal >= search.off * noise;
        continue;
      }
      if (noise <= 0.0 || signal < search.ratio * noise) continue;
      on = true;
      if (onsets.size() >= search.most) return;
      /* The energy comes at the end of the window that first exceeds the ratio. */
      onsets.push_back({first + i + brief - 1, signal / noise});
    }
  });
  return onsets;
}

}  // namespace

bool resample(std::span<const double> samples, double samprate, double new_samprate,
              std::vector<double> &result, std::string &problem) {
  const double ratio = new_samprate / samprate;
  if (!(samprate > 0.0) || !(ratio >= 1e-3) || !(ratio <= 1e3)) {
    problem = "the sample rates are not positive or differ by more than 1000 times";
    return false;
  }
  const double most =
      samples.empty() ? 0.0 : static_cast<double>(samples.size() - 1) * ratio + 1.0;
  if (most > kMostSamples) {
    problem = "more than 250 000 000 samples";
    return false;
  }
  /* A whole number of samples is not lost to rounding. */
  std::vector<double> made(static_cast<std::size_t>(std::floor(most + 1e-6)),
                           gap_mark());
  const double scale =
      std::min(ratio, 1.0) * (ratio == 1.0 ? 1.0 : (1.0 + kPassed) / 2);
  for_each_run(samples, [&](std::size_t first, std::span<const double> run) {
    const Interpolation at(run, scale);
    const auto begin = static_cast<double>(first);
    const double end = begin + static_cast<double>(run.size() - 1);
    const auto from = static_cast<std::size_t>(std::ceil(begin * ratio - 1e-6));
    for (std::size_t j = from; j < made.size(); ++j) {
      const double place = static_cast<double>(j) / ratio;
      if (place > end + 1e-6) break;
      made[j] = at(std::min(std::max(place - begin, 0.0), end - begin));
    }
  });
  result = std::move(made);
  return true;
}

bool rotate_to_zrt(const std::array<Orientation, 3> &orientations, double seaz,
                   const std::array<std::span<double>, 3> &components,
                   std::string &problem) {
  if (components[0].size() != components[1].size() ||
      components[0].size() != components[2].size()) {
    problem = "the components differ in length";
    return false;
  }
  double u[3][3];  // up, north and east of each sensor
  for (std::size_t i = 0; i < 3; ++i) {
    const double hang = radians(orientations[i].hang),
                 vang = radians(orientations[i].vang);
    u[i][0] = std::cos(vang);
    u[i][1] = std::sin(vang) * std::cos(hang);
    u[i][2] = std::sin(vang) * std::sin(hang);
  }
  /* Columns of the inverse: cross products over the determinant. */
  double inverse[3][3];
  for (std::size_t i = 0; i < 3; ++i) {
    const auto *const a = u[(i + 1) % 3], *const b = u[(i + 2) % 3];
    inverse[0][i] = a[1] * b[2] - a[2] * b[1];
    inverse[1][i] = a[2] * b[0] - a[0] * b[2];
    inverse[2][i] = a[0] * b[1] - a[1] * b[0];
  }
  const double volume =
      u[0][0] * inverse[0][0] + u[0][1] * inverse[1][0] + u[0][2] * inverse[2][0];
  if (!(std::abs(volume) >= 0.01) || !std::isfinite(seaz)) {
    problem = "the components lie in a plane";
    return false;
  }
  const double sine = std::sin(radians(seaz)), cosine = std::cos(radians(seaz));
  for (std::size_t i = 0; i < components[0].size(); ++i) {
    const double d[3] = {components[0][i], components[1][i], components[2][i]};
    if (!is_sample(d[0]) || !is_sample(d[1]) || !is_sample(d[2])) {
      for (const auto &component : components) component[i] = gap_mark();
      continue;
    }
    double ground[3];  // up, north, east
    for (std::size_t j = 0; j < 3; ++j) {
      ground[j] =
          (inverse[j][0] * d[0] + inverse[j][1] * d[1] + inverse[j][2] * d[2]) / volume;
    }
    components[0][i] = ground[0];
    components[1][i] = -ground[1] * cosine - ground[2] * sine;
    components[2][i] = ground[1] * sine - ground[2] * cosine;
  }
  return true;
}

std::vector<Onset> find_onsets(std::span<const double> samples, double samprate,
                               const OnsetSearch &search) {
  return onsets_of(samples, samprate, search);
}

std::vector<Onset> find_onsets(std::span<const float> samples, double samprate,
                               const OnsetSearch &search) {
  return onsets_of(samples, samprate, search);
}

}  // namespace ksutil
