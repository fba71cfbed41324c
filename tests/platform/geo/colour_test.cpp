/* Plots tell magnitudes and depths by colour: a wrong sextant shows a wrong event. */
#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "platform/geo/geo.h"

namespace {

using Rgb = std::array<double, 3>;

Rgb colour(double h, double l, double s) {
  Rgb c = {-1, -1, -1};
  hls2rgb(h, l, s, &c[0], &c[1], &c[2]);
  return c;
}

TEST(Colour, HitsTheCornersOfTheCube) {
  EXPECT_EQ(colour(0, 0.5, 1), (Rgb{1, 0, 0}));
  EXPECT_EQ(colour(60, 0.5, 1), (Rgb{1, 1, 0}));
  EXPECT_EQ(colour(120, 0.5, 1), (Rgb{0, 1, 0}));
  EXPECT_EQ(colour(180, 0.5, 1), (Rgb{0, 1, 1}));
  EXPECT_EQ(colour(240, 0.5, 1), (Rgb{0, 0, 1}));
  EXPECT_EQ(colour(300, 0.5, 1), (Rgb{1, 0, 1}));
  EXPECT_EQ(colour(77, 0.25, 0), (Rgb{0.25, 0.25, 0.25}));
  EXPECT_EQ(colour(30, 0.75, 0.5), (Rgb{0.875, 0.75, 0.625}));
}

TEST(Colour, WrapsHueAndClampsTheRest) {
  EXPECT_EQ(colour(360, 0.5, 1), colour(0, 0.5, 1));
  EXPECT_EQ(colour(-120, 0.5, 1), colour(240, 0.5, 1));
  EXPECT_EQ(colour(-1e-20, 0.5, 1), colour(0, 0.5, 1));
  EXPECT_EQ(colour(750, 2, 7), (Rgb{1, 1, 1}));
  EXPECT_EQ(colour(INFINITY, -1, NAN), (Rgb{0, 0, 0}));
}

}  // namespace
