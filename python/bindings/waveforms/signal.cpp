/* signal: transforms of evenly spaced samples in arrays, and miniSEED. */
#include "waveforms/signal.h"
#include <ksutil/platform/trace/miniseed.h>
#include <pybind11/complex.h>
#include <pybind11/stl.h>
#include "waveforms/response.h"

#include <array>
#include <cmath>
#include <optional>

#include "bindings/bindings.h"
#include "bindings/interpreter/arguments.h"
#include "bindings/interpreter/arrays.h"
#include "bindings/interpreter/calls.h"
#include "bindings/interpreter/failure.h"
#include "bindings/interpreter/locks.h"
#include "bindings/interpreter/memory_file.h"
#include "bindings/objects/gaps.h"
#include "bindings/objects/records.h"
#include "bindings/objects/series.h"
#include "bindings/waveforms/response.h"

namespace ksutil::python {
namespace {

constexpr double kGapSample = 1e34;

double rate(double samprate) {
  if (!(samprate > 0.0) || !std::isfinite(samprate)) {
    throw py::value_error("samprate must be finite and above 0");
  }
  return samprate;
}

Doubles samples_of(const py::object &samples) {
  return doubles(samples, "samples", 1, kGapSample);
}
std::span<const double> span_of(const Doubles &samples) {
  return {samples.data(), static_cast<std::size_t>(samples.size())};
}

/* Samples that were computed, with NaN for gaps. */
py::array_t<double> result_of(std::vector<double> samples) {
  for (double &each : samples) {
    if (is_gap(each)) each = std::nan("");
  }
  return array_of(std::move(samples));
}

py::array_t<double> filter(const py::object &samples, double samprate, double low,
                           double high, int order, bool zero_phase) {
  const Doubles values = samples_of(samples);
  const int n = count_of(values, "samples");
  const double *const data = values.data();
  rate(samprate);
  std::vector<double> result(static_cast<std::size_t>(n));
  const Failure failure;
  SeriesRecord record;
  failure.check(locked(lock_of(Family::kSeries), [&] {
    const ksvector2 *const vector =
        ksvector2_create_tsamp(n, data, nullptr, record.tag, 0.0, samprate);
    if (vector == nullptr) return -1;
    if (ksvector2_filter(record.tag, low, high, order, zero_phase ? 1 : 0) != 0) {
      return -1;
    }
    std::copy_n(vector->data, n, result.begin());
    return 0;
  }));
  return result_of(std::move(result));
}

py::array_t<double> resample_samples(const py::object &samples, double samprate,
                                     double new_samprate) {
  const Doubles values = samples_of(samples);
  rate(samprate);
  rate(new_samprate);
  std::vector<double> result;
  std::string problem;
  const bool good = released([&] {
    return resample(span_of(values), samprate, new_samprate, result, problem);
  });
  if (!good) throw Error(problem);
  return result_of(std::move(result));
}

py::tuple rotate(const std::array<py::object, 3> &components,
                 const std::array<std::pair<double, double>, 3> &orientations,
                 double seaz) {
  std::array<std::vector<double>, 3> samples;
  std::array<std::span<double>, 3> spans;
  std::array<Orientation, 3> directions;
  for (std::size_t i = 0; i < 3; ++i) {
    const Doubles values = doubles(components[i], "components", 1, kGapSample);
    samples[i].assign(values.data(), values.data() + values.size());
    spans[i] = samples[i];
    directions[i] = {orientations[i].first, orientations[i].second};
  }
  std::string problem;
  if (!released([&] { return rotate_to_zrt(directions, seaz, spans, problem); })) {
    throw Error(problem);
  }
  return py::make_tuple(result_of(std::move(samples[0])),
                        result_of(std::move(samples[1])),
                        result_of(std::move(samples[2])));
}

py::tuple spectrum(const py::object &samples, double samprate, std::size_t piece) {
  const Doubles values = samples_of(samples);
  rate(samprate);
  std::vector<double> frequencies, density;
  std::string problem;
  const bool good = released([&] {
    return power_spectrum(span_of(values), samprate, piece, frequencies, density,
                          problem);
  });
  if (!good) throw Error(problem);
  return py::make_tuple(array_of(std::move(frequencies)), array_of(std::move(density)));
}

py::tuple onsets(const py::object &samples, double samprate, double sta, double lta,
                 double ratio, double off) {
  const Doubles values = samples_of(samples);
  rate(samprate);
  if (!(sta > 0.0) || !(lta > 0.0) || sta > 1e9 || lta > 1e9) {
    throw py::value_error("sta and lta must be above 0");
  }
  OnsetSearch search;
  search.sta = sta;
  search.lta = lta;
  search.ratio = ratio;
  search.off = off;
  const std::vector<Onset> found =
      released([&] { return find_onsets(span_of(values), samprate, search); });
  std::vector<std::int64_t> indices;
  std::vector<double> ratios;
  for (const Onset &each : found) {
    indices.push_back(static_cast<std::int64_t>(each.sample));
    ratios.push_back(each.ratio);
  }
  return py::make_tuple(array_of(std::move(indices)), array_of(std::move(ratios)));
}

py::array_t<double> remove_response(const py::object &samples, double samprate,
                                    const Response &response, const std::string &motion,
                                    const std::optional<std::array<double, 4>> &corners,
                                    double water_level, double taper) {
  const Doubles values = samples_of(samples);
  rate(samprate);
  const int derivative = derivative_of(motion);
  std::vector<double> result(values.data(), values.data() + values.size());
  Deconvolution how;
  if (corners) how.corners = *corners;
  how.water_level = water_level;
  how.taper = taper;
  std::string problem;
  const bool good = released([&] {
    return deconvolve(
        result, samprate,
        [&](double frequency) {
          std::complex<double> value;
          return ground_response(response, frequency, derivative, value)
                     ? value
                     : std::complex<double>();
        },
        how, problem);
  });
  if (!good) throw Error(problem);
  return result_of(std::move(result));
}

py::list read_miniseed(const py::object &source) {
  const MemoryFile file(source);
  MiniseedContents contents;
  {
    const Failure failure;
    if (!released([&] { return miniseed_list(file.path(), contents); }))
      failure.raise();
  }
  py::list list;
  for (const MiniseedPiece &piece : contents.pieces) {
    check_signals();
    const SeriesCodes codes{piece.codes.net, piece.codes.sta, piece.codes.loc,
                            piece.codes.chan};
    if (piece.nsamp > INT32_MAX) throw Error("a piece has too many samples");
    const Failure failure;
    std::vector<double> samples;
    const bool good = released(
        [&] { return miniseed_read(file.path(), piece, 0, piece.nsamp, samples); });
    if (!good) failure.raise();
    list.append(make_series(
        [&](char *tag) {
          return ksvector2_create_tsamp(static_cast<int>(samples.size()),
                                        samples.data(), name_of(codes).c_str(), tag,
                                        piece.time, piece.samprate);
        },
        codes));
  }
  return list;
}

}  // namespace

void bind_signal(py::module_ &m) {
  m.def("signal_filter", filter, py::arg("samples"), py::arg("samprate"), py::kw_only(),
        py::arg("low") = 0.0, py::arg("high") = 0.0, py::arg("order") = 4,
        py::arg("zero_phase") = false);
  m.def("signal_resample", resample_samples, py::arg("samples"), py::arg("samprate"),
        py::arg("new_samprate"));
  m.def("signal_rotate", rotate, py::arg("components"), py::arg("orientations"),
        py::arg("seaz"));
  m.def("signal_spectrum", spectrum, py::arg("samples"), py::arg("samprate"),
        py::arg("piece"));
  m.def("signal_onsets", onsets, py::arg("samples"), py::arg("samprate"), py::kw_only(),
        py::arg("sta") = 1.0, py::arg("lta") = 10.0, py::arg("ratio") = 6.0,
        py::arg("off") = 2.0);
  m.def("signal_remove_response", remove_response, py::arg("samples"),
        py::arg("samprate"), py::arg("response"), py::kw_only(),
        py::arg("motion") = "V", py::arg("corners") = py::none(),
        py::arg("water_level") = 0.0, py::arg("taper") = 0.05);
  m.def("read_miniseed", read_miniseed, py::arg("source"),
        R"(Reads a miniSEED file, or the bytes of one: a list of Series.

One series for each run of records of a channel that follow each other, by channel codes,
then by time.)");
  m.def("miniseed_available", miniseed_available,
        "Whether samples of miniSEED can be read and written.");
}

}  // namespace ksutil::python
