/* What callers see: a phase named wrongly associates with the wrong station picks, and an
 * argument out of range must not read beside the tables. */
#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "platform/traveltime/traveltime.h"

namespace ksutil::traveltime {
namespace {

Arrival iasp91(Wave wave, double delta, double depth) {
  Arrival arrival;
  EXPECT_TRUE(first_arrival(Model::kIasp91, wave, delta, depth, arrival));
  return arrival;
}

struct PhaseCase {
  double delta, depth;
  const char *p, *s;
};

TEST(TraveltimePhase, NamesTheRay) {
  const std::vector<PhaseCase> cases = {
      {1.0, 0.0, "Pg", "Sg"},         {0.1, 10.0, "p", "s"},
      {0.8, 20.0, "Pb", "Sb"},        {5.0, 10.0, "Pn", "Sn"},
      {5.0, 600.0, "p", "s"},         {30.0, 0.0, "P", "S"},
      {90.0, 33.0, "P", "SKS"},       {105.0, 33.0, "Pdiff", "SKS"},
      {150.0, 33.0, "PKIKP", "SKIKS"}};
  for (const PhaseCase &c : cases) {
    EXPECT_STREQ(iasp91(Wave::kP, c.delta, c.depth).phase, c.p) << c.delta;
    EXPECT_STREQ(iasp91(Wave::kS, c.delta, c.depth).phase, c.s) << c.delta;
  }
}

/* The published tables give first arrivals through the inner core from 114 degrees. */
TEST(TraveltimePhase, DiffractedPEndsWherePkikpBegins) {
  EXPECT_STREQ(iasp91(Wave::kP, 113.6, 0.0).phase, "Pdiff");
  EXPECT_STREQ(iasp91(Wave::kP, 113.8, 0.0).phase, "PKIKP");
  /* The diffracted wave keeps the slowness of the ray that grazes the core. */
  const double grazing = 3482.0 / 13.6908 * std::acos(-1.0) / 180.0;
  const Arrival near = iasp91(Wave::kP, 100.0, 0.0);
  const Arrival far = iasp91(Wave::kP, 110.0, 0.0);
  EXPECT_NEAR(far.time - near.time, 10.0 * grazing, 1e-3);
  EXPECT_NEAR(far.slowness, grazing, 1e-3);
}

TEST(TraveltimeRange, CountsTheOtherWayRoundAndAboveTheSurface) {
  EXPECT_EQ(iasp91(Wave::kP, 300.0, 50.0).time, iasp91(Wave::kP, 60.0, 50.0).time);
  EXPECT_EQ(iasp91(Wave::kS, 360.0, 50.0).time, iasp91(Wave::kS, 0.0, 50.0).time);
  EXPECT_EQ(iasp91(Wave::kP, 60.0, -10.0).time, iasp91(Wave::kP, 60.0, 0.0).time);
}

TEST(TraveltimeRange, RefusesWhatLiesOutside) {
  constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const std::vector<std::pair<double, double>> outside = {
      {-0.001, 10}, {360.001, 10},    {kNan, 10},       {10, kNan},
      {10, 700.01}, {10, -10.01},     {kInfinity, 10},  {10, kInfinity},
      {kNan, kNan}, {-kInfinity, 10}, {10, -kInfinity}, {1e300, 1e300}};
  for (const auto &[delta, depth] : outside) {
    Arrival arrival{1.0, 2.0, "kept"};
    EXPECT_FALSE(first_arrival(Model::kIasp91, Wave::kP, delta, depth, arrival));
    EXPECT_EQ(arrival.time, 1.0);
    EXPECT_STREQ(arrival.phase, "kept");
  }
}

TEST(TraveltimeModel, IsFoundByItsExactName) {
  Model model = Model::kIasp91;
  EXPECT_TRUE(find_model("ak135", model));
  EXPECT_EQ(model, Model::kAk135);
  EXPECT_FALSE(find_model("prem", model));
  EXPECT_FALSE(find_model("", model));
  EXPECT_EQ(model, Model::kAk135);
  EXPECT_TRUE(find_model("iasp91", model));
  EXPECT_EQ(model, Model::kIasp91);
}

/* All threads ask while the table is being built. */
TEST(TraveltimeThreads, ShareOneTable) {
  std::vector<double> times(8);
  std::vector<std::thread> threads;
  for (double &time : times) {
    threads.emplace_back([&time] {
      Arrival arrival;
      if (first_arrival(Model::kAk135, Wave::kS, 47.0, 123.0, arrival))
        time = arrival.time;
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_GT(times[0], 800.0);
  EXPECT_THAT(times, testing::Each(times[0]));
}

}  // namespace
}  // namespace ksutil::traveltime
