/* What the tests of grids share. */
#ifndef KSUTIL_TESTS_OBJECTS_KSGRID_SUPPORT_H
#define KSUTIL_TESTS_OBJECTS_KSGRID_SUPPORT_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "objects/ksgrid.h"
#include "platform/elog/elog.h"
#include "platform/stock/memory.h"
#include "tests/support/register.h"

struct FreeGrid {
  void operator()(KSGrid *grid) const { ksgrid_free_ksgrid(grid); }
};
using OwnedGrid = std::unique_ptr<KSGrid, FreeGrid>;

using Floats = std::vector<float>;

inline OwnedGrid new_grid(const Floats &x, const Floats &y, char *tag = nullptr,
                          const char *name = nullptr) {
  return OwnedGrid(ksgrid_create("east", static_cast<int>(x.size()), x.data(), "km",
                                 nullptr, static_cast<int>(y.size()), y.data(), nullptr,
                                 "north", "first", "", name, tag));
}

/* Every value of the grid's frames, in order. */
inline Floats values(const KSGrid &grid) { return {grid.data, grid.data + grid.ndata}; }

/* A value of one node. */
inline float node(const KSGrid &grid, int frame, int ix, int iy) {
  return grid.data[(frame * grid.ny + iy) * grid.nx + ix];
}

using ksutil::test::taken_messages;

#endif
