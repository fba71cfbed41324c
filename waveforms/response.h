/* response: describes how an instrument turns ground motion into counts, reads and writes
 * the files that hold such descriptions, and evaluates them.
 *
 * A Response is a list of stages, applied in order (seismometer, amplifier, digitizer,
 * filters).  Its value at a frequency is the product of the values of its stages.
 *
 * Threads: a Response is plain data; the functions may run concurrently.
 * Errors: false, with the results untouched and "file: text" or "file:line: text" in
 * `problem`.  The functions register nothing; they may throw std::bad_alloc. */
#ifndef KSUTIL_WAVEFORMS_RESPONSE_H
#define KSUTIL_WAVEFORMS_RESPONSE_H

#include <complex>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/clock/clock.h"
#include "platform/stock/export.h"

namespace ksutil {

/* Poles and zeros of a transfer function
 * H = a0 (x - zero 1) (x - zero 2) ... / ((x - pole 1) (x - pole 2) ...). */
struct PoleZeroFilter {
  enum class Domain {
    kRadians,  // x = 2 pi i f
    kHertz,    // x = i f
    kDigital   // x = exp(2 pi i f / samprate), samprate of the stage's decimation
  };
  Domain domain = Domain::kRadians;
  double a0 = 1.0;
  double a0_frequency = 0.0;  // Hz, at which a0 makes |H| 1; 0 unknown.  Not used
  std::vector<std::complex<double>> zeros, poles;
};

/* A digital filter
 * H = (n0 + n1 / z + n2 / z^2 ...) / (d0 + d1 / z + ...), z = exp(2 pi i f / samprate), with
 * samprate of the stage's decimation.  Without denominators (a FIR filter) the divisor is
 * 1. */
struct CoefficientFilter {
  std::vector<double> numerators;  // at least one
  std::vector<double> denominators;
};

/* Measured or computed values, ascending in frequency. */
struct TableFilter {
  struct Row {
    double frequency = 0.0;  // Hz
    double amplitude = 0.0;
    double phase = 0.0;                               // degrees
    double amplitude_error = 0.0, phase_error = 0.0;  // 0 unknown
  };
  std::vector<Row> rows;  // at least one
};

/* The digital side of a stage. */
struct Decimation {
  double samprate = 0.0;    // Hz, of the samples that come in; above 0
  int factor = 1;           // samples in for one sample out
  int offset = 0;           // which of them is kept
  double delay = 0.0;       // s, that the filter delays
  double correction = 0.0;  // s, by which the digitizer has set the times back
};

struct ResponseStage {
  std::string name;  // "instrument", "digitizer", ...; "" unknown
  /* "M", "M/S", "M/S**2", "NM", "V", "COUNTS", ... in capitals; "" unknown. */
  std::string input_unit, output_unit;
  /* monostate: gain alone. */
  std::variant<std::monostate, PoleZeroFilter, CoefficientFilter, TableFilter> filter;
  double gain = 1.0;            // multiplies the filter
  double gain_frequency = 0.0;  // Hz, at which the gain holds; 0 unknown.  Not used
  std::optional<Decimation> decimation;

  /* The stage at a frequency (Hz, not negative): filter, gain, and the time by which the
   * decimation is corrected.
   * Tables: amplitudes on a straight line in the logarithms of frequency and amplitude
   * (linear where one is not positive), phases on a straight line in the logarithm of
   * frequency, the shorter way round; the values at the ends hold beyond them.
   * A digital filter without a decimation, and a pole at the frequency, give NaN or
   * infinity. */
  KSUTIL_API std::complex<double> evaluate(double frequency) const;
};

struct Response {
  std::vector<ResponseStage> stages;
  double sensitivity = 0.0;            // of the whole, as the file has it; 0 unknown.
  double sensitivity_frequency = 0.0;  // Hz; neither is used in evaluate()
  std::string author;                  // of a CSS3.0 file; "" unknown
  bool measured = false;               // rather than theoretical

  /* Of the first stage that has one; of the last. */
  KSUTIL_API std::string input_unit() const;
  KSUTIL_API std::string output_unit() const;

  /* The product of the stages at a frequency in Hz, output units for an input unit; 1
   * without stages.  Phases are positive where the output leads. */
  KSUTIL_API std::complex<double> evaluate(double frequency) const;
};

/* The frequency response of ground motion: output units for a metre (derivative 0), a
 * metre per second (1) or a metre per second squared (2) of ground motion at a frequency in
 * Hz, whatever the input unit of the response: an instrument of velocity answers to
 * displacement with i 2 pi f times its response.  A response without input unit counts as
 * one of displacement in NM.  False when the input unit is not one of ground motion. */
KSUTIL_API bool ground_response(const Response &response, double frequency,
                                int derivative, std::complex<double> &value);

/* Ground motion units: 0 for M, NM, UM, MM, CM and "", 1 for M/S, NM/S, ..., 2 for M/S**2,
 * M/S/S, ...; -1 for others.  In capitals or not; `metres` receives the metres in the unit of
 * length, and 1e-9 for "". */
KSUTIL_API int ground_unit(std::string_view unit, double &metres);

/* Reads a response file.  Its kind is seen from its content:
 *
 *   CSS3.0   groups that begin with a line "theoretical|measured  stage  name
 *            paz|fap|fap2|fir|pazfir  author", behind which come
 *            paz   a0, the number of poles, the poles (real, imaginary and two errors,
 *                  rad/s), the number of zeros, the zeros
 *            fap   the number of rows, the rows (frequency in Hz, amplitude, phase in
 *                  degrees, two errors); fap2 has further columns, which are not used
 *            fir   the sample rate of the input in Hz, the number of numerators, these
 *                  with an error each, the number of denominators, these likewise
 *            pazfir  a paz and then a fir
 *            Comments begin with "#"; "#:" comments are those of write_response_file.  A paz
 *            without poles and zeros is the gain of the stage before when it has its number.
 *            The decimation of a fir follows from the sample rate of the next one.  When the
 *            name of a group is "complete", that group is the whole response
 *   RESP     the text form of SEED station metadata: blockettes 53, 54, 55, 57, 58, 61, and
 *            41, 43, 44, 45, 47, 48 behind 60.  Polynomials (62) are refused
 *   SAC      pole-zero files: ZEROS, POLES, CONSTANT in any order; the rows that a count
 *            promises and that are missing are 0.  Input in metres unless a comment "INPUT
 *            UNIT" says otherwise; output in counts
 *
 * time      RESP and SAC files can hold several epochs: the one that holds at this time is
 *           read, epoch seconds; kNullTime: the last one in the file
 * response  out
 * Fails for files above 64 MiB, counts without their rows, numbers that are not finite, and
 * whatever else the form does not allow. */
KSUTIL_API bool read_response_file(const std::string &path, Response &response,
                                   std::string &problem, double time = kNullTime);

/* Writes the CSS3.0 form, which read_response_file reads back with the same values (poles
 * and zeros in Hz become rad/s; digital ones become coefficients).  Programs that read the
 * plain form see the same product of stages: gains stand as groups of their own; units,
 * decimations and the sensitivity, for which the form has no place, stand in comments that
 * begin with "#:".  The file is replaced as a whole, or not at all.  Fails for a response
 * without stages or with a number that is not finite, and for a digital filter without a
 * sample rate. */
KSUTIL_API bool write_response_file(const std::string &path, const Response &response,
                                    std::string &problem);

}  // namespace ksutil
#endif
