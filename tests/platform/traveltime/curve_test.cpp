/* A step, a fold or a wrong slope in the travel-time surface throws iterative locations
 * off their path. */
#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "platform/traveltime/traveltime.h"

namespace ksutil::traveltime {
namespace {

struct CurveCase {
  const char *name;
  Model model;
  Wave wave;
  double slowest;  // velocity, km/s
};

class TraveltimeCurve : public testing::TestWithParam<CurveCase> {
 protected:
  static Arrival arrival(double delta, double depth) {
    Arrival result;
    EXPECT_TRUE(first_arrival(GetParam().model, GetParam().wave, delta, depth, result));
    return result;
  }
};

/* P-type times rise where the diffracted waves end, and fall where PKP begins at the
 * caustic of the outer core, a little ahead of PKIKP. */
bool step_between(const Arrival &left, const Arrival &right) {
  const std::string phases = std::string(left.phase) + " " + right.phase;
  const double step = right.time - left.time;
  if (phases == "Pdiff PKIKP") return step > 200.0 && step < 300.0;
  return phases == "PKIKP PKP" && step < 0.0 && step > -4.0;
}

TEST_P(TraveltimeCurve, RisesAtItsSlowness) {
  constexpr double kStep = 0.01;
  for (const double depth :
       {0.0, 0.3, 19.99, 20.0, 33.0, 35.0, 119.6, 150.3, 400.0, 659.9, 700.0}) {
    Arrival last = arrival(0.0, depth);
    int steps = 0;
    for (int i = 1; i <= 18000; ++i) {
      const Arrival next = arrival(i * kStep, depth);
      const double rate = (next.time - last.time) / kStep;
      const bool same_phase = std::string(last.phase) == next.phase;
      if (!same_phase && step_between(last, next)) {
        ++steps;
      } else {
        /* Where one ray overtakes another the slope falls from one's to the other's. */
        const double tolerance = same_phase ? 0.02 : 0.2;
        const auto [low, high] = std::minmax(last.slowness, next.slowness);
        ASSERT_GE(rate, low - tolerance) << i * kStep << " degrees, " << depth << " km";
        ASSERT_LE(rate, high + tolerance)
            << i * kStep << " degrees, " << depth << " km";
      }
      last = next;
    }
    EXPECT_EQ(steps, GetParam().wave == Wave::kP ? 2 : 0) << depth;
  }
}

TEST_P(TraveltimeCurve, HasNoStepsOverDepth) {
  constexpr double kStep = 0.05;
  for (const double delta :
       {0.0, 0.4, 1.2, 3.0, 9.0, 17.0, 22.0, 40.0, 85.0, 100.0, 125.0, 160.0, 180.0}) {
    Arrival last = arrival(delta, 0.0);
    for (int i = 1; i <= 14000; ++i) {
      const Arrival next = arrival(delta, std::min(i * kStep, 700.0));
      ASSERT_LE(std::abs(next.time - last.time), kStep / GetParam().slowest + 2e-3)
          << delta << " degrees, " << i * kStep << " km";
      last = next;
    }
  }
}

std::string curve_name(const testing::TestParamInfo<CurveCase> &info) {
  return info.param.name;
}
INSTANTIATE_TEST_SUITE_P(
    All, TraveltimeCurve,
    testing::Values(CurveCase{"Iasp91P", Model::kIasp91, Wave::kP, 5.8},
                    CurveCase{"Iasp91S", Model::kIasp91, Wave::kS, 3.36},
                    CurveCase{"Ak135P", Model::kAk135, Wave::kP, 5.8},
                    CurveCase{"Ak135S", Model::kAk135, Wave::kS, 3.46}),
    curve_name);

}  // namespace
}  // namespace ksutil::traveltime
