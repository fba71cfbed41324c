#include "bindings/waveforms/response.h"

#include <pybind11/complex.h>
#include <pybind11/stl.h>

#include <cmath>
#include <complex>
#include <cstdio>
#include <optional>
#include <utility>

#include "bindings/bindings.h"
#include "bindings/interpreter/arguments.h"
#include "bindings/interpreter/arrays.h"
#include "bindings/interpreter/calls.h"
#include "bindings/interpreter/failure.h"
#include "bindings/interpreter/locks.h"
#include "bindings/interpreter/memory_file.h"

namespace ksutil::python {
namespace {

using Complex = std::complex<double>;

Response read(const py::object &source, const std::optional<double> &time) {
  const MemoryFile file(source);
  Response response;
  std::string problem;
  const bool good = released([&] {
    return read_response_file(file.path(), response, problem, time ? *time : kNullTime);
  });
  if (!good) throw Error(problem);
  return response;
}

void write(const Response &self, const py::object &path) {
  const std::string name = path_of(path);
  std::string problem;
  if (!released([&] { return write_response_file(name, self, problem); })) {
    throw Error(problem);
  }
}

/* Applies `value` to frequencies of any shape. */
template <class Value>
py::array_t<Complex> over_frequencies(const py::object &at, const Value &value) {
  const Doubles f = doubles(at, "frequencies", -1, std::nan(""));
  py::array_t<Complex> values(
      std::vector<py::ssize_t>(f.shape(), f.shape() + f.ndim()));
  Complex *const to = values.mutable_data();
  const double *const from = f.data();
  const py::ssize_t n = f.size();
  released([&] {
    for (py::ssize_t i = 0; i < n; ++i) {
      to[i] = from[i] >= 0.0 ? value(from[i]) : Complex(std::nan(""), std::nan(""));
    }
  });
  return values;
}

py::array_t<Complex> ground(const Response &self, const py::object &frequencies,
                            const std::string &motion) {
  const int derivative = derivative_of(motion);
  Complex probe;
  if (!ground_response(self, 1.0, derivative, probe)) {
    throw Error("the response is not one of ground motion: its input unit is " +
                self.input_unit());
  }
  return over_frequencies(frequencies, [&](double frequency) {
    Complex value;
    return ground_response(self, frequency, derivative, value)
               ? value
               : Complex(std::nan(""), std::nan(""));
  });
}

py::dict stage_of(const ResponseStage &stage) {
  py::dict facts;
  facts["name"] = text_or_none(stage.name);
  facts["input_unit"] = text_or_none(stage.input_unit);
  facts["output_unit"] = text_or_none(stage.output_unit);
  facts["gain"] = stage.gain;
  facts["gain_frequency"] = real_or_none(stage.gain_frequency, 0.0);
  if (const auto *const filter = std::get_if<PoleZeroFilter>(&stage.filter)) {
    static const char *const kDomains[] = {"rad/s", "Hz", "digital"};
    facts["kind"] = "paz";
    facts["domain"] = kDomains[static_cast<int>(filter->domain)];
    facts["a0"] = filter->a0;
    facts["poles"] = array_of(filter->poles);
    facts["zeros"] = array_of(filter->zeros);
  } else if (const auto *const digital =
                 std::get_if<CoefficientFilter>(&stage.filter)) {
    facts["kind"] = "fir";
    facts["numerators"] = array_of(digital->numerators);
    facts["denominators"] = array_of(digital->denominators);
  } else if (const auto *const table = std::get_if<TableFilter>(&stage.filter)) {
    std::vector<double> frequency, amplitude, phase;
    for (const TableFilter::Row &row : table->rows) {
      frequency.push_back(row.frequency);
      amplitude.push_back(row.amplitude);
      phase.push_back(row.phase);
    }
    facts["kind"] = "fap";
    facts["frequency"] = array_of(std::move(frequency));
    facts["amplitude"] = array_of(std::move(amplitude));
    facts["phase"] = array_of(std::move(phase));
  } else {
    facts["kind"] = "gain";
  }
  if (stage.decimation) {
    py::dict decimation;
    decimation["samprate"] = stage.decimation->samprate;
    decimation["factor"] = stage.decimation->factor;
    decimation["offset"] = stage.decimation->offset;
    decimation["delay"] = stage.decimation->delay;
    decimation["correction"] = stage.decimation->correction;
    facts["decimation"] = decimation;
  }
  return facts;
}

py::str show(const Response &self) {
  char text[160];
  std::snprintf(text, sizeof text, "<ksutil.Response %zu stages, %.30s to %.30s>",
                self.stages.size(), self.input_unit().c_str(),
                self.output_unit().c_str());
  return decoded(text);
}

}  // namespace

int derivative_of(const std::string &motion) {
  if (motion == "D") return 0;
  if (motion == "V") return 1;
  if (motion == "A") return 2;
  throw py::value_error("motion must be 'D', 'V' or 'A', not '" + motion + "'");
}

void bind_response(py::module_ &m) {
  py::class_<Response> type(m, "Response",
                            R"(How an instrument turns ground motion into counts.

Made by Response.read(), and by DataSet.response() for a channel.)");
  type.def_static("read", read, py::arg("source"), py::kw_only(),
                  py::arg("time") = py::none(),
                  R"(Reads a CSS3.0, RESP or SAC pole-zero file, or the bytes of one.

time  epoch seconds: the epoch of the file that holds then; None: the last one)");
  type.def("write", write, py::arg("path"), "Writes the CSS3.0 form.");
  type.def(
      "evaluate",
      [](const Response &self, const py::object &frequencies) {
        return over_frequencies(
            frequencies, [&](double frequency) { return self.evaluate(frequency); });
      },
      py::arg("frequencies"),
      R"(Complex response, output units for an input unit, at frequencies in Hz.

Any shape; NaN for negative frequencies.  Phases are positive where the output leads.)");
  type.def("ground", ground, py::arg("frequencies"), py::arg("motion") = "V",
           R"(Complex response to ground motion at frequencies in Hz (any shape).

motion  "D", "V" or "A": counts for a metre, a m/s or a m/s^2)");
  type.def_property_readonly(
      "input_unit", [](const Response &self) { return decoded(self.input_unit()); },
      "Unit of the input, in capitals; '' unknown.");
  type.def_property_readonly(
      "output_unit", [](const Response &self) { return decoded(self.output_unit()); },
      "Unit of the output, in capitals; '' unknown.");
  type.def_property_readonly(
      "sensitivity",
      [](const Response &self) { return real_or_none(self.sensitivity, 0.0); },
      "Sensitivity of the whole, as the file has it, or None.");
  type.def_property_readonly(
      "sensitivity_frequency",
      [](const Response &self) {
        return real_or_none(self.sensitivity_frequency, 0.0);
      },
      "Frequency (Hz) at which the sensitivity holds, or None.");
  type.def_property_readonly(
      "stages",
      [](const Response &self) {
        py::list list;
        for (const ResponseStage &stage : self.stages) list.append(stage_of(stage));
        return list;
      },
      "The stages in order: a dict each, with kind 'paz', 'fir', 'fap' or 'gain'.");
  type.def("__len__", [](const Response &self) { return self.stages.size(); });
  type.def("__repr__", show);
  type.def(
      "figure",
      [](py::object self, const py::args &args, const py::kwargs &kwargs) {
        return call_python("ksutil.figures", "response_figure", self, args, kwargs);
      },
      "A Figure of amplitude and phase; see ksutil.figures.response_figure.");
}

}  // namespace ksutil::python
