/* signal_fourier: the Fourier transform, deconvolution and power spectra. */
#include <bit>
#include <cmath>
#include <numbers>
#include <numeric>

#include "waveforms/signal.h"
#include "waveforms/signal/internal/signal_runs.h"

namespace ksutil {
namespace {

using Complex = std::complex<double>;
using std::numbers::pi;

constexpr std::size_t kLongestRun = std::size_t{1} << 25;

/* Puts each value at the place whose number has its bits in reverse order. */
void reverse_order(std::span<Complex> values) {
  std::size_t j = 0;
  for (std::size_t i = 1; i < values.size(); ++i) {
    std::size_t bit = values.size() >> 1;
    for (; (j & bit) != 0; bit >>= 1) j ^= bit;
    j ^= bit;
    if (i < j) std::swap(values[i], values[j]);
  }
}

double window_of_hann(std::size_t i, std::size_t n) {
  return 0.5 - 0.5 * std::cos(2 * pi * static_cast<double>(i) / static_cast<double>(n));
}

/* Half a period of a cosine from 0 to 1. */
double rise(double along) { return 0.5 - 0.5 * std::cos(pi * along); }

double pass(const std::array<double, 4> &corners, double frequency) {
  const auto [f1, f2, f3, f4] = corners;
  if (f4 <= 0.0) return 1.0;
  if (frequency < f1 || frequency > f4) return 0.0;
  if (frequency < f2) return rise((frequency - f1) / (f2 - f1));
  if (frequency > f3) return rise((f4 - frequency) / (f4 - f3));
  return 1.0;
}

bool corners_ascend(const std::array<double, 4> &corners) {
  if (corners == std::array<double, 4>{}) return true;
  double before = 0.0;
  for (const double corner : corners) {
    if (!std::isfinite(corner) || corner < before) return false;
    before = corner;
  }
  return corners[3] > 0.0;
}

void take_off_mean(std::span<double> samples) {
  const double mean = std::accumulate(samples.begin(), samples.end(), 0.0) /
                      static_cast<double>(samples.size());
  for (double &sample : samples) sample -= mean;
}

void taper_ends(std::span<double> samples, double part) {
  const auto length = static_cast<std::size_t>(std::min(std::max(part, 0.0), 0.5) *
                                               static_cast<double>(samples.size()));
  for (std::size_t i = 0; i < length; ++i) {
    const double factor = rise(static_cast<double>(i) / static_cast<double>(length));
    samples[i] *= factor;
    samples[samples.size() - 1 - i] *= factor;
  }
}

/* What the spectrum of n values is multiplied by, for k = 0 ... n / 2. */
std::vector<Complex> inverse_response(std::size_t n, double samprate,
                                      const std::function<Complex(double)> &response,
                                      const Deconvolution &how) {
  std::vector<Complex> factors(n / 2 + 1);
  const auto frequency = [&](std::size_t k) {
    return static_cast<double>(k) * samprate / static_cast<double>(n);
  };
  double largest = 0.0;
  for (std::size_t k = 0; k < factors.size(); ++k) {
    if (pass(how.corners, frequency(k)) <= 0.0) continue;
    const Complex value = response(frequency(k));
    if (!std::isfinite(value.real()) || !std::isfinite(value.imag())) continue;
    factors[k] = value;
    largest = std::max(largest, std::abs(value));
  }
  const double level =
      how.water_level > 0.0 ? largest * std::pow(10.0, -how.water_level / 20.0) : 0.0;
  for (std::size_t k = 0; k < factors.size(); ++k) {
    /* Real responses lie anywhere between 1e-60 and 1e60: no squares. */
    const double size = std::abs(factors[k]);
    if (size <= 0.0) continue;
    const double divisor = std::max(size, level);
    factors[k] =
        pass(how.corners, frequency(k)) * (std::conj(factors[k]) / divisor) / divisor;
  }
  return factors;
}

void deconvolve_run(std::span<double> run, double samprate,
                    const std::function<Complex(double)> &response,
                    const Deconvolution &how, std::vector<Complex> &factors,
                    std::vector<Complex> &work) {
  const std::size_t n = fourier_size(2 * run.size());
  if (factors.size() != n / 2 + 1) {
    factors = inverse_response(n, samprate, response, how);
  }
  take_off_mean(run);
  taper_ends(run, how.taper);
  work.assign(n, 0.0);
  std::copy(run.begin(), run.end(), work.begin());
  fourier_transform(work, false);
  for (std::size_t k = 0; k <= n / 2; ++k) {
    work[k] *= factors[k];
    if (k > 0) work[n - k] = std::conj(work[k]);
  }
  work[n / 2] = work[n / 2].real();
  fourier_transform(work, true);
  for (std::size_t i = 0; i < run.size(); ++i) run[i] = work[i].real();
}

}  // namespace

std::size_t fourier_size(std::size_t n) { return std::bit_ceil(n); }

void fourier_transform(std::span<std::complex<double>> values, bool inverse) {
  const std::size_t n = values.size();
  if (n < 2 || !std::has_single_bit(n)) return;
  reverse_order(values);
  std::vector<Complex> turns(n / 2);
  for (std::size_t k = 0; k < turns.size(); ++k) {
    const double angle = 2 * pi * static_cast<double>(k) / static_cast<double>(n);
    turns[k] = std::polar(1.0, inverse ? angle : -angle);
  }
  for (std::size_t half = 1; half < n; half *= 2) {
    const std::size_t stride = n / (2 * half);
    for (std::size_t begin = 0; begin < n; begin += 2 * half) {
      for (std::size_t k = 0; k < half; ++k) {
        Complex &low = values[begin + k], &high = values[begin + k + half];
        const Complex turn = turns[k * stride];
        /* Written out: the operator also looks for infinities. */
        const Complex moved(high.real() * turn.real() - high.imag() * turn.imag(),
                            high.real() * turn.imag() + high.imag() * turn.real());
        high = low - moved;
        low += moved;
      }
    }
  }
  if (!inverse) return;
  for (Complex &value : values) value /= static_cast<double>(n);
}

bool deconvolve(std::span<double> samples, double samprate,
                const std::function<std::complex<double>(double)> &response,
                const Deconvolution &how, std::string &problem) {
  if (!(samprate > 0.0) || !std::isfinite(samprate)) {
    problem = "the sample rate is not positive";
    return false;
  }
  if (!corners_ascend(how.corners)) {
    problem = "the corners of the pre-filter do not ascend";
    return false;
  }
  std::size_t longest = 0;
  for_each_run(samples, [&](std::size_t, std::span<double> run) {
    longest = std::max(longest, run.size());
  });
  if (longest > kLongestRun) {
    problem = std::to_string(longest) + " samples without a gap are too many";
    return false;
  }
  /* Memory first: a failure half-way would leave samples of two kinds. */
  std::vector<Complex> factors, work;
  work.reserve(fourier_size(2 * longest));
  factors.reserve(fourier_size(2 * longest) / 2 + 1);
  for_each_run(samples, [&](std::size_t, std::span<double> run) {
    deconvolve_run(run, samprate, response, how, factors, work);
  });
  return true;
}

bool power_spectrum(std::span<const double> samples, double samprate, std::size_t piece,
                    std::vector<double> &frequencies, std::vector<double> &density,
                    std::string &problem) {
  const std::size_t n = std::bit_floor(std::min({piece, samples.size(), kLongestRun}));
  if (n < 16 || !(samprate > 0.0)) {
    problem = "a piece of at least 16 samples is needed";
    return false;
  }
  std::vector<double> sums(n / 2, 0.0), part(n);
  std::vector<Complex> work(n);
  double weight = 0.0;
  for (std::size_t i = 0; i < n; ++i) weight += std::pow(window_of_hann(i, n), 2);
  std::size_t pieces = 0;
  for (std::size_t begin = 0; begin + n <= samples.size(); begin += n / 2) {
    const auto from = samples.subspan(begin, n);
    if (!std::all_of(from.begin(), from.end(), is_sample)) continue;
    std::copy(from.begin(), from.end(), part.begin());
    take_off_mean(part);
    for (std::size_t i = 0; i < n; ++i) work[i] = part[i] * window_of_hann(i, n);
    fourier_transform(work, false);
    for (std::size_t k = 1; k <= n / 2; ++k) sums[k - 1] += std::norm(work[k]);
    ++pieces;
  }
  if (pieces == 0) {
    problem = "no piece of " + std::to_string(n) + " samples is without gaps";
    return false;
  }
  std::vector<double> axis(n / 2);
  for (std::size_t k = 1; k <= n / 2; ++k) {
    axis[k - 1] = static_cast<double>(k) * samprate / static_cast<double>(n);
    /* Both signs of a frequency, but half the sample rate is its own negative. */
    sums[k - 1] *=
        (k == n / 2 ? 1.0 : 2.0) / (static_cast<double>(pieces) * weight * samprate);
  }
  frequencies = std::move(axis);
  density = std::move(sums);
  return true;
}

}  // namespace ksutil
