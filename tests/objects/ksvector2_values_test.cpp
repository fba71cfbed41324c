/* The arithmetic is shared with ksvector; what can go wrong here is the way to the points,
 * most of all after fewer y values are in use than the array is laid out for. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <numbers>

#include "objects/ksvector2_support.h"
#include "platform/trace/trace.h"

namespace {

using testing::DoubleEq;
using testing::ElementsAre;
using testing::HasSubstr;

const double kGapValue = 1e31;
using std::numbers::pi;

class Ksvector2Values : public Ksvector2Test {
 protected:
  /* Points (x, 10 x, -x) in an array that is wider than they need. */
  void make(const std::vector<double> &xs) {
    vector.reset(ksvector2_create(0, 4, nullptr, tag));
    ksvector2_resize_y(tag, 2);
    for (const double x : xs) {
      const double y[] = {10 * x, -x};
      ksvector2_append(tag, -1, y, nullptr, x);
    }
  }
  void make_series(const std::vector<double> &samples) {
    vector.reset(ksvector2_create_tsamp(static_cast<int>(samples.size()),
                                        samples.data(), nullptr, tag, 100, 2));
  }
  std::vector<double> column(int iy) const {
    std::vector<double> values;
    for (int i = 0; i < vector->npts; ++i) {
      values.push_back(ksutil::vector2::row(*vector, i)[iy + 1]);
    }
    return values;
  }
  std::vector<double> at(double x) const {
    double y[2] = {};
    EXPECT_EQ(ksvector2_eval(tag, y, x), 0);
    return {y, y + 2};
  }

  char tag[KS_TAG_SIZE] = "";
  OwnedVector vector;
};

TEST_F(Ksvector2Values, EvaluatesUpDownAndAtSteps) {
  make({1, 2, 4});
  EXPECT_THAT(at(3), ElementsAre(30, -3));
  EXPECT_THAT(at(0), ElementsAre(10, -1));
  EXPECT_THAT(at(9), ElementsAre(40, -4));
  make({4, 2, 1});
  EXPECT_THAT(at(3), ElementsAre(30, -3));
  EXPECT_THAT(at(9), ElementsAre(40, -4));
  make({1, 2, 2, 3});
  ksutil::vector2::row(*vector, 2)[1] = 100;
  EXPECT_THAT(at(2), ElementsAre(60, -2));
  make({5});
  EXPECT_THAT(at(-1), ElementsAre(50, -5));
}

TEST_F(Ksvector2Values, EvaluatesSeriesBesideGaps) {
  make_series({0, 4, kGapValue, 6});
  EXPECT_EQ(at(100.25)[0], 2);
  EXPECT_EQ(at(101.5)[0], 6);
  for (const double x : {99.9, 100.75, 101.25, 102.0, 1e300, std::nan("")}) {
    EXPECT_TRUE(tr_isgap(static_cast<float>(at(x)[0]))) << x;
  }
}

TEST_F(Ksvector2Values, ExtremesOfAllAndOfAWindow) {
  make({3, -1, 2, 5});
  double x0 = 0, x1 = 0, y0 = 0, y1 = 0;
  EXPECT_EQ(ksvector2_maxmin(tag, -1, &x0, &x1, &y0, &y1), 0);
  EXPECT_THAT((std::vector{x0, x1, y0, y1}), ElementsAre(-1, 5, -10, 50));
  EXPECT_EQ(ksvector2_maxmin2(tag, 1, 4, 2, &x0, &x1, &y0, &y1), 0);
  EXPECT_THAT((std::vector{x0, x1, y0, y1}), ElementsAre(2, 3, -3, -2));
  EXPECT_EQ(ksvector2_maxmin2(tag, 1, 4.5, 4.9, &x0, &x1, &y0, &y1), 1);
  EXPECT_EQ(x1, 3);
  EXPECT_EQ(ksvector2_maxmin(tag, 2, &x0, &x1, &y0, &y1), -1);
  EXPECT_THAT(taken_messages(), HasSubstr("ksvector2_maxmin: iy too large.\n"));
  make_series({kGapValue, 2, std::nan(""), -7, kGapValue});
  EXPECT_EQ(ksvector2_maxmin2(tag, 0, -1e300, 1e300, &x0, &x1, &y0, &y1), 0);
  EXPECT_THAT((std::vector{x0, x1, y0, y1}), ElementsAre(100.5, 101.5, -7, 2));
  EXPECT_EQ(ksvector2_maxmin(tag, 0, &x0, &x1, &y0, &y1), 0);
  EXPECT_EQ(y1, kGapValue);
  EXPECT_EQ(ksvector2_maxmin2(tag, 1, 0, 1e9, &x0, &x1, &y0, &y1), -1);
  EXPECT_THAT(taken_messages(), HasSubstr("ksvector2_maxmin2: iy out of range.\n"));
}

TEST_F(Ksvector2Values, NearestTellsItsFailuresApart) {
  make({0, 1, 2});
  EXPECT_EQ(ksvector2_nearest(tag, 1, 1.6, -1.6), 2);
  EXPECT_EQ(ksvector2_nearest(tag, 0, 0.5, 5), 0);
  EXPECT_EQ(ksvector2_nearest("2vect", 0, 0, 0), -2);
  EXPECT_EQ(ksvector2_nearest(tag, 2, 0, 0), -3);
  make_series({1, 2});
  EXPECT_EQ(ksvector2_nearest(tag, 0, 1e9, 0), 1);
  EXPECT_EQ(ksvector2_nearest(tag, 1, 0, 0), -4);
  make({});
  EXPECT_EQ(ksvector2_nearest(tag, 0, 0, 0), -1);
}

TEST_F(Ksvector2Values, TransformsTheColumnsInUse) {
  make({0.5, 2});
  EXPECT_EQ(ksvector2_transform_spec(tag, 2, 1), 0);
  EXPECT_THAT(column(1),
              ElementsAre(DoubleEq(-0.5 * pi * pi), DoubleEq(-32 * pi * pi)));
  EXPECT_THAT(column(0), ElementsAre(5, 20));
  EXPECT_EQ(ksvector2_transform_ygain(tag, -1, -2), 0);
  EXPECT_EQ(ksvector2_transform_invertx(tag), 0);
  EXPECT_EQ(vector->data[5], 0.5);
  EXPECT_THAT(column(0), ElementsAre(-10, -40));
  make({90});
  vector->data[1] = 0;  // latitude
  EXPECT_EQ(ksvector2_transform_edp(tag, 0, 60), 0);
  EXPECT_NEAR(vector->data[0], 30, 1e-12);
  EXPECT_NEAR(vector->data[1], 0, 1e-12);
  make_series({1, 2});
  EXPECT_EQ(ksvector2_transform_ygain(tag, 0, 3), 0);
  EXPECT_EQ(vector->data[1], 6);
  EXPECT_EQ(ksvector2_transform_invertx(tag), -1);
  EXPECT_THAT(
      taken_messages(),
      HasSubstr("ksvector2_transform_invertx: Cannot transform time sample data.\n"));
}

TEST_F(Ksvector2Values, StatisticsOverThoseWithTheSameX) {
  const std::unique_ptr<Tbl, void (*)(Tbl *)> tags(
      newtbl(0), [](Tbl *list) { freetbl(list, nullptr); });
  char names[4][KS_TAG_SIZE];
  const double values[4] = {3, -8, 5, 1000};
  for (int i = 0; i < 4; ++i) {
    ksvector2_create(0, 1 + i, nullptr, names[i]);  // laid out in another width each
    ksvector2_resize_y(names[i], 1);
    ksvector2_append(names[i], -1, &values[i], nullptr, i == 3 ? 1.0000001 : 1);
    pushtbl(tags.get(), names[i]);
  }
  const OwnedVector median(ksvector2_stats(tags.get(), "median", "m", tag));
  ASSERT_NE(median, nullptr);
  EXPECT_EQ(median->data[1], 3);
  const OwnedVector amax(ksvector2_stats(tags.get(), "amax", nullptr, nullptr));
  EXPECT_EQ(amax->data[1], 8);
  pushtbl(tags.get(), const_cast<char *>("2vect"));
  EXPECT_EQ(ksvector2_stats(tags.get(), "max", nullptr, tag), nullptr);
  EXPECT_STREQ(tag, "");
  EXPECT_EQ(ksvector2_stats(tags.get(), "mean", nullptr, tag), nullptr);
  EXPECT_THAT(taken_messages(),
              HasSubstr("ksvector2_stats: Unrecognized type 'mean'\n"));
}

}  // namespace
