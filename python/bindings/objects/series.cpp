#include "bindings/objects/series.h"
#include "bindings/interpreter/arguments.h"
#include "bindings/interpreter/arrays.h"
#include "bindings/interpreter/calls.h"
#include "bindings/interpreter/failure.h"
#include "bindings/interpreter/fork_gate.h"
#include "bindings/interpreter/locks.h"
#include "bindings/objects/gaps.h"
#include "bindings/objects/records.h"

#include <ksutil/platform/trace/miniseed.h>
#include <ksutil/platform/trace/trace.h>
#include <ksutil/waveforms/ksdsseis.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "bindings/bindings.h"

namespace ksutil::python {
namespace {

constexpr double kGapSample = 1e34;  // as trfill_gap writes it

std::mutex &family() { return lock_of(Family::kSeries); }

/* Calls a function of the family on a series; Error when it fails. */
template <class Call>
int call(const Call &function) {
  const Failure failure;
  return failure.check(locked(family(), function));
}

Series from_samples(const py::object &samples, double time, double samprate,
                    const std::string &name, SeriesCodes codes) {
  const Doubles values = doubles(samples, "samples", 1, kGapSample);
  const int n = count_of(values, "samples");
  const double *const data = values.data();
  const std::string called = name.empty() ? name_of(codes) : name;
  refuse_nul(called, "the name");
  return make_series(
      [&](char *tag) {
        ksvector2 *const vector =
            ksvector2_create_tsamp(n, data, called.c_str(), tag, time, samprate);
        if (vector != nullptr) {
          std::replace_if(
              vector->data, vector->data + vector->npts,
              [](double each) { return !std::isfinite(each); }, kGapSample);
        }
        return vector;
      },
      std::move(codes));
}

Series window(const Series &series, std::optional<double> start,
              std::optional<double> end) {
  const ksvector2 &vector = series.vector();
  const auto place = [&](double time, bool last) {
    const double at = (time - vector.time) / vector.dt;
    const double index = last ? std::floor(at + 0.01) + 1.0 : std::ceil(at - 0.01);
    return static_cast<int>(std::clamp(index, 0.0, static_cast<double>(vector.npts)));
  };
  if ((start && !std::isfinite(*start)) || (end && !std::isfinite(*end))) {
    throw py::value_error("start and end must be finite");
  }
  const int from = start ? place(*start, false) : 0;
  const int to = std::max(from, end ? place(*end, true) : vector.npts);
  return make_series(
      [&](char *tag) {
        return ksvector2_create_tsamp(to - from, vector.data + from, vector.name, tag,
                                      vector.time + from * vector.dt,
                                      series.samprate());
      },
      series.codes());
}

Series copy(const Series &series) {
  return make_series(
      [&](char *tag) {
        return ksvector2_copy(series.tag(), series.vector().name, tag);
      },
      series.codes());
}

Series resample(const Series &series, double samprate) {
  return make_series(
      [&](char *tag) {
        return ksdsseis_resample(series.tag(), samprate, series.vector().name, tag);
      },
      series.codes());
}

py::array_t<double> times(const Series &series) {
  const ksvector2 &vector = series.vector();
  std::vector<double> times(static_cast<std::size_t>(vector.npts));
  for (std::size_t i = 0; i < times.size(); ++i) {
    times[i] = vector.time + static_cast<double>(i) * vector.dt;
  }
  return array_of(std::move(times));
}

py::list gaps(const Series &series) {
  const ksvector2 &vector = series.vector();
  std::vector<std::pair<double, double>> found;
  released([&] {
    for (int i = 0; i < vector.npts; ++i) {
      if (!is_gap(vector.data[i])) continue;
      const int first = i;
      while (i + 1 < vector.npts && is_gap(vector.data[i + 1])) ++i;
      found.emplace_back(vector.time + first * vector.dt, vector.time + i * vector.dt);
    }
  });
  py::list list;
  for (const auto &[first, last] : found) list.append(py::make_tuple(first, last));
  return list;
}

py::array_t<double> evaluate(const Series &series, const py::object &at) {
  const Doubles x = doubles(at, "times", -1, std::nan(""));
  py::array_t<double> values(std::vector<py::ssize_t>(x.shape(), x.shape() + x.ndim()));
  double *const to = values.mutable_data();
  const double *const from = x.data();
  const py::ssize_t n = x.size();
  call([&] {
    for (py::ssize_t i = 0; i < n; ++i) {
      double value = kGapSample;
      if (std::isfinite(from[i]) &&
          ksvector2_eval(series.tag(), &value, from[i]) != 0) {
        return -1;
      }
      to[i] = is_gap(value) ? std::nan("") : value;
    }
    return 0;
  });
  return values;
}

py::object extremes(const Series &series) {
  double xmin = 0.0, xmax = 0.0, ymin = 0.0, ymax = 0.0;
  if (series.vector().npts == 0) return py::none();
  const int found = call([&] {
    return ksvector2_maxmin2(series.tag(), 0, series.vector().time - 1.0,
                             series.endtime() + 1.0, &xmin, &xmax, &ymin, &ymax);
  });
  if (found != 0) return py::none();
  return py::make_tuple(ymin, ymax);
}

py::bytes to_miniseed(const Series &series, int record_length, bool counts) {
  const MiniseedCodes codes{series.codes().net, series.codes().sta, series.codes().loc,
                            series.codes().chan};
  const Failure failure;
  const Segment segment = locked(family(), [&] { return series.segment(counts); });
  std::string bytes;
  const bool packed = released([&] {
    return miniseed_pack(segment, codes, record_length, [&](std::string_view record) {
      bytes.append(record);
      return true;
    });
  });
  if (!packed) failure.raise("the samples cannot be packed");
  return py::bytes(bytes);
}

py::str show(const Series &series) {
  const std::string name =
      name_of(series.codes()).empty() ? series.vector().name : name_of(series.codes());
  char text[160];
  std::snprintf(text, sizeof text, "<ksutil.Series %.60s%s%d samples at %.12g Hz>",
                name.c_str(), name.empty() ? "" : ", ", series.vector().npts,
                series.samprate());
  return decoded(text);
}

}  // namespace

SeriesRecord::~SeriesRecord() {
  if (tag[0] == '\0') return;
  finish_locked(family(), [this] { ksvector2_free(tag); });
}

double rate_of_interval(double dt) {
  char text[32];
  std::snprintf(text, sizeof text, "%.12g", 1.0 / dt);
  return std::strtod(text, nullptr);
}

double Series::samprate() const { return rate_of_interval(vector().dt); }

double Series::endtime() const {
  return vector().time + std::max(0, vector().npts - 1) * vector().dt;
}

py::array_t<double> Series::data(bool writable) const {
  return array_over_record(record_, vector().data, {vector().npts}, {}, writable);
}

Segment Series::segment(bool counts) const {
  const auto n = static_cast<std::size_t>(vector().npts);
  const double *const data = vector().data;
  Segment segment;
  segment.sta = codes_.sta;
  segment.chan = codes_.chan;
  segment.time = vector().time;
  segment.samprate = samprate();
  const bool whole = counts && std::all_of(data, data + n, [](double each) {
                       return each == std::rint(each) && std::abs(each) <= 2147483647.0;
                     });
  if (whole) {
    auto samples = std::make_shared<std::vector<std::int32_t>>(n);
    std::transform(data, data + n, samples->begin(),
                   [](double each) { return static_cast<std::int32_t>(each); });
    segment.samples = Segment::Counts(*samples);
    segment.owner = samples;
  } else {
    auto samples = std::make_shared<std::vector<float>>(n);
    std::transform(data, data + n, samples->begin(), [](double each) {
      return static_cast<float>(is_gap(each) ? kGapSample : each);
    });
    segment.samples = Segment::Floats(*samples);
    segment.owner = samples;
  }
  return segment;
}

Series make_series(const std::function<ksvector2 *(char *tag)> &make, SeriesCodes codes,
                   std::mutex *source) {
  const Failure failure;
  auto record = std::make_shared<SeriesRecord>();
  record->vector = released([&] {
    const ForkGate gate;
    std::unique_lock<std::mutex> first;
    if (source != nullptr) first = std::unique_lock<std::mutex>(*source);
    const std::lock_guard<std::mutex> second(family());
    return make(record->tag);
  });
  if (record->vector == nullptr) failure.raise();
  return Series(std::move(record), std::move(codes));
}

std::string name_of(const SeriesCodes &codes) {
  if (codes.sta.empty() && codes.chan.empty()) return "";
  if (codes.net.empty() && codes.loc.empty()) return codes.sta + "." + codes.chan;
  return codes.net + "." + codes.sta + "." + codes.loc + "." + codes.chan;
}

void bind_series(py::module_ &m) {
  py::class_<Series> type(m, "Series",
                          R"(Evenly spaced samples of one channel, with gaps.

Series(samples, time, samprate, *, name="", net="", sta="", loc="", chan="")

samples   array [n] of real numbers, copied; masked and non-finite ones become gaps
time      of the first sample, epoch seconds UTC
samprate  samples per second (Hz)

The memory of the samples never moves: arrays over it stay valid and show what filter(),
fill() and the like do.)");
  type.def(py::init([](const py::object &samples, double time, double samprate,
                       const std::string &name, std::string net, std::string sta,
                       std::string loc, std::string chan) {
             return from_samples(
                 samples, time, samprate, name,
                 {std::move(net), std::move(sta), std::move(loc), std::move(chan)});
           }),
           py::arg("samples"), py::arg("time"), py::arg("samprate"), py::kw_only(),
           py::arg("name") = "", py::arg("net") = "", py::arg("sta") = "",
           py::arg("loc") = "", py::arg("chan") = "");
  type.def("__len__", [](const Series &self) { return self.vector().npts; });
  type.def("__repr__", show);
  type.def_property_readonly(
      "samples", [](const Series &self) { return without_gaps(self.data()); },
      "Samples [n] float64, read-only, without a copy; a masked array when there are "
      "gaps.");
  type.def_property_readonly(
      "data", [](const Series &self) { return self.data(); },
      "Samples [n] float64, read-only, without a copy; gaps are values above 1e30.");
  type.def(
      "edit", [](const Series &self) { return self.data(true); },
      "Samples [n] float64 to write into, without a copy; 1e34 writes a gap.");
  type.def("times", times, "Times of the samples [n], epoch seconds.");
  type.def_property_readonly(
      "time", [](const Series &self) { return self.vector().time; },
      "Time of the first sample, epoch seconds.");
  type.def_property_readonly("endtime", &Series::endtime,
                             "Time of the last sample, epoch seconds.");
  type.def_property_readonly("samprate", &Series::samprate, "Samples per second (Hz).");
  type.def_property_readonly(
      "dt", [](const Series &self) { return self.vector().dt; },
      "Seconds between samples.");
  type.def_property_readonly(
      "name", [](const Series &self) { return decoded(self.vector().name); },
      "Name of the series, at most 63 bytes.");
  type.def_property_readonly(
      "tag", [](const Series &self) { return std::string(self.tag()); },
      "Tag of the series in the library, for programs that use both.");
  const auto code = [&type](const char *name, std::string SeriesCodes::*member,
                            const char *what) {
    type.def_property(
        name, [member](const Series &self) { return decoded(self.codes().*member); },
        [member](Series &self, const std::string &text) {
          self.codes().*member = text;
        },
        what);
  };
  code("net", &SeriesCodes::net, "Network code; '' unknown.");
  code("sta", &SeriesCodes::sta, "Station code; '' unknown.");
  code("loc", &SeriesCodes::loc, "Location code; '' none.");
  code("chan", &SeriesCodes::chan, "Channel code; '' unknown.");
  type.def_property_readonly(
      "gaps", gaps,
      "List of (time of the first, time of the last) missing sample, epoch seconds.");
  type.def("copy", copy, "A series with a copy of the samples.");
  type.def("__copy__", copy);
  type.def("__deepcopy__",
           [](const Series &self, const py::dict &) { return copy(self); });
  type.def("window", window, py::arg("start") = py::none(), py::arg("end") = py::none(),
           "A copy of the samples from start to end (epoch seconds), both included.");
  type.def(
      "filter",
      [](const py::object &self, double low, double high, int order, bool zero_phase) {
        const auto &series = self.cast<const Series &>();
        call([&] {
          return ksvector2_filter(series.tag(), low, high, order, zero_phase ? 1 : 0);
        });
        return self;
      },
      py::kw_only(), py::arg("low") = 0.0, py::arg("high") = 0.0, py::arg("order") = 4,
      py::arg("zero_phase") = false,
      R"(Filters the samples in place with a Butterworth filter; returns the series.

low, high   corners in Hz: low alone passes what is above it, high alone what is below
            it, both what is between them
order       1 to 10
zero_phase  forward and backward, without a phase shift)");
  type.def(
      "fill",
      [](const Series &self, const std::string &method, double value, int maxgap) {
        return call(
            [&] { return ksvector2_fill(self.tag(), method.c_str(), value, maxgap); });
      },
      py::arg("method") = "linear", py::kw_only(), py::arg("value") = 0.0,
      py::arg("maxgap") = 0,
      R"(Fills gaps in place; the number of samples filled.

method  "linear" between the neighbours, or "value"
maxgap  gaps of more samples stay; 0: no limit)");
  type.def(
      "gain",
      [](const py::object &self, double gain) {
        const auto &series = self.cast<const Series &>();
        call([&] { return ksvector2_transform_ygain(series.tag(), 0, gain); });
        return self;
      },
      py::arg("gain"),
      "Multiplies the samples by a number, in place; returns the series.");
  type.def("resample", resample, py::arg("samprate"),
           "The samples at another rate (Hz), without aliasing, as a new series.");
  type.def("evaluate", evaluate, py::arg("times"),
           "Values at times (epoch seconds, any shape), linear between samples; NaN "
           "outside the series and beside gaps.");
  type.def("extremes", extremes,
           "(least, greatest) sample, gaps left out; None without samples.");
  type.def("to_miniseed", to_miniseed, py::kw_only(), py::arg("record_length") = 512,
           py::arg("counts") = true,
           R"(The samples as the bytes of miniSEED records.

Whole numbers become counts (Steim 2) unless counts is False, others single-precision
floats; gaps are left out.  The codes of the series are written.)");
  type.def(
      "figure",
      [](py::object self, const py::args &args, const py::kwargs &kwargs) {
        return call_python("ksutil.figures", "series_figure", self, args, kwargs);
      },
      "A Figure of the samples; see ksutil.figures.series_figure.");
  type.def_static(
      "from_obspy",
      [](const py::object &stream) {
        return call_python("ksutil.bridges", "series_from_obspy", stream, py::args(),
                           py::kwargs());
      },
      py::arg("stream"), "The pieces of an obspy Stream or Trace: a list of Series.");
  type.def(
      "to_obspy",
      [](py::object self, const py::args &args, const py::kwargs &kwargs) {
        return call_python("ksutil.bridges", "series_to_obspy", self, args, kwargs);
      },
      "An obspy Stream: a Trace for each piece between gaps.");
}

}  // namespace ksutil::python
