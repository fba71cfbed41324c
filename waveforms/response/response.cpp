#include "waveforms/response.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "platform/geo/angle.h"

namespace ksutil {
namespace {

using Complex = std::complex<double>;
using std::numbers::pi;

Complex product(const std::vector<Complex> &roots, Complex x) {
  Complex result = 1.0;
  for (const Complex root : roots) result *= x - root;
  return result;
}

/* c0 + c1 / z + c2 / z^2 ... with w = 1 / z, from the last one on. */
Complex polynomial(const std::vector<double> &coefficients, Complex w) {
  Complex result = 0.0;
  for (auto at = coefficients.rbegin(); at != coefficients.rend(); ++at) {
    result = result * w + *at;
  }
  return result;
}

/* exp(2 pi i f / samprate). */
Complex rotation(double frequency, const std::optional<Decimation> &decimation) {
  const double samprate =
      decimation ? decimation->samprate : std::numeric_limits<double>::quiet_NaN();
  return std::polar(1.0, 2 * pi * frequency / samprate);
}

Complex value_of(const PoleZeroFilter &filter, double frequency,
                 const std::optional<Decimation> &decimation) {
  Complex x(0.0, frequency);
  if (filter.domain == PoleZeroFilter::Domain::kRadians) x *= 2 * pi;
  if (filter.domain == PoleZeroFilter::Domain::kDigital) {
    x = rotation(frequency, decimation);
  }
  return filter.a0 * product(filter.zeros, x) / product(filter.poles, x);
}

Complex value_of(const CoefficientFilter &filter, double frequency,
                 const std::optional<Decimation> &decimation) {
  const Complex w = std::conj(rotation(frequency, decimation));
  const Complex above = polynomial(filter.numerators, w);
  return filter.denominators.empty() ? above
                                     : above / polynomial(filter.denominators, w);
}

Complex of_row(double amplitude, double phase) {
  /* A measured amplitude can be negative; std::polar takes none. */
  return amplitude * std::polar(1.0, radians(phase));
}

Complex value_of(const TableFilter &filter, double frequency,
                 const std::optional<Decimation> &) {
  const auto &rows = filter.rows;
  if (rows.empty()) return 1.0;
  const auto above = std::upper_bound(
      rows.begin(), rows.end(), frequency,
      [](double value, const TableFilter::Row &row) { return value < row.frequency; });
  if (above == rows.begin()) return of_row(rows.front().amplitude, rows.front().phase);
  if (above == rows.end()) return of_row(rows.back().amplitude, rows.back().phase);
  const TableFilter::Row &high = *above, &low = *(above - 1);
  const double along =
      low.frequency > 0.0
          ? std::log(frequency / low.frequency) /
                std::log(high.frequency / low.frequency)
          : (frequency - low.frequency) / (high.frequency - low.frequency);
  const double amplitude =
      low.amplitude > 0.0 && high.amplitude > 0.0
          ? low.amplitude * std::pow(high.amplitude / low.amplitude, along)
          : low.amplitude + along * (high.amplitude - low.amplitude);
  const double turn = std::remainder(high.phase - low.phase, 360.0);
  return of_row(amplitude, low.phase + along * turn);
}

Complex value_of(std::monostate, double, const std::optional<Decimation> &) {
  return 1.0;
}

}  // namespace

std::complex<double> ResponseStage::evaluate(double frequency) const {
  Complex value = std::visit(
      [&](const auto &each) { return value_of(each, frequency, decimation); }, filter);
  value *= gain;
  if (decimation && decimation->correction != 0.0) {
    value *= std::polar(1.0, 2 * pi * frequency * decimation->correction);
  }
  return value;
}

std::string Response::input_unit() const {
  for (const ResponseStage &stage : stages) {
    if (!stage.input_unit.empty()) return stage.input_unit;
  }
  return {};
}

std::string Response::output_unit() const {
  for (auto stage = stages.rbegin(); stage != stages.rend(); ++stage) {
    if (!stage->output_unit.empty()) return stage->output_unit;
  }
  return {};
}

std::complex<double> Response::evaluate(double frequency) const {
  Complex value = 1.0;
  for (const ResponseStage &stage : stages) value *= stage.evaluate(frequency);
  return value;
}

int ground_unit(std::string_view of_any_case, double &metres) {
  metres = 1e-9;
  if (of_any_case.empty()) return 0;
  std::string unit(of_any_case);
  std::transform(unit.begin(), unit.end(), unit.begin(), [](unsigned char c) {
    return static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
  });
  const std::size_t slash = unit.find('/');
  const std::string length = unit.substr(0, slash);
  if (length == "M") {
    metres = 1.0;
  } else if (length == "CM") {
    metres = 1e-2;
  } else if (length == "MM") {
    metres = 1e-3;
  } else if (length == "UM") {
    metres = 1e-6;
  } else if (length != "NM") {
    return -1;
  }
  if (slash == std::string_view::npos) return 0;
  const std::string per = unit.substr(slash + 1);
  if (per == "S" || per == "SEC") return 1;
  for (const char *const square :
       {"S**2", "S^2", "(S**2)", "S/S", "S2", "SEC**2", "SEC/SEC"}) {
    if (per == square) return 2;
  }
  return -1;
}

bool ground_response(const Response &response, double frequency, int derivative,
                     std::complex<double> &value) {
  double metres;
  const int of_response = ground_unit(response.input_unit(), metres);
  if (of_response < 0) return false;
  Complex found = response.evaluate(frequency) / metres;
  const Complex s(0.0, 2 * pi * frequency);
  for (int i = derivative; i < of_response; ++i) found *= s;
  for (int i = of_response; i < derivative; ++i) found /= s;
  value = found;
  return true;
}

}  // namespace ksutil
