/* sac: seismograms with the header of a SAC file (kssac) as objects of Python. */
#include <pybind11/stl.h>

#include <algorithm>
#include <bit>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <optional>

#include "bindings/bindings.h"
#include "bindings/interpreter/arguments.h"
#include "bindings/interpreter/arrays.h"
#include "bindings/interpreter/calls.h"
#include "bindings/interpreter/memory_file.h"
#include "bindings/objects/sac.h"
#include "bindings/objects/series.h"

namespace ksutil::python {
namespace {

constexpr float kSacNull = -12345.0F;
constexpr std::size_t kNumberBytes = 440;  // of the header: 70 floats and 40 integers

template <class Make>
Sac make_sac(const Make &make) {
  const Failure failure;
  KSSac *const sac = locked(lock_of(Family::kSeismograms), make);
  if (sac == nullptr) failure.raise();
  return Sac(sac);
}

/* The definition of a name in letters of either case; null for none. */
const KSSacDefine *define_of(std::string name) {
  std::transform(name.begin(), name.end(), name.begin(), [](unsigned char letter) {
    return static_cast<char>(std::toupper(letter));
  });
  return kssac_get_header_define(name.c_str());
}

py::object value_of(const Sac &self, const KSSacDefine &define) {
  const char *const name = define.name;
  switch (define.type) {
    case KSSAC_FLOAT: {
      double value = 0.0;
      self.call([&] {
        return kssac_gethdr_kssac(self.get(), name, &value,
                                  static_cast<char *>(nullptr));
      });
      return real_or_none(value, static_cast<double>(kSacNull));
    }
    case KSSAC_INTEGER:
    case KSSAC_ENUMERATED:
    case KSSAC_LOGICAL: {
      std::int64_t value = 0;
      self.call([&] {
        return kssac_gethdr_kssac(self.get(), name, &value,
                                  static_cast<char *>(nullptr));
      });
      if (define.type == KSSAC_LOGICAL) return py::bool_(value == 1);
      return integer_or_none(value, static_cast<long>(kSacNull));
    }
    default: {
      char text[20] = "";
      self.call([&] {
        return kssac_gethdr_kssac(self.get(), name, text, static_cast<char *>(nullptr));
      });
      return std::strcmp(text, "-12345") == 0 ? py::none() : text_or_none(text);
    }
  }
}

void set_value(const Sac &self, const KSSacDefine &define, const py::object &value) {
  const char *const name = define.name;
  char *const end = nullptr;
  switch (define.type) {
    case KSSAC_FLOAT: {
      const double number = value.is_none() ? static_cast<double>(kSacNull)
                                            : value_as<double>(value, name);
      self.call([&] { return kssac_puthdr_kssac(self.get(), name, number, end); });
      break;
    }
    case KSSAC_INTEGER:
    case KSSAC_ENUMERATED:
    case KSSAC_LOGICAL: {
      const auto null = define.type == KSSAC_LOGICAL
                            ? std::int64_t{0}
                            : static_cast<std::int64_t>(kSacNull);
      const std::int64_t number =
          value.is_none() ? null : value_as<std::int64_t>(value, name);
      if (number < INT32_MIN || number > INT32_MAX) {
        throw py::value_error(std::string(name) + ": does not fit 32 bits");
      }
      self.call([&] { return kssac_puthdr_kssac(self.get(), name, number, end); });
      break;
    }
    default: {
      const std::string text =
          value.is_none() ? "-12345" : value_as<std::string>(value, name);
      const std::size_t width = define.type == KSSAC_STRING16 ? 16 : 8;
      if (text.size() > width) {
        throw py::value_error(std::string(name) + ": longer than " +
                              std::to_string(width) + " bytes");
      }
      refuse_nul(text, name);
      self.call(
          [&] { return kssac_puthdr_kssac(self.get(), name, text.c_str(), end); });
    }
  }
}

py::object get_attribute(const Sac &self, const std::string &name) {
  const KSSacDefine *const define = define_of(name);
  if (define == nullptr) {
    throw py::attribute_error("a seismogram has no header variable '" + name + "'");
  }
  return value_of(self, *define);
}

void set_attribute(const py::object &self, const py::str &name,
                   const py::object &value) {
  const KSSacDefine *const define = define_of(name);
  if (define != nullptr) {
    set_value(self.cast<const Sac &>(), *define, value);
  } else if (PyObject_GenericSetAttr(self.ptr(), name.ptr(), value.ptr()) != 0) {
    throw py::error_already_set();
  }
}

py::dict header(const Sac &self) {
  py::dict values;
  for (const KSSacDefine &define : SacHeaderDefines) {
    py::object value = value_of(self, define);
    if (!value.is_none()) values[define.name] = std::move(value);
  }
  return values;
}

py::list attribute_names(const py::object &self) {
  py::list names = py::module_::import("builtins")
                       .attr("object")
                       .attr("__dir__")(self)
                       .cast<py::list>();
  for (const KSSacDefine &define : SacHeaderDefines) names.append(define.name);
  return names;
}

py::array_t<float> data_of(const Sac &self) {
  const float *data = nullptr;
  py::ssize_t count = 0;
  const auto share = locked(self.record()->lock, [&] {
    const SacImage *const image = self.get()->image;
    data = image->data;
    count = data == nullptr ? 0 : static_cast<py::ssize_t>(image->npts_data);
    return self.record();
  });
  return array_over_record(share, data, {count});
}

void put_data(const Sac &self, const py::object &samples, double time, double samprate,
              const std::string &type) {
  const Floats values = floats(samples, "samples", 1, 1e34F);
  const int n = count_of(values, "samples");
  const float *const data = values.data();
  self.call([&] {
    refuse_with_arrays(self.record(), "put_data");
    return kssac_putdata_kssac(self.get(), n, data, type.c_str(), time, samprate);
  });
}

Sac make(const py::object &samples, std::optional<double> time,
         std::optional<double> samprate, const std::string &type,
         const py::kwargs &values) {
  Sac self = make_sac([] { return kssac_create(nullptr, nullptr); });
  if (!samples.is_none()) {
    if (!time || !samprate) throw py::type_error("samples need time and samprate");
    put_data(self, samples, *time, *samprate, type);
  }
  for (const auto &[name, value] : values) {
    const KSSacDefine *const define = define_of(name.cast<std::string>());
    if (define == nullptr) {
      throw py::type_error("there is no header variable '" + name.cast<std::string>() +
                           "'");
    }
    set_value(self, *define, py::reinterpret_borrow<py::object>(value));
  }
  return self;
}

Sac read(const py::object &source) {
  const MemoryFile file(source);
  return make_sac([&] {
    return kssac_read_from_file_either_order(file.path().c_str(), nullptr, nullptr);
  });
}

/* Header and samples as they stand in a file, of this machine's byte order or the other. */
std::string bytes_of(const Sac &self, const std::string &order) {
  const bool little = order == "little",
             native = std::endian::native == std::endian::little;
  if (!little && order != "big") {
    throw py::value_error("byteorder must be 'little' or 'big'");
  }
  std::string bytes;
  self.call([&] {
    const SacImage &image = *self.get()->image;
    const auto samples =
        image.data == nullptr
            ? std::size_t{0}
            : static_cast<std::size_t>(image.npts_data) * sizeof(float);
    bytes.reserve(KSSAC_HEADER_SIZE + samples);
    bytes.assign(image.header, KSSAC_HEADER_SIZE);
    if (samples > 0) bytes.append(reinterpret_cast<const char *>(image.data), samples);
    if (little == native) return 0;
    const auto turn = [&](std::size_t from, std::size_t to) {
      for (std::size_t at = from; at + 4 <= to; at += 4) {
        std::reverse(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                     bytes.begin() + static_cast<std::ptrdiff_t>(at) + 4);
      }
    };
    turn(0, kNumberBytes);
    turn(KSSAC_HEADER_SIZE, bytes.size());
    return 0;
  });
  return bytes;
}

void write(const Sac &self, const py::object &path,
           const std::optional<std::string> &order) {
  const std::string name = path_of(path);
  if (!order) {
    self.call([&] { return kssac_write_to_file_kssac(self.get(), name.c_str()); });
    return;
  }
  const std::string bytes = bytes_of(self, *order);
  const bool written = released([&] {
    std::ofstream file(name, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    return !file.fail();
  });
  if (!written) throw Error("cannot write " + name);
}

std::string text_value(const Sac &self, const char *name) {
  const py::object value = value_of(self, *define_of(name));
  return value.is_none() ? "" : value.cast<std::string>();
}

SeriesCodes codes_of(const Sac &self) {
  return {text_value(self, "KNETWK"), text_value(self, "KSTNM"),
          text_value(self, "KHOLE"), text_value(self, "KCMPNM")};
}

Series to_series(const Sac &self) {
  const SeriesCodes codes = codes_of(self);
  const std::string name = name_of(codes);
  /* The samples stay while they are copied: the lock of the record keeps others out. */
  return make_series(
      [&](char *tag) -> ksvector2 * {
        Segment segment;
        if (kssac_get_segment_kssac(self.get(), segment) != 0) return nullptr;
        return ksvector2_create_from_segment(segment, name.c_str(), tag);
      },
      codes, &self.record()->lock);
}

Sac from_series(const Series &series, const std::string &type) {
  const Segment segment =
      locked(lock_of(Family::kSeries), [&] { return series.segment(false); });
  Sac self = make_sac([&] {
    return kssac_create_from_segment(segment, type.c_str(), nullptr, nullptr);
  });
  const auto put = [&](const char *name, const std::string &text) {
    if (!text.empty()) set_value(self, *define_of(name), py::str(text));
  };
  put("KNETWK", series.codes().net);
  put("KHOLE", series.codes().loc);
  return self;
}

py::object time_of(const Sac &self) {
  for (const char *const name :
       {"NZYEAR", "NZJDAY", "NZHOUR", "NZMIN", "NZSEC", "NZMSEC", "B"}) {
    if (value_of(self, *define_of(name)).is_none()) return py::none();
  }
  double time = 0.0;
  self.call([&] { return kssac_getreftime_kssac(self.get(), &time); });
  return py::float_(time + value_of(self, *define_of("B")).cast<double>());
}

py::str show(const Sac &self) {
  const SeriesCodes codes = codes_of(self);
  const std::string name = name_of(codes);
  return decoded("<ksutil.Sac " + name + (name.empty() ? "" : ", ") +
                 std::to_string(data_of(self).size()) + " samples>");
}

}  // namespace

void bind_sac(py::module_ &m) {
  py::class_<Sac> type(m, "Sac",
                       R"(A seismogram with the header of a SAC file.

Sac(samples=None, *, time=None, samprate=None, type="", **header)

samples   array [n] float32, copied; time (epoch seconds) and samprate (Hz) go with it
type      "D", "V" or "A": displacement, velocity, acceleration; "" unknown
header    header variables by SAC's names, in letters of either case

Header variables are attributes with SAC's names (sac.KSTNM, sac.stla): float, int, bool
or str; None for undefined ones, and assigned to make one undefined.)");
  type.def(py::init(&make), py::arg("samples") = py::none(), py::kw_only(),
           py::arg("time") = py::none(), py::arg("samprate") = py::none(),
           py::arg("type") = "");
  type.def_static("read", read, py::arg("source"),
                  "Reads a file, or the bytes of one, of either byte order.");
  type.def_static("from_series", from_series, py::arg("series"), py::kw_only(),
                  py::arg("type") = "", "A seismogram of the samples of a series.");
  type.def("__getattr__", get_attribute);
  type.def("__setattr__", set_attribute);
  type.def("__dir__", attribute_names);
  type.def("__repr__", show);
  type.def("__len__", [](const Sac &self) { return data_of(self).size(); });
  type.def_property_readonly("header", header,
                             "The defined header variables: a dict by SAC's names.");
  type.def_property_readonly("data", data_of,
                             R"(Samples [n] float32, read-only, without a copy.

While such an array is alive, put_data() is refused.)");
  type.def_property_readonly("time", time_of,
                             "Time of the first sample, epoch seconds: the reference "
                             "time and B; None where one "
                             "of them is undefined.");
  type.def("put_data", put_data, py::arg("samples"), py::arg("time"),
           py::arg("samprate"), py::kw_only(), py::arg("type") = "",
           "Replaces the samples and what the header says of them.");
  type.def(
      "write", write, py::arg("path"), py::kw_only(), py::arg("byteorder") = py::none(),
      "Writes a file, 'little' or 'big'; by default in the order of this machine.");
  type.def(
      "to_bytes",
      [](const Sac &self, const std::string &order) {
        return py::bytes(bytes_of(self, order));
      },
      py::kw_only(), py::arg("byteorder") = "little", "The bytes of a file.");
  type.def("to_series", to_series,
           "The samples as a Series, with the codes of the header.");
  type.def("put_rows", put_rows, py::arg("database"), py::kw_only(),
           py::arg("wfid") = py::none(), py::arg("orid") = py::none(),
           R"(Copies values of rows of a database into the header.

database  a Database or the path of one
wfid      of a row of wfdisc, with its rows of site, sitechan, affiliation, seedcode
orid      of a row of origin)");
  type.def(
      "get_rows", get_rows, py::arg("database"), py::kw_only(),
      py::arg("wfid") = py::none(), py::arg("orid") = py::none(),
      R"(Copies values of the header into rows of a database: the inverse of put_rows.

Undefined header variables never overwrite a field.)");
  type.def(
      "figure",
      [](py::object self, const py::args &args, const py::kwargs &kwargs) {
        return call_python("ksutil.figures", "sac_figure", self, args, kwargs);
      },
      "A Figure of the samples; see ksutil.figures.sac_figure.");
}

}  // namespace ksutil::python
