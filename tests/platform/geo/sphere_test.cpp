/* Distances decide which travel times, stations and events belong together; the textbook
 * formula loses all digits for near points and near antipodes, which is where arrays and
 * core phases are. */
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>

#include "platform/geo/geo.h"

namespace {

using std::numbers::pi;

struct Course {
  double delta = -1, azimuth = -1;
};

Course course(double lat1, double lon1, double lat2, double lon2) {
  Course c;
  dist(lat1, lon1, lat2, lon2, &c.delta, &c.azimuth);
  return c;
}

/* The end of a great circle, in extended precision, from the direct formula. */
void travel(double lat1, double lon1, double delta, double azimuth, double &lat2,
            double &lon2) {
  const long double p = lat1, d = delta, a = azimuth;
  const long double sine =
      std::sin(p) * std::cos(d) + std::cos(p) * std::sin(d) * std::cos(a);
  const long double x =
      std::cos(p) * std::cos(d) - std::sin(p) * std::sin(d) * std::cos(a);
  const long double y = std::sin(d) * std::sin(a);
  lat2 = static_cast<double>(std::atan2(sine, std::hypot(x, y)));
  lon2 = static_cast<double>(static_cast<long double>(lon1) + std::atan2(y, x));
}

double turn(double a, double b) { return std::fabs(std::remainder(a - b, 2.0 * pi)); }

TEST(Sphere, FindsTheCourseThatWasTravelled) {
  std::mt19937 random(4);
  std::uniform_real_distribution<double> latitude(-1.5, 1.5), angle(0.0, 2.0 * pi);
  for (const double scale : {1.57e-7, 1e-3, 0.5, 3.1, pi - 1.57e-7}) {
    for (int i = 0; i < 2000; ++i) {
      const double lat1 = latitude(random), lon1 = angle(random) - pi;
      const double azimuth = angle(random);
      double lat2 = 0, lon2 = 0;
      travel(lat1, lon1, scale, azimuth, lat2, lon2);
      const Course found = course(lat1, lon1, lat2, lon2);
      ASSERT_NEAR(found.delta, scale, 2e-15);
      /* The coordinates are rounded to 1e-16 or so, which turns a short course. */
      ASSERT_LT(turn(found.azimuth, azimuth), 2e-14 / std::sin(scale));
      ASSERT_TRUE(found.azimuth >= 0.0 && found.azimuth < 2.0 * pi);
    }
  }
}

TEST(Sphere, HoldsAtPolesAntipodesAndCoincidence) {
  const double north = pi / 2.0;
  EXPECT_NEAR(course(north, 0.3, -north, 2.0).delta, pi, 1e-15);
  EXPECT_NEAR(course(north, 0.0, 0.0, 0.5).azimuth, pi - 0.5, 1e-15);
  EXPECT_EQ(course(0.2, 0.3, north, 1.0).azimuth < 1e-15, true);
  EXPECT_NEAR(course(0.2, 0.3, -north, 1.0).azimuth, pi, 1e-15);
  EXPECT_NEAR(course(0.5, 1.0, -0.5, 1.0 - pi).delta, pi, 1e-15);
  EXPECT_EQ(course(0.5, 1.0, 0.5, 1.0).delta, 0.0);
  EXPECT_EQ(course(0.5, 1.0, 0.5, 1.0).azimuth, 0.0);
  EXPECT_EQ(course(north, 0.0, north, 2.0).azimuth, 0.0);
  EXPECT_NEAR(course(0.0, 3.0, 0.0, -3.0).delta, 2.0 * pi - 6.0, 1e-15);
  EXPECT_NEAR(course(0.0, 3.0, 0.0, -3.0).azimuth, pi / 2.0, 1e-15);
  EXPECT_LT(course(0.0, 0.0, 1.0, -1e-20).azimuth, 2.0 * pi);
}

/* A metre east at 60 degrees north: the chord of the parallel gives the exact value. */
TEST(Sphere, KeepsTwelveDigitsForPointsAMetreApart) {
  const double lat = pi / 3.0, dlon = 3.14e-7;
  const double expected = 2.0 * std::asin(std::cos(lat) * std::sin(dlon / 2.0));
  EXPECT_NEAR(course(lat, 0.0, lat, dlon).delta / expected, 1.0, 1e-12);
}

TEST(Sphere, PassesOnWhatIsNotANumber) {
  EXPECT_TRUE(std::isnan(course(NAN, 0, 0, 0).delta));
  EXPECT_TRUE(std::isnan(course(0, 0, 0, INFINITY).azimuth));
  dist(0, 0, 1, 1, nullptr, nullptr);
}

TEST(Sphere, GivesDegrees) {
  EXPECT_NEAR(ksutil::distance_degrees(0, 0, 0, 90), 90.0, 1e-12);
  EXPECT_NEAR(ksutil::azimuth_degrees(0, 0, 0, -90), 270.0, 1e-12);
  EXPECT_LT(ksutil::azimuth_degrees(0, 0, 1, -1e-18), 360.0);
}

}  // namespace
