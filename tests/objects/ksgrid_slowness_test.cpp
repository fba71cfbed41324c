/* Slowness of the wrong sign or from the wrong depth points at the wrong source. */
#include <cmath>

#include "platform/traveltime/traveltime.h"
#include "tests/objects/ksgrid_support.h"

namespace {

using namespace ksutil::traveltime;
using testing::ElementsAre;

/* The slope of the travel time, from times alone. */
double slope(double delta, double depth) {
  Arrival near, far;
  EXPECT_TRUE(first_arrival(Model::kIasp91, Wave::kP, delta - 0.25, depth, near));
  EXPECT_TRUE(first_arrival(Model::kIasp91, Wave::kP, delta + 0.25, depth, far));
  return (far.time - near.time) / 0.5;
}

TEST(KsgridSlowness, IsTheSlopeOfTheTravelTimeWithTheSignOfTheDistance) {
  const Floats distances = {30, -60, 90, 0, 150, -180};
  Floats slownesses(distances.size());
  ASSERT_EQ(ksgrid_coords_d2slow("iasp91", 100, 6, distances.data(), slownesses.data()),
            0);
  EXPECT_NEAR(slownesses[0], slope(30, 100), 0.05);
  EXPECT_NEAR(slownesses[1], -slope(60, 100), 0.05);
  EXPECT_NEAR(slownesses[2], slope(90, 100), 0.05);
  EXPECT_EQ(slownesses[3], 0);
  EXPECT_LT(slownesses[4], 4.5F);
  EXPECT_NEAR(slownesses[5], 0, 0.02);
  /* In place, with the default model; tables say 6.9 s/degree. */
  Floats place = {60};
  ASSERT_EQ(ksgrid_coords_d2slow(nullptr, 0, 1, place.data(), place.data()), 0);
  EXPECT_NEAR(place[0], 6.88, 0.05);

  const Floats wrong = {1, 181};
  for (const auto &[model, depth] :
       {std::pair("prem", 0.0), std::pair("iasp91", 701.0), std::pair("iasp91", 0.0)}) {
    EXPECT_EQ(ksgrid_coords_d2slow(model, depth, 2, wrong.data(), place.data()), -1);
  }
  EXPECT_EQ(taken_messages(),
            "ksgrid_coords_d2slow: Unknown travel-time model 'prem'.\n"
            "ksgrid_coords_d2slow: Depth out of range.\n"
            "ksgrid_coords_d2slow: Distance out of range.\n");
}

TEST(KsgridSlowness, TurnsAnAxisWithItsData) {
  const OwnedGrid grid = new_grid({30, 60, 90}, {1, 2});
  const Floats frame = {1, 2, 3, 4, 5, 6};
  ASSERT_EQ(ksgrid_put_ksgrid(grid.get(), 1, frame.data(), 0, 1), 0);
  ASSERT_EQ(ksgrid_d2slow_ksgrid(grid.get(), nullptr, 0, KSGRID_X), 0);
  EXPECT_THAT(values(*grid), ElementsAre(3, 2, 1, 6, 5, 4));
  EXPECT_NEAR(grid->x[1], 6.88, 0.05);
  EXPECT_LT(grid->x[0], grid->x[1]);
  EXPECT_EQ(grid->y[1], 2);

  /* From minus to plus slowness falls, rises at once, and falls: no axis. */
  const OwnedGrid across = new_grid({30, 60}, {-60, -30, 30, 60});
  EXPECT_EQ(ksgrid_d2slow_ksgrid(across.get(), nullptr, 0, KSGRID_X + KSGRID_Y), -1);
  EXPECT_EQ(across->x[0], 30);
  EXPECT_EQ(ksgrid_d2slow_ksgrid(across.get(), nullptr, 0, 4), -1);
  EXPECT_EQ(taken_messages(),
            "ksgrid_d2slow_ksgrid: Slowness rises and falls along y.\n"
            "ksgrid_d2slow_ksgrid: Illegal axes=4 value.\n");
}

TEST(KsgridSlowness, EvaluatesAtTheVectorOfEachDirection) {
  const OwnedGrid grid = new_grid({-20, 20}, {-20, 20});
  const Floats east = {-20, 20, -20, 20}, north = {-20, -20, 20, 20};
  Floats frames = east;
  frames.insert(frames.end(), north.begin(), north.end());
  ASSERT_EQ(ksgrid_put_ksgrid(grid.get(), 2, frames.data(), 0, 1), 0);
  const Floats x = {0, 60, -36, 0, 200, NAN}, y = {0, 0, 48, -90, 0, 0};
  Floats found[2];
  for (const int frame : {0, 1}) {
    float *out = nullptr;
    int nout = 0;
    ASSERT_EQ(ksgrid_eval_d2slow_ksgrid(grid.get(), "iasp91", 33, frame, 6, x.data(),
                                        y.data(), "bilinear", "none", &out, &nout),
              0);
    found[frame].assign(out, out + 6);
    std::free(out);
  }
  Arrival at60, at90;
  ASSERT_TRUE(first_arrival(Model::kIasp91, Wave::kP, 60, 33, at60));
  ASSERT_TRUE(first_arrival(Model::kIasp91, Wave::kP, 90, 33, at90));
  const auto close = [](double value) {
    return testing::FloatNear(float(value), 1e-4F);
  };
  const float gap = grid->gapval;
  EXPECT_THAT(found[0], ElementsAre(0, close(at60.slowness),
                                    close(-0.6 * at60.slowness), close(0), gap, gap));
  EXPECT_THAT(found[1], ElementsAre(0, close(0), close(0.8 * at60.slowness),
                                    close(-at90.slowness), gap, gap));
}

}  // namespace
