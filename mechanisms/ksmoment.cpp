#include "mechanisms/ksmoment.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "mechanisms/internal/eigen.h"
#include "mechanisms/internal/moment.h"
#include "platform/elog/failure.h"
#include "platform/geo/angle.h"

using ksutil::degrees;
using ksutil::fail;
using ksutil::radians;
using namespace ksutil::mechanisms;

namespace {

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

/* A rotation as a quaternion: the one whose matrix has the columns of the axes. */
std::array<double, 4> quaternion_of(const Eigen &eigen) {
  const auto &[x, y, z] = eigen.vectors;
  /* The four ways to take square roots; the largest one is exact (Shepperd, J. Guid.
   * Control 1 (1978), 223-224). */
  const double trace = x[0] + y[1] + z[2];
  std::array<double, 4> q{};
  if (trace >= std::max({x[0], y[1], z[2]})) {
    const double s = 2.0 * std::sqrt(1.0 + trace);
    q = {s / 4.0, (y[2] - z[1]) / s, (z[0] - x[2]) / s, (x[1] - y[0]) / s};
  } else if (x[0] >= y[1] && x[0] >= z[2]) {
    const double s = 2.0 * std::sqrt(1.0 + x[0] - y[1] - z[2]);
    q = {(y[2] - z[1]) / s, s / 4.0, (y[0] + x[1]) / s, (z[0] + x[2]) / s};
  } else if (y[1] >= z[2]) {
    const double s = 2.0 * std::sqrt(1.0 + y[1] - x[0] - z[2]);
    q = {(z[0] - x[2]) / s, (y[0] + x[1]) / s, s / 4.0, (z[1] + y[2]) / s};
  } else {
    const double s = 2.0 * std::sqrt(1.0 + z[2] - x[0] - y[1]);
    q = {(x[1] - y[0]) / s, (z[0] + x[2]) / s, (z[1] + y[2]) / s, s / 4.0};
  }
  return q;
}

void order_planes(KSMomentPlane *planes) {
  constexpr double kAlike = 1e-6;
  const double more = planes[0].dip - planes[1].dip;
  if (more > kAlike || (more > -kAlike && planes[0].strike > planes[1].strike)) {
    std::swap(planes[0], planes[1]);
  }
}

}  // namespace

int ksmoment_to_ned(const double *m, double *ned) {
  if (!is_tensor("ksmoment_to_ned", m)) return -1;
  if (ned == nullptr) return fail("ksmoment_to_ned", "No place for the tensor");
  const Tensor tensor = ned_of(m);
  std::copy(tensor.begin(), tensor.end(), ned);
  return 0;
}

int ksmoment_from_ned(const double *ned, double *m) {
  if (!is_tensor("ksmoment_from_ned", ned)) return -1;
  if (m == nullptr) return fail("ksmoment_from_ned", "No place for the tensor");
  Tensor tensor;
  std::copy(ned, ned + 6, tensor.begin());
  put_up_south_east(tensor, m);
  return 0;
}

int ksmoment_eigen(const double *m, double *values, double *vectors) {
  if (!is_tensor("ksmoment_eigen", m)) return -1;
  if (values == nullptr || vectors == nullptr) {
    return fail("ksmoment_eigen", "No place for the result");
  }
  const Eigen eigen = eigen_of(ned_of(m));
  std::copy(eigen.values.begin(), eigen.values.end(), values);
  for (const auto &[north, east, down] : eigen.vectors) {
    *vectors++ = 0.0 - down;
    *vectors++ = 0.0 - north;
    *vectors++ = east;
  }
  return 0;
}

int ksmoment_axes(const double *m, KSMomentAxis *axes) {
  if (!is_tensor("ksmoment_axes", m)) return -1;
  if (axes == nullptr) return fail("ksmoment_axes", "No place for the result");
  const Eigen eigen = eigen_of(ned_of(m));
  for (std::size_t i = 0; i < 3; i++) {
    axes[i].value = eigen.values[i];
    direction_of(eigen.vectors[i], axes[i].plunge, axes[i].azimuth);
  }
  return 0;
}

double ksmoment_moment(const double *m) {
  if (!is_tensor("ksmoment_moment", m)) return kNone;
  const double diagonal = std::hypot(m[0], m[1], m[2]),
               rest = std::hypot(m[3], m[4], m[5]);
  return std::sqrt(0.5 * diagonal * diagonal + rest * rest);
}

double ksmoment_dc_moment(const double *m) {
  if (!is_tensor("ksmoment_dc_moment", m)) return kNone;
  const Eigen eigen = eigen_of(ned_of(m));
  return 0.5 * (eigen.values[0] - eigen.values[2]);
}

double ksmoment_magnitude(double moment) {
  if (moment > 0.0 && std::isfinite(moment)) return (std::log10(moment) - 9.1) / 1.5;
  fail("ksmoment_magnitude", "Moment %g is not above 0", moment);
  return kNone;
}

double ksmoment_moment_of_magnitude(double magnitude) {
  const double moment = std::pow(10.0, 1.5 * magnitude + 9.1);
  if (std::isfinite(moment)) return moment;
  fail("ksmoment_moment_of_magnitude", "Magnitude %g is out of range", magnitude);
  return kNone;
}

int ksmoment_parts(const double *m, KSMomentParts *parts) {
  if (!is_tensor("ksmoment_parts", m)) return -1;
  if (parts == nullptr) return fail("ksmoment_parts", "No place for the result");
  const Eigen eigen = eigen_of(ned_of(m));
  *parts = {};
  const Vector3 &values = eigen.values;
  const double iso = values[0] / 3.0 + values[1] / 3.0 + values[2] / 3.0;
  Vector3 deviatoric{};
  if (!equal_values(values, 0, 2)) {
    for (std::size_t i = 0; i < 3; i++) deviatoric[i] = values[i] - iso;
  }
  const auto smaller = [](double a, double b) { return std::fabs(a) < std::fabs(b); };
  const auto [small, large] =
      std::minmax_element(deviatoric.begin(), deviatoric.end(), smaller);
  const double whole = std::fabs(iso) + std::fabs(*large);
  if (whole == 0.0) return 0;
  const double share = 100.0 * std::fabs(*large) / whole;  // of the deviatoric part
  const double epsilon = *large == 0.0 ? 0.0 : -*small / std::fabs(*large);
  parts->iso = 100.0 * iso / whole;
  parts->clvd = 2.0 * epsilon * share;
  parts->dc = (1.0 - 2.0 * std::fabs(epsilon)) * share;
  return 0;
}

int ksmoment_planes(const double *m, KSMomentPlane *planes) {
  if (!is_tensor("ksmoment_planes", m)) return -1;
  if (planes == nullptr) return fail("ksmoment_planes", "No place for the result");
  const Eigen eigen = eigen_of(ned_of(m));
  if (equal_values(eigen.values, 0, 2)) {
    return fail("ksmoment_planes", "The tensor has no double couple");
  }
  const std::array<Couple, 2> couples = couples_of(eigen);
  for (std::size_t i = 0; i < 2; i++) planes[i] = plane_of(couples[i]);
  order_planes(planes);
  return 0;
}

int ksmoment_other_plane(const KSMomentPlane *plane, KSMomentPlane *other) {
  if (!is_plane("ksmoment_other_plane", plane)) return -1;
  if (other == nullptr) return fail("ksmoment_other_plane", "No place for the result");
  const Couple couple = couple_of(*plane);
  *other = plane_of({couple.slip, couple.normal});
  return 0;
}

int ksmoment_from_plane(const KSMomentPlane *plane, double moment, double *m) {
  if (!is_plane("ksmoment_from_plane", plane)) return -1;
  if (m == nullptr) return fail("ksmoment_from_plane", "No place for the result");
  if (!(moment >= 0.0 && moment <= 1e150)) {
    return fail("ksmoment_from_plane", "Moment %g is out of range", moment);
  }
  const auto [n, d] = couple_of(*plane);
  put_up_south_east(
      {2.0 * moment * d[0] * n[0], 2.0 * moment * d[1] * n[1],
       2.0 * moment * d[2] * n[2], moment * (d[0] * n[1] + d[1] * n[0]),
       moment * (d[0] * n[2] + d[2] * n[0]), moment * (d[1] * n[2] + d[2] * n[1])},
      m);
  return 0;
}

int ksmoment_slip(const KSMomentPlane *plane, double *normal, double *slip) {
  if (!is_plane("ksmoment_slip", plane)) return -1;
  const Couple couple = couple_of(*plane);
  if (normal != nullptr) std::copy(couple.normal.begin(), couple.normal.end(), normal);
  if (slip != nullptr) std::copy(couple.slip.begin(), couple.slip.end(), slip);
  return 0;
}

double ksmoment_rotation(const double *m, const double *other) {
  if (!is_tensor("ksmoment_rotation", m) || !is_tensor("ksmoment_rotation", other)) {
    return kNone;
  }
  const auto a = quaternion_of(eigen_of(ned_of(m)));
  const auto b = quaternion_of(eigen_of(ned_of(other)));
  /* The components of conj(a) b.  A half turn about an axis of the double couple changes
   * nothing but their order and signs, so that the largest belongs to the least angle. */
  const std::array<double, 4> turn{
      a[0] * b[0] + a[1] * b[1] + a[2] * b[2] + a[3] * b[3],
      a[0] * b[1] - a[1] * b[0] - a[2] * b[3] + a[3] * b[2],
      a[0] * b[2] + a[1] * b[3] - a[2] * b[0] - a[3] * b[1],
      a[0] * b[3] - a[1] * b[2] + a[2] * b[1] - a[3] * b[0]};
  std::size_t largest = 0;
  double rest = 0.0;
  for (std::size_t i = 1; i < 4; i++) {
    if (std::fabs(turn[i]) > std::fabs(turn[largest])) largest = i;
  }
  for (std::size_t i = 0; i < 4; i++) {
    if (i != largest) rest += turn[i] * turn[i];
  }
  return degrees(2.0 * std::atan2(std::sqrt(rest), std::fabs(turn[largest])));
}

int ksmoment_radiation(const double *m, double azimuth, double takeoff, double *p,
                       double *sv, double *sh) {
  constexpr const char *kWho = "ksmoment_radiation";
  if (!is_tensor(kWho, m)) return -1;
  if (!std::isfinite(azimuth) || !(takeoff >= 0.0 && takeoff <= 180.0)) {
    return fail(kWho, "Azimuth %g or take-off angle %g is out of range", azimuth,
                takeoff);
  }
  const double ca = std::cos(radians(azimuth)), sa = std::sin(radians(azimuth));
  const double ci = std::cos(radians(takeoff)), si = std::sin(radians(takeoff));
  const Vector3 ray{si * ca, si * sa, ci}, up{ci * ca, ci * sa, -si},
      clockwise{-sa, ca, 0.0};
  const Vector3 push = times(ned_of(m), ray);
  if (p != nullptr) *p = dot(ray, push);
  if (sv != nullptr) *sv = dot(up, push);
  if (sh != nullptr) *sh = dot(clockwise, push);
  return 0;
}
