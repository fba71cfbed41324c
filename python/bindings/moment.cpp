#include <ksutil/mechanisms/ksmoment.h>
#include <ksutil/objects/ksvector.h>
#include <pybind11/stl.h>

#include <array>
#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bindings/bindings.h"
#include "bindings/interpreter/arrays.h"
#include "bindings/interpreter/failure.h"
#include "bindings/interpreter/locks.h"
#include "bindings/objects/gaps.h"
#include "bindings/objects/records.h"

namespace ksutil::python {
namespace {

using Tensor = std::array<double, 6>;
using Numbers = py::array_t<double, py::array::c_style | py::array::forcecast>;

py::tuple six(const Tensor &m) {
  return py::make_tuple(m[0], m[1], m[2], m[3], m[4], m[5]);
}

py::tuple plane_tuple(const KSMomentPlane &plane) {
  return py::make_tuple(plane.strike, plane.dip, plane.rake);
}

/* (value, plunge, azimuth) of the axes T, N and P. */
py::tuple axes(const Tensor &m) {
  const Failure failure;
  std::array<KSMomentAxis, 3> found{};
  failure.check(ksmoment_axes(m.data(), found.data()));
  py::tuple result(found.size());
  for (std::size_t i = 0; i < found.size(); i++) {
    result[i] = py::make_tuple(found[i].value, found[i].plunge, found[i].azimuth);
  }
  return result;
}

py::tuple eigen(const Tensor &m) {
  const Failure failure;
  std::vector<double> values(3), vectors(9);
  failure.check(ksmoment_eigen(m.data(), values.data(), vectors.data()));
  return py::make_tuple(array_of(std::move(values)),
                        array_of(std::move(vectors)).attr("reshape")(3, 3));
}

py::tuple planes(const Tensor &m) {
  const Failure failure;
  std::array<KSMomentPlane, 2> found{};
  failure.check(ksmoment_planes(m.data(), found.data()));
  return py::make_tuple(plane_tuple(found[0]), plane_tuple(found[1]));
}

py::tuple parts(const Tensor &m) {
  const Failure failure;
  KSMomentParts found{};
  failure.check(ksmoment_parts(m.data(), &found));
  return py::make_tuple(found.iso, found.dc, found.clvd);
}

py::tuple from_plane(double strike, double dip, double rake, double moment) {
  const Failure failure;
  const KSMomentPlane plane{strike, dip, rake};
  Tensor m{};
  failure.check(ksmoment_from_plane(&plane, moment, m.data()));
  return six(m);
}

py::tuple other_plane(double strike, double dip, double rake) {
  const Failure failure;
  const KSMomentPlane plane{strike, dip, rake};
  KSMomentPlane other{};
  failure.check(ksmoment_other_plane(&plane, &other));
  return plane_tuple(other);
}

py::tuple to_ned(const Tensor &m) {
  const Failure failure;
  Tensor ned{};
  failure.check(ksmoment_to_ned(m.data(), ned.data()));
  return six(ned);
}

py::tuple from_ned(const Tensor &ned) {
  const Failure failure;
  Tensor m{};
  failure.check(ksmoment_from_ned(ned.data(), m.data()));
  return six(m);
}

/* A number of a tensor; NaN from the library is a failure. */
template <double (*Function)(const double *)>
double number(const Tensor &m) {
  const Failure failure;
  const double value = Function(m.data());
  if (std::isnan(value)) failure.raise();
  return value;
}

template <double (*Function)(double)>
double converted(double given) {
  const Failure failure;
  const double value = Function(given);
  if (std::isnan(value)) failure.raise();
  return value;
}

double rotation(const Tensor &a, const Tensor &b) {
  const Failure failure;
  const double angle = ksmoment_rotation(a.data(), b.data());
  if (std::isnan(angle)) failure.raise();
  return angle;
}

/* P, SV and SH for flat arrays of one length; NaN where an angle is out of range. */
py::tuple radiation(const Tensor &m, const Numbers &azimuth, const Numbers &takeoff) {
  if (azimuth.size() != takeoff.size()) {
    throw py::value_error("the arrays differ in size");
  }
  const auto size = static_cast<std::size_t>(azimuth.size());
  const double *const azimuths = azimuth.data();
  const double *const takeoffs = takeoff.data();
  std::vector<double> p(size, kNaN), sv(size, kNaN), sh(size, kNaN);
  const Failure dropped;
  released([&] {
    for (std::size_t i = 0; i < size; i++) {
      const double angle = takeoffs[i];
      if (!std::isfinite(azimuths[i]) || !(angle >= 0.0 && angle <= 180.0)) continue;
      ksmoment_radiation(m.data(), azimuths[i], angle, &p[i], &sv[i], &sh[i]);
    }
  });
  return py::make_tuple(array_of(std::move(p)), array_of(std::move(sv)),
                        array_of(std::move(sh)));
}

py::tuple project(const Numbers &azimuth, const Numbers &plunge, int hemisphere,
                  int projection) {
  if (azimuth.size() != plunge.size()) {
    throw py::value_error("the arrays differ in size");
  }
  const auto size = static_cast<std::size_t>(azimuth.size());
  const double *const azimuths = azimuth.data();
  const double *const plunges = plunge.data();
  std::vector<double> x(size, kNaN), y(size, kNaN);
  const Failure dropped;
  released([&] {
    for (std::size_t i = 0; i < size; i++) {
      if (!std::isfinite(azimuths[i]) || !(std::fabs(plunges[i]) <= 90.0)) continue;
      ksmoment_project(azimuths[i], plunges[i], hemisphere, projection, &x[i], &y[i]);
    }
  });
  return py::make_tuple(array_of(std::move(x)), array_of(std::move(y)));
}

using Curve = KSVector *(*)(const double *, int, int, const char *, char *);

struct FreeVector {
  void operator()(KSVector *vector) const { ksvector_free_vector(vector); }
};

/* The pieces of a curve, each an array [n][2] of x (east) and y (north). */
template <Curve Function>
py::list curve(const Tensor &m, int hemisphere, int projection) {
  const Failure failure;
  bool made = false;
  std::vector<std::vector<double>> pieces;
  locked(lock_of(Family::kVectors), [&] {
    const std::unique_ptr<KSVector, FreeVector> points(
        Function(m.data(), hemisphere, projection, nullptr, nullptr));
    if (points == nullptr) return;
    made = true;
    bool inside = false;
    for (int i = 0; i < points->npts; i++) {
      const KSVectorPoint &point = points->points[i];
      const bool gap = is_gap(point.x);
      if (!gap) {
        if (!inside) pieces.emplace_back();
        pieces.back().push_back(point.x);
        pieces.back().push_back(point.y[0]);
      }
      inside = !gap;
    }
  });
  if (!made) failure.raise();
  py::list result;
  for (std::vector<double> &piece : pieces) {
    result.append(array_of(std::move(piece)).attr("reshape")(-1, 2));
  }
  return result;
}

}  // namespace

void bind_moment(py::module_ &m) {
  m.def("_moment_axes", axes, py::arg("tensor"));
  m.def("_moment_eigen", eigen, py::arg("tensor"));
  m.def("_moment_planes", planes, py::arg("tensor"));
  m.def("_moment_parts", parts, py::arg("tensor"));
  m.def("_moment_from_plane", from_plane, py::arg("strike"), py::arg("dip"),
        py::arg("rake"), py::arg("moment"));
  m.def("_moment_other_plane", other_plane, py::arg("strike"), py::arg("dip"),
        py::arg("rake"));
  m.def("_moment_to_ned", to_ned, py::arg("tensor"));
  m.def("_moment_from_ned", from_ned, py::arg("tensor"));
  m.def("_moment_scalar", number<ksmoment_moment>, py::arg("tensor"));
  m.def("_moment_dc_scalar", number<ksmoment_dc_moment>, py::arg("tensor"));
  m.def("_moment_magnitude", converted<ksmoment_magnitude>, py::arg("moment"));
  m.def("_moment_of_magnitude", converted<ksmoment_moment_of_magnitude>,
        py::arg("magnitude"));
  m.def("_moment_rotation", rotation, py::arg("tensor"), py::arg("other"));
  m.def("_moment_radiation", radiation, py::arg("tensor"), py::arg("azimuth"),
        py::arg("takeoff"));
  m.def("_moment_project", project, py::arg("azimuth"), py::arg("plunge"),
        py::arg("hemisphere"), py::arg("projection"));
  m.def("_moment_nodal_lines", curve<ksmoment_nodal_lines>, py::arg("tensor"),
        py::arg("hemisphere"), py::arg("projection"));
  m.def("_moment_dc_nodal_lines", curve<ksmoment_dc_nodal_lines>, py::arg("tensor"),
        py::arg("hemisphere"), py::arg("projection"));
  m.def("_moment_outline", curve<ksmoment_outline>, py::arg("tensor"),
        py::arg("hemisphere"), py::arg("projection"));
}

}  // namespace ksutil::python
