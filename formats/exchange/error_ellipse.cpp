#include "formats/exchange/error_ellipse.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace ksutil::exchange {
namespace {

constexpr double kRadian = std::numbers::pi / 180.0;

double chi_square_probability(int freedom, double x) {
  if (freedom == 2) return 1.0 - std::exp(-0.5 * x);
  const double one = std::erf(std::sqrt(0.5 * x));
  if (freedom == 1) return one;
  return one - std::sqrt(2.0 * x / std::numbers::pi) * std::exp(-0.5 * x);
}

}  // namespace

double chi_square(int freedom, double p) {
  if (!(p > 0.0 && p < 1.0)) return 0.0;
  double low = 0.0, high = 100.0;
  for (int i = 0; i < 60; i++) {
    const double middle = 0.5 * (low + high);
    (chi_square_probability(freedom, middle) < p ? low : high) = middle;
  }
  return 0.5 * (low + high);
}

Ellipse ellipse_of(const Covariance &c, double p) {
  const double half = 0.5 * (c.xx + c.yy);
  const double root = std::hypot(0.5 * (c.xx - c.yy), c.xy);
  if (!(c.xx >= 0.0 && c.yy >= 0.0) || !(half - root >= -1e-9 * half)) return {};
  const double k = std::sqrt(chi_square(2, p));
  Ellipse ellipse;
  ellipse.major = k * std::sqrt(half + root);
  ellipse.minor = k * std::sqrt(std::max(half - root, 0.0));
  const double strike = 0.5 * std::atan2(2.0 * c.xy, c.xx - c.yy) / kRadian;
  ellipse.strike = strike < 0.0 ? strike + 180.0 : strike;
  return ellipse;
}

Covariance covariance_of(const Ellipsoid &e, double p) {
  const double ca = std::cos(e.azimuth * kRadian), sa = std::sin(e.azimuth * kRadian);
  const double cp = std::cos(e.plunge * kRadian), sp = std::sin(e.plunge * kRadian);
  const double cr = std::cos(e.rotation * kRadian), sr = std::sin(e.rotation * kRadian);
  /* Unit vectors, north, east and down: the major axis, and before the rotation a
   * horizontal one and the one that is left. */
  const std::array<double, 3> u{ca * cp, sa * cp, sp}, h{-sa, ca, 0.0},
      v{-ca * sp, -sa * sp, cp};
  const double scale = chi_square(3, p);
  const std::array<double, 3> squares{e.major * e.major / scale,
                                      e.intermediate * e.intermediate / scale,
                                      e.minor * e.minor / scale};
  std::array<std::array<double, 3>, 3> sum{};
  for (std::size_t i = 0; i < 3; i++) {
    for (std::size_t j = 0; j < 3; j++) {
      const auto turned = [&](std::size_t k, double a, double b) {
        return a * h[k] + b * v[k];
      };
      sum[i][j] = squares[0] * u[i] * u[j] +
                  squares[1] * turned(i, cr, sr) * turned(j, cr, sr) +
                  squares[2] * turned(i, -sr, cr) * turned(j, -sr, cr);
    }
  }
  Covariance covariance;
  covariance.xx = sum[0][0];
  covariance.yy = sum[1][1];
  covariance.zz = sum[2][2];
  covariance.xy = sum[0][1];
  covariance.xz = sum[0][2];
  covariance.yz = sum[1][2];
  return covariance;
}

}  // namespace ksutil::exchange
