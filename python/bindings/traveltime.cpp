#include <ksutil/platform/geo/geo.h>
#include <ksutil/platform/traveltime/traveltime.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "bindings/bindings.h"
#include "bindings/interpreter/arrays.h"
#include "bindings/interpreter/calls.h"
#include "bindings/interpreter/locks.h"

namespace ksutil::python {
namespace {

using traveltime::Arrival;

constexpr double kRadians = 3.14159265358979323846 / 180.0;
constexpr std::size_t kPiece = 1 << 17;  // values between two looks at signals
constexpr std::size_t kPhaseSize = 8;    // characters of the longest name

/* A flat array of float64, and its length. */
using Numbers = py::array_t<double, py::array::c_style | py::array::forcecast>;

struct Kind {
  traveltime::Model model = traveltime::Model::kIasp91;
  traveltime::Wave wave = traveltime::Wave::kP;
};

Kind kind_of(const std::string &phase, const std::string &model) {
  Kind kind;
  if (!traveltime::find_model(model, kind.model)) {
    throw py::value_error("no Earth model '" + model + "'; there are iasp91 and ak135");
  }
  if (phase == "S") {
    kind.wave = traveltime::Wave::kS;
  } else if (phase != "P") {
    throw py::value_error(
        "phase must be 'P' or 'S', the first arrivals of these types");
  }
  return kind;
}

std::size_t common_size(const std::vector<Numbers> &arrays) {
  for (const Numbers &array : arrays) {
    if (array.size() != arrays.front().size()) {
      throw py::value_error("the arrays differ in size");
    }
  }
  return static_cast<std::size_t>(arrays.front().size());
}

/* Calls work(i) for each index without the GIL; signals are looked at now and then. */
template <class Work>
void each_index(std::size_t size, Work work) {
  for (std::size_t first = 0; first < size; first += kPiece) {
    const std::size_t end = std::min(size, first + kPiece);
    released([&] {
      for (std::size_t i = first; i < end; i++) work(i);
    });
    check_signals();
  }
}

py::array travel_times(const Numbers &distance, const Numbers &depth,
                       const std::string &phase, const std::string &model) {
  const Kind kind = kind_of(phase, model);
  const std::size_t size = common_size({distance, depth});
  const double *const deltas = distance.data();
  const double *const depths = depth.data();
  std::vector<double> times(size, kNaN);
  each_index(size, [&](std::size_t i) {
    Arrival arrival;
    if (traveltime::first_arrival(kind.model, kind.wave, deltas[i], depths[i],
                                  arrival)) {
      times[i] = arrival.time;
    }
  });
  return array_of(std::move(times));
}

py::tuple first_arrivals(const Numbers &distance, const Numbers &depth,
                         const std::string &phase, const std::string &model) {
  const Kind kind = kind_of(phase, model);
  const std::size_t size = common_size({distance, depth});
  const double *const deltas = distance.data();
  const double *const depths = depth.data();
  std::vector<double> times(size, kNaN), slownesses(size, kNaN);
  py::array phases(py::dtype("U" + std::to_string(kPhaseSize)),
                   static_cast<py::ssize_t>(size));
  auto *const points = static_cast<Py_UCS4 *>(phases.mutable_data());
  std::fill_n(points, size * kPhaseSize, Py_UCS4{0});
  each_index(size, [&](std::size_t i) {
    Arrival arrival;
    if (!traveltime::first_arrival(kind.model, kind.wave, deltas[i], depths[i],
                                   arrival)) {
      return;
    }
    times[i] = arrival.time;
    slownesses[i] = arrival.slowness;
    const std::string_view name = arrival.phase;
    std::copy_n(name.begin(), std::min(name.size(), kPhaseSize),
                points + i * kPhaseSize);
  });
  return py::make_tuple(array_of(std::move(times)), array_of(std::move(slownesses)),
                        phases);
}

py::tuple distance_azimuth(const Numbers &lat1, const Numbers &lon1,
                           const Numbers &lat2, const Numbers &lon2) {
  const std::size_t size = common_size({lat1, lon1, lat2, lon2});
  const double *const a = lat1.data(), *const b = lon1.data();
  const double *const c = lat2.data(), *const d = lon2.data();
  std::vector<double> distances(size), azimuths(size);
  each_index(size, [&](std::size_t i) {
    double delta = 0.0, azimuth = 0.0;
    dist(a[i] * kRadians, b[i] * kRadians, c[i] * kRadians, d[i] * kRadians, &delta,
         &azimuth);
    distances[i] = delta / kRadians;
    azimuth /= kRadians;
    azimuths[i] = azimuth >= 360.0 ? 0.0 : azimuth;
  });
  return py::make_tuple(array_of(std::move(distances)), array_of(std::move(azimuths)));
}

}  // namespace

void bind_traveltime(py::module_ &m) {
  m.def("_travel_times", travel_times, py::arg("distance"), py::arg("depth"),
        py::arg("phase"), py::arg("model"));
  m.def("_first_arrivals", first_arrivals, py::arg("distance"), py::arg("depth"),
        py::arg("phase"), py::arg("model"));
  m.def("_distance_azimuth", distance_azimuth, py::arg("lat1"), py::arg("lon1"),
        py::arg("lat2"), py::arg("lon2"));
}

}  // namespace ksutil::python
