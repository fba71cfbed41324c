/* Every row of a catalogue is placed in time by these conversions; a fault at a leap day or
 * at a rounded second moves an event by a minute or a day, and associations break. */
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>

#include "platform/clock/clock.h"

namespace {

struct Human {
  int year = 0, doy = 0, hour = 0, minute = 0;
  double second = 0;
};

Human human(double epoch) {
  Human h;
  e2h(epoch, &h.year, &h.doy, &h.hour, &h.minute, &h.second);
  return h;
}

/* Counts the days one by one, with the leap rule as the calendar's decree gives it. */
TEST(Calendar, AgreesWithCountingDaysFrom1900To2100) {
  const int lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  double epoch = -2208988800.0;  // 1900-01-01, as in the network time protocol
  for (int year = 1900; year <= 2100; ++year) {
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    int doy = 0;
    for (int month = 1; month <= 12; ++month) {
      const int days = lengths[month - 1] + (month == 2 && leap ? 1 : 0);
      for (int day = 1; day <= days; ++day, epoch += 86400.0) {
        ++doy;
        ASSERT_EQ(h2e(year, doy, 0, 0, 0.0), epoch);
        ASSERT_EQ(yearday(epoch + 86399.999), year * 1000 + doy);
        ASSERT_EQ(ksutil::yearday_epoch(year * 1000 + doy), epoch);
        ASSERT_EQ(ksutil::day_of_year(year, month, day), doy);
        int m = 0, d = 0;
        ksutil::month_day(year, doy, m, d);
        ASSERT_EQ(std::pair(m, d), std::pair(month, day));
      }
    }
  }
}

TEST(Calendar, RoundTripsToTheMicrosecond) {
  std::mt19937_64 random(3);
  std::uniform_real_distribution<double> times(-2208988800.0, 4102444800.0);
  for (int i = 0; i < 200000; ++i) {
    const double epoch = times(random);
    const Human h = human(epoch);
    ASSERT_TRUE(h.second >= 0.0 && h.second < 60.0) << epoch;
    ASSERT_TRUE(h.hour >= 0 && h.hour < 24 && h.minute >= 0 && h.minute < 60) << epoch;
    ASSERT_NEAR(h2e(h.year, h.doy, h.hour, h.minute, h.second), epoch, 5e-7);
  }
}

TEST(Calendar, NeverGivesSecondSixty) {
  for (const double minute : {0.0, 60.0, -60.0, 951782400.0, -2208988800.0}) {
    const double below = std::nextafter(minute, -1e300);
    ASSERT_LT(human(below).second, 60.0);
    EXPECT_NEAR(h2e(human(below).year, human(below).doy, human(below).hour,
                    human(below).minute, human(below).second),
                below, 5e-7);
  }
  const Human tiny = human(-1e-20);
  EXPECT_EQ(tiny.year * 1000 + tiny.doy, 1970001);
  EXPECT_EQ(tiny.second, 0.0);
  EXPECT_EQ(yearday(-1e-20), 1970001);
  EXPECT_EQ(yearday(-1e-3), 1969365);
}

TEST(Calendar, ClampsWhatHasNoDate) {
  EXPECT_EQ(human(INFINITY).year, 9999);
  EXPECT_EQ(human(1e300).year, 9999);
  EXPECT_EQ(human(-INFINITY).year, -9999);
  EXPECT_EQ(human(NAN).year, -9999);
  EXPECT_EQ(human(-62135596800.0).year, 1);
  EXPECT_EQ(human(-62167219200.0 - 1.0).year, -1);
  e2h(0.0, nullptr, nullptr, nullptr, nullptr, nullptr);
}

TEST(Calendar, TakesCarries) {
  EXPECT_EQ(h2e(2000, 366, 24, 0, 0.0), h2e(2001, 1, 0, 0, 0.0));
  EXPECT_EQ(h2e(2001, 0, 0, -1, -30.5), h2e(2000, 365, 23, 58, 29.5));
  /* Years far from those of any clock: 400 years are 146,097 days. */
  EXPECT_EQ(h2e(1970 + 400 * 1000, 1, 0, 0, 0.0), 1000 * 146097.0 * 86400.0);
  EXPECT_EQ(h2e(1970 - 400 * 1000, 1, 0, 0, 0.0), -1000 * 146097.0 * 86400.0);
}

TEST(TimeText, RoundsIntoTheNextUnit) {
  EXPECT_EQ(ksutil::time_text(951782399.9994), "2000-02-28T23:59:59.999");
  EXPECT_EQ(ksutil::time_text(951782399.9996), "2000-02-29T00:00:00.000");
  EXPECT_EQ(ksutil::time_text(-0.25, 6), "1969-12-31T23:59:59.750000");
  EXPECT_EQ(ksutil::time_text(1234567890.6, 0), "2009-02-13T23:31:31");
}

double stopped_clock() { return 42.5; }

TEST(Now, IsTheSystemsClockUnlessReplaced) {
  set_clock(stopped_clock);
  EXPECT_EQ(std_now(), 42.5);
  set_clock(nullptr);
  EXPECT_GT(std_now(), 1.7e9);
}

}  // namespace
