#include "objects/vectors/cached/internal/butterworth.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

namespace ksutil {
namespace {

using Complex = std::complex<double>;
using std::numbers::pi;

/* The bilinear transform of a pole. */
Complex digital(Complex s) { return (1.0 + s) / (1.0 - s); }

double prewarped(double corner) { return std::tan(pi * corner); }

/* Numerator and denominator coefficients of a section before its gain is set. */
struct Shape {
  double b1, b2;   // of 1 + b1/z + b2/z^2
  Complex z1, z2;  // poles: conjugate, or both real; 0 for one that is not there
};

/* The poles of the analogue prototype with corner 1, in the upper half plane and, last for
 * an odd order, on the real axis. */
std::vector<Complex> prototype(int order) {
  std::vector<Complex> poles;
  for (int k = 0; k < order / 2; ++k) {
    poles.push_back(std::polar(1.0, pi * (2 * k + order + 1) / (2.0 * order)));
  }
  for (Complex &pole : poles) pole = {pole.real(), std::abs(pole.imag())};
  if (order % 2 != 0) poles.emplace_back(-1.0, 0.0);
  return poles;
}

/* Low or high pass: zeros at z = -1 or z = 1. */
Shape one_sided(Complex s, double zero) {
  if (s.imag() == 0) return {-zero, 0, digital(s), 0};
  return {-2 * zero, 1, digital(s), digital(std::conj(s))};
}

/* Band pass: a zero on each side. */
void add_band(Complex pole, double low, double high, std::vector<Shape> &shapes) {
  const Complex half = pole * (high - low) / 2.0;
  const Complex root = std::sqrt(half * half - low * high);
  const Complex s1 = half + root;
  const Complex s2 = half - root;
  if (pole.imag() == 0) {
    shapes.push_back({0, -1, digital(s1), digital(s2)});
    return;
  }
  for (const Complex s : {s1, s2}) {
    shapes.push_back({0, -1, digital(s), digital(std::conj(s))});
  }
}

}  // namespace

ButterworthFilter::ButterworthFilter(double low, double high, int order) {
  const double wlow = low > 0 ? prewarped(low) : 0;
  const double whigh = high > 0 ? prewarped(high) : 0;
  std::vector<Shape> shapes;
  for (const Complex pole : prototype(order)) {
    if (low > 0 && high > 0) {
      add_band(pole, wlow, whigh, shapes);
    } else if (low > 0) {
      shapes.push_back(one_sided(wlow / pole, 1));
    } else {
      shapes.push_back(one_sided(whigh * pole, -1));
    }
  }
  /* Where the whole filter has gain 1: the middle of the band, half the sample rate, or
   * zero.  So has each section then, which keeps what passes between them in scale. */
  const double angle =
      low > 0 ? (high > 0 ? 2 * std::atan(std::sqrt(wlow * whigh)) : pi) : 0;
  const Complex delay = std::polar(1.0, -angle);
  for (const Shape &shape : shapes) {
    const double a1 = -(shape.z1 + shape.z2).real();
    const double a2 = (shape.z1 * shape.z2).real();
    const double gain = std::abs((1.0 + delay * (a1 + delay * a2)) /
                                 (1.0 + delay * (shape.b1 + delay * shape.b2)));
    sections_.push_back({gain, gain * shape.b1, gain * shape.b2, a1, a2});
    radius_ = std::max({radius_, std::abs(shape.z1), std::abs(shape.z2)});
  }
}

double ButterworthFilter::memory() const {
  if (radius_ <= 0) return static_cast<double>(2 * sections_.size());
  return static_cast<double>(2 * sections_.size()) +
         std::log(1e-12) / std::log(radius_);
}

template <class Iterator>
void ButterworthFilter::run(Iterator first, Iterator last) const {
  if (first == last) return;
  for (const Section &section : sections_) {
    /* Transposed direct form; the state is that of a constant input. */
    const auto [b0, b1, b2, a1, a2] = section;
    const double level = *first * (b0 + b1 + b2) / (1 + a1 + a2);
    double state1 = level - b0 * *first;
    double state2 = b2 * *first - a2 * level;
    for (Iterator each = first; each != last; ++each) {
      const double in = *each;
      const double out = b0 * in + state1;
      state1 = b1 * in - a1 * out + state2;
      state2 = b2 * in - a2 * out;
      *each = out;
    }
  }
}

void ButterworthFilter::run_forward(std::span<double> samples) const {
  run(samples.begin(), samples.end());
}

void ButterworthFilter::run_backward(std::span<double> samples) const {
  run(samples.rbegin(), samples.rend());
}

}  // namespace ksutil
