/* vector: point vectors of the family ksvector as objects of Python. */
#include <ksutil/objects/ksvector.h>
#include <pybind11/stl.h>
#include "platform/stock/owners.h"

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <optional>

#include "bindings/bindings.h"
#include "bindings/interpreter/arguments.h"
#include "bindings/interpreter/arrays.h"
#include "bindings/interpreter/calls.h"
#include "bindings/interpreter/failure.h"
#include "bindings/interpreter/locks.h"
#include "bindings/objects/records.h"

namespace ksutil::python {
namespace {

std::mutex &family() { return lock_of(Family::kVectors); }

struct VectorRecord {
  VectorRecord() = default;
  ~VectorRecord() {
    if (tag[0] != '\0') finish_locked(family(), [this] { ksvector_free(tag); });
  }
  VectorRecord(const VectorRecord &) = delete;
  VectorRecord &operator=(const VectorRecord &) = delete;

  KSVector *vector = nullptr;
  char tag[KS_TAG_SIZE] = "";
};

class Vector {
 public:
  explicit Vector(std::shared_ptr<VectorRecord> record) : record_(std::move(record)) {}

  const std::shared_ptr<VectorRecord> &record() const { return record_; }
  KSVector &get() const { return *record_->vector; }
  const char *tag() const { return record_->tag; }

 private:
  std::shared_ptr<VectorRecord> record_;
};

/* Calls a function of the family; Error when it gives a negative number. */
template <class Call>
int call(const Call &function) {
  const Failure failure;
  return failure.check(locked(family(), function));
}

template <class Make>
Vector make_vector(const Make &make) {
  const Failure failure;
  auto record = std::make_shared<VectorRecord>();
  record->vector = locked(family(), [&] { return make(record->tag); });
  if (record->vector == nullptr) failure.raise("the vector cannot be made");
  return Vector(std::move(record));
}

void check_label(const std::optional<std::string> &label) {
  if (label) refuse_nul(*label, "a label");
}

using Labels = std::optional<std::vector<std::optional<std::string>>>;

Vector from_arrays(const py::object &x_values, const py::object &y_values,
                   const Labels &labels, const std::string &name) {
  const Doubles x = doubles(x_values, "x", 1, std::nan(""));
  const Doubles y = doubles(y_values, "y", -1, std::nan(""));
  const int n = count_of(x, "x");
  if ((y.ndim() != 1 && y.ndim() != 2) || y.shape(0) != n) {
    throw py::value_error("y must have the shape [n] or [n, ny] for x of [n]");
  }
  const py::ssize_t ny = y.ndim() == 2 ? y.shape(1) : 1;
  if (ny < 1 || ny > 1 << 20) throw py::value_error("y must have 1 to 1048576 columns");
  if (labels && labels->size() != static_cast<std::size_t>(n)) {
    throw py::value_error("labels must be as many as x");
  }
  refuse_nul(name, "the name");
  for (int i = 0; labels && i < n; ++i)
    check_label((*labels)[static_cast<std::size_t>(i)]);
  const double *const xs = x.data(), *const ys = y.data();
  return make_vector([&](char *tag) -> KSVector * {
    KSVector *const vector =
        ksvector_create(n, static_cast<int>(ny), name.c_str(), tag);
    for (int i = 0; vector != nullptr && i < n; ++i) {
      const auto &label =
          labels ? (*labels)[static_cast<std::size_t>(i)] : std::nullopt;
      if (ksvector_append(tag, -1, ys + i * ny, label ? label->c_str() : nullptr,
                          xs[i]) != 0) {
        return nullptr;
      }
    }
    return vector;
  });
}

/* The state of the points, taken under the lock together with the shares of arrays. */
struct Shown {
  std::shared_ptr<VectorRecord> record;
  const KSVectorPoint *points = nullptr;
  py::ssize_t npts = 0, ny = 0;
  bool in_order = false;  // the y values of all points lie one after the other
};
Shown show_points(const Vector &self) {
  return locked(family(), [&] {
    const KSVector &vector = self.get();
    Shown shown{self.record(), vector.points, vector.npts, vector.ny, true};
    for (int i = 1; i < vector.npts && shown.in_order; ++i) {
      shown.in_order = vector.points[i].y == vector.points[i - 1].y + vector.ny;
    }
    return shown;
  });
}

py::array_t<double> x_of(const Vector &self) {
  const Shown shown = show_points(self);
  if (shown.npts == 0) return py::array_t<double>(std::vector<py::ssize_t>{0});
  return array_over_record(shown.record, &shown.points[0].x, {shown.npts},
                           {sizeof(KSVectorPoint)});
}

py::array_t<double> y_of(const Vector &self) {
  const Shown shown = show_points(self);
  std::vector<py::ssize_t> shape{shown.npts};
  if (shown.ny > 1) shape.push_back(shown.ny);
  if (shown.npts > 0 && shown.in_order) {
    return array_over_record(shown.record, shown.points[0].y, shape);
  }
  py::array_t<double> copy(shape);
  double *to = copy.mutable_data();
  for (py::ssize_t i = 0; i < shown.npts; ++i) {
    to = std::copy_n(shown.points[i].y, shown.ny, to);
  }
  copy.attr("flags").attr("writeable") = false;
  return copy;
}

py::list labels_of(const Vector &self) {
  const auto texts = locked(family(), [&] {
    std::vector<std::string> list;
    for (int i = 0; i < self.get().npts; ++i) {
      const char *const label = self.get().points[i].label;
      list.emplace_back(label == nullptr ? "" : label);
    }
    return list;
  });
  py::list list;
  for (const std::string &text : texts) list.append(text_or_none(text));
  return list;
}

/* y values of one point: [ny], or a number where ny is 1. */
std::vector<double> values_of(const Vector &self, const py::object &y) {
  const Doubles values = doubles(y, "y", -1, std::nan(""));
  if (values.ndim() > 1 || values.size() != self.get().ny) {
    throw py::value_error("y must have " + std::to_string(self.get().ny) + " values");
  }
  return {values.data(), values.data() + values.size()};
}

int place_of(const Vector &self, py::handle index) {
  return index_below(index, static_cast<std::size_t>(self.get().npts),
                     "there is no such point");
}

void append(const Vector &self, double x, const py::object &y,
            const std::optional<std::string> &label, const py::object &index) {
  check_label(label);
  const std::vector<double> values = values_of(self, y);
  const int place = index.is_none() ? -1 : place_of(self, index);
  call([&] {
    refuse_with_arrays(self.record(), "append");
    return ksvector_append(self.tag(), place, values.data(),
                           label ? label->c_str() : nullptr, x);
  });
}

void put(const Vector &self, const py::object &index, double x, const py::object &y,
         const std::optional<std::string> &label) {
  check_label(label);
  const std::vector<double> values = values_of(self, y);
  const int place = place_of(self, index);
  call([&] {
    return ksvector_put(self.tag(), place, values.data(),
                        label ? label->c_str() : nullptr, x);
  });
}

py::array_t<double> evaluate(const Vector &self, const py::object &at) {
  const Doubles x = doubles(at, "x", -1, std::nan(""));
  std::vector<py::ssize_t> shape(x.shape(), x.shape() + x.ndim());
  const py::ssize_t ny = self.get().ny, n = x.size();
  if (ny > 1) shape.push_back(ny);
  py::array_t<double> values(shape);
  double *const to = values.mutable_data();
  const double *const from = x.data();
  call([&] {
    for (py::ssize_t i = 0; i < n; ++i) {
      if (std::isnan(from[i])) {
        std::fill_n(to + i * ny, ny, std::nan(""));
      } else if (ksvector_eval(self.tag(), to + i * ny, from[i]) != 0) {
        return -1;
      }
    }
    return 0;
  });
  return values;
}

py::tuple extremes(const Vector &self, std::optional<int> column) {
  double xmin = 0.0, xmax = 0.0, ymin = 0.0, ymax = 0.0;
  call([&] {
    return ksvector_maxmin(self.tag(), column.value_or(-1), &xmin, &xmax, &ymin, &ymax);
  });
  return py::make_tuple(xmin, xmax, ymin, ymax);
}

Vector copy(const Vector &self) {
  return make_vector(
      [&](char *tag) { return ksvector_copy(self.tag(), self.get().name, tag); });
}

Vector read(const py::object &path, const std::vector<int> &ycols, int xcol,
            int labelcol, int skip) {
  const std::string file = path_of(path);
  const bool bad_column = std::any_of(ycols.begin(), ycols.end(),
                                      [](int each) { return each < 0 || each > 1000; });
  if (ycols.empty() || ycols.size() > 1000 || bad_column || xcol < 0 || xcol > 1000) {
    throw py::value_error("columns are numbers from 0 to 1000");
  }
  return make_vector([&](char *tag) {
    return ksvector_read(file.c_str(), nullptr, skip, xcol,
                         static_cast<int>(ycols.size()), ycols.data(), labelcol, tag);
  });
}

Vector stats(const std::vector<const Vector *> &vectors, const std::string &kind) {
  for (const Vector *const each : vectors) {
    if (each == nullptr) throw py::type_error("vectors must not be None");
  }
  if (vectors.empty()) throw py::value_error("no vectors");
  return make_vector([&](char *tag) {
    const TblPtr tags(newtbl(static_cast<int>(vectors.size())));
    for (const Vector *const each : vectors) {
      pushtbl(tags.get(), const_cast<char *>(each->tag()));
    }
    return ksvector_stats(tags.get(), kind.c_str(), nullptr, tag);
  });
}

py::str show(const Vector &self) {
  char text[120];
  std::snprintf(text, sizeof text, "<ksutil.Vector %.60s%s%d points, %d y values each>",
                self.get().name == nullptr ? "" : self.get().name,
                self.get().name == nullptr || *self.get().name == '\0' ? "" : ", ",
                self.get().npts, self.get().ny);
  return decoded(text);
}

}  // namespace

void bind_vector(py::module_ &m) {
  py::class_<Vector> type(m, "Vector",
                          R"(Points with an x value, ny y values and an optional label.

Vector(x, y, *, labels=None, name="")

x       array [n]
y       array [n] or [n, ny]
labels  list [n] of texts or None

Arrays over the points keep them alive.  While one is alive, append() is refused.)");
  type.def(py::init(&from_arrays), py::arg("x"), py::arg("y"), py::kw_only(),
           py::arg("labels") = py::none(), py::arg("name") = "");
  type.def_static("read", &read, py::arg("path"), py::arg("y") = std::vector<int>{1},
                  py::kw_only(), py::arg("x") = 0, py::arg("label") = -1,
                  py::arg("skip") = 0,
                  R"(Reads a text table with a point in each line.

y, x, label  columns, counted from 0; label -1: none
skip         lines to leave out at the beginning)");
  type.def_static("stats", &stats, py::arg("vectors"), py::arg("kind"),
                  R"(Statistics over the y values of vectors with the same x values.

kind  "max", "min", "median", or "amax" and "amin" of absolute values)");
  type.def("__len__", [](const Vector &self) { return self.get().npts; });
  type.def("__repr__", show);
  type.def_property_readonly("x", x_of,
                             "x values [n] float64, read-only, without a copy.");
  type.def_property_readonly("y", y_of,
                             R"(y values [n] or [n, ny] float64, read-only.

Without a copy, unless points were inserted or added after the first ones.)");
  type.def_property_readonly("labels", labels_of, "Labels [n], texts or None.");
  type.def_property_readonly(
      "ny", [](const Vector &self) { return self.get().ny; }, "y values of a point.");
  type.def_property_readonly(
      "name",
      [](const Vector &self) {
        return decoded(self.get().name == nullptr ? "" : self.get().name);
      },
      "Name of the vector.");
  type.def_property_readonly(
      "tag", [](const Vector &self) { return std::string(self.tag()); },
      "Tag of the vector in the library, for programs that use both.");
  type.def("append", append, py::arg("x"), py::arg("y"), py::kw_only(),
           py::arg("label") = py::none(), py::arg("index") = py::none(),
           R"(Adds a point at the end, or before the point `index`.

An insertion overwrites the y values of the point that makes room, as in the library.
Error while an array over the points is alive.)");
  type.def("put", put, py::arg("index"), py::arg("x"), py::arg("y"), py::kw_only(),
           py::arg("label") = py::none(),
           "Overwrites a point; a label of None stays, '' removes it.");
  type.def("evaluate", evaluate, py::arg("x"),
           R"(y values at x (any shape), linear between points; [..., ny] for ny > 1.

The values at the ends hold beyond them; NaN for NaN.)");
  type.def(
      "nearest",
      [](const Vector &self, double x, double y, int column) {
        int found = 0;
        const Failure failure;
        found = locked(family(),
                       [&] { return ksvector_nearest(self.tag(), column, x, y); });
        if (found < 0) failure.raise("there is no such point");
        return found;
      },
      py::arg("x"), py::arg("y"), py::kw_only(), py::arg("column") = 0,
      "Index of the point nearest to (x, y).");
  type.def("extremes", extremes, py::kw_only(), py::arg("column") = py::none(),
           "(least x, greatest x, least y, greatest y), of one column of y or of all.");
  type.def("copy", copy, "A copy with its own points.");
  type.def("__copy__", copy);
  type.def("__deepcopy__",
           [](const Vector &self, const py::dict &) { return copy(self); });
  type.def(
      "project",
      [](const Vector &self, double lat, double lon) {
        call([&] { return ksvector_transform_edp(self.tag(), lat, lon); });
      },
      py::arg("lat"), py::arg("lon"),
      "Longitudes in x and latitudes in y become degrees east and north of a point, in "
      "place.");
  type.def(
      "invert_x",
      [](const Vector &self) {
        call([&] { return ksvector_transform_invertx(self.tag()); });
      },
      "x becomes 1 / x, in place.");
  type.def(
      "spectrum_power",
      [](const Vector &self, int power, std::optional<int> column) {
        call([&] {
          return ksvector_transform_spec(self.tag(), power, column.value_or(-1));
        });
      },
      py::arg("power"), py::kw_only(), py::arg("column") = py::none(),
      "Multiplies y by (2 pi x) ** power, in place: differentiates a spectrum.");
  type.def(
      "gain",
      [](const Vector &self, double gain, std::optional<int> column) {
        call([&] {
          return ksvector_transform_ygain(self.tag(), column.value_or(-1), gain);
        });
      },
      py::arg("gain"), py::kw_only(), py::arg("column") = py::none(),
      "Multiplies y by a number, in place.");
  type.def(
      "figure",
      [](py::object self, const py::args &args, const py::kwargs &kwargs) {
        return call_python("ksutil.figures", "vector_figure", self, args, kwargs);
      },
      "A Figure of the points; see ksutil.figures.vector_figure.");
}

}  // namespace ksutil::python
