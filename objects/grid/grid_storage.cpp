#include "objects/grid/internal/grid_storage.h"

#include <algorithm>
#include <cstdlib>

#include "platform/trace/trace.h"

namespace ksutil::grids {

void free_contents(const KSGrid &grid) {
  for (const auto text : kTexts) std::free(grid.*text);
  std::free(grid.x);
  std::free(grid.y);
  std::free(grid.data);
}

void GridTraits::destroy(KSGrid *grid) {
  free_contents(*grid);
  std::free(grid);
}

GridPtr new_record() {
  GridPtr grid(static_cast<KSGrid *>(ks_calloc(1, sizeof(KSGrid))));
  if (grid != nullptr) set_defaults(*grid);
  return grid;
}

void set_defaults(KSGrid &grid) {
  trfill_gap(&grid.gapval, 1);
  grid.order = 1;
}

bool copy_values(const float *from, std::int64_t n, float *&to) {
  to = static_cast<float *>(ks_malloc(float_bytes(n)));
  if (to == nullptr) return false;
  std::copy_n(from, n, to);
  return true;
}

bool copy_text(const char *from, char *&to) {
  to = from == nullptr ? nullptr : ks_strdup(from);
  return from == nullptr || to != nullptr;
}

int axis_direction(int n, const float *coords) {
  bool rises = false, falls = false;
  for (int i = 1; i < n; ++i) {
    rises |= coords[i] > coords[i - 1];
    falls |= coords[i] < coords[i - 1];
  }
  if (rises && falls) return 2;
  return rises ? 1 : falls ? -1 : 0;
}

}  // namespace ksutil::grids
