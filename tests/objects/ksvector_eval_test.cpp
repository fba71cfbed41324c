/* Every corrected spectrum goes through this interpolation: an interval too far is an
 * amplitude that is wrong by a few per cent, which nobody sees. */
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "objects/vectors/points/internal/vector_search.h"
#include "tests/objects/ksvector_support.h"

namespace {

double value_at(const TestVector &vector, double x) {
  std::vector<double> y(static_cast<std::size_t>(vector->ny), kNaN);
  EXPECT_EQ(ksvector_eval(vector.tag, y.data(), x), 0);
  return y.back();
}

/* y values are chosen so that the last column tells where the value is from. */
struct EvalCase {
  const char *name;
  std::vector<TestPoint> points;
  std::vector<std::pair<double, double>> values;  // x, expected y
};

class KSVectorEval : public testing::TestWithParam<EvalCase> {};

TEST_P(KSVectorEval, InterpolatesAndHoldsTheEnds) {
  const TestVector vector(1, GetParam().points);
  for (const auto &[x, expected] : GetParam().values) {
    EXPECT_EQ(value_at(vector, x), expected) << "at " << x;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Orders, KSVectorEval,
    testing::Values(
        EvalCase{"Ascending",
                 {{0, {0}}, {1, {10}}, {3, {30}}, {4, {0}}},
                 {{-1, 0}, {0, 0}, {0.5, 5}, {1, 10}, {2, 20}, {3.5, 15}, {9, 0}}},
        EvalCase{"Descending",
                 {{4, {0}}, {3, {30}}, {1, {10}}, {0, {5}}},
                 {{9, 0}, {4, 0}, {3.5, 15}, {2, 20}, {1, 10}, {0.5, 7.5}, {-1, 5}}},
        EvalCase{"OnePoint", {{2, {7}}}, {{-9, 7}, {2, 7}, {9, 7}, {kNaN, 7}}},
        /* The mean belongs to the shared x alone; beside it the curve steps. */
        EvalCase{"StepUpwards",
                 {{0, {0}}, {1, {2}}, {1, {4}}, {2, {6}}},
                 {{1, 3}, {0.5, 1}, {1.5, 5}}},
        EvalCase{"StepDownwards",
                 {{2, {6}}, {1, {4}}, {1, {2}}, {0, {0}}},
                 {{1, 3}, {0.5, 1}, {1.5, 5}}},
        EvalCase{"StepAtTheEnds",
                 {{0, {0}}, {0, {4}}, {1, {6}}, {1, {8}}},
                 {{0, 2}, {1, 7}, {-1, 0}, {2, 8}}},
        EvalCase{
            "AllAtOnePlace", {{1, {2}}, {1, {4}}, {1, {9}}}, {{1, 3}, {0, 2}, {2, 9}}},
        /* The first point not below x counts, whatever comes after it. */
        EvalCase{"OutOfOrder",
                 {{0, {0}}, {5, {50}}, {2, {20}}, {6, {60}}},
                 {{1, 10}, {2, 20}, {4, 40}, {5.5, 55}}},
        EvalCase{"NoNumber", {{0, {1}}, {1, {2}}}, {{kNaN, 2}, {kInfinity, 2}}},
        EvalCase{
            "NoNumberDownwards", {{1, {2}}, {0, {1}}}, {{kNaN, 2}, {-kInfinity, 1}}}),
    [](const auto &test) { return test.param.name; });

TEST(KSVectorEvalSeries, TurnsEverythingNearAGapIntoAGap) {
  const TestVector series({0.0, 10.0, 1e31, 30.0, 40.0}, 100.0, 2.0);
  for (const auto &[x, expected] : {std::pair(100.0, 0.0),
                                    {100.125, 2.5},
                                    {100.25, 5.0},
                                    {100.5, 10.0},
                                    {101.5, 30.0},
                                    {101.625, 32.5},
                                    {101.75, 35.0},
                                    {102.0, 40.0}}) {
    EXPECT_EQ(value_at(series, x), expected) << "at " << x;
  }
  const double gap = value_at(series, 101.0);
  EXPECT_GT(gap, 1e30);
  EXPECT_TRUE(std::isfinite(gap));
  for (const double x : {100.625, 100.75, 101.25, 101.375, 99.999, 102.001, 1e300,
                         -1e300, kInfinity, kNaN}) {
    EXPECT_EQ(value_at(series, x), gap) << "at " << x;
  }
}

TEST(KSVectorEvalSeries, SaysThatThereIsNothing) {
  const TestVector empty(1, {}), one({5.0}, 10.0, 1.0);
  double y = 1.0;
  ks_clear_register(0);
  EXPECT_EQ(ksvector_eval(empty.tag, &y, 0.0), -1);
  EXPECT_EQ(taken_messages(),
            std::string("ksvector_eval: No points in vector ") + empty.tag + ".\n");
  EXPECT_EQ(ksvector_eval("none", &y, 0.0), -1);
  EXPECT_NE(taken_messages().find("\nksvector_eval: ksvector_get_vector() error.\n"),
            std::string::npos);
  EXPECT_EQ(y, 1.0);
  EXPECT_EQ(value_at(one, 99.0), 5.0);
}

/* The search that is laid out against counting, for points in all kinds of order. */
TEST(VectorSearch, FindsWhatCountingFinds) {
  std::mt19937 random(5);
  const auto pick = [&](int n) { return static_cast<int>(random() % n); };
  for (int round = 0; round < 400; round++) {
    std::vector<KSVectorPoint> points(static_cast<std::size_t>(2 + pick(120)));
    for (KSVectorPoint &point : points) point = {pick(60) / 2.0, nullptr, nullptr};
    const auto below = [](const auto &a, const auto &b) { return a.x < b.x; };
    if (round % 4 != 0) std::sort(points.begin(), points.end(), below);
    if (round % 4 == 2) std::reverse(points.begin(), points.end());
    if (round % 4 == 3) {
      points[static_cast<std::size_t>(pick(static_cast<int>(points.size())))].x =
          round % 8 == 3 ? kNaN : kInfinity;
    }
    ksutil::VectorSearch search;
    const int n = static_cast<int>(points.size());
    for (int question = 0; question < 60; question++) {
      /* Points in order may be moved without a word as long as they stay so. */
      if (question == 30) {
        for (KSVectorPoint &point : points) point.x += 3.0;
        if (round % 4 == 0 || round % 4 == 3) search.forget();
      }
      const double x = question % 20 == 7 ? kNaN : pick(150) / 4.0 - 2.0;
      const auto reached = [x](const auto &point) { return point.x >= x; };
      const auto up = std::find_if(points.begin(), points.end(), reached);
      const auto down = std::find_if(points.rbegin(), points.rend(), reached);
      const bool descending = round % 2 == 0;
      ASSERT_EQ(search.find(points.data(), n, descending, x),
                descending ? static_cast<int>(points.rend() - down) - 1
                           : static_cast<int>(up - points.begin()))
          << "round " << round << " x " << x;
    }
  }
}

TEST(VectorSearch, CountsWhenThereIsNoMemory) {
  std::vector<KSVectorPoint> points;
  for (int i = 0; i < 50; i++) points.push_back({1.0 * i, nullptr, nullptr});
  ksutil::VectorSearch search;
  for (int question = 0; question < 3; question++) {
    ks_test_fail_alloc(1);
    EXPECT_EQ(search.find(points.data(), 50, false, 20.5), 21);
  }
  /* Nor may it look at bounds that had to go for larger ones. */
  ks_test_fail_alloc(0);
  for (const int n : {20, 20, 20, 50, 50, 20}) {
    EXPECT_EQ(search.find(points.data(), n, false, 10.5), 11);
    ks_test_fail_alloc(n == 50 ? 1 : 0);
  }
  ks_test_fail_alloc(0);
}

/* Each change of the points must reach the next evaluation, the third of a vector being
 * the first that does not count. */
TEST(KSVectorEvalChanges, SeesEachChangeAtOnce) {
  std::vector<TestPoint> points;
  for (int i = 0; i < 40; i++) points.push_back({1.0 * i, {10.0 * i}});
  const TestVector vector(1, points);
  const auto settle = [&] {
    for (int i = 0; i < 3; i++) value_at(vector, 20.5);
  };
  settle();
  const double y = 1000.0;
  ksvector_put(vector.tag, 3, &y, nullptr, 100.0);
  EXPECT_EQ(value_at(vector, 60.0), 20.0 + (1000.0 - 20.0) * (60.0 - 2.0) / 98.0);
  settle();
  ksvector_put(vector.tag, 3, &y, nullptr, 3.0);
  settle();
  ksvector_append(vector.tag, 0, &y, nullptr, 50.0);
  EXPECT_EQ(value_at(vector, 20.5), 390.0);  // 39 lies below 50: from the end
  settle();
  ksvector_put(vector.tag, 0, &y, nullptr, -1.0);
  ksvector_put(vector.tag, 1, &y, nullptr, -0.5);
  settle();
  ksvector_transform_invertx(vector.tag);
  EXPECT_EQ(value_at(vector, 0.5), 1000.0 + (10.0 - 1000.0) * 2.5 / 3.0);
}

/* Records are public: x values written through one that was just looked up count at once,
 * also where the search does not look. */
TEST(KSVectorEvalChanges, SeesXWrittenThroughALookedUpRecord) {
  std::vector<TestPoint> points;
  for (int i = 0; i < 40; i++) points.push_back({1.0 * i, {10.0 * i}});
  const TestVector vector(1, points);
  std::mt19937 random(11);
  for (int round = 0; round < 200; round++) {
    for (int i = 0; i < 3; i++) value_at(vector, 20.5);
    KSVector *const record = ksvector_get_vector(vector.tag);
    record->points[random() % 39].x = static_cast<double>(random() % 80);
    const double x = static_cast<double>(random() % 39) + 0.5;
    const auto reached = [x](const KSVectorPoint &point) { return point.x >= x; };
    const KSVectorPoint *const end = record->points + 40;
    const bool ascending = end[-1].x >= record->points[0].x;
    const KSVectorPoint *const b =
        ascending ? std::find_if(record->points, record->points + 40, reached)
                  : nullptr;
    if (b == nullptr || b == end || b == record->points) continue;
    const KSVectorPoint &a = b[-1];
    if (b->x == x) continue;
    EXPECT_DOUBLE_EQ(value_at(vector, x),
                     a.y[0] + (b->y[0] - a.y[0]) * (x - a.x) / (b->x - a.x))
        << "round " << round;
  }
}

}  // namespace
