#include <climits>
#include <utility>

#include "objects/grid/internal/grid_storage.h"
#include "objects/ksgrid.h"
#include "platform/elog/failure.h"

using ksutil::fail;
using namespace ksutil::grids;
using ksutil::fail_errno;

namespace {

/* Hands a new grid to the caller, under a tag when there is a buffer for it. */
KSGrid *publish(GridPtr grid, char *tag, const char *function) {
  if (tag != nullptr && ksgrid_register_grid(grid.get(), tag) != 0) {
    return fail(function, "ksgrid_register_grid() error");
  }
  return grid.release();
}

}  // namespace

KSGrid *ksgrid_get_grid(const char *tag) { return Grids::get(tag); }

int ksgrid_register_grid(KSGrid *grid, char *tag) {
  const char *const self = "ksgrid_register_grid";
  Grids::none(tag);
  if (grid == nullptr || tag == nullptr) {
    return fail(self, "A grid and a buffer for its tag are needed");
  }
  return Grids::open(self) && Grids::enter(self, grid, tag) ? 0 : -1;
}

KSGrid *ksgrid_create(const char *xname, int nx, const float *x, const char *xtext1,
                      const char *xtext2, int ny, const float *y, const char *ytext1,
                      const char *ytext2, const char *text1, const char *text2,
                      const char *name, char *tag) {
  if (tag != nullptr) tag[0] = '\0';
  if (nx < 1 || ny < 1 || x == nullptr || y == nullptr || nx > INT_MAX / ny) {
    return fail("ksgrid_create", "Illegal grid size %d x %d", nx, ny);
  }
  GridPtr grid = new_record();
  if (grid == nullptr) {
    return fail_errno("ksgrid_create", "malloc(KSGrid,%ld) error",
                      static_cast<long>(sizeof(KSGrid)));
  }
  grid->nx = nx;
  grid->ny = ny;
  if (!copy_values(x, nx, grid->x) || !copy_values(y, ny, grid->y)) {
    return fail_errno("ksgrid_create", "malloc(coordinates,%ld) error",
                      static_cast<long>(float_bytes(grid->x == nullptr ? nx : ny)));
  }
  const char *const texts[] = {name,   xname,  xtext1, xtext2,
                               ytext1, ytext2, text1,  text2};
  for (std::size_t i = 0; i < kTexts.size(); ++i) {
    if (copy_text(texts[i], (*grid).*kTexts[i])) continue;
    return fail_errno("ksgrid_create", "strdup() error");
  }
  return publish(std::move(grid), tag, "ksgrid_create");
}

KSGrid *ksgrid_copy_ksgrid(const KSGrid *grid, const char *name, char *newtag) {
  if (newtag != nullptr) newtag[0] = '\0';
  if (grid == nullptr) return fail("ksgrid_copy_ksgrid", "No grid");
  GridPtr copy(ksgrid_create(grid->xname, grid->nx, grid->x, grid->xtext1, grid->xtext2,
                             grid->ny, grid->y, grid->ytext1, grid->ytext2, grid->text1,
                             grid->text2, name, nullptr));
  if (copy == nullptr) return fail("ksgrid_copy_ksgrid", "ksgrid_create() error");
  if (grid->ndata > 0 && !copy_values(grid->data, grid->ndata, copy->data)) {
    return fail_errno("ksgrid_copy_ksgrid", "malloc(grid->data,%ld) error",
                      static_cast<long>(float_bytes(grid->ndata)));
  }
  copy->nframes = grid->nframes;
  copy->ndata = grid->ndata;
  copy->time = grid->time;
  copy->dt = grid->dt;
  copy->gapval = grid->gapval;
  copy->order = grid->order;
  std::copy_n(grid->params, std::size(grid->params), copy->params);
  return publish(std::move(copy), newtag, "ksgrid_copy_ksgrid");
}

int ksgrid_free(const char *tag) { return Grids::free_if_known(tag); }

int ksgrid_free_tag(const char *name) {
  return Grids::free_tag("ksgrid_free_tag", name);
}

int ksgrid_free_ksgrid(KSGrid *grid) { return Grids::free_record(grid); }
