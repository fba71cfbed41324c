#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

#include "objects/grid/internal/grid_storage.h"
#include "objects/ksgrid.h"
#include "platform/elog/failure.h"
#include "platform/traveltime/traveltime.h"

using namespace ksutil;
using namespace ksutil::grids;

namespace {

/* Slowness of the first P-type arrival from sources at one depth. */
class Slowness {
 public:
  /* False with a message for an unknown model or a depth out of range. */
  bool open(const char *model, double depth, const char *function) {
    const char *const name = model == nullptr ? "iasp91" : model;
    if (!traveltime::find_model(name, model_)) {
      return fail(function, "Unknown travel-time model '%s'", name);
    }
    depth_ = depth;
    traveltime::Arrival arrival;
    if (traveltime::first_arrival(model_, traveltime::Wave::kP, 0.0, depth_, arrival)) {
      return true;
    }
    return fail(function, "Depth out of range");
  }

  /* False for NaN and beyond 180 degrees. */
  bool at(double distance, double &slowness) const {
    traveltime::Arrival arrival;
    if (!(std::abs(distance) <= 180.0) ||
        !traveltime::first_arrival(model_, traveltime::Wave::kP, std::abs(distance),
                                   depth_, arrival)) {
      return false;
    }
    slowness = distance == 0.0 ? 0.0 : std::copysign(arrival.slowness, distance);
    return true;
  }

 private:
  traveltime::Model model_ = traveltime::Model::kIasp91;
  double depth_ = 0.0;
};

/* Converts into a new array; false with a message. */
bool convert(const Slowness &slowness, int n, const float *distances,
             std::vector<float> &converted, const char *function) {
  converted.resize(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) {
    double value = 0.0;
    if (!slowness.at(distances[i], value)) {
      return fail(function, "Distance out of range");
    }
    converted[static_cast<std::size_t>(i)] = static_cast<float>(value);
  }
  return true;
}

bool has_direction(const std::vector<float> &axis, const char *letter) {
  if (axis_direction(static_cast<int>(axis.size()), axis.data()) != 2) return true;
  return fail("ksgrid_d2slow_ksgrid", "Slowness rises and falls along %s", letter);
}

}  // namespace

int ksgrid_coords_d2slow(const char *model, double depth, int n, const float *distances,
                         float *slownesses) {
  constexpr const char *kName = "ksgrid_coords_d2slow";
  return at_boundary(kName, [&]() -> int {
    Slowness slowness;
    if (n < 0 || (n > 0 && (distances == nullptr || slownesses == nullptr))) {
      return fail("ksgrid_coords_d2slow", "Illegal coordinates");
    }
    if (!slowness.open(model, depth, kName)) return -1;
    std::vector<float> converted;
    if (!convert(slowness, n, distances, converted, kName)) return -1;
    std::copy(converted.begin(), converted.end(), slownesses);
    return 0;
  });
}

int ksgrid_d2slow_ksgrid(KSGrid *grid, const char *model, double depth, int axes) {
  constexpr const char *kName = "ksgrid_d2slow_ksgrid";
  return at_boundary(kName, [&]() -> int {
    if (grid == nullptr || frame_size(*grid) == 0) {
      return fail("ksgrid_d2slow_ksgrid", "Not a grid");
    }
    if (axes < KSGRID_X || axes > KSGRID_X + KSGRID_Y) {
      return fail("ksgrid_d2slow_ksgrid", "Illegal axes=%d value", axes);
    }
    Slowness slowness;
    if (!slowness.open(model, depth, kName)) return -1;
    std::vector<float> x(grid->x, grid->x + grid->nx), y(grid->y, grid->y + grid->ny);
    if ((axes & KSGRID_X) != 0 &&
        !(convert(slowness, grid->nx, grid->x, x, kName) && has_direction(x, "x"))) {
      return -1;
    }
    if ((axes & KSGRID_Y) != 0 &&
        !(convert(slowness, grid->ny, grid->y, y, kName) && has_direction(y, "y"))) {
      return -1;
    }
    std::copy(x.begin(), x.end(), grid->x);
    std::copy(y.begin(), y.end(), grid->y);
    if (grid->order != 0 && ksgrid_order(grid) != 0) {
      return fail("ksgrid_d2slow_ksgrid", "ksgrid_order() error");
    }
    return 0;
  });
}

int ksgrid_eval_d2slow_ksgrid(const KSGrid *grid, const char *model, double depth,
                              int frame, int npoints, const float *x, const float *y,
                              const char *interp_mode, const char *extrap_mode,
                              float **out, int *nout) {
  constexpr const char *kName = "ksgrid_eval_d2slow_ksgrid";
  return at_boundary(kName, [&]() -> int {
    if (npoints < 0 || (npoints > 0 && (x == nullptr || y == nullptr))) {
      return fail("ksgrid_eval_d2slow_ksgrid", "Illegal points");
    }
    Slowness slowness;
    if (!slowness.open(model, depth, kName)) return -1;
    const auto n = static_cast<std::size_t>(npoints);
    std::vector<float> east(n), north(n);
    std::vector<std::size_t> off_the_globe;
    for (std::size_t i = 0; i < n; ++i) {
      const double distance = std::hypot(x[i], y[i]);
      double value = 0.0;
      if (!slowness.at(distance, value)) {
        off_the_globe.push_back(i);
      } else if (distance > 0.0) {
        east[i] = static_cast<float>(value * (x[i] / distance));
        north[i] = static_cast<float>(value * (y[i] / distance));
      }
    }
    if (ksgrid_eval_ksgrid(grid, frame, npoints, east.data(), north.data(), interp_mode,
                           extrap_mode, out, nout) != 0) {
      return fail("ksgrid_eval_d2slow_ksgrid", "ksgrid_eval_ksgrid() error");
    }
    for (const std::size_t i : off_the_globe) (*out)[i] = grid->gapval;
    return 0;
  });
}
