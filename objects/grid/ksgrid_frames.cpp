#include <algorithm>
#include <climits>
#include <cstdlib>

#include "objects/grid/internal/grid_storage.h"
#include "objects/ksgrid.h"
#include "platform/elog/failure.h"

using namespace ksutil;
using namespace ksutil::grids;

namespace {

/* Whether a grid can hold that many frames. */
bool can_hold(const KSGrid *grid, std::int64_t nframes, const char *function) {
  if (grid == nullptr || frame_size(*grid) == 0) return fail(function, "Not a grid");
  if (nframes < 0 || nframes > INT_MAX / frame_size(*grid)) {
    return fail(function, "Illegal number of frames");
  }
  return true;
}

bool has_frames(const float *frames, int nframes, const char *function) {
  if (frames != nullptr || nframes == 0) return true;
  return fail(function, "No frames given");
}

void set_count(KSGrid &grid, int nframes) {
  grid.nframes = nframes;
  grid.ndata = static_cast<std::int32_t>(nframes * frame_size(grid));
}

void replace(KSGrid &grid, MallocPtr<float> data, int nframes, double time, double dt) {
  std::free(grid.data);
  grid.data = data.release();
  set_count(grid, nframes);
  grid.time = time;
  grid.dt = dt;
}

int order_stored(KSGrid &grid, const char *function) {
  if (grid.order == 0 || ksgrid_order(&grid) == 0) return 0;
  return fail(function, "ksgrid_order() error");
}

}  // namespace

int ksgrid_put_ksgrid(KSGrid *grid, int nframes, const float *frames, double time,
                      double dt) {
  constexpr const char *kName = "ksgrid_put_ksgrid";
  if (!can_hold(grid, nframes, kName)) return -1;
  if (!has_frames(frames, nframes, kName)) return -1;
  const std::int64_t ndata = nframes * frame_size(*grid);
  float *copied = nullptr;
  if (nframes > 0 && !copy_values(frames, ndata, copied)) {
    return fail_errno("ksgrid_put_ksgrid", "malloc(grid->data,%ld) error",
                      static_cast<long>(float_bytes(ndata)));
  }
  replace(*grid, MallocPtr<float>(copied), nframes, time, dt);
  return order_stored(*grid, kName);
}

int ksgrid_putanddecimate_ksgrid(KSGrid *grid, int nframes, const float *frames,
                                 int decimation, double time, double dt) {
  constexpr const char *kName = "ksgrid_putanddecimate_ksgrid";
  if (decimation < 1 || !(dt > 0)) {
    return ksgrid_put_ksgrid(grid, nframes, frames, time, dt);
  }
  const int kept = nframes > 0 ? (nframes - 1) / decimation + 1 : nframes;
  if (!can_hold(grid, kept, kName)) return -1;
  if (!has_frames(frames, nframes, kName)) return -1;
  const std::int64_t size = frame_size(*grid), ndata = kept * size;
  MallocPtr<float> data;
  if (kept > 0) {
    data.reset(static_cast<float *>(
        ks_calloc(static_cast<std::size_t>(ndata), sizeof(float))));
    if (data == nullptr) {
      return fail_errno("ksgrid_putanddecimate_ksgrid", "malloc(grid->data,%ld) error",
                        static_cast<long>(float_bytes(ndata)));
    }
  }
  for (int i = 0; i < nframes; ++i) {
    const float *const from = frames + i * size;
    float *const to = data.get() + i / decimation * size;
    for (std::int64_t k = 0; k < size; ++k) to[k] = from[k] > to[k] ? from[k] : to[k];
  }
  replace(*grid, std::move(data), kept, time, dt * decimation);
  return order_stored(*grid, kName);
}

int ksgrid_append_sample_ksgrid(KSGrid *grid, const float *frame) {
  constexpr const char *kName = "ksgrid_append_sample_ksgrid";
  if (grid == nullptr || grid->nframes < 1) {
    return fail("ksgrid_append_sample_ksgrid", "No data in object");
  }
  if (!can_hold(grid, std::int64_t{grid->nframes} + 1, kName)) return -1;
  if (!has_frames(frame, 1, kName)) return -1;
  const std::size_t bytes = float_bytes(grid->ndata + frame_size(*grid));
  void *const grown = ks_realloc(grid->data, bytes);
  if (grown == nullptr) {
    return fail_errno("ksgrid_append_sample_ksgrid", "realloc(grid->data,%ld) error",
                      static_cast<long>(bytes));
  }
  grid->data = static_cast<float *>(grown);
  std::copy_n(frame, frame_size(*grid), grid->data + grid->ndata);
  set_count(*grid, grid->nframes + 1);
  return order_stored(*grid, kName);
}

int ksgrid_trim_ksgrid(KSGrid *grid, int keep) {
  if (!can_hold(grid, 0, "ksgrid_trim_ksgrid")) return -1;
  if (keep < 0) return fail("ksgrid_trim_ksgrid", "Illegal number of frames");
  const int dropped = grid->nframes - keep;
  if (dropped < 1) return 0;
  const std::int64_t size = frame_size(*grid), ndata = keep * size;
  float *kept = nullptr;
  /* A new array, so that a failure leaves the grid as it was. */
  if (keep > 0 && !copy_values(grid->data + dropped * size, ndata, kept)) {
    return fail_errno("ksgrid_trim_ksgrid", "realloc(grid->data,%ld) error",
                      static_cast<long>(float_bytes(ndata)));
  }
  std::free(grid->data);
  grid->data = kept;
  grid->time += dropped * grid->dt;
  set_count(*grid, keep);
  return 0;
}

int ksgrid_set_order_ksgrid(KSGrid *grid, int flag) {
  if (!can_hold(grid, 0, "ksgrid_set_order_ksgrid")) return -1;
  grid->order = flag;
  return 0;
}

int ksgrid_order(KSGrid *grid) {
  if (!can_hold(grid, 0, "ksgrid_order")) return -1;
  const int xdirection = axis_direction(grid->nx, grid->x);
  const int ydirection = axis_direction(grid->ny, grid->y);
  if (xdirection == 2) {
    return fail("ksgrid_order",
                "X grid coordinates must be monotonically increasing or decreasing");
  }
  if (ydirection == 2) {
    return fail("ksgrid_order",
                "Y grid coordinates must be monotonically increasing or decreasing");
  }
  if (xdirection < 0) {
    std::reverse(grid->x, grid->x + grid->nx);
    for (std::int64_t at = 0; at < grid->ndata; at += grid->nx) {
      std::reverse(grid->data + at, grid->data + at + grid->nx);
    }
  }
  if (ydirection < 0) {
    std::reverse(grid->y, grid->y + grid->ny);
    const std::int64_t size = frame_size(*grid);
    for (std::int64_t frame = 0; frame < grid->ndata; frame += size) {
      float *low = grid->data + frame, *high = low + size - grid->nx;
      for (; low < high; low += grid->nx, high -= grid->nx) {
        std::swap_ranges(low, low + grid->nx, high);
      }
    }
  }
  return 0;
}
