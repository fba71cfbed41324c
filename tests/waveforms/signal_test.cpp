/* Transforms stand between every count and every measured amplitude: a wrong scale, sign or
 * time shift is not seen in the picture of a seismogram. */
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "waveforms/signal.h"

namespace {

using namespace ksutil;
using Complex = std::complex<double>;
using std::numbers::pi;

std::vector<double> noise(std::size_t n, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal;
  std::vector<double> samples(n);
  for (double &sample : samples) sample = normal(random);
  return samples;
}

TEST(SignalFourier, IsTheSumAndItsInverse) {
  const std::vector<double> re = noise(64, 1), im = noise(64, 2);
  std::vector<Complex> values;
  for (std::size_t i = 0; i < 64; ++i) values.emplace_back(re[i], im[i]);
  const std::vector<Complex> before = values;
  fourier_transform(values, false);
  for (const std::size_t k : {0U, 1U, 31U, 32U, 63U}) {
    Complex sum = 0;
    for (std::size_t j = 0; j < 64; ++j) {
      sum += before[j] * std::polar(1.0, -2 * pi * static_cast<double>(j * k) / 64);
    }
    EXPECT_LT(std::abs(values[k] - sum), 1e-12);
  }
  fourier_transform(values, true);
  for (std::size_t i = 0; i < 64; ++i) {
    EXPECT_LT(std::abs(values[i] - before[i]), 1e-14);
  }
}

/* The ground moves as a pulse; a pendulum of 1 Hz is integrated step by step, which has
 * nothing in common with the response in frequency. */
TEST(SignalDeconvolution, FindsTheMotionOfAPendulum) {
  const double dt = 0.01, w = 2 * pi, h = 0.7, gain = 400.0;
  const auto velocity = [](double t) {
    const double x = (t - 40.0) / 0.5;
    return 1e-5 * x * std::exp(-x * x / 2);
  };
  std::vector<double> counts, expected;
  double q = 0, p = 0;  // q'' + 2 h w q' + w^2 q = v
  const auto force = [&](double t, double at, double speed) {
    return velocity(t) - 2 * h * w * speed - w * w * at;
  };
  const int kSteps = 20;
  for (int i = 0; i < 8000; ++i) {
    const double t = i * dt;
    counts.push_back(gain * force(t, q, p));
    expected.push_back(velocity(t));
    const double s = dt / kSteps;
    for (int j = 0; j < kSteps; ++j) {
      const double u = t + j * s;
      const double p1 = p, f1 = force(u, q, p);
      const double p2 = p + s / 2 * f1, f2 = force(u + s / 2, q + s / 2 * p1, p2);
      const double p3 = p + s / 2 * f2, f3 = force(u + s / 2, q + s / 2 * p2, p3);
      const double p4 = p + s * f3, f4 = force(u + s, q + s * p3, p4);
      q += s / 6 * (p1 + 2 * p2 + 2 * p3 + p4);
      p += s / 6 * (f1 + 2 * f2 + 2 * f3 + f4);
    }
  }
  const auto response = [&](double f) {
    const Complex s(0, 2 * pi * f);
    return gain * s * s / (s * s + 2 * h * w * s + w * w);
  };
  Deconvolution how;
  how.corners = {0.005, 0.01, 20, 40};
  std::string problem;
  ASSERT_TRUE(deconvolve(counts, 100.0, response, how, problem)) << problem;
  double worst = 0;
  for (std::size_t i = 0; i < counts.size(); ++i) {
    worst = std::max(worst, std::abs(counts[i] - expected[i]));
  }
  EXPECT_LT(worst, 0.01 * 1e-5);
}

/* A water level of 20 dB lets a response amplify by no more than 10 in its pass band. */
TEST(SignalDeconvolution, WaterLevelAndPreFilter) {
  const auto response = [](double f) { return Complex(f < 1 ? 1e-6 : 2.0, 0.0); };
  const auto amplitude = [&](double f, const Deconvolution &how) {
    std::vector<double> samples;
    for (int i = 0; i < 4096; ++i) samples.push_back(std::sin(2 * pi * f * i / 32.0));
    std::string problem;
    EXPECT_TRUE(deconvolve(samples, 32.0, response, how, problem)) << problem;
    double largest = 0;
    for (int i = 1500; i < 2500; ++i) {
      largest = std::max(largest, std::abs(samples[static_cast<std::size_t>(i)]));
    }
    return largest;
  };
  Deconvolution how;
  how.taper = 0.5;  // little of a tone leaks into where the response is small
  how.water_level = 20;
  EXPECT_NEAR(amplitude(4, how), 0.5, 1e-3);
  EXPECT_NEAR(amplitude(0.5, how), 1e-6 / 0.04, 2e-6);
  how.corners = {2, 3, 5, 7};
  EXPECT_NEAR(amplitude(4, how), 0.5, 1e-3);
  EXPECT_NEAR(amplitude(6, how), 0.25, 1e-2);  // half-way down the cosine
  EXPECT_LT(amplitude(1.5, how), 1e-2);
  std::vector<double> none(8, 1.0);
  std::string problem;
  how.corners = {3, 2, 5, 7};
  EXPECT_FALSE(deconvolve(none, 32.0, response, how, problem));
  EXPECT_EQ(none, std::vector<double>(8, 1.0));
}

TEST(SignalDeconvolution, GapsStay) {
  std::vector<double> samples = noise(500, 3);
  samples[200] = samples[201] = 1e34;
  std::string problem;
  ASSERT_TRUE(deconvolve(
      samples, 10.0, [](double) { return Complex(2.0); }, {}, problem));
  EXPECT_GT(samples[200], 1e30);
  EXPECT_GT(samples[201], 1e30);
  for (std::size_t i = 0; i < 500; ++i) {
    if (i != 200 && i != 201) {
      EXPECT_LT(std::abs(samples[i]), 10.0);
    }
  }
}

/* 7 Hz passes from 100 to 40 Hz and up to 250 Hz at its times; 30 Hz would show as 10. */
TEST(SignalResample, KeepsTonesAndStopsAliases) {
  const auto tone = [](double f, double rate, std::size_t n) {
    std::vector<double> samples;
    for (std::size_t i = 0; i < n; ++i) {
      samples.push_back(std::sin(2 * pi * f * static_cast<double>(i) / rate));
    }
    return samples;
  };
  std::vector<double> result;
  std::string problem;
  for (const double rate : {40.0, 250.0, 33.3}) {
    ASSERT_TRUE(resample(tone(7, 100, 3001), 100, rate, result, problem)) << problem;
    ASSERT_EQ(result.size(), static_cast<std::size_t>(30 * rate + 1e-6) + 1);
    for (std::size_t i = result.size() / 5; i < result.size() * 4 / 5; ++i) {
      EXPECT_NEAR(result[i], std::sin(2 * pi * 7 * static_cast<double>(i) / rate),
                  2e-4);
    }
  }
  ASSERT_TRUE(resample(tone(30, 100, 3001), 100, 40, result, problem));
  for (std::size_t i = 300; i < 900; ++i) EXPECT_LT(std::abs(result[i]), 2e-4);
  EXPECT_FALSE(resample(result, 100, 0.05, result, problem));
  std::vector<double> gap(100, 5.0);
  gap[50] = 1e34;
  ASSERT_TRUE(resample(gap, 10, 20, result, problem));
  EXPECT_GT(result[100], 1e30);
  EXPECT_GT(result[99], 1e30);
  EXPECT_NEAR(result[98], 5.0, 1e-9);
  EXPECT_NEAR(result[102], 5.0, 1e-9);
}

/* Three oblique sensors at 54.7 degrees from upward, as in some boreholes and vaults. */
TEST(SignalRotation, ObliqueSensorsGiveZrt) {
  const double vang = std::acos(1 / std::sqrt(3.0)) * 180 / pi;
  const std::array<Orientation, 3> sensors{{{90, vang}, {210, vang}, {330, vang}}};
  const double up = 3, north = -2, east = 5, seaz = 200;
  std::array<std::vector<double>, 3> data;
  std::array<std::span<double>, 3> spans;
  for (std::size_t i = 0; i < 3; ++i) {
    const double hang = sensors[i].hang * pi / 180, v = vang * pi / 180;
    data[i] = {up * std::cos(v) +
                   std::sin(v) * (north * std::cos(hang) + east * std::sin(hang)),
               i == 1 ? 1e34 : 7.0};
    spans[i] = data[i];
  }
  std::string problem;
  ASSERT_TRUE(rotate_to_zrt(sensors, seaz, spans, problem)) << problem;
  const double r = (seaz + 180) * pi / 180, t = (seaz + 270) * pi / 180;
  EXPECT_NEAR(data[0][0], up, 1e-12);
  EXPECT_NEAR(data[1][0], north * std::cos(r) + east * std::sin(r), 1e-12);
  EXPECT_NEAR(data[2][0], north * std::cos(t) + east * std::sin(t), 1e-12);
  for (const auto &each : data) EXPECT_GT(each[1], 1e30);
  const std::array<Orientation, 3> plane{{{0, 90}, {90, 90}, {45, 90}}};
  EXPECT_FALSE(rotate_to_zrt(plane, seaz, spans, problem));
}

/* The integral over frequency is the variance; a tone stands at its frequency. */
TEST(SignalSpectrum, HoldsTheVariance) {
  std::vector<double> samples = noise(20000, 4), frequencies, density;
  for (double &sample : samples) sample = 3 * sample + 100;
  std::string problem;
  ASSERT_TRUE(power_spectrum(samples, 50, 1000, frequencies, density, problem));
  ASSERT_EQ(density.size(), 256U);
  EXPECT_DOUBLE_EQ(frequencies.back(), 25.0);
  double sum = 0;
  for (const double each : density) sum += each * 50 / 512;
  EXPECT_NEAR(sum, 9.0, 0.3);
  samples.assign(100, 1e34);
  EXPECT_FALSE(power_spectrum(samples, 50, 64, frequencies, density, problem));
}

TEST(SignalOnsets, BeginAnewBehindGapsAndEvents) {
  std::vector<double> samples = noise(6000, 5);
  for (double &sample : samples) sample += 5000;  // an offset is not energy
  for (const std::size_t at : {2000U, 4500U}) {
    for (std::size_t i = at; i < at + 300; ++i) {
      samples[i] += 30 * std::sin(0.7 * static_cast<double>(i));
    }
  }
  for (std::size_t i = 3000; i < 3100; ++i) samples[i] = 1e34;
  const std::vector<Onset> onsets = find_onsets(samples, 20.0, {});
  ASSERT_EQ(onsets.size(), 2U);
  EXPECT_NEAR(static_cast<double>(onsets[0].sample), 2000, 3);
  EXPECT_NEAR(static_cast<double>(onsets[1].sample), 4500, 3);
  EXPECT_GE(onsets[0].ratio, 6.0);
  EXPECT_TRUE(find_onsets(std::span<const double>(), 20.0, {}).empty());
}

}  // namespace
