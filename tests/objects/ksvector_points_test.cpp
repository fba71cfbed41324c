/* Points are put where curves are drawn from: a slot moved wrongly shows as a spike, a y
 * array freed twice as a crash at the end of the program. */
#include <gtest/gtest.h>

#include <memory>
#include <random>

#include "tests/objects/ksvector_support.h"

namespace {

using Points = std::vector<TestPoint>;

TEST(KSVectorAppend, PutsPointsAtTheEndForAnyOtherIndex) {
  const TestVector vector(1, {});
  for (const int index : {0, -1, 7, 3}) {
    const double y = index;
    EXPECT_EQ(ksvector_append(vector.tag, index, &y, index < 0 ? "" : "l", y), 0);
  }
  EXPECT_EQ(
      vector.points(),
      (Points{
          {0.0, {0.0}, "l"}, {-1.0, {-1.0}}, {7.0, {7.0}, "l"}, {3.0, {3.0}, "l"}}));
}

/* Intended: the slots at and after the place of an insertion share their y values. */
TEST(KSVectorAppend, SharesTheYArrayAfterAnInsertionInTheMiddle) {
  const TestVector vector(2, {{1.0, {10.0, 11.0}, "one"}, {2.0, {20.0, 21.0}, "two"}});
  const double y[] = {15.0, 16.0};
  EXPECT_EQ(ksvector_append(vector.tag, 1, y, nullptr, 1.5), 0);
  EXPECT_EQ(vector.points(), (Points{{1.0, {10.0, 11.0}, "one"},
                                     {1.5, {15.0, 16.0}},
                                     {2.0, {15.0, 16.0}, "two"}}));
  EXPECT_EQ(vector->points[1].y, vector->points[2].y);
}

/* Against a list whose y values are shared by the same rule, with growth on the way; the
 * end frees each array once or the sanitizer complains. */
TEST(KSVectorAppend, AgreesWithAModelOverRandomInsertions) {
  struct Slot {
    double x;
    std::shared_ptr<std::vector<double>> y;
    std::string label;
  };
  const TestVector vector(2, {{0.0, {0.0, 0.0}}});
  std::vector<Slot> model{{0.0, std::make_shared<std::vector<double>>(2, 0.0), ""}};
  std::mt19937 random(11);
  for (int i = 1; i < 300; i++) {
    const int index = static_cast<int>(random() % model.size());
    const std::vector<double> y{i + 0.25, i + 0.5};
    const std::string label = i % 3 == 0 ? std::to_string(i) : "";
    ASSERT_EQ(ksvector_append(vector.tag, index, y.data(), label.c_str(), i), 0);
    const auto at = model.begin() + index;
    *at->y = y;
    model.insert(at, Slot{static_cast<double>(i), at->y, label});
    ASSERT_GT(vector->nalloc, vector->npts);
    const std::int64_t slot = sizeof(KSVectorPoint) + 2 * sizeof(double);
    ASSERT_EQ(vector->heap_size,
              static_cast<std::int64_t>(sizeof(KSVector)) + vector->nalloc * slot);
  }
  const Points points = vector.points();
  ASSERT_EQ(points.size(), model.size());
  for (std::size_t i = 0; i < model.size(); i++) {
    ASSERT_EQ(points[i], (TestPoint{model[i].x, *model[i].y, model[i].label}));
  }
  /* An emptied vector drops the labels that its slots still hold. */
  vector->npts = 0;
  const double y[] = {1.0, 2.0};
  EXPECT_EQ(ksvector_append(vector.tag, 0, y, "new", 9.0), 0);
  EXPECT_EQ(vector.points(), (Points{{9.0, {1.0, 2.0}, "new"}}));
}

TEST(KSVectorAppend, LeavesTheVectorAloneWhenMemoryIsShort) {
  const TestVector vector(1, {{1.0, {2.0}, "label"}});
  const Points before = vector.points();
  const double y = 3.0;
  int refused = 0;
  for (bool appended = false; !appended;) {
    ks_test_fail_alloc(++refused);
    appended = ksvector_append(vector.tag, 0, &y, "other", 0.0) == 0;
    ks_test_fail_alloc(0);
    if (!appended) {
      EXPECT_EQ(vector.points(), before);
    }
  }
  EXPECT_EQ(refused, 4);
  const std::string messages = taken_messages();
  EXPECT_NE(messages.find("ksvector_resize: realloc() error.\n"), std::string::npos);
  EXPECT_NE(messages.find("ksvector_append: ksvector_resize() error.\n"),
            std::string::npos);
}

TEST(KSVectorResize, GrowsASeriesWithZeros) {
  const TestVector series({1.0, 2.0, 3.0}, 0.0, 1.0);
  ASSERT_EQ(series->nalloc, 3);
  EXPECT_EQ(ksvector_resize(series.tag), 0);
  EXPECT_EQ(series->nalloc, 6);
  EXPECT_EQ(series->data[2], 3.0);
  EXPECT_EQ(series->data[5], 0.0);
  EXPECT_EQ(series->heap_size, static_cast<std::int64_t>(sizeof(KSVector)) + 6 * 8);
  EXPECT_EQ(ksvector_resize(series.tag), 0);
  EXPECT_EQ(series->nalloc, 6);
}

TEST(KSVectorPut, ReplacesValuesAndLabels) {
  const TestVector vector(2, {{1.0, {2.0, 3.0}, "old"}, {4.0, {5.0, 6.0}}});
  const double y[] = {7.0, 8.0};
  EXPECT_EQ(ksvector_put(vector.tag, 0, y, nullptr, 9.0), 0);
  EXPECT_EQ(vector.points()[0], (TestPoint{9.0, {7.0, 8.0}, "old"}));
  /* Its own label and its own values are not a trap. */
  KSVectorPoint &point = vector->points[0];
  EXPECT_EQ(ksvector_puty(vector.tag, 0, point.y, point.label), 0);
  EXPECT_EQ(vector.points()[0], (TestPoint{9.0, {7.0, 8.0}, "old"}));
  EXPECT_EQ(ksvector_puty(vector.tag, 0, vector->points[1].y, ""), 0);
  EXPECT_EQ(vector.points()[0], (TestPoint{9.0, {5.0, 6.0}}));
  EXPECT_EQ(ksvector_put(vector.tag, 1, y, "new", 4.0), 0);
  EXPECT_EQ(vector.points()[1], (TestPoint{4.0, {7.0, 8.0}, "new"}));
}

TEST(KSVectorPut, ReadsAndWritesSamplesOfASeries) {
  const TestVector series({1.0, 2.0, 3.0}, 100.0, 4.0);
  const double y = 5.0;
  EXPECT_EQ(ksvector_puty(series.tag, 2, &y, "ignored"), 0);
  double x = 0.0, value = 0.0;
  char label[8] = "kept";
  EXPECT_EQ(ksvector_get_point(series.tag, 2, &x, &value, label), 0);
  EXPECT_EQ(std::pair(x, value), std::pair(100.5, 5.0));
  EXPECT_STREQ(label, "kept");
}

TEST(KSVectorPut, NamesWhatIsWrong) {
  const TestVector vector(1, {{1.0, {2.0}, "l"}}), series({1.0}, 0.0, 1.0);
  double x = 0.0, y = 0.0;
  char label[8] = "kept";
  ks_clear_register(0);
  EXPECT_EQ(ksvector_put(vector.tag, 1, &y, nullptr, x), -1);
  EXPECT_EQ(taken_messages(), "ksvector_put: Illegal ix value\n");
  EXPECT_EQ(ksvector_puty(vector.tag, -1, &y, nullptr), -1);
  EXPECT_EQ(taken_messages(), "ksvector_puty: Illegal ix value\n");
  EXPECT_EQ(ksvector_get_point(vector.tag, 1, &x, &y, label), -1);
  EXPECT_EQ(taken_messages(), "ksvector_get_point: Illegal index value\n");
  EXPECT_EQ(ksvector_put(series.tag, 0, &y, nullptr, x), -1);
  EXPECT_EQ(taken_messages(),
            "ksvector_put: Cannot put X(time) value for constant sampled data.\n");
  EXPECT_EQ(ksvector_append(series.tag, 0, &y, nullptr, x), -1);
  EXPECT_EQ(taken_messages(), "ksvector_append: Cannot append to time sample vector\n");
  EXPECT_EQ(ksvector_get_point(vector.tag, 0, &x, &y, label), 0);
  EXPECT_STREQ(label, "l");
  EXPECT_EQ(ksvector_get_point(vector.tag, 0, &x, &y, nullptr), 0);
}

}  // namespace
