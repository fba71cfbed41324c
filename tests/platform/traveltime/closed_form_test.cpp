/* Where the velocity is a power of the radius, times have a closed form; a fault in the
 * tables (a source singularity, a wrong row) shows here without any reference program. */
#include <gmock/gmock.h>

#include <cmath>
#include <numbers>
#include <random>
#include <string>

#include "platform/stock/text.h"
#include "platform/traveltime/internal/first_arrival_table.h"

namespace ksutil::traveltime {
namespace {

constexpr double kRadius = 6371.0;
constexpr double kCore = 2900.0;

struct PowerLaw {
  const char *name;
  double surface_velocity, exponent;
  double spacing;  // of the model's points, km

  double velocity(double depth) const {
    return surface_velocity * std::pow((kRadius - depth) / kRadius, exponent);
  }
};

/* A mantle of the power law around a slow core. */
EarthModel make_model(const PowerLaw &law) {
  std::string text = "P\nS\n";
  for (double depth = 0.0; depth <= kCore; depth += law.spacing) {
    const double v = law.velocity(depth);
    text += format_text("%.3f %.12f %.12f 3.0\n", depth, v, v / std::numbers::sqrt3);
  }
  text += "2900 4 0 9\n5100 4 0 9\n5100 5 2 9\n6371 5 2 9\n";
  return parse_tvel(text).value();
}

class PowerLawEarth : public testing::TestWithParam<PowerLaw> {};

/* r^(1-b) and (1-b) delta are polar coordinates in which the rays are straight. */
TEST_P(PowerLawEarth, HasTheTimesOfStraightRays) {
  const PowerLaw &law = GetParam();
  const FirstArrivalTable table(make_model(law), Wave::kP);
  const double scale = 1.0 - law.exponent;
  std::mt19937 random(7);
  for (int i = 0; i < 4000; ++i) {
    const double far = i % 2 == 0 ? 70.0 : 1.5;
    const double deep = i % 4 < 2 ? 700.0 : 30.0;
    const double delta = std::uniform_real_distribution<>(0, far)(random);
    const double depth = std::uniform_real_distribution<>(0, deep)(random);
    const double angle = scale * delta * std::numbers::pi / 180.0;
    const double eta = kRadius / law.surface_velocity;
    const double source = (kRadius - depth) / law.velocity(depth);
    const double expected =
        std::sqrt(eta * eta + source * source - 2 * eta * source * std::cos(angle)) /
        scale;
    const double slowness = eta * source * std::sin(angle) / (expected * scale);
    const Arrival found = table.find(delta, depth);
    /* Half of it is the model's own, whose points are 50 km apart. */
    ASSERT_NEAR(found.time, expected, 0.02) << delta << " degrees, " << depth << " km";
    ASSERT_NEAR(found.slowness, slowness * std::numbers::pi / 180.0, 0.02)
        << delta << " degrees, " << depth << " km";
  }
}

std::string law_name(const testing::TestParamInfo<PowerLaw> &info) {
  return info.param.name;
}
INSTANTIATE_TEST_SUITE_P(All, PowerLawEarth,
                         testing::Values(PowerLaw{"Constant", 8.0, 0.0, 50.0},
                                         PowerLaw{"Steep", 6.0, -1.0, 50.0}),
                         law_name);

}  // namespace
}  // namespace ksutil::traveltime
