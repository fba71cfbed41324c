/* Locations and associations rest on these times: an error of a second moves an epicentre
 * by ten kilometres, and nobody sees where it came from. */
#include <gmock/gmock.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "platform/traveltime/traveltime.h"
#include "tests/platform/traveltime/reference_rays.h"

namespace ksutil::traveltime {
namespace {

struct AccuracyCase {
  const char *name;
  Model model;
  Wave wave;
};

class TraveltimeAccuracy : public testing::TestWithParam<AccuracyCase> {
 protected:
  ReferenceModel reference() const {
    const auto &[name, model, wave] = GetParam();
    return model == Model::kIasp91 ? reference_iasp91(wave) : reference_ak135(wave);
  }
  static Arrival arrival(double delta, double depth) {
    Arrival result;
    EXPECT_TRUE(first_arrival(GetParam().model, GetParam().wave, delta, depth, result));
    return result;
  }
  /* Beside a step, which the models put up to 0.02 degrees apart, the times of both sides
   * are right; where steps may be is tested with the curves. */
  static bool near_step(double delta, double depth) {
    if (delta < 100.0) return false;
    const Arrival left = arrival(delta - 0.05, depth);
    const Arrival right = arrival(delta + 0.05, depth);
    return std::abs(right.time - left.time - 0.1 * left.slowness) > 0.5;
  }
};

/* Depths at and beside the discontinuities, where tables are hardest, and between. */
std::vector<double> sample_depths(std::mt19937 &random) {
  std::vector<double> depths = {0.0,   0.2,   10.0,  19.97, 20.0,  20.03, 34.9,  35.0,
                                35.3,  118.7, 119.9, 120.2, 208.9, 210.0, 211.0, 408.0,
                                410.0, 411.3, 657.5, 660.0, 661.0, 700.0};
  for (int i = 0; i < 10; ++i) {
    depths.push_back(std::uniform_real_distribution<>(0, 60)(random));
    depths.push_back(std::uniform_real_distribution<>(60, 700)(random));
  }
  return depths;
}

TEST_P(TraveltimeAccuracy, AgreesWithRayIntegrals) {
  std::mt19937 random(20240611);
  const ReferenceModel model = reference();
  int count = 0, rough = 0;
  const std::vector<double> depths = sample_depths(random);
  /* The reference for a model of many linear pieces is slow. */
  const std::size_t stride = GetParam().model == Model::kIasp91 ? 1 : 4;
  for (std::size_t d = 0; d < depths.size(); d += stride) {
    const double depth = depths[d];
    const ReferenceRays rays(model, depth);
    for (int i = 0; i < 75; ++i) {
      const double range = i % 3 == 0 ? 178.0 : (i % 3 == 1 ? 30.0 : 3.0);
      const double delta = std::uniform_real_distribution<>(0.001, range)(random);
      if (near_step(delta, depth)) continue;
      /* The rounded coefficients leave a shadow of 0.2 degrees below 2740 km. */
      const double expected = rays.first_time(delta);
      if (std::isinf(expected)) continue;
      const Arrival found = arrival(delta, depth);
      const double error = std::abs(found.time - expected);
      EXPECT_LT(error, 0.2) << delta << " degrees, " << depth << " km, " << found.phase;
      ++count;
      rough += error > 0.05 ? 1 : 0;
    }
  }
  EXPECT_GT(count, stride == 1 ? 3000 : 750);
  EXPECT_LT(rough, count / 100);
}

std::string accuracy_name(const testing::TestParamInfo<AccuracyCase> &info) {
  return info.param.name;
}
INSTANTIATE_TEST_SUITE_P(
    All, TraveltimeAccuracy,
    testing::Values(AccuracyCase{"Iasp91P", Model::kIasp91, Wave::kP},
                    AccuracyCase{"Iasp91S", Model::kIasp91, Wave::kS},
                    AccuracyCase{"Ak135P", Model::kAk135, Wave::kP},
                    AccuracyCase{"Ak135S", Model::kAk135, Wave::kS}),
    accuracy_name);

/* Through the centre: the published time of PKIKP at the antipode, and the crust by hand. */
TEST(TraveltimeAccuracy, KnowsVerticalTimes) {
  Arrival arrival;
  ASSERT_TRUE(first_arrival(Model::kIasp91, Wave::kP, 180.0, 0.0, arrival));
  EXPECT_NEAR(arrival.time, 1212.1, 0.05);
  EXPECT_NEAR(arrival.slowness, 0.0, 1e-6);
  ASSERT_TRUE(first_arrival(Model::kIasp91, Wave::kS, 0.0, 35.0, arrival));
  EXPECT_NEAR(arrival.time, 20.0 / 3.36 + 15.0 / 3.75, 1e-4);
  EXPECT_NEAR(arrival.slowness, 0.0, 1e-6);
}

}  // namespace
}  // namespace ksutil::traveltime
