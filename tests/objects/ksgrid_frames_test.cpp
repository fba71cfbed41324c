/* A frame in the wrong place or on a mirrored axis is a plausible map of the wrong time
 * or of the wrong side of the region. */
#include <algorithm>
#include <cmath>

#include "tests/objects/ksgrid_support.h"

namespace {

using testing::ElementsAre;

TEST(KsgridDecimate, KeepsTheGreatestOfEachGroupFlooredAtZero) {
  const OwnedGrid grid = new_grid({0, 1}, {0});
  const float gap = grid->gapval;
  const Floats frames = {1, -5, 3, -2, -1, 7, NAN, 6, -4, gap};
  ASSERT_EQ(ksgrid_putanddecimate_ksgrid(grid.get(), 5, frames.data(), 2, 50, 0.25), 0);
  EXPECT_THAT(values(*grid), ElementsAre(3, 0, 0, 7, 0, gap));
  EXPECT_EQ(grid->nframes, 3);
  EXPECT_EQ(grid->ndata, 6);
  EXPECT_EQ(grid->time, 50);
  EXPECT_EQ(grid->dt, 0.5);
  /* One by one is still floored; without an interval the frames are taken as they are. */
  ASSERT_EQ(ksgrid_putanddecimate_ksgrid(grid.get(), 1, frames.data(), 1, 0, 1), 0);
  EXPECT_THAT(values(*grid), ElementsAre(1, 0));
  ASSERT_EQ(ksgrid_putanddecimate_ksgrid(grid.get(), 1, frames.data(), 2, 0, 0), 0);
  EXPECT_THAT(values(*grid), ElementsAre(1, -5));
  ASSERT_EQ(ksgrid_putanddecimate_ksgrid(grid.get(), 2, frames.data(), 0, 0, 1), 0);
  EXPECT_THAT(values(*grid), ElementsAre(1, -5, 3, -2));
}

TEST(KsgridDecimate, GroupsFramesOfEveryCount) {
  const OwnedGrid grid = new_grid({0}, {0});
  Floats frames;
  for (int n = 0; n < 12; ++n) {
    for (int d = 1; d < 14; ++d) {
      ASSERT_EQ(ksgrid_putanddecimate_ksgrid(grid.get(), n, frames.data(), d, 0, 1), 0);
      Floats greatest;  // of rising values: the last of each group
      for (int i = d - 1; i < n; i += d) greatest.push_back(frames[std::size_t(i)]);
      if (n % d != 0) greatest.push_back(frames.back());
      EXPECT_EQ(values(*grid), greatest) << n << " frames by " << d;
    }
    frames.push_back(static_cast<float>(n + 1));
  }
}

TEST(KsgridTrim, DropsTheOldest) {
  const OwnedGrid grid = new_grid({0, 1}, {0});
  const Floats frames = {1, 2, 3, 4, 5, 6}, next = {7, 8};
  ASSERT_EQ(ksgrid_put_ksgrid(grid.get(), 3, frames.data(), 10, 2), 0);
  ASSERT_EQ(ksgrid_append_sample_ksgrid(grid.get(), next.data()), 0);
  ASSERT_EQ(ksgrid_trim_ksgrid(grid.get(), 5), 0);
  EXPECT_EQ(grid->nframes, 4);
  ASSERT_EQ(ksgrid_trim_ksgrid(grid.get(), 2), 0);
  EXPECT_THAT(values(*grid), ElementsAre(5, 6, 7, 8));
  EXPECT_EQ(grid->time, 14);
  EXPECT_EQ(ksgrid_trim_ksgrid(grid.get(), -1), -1);
  ASSERT_EQ(ksgrid_trim_ksgrid(grid.get(), 0), 0);
  EXPECT_EQ(grid->nframes, 0);
  EXPECT_EQ(grid->time, 18);
  EXPECT_EQ(ksgrid_append_sample_ksgrid(grid.get(), next.data()), -1);
  EXPECT_EQ(taken_messages(),
            "ksgrid_trim_ksgrid: Illegal number of frames.\n"
            "ksgrid_append_sample_ksgrid: No data in object.\n");
}

/* Values that tell where they belong. */
float planted(int frame, float x, float y) {
  return static_cast<float>(frame) * 1000 + x * 10 + y;
}

Floats planted_frames(int nframes, const Floats &x, const Floats &y) {
  Floats frames;
  for (int frame = 0; frame < nframes; ++frame) {
    for (const float yi : y) {
      for (const float xi : x) frames.push_back(planted(frame, xi, yi));
    }
  }
  return frames;
}

class KsgridOrder : public testing::TestWithParam<std::pair<bool, bool>> {};

TEST_P(KsgridOrder, TurnsAxesWithTheirData) {
  const auto [turn_x, turn_y] = GetParam();
  Floats x = {1, 2, 2, 5, 7}, y = {-3, 0, 4, 8};
  if (turn_x) std::reverse(x.begin(), x.end());
  if (turn_y) std::reverse(y.begin(), y.end());
  const OwnedGrid grid = new_grid(x, y);
  const Floats frames = planted_frames(3, x, y);
  ASSERT_EQ(ksgrid_put_ksgrid(grid.get(), 2, frames.data(), 0, 1), 0);
  /* Later frames come in the order that the axes now have. */
  const Floats ordered_x(grid->x, grid->x + grid->nx);
  const Floats ordered_y(grid->y, grid->y + grid->ny);
  const Floats ascending = planted_frames(3, ordered_x, ordered_y);
  ASSERT_EQ(ksgrid_append_sample_ksgrid(grid.get(), &ascending[2 * 20]), 0);
  EXPECT_THAT(ordered_x, ElementsAre(1, 2, 2, 5, 7));
  EXPECT_THAT(ordered_y, ElementsAre(-3, 0, 4, 8));
  EXPECT_EQ(values(*grid), ascending);
}
INSTANTIATE_TEST_SUITE_P(Axes, KsgridOrder,
                         testing::Values(std::pair(false, false),
                                         std::pair(true, false), std::pair(false, true),
                                         std::pair(true, true)));

TEST(KsgridOrder, IsDoneWhenAskedForAndRefusesFolds) {
  const Floats frame = {1, 2, 3};
  const OwnedGrid fold = new_grid({0, 2, 1}, {0});
  EXPECT_EQ(ksgrid_put_ksgrid(fold.get(), 1, frame.data(), 0, 1), -1);
  EXPECT_EQ(values(*fold), frame);
  EXPECT_EQ(ksgrid_append_sample_ksgrid(fold.get(), frame.data()), -1);
  const OwnedGrid upright = new_grid({0}, {2, 2, 1, 3});
  EXPECT_EQ(ksgrid_putanddecimate_ksgrid(upright.get(), 0, nullptr, 1, 0, 1), -1);
  const std::string fault =
      " grid coordinates must be monotonically increasing or decreasing.\n";
  EXPECT_EQ(taken_messages(),
            "ksgrid_order: X" + fault + "ksgrid_put_ksgrid: ksgrid_order() error.\n" +
                "ksgrid_order: X" + fault +
                "ksgrid_append_sample_ksgrid: ksgrid_order() error.\n" +
                "ksgrid_order: Y" + fault +
                "ksgrid_putanddecimate_ksgrid: ksgrid_order() error.\n");

  const OwnedGrid grid = new_grid({3, 2, 1}, {0});
  ASSERT_EQ(ksgrid_set_order_ksgrid(grid.get(), 0), 0);
  ASSERT_EQ(ksgrid_put_ksgrid(grid.get(), 1, frame.data(), 0, 1), 0);
  EXPECT_EQ(values(*grid), frame);
  ASSERT_EQ(ksgrid_set_order_ksgrid(grid.get(), 1), 0);
  ASSERT_EQ(ksgrid_append_sample_ksgrid(grid.get(), frame.data()), 0);
  EXPECT_THAT(values(*grid), ElementsAre(3, 2, 1, 3, 2, 1));
}

TEST(KsgridStore, LeavesTheGridWhenFramesAreImpossibleOrMemoryIsShort) {
  const OwnedGrid grid = new_grid({0, 1}, {0});
  const Floats frames = {1, 2};
  ASSERT_EQ(ksgrid_put_ksgrid(grid.get(), 1, frames.data(), 5, 1), 0);
  EXPECT_EQ(ksgrid_put_ksgrid(grid.get(), -1, frames.data(), 0, 1), -1);
  EXPECT_EQ(ksgrid_put_ksgrid(grid.get(), 1 << 30, frames.data(), 0, 1), -1);
  EXPECT_EQ(ksgrid_putanddecimate_ksgrid(grid.get(), -1, frames.data(), 2, 0, 1), -1);
  EXPECT_EQ(ksgrid_put_ksgrid(grid.get(), 1, nullptr, 0, 1), -1);
  EXPECT_EQ(taken_messages(),
            "ksgrid_put_ksgrid: Illegal number of frames.\n"
            "ksgrid_put_ksgrid: Illegal number of frames.\n"
            "ksgrid_putanddecimate_ksgrid: Illegal number of frames.\n"
            "ksgrid_put_ksgrid: No frames given.\n");
  ks_test_fail_alloc(1);
  EXPECT_EQ(ksgrid_putanddecimate_ksgrid(grid.get(), 3, frames.data(), 3, 0, 1), -1);
  ks_test_fail_alloc(1);
  EXPECT_EQ(ksgrid_append_sample_ksgrid(grid.get(), frames.data()), -1);
  const std::string text = taken_messages();
  EXPECT_THAT(text, testing::HasSubstr("ksgrid_putanddecimate_ksgrid: "
                                       "malloc(grid->data,8) error.\n"));
  EXPECT_THAT(text, testing::HasSubstr("ksgrid_append_sample_ksgrid: "
                                       "realloc(grid->data,16) error.\n"));
  EXPECT_EQ(values(*grid), frames);
  EXPECT_EQ(grid->time, 5);

  ASSERT_EQ(ksgrid_append_sample_ksgrid(grid.get(), frames.data()), 0);
  ks_test_fail_alloc(1);
  EXPECT_EQ(ksgrid_trim_ksgrid(grid.get(), 1), -1);
  EXPECT_THAT(
      taken_messages(),
      testing::StartsWith("ksgrid_trim_ksgrid: realloc(grid->data,8) error.\n"));
  EXPECT_EQ(grid->nframes, 2) << "a failed trim leaves the grid";
  EXPECT_THAT(values(*grid), ElementsAre(1, 2, 1, 2));
}

}  // namespace
