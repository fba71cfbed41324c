#include <algorithm>
#include <cmath>
#include <string_view>

#include "objects/internal/grid_axis.h"
#include "objects/internal/grid_storage.h"
#include "objects/ksgrid.h"
#include "platform/elog/elog.h"

using namespace ksutil;
using namespace ksutil::grids;

namespace {

/* How far the value lies between two coordinates, 0 to 1; a half between equal ones. */
double fraction(const float *coords, const Interval &at, float value) {
  const double c0 = coords[at.i0], c1 = coords[at.i1];
  return c0 != c1 ? (value - c0) / (c1 - c0) : 0.5;
}

/* Exact at both ends. */
double between(double low, double high, double part) {
  return (1.0 - part) * low + part * high;
}

/* One frame of a grid. */
class Frame {
 public:
  Frame(const KSGrid &grid, int frame)
      : grid_(grid),
        data_(grid.data + frame * frame_size(grid)),
        xaxis_(grid.nx, grid.x),
        yaxis_(grid.ny, grid.y) {}

  float nearest(float x, float y) {
    Interval ix, iy;
    if (xaxis_.locate(x, ix) != 0 || yaxis_.locate(y, iy) != 0) return grid_.gapval;
    return data_[near(grid_.x, ix, x) + std::int64_t{grid_.nx} * near(grid_.y, iy, y)];
  }

  float bilinear(float x, float y) {
    const float gap = grid_.gapval;
    Interval ix, iy;
    if (x == gap || y == gap) return gap;
    if (xaxis_.locate(x, ix) != 0 || yaxis_.locate(y, iy) != 0) return gap;
    const float *const low = data_ + std::int64_t{grid_.nx} * iy.i0;
    const float *const high = data_ + std::int64_t{grid_.nx} * iy.i1;
    const float low0 = low[ix.i0], low1 = low[ix.i1];
    const float high0 = high[ix.i0], high1 = high[ix.i1];
    if ((low0 == gap) | (low1 == gap) | (high0 == gap) | (high1 == gap)) return gap;
    const double part = fraction(grid_.x, ix, x);
    return static_cast<float>(between(between(low0, low1, part),
                                      between(high0, high1, part),
                                      fraction(grid_.y, iy, y)));
  }

 private:
  static int near(const float *coords, const Interval &at, float value) {
    return fraction(coords, at, value) > 0.5 ? at.i1 : at.i0;
  }

  const KSGrid &grid_;
  const float *data_;
  Axis xaxis_, yaxis_;
};

/* Makes or grows the caller's array; false with a message when memory is short. */
bool make_room(int npoints, float **out, int *nout) {
  const std::size_t bytes = float_bytes(npoints);
  if (*out == nullptr) {
    *out = static_cast<float *>(ks_malloc(std::max<std::size_t>(bytes, sizeof(float))));
    if (*out == nullptr) {
      elog_log(1, "ksgrid_eval_ksgrid: malloc(out,%ld) error.\n",
               static_cast<long>(bytes));
      return false;
    }
    *nout = npoints;
  } else if (npoints > *nout) {
    void *const grown = ks_realloc(*out, bytes);
    if (grown == nullptr) {
      elog_log(1, "ksgrid_eval_ksgrid: realloc(out,%ld) error.\n",
               static_cast<long>(bytes));
      return false;
    }
    *out = static_cast<float *>(grown);
    *nout = npoints;
  }
  return true;
}

}  // namespace

int ksgrid_eval_ksgrid(const KSGrid *grid, int frame, int npoints, const float *x,
                       const float *y, const char *interp_mode, const char *extrap_mode,
                       float **out, int *nout) {
  if (grid == nullptr || frame < 0 || frame >= grid->nframes) {
    elog_log(0, "ksgrid_eval_ksgrid: Frame index out of range.\n");
    return -1;
  }
  const std::string_view extrap = extrap_mode == nullptr ? "" : extrap_mode;
  if (extrap != "none") {
    elog_log(0, "ksgrid_eval_ksgrid: Illegal extrap_mode=%s value.\n", extrap.data());
    return -1;
  }
  const std::string_view interp = interp_mode == nullptr ? "" : interp_mode;
  if (interp != "bilinear" && interp != "block") {
    elog_log(0, "ksgrid_eval_ksgrid: Illegal interp_mode=%s value.\n", interp.data());
    return -1;
  }
  if (npoints < 0 || out == nullptr || nout == nullptr ||
      (npoints > 0 && (x == nullptr || y == nullptr))) {
    elog_log(0, "ksgrid_eval_ksgrid: Illegal points.\n");
    return -1;
  }
  if (!make_room(npoints, out, nout)) return -1;
  Frame values(*grid, frame);
  float *const to = *out;
  if (interp == "block") {
    for (int i = 0; i < npoints; ++i) to[i] = values.nearest(x[i], y[i]);
  } else {
    for (int i = 0; i < npoints; ++i) to[i] = values.bilinear(x[i], y[i]);
  }
  return 0;
}

int ksgrid_maxmin_ksgrid(const KSGrid *grid, int frame, float *xmin, float *xmax,
                         float *ymin, float *ymax, float *vmin, float *vmax) {
  if (grid == nullptr || frame >= grid->nframes) {
    elog_log(0, "ksgrid_maxmin_ksgrid: %s\n",
             grid == nullptr || grid->nframes < 1 ? "No data in object."
                                                  : "Frame index out of range.");
    return -1;
  }
  const std::int64_t size = frame_size(*grid);
  const float *const first = grid->data + (frame < 0 ? 0 : frame * size);
  const float *const end = first + (frame < 0 ? grid->ndata : size);
  float low = INFINITY, high = -INFINITY;
  bool found = false;
  for (const float *at = first; at < end; ++at) {
    if (*at == grid->gapval || std::isnan(*at)) continue;
    found = true;
    low = std::min(low, *at);
    high = std::max(high, *at);
  }
  if (!found) {
    elog_log(0, "ksgrid_maxmin_ksgrid: No data in object.\n");
    return -1;
  }
  const auto give = [](float value, float *to) {
    if (to != nullptr) *to = value;
  };
  const auto [x0, x1] = std::minmax_element(grid->x, grid->x + grid->nx);
  const auto [y0, y1] = std::minmax_element(grid->y, grid->y + grid->ny);
  give(*x0, xmin);
  give(*x1, xmax);
  give(*y0, ymin);
  give(*y1, ymax);
  give(low, vmin);
  give(high, vmax);
  return 0;
}
