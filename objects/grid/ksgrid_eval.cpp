#include <algorithm>
#include <cmath>
#include <string_view>

#include "objects/grid/internal/grid_axis.h"
#include "objects/grid/internal/grid_storage.h"
#include "objects/ksgrid.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"

using namespace ksutil;
using namespace ksutil::grids;

namespace {

/* Points that go through each step together. */
constexpr int kBatch = 256;

/* Linear interpolation, exact at both ends. */
double between(double low, double high, double part) {
  return (1.0 - part) * low + part * high;
}

/* One frame of a grid. */
class Frame {
 public:
  Frame(const KSGrid &grid, int frame)
      : data_(grid.data + frame * frame_size(grid)),
        nx_(grid.nx),
        gap_(grid.gapval),
        xaxis_(grid.nx, grid.x),
        yaxis_(grid.ny, grid.y) {}

  void nearest(const float *x, const float *y, int count, float *out) {
    locate(x, y, count);
    for (int i = 0; i < count; ++i) {
      const Place &px = xplaces_[i], &py = yplaces_[i];
      out[i] = px.i0 < 0 || py.i0 < 0 ? gap_ : row(near(py))[near(px)];
    }
  }

  void bilinear(const float *x, const float *y, int count, float *out) {
    locate(x, y, count);
    for (int i = 0; i < count; ++i) {
      const bool none = x[i] == gap_ || y[i] == gap_;
      out[i] = none ? gap_ : bilinear(xplaces_[i], yplaces_[i]);
    }
  }

 private:
  void locate(const float *x, const float *y, int count) {
    xaxis_.locate(x, count, xplaces_);
    yaxis_.locate(y, count, yplaces_);
  }

  const float *row(int iy) const { return data_ + nx_ * iy; }

  static int near(const Place &place) { return place.part > 0.5 ? place.i1 : place.i0; }

  float bilinear(const Place &px, const Place &py) const {
    if ((px.i0 | py.i0) < 0) return gap_;
    const float *const low = row(py.i0), *const high = row(py.i1);
    const float low0 = low[px.i0], low1 = low[px.i1];
    const float high0 = high[px.i0], high1 = high[px.i1];
    if (low0 == gap_ || low1 == gap_ || high0 == gap_ || high1 == gap_) return gap_;
    return static_cast<float>(
        between(between(low0, low1, px.part), between(high0, high1, px.part), py.part));
  }

  const float *data_;
  std::int64_t nx_;
  float gap_;
  Axis xaxis_, yaxis_;
  Place xplaces_[kBatch], yplaces_[kBatch];
};

/* Makes or grows the caller's array; false with a message when memory is short. */
bool make_room(int npoints, float **out, int *nout) {
  const std::size_t bytes = float_bytes(npoints);
  if (*out == nullptr) {
    *out = static_cast<float *>(ks_malloc(std::max<std::size_t>(bytes, sizeof(float))));
    if (*out == nullptr) {
      return fail_errno("ksgrid_eval_ksgrid", "malloc(out,%ld) error",
                        static_cast<long>(bytes));
    }
    *nout = npoints;
  } else if (npoints > *nout) {
    void *const grown = ks_realloc(*out, bytes);
    if (grown == nullptr) {
      return fail_errno("ksgrid_eval_ksgrid", "realloc(out,%ld) error",
                        static_cast<long>(bytes));
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
    return fail("ksgrid_eval_ksgrid", "Frame index out of range");
  }
  const std::string_view extrap = extrap_mode == nullptr ? "" : extrap_mode;
  if (extrap != "none") {
    return fail("ksgrid_eval_ksgrid", "Illegal extrap_mode=%s value", extrap.data());
  }
  const std::string_view interp = interp_mode == nullptr ? "" : interp_mode;
  if (interp != "bilinear" && interp != "block") {
    return fail("ksgrid_eval_ksgrid", "Illegal interp_mode=%s value", interp.data());
  }
  if (npoints < 0 || out == nullptr || nout == nullptr ||
      (npoints > 0 && (x == nullptr || y == nullptr))) {
    return fail("ksgrid_eval_ksgrid", "Illegal points");
  }
  if (!make_room(npoints, out, nout)) return -1;
  std::fill(*out + npoints, *out + *nout, 0.0F);  // the rest of the caller's array
  Frame values(*grid, frame);
  for (int i = 0; i < npoints; i += kBatch) {
    const int count = std::min(kBatch, npoints - i);
    if (interp == "block") {
      values.nearest(x + i, y + i, count, *out + i);
    } else {
      values.bilinear(x + i, y + i, count, *out + i);
    }
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
  if (!found) return fail("ksgrid_maxmin_ksgrid", "No data in object");
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
