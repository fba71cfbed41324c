/* signal: transforms evenly spaced samples: Fourier transform, deconvolution of responses,
 * resampling, rotation of components, power spectra, onsets.
 *
 * A sample above 1e30 is a gap (platform/trace/trace.h); so is one that is not finite.
 * Threads: the functions share nothing and may run concurrently.
 * Errors: false, with the reason in `problem` and the results untouched.  The functions
 * register nothing; they may throw std::bad_alloc. */
#ifndef KSUTIL_WAVEFORMS_SIGNAL_H
#define KSUTIL_WAVEFORMS_SIGNAL_H

#include <array>
#include <complex>
#include <cstddef>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "platform/stock/export.h"

namespace ksutil {

/* The discrete Fourier transform in place: values[k] becomes the sum over j of
 * values[j] exp(-2 pi i j k / n), or with `inverse` that with a positive exponent, divided
 * by n.
 *
 * values   [n], n a power of two; any other number is left as it is
 * Accuracy: relative errors of some 1e-16 log2(n) of the largest value.
 * Source: Cooley and Tukey, Math. Comput. 19 (1965), 297-301; decimation in time. */
KSUTIL_API void fourier_transform(std::span<std::complex<double>> values, bool inverse);

/* The smallest power of two that is not below n. */
KSUTIL_API std::size_t fourier_size(std::size_t n);

/* How deconvolve() bounds the noise that a small response amplifies. */
struct Deconvolution {
  /* Pre-filter: the spectrum is multiplied by 0 below the first corner and above the
   * fourth, by 1 from the second to the third, and by half a period of a cosine between.
   * Hz, ascending; all 0: none. */
  std::array<double, 4> corners{};
  /* Water level in dB below the largest amplitude of the response in the pass band: the
   * division takes the response as at least as large.  0 or less: none. */
  double water_level = 0.0;
  /* The part of the samples at each end of a run that a cosine brings to the mean, 0 to
   * 0.5. */
  double taper = 0.05;
};

/* Replaces samples by what went into an instrument: the inverse of its response.
 *
 * samples    [n]; each run between gaps is deconvolved on its own, gaps stay
 * samprate   Hz
 * response   the response at a frequency in Hz, called for frequencies from 0 to half the
 *            sample rate
 * The mean of each run is taken off and the ends are tapered; the run is padded with zeros
 * to at least twice its length, so that the end does not run into the beginning.  The
 * spectrum is multiplied by P conj(R) / max(|R|^2, w^2), with the pre-filter P and the
 * water level w; where R is 0 or not finite the result has nothing.
 * Fails for corners that do not ascend or a run of more than 33 554 432 samples.
 * Sources: Clayton and Wiggins, Geophys. J. R. Astron. Soc. 47 (1976), 151-177 (water
 * level); Havskov and Alguacil, Instrumentation in Earthquake Seismology, 2nd ed. (2016),
 * sec. 6.5 (pre-filter). */
KSUTIL_API bool deconvolve(
    std::span<double> samples, double samprate,
    const std::function<std::complex<double>(double frequency)> &response,
    const Deconvolution &how, std::string &problem);

/* Samples at another rate.
 *
 * samples         [n] at `samprate` Hz
 * new_samprate    Hz; at most 1000 times more or less
 * result          out: sample j belongs to the time j / new_samprate after samples[0], as
 *                 long as that is not after the last sample
 * The samples are interpolated with a sinc function under a Kaiser window of 54 zero
 * crossings on each side (beta 8.6), which passes frequencies below 0.9 of half the lower
 * rate and stops those above that half by some 80 dB: no aliasing.  Where the window
 * reaches beyond a run, the weights of the samples within it are scaled to the sum 1.  A
 * sample whose neighbours are not both there is a gap.
 * Fails for more than 250 000 000 samples.
 * Source: Oppenheim and Schafer, Discrete-Time Signal Processing, 3rd ed. (2010), sec. 4.6
 * and 7.5.3. */
KSUTIL_API bool resample(std::span<const double> samples, double samprate,
                         double new_samprate, std::vector<double> &result,
                         std::string &problem);

/* Where a sensor points: hang in degrees clockwise from north, vang in degrees from
 * upward. */
struct Orientation {
  double hang = 0.0, vang = 0.0;
};

/* Three components in any directions that do not lie in one plane become up, radial and
 * transverse motion.
 *
 * components   [3] of [n] samples each, replaced by Z, R and T; a gap in one is a gap in all
 * seaz         azimuth of the event at the station, degrees: R points away from the event,
 *              T 90 degrees clockwise from R seen from above
 * Fails when the components lie nearly in a plane (a determinant below 0.01) or differ in
 * length.
 * Source: Shearer, Introduction to Seismology, 2nd ed. (2009), ch. 2 (rotation of axes). */
KSUTIL_API bool rotate_to_zrt(const std::array<Orientation, 3> &orientations,
                              double seaz,
                              const std::array<std::span<double>, 3> &components,
                              std::string &problem);

/* The power spectral density, one-sided: unit^2 / Hz over frequencies in Hz.
 *
 * samples       [n], at `samprate` Hz; pieces with gaps are left out
 * piece         samples of a piece, cut down to a power of two and to n; at least 16
 * frequencies   out: [piece / 2], from samprate / piece on
 * density       out: [piece / 2]
 * Mean over pieces that overlap by half, each without its mean and under a Hann window.
 * Its integral over frequency is the variance.  Fails without a piece free of gaps.
 * Source: Welch, IEEE Trans. Audio Electroacoust. 15 (1967), 70-73. */
KSUTIL_API bool power_spectrum(std::span<const double> samples, double samprate,
                               std::size_t piece, std::vector<double> &frequencies,
                               std::vector<double> &density, std::string &problem);

/* How onsets are found. */
struct OnsetSearch {
  double sta = 1.0, lta = 10.0;  // s, the short window and the long one before it
  double ratio = 6.0;          // of their mean energies, from which on an onset begins
  double off = 2.0;            // ratio below which the next onset may begin
  std::size_t most = 1000000;  // onsets at most
};
struct Onset {
  std::size_t sample = 0;  // the last of the short window that exceeded the ratio
  double ratio = 0.0;      // of the windows there
};

/* Onsets: where the mean energy (of the samples without their mean over the long window)
 * of the short window first exceeds `ratio` times that of the long window before it.  Gaps
 * begin anew: no window reaches over one.
 * Source: Allen, BSSA 68 (1978), 1521-1532, in its simplest form. */
KSUTIL_API std::vector<Onset> find_onsets(std::span<const double> samples,
                                          double samprate, const OnsetSearch &search);
KSUTIL_API std::vector<Onset> find_onsets(std::span<const float> samples,
                                          double samprate, const OnsetSearch &search);

}  // namespace ksutil
#endif
