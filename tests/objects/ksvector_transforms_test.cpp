/* Spectra become displacement by powers of the frequency and maps become flat by the
 * projection: a wrong factor looks like physics. */
#include <gtest/gtest.h>

#include "tests/objects/ksvector_support.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

TEST(KSVectorTransform, InvertsXWithALargeNumberForInfinity) {
  const TestVector vector(1, {{0, {1}}, {1e30, {2}}, {4, {3}}, {-0.5, {4}}});
  EXPECT_EQ(ksvector_transform_invertx(vector.tag), 0);
  EXPECT_EQ(vector.points(),
            (std::vector<TestPoint>{{1e30, {1}}, {0, {2}}, {0.25, {3}}, {-2, {4}}}));
}

TEST(KSVectorTransform, MultipliesByPowersOfAngularFrequency) {
  const double w = 2.0 * kPi * 3.0;
  TestVector up(2, {{3, {1, 5}}, {0, {1, 5}}}), down(2, {{3, {1, 5}}, {0, {1, 5}}});
  EXPECT_EQ(ksvector_transform_spec(up.tag, 3, 1), 0);
  EXPECT_EQ(up.points(),
            (std::vector<TestPoint>{{3, {1, 5 * (w * w * w)}}, {0, {1, 0}}}));
  EXPECT_EQ(ksvector_transform_spec(down.tag, -2, -1), 0);
  const double factor = 1.0 / w / w;
  EXPECT_EQ(down.points(),
            (std::vector<TestPoint>{{3, {factor, 5 * factor}}, {0, {1e30, 5e30}}}));
  EXPECT_EQ(ksvector_transform_spec(down.tag, 0, 7), 0);
}

/* The largest powers end soon, and with the sign that their parity asks for. */
TEST(KSVectorTransform, EndsForAnyPower) {
  const double unit = 1.0 / (2.0 * kPi);
  TestVector vector(1, {{-unit, {1}}, {9, {1}}, {0.01, {1}}, {kNaN, {1}}, {0.16, {1}}});
  EXPECT_EQ(ksvector_transform_spec(vector.tag, 2'000'000'001, 0), 0);
  const KSVectorPoint *const points = vector->points;
  EXPECT_EQ(points[0].y[0], -1.0);
  EXPECT_EQ(points[1].y[0], kInfinity);
  EXPECT_LT(points[2].y[0], 1e-300);
  EXPECT_TRUE(std::isnan(points[3].y[0]));
  EXPECT_EQ(ksvector_transform_spec(vector.tag, std::numeric_limits<int>::min(), 0), 0);
}

/* Intended: y values that two slots share after an insertion are scaled twice. */
TEST(KSVectorTransform, ScalesColumnsAndSeries) {
  TestVector vector(2, {{1, {1, 2}}, {2, {3, 4}}});
  const double y[] = {5, 6};
  ksvector_append(vector.tag, 1, y, nullptr, 1.5);
  EXPECT_EQ(ksvector_transform_ygain(vector.tag, 1, 2.0), 0);
  EXPECT_EQ(vector.points(),
            (std::vector<TestPoint>{{1, {1, 4}}, {1.5, {5, 24}}, {2, {5, 24}}}));
  EXPECT_EQ(ksvector_transform_ygain(vector.tag, -1, 0.5), 0);
  EXPECT_EQ(vector.points()[0].y, (std::vector<double>{0.5, 2}));
  TestVector series({1.0, 2.0}, 0.0, 1.0);
  EXPECT_EQ(ksvector_transform_ygain(series.tag, -1, 3.0), 0);
  EXPECT_EQ(series->data[1], 6.0);
}

TEST(KSVectorTransform, NamesWhatIsWrong) {
  TestVector vector(1, {{1, {2}}}), series({1.0}, 0.0, 1.0), empty(1, {});
  ks_clear_register(0);
  EXPECT_EQ(ksvector_transform_edp(series.tag, 0, 0), -1);
  EXPECT_EQ(ksvector_transform_invertx(series.tag), -1);
  EXPECT_EQ(ksvector_transform_spec(series.tag, 1, 0), -1);
  EXPECT_EQ(taken_messages(),
            "ksvector_transform_edp: Cannot transform time sample data.\n"
            "ksvector_transform_invertx: Cannot transform time sample data.\n"
            "ksvector_transform_spec: Cannot transform time sample data.\n");
  EXPECT_EQ(ksvector_transform_spec(vector.tag, 1, 1), -1);
  EXPECT_EQ(taken_messages(), "ksvector_transform_spec: iy too large.\n");
  EXPECT_EQ(ksvector_transform_ygain(vector.tag, 1, 2.0), -1);
  EXPECT_EQ(ksvector_transform_ygain(empty.tag, 0, 1.0), 0);
  taken_messages();
  EXPECT_EQ(ksvector_transform_ygain(empty.tag, 0, 2.0), -1);
  EXPECT_EQ(taken_messages(), std::string("ksvector_transform_ygain: No points in "
                                          "vector ") +
                                  empty.tag + ".\n");
}

TEST(KSVectorTransform, ProjectsByDistanceAndAzimuth) {
  /* Longitude in x, latitude in y[0]; the second column is not a coordinate. */
  TestVector vector(2, {{20, {10, 7}}, {20, {13, 7}}, {20, {-80, 7}}, {200, {80, 7}}});
  EXPECT_EQ(ksvector_transform_edp(vector.tag, 10, 20), 0);
  const double expected[][2] = {{0, 0}, {0, 3}, {0, -90}, {0, 90}};
  for (int i = 0; i < 4; i++) {
    EXPECT_NEAR(vector->points[i].x, expected[i][0], 1e-10);
    EXPECT_NEAR(vector->points[i].y[0], expected[i][1], 1e-10);
    EXPECT_EQ(vector->points[i].y[1], 7);
  }
  double x = 0, y = 0;
  latlon2xydel(&x, &y, 0, 0, 179, 0, -176);
  EXPECT_NEAR(x, 5, 1e-10);
  EXPECT_NEAR(y, 0, 1e-10);
  latlon2xydel(&x, &y, 0, 60, 0, 60, 90);
  const double distance = 2 * std::asin(std::sin(kPi / 4) * 0.5) * 180 / kPi;
  EXPECT_NEAR(std::hypot(x, y), distance, 1e-10);
}

}  // namespace
