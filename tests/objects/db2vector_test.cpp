/* The labels are all that a plotting program learns about how points look, and the row
 * that failed must not leave half a plot behind. */
#include "objects/db2vector.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>

#include "objects/plot/internal/plot_labels.h"
#include "platform/stock/verbose.h"
#include "tests/objects/ksvector_support.h"

namespace {

using ksutil::kLabelHue;
using ksutil::kLabelSaturation;
using ksutil::kLabelSize;
using ksutil::kLabelSymbol;
using ksutil::LabelValues;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

struct Looks {
  int fill = 0, maxsize = 5;
  double hue_centre = 120.0, hue_range = 240.0;
};

std::vector<std::string> labels_for(int flags, const std::vector<LabelValues> &values,
                                    const Looks &looks = {}) {
  const TestVector vector(2, std::vector<TestPoint>(values.size(), {0.0, {0.0, 0.0}}));
  ksutil::set_labels(*vector.operator->(), flags, values.data(),
                     static_cast<int>(values.size()), looks.fill, looks.maxsize,
                     looks.hue_centre, looks.hue_range);
  std::vector<std::string> labels;
  for (const TestPoint &point : vector.points()) labels.push_back(point.label);
  return labels;
}

/* Lightness 0.6 at saturation 0.9 spans 0.24 to 0.96 of 65535 (15728.4 to 62913.6: 3d70 to
 * f5c1); at 0.3, 0.48 to 0.72 (31456.8, 47185.2: 7ae0, b851); at 1.0, 0.2 to 1.0 (13107.0, which
 * rounding may truncate to either side). */
TEST(PlotLabels, TellEachQuantityThatIsFlagged) {
  const std::vector<LabelValues> rows = {
      {1.0, 0.0, 10.0, 5.0}, {2.0, 5.0, 15.0, 0.0}, {3.0, 10.0, 20.0, 8.0}};
  EXPECT_THAT(labels_for(0, rows), ElementsAre("{ }", "{ }", "{ }"));
  EXPECT_THAT(
      labels_for(kLabelHue, rows),
      ElementsAre("{ o=#f5c13d703d70 }", "{ o=#3d70f5c13d70 }", "{ o=#3d703d70f5c1 }"));
  EXPECT_EQ(labels_for(kLabelSaturation, rows, {.hue_centre = 0.0}).front(),
            "{ o=#b8517ae07ae0 }");
  EXPECT_THAT(labels_for(kLabelSaturation, rows, {.hue_centre = 0.0}).back(),
              StartsWith("{ o=#ffff333"));
  EXPECT_THAT(labels_for(kLabelSize, rows),
              ElementsAre("{ sz=1 }", "{ sz=3 }", "{ sz=5 }"));
  EXPECT_THAT(labels_for(kLabelSymbol, rows),
              ElementsAre("{ sy=circle }", "{ sy=point }", "{ sy=point }"));
  EXPECT_EQ(labels_for(kLabelHue | kLabelSaturation | kLabelSize | kLabelSymbol, rows,
                       {.fill = 1})
                .front(),
            "{ o=#b8517ae07ae0 f=#b8517ae07ae0 sz=1 sy=circle }");
}

TEST(PlotLabels, TakeEqualValuesAsTheSmallest) {
  EXPECT_THAT(labels_for(kLabelHue | kLabelSize, {{7.0, 0, 7.0, 0}, {7.0, 0, 7.0, 0}}),
              ElementsAre("{ o=#f5c13d703d70 sz=1 }", "{ o=#f5c13d703d70 sz=1 }"));
}

/* The largest value gets the full size and saturation whatever its quotient rounds to. */
TEST(PlotLabels, GiveTheLargestValueTheEndOfTheScale) {
  for (int i = 1; i < 200; i++) {
    const double range = 0.1 * i;
    const auto labels = labels_for(kLabelSaturation | kLabelSize,
                                   {{0, 0.0, 0.0, 0}, {0, range, range, 0}},
                                   {.maxsize = 10, .hue_centre = 0.0});
    ASSERT_THAT(labels.back(), AllOf(StartsWith("{ o=#ffff333"), HasSubstr("sz=10 ")))
        << range;
  }
}

/* A hue of `last` degrees for the largest value must look like `same` degrees. */
struct FoldCase {
  const char *name;
  double last, same;
};
class HueFold : public testing::TestWithParam<FoldCase> {};

TEST_P(HueFold, TakesWholeDegreesOffAbove360) {
  const auto hue_of_last = [](double hue) {
    return labels_for(kLabelHue | kLabelSaturation, {{0, 0, 0, 0}, {1, 0, 0, 0}},
                      {.hue_centre = hue - 20.0, .hue_range = 40.0})
        .back();
  };
  const auto centre = [](double hue) {
    return labels_for(kLabelSaturation, {{0, 0, 0, 0}}, {.hue_centre = hue}).back();
  };
  EXPECT_EQ(hue_of_last(GetParam().last), centre(GetParam().same));
}
INSTANTIATE_TEST_SUITE_P(Hues, HueFold,
                         testing::Values(FoldCase{"WholeExcess", 370.0, 360.0},
                                         FoldCase{"Broken", 370.5, 359.5},
                                         FoldCase{"Just", 360.0, 0.0},
                                         FoldCase{"Huge", 1e17, 360.0},
                                         FoldCase{"Below", -30.0, 330.0},
                                         FoldCase{"FarBelow", -750.0, 330.0}),
                         [](const auto &test) { return test.param.name; });

TEST(PlotLabels, SurviveValuesThatAreNoNumbers) {
  const int flags = kLabelHue | kLabelSaturation | kLabelSize;
  EXPECT_THAT(labels_for(flags, {{kNaN, kNaN, kNaN, 0}, {1, 1, 1, 0}, {2, 2, 2, 0}}),
              ElementsAre("{ o=#3d70f5c13d70 sz=1 }", "{ o=#b8517ae07ae0 sz=1 }",
                          testing::MatchesRegex("\\{ o=#333.333.ffff sz=5 \\}")));
  labels_for(flags, {{kInfinity, -kInfinity, kInfinity, 0}, {0, 0, 0, 0}});
  labels_for(flags, {{1, 1, 1, 0}, {2, 2, 2, 0}},
             {.maxsize = INT_MIN, .hue_centre = kNaN, .hue_range = kInfinity});
}

TEST(PlotLabels, PrintALineEachWhenVerbose) {
  set_verbose(1);
  testing::internal::CaptureStdout();
  labels_for(kLabelHue, {{5.0, 0, 2.5, 0}}, {.hue_centre = 200.0, .hue_range = 0.0});
  set_verbose(0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "   5    0.000    2.500 => { o=#3d70b851f5c1 }  hls=(200 0.600 0.900)\n");
}

/* Intended: the first row with a name stands alone, the later ones have the symbol that
 * follows; the ninth name is back at the start. */
TEST(Symbolize, MovesANameOnAfterItsFirstUse) {
  const int base = ksutil::symbolize("first name of this test");
  for (int i = 1; i <= 8; i++) {
    const std::string name = "name " + std::to_string(i);
    const int index = (base + i) % 8;
    EXPECT_EQ(ksutil::symbolize(name.c_str()), index);
    EXPECT_EQ(ksutil::symbolize(name.c_str()), index + 1);
    EXPECT_EQ(ksutil::symbolize(name.c_str()), index + 1);
  }
  /* A name that could not be remembered takes no symbol from the others. */
  ks_test_fail_alloc(1);
  const int forgotten = ksutil::symbolize("name without memory");
  EXPECT_EQ(ksutil::symbolize("name without memory"), forgotten);
  EXPECT_THAT(taken_messages(), HasSubstr("db2vector: setarr() error.\n"));
}

/* Five origins, at depths 10 to 50, in a database in memory. */
class Db2Vector : public testing::Test {
 protected:
  void SetUp() override {
    db_ = dbtmp("css3.0");
    origin_ = dblookup(db_, "", "origin", "", "");
    const Dbptr event = dblookup(db_, "", "event", "", "");
    for (long i = 1; i <= 5; i++) {
      const double depth = 10.0 * static_cast<double>(i);
      ASSERT_GE(dbaddv(origin_, "lat", depth / 2.0, "lon", -depth, "depth", depth,
                       "time", 1e9 + depth, "orid", i, "evid", i, "auth",
                       i == 3 ? "soon" : "2001-01-01", nullptr),
                0);
      if (i % 2 == 1) dbaddv(event, "evid", i, "prefor", i, nullptr);
    }
    event_ = event;
    ks_clear_register(0);
  }
  void TearDown() override {
    ksvector_free(tag_);
    dbclose(db_);
  }

  std::vector<TestPoint> points(Dbptr view, const char *x, const char *y,
                                const char *hue = nullptr, const char *size = nullptr,
                                const char *symbol = nullptr) {
    ksvector_free(tag_);
    ks_clear_register(0);
    const KSVector *const vector = db2vector(view, x, y, hue, nullptr, size, symbol,
                                             "plot", tag_, 0, 3, 120.0, 240.0);
    EXPECT_NE(vector, nullptr);
    EXPECT_EQ(vector, ksvector_get_vector(tag_));
    return TestVector::points_of(vector);
  }

  Dbptr db_, origin_, event_;
  char tag_[KS_TAG_SIZE] = "";
};

TEST_F(Db2Vector, FollowsTheRowsOfTablesAndViews) {
  EXPECT_THAT(points(origin_, "lon", "depth*2"),
              ElementsAre(TestPoint{-10.0, {20.0, 0.0}}, TestPoint{-20.0, {40.0, 0.0}},
                          TestPoint{-30.0, {60.0, 0.0}}, TestPoint{-40.0, {80.0, 0.0}},
                          TestPoint{-50.0, {100.0, 0.0}}));
  Tbl *keys = newtbl(1);
  pushtbl(keys, const_cast<char *>("lon"));
  const Dbptr joined = dbjoin(event_, origin_, nullptr, nullptr);
  const Dbptr sorted = dbsort(dbsubset(joined, "depth > 20"), keys, 0);
  freetbl(keys, nullptr);
  EXPECT_THAT(
      points(sorted, "lon", "prefor", "depth", "origin.evid", "'two'"),
      ElementsAre(
          testing::Field(&TestPoint::label, HasSubstr("{ o=#3d703d70f5c1 sz=3 sy=")),
          testing::AllOf(
              testing::Field(&TestPoint::x, -30.0),
              testing::Field(&TestPoint::y, ElementsAre(3.0, 0.0)),
              testing::Field(&TestPoint::label, HasSubstr("{ o=#f5c13d703d70 sz=1 "
                                                          "sy=")))));
}

TEST_F(Db2Vector, NamesEveryExpressionThatDoesNotCompile) {
  EXPECT_TRUE(points(origin_, "nosuch", "depth", "1 +", nullptr, "((").empty());
  const std::string messages = taken_messages();
  EXPECT_THAT(messages, HasSubstr("Can't compile x expression 'nosuch'"));
  EXPECT_THAT(messages, HasSubstr("Can't compile hue expression '1 +'"));
  EXPECT_THAT(messages, HasSubstr("Can't compile symbol expression '(('"));
  EXPECT_THAT(messages, Not(HasSubstr("compile y")));
}

TEST_F(Db2Vector, SaysWhichCallFailed) {
  EXPECT_EQ(db2vector(dbinvalid(), "lon", "lat", nullptr, nullptr, nullptr, nullptr, "",
                      tag_, 0, 5, 0, 0),
            nullptr);
  EXPECT_THAT(taken_messages(), testing::EndsWith("\ndb2vector: dbquery() error.\n"));
}

TEST_F(Db2Vector, IsEmptyWhenAnyRowFails) {
  const char *const failing = "time > auth ? 1 : 2";
  EXPECT_TRUE(points(origin_, "lon", "depth", "depth", failing).empty());
  EXPECT_THAT(taken_messages(),
              HasSubstr("failed to evaluate size expression 'time > auth ? 1 : 2'"));
  EXPECT_EQ(ksvector_get_vector(tag_)->points[0].label, nullptr);
}

TEST_F(Db2Vector, IsEmptyWithoutRowsWhateverTheExpressions) {
  EXPECT_TRUE(points(dbsubset(origin_, "depth > 1000"), "((", "nosuch").empty());
  EXPECT_EQ(taken_messages(), "");
  char tag[KS_TAG_SIZE] = "x";
  EXPECT_EQ(db2vector(dbinvalid(), "lon", "lat", nullptr, nullptr, nullptr, nullptr,
                      nullptr, tag, 0, 1, 0.0, 0.0),
            nullptr);
  EXPECT_STREQ(tag, "");
}

TEST_F(Db2Vector, UsesTheNumbersOfNullsAsTheyAre) {
  EXPECT_EQ(points(origin_, "lon", "mb").front(), (TestPoint{-10.0, {-999.0, 0.0}}));
}

TEST_F(Db2Vector, EndsTheProcessWithoutMemoryForTheValues) {
  EXPECT_EXIT(
      for (int n = 1;; n++) {
        ks_test_fail_alloc(n);
        char tag[KS_TAG_SIZE] = "";
        db2vector(origin_, "1", "2", nullptr, nullptr, nullptr, nullptr, nullptr, tag,
                  0, 1, 0.0, 0.0);
        ksvector_free(tag);
        ks_clear_register(0);
      },
      testing::ExitedWithCode(1),
      "Out of memory in db2vector at line [0-9]+ of "
      "'db2vector.cpp'\n.*Can't malloc 160 bytes for value\n");
}

}  // namespace
