/* ksgrid_tags: the operations on a tag; each looks the grid up and calls its record
 * form. */
#include "objects/grid/internal/grid_storage.h"
#include "objects/ksgrid.h"

using ksutil::grids::Grids;

namespace {

/* The record form's result on the grid, or -1 without one. */
template <class Grid, class... Parameters, class... Arguments>
int on_grid(const char *function, const char *tag,
            int (*operation)(Grid *, Parameters...), Arguments... arguments) {
  KSGrid *const grid = Grids::find(function, tag);
  return grid == nullptr ? -1 : operation(grid, arguments...);
}

}  // namespace

KSGrid *ksgrid_copy(const char *tag, const char *name, char *newtag) {
  const KSGrid *const grid = Grids::find("ksgrid_copy", tag);
  if (grid == nullptr) return Grids::none(newtag);
  return ksgrid_copy_ksgrid(grid, name, newtag);
}

int ksgrid_put(const char *tag, int nframes, const float *frames, double time,
               double dt) {
  return on_grid("ksgrid_put", tag, ksgrid_put_ksgrid, nframes, frames, time, dt);
}

int ksgrid_putanddecimate(const char *tag, int nframes, const float *frames,
                          int decimation, double time, double dt) {
  return on_grid("ksgrid_putanddecimate", tag, ksgrid_putanddecimate_ksgrid, nframes,
                 frames, decimation, time, dt);
}

int ksgrid_append_sample(const char *tag, const float *frame) {
  return on_grid("ksgrid_append_sample", tag, ksgrid_append_sample_ksgrid, frame);
}

int ksgrid_trim(const char *tag, int keep) {
  return on_grid("ksgrid_trim", tag, ksgrid_trim_ksgrid, keep);
}

int ksgrid_set_order(const char *tag, int flag) {
  return on_grid("ksgrid_set_order", tag, ksgrid_set_order_ksgrid, flag);
}

int ksgrid_eval(const char *tag, int frame, int npoints, const float *x, const float *y,
                const char *interp_mode, const char *extrap_mode, float **out,
                int *nout) {
  return on_grid("ksgrid_eval", tag, ksgrid_eval_ksgrid, frame, npoints, x, y,
                 interp_mode, extrap_mode, out, nout);
}

int ksgrid_maxmin(const char *tag, int frame, float *xmin, float *xmax, float *ymin,
                  float *ymax, float *vmin, float *vmax) {
  return on_grid("ksgrid_maxmin", tag, ksgrid_maxmin_ksgrid, frame, xmin, xmax, ymin,
                 ymax, vmin, vmax);
}

int ksgrid_d2slow(const char *tag, const char *model, double depth, int axes) {
  return on_grid("ksgrid_d2slow", tag, ksgrid_d2slow_ksgrid, model, depth, axes);
}

int ksgrid_eval_d2slow(const char *tag, const char *model, double depth, int frame,
                       int npoints, const float *x, const float *y,
                       const char *interp_mode, const char *extrap_mode, float **out,
                       int *nout) {
  return on_grid("ksgrid_eval_d2slow", tag, ksgrid_eval_d2slow_ksgrid, model, depth,
                 frame, npoints, x, y, interp_mode, extrap_mode, out, nout);
}

int ksgrid_stuff(const char *tag, char **packet, int *nbytes, int *allocated) {
  return on_grid("ksgrid_stuff", tag, ksgrid_stuff_ksgrid, packet, nbytes, allocated);
}

int ksgrid_write_fd(const char *tag, int fd) {
  return on_grid("ksgrid_write_fd", tag, ksgrid_write_fd_ksgrid, fd);
}
