#include "mechanisms/internal/eigen.h"

#include <algorithm>
#include <cmath>

namespace ksutil::mechanisms {
namespace {

using Matrix = std::array<Vector3, 3>;

/* Turns rows and columns p and q so that a[p][q] becomes 0; the columns of v turn along. */
void rotate(Matrix &a, Matrix &v, std::size_t p, std::size_t q) {
  if (a[p][q] == 0.0) return;
  const double theta = (a[q][q] - a[p][p]) / (2.0 * a[p][q]);
  const double t = std::isinf(theta * theta)
                       ? 0.5 / theta
                       : std::copysign(1.0, theta) /
                             (std::fabs(theta) + std::sqrt(theta * theta + 1.0));
  const double c = 1.0 / std::sqrt(t * t + 1.0), s = t * c;
  for (std::size_t k = 0; k < 3; k++) {
    const double kp = a[k][p], kq = a[k][q];
    a[k][p] = c * kp - s * kq;
    a[k][q] = s * kp + c * kq;
  }
  for (std::size_t k = 0; k < 3; k++) {
    const double pk = a[p][k], qk = a[q][k];
    a[p][k] = c * pk - s * qk;
    a[q][k] = s * pk + c * qk;
  }
  a[p][q] = a[q][p] = 0.0;
  for (Vector3 &row : v) {
    const double kp = row[p], kq = row[q];
    row[p] = c * kp - s * kq;
    row[q] = s * kp + c * kq;
  }
}

/* The direction of the line that does not point up; of a horizontal line the one to the
 * north half, from the east on. */
Vector3 downward(const Vector3 &line) {
  constexpr double kNone = 1e-14;
  for (const std::size_t i : {2U, 0U, 1U}) {
    if (std::fabs(line[i]) > kNone) return line[i] > 0.0 ? line : opposite(line);
  }
  return line;
}

}  // namespace

double dot(const Vector3 &a, const Vector3 &b) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

Vector3 cross(const Vector3 &a, const Vector3 &b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2],
          a[0] * b[1] - a[1] * b[0]};
}

Vector3 combine(double a, const Vector3 &x, double b, const Vector3 &y) {
  return {a * x[0] + b * y[0], a * x[1] + b * y[1], a * x[2] + b * y[2]};
}

Vector3 unit(const Vector3 &a) {
  const double size = std::hypot(a[0], a[1], a[2]);
  return {a[0] / size, a[1] / size, a[2] / size};
}

Tensor ned_of(const double *m) { return {m[1], m[2], m[0], -m[5], m[3], -m[4]}; }

void put_up_south_east(const Tensor &tensor, double *m) {
  const auto [xx, yy, zz, xy, xz, yz] = tensor;
  m[0] = zz;
  m[1] = xx;
  m[2] = yy;
  m[3] = xz;
  m[4] = -yz;
  m[5] = -xy;
}

Vector3 times(const Tensor &tensor, const Vector3 &vector) {
  const auto [xx, yy, zz, xy, xz, yz] = tensor;
  return {xx * vector[0] + xy * vector[1] + xz * vector[2],
          xy * vector[0] + yy * vector[1] + yz * vector[2],
          xz * vector[0] + yz * vector[1] + zz * vector[2]};
}

Eigen eigen_of(const Tensor &tensor) {
  double scale = 0.0;
  for (const double element : tensor) scale = std::max(scale, std::fabs(element));
  Matrix v{Vector3{1, 0, 0}, Vector3{0, 1, 0}, Vector3{0, 0, 1}};
  Matrix a{};
  if (scale > 0.0) {
    /* Elements near the limits of numbers must not overflow when they are squared. */
    const auto [xx, yy, zz, xy, xz, yz] = tensor;
    a = {Vector3{xx / scale, xy / scale, xz / scale},
         Vector3{xy / scale, yy / scale, yz / scale},
         Vector3{xz / scale, yz / scale, zz / scale}};
    constexpr int kSweeps = 30;  // six or seven are enough
    for (int i = 0; i < kSweeps && (a[0][1] != 0 || a[0][2] != 0 || a[1][2] != 0);
         i++) {
      rotate(a, v, 0, 1);
      rotate(a, v, 0, 2);
      rotate(a, v, 1, 2);
    }
  }
  std::array<std::size_t, 3> order{0, 1, 2};
  std::stable_sort(order.begin(), order.end(),
                   [&](std::size_t i, std::size_t j) { return a[i][i] > a[j][j]; });
  Eigen result;
  for (std::size_t i = 0; i < 3; i++) {
    const std::size_t from = order[i];
    result.values[i] = a[from][from] * scale;
    result.vectors[i] = downward(unit({v[0][from], v[1][from], v[2][from]}));
  }
  result.vectors[2] = cross(result.vectors[0], result.vectors[1]);
  return result;
}

}  // namespace ksutil::mechanisms
