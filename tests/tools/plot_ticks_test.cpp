/* Ticks are what numbers are read off a picture with: one beside its value, or two with
 * one label, and every reading is wrong. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <ostream>
#include <random>
#include <set>

#include "platform/clock/clock.h"
#include "platform/stock/text.h"
#include "tools/plot/ticks.h"

namespace ksutil::plot {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/* The labels, each with its context in front where it has one. */
std::vector<std::string> labels(const Ticks &ticks) {
  std::vector<std::string> result;
  for (const Tick &tick : ticks.ticks) {
    if (tick.label.empty()) continue;
    result.push_back((tick.context.empty() ? "" : tick.context + " | ") + tick.label);
  }
  return result;
}

TEST(LinearTicks, StandAtRoundNumbers) {
  EXPECT_THAT(labels(linear_ticks(0.0, 10.0, 5)),
              ElementsAre("0", "2", "4", "6", "8", "10"));
  EXPECT_THAT(labels(linear_ticks(-0.31, 0.29, 6)),
              ElementsAre("−0.3", "−0.2", "−0.1", "0.0", "0.1", "0.2"));
  const Ticks large = linear_ticks(0.0, 2.5e7, 5);
  EXPECT_THAT(labels(large), ElementsAre("0", "5", "10", "15", "20", "25"));
  EXPECT_EQ(large.factor, "×10⁶");
  EXPECT_EQ(linear_ticks(0.0, 2e-9, 5).factor, "×10⁻⁹");
}

/* Whatever the range: in it, in order, as many as asked for, all different, and each
 * label is the value but for the factor. */
TEST(LinearTicks, AgreeWithTheirLabelsForAnyRange) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> power(-40.0, 70.0), part(-1.0, 1.0);
  for (int i = 0; i < 3000; i++) {
    const double size = std::pow(10.0, power(random));
    const double low = part(random) * size;
    const double high = low + size * std::pow(10.0, -5.0 * std::abs(part(random)));
    const int count = 2 + i % 6;
    const Ticks ticks = linear_ticks(low, high, count);
    ASSERT_GE(ticks.ticks.size(), 2U) << low << " " << high;
    ASSERT_LE(ticks.ticks.size(), 5U + static_cast<unsigned>(std::max(0, count - 3)));
    std::set<std::string> seen;
    double before = low - size, ratio = 0.0;
    for (const Tick &tick : ticks.ticks) {
      ASSERT_TRUE(tick.value >= low && tick.value <= high && tick.value > before);
      before = tick.value;
      ASSERT_TRUE(seen.insert(tick.label).second) << tick.label;
      std::string text = tick.label;
      if (text.starts_with("−")) text.replace(0, std::string("−").size(), "-");
      double shown = 0.0;
      ASSERT_TRUE(parse_real(text, shown)) << text;
      if (shown == 0.0) continue;
      if (ratio == 0.0) ratio = tick.value / shown;
      ASSERT_NEAR(tick.value / shown / ratio, 1.0, 1e-3) << text;
    }
  }
}

TEST(LogTicks, LabelDecadesAndMarkTheDigitsBetween) {
  const Ticks ticks = log_ticks(0.01, 100.0, 8);
  EXPECT_THAT(labels(ticks), ElementsAre("0.01", "0.1", "1", "10", "100"));
  EXPECT_EQ(ticks.ticks.size(), 4U * 9U + 1U);
  EXPECT_THAT(labels(log_ticks(0.9, 60.0, 8)),
              ElementsAre("1", "2", "5", "10", "20", "50"));
  EXPECT_THAT(labels(log_ticks(1e-8, 3e2, 6)),
              ElementsAre("10⁻⁸", "10⁻⁶", "10⁻⁴", "10⁻²", "10⁰", "10²"));
  EXPECT_THAT(labels(log_ticks(3.0, 4.1, 5)), ElementsAre("3.0", "3.5", "4.0"));
}

TEST(DegreeTicks, CrossTheDateLine) {
  EXPECT_THAT(labels(degree_ticks(145.0, 215.0, 6, TickForm::kLongitude)),
              ElementsAre("150°E", "165°E", "180°", "165°W", "150°W"));
  EXPECT_THAT(labels(degree_ticks(-1.2, 1.1, 5, TickForm::kLatitude)),
              ElementsAre("1.0°S", "0.5°S", "0.0°", "0.5°N", "1.0°N"));
}

double at(const char *text) {
  double epoch = 0.0;
  EXPECT_TRUE(parse_date_text(text, epoch)) << text;
  return epoch;
}

struct TimeCase {
  const char *name, *low, *high;
  int count;
  std::vector<std::string> labels;
};
void PrintTo(const TimeCase &c, std::ostream *os) { *os << c.low << " to " << c.high; }
class TimeTicks : public testing::TestWithParam<TimeCase> {};

TEST_P(TimeTicks, FollowTheClockAndTheCalendar) {
  const TimeCase &c = GetParam();
  EXPECT_EQ(labels(time_ticks(at(c.low), at(c.high), c.count)), c.labels);
}
INSTANTIATE_TEST_SUITE_P(
    Steps, TimeTicks,
    testing::Values(
        TimeCase{"Milliseconds",
                 "2015-08-12T10:00:59.994",
                 "2015-08-12T10:01:00.005",
                 3,
                 {"2015-08-12 10:00 | 59.995", "2015-08-12 10:01 | 00.000", "00.005"}},
        TimeCase{"Seconds",
                 "2015-08-12T10:00:00",
                 "2015-08-12T10:00:31",
                 3,
                 {"2015-08-12 | 10:00:00", "10:00:15", "10:00:30"}},
        TimeCase{"OverMidnight",
                 "2015-08-12T23:10:00",
                 "2015-08-13T00:50:00",
                 6,
                 {"2015-08-12 | 23:30", "2015-08-13 | 00:00", "00:30"}},
        TimeCase{"LeapDay",
                 "2016-02-28T01:00:00",
                 "2016-03-02T01:00:00",
                 4,
                 {"2016 | 29 Feb", "1 Mar", "2 Mar"}},
        TimeCase{"FiveDays",
                 "2015-12-25",
                 "2016-01-12",
                 5,
                 {"2015 | 26 Dec", "2016 | 1 Jan", "6 Jan", "11 Jan"}},
        TimeCase{"Months", "2014-11-15", "2015-06-02", 5, {"2015 | Jan", "Mar", "May"}},
        TimeCase{"Years",
                 "1995-06-01",
                 "2020-01-01",
                 6,
                 {"2000", "2005", "2010", "2015", "2020"}}),
    [](const auto &test) { return test.param.name; });

TEST(TimeTicks, SuitAnyStretchFromMicrosecondsToCenturies) {
  std::mt19937 random(3);
  std::uniform_real_distribution<double> power(-5.0, 10.5), start(-2e9, 4e9);
  for (int i = 0; i < 3000; i++) {
    const double length = std::pow(10.0, power(random));
    /* Microseconds are beyond the doubles of today's times. */
    const double low = length < 1e-3 ? start(random) / 1e7 : start(random);
    const Ticks ticks = time_ticks(low, low + length, 8);
    ASSERT_GE(ticks.ticks.size(), 2U) << low << " " << length;
    ASSERT_LE(ticks.ticks.size(), 9U) << low << " " << length;
    std::string context;
    std::set<std::string> seen;
    double before = low - 1.0;
    for (const Tick &tick : ticks.ticks) {
      ASSERT_TRUE(tick.value >= low && tick.value <= low + length &&
                  tick.value > before);
      before = tick.value;
      if (!tick.context.empty()) context = tick.context;
      ASSERT_TRUE(seen.insert(context + tick.label).second) << context << tick.label;
    }
  }
}

TEST(TimeTicks, AreNumbersBeyondTheCalendar) {
  EXPECT_EQ(time_ticks(0.0, 1e15, 4).factor, "×10¹⁵");
  EXPECT_THAT(time_ticks(-1e299, 1e299, 4).ticks, testing::Not(IsEmpty()));
}

}  // namespace
}  // namespace ksutil::plot
