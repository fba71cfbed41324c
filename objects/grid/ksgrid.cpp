#include <climits>
#include <new>
#include <string_view>

#include "objects/family/internal/tag_registry.h"
#include "objects/grid/internal/grid_storage.h"
#include "objects/ksgrid.h"
#include "platform/elog/elog.h"

using namespace ksutil::grids;

namespace {

/* Never destroyed, so that destructors of other static objects may still free grids. */
ksutil::TagRegistry<KSGrid> &registry() {
  static auto *const only = new ksutil::TagRegistry<KSGrid>("grid");
  return *only;
}

/* Hands a new grid to the caller, under a tag when there is a buffer for it. */
KSGrid *publish(GridPtr grid, char *tag, const char *function) {
  if (tag != nullptr && ksgrid_register_grid(grid.get(), tag) != 0) {
    elog_log(0, "%s: ksgrid_register_grid() error.\n", function);
    return nullptr;
  }
  return grid.release();
}

}  // namespace

KSGrid *ksgrid_get_grid(const char *tag) {
  if (!registry().opened()) {
    elog_log(0, "ksgrid_get_grid: No grids defined");
    return nullptr;
  }
  KSGrid *const grid = registry().find(tag);
  if (grid == nullptr) {
    elog_log(0, "ksgrid_get_grid: Cannot find %s", tag == nullptr ? "" : tag);
  }
  return grid;
}

int ksgrid_register_grid(KSGrid *grid, char *tag) {
  if (tag != nullptr) tag[0] = '\0';
  if (grid == nullptr || tag == nullptr) {
    elog_log(0, "ksgrid_register_grid: A grid and a buffer for its tag are needed.\n");
    return -1;
  }
  if (!registry().open()) {
    elog_log(1, "ksgrid_register_grid: newarr() error.\n");
    return -1;
  }
  if (!registry().add(grid, tag)) {
    elog_log(1, "ksgrid_register_grid: setarr() error.\n");
    return -1;
  }
  return 0;
}

KSGrid *ksgrid_create(const char *xname, int nx, const float *x, const char *xtext1,
                      const char *xtext2, int ny, const float *y, const char *ytext1,
                      const char *ytext2, const char *text1, const char *text2,
                      const char *name, char *tag) {
  if (tag != nullptr) tag[0] = '\0';
  if (nx < 1 || ny < 1 || x == nullptr || y == nullptr || nx > INT_MAX / ny) {
    elog_log(0, "ksgrid_create: Illegal grid size %d x %d.\n", nx, ny);
    return nullptr;
  }
  GridPtr grid = new_record();
  if (grid == nullptr) {
    elog_log(1, "ksgrid_create: malloc(KSGrid,%ld) error.\n",
             static_cast<long>(sizeof(KSGrid)));
    return nullptr;
  }
  grid->nx = nx;
  grid->ny = ny;
  if (!copy_values(x, nx, grid->x) || !copy_values(y, ny, grid->y)) {
    elog_log(1, "ksgrid_create: malloc(coordinates,%ld) error.\n",
             static_cast<long>(float_bytes(grid->x == nullptr ? nx : ny)));
    return nullptr;
  }
  const char *const texts[] = {name,   xname,  xtext1, xtext2,
                               ytext1, ytext2, text1,  text2};
  for (std::size_t i = 0; i < kTexts.size(); ++i) {
    if (copy_text(texts[i], (*grid).*kTexts[i])) continue;
    elog_log(1, "ksgrid_create: strdup() error.\n");
    return nullptr;
  }
  return publish(std::move(grid), tag, "ksgrid_create");
}

KSGrid *ksgrid_copy_ksgrid(const KSGrid *grid, const char *name, char *newtag) {
  if (newtag != nullptr) newtag[0] = '\0';
  if (grid == nullptr) {
    elog_log(0, "ksgrid_copy_ksgrid: No grid.\n");
    return nullptr;
  }
  GridPtr copy(ksgrid_create(grid->xname, grid->nx, grid->x, grid->xtext1, grid->xtext2,
                             grid->ny, grid->y, grid->ytext1, grid->ytext2, grid->text1,
                             grid->text2, name, nullptr));
  if (copy == nullptr) {
    elog_log(0, "ksgrid_copy_ksgrid: ksgrid_create() error.\n");
    return nullptr;
  }
  if (grid->ndata > 0 && !copy_values(grid->data, grid->ndata, copy->data)) {
    elog_log(1, "ksgrid_copy_ksgrid: malloc(grid->data,%ld) error.\n",
             static_cast<long>(float_bytes(grid->ndata)));
    return nullptr;
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

int ksgrid_free(const char *tag) {
  KSGrid *grid = nullptr;
  {
    const ksutil::ElogScope silent;
    grid = ksgrid_get_grid(tag);
  }
  return ksgrid_free_ksgrid(grid);
}

int ksgrid_free_tag(const char *name) try {
  if (name == nullptr) return 0;
  for (KSGrid *grid : registry().records()) {
    if (grid->name != nullptr && std::string_view(grid->name) == name) {
      ksgrid_free_ksgrid(grid);
    }
  }
  return 0;
} catch (const std::bad_alloc &) {
  elog_log(1, "ksgrid_free_tag: malloc() error.\n");
  return 0;
}

int ksgrid_free_ksgrid(KSGrid *grid) {
  if (grid == nullptr) return 0;
  registry().remove(grid);
  GridDeleter()(grid);
  return 0;
}
