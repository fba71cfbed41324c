/* Axes are scaled by the extremes, clicks are answered by the nearest point, arrays are
 * compared by their statistics. */
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "platform/stock/tbl.h"
#include "tests/objects/ksvector_support.h"

namespace {

struct Extremes {
  double xmin = 0, xmax = 0, ymin = 0, ymax = 0;
  bool operator==(const Extremes &) const = default;
};

Extremes extremes(const TestVector &vector, int iy) {
  Extremes found;
  EXPECT_EQ(ksvector_maxmin(vector.tag, iy, &found.xmin, &found.xmax, &found.ymin,
                            &found.ymax),
            0);
  return found;
}

TEST(KSVectorMaxmin, TakesOneColumnOrAll) {
  const TestVector vector(2, {{3, {5, -1}}, {-2, {7, 9}}, {1, {6, 2}}});
  EXPECT_EQ(extremes(vector, 0), (Extremes{-2, 3, 5, 7}));
  EXPECT_EQ(extremes(vector, 1), (Extremes{-2, 3, -1, 9}));
  EXPECT_EQ(extremes(vector, -1), (Extremes{-2, 3, -1, 9}));
  const TestVector series({4.0, 1e31, 3.0}, 10.0, 2.0);
  EXPECT_EQ(extremes(series, 0), (Extremes{10, 11, 3, 1e31}));
}

TEST(KSVectorNearest, PrefersTheFirstOfEquals) {
  const TestVector vector(2, {{0, {0, 5}}, {2, {0, 5}}, {1, {1, 5}}});
  EXPECT_EQ(ksvector_nearest(vector.tag, 0, 1.0, 0.0), 0);
  EXPECT_EQ(ksvector_nearest(vector.tag, 1, 1.9, 5.0), 1);
  EXPECT_EQ(ksvector_nearest(vector.tag, 0, 1.0, 9.0), 2);
  const TestVector series({1.0, 2.0, 3.0}, 10.0, 2.0);
  for (const auto &[x, index] : {std::pair(9.0, 0),
                                 {10.4, 0},
                                 {10.6, 1},
                                 {10.99, 1},
                                 {11.0, 2},
                                 {99.0, 2},
                                 {kNaN, 0}}) {
    EXPECT_EQ(ksvector_nearest(series.tag, 0, x, 0.0), index) << "at " << x;
  }
}

TEST(KSVectorMeasure, TellsFailuresApart) {
  const TestVector vector(1, {{1, {2}}}), series({1.0}, 0.0, 1.0), empty(1, {});
  const std::string none = std::string("No points in vector ") + empty.tag + ".\n";
  double a, b, c, d;
  ks_clear_register(0);
  EXPECT_EQ(ksvector_maxmin(vector.tag, 1, &a, &b, &c, &d), -1);
  EXPECT_EQ(taken_messages(), "ksvector_maxmin: iy too large.\n");
  EXPECT_EQ(ksvector_maxmin(series.tag, 1, &a, &b, &c, &d), -1);
  EXPECT_EQ(taken_messages(), "ksvector_maxmin: iy out of range.\n");
  EXPECT_EQ(ksvector_maxmin(empty.tag, 0, &a, &b, &c, &d), -1);
  EXPECT_EQ(taken_messages(), "ksvector_maxmin: " + none);
  EXPECT_EQ(ksvector_nearest(empty.tag, 0, 0, 0), -1);
  EXPECT_EQ(ksvector_nearest("none", 0, 0, 0), -2);
  taken_messages();
  EXPECT_EQ(ksvector_nearest(vector.tag, 1, 0, 0), -3);
  EXPECT_EQ(taken_messages(), "ksvector_nearest: iy too large.\n");
  EXPECT_EQ(ksvector_nearest(series.tag, 1, 0, 0), -4);
  EXPECT_EQ(taken_messages(), "ksvector_nearest: iy out of range.\n");
  EXPECT_EQ(ksvector_nearest(vector.tag, -1, 0, 0), -4);
}

class KSVectorStats : public testing::Test {
 protected:
  KSVectorStats() : tags_(newtbl(0)) {}

  void take(TestVector &vector) { pushtbl(tags_.get(), vector.tag); }
  std::vector<TestPoint> result(const char *type) {
    TestVector made;
    return TestVector::points_of(ksvector_stats(tags_.get(), type, "stats", made.tag));
  }

  struct FreeList {
    void operator()(Tbl *list) const { freetbl(list, nullptr); }
  };
  std::unique_ptr<Tbl, FreeList> tags_;
};

using Points = std::vector<TestPoint>;

TEST_F(KSVectorStats, CombinesPointByPoint) {
  TestVector a(2, {{1, {1, -8}, "a"}, {2, {5, kInfinity}}});
  TestVector b(2, {{1, {-3, 4}, "b"}, {2, {5, 1}}});
  TestVector c(2, {{1, {2, 2}}, {2, {-6, 0}}});
  take(a), take(b);
  EXPECT_EQ(result("median"), (Points{{1, {-1, -2}, "a"}, {2, {5, kInfinity}}}));
  take(c);
  EXPECT_EQ(result("max"), (Points{{1, {2, 4}, "a"}, {2, {5, kInfinity}}}));
  EXPECT_EQ(result("min"), (Points{{1, {-3, -8}, "a"}, {2, {-6, 0}}}));
  EXPECT_EQ(result("amax"), (Points{{1, {3, 8}, "a"}, {2, {6, kInfinity}}}));
  EXPECT_EQ(result("amin"), (Points{{1, {1, 2}, "a"}, {2, {5, 0}}}));
  EXPECT_EQ(result("median"), (Points{{1, {1, 2}, "a"}, {2, {5, 1}}}));
  EXPECT_EQ(a.points()[0].y[1], -8);
}

TEST_F(KSVectorStats, SkipsWhatDoesNotFit) {
  TestVector first(1, {{1, {-2}}, {2, {3}}}), shifted(1, {{1, {9}}, {2 + 1e-15, {9}}});
  TestVector longer(1, {{1, {9}}, {2, {9}}, {3, {9}}}),
      wider(2, {{1, {9, 9}}, {2, {9, 9}}});
  TestVector series({9.0, 9.0}, 1.0, 1.0), same(1, {{1, {1}}, {2, {kNaN}}});
  take(first), take(shifted), take(longer), take(wider), take(series);
  EXPECT_EQ(result("max"), first.points());
  EXPECT_EQ(result("amax"), (Points{{1, {2}}, {2, {3}}}));
  take(same);
  EXPECT_EQ(result("max"), (Points{{1, {1}}, {2, {3}}}));
}

/* The result's tag may take the place of one of the inputs. */
TEST_F(KSVectorStats, MayWriteTheNewTagOverAnInput) {
  TestVector first(1, {{1, {2}}}), second(1, {{1, {9}}});
  for (const char *over : {first.tag, second.tag}) {
    char tags[2][KS_TAG_SIZE];
    std::strcpy(tags[0], first.tag);
    std::strcpy(tags[1], second.tag);
    tags_.reset(newtbl(0));
    for (char *tag : tags) pushtbl(tags_.get(), tag);
    char *const made = tags[over == first.tag ? 0 : 1];
    EXPECT_EQ(TestVector::points_of(ksvector_stats(tags_.get(), "max", nullptr, made)),
              second.points());
    EXPECT_STRNE(made, over);
    ksvector_free(made);
  }
}

TEST_F(KSVectorStats, LeavesNothingBehindWhenItFails) {
  TestVector points(1, {{1, {2}}}), series({1.0}, 0.0, 1.0);
  char unknown[] = "vect-1", tag[KS_TAG_SIZE] = "old";
  int before = 0, after = 0;
  long bytes = 0;
  ks_clear_register(0);
  EXPECT_EQ(ksvector_stats(tags_.get(), "mean", nullptr, tag), nullptr);
  EXPECT_EQ(taken_messages(), "ksvector_stats: Unrecognized type 'mean'\n");
  EXPECT_EQ(ksvector_stats(tags_.get(), "max", nullptr, tag), nullptr);
  EXPECT_NE(taken_messages().find("ksvector_append: ksvector_get_vector() error.\n"),
            std::string::npos);
  take(points);
  pushtbl(tags_.get(), unknown);
  ksvector_get_heap_size(nullptr, nullptr, &before, &bytes);
  EXPECT_EQ(ksvector_stats(tags_.get(), "max", nullptr, tag), nullptr);
  ksvector_get_heap_size(nullptr, nullptr, &after, &bytes);
  EXPECT_EQ(before, after);
  EXPECT_STREQ(tag, "");
  EXPECT_NE(taken_messages().find("\nksvector_append: ksvector_get_vector(vect"),
            std::string::npos);
  settbl(tags_.get(), 0, series.tag);
  EXPECT_EQ(ksvector_stats(tags_.get(), "max", nullptr, tag), nullptr);
  EXPECT_EQ(taken_messages(), "ksvector_append: Can only do stats on point vectors.\n");
}

TEST(KSVectorGetPoints, HandsOutColumnsAndLabels) {
  const TestVector vector(2, {{1, {2, 3}, "a"}, {4, {5, 6}}});
  int npts = 0, iy = 1;
  double *x = nullptr;
  void *y = nullptr;
  char **labels = nullptr;
  ASSERT_EQ(ksvector_get_points(vector.tag, &npts, &iy, &x, &y, &labels), 0);
  EXPECT_EQ(std::pair(npts, iy), std::pair(2, 1));
  EXPECT_EQ(std::vector<double>(x, x + 2), (std::vector<double>{1, 4}));
  const auto *const column = static_cast<double *>(y);
  EXPECT_EQ(std::vector<double>(column, column + 2), (std::vector<double>{3, 6}));
  EXPECT_STREQ(labels[0], "a");
  EXPECT_EQ(labels[1], nullptr);
  for (void *block : {static_cast<void *>(x), y, static_cast<void *>(labels[0]),
                      static_cast<void *>(labels)}) {
    std::free(block);
  }
}

/* All columns of a series are one; while memory is short nothing is handed out. */
TEST(KSVectorGetPoints, HandsOutAllColumnsOrNothing) {
  const TestVector series({7.0, 8.0}, 10.0, 2.0);
  int npts = -5, iy = -1, refused = 0;
  double *x = nullptr;
  void *y = nullptr;
  char **labels = nullptr;
  const auto get = [&] {
    ks_test_fail_alloc(++refused);
    return ksvector_get_points(series.tag, &npts, &iy, &x, &y, &labels);
  };
  while (get() != 0) {
    EXPECT_TRUE(npts == -5 && iy == -1 && x == nullptr && y == nullptr &&
                labels == nullptr);
  }
  ks_test_fail_alloc(0);
  EXPECT_EQ(refused, 5);
  EXPECT_EQ(std::pair(npts, iy), std::pair(2, 1));
  auto **const columns = static_cast<double **>(y);
  EXPECT_EQ(std::pair(x[1], columns[0][1]), std::pair(10.5, 8.0));
  EXPECT_EQ(labels[0], nullptr);
  std::free(columns[0]);
  std::free(columns);
  std::free(x);
  std::free(labels);
  ks_clear_register(0);
  iy = 1;
  EXPECT_EQ(ksvector_get_points(series.tag, &npts, &iy, &x, &y, nullptr), -1);
  EXPECT_EQ(taken_messages(), "ksvector_get_points: index out of range.\n");
}

}  // namespace
