/* grid_storage: makes and frees the records of the grid family. */
#ifndef KSUTIL_OBJECTS_GRID_INTERNAL_GRID_STORAGE_H
#define KSUTIL_OBJECTS_GRID_INTERNAL_GRID_STORAGE_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "objects/family/shared/family.h"
#include "objects/ksgrid.h"
#include "platform/stock/memory.h"

namespace ksutil::grids {

/* The texts of a grid, in the order of a packet. */
inline constexpr std::array<char * KSGrid::*, 8> kTexts = {
    &KSGrid::name,   &KSGrid::xname,  &KSGrid::xtext1, &KSGrid::xtext2,
    &KSGrid::ytext1, &KSGrid::ytext2, &KSGrid::text1,  &KSGrid::text2};

/* Frees texts and arrays; leaves the pointers. */
void free_contents(const KSGrid &grid);

struct GridTraits {
  using Record = KSGrid;
  static constexpr char kWord[] = "grid";
  static constexpr char kGet[] = "ksgrid_get_grid";
  static constexpr char kPlural[] = "grids";
  static constexpr char kEntering[] = "setarr";
  static constexpr char kListing[] = "malloc";
  static bool is_record(const KSGrid & /*grid*/) { return true; }
  static const char *name(const KSGrid &grid) { return grid.name; }
  static void destroy(KSGrid *grid);
};
using Grids = Family<GridTraits>;
using GridPtr = Grids::Ptr;

/* A zeroed record with a gap value and order set; null when memory is short. */
GridPtr new_record();

/* Sets the members in which a created record differs from a zeroed one. */
void set_defaults(KSGrid &grid);

/* Copies of n values and of a text (null for null); false when memory is short. */
bool copy_values(const float *from, std::int64_t n, float *&to);
bool copy_text(const char *from, char *&to);

/* nx * ny; 0 for a record without axes. */
inline std::int64_t frame_size(const KSGrid &grid) {
  return grid.nx < 1 || grid.ny < 1 ? 0 : std::int64_t{grid.nx} * grid.ny;
}

inline std::size_t float_bytes(std::int64_t n) {
  return static_cast<std::size_t>(n) * sizeof(float);
}

/* -1 for a falling axis, 1 for a rising one, 0 when all coordinates are equal; 2 when it
 * does both. */
int axis_direction(int n, const float *coords);

}  // namespace ksutil::grids
#endif
