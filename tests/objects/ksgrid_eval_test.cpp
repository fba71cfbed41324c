/* The interval chooses the four nodes behind every interpolated value; an off-by-one at
 * a coordinate shows only as a step in a contour map. */
#include <algorithm>
#include <cmath>
#include <random>

#include "objects/grid/internal/grid_axis.h"
#include "tests/objects/ksgrid_support.h"

namespace {

using testing::ElementsAre;

/* The rule as it is told: the first rising interval that holds the value, while the
 * coordinates are no greater than it. */
struct Found {
  int result, i0, i1;
  bool operator==(const Found &) const = default;
};

Found found_by_rule(const Floats &g, float v) {
  const int n = static_cast<int>(g.size());
  for (int i = 0; i < n - 1 && g[std::size_t(i)] <= v; ++i) {
    if (v <= g[std::size_t(i) + 1]) return {0, i, i + 1};
  }
  if (v < g.front()) return {-1, 0, 0};
  if (v > g.back()) return {1, n - 1, n - 1};
  return {0, 0, 0};
}

Found found(const Floats &g, float v) {
  int i0 = -9, i1 = -9;
  float c0 = NAN, width = NAN;
  const int result = ksgrid_find_interval(static_cast<int>(g.size()), g.data(), &i0,
                                          &i1, &c0, &width, v);
  EXPECT_EQ(c0, g[std::size_t(i0)]);
  EXPECT_EQ(width, g[std::size_t(i1)] - g[std::size_t(i0)]) << v;
  return {result, i0, i1};
}

TEST(KsgridInterval, TakesTheLowerIntervalAndTheSidesOfTheAxis) {
  const Floats axis = {0, 10, 10, 30};
  EXPECT_EQ(found(axis, 12), (Found{0, 2, 3}));
  EXPECT_EQ(found(axis, 10), (Found{0, 0, 1}));
  EXPECT_EQ(found(axis, 0), (Found{0, 0, 1}));
  EXPECT_EQ(found(axis, 30), (Found{0, 2, 3}));
  EXPECT_EQ(found(axis, -0.5F), (Found{-1, 0, 0}));
  EXPECT_EQ(found(axis, INFINITY), (Found{1, 3, 3}));
  EXPECT_EQ(found(axis, NAN), (Found{0, 0, 0}));
  EXPECT_EQ(found({5}, 5), (Found{0, 0, 0}));
  EXPECT_EQ(found({5}, 4), (Found{-1, 0, 0}));
  EXPECT_EQ(found({5}, 6), (Found{1, 0, 0}));
}

/* Shortcuts of all kinds against the plain rule: even, nearly even, uneven axes, ties,
 * steps too large or small for reals, and axes out of order; values on, beside, between
 * and beyond the coordinates, in sweeps and at random. */
TEST(KsgridInterval, IsTheOneOfTheRuleOnEveryAxis) {
  std::mt19937 random(5);
  const auto below = [&](int n) { return static_cast<int>(random() % unsigned(n)); };
  for (int round = 0; round < 400; ++round) {
    const int kind = round % 8, n = 1 + below(round % 5 == 0 ? 3 : 40);
    std::uniform_real_distribution<float> jitter(0, 1);
    Floats axis;
    for (int i = 0; i < n; ++i) {
      const auto at = static_cast<float>(i);
      axis.push_back(kind == 0   ? at
                     : kind == 1 ? 0.1F * at - 1
                     : kind == 2 ? at + 0.45F * jitter(random)
                     : kind == 3 ? static_cast<float>(below(10))
                     : kind == 4 ? std::exp(at)
                     : kind == 5 ? at * 6e36F * (i % 2 == 0 ? 1 : -1)
                     : kind == 6 ? at * 1e-45F
                                 : jitter(random));
    }
    const bool in_order = kind != 7;
    if (in_order) std::sort(axis.begin(), axis.end());
    Floats tries = {NAN, INFINITY, -INFINITY, axis.front() - 1, axis.back() + 1};
    for (const float c : axis) {
      for (const float v :
           {std::nextafter(c, -INFINITY), c, std::nextafter(c, INFINITY),
            axis[std::size_t(below(n))] * 0.5F + c * 0.5F}) {
        tries.push_back(v);
      }
    }
    if (round % 2 == 0) std::shuffle(tries.begin(), tries.end(), random);
    std::vector<ksutil::grids::Place> places(tries.size());
    ksutil::grids::Axis(n, axis.data())
        .locate(tries.data(), static_cast<int>(tries.size()), places.data());
    for (std::size_t i = 0; i < tries.size(); ++i) {
      const float v = tries[i];
      const Found expected = found_by_rule(axis, v);
      const ksutil::grids::Place &at = places[i];
      if (expected.result != 0) {
        ASSERT_LT(at.i0, 0) << "kind " << kind << ": " << v;
      } else {
        ASSERT_EQ((Found{0, at.i0, at.i1}), expected) << "kind " << kind << ": " << v;
        const double c0 = axis[std::size_t(at.i0)], c1 = axis[std::size_t(at.i1)];
        ASSERT_EQ(at.part, c0 == c1 ? 0.5 : (v - c0) / (c1 - c0));
      }
      if (in_order) {
        ASSERT_EQ(found(axis, v), expected) << v;
      }
    }
  }
}

Floats evaluated(const KSGrid &grid, const char *mode, const Floats &x, const Floats &y,
                 int frame = 0) {
  float *out = nullptr;
  int nout = 0;
  EXPECT_EQ(ksgrid_eval_ksgrid(&grid, frame, static_cast<int>(x.size()), x.data(),
                               y.data(), mode, "none", &out, &nout),
            0);
  const ksutil::MallocPtr<float> owned(out);
  return {out, out + x.size()};
}

TEST(KsgridEval, BilinearIsExactOnAPlaneUpToTheEdges) {
  const OwnedGrid grid = new_grid({-4, -1, 0, 8}, {2, 3, 7});
  Floats frames(12, 0.0F);
  for (int i = 0; i < 12; ++i) {
    frames.push_back(2 * grid->x[i % 4] - 3 * grid->y[i / 4] + 1);
  }
  ASSERT_EQ(ksgrid_put_ksgrid(grid.get(), 2, frames.data(), 0, 1), 0);
  Floats x, y, plane;
  for (float xi = -4; xi <= 8; xi += 0.25F) {
    for (float yi = 2; yi <= 7; yi += 0.125F) {
      x.push_back(xi);
      y.push_back(yi);
      plane.push_back(2 * xi - 3 * yi + 1);
    }
  }
  EXPECT_EQ(evaluated(*grid, "bilinear", x, y, 1), plane);
  const float gap = grid->gapval;
  for (const char *mode : {"bilinear", "block"}) {
    EXPECT_THAT(
        evaluated(*grid, mode, {-4.001F, 8.001F, 0, 0, gap}, {3, 3, 1.9F, 8, 3}),
        ElementsAre(gap, gap, gap, gap, gap));
  }
}

TEST(KsgridEval, AGapAtAnyCornerMakesAGap) {
  const OwnedGrid grid = new_grid({0, 1, 2}, {0, 1, 2});
  const float gap = grid->gapval;
  for (std::size_t hole = 0; hole < 9; ++hole) {
    Floats frame(9, 5);
    frame[hole] = gap;
    ASSERT_EQ(ksgrid_put_ksgrid(grid.get(), 1, frame.data(), 0, 1), 0);
    const int hx = static_cast<int>(hole % 3), hy = static_cast<int>(hole / 3);
    for (int cell = 0; cell < 4; ++cell) {
      const int cx = cell % 2, cy = cell / 2;
      const bool touched = (hx == cx || hx == cx + 1) && (hy == cy || hy == cy + 1);
      /* The upper edges belong to the cell, even where the gap has no weight. */
      for (const float part : {0.25F, 1.0F}) {
        const Floats x = {static_cast<float>(cx) + part};
        const Floats y = {static_cast<float>(cy) + part};
        EXPECT_EQ(evaluated(*grid, "bilinear", x, y)[0], touched ? gap : 5)
            << hole << " in " << cell;
      }
    }
  }
}

TEST(KsgridEval, EqualCoordinatesAndSingleOnesGiveMeans) {
  const OwnedGrid grid = new_grid({1, 1, 3}, {4, 4});
  const Floats frame = {1, 3, 10, 5, 7, 20};
  ASSERT_EQ(ksgrid_put_ksgrid(grid.get(), 1, frame.data(), 0, 1), 0);
  EXPECT_THAT(evaluated(*grid, "bilinear", {1, 3, NAN}, {4, 4, 4}),
              ElementsAre(4, 15, 3));
  EXPECT_THAT(evaluated(*grid, "block", {1, 3, NAN}, {4, 4, NAN}),
              ElementsAre(1, 10, 1));
  const OwnedGrid point = new_grid({2}, {3});
  const Floats value = {8};
  ASSERT_EQ(ksgrid_put_ksgrid(point.get(), 1, value.data(), 0, 1), 0);
  EXPECT_THAT(evaluated(*point, "bilinear", {2, 2.5F}, {3, 3}),
              ElementsAre(8, point->gapval));
}

TEST(KsgridEval, BlockTakesTheNearestNodeAndTheLowerOfTwo) {
  const OwnedGrid grid = new_grid({0, 2, 4}, {0, 10});
  const Floats frame = {1, 2, grid->gapval, 4, 5, 6};
  ASSERT_EQ(ksgrid_put_ksgrid(grid.get(), 1, frame.data(), 0, 1), 0);
  EXPECT_THAT(evaluated(*grid, "block", {1, 1.01F, 3, 3.1F, 0, 4, 2},
                        {5, 5, 5.1F, 0, 10, 10, 0}),
              ElementsAre(1, 2, 5, grid->gapval, 4, 6, 2));
}

TEST(KsgridEval, GrowsTheCallersArrayAndRefusesWithoutTouchingIt) {
  const OwnedGrid grid = new_grid({0, 2}, {0});
  const Floats frame = {1, 3}, x(100, 1.0F), y(100, 0.0F);
  ASSERT_EQ(ksgrid_put_ksgrid(grid.get(), 1, frame.data(), 0, 1), 0);
  const auto eval = [&](int index, int n, const char *interp, const char *extrap,
                        float **out, int *nout) {
    return ksgrid_eval_ksgrid(grid.get(), index, n, x.data(), y.data(), interp, extrap,
                              out, nout);
  };
  float *out = nullptr;
  int nout = 0;
  for (const auto &[n, size] :
       {std::pair(2, 2), std::pair(100, 100), std::pair(1, 100)}) {
    ASSERT_EQ(eval(0, n, "bilinear", "none", &out, &nout), 0);
    EXPECT_EQ(nout, size);
    EXPECT_EQ(out[n - 1], 2);
    EXPECT_EQ(out[size - 1], n < size ? 0 : 2) << "no values of an earlier call";
  }
  const ksutil::MallocPtr<float> owned(out);
  float *none = nullptr;
  EXPECT_EQ(eval(1, 1, "bilinear", "none", &none, &nout), -1);
  EXPECT_EQ(eval(-1, 1, "bilinear", "none", &none, &nout), -1);
  EXPECT_EQ(eval(0, 1, "cubic", "edge", &none, &nout), -1);
  EXPECT_EQ(eval(0, 1, "cubic", "none", &none, &nout), -1);
  EXPECT_EQ(eval(0, -1, "block", "none", &none, &nout), -1);
  ks_test_fail_alloc(1);
  EXPECT_EQ(eval(0, 1, "block", "none", &none, &nout), -1);
  EXPECT_EQ(none, nullptr);
  int small = 50;
  ks_test_fail_alloc(1);
  EXPECT_EQ(eval(0, 100, "block", "none", &out, &small), -1);
  EXPECT_EQ(small, 50);
  EXPECT_EQ(out, owned.get());
  const std::string text = taken_messages();
  EXPECT_THAT(
      text, testing::StartsWith("ksgrid_eval_ksgrid: Frame index out of range.\n"
                                "ksgrid_eval_ksgrid: Frame index out of range.\n"
                                "ksgrid_eval_ksgrid: Illegal extrap_mode=edge value.\n"
                                "ksgrid_eval_ksgrid: Illegal interp_mode=cubic value.\n"
                                "ksgrid_eval_ksgrid: Illegal points.\n"
                                "ksgrid_eval_ksgrid: malloc(out,4) error.\n"));
  EXPECT_THAT(text,
              testing::HasSubstr("ksgrid_eval_ksgrid: realloc(out,400) error.\n"));
}

TEST(KsgridMaxmin, SkipsGapsAndNan) {
  const OwnedGrid grid = new_grid({4, 1}, {2, 9});
  grid->order = 0;
  const float gap = grid->gapval;
  const Floats frames = {gap, NAN, gap, gap, -3, gap, 5, 1};
  float box[6] = {};
  const auto maxmin = [&](int frame) {
    return ksgrid_maxmin_ksgrid(grid.get(), frame, &box[0], &box[1], &box[2], &box[3],
                                &box[4], &box[5]);
  };
  EXPECT_EQ(maxmin(-1), -1);
  ASSERT_EQ(ksgrid_put_ksgrid(grid.get(), 2, frames.data(), 0, 1), 0);
  EXPECT_EQ(maxmin(0), -1);
  EXPECT_EQ(maxmin(2), -1);
  EXPECT_EQ(taken_messages(),
            "ksgrid_maxmin_ksgrid: No data in object.\n"
            "ksgrid_maxmin_ksgrid: No data in object.\n"
            "ksgrid_maxmin_ksgrid: Frame index out of range.\n");
  for (const int frame : {-1, 1}) {
    ASSERT_EQ(maxmin(frame), 0);
    EXPECT_THAT(box, ElementsAre(1, 4, 2, 9, -3, 5));
  }
}

}  // namespace
