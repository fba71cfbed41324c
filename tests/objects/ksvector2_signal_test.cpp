/* A filter that is off at its corner, shifts phases or rings at a gap changes arrival times
 * and magnitudes that are measured on its output, and nobody sees it in the plot. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <limits>
#include <numbers>
#include <numeric>

#include "objects/ksvector2_support.h"

namespace {

using std::numbers::pi;
using testing::DoubleNear;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::Pointwise;

const double kGap = 1e31;
const double kRate = 100;

class Ksvector2Signal : public Ksvector2Test {
 protected:
  void make(const std::vector<double> &samples) {
    series.reset(ksvector2_create_tsamp(static_cast<int>(samples.size()),
                                        samples.data(), nullptr, tag, 0, kRate));
  }
  std::vector<double> samples() const {
    return {series->data, series->data + series->npts};
  }
  std::vector<double> filtered(const std::vector<double> &input, double flow,
                               double fhigh, int order, int zero_phase) {
    make(input);
    EXPECT_EQ(ksvector2_filter(tag, flow, fhigh, order, zero_phase), 0);
    return samples();
  }

  char tag[KS_TAG_SIZE] = "";
  OwnedVector series;
};

TEST_F(Ksvector2Signal, FillsGapsOnTheLineUpToTheirLimit) {
  const std::vector<double> input = {kGap, 1, kGap, 3, kGap, kGap, kGap, 7, kGap};
  make(input);
  EXPECT_EQ(ksvector2_fill(tag, "linear", 0, 2), 1);
  EXPECT_THAT(samples(), ElementsAre(kGap, 1, 2, 3, kGap, kGap, kGap, 7, kGap));
  EXPECT_EQ(ksvector2_fill(tag, "linear", 0, 0), 3);
  EXPECT_THAT(samples(), ElementsAre(kGap, 1, 2, 3, 4, 5, 6, 7, kGap));
  EXPECT_EQ(ksvector2_fill(tag, "value", -9, 1), 2);
  EXPECT_THAT(samples(), ElementsAre(-9, 1, 2, 3, 4, 5, 6, 7, -9));
}

TEST_F(Ksvector2Signal, RefusesWhatCannotFill) {
  make({1, kGap});
  EXPECT_EQ(ksvector2_fill(tag, "spline", 0, 0), -1);
  EXPECT_EQ(ksvector2_fill(tag, nullptr, 0, 0), -1);
  EXPECT_EQ(ksvector2_fill(tag, "value", kGap, 0), -1);
  const OwnedVector points(ksvector2_create(1, 1, nullptr, tag));
  EXPECT_EQ(ksvector2_fill(tag, "value", 0, 0), -1);
  EXPECT_EQ(ksvector2_filter(tag, 1, 0, 2, 0), -1);
  EXPECT_THAT(taken_messages(),
              HasSubstr("ksvector2_filter: Not a time-sampled vector.\n"));
}

struct Design {
  double flow, fhigh;
  int order;
};

/* Theory: the power response of the analogue filter at the warped frequency. */
double power(const Design &design, double frequency) {
  const auto warped = [](double f) { return std::tan(pi * f / kRate); };
  const double w = warped(frequency), low = warped(design.flow),
               high = warped(design.fhigh);
  double x = 0;
  if (design.flow > 0 && design.fhigh > 0) {
    x = (w * w - low * high) / ((high - low) * w);
  } else {
    x = design.flow > 0 ? low / w : w / high;
  }
  return 1 / (1 + std::pow(x, 2 * design.order));
}

/* The Fourier transform at one frequency, with time 0 at `origin`. */
std::complex<double> transform(const std::vector<double> &samples, double frequency,
                               int origin) {
  std::complex<double> sum;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    sum += samples[i] * std::polar(1.0, -2 * pi * frequency / kRate *
                                            (static_cast<double>(i) - origin));
  }
  return sum;
}

class Ksvector2Filter : public Ksvector2Signal,
                        public testing::WithParamInterface<Design> {};

TEST_P(Ksvector2Filter, HasTheAmplitudesOfTheoryAndNoPhaseBothWays) {
  const Design &design = GetParam();
  const auto [flow, fhigh, order] = design;
  const int at = 6000;
  std::vector<double> impulse(2 * at + 1, 0.0);
  impulse[at] = 1;
  const std::vector<double> causal = filtered(impulse, flow, fhigh, order, 0);
  const std::vector<double> both = filtered(impulse, flow, fhigh, order, 1);
  EXPECT_EQ(std::count(causal.begin(), causal.begin() + at, 0.0), at);
  for (const double f : {0.05, 0.5, 1.0, 2.0, 4.0, 5.0, 8.0, 16.0, 30.0, 49.0}) {
    const double theory = power(design, f);
    EXPECT_NEAR(std::norm(transform(causal, f, at)), theory, 1e-9) << f;
    const std::complex<double> whole = transform(both, f, at);
    EXPECT_NEAR(whole.real(), theory, 1e-9) << f;
    EXPECT_NEAR(whole.imag(), 0, 1e-9) << f;
  }
  for (const double corner : {flow, fhigh}) {
    if (corner <= 0) continue;
    EXPECT_NEAR(10 * std::log10(std::norm(transform(causal, corner, at))), -3.0103,
                1e-4);
  }
  if (flow > 0 && fhigh <= 0) {  // an octave below costs 6 dB an order
    const double ratio = std::abs(transform(causal, flow / 8, at)) /
                         std::abs(transform(causal, flow / 16, at));
    EXPECT_NEAR(20 * std::log10(ratio), 6.02 * order, 0.06 * order);
  }
}

INSTANTIATE_TEST_SUITE_P(Designs, Ksvector2Filter,
                         testing::Values(Design{0, 5, 1}, Design{0, 5, 4},
                                         Design{0, 30, 10}, Design{2, 0, 1},
                                         Design{2, 0, 3}, Design{8, 0, 10},
                                         Design{1, 4, 1}, Design{1, 4, 2},
                                         Design{2, 8, 5}, Design{1, 45, 3},
                                         Design{5, 30, 10}));

TEST_F(Ksvector2Signal, AnOffsetMakesNoStep) {
  const std::vector<double> level(50, 1000.0);
  const std::vector<double> zeros(50, 0.0);
  for (const int zero_phase : {0, 1}) {
    EXPECT_THAT(filtered(level, 0, 0.01, 4, zero_phase),
                Pointwise(DoubleNear(1e-6), level));
    EXPECT_THAT(filtered(level, 0.01, 0, 4, zero_phase),
                Pointwise(DoubleNear(1e-6), zeros));
    EXPECT_THAT(filtered(level, 0.1, 10, 3, zero_phase),
                Pointwise(DoubleNear(1e-6), zeros));
  }
}

TEST_F(Ksvector2Signal, GapsAreBordersOfWhatIsFiltered) {
  std::vector<double> first(300), second(200);
  for (std::size_t i = 0; i < first.size(); ++i)
    first[i] = std::sin(0.01 * static_cast<double>(i * i));
  std::iota(second.begin(), second.end(), 5.0);
  std::vector<double> whole = first;
  whole.insert(whole.end(), {kGap, kGap, std::numeric_limits<double>::quiet_NaN()});
  whole.insert(whole.end(), second.begin(), second.end());
  whole.push_back(kGap);
  for (const int zero_phase : {0, 1}) {
    std::vector<double> result = filtered(whole, 1, 10, 4, zero_phase);
    EXPECT_EQ(result[300], kGap);
    EXPECT_EQ(result.back(), kGap);
    EXPECT_TRUE(std::isnan(result[302]));
    const std::vector<double> head(result.begin(), result.begin() + 300);
    const std::vector<double> rest(result.begin() + 303, result.end() - 1);
    EXPECT_THAT(head, ElementsAreArray(filtered(first, 1, 10, 4, zero_phase)));
    EXPECT_THAT(rest, ElementsAreArray(filtered(second, 1, 10, 4, zero_phase)));
  }
}

TEST_F(Ksvector2Signal, RefusesFiltersThatDoNotExist) {
  const std::vector<double> input = {1, 2, 3};
  make(input);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const Design wrong[] = {{0, 0, 2}, {50, 0, 2}, {0, 1e300, 2}, {1e-6, 0, 2}, {5, 5, 2},
                          {6, 5, 2}, {1, 2, 0},  {1, 2, 11},    {nan, 0, 2}};
  for (const auto &[flow, fhigh, order] : wrong) {
    elog_clear_register(0);
    EXPECT_EQ(ksvector2_filter(tag, flow, fhigh, order, 1), -1) << flow << " " << fhigh;
    EXPECT_THAT(taken_messages(), HasSubstr("ksvector2_filter: "));
  }
  EXPECT_EQ(samples(), input);
  ksvector2_filter(tag, 1, 50, 2, 0);
  EXPECT_THAT(
      taken_messages(),
      HasSubstr("Corner frequency 50 is not below half the sample rate, 50.\n"));
}

}  // namespace
