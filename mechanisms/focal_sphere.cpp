#include "mechanisms/internal/focal_sphere.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <optional>

#include "mechanisms/internal/moment.h"

namespace ksutil::mechanisms {
namespace {

constexpr double kTurn = 2.0 * std::numbers::pi;
constexpr int kSteps = 360;      // of a closed curve
constexpr double kOnRim = 1e-9;  // heights below it are on the rim
constexpr double kSign = 1e-9;   // eigenvalues below this share of the largest are 0

/* Height of a direction over the rim, towards the pole of the half that is seen. */
double height(const Vector3 &direction, View view) {
  return view.upper ? -direction[2] : direction[2];
}

/* The zero set of a tensor on the sphere when its eigenvalues have both signs: a cone of
 * elliptic section around one axis, in both directions of it.  The axis is the one whose
 * eigenvalue has a sign of its own; its sign is that of P inside the cone. */
struct Cone {
  double inside = 0.0;  // eigenvalue of the axis
  double second = 0.0, third = 0.0;
  Vector3 axis{}, u{}, v{};

  /* The direction on the cone's mantle at angle phi around the axis. */
  Vector3 at(double phi) const {
    const double c = std::cos(phi), s = std::sin(phi);
    const double outside = std::fabs(second * c * c + third * s * s);
    const double theta = std::atan2(std::sqrt(std::fabs(inside)), std::sqrt(outside));
    const Vector3 side = combine(c, u, s, v);
    return unit(combine(std::cos(theta), axis, std::sin(theta), side));
  }
  Cone opposite_one() const {
    Cone other = *this;
    other.axis = opposite(axis);
    return other;
  }
};

/* None when P has one sign everywhere. */
std::optional<Cone> cone_of(const Eigen &eigen) {
  std::array<double, 3> values = eigen.values;
  const double size = std::max(std::fabs(values[0]), std::fabs(values[2]));
  for (double &value : values) {
    if (std::fabs(value) <= kSign * size) value = 0.0;
  }
  const auto &[t, n, p] = eigen.vectors;
  if (!(values[0] > 0.0 && values[2] < 0.0)) return std::nullopt;
  if (values[1] > 0.0) return Cone{values[2], values[0], values[1], p, t, n};
  return Cone{values[0], values[2], values[1], t, p, n};
}

/* A part of a curve in the half that is seen; one that is not closed runs from rim to
 * rim. */
struct Part {
  std::vector<Vector3> points;
  bool closed = false;
};

/* Where the mantle crosses the rim between two angles, of which one is above it. */
Vector3 crossing(const Cone &cone, double above, double below, View view) {
  for (int i = 0; i < 60; i++) {
    const double middle = 0.5 * (above + below);
    (height(cone.at(middle), view) >= 0.0 ? above : below) = middle;
  }
  Vector3 point = cone.at(above);
  point[2] = 0.0;
  return unit(point);
}

/* The part of one mantle in the half that is seen: the rim is a plane through the middle of
 * the cone, so that there is at most one.  A mantle that only touches the rim from the
 * other half has none. */
std::optional<Part> visible(const Cone &cone, View view) {
  std::array<Vector3, kSteps> points;
  std::array<bool, kSteps> seen{};
  bool all = true, above_rim = false;
  for (int i = 0; i < kSteps; i++) {
    const auto at = static_cast<std::size_t>(i);
    points[at] = cone.at(kTurn * i / kSteps);
    const double h = height(points[at], view);
    seen[at] = h >= -kOnRim;
    all = all && seen[at];
    above_rim = above_rim || h > kOnRim;
  }
  if (!above_rim) return std::nullopt;
  Part part;
  part.closed = all;
  if (all) {
    part.points.assign(points.begin(), points.end());
    part.points.push_back(points.front());
    return part;
  }
  int first = 0;  // the first point that is seen after one that is not
  while (!(seen[static_cast<std::size_t>(first)] &&
           !seen[static_cast<std::size_t>((first + kSteps - 1) % kSteps)])) {
    first++;
  }
  part.points.push_back(
      crossing(cone, kTurn * first / kSteps, kTurn * (first - 1) / kSteps, view));
  int i = first;
  for (; seen[static_cast<std::size_t>(i % kSteps)]; i++) {
    part.points.push_back(points[static_cast<std::size_t>(i % kSteps)]);
  }
  part.points.push_back(
      crossing(cone, kTurn * (i - 1) / kSteps, kTurn * i / kSteps, view));
  return part;
}

std::vector<Part> visible_parts(const Cone &cone, View view) {
  std::vector<Part> parts;
  for (const Cone &half : {cone, cone.opposite_one()}) {
    if (std::optional<Part> part = visible(half, view))
      parts.push_back(std::move(*part));
  }
  return parts;
}

Piece on_disk(const std::vector<Vector3> &points, View view) {
  Piece piece;
  piece.reserve(points.size());
  for (const Vector3 &point : points) piece.push_back(on_disk(point, view));
  return piece;
}

/* Azimuth, clockwise from north, in [0, turn). */
double azimuth_of(const Vector3 &point) {
  const double azimuth = std::atan2(point[1], point[0]);
  return azimuth < 0.0 ? azimuth + kTurn : azimuth;
}

/* Appends the rim from one azimuth to another, both included. */
void add_rim(Piece &piece, double from, double to) {
  const int steps =
      std::max(1, static_cast<int>(std::fabs(to - from) / kTurn * kSteps));
  for (int i = 0; i <= steps; i++) {
    const double azimuth = from + (to - from) * i / steps;
    piece.push_back({std::sin(azimuth), std::cos(azimuth)});
  }
}

Piece whole_rim() {
  Piece piece;
  add_rim(piece, 0.0, kTurn);
  piece.back() = piece.front();
  return piece;
}

/* Appends the rim from one point of it to another, by the way through an azimuth. */
void add_way(Piece &piece, const Vector3 &from, const Vector3 &to, double through) {
  const double start = azimuth_of(from);
  const auto ahead = [&](double azimuth) {
    const double turn = std::fmod(azimuth - start, kTurn);
    return turn < 0.0 ? turn + kTurn : turn;
  };
  const double end = ahead(azimuth_of(to));
  add_rim(piece, start, start + (ahead(through) <= end ? end : end - kTurn));
}

/* The area inside the mantle that a part bounds.  The rim inside the mantle is the way on
 * the axis's side of the two ends. */
Piece area_inside(const Part &part, const Vector3 &axis, View view) {
  Piece piece = on_disk(part.points, view);
  if (!part.closed) {
    const Vector3 &from = part.points.back(), &to = part.points.front();
    double middle = 0.5 * (azimuth_of(from) + azimuth_of(to));
    if (std::cos(middle) * axis[0] + std::sin(middle) * axis[1] < 0.0) {
      middle += std::numbers::pi;
    }
    add_way(piece, from, to, middle);
  }
  piece.back() = piece.front();
  return piece;
}

/* Joins two parts that run from rim to rim to the area between them, outside both
 * mantles. */
Piece area_between(const Part &a, const Part &b, View view) {
  Piece piece = on_disk(a.points, view);
  /* The middle of the shorter of the two ways from the end of a to an end of b. */
  const auto distance = [](const Vector3 &from, const Vector3 &to) {
    return std::fabs(std::remainder(azimuth_of(to) - azimuth_of(from), kTurn));
  };
  const auto middle = [](const Vector3 &from, const Vector3 &to) {
    const double start = azimuth_of(from);
    return start + 0.5 * std::remainder(azimuth_of(to) - start, kTurn);
  };
  std::vector<Vector3> other = b.points;
  if (distance(a.points.back(), other.back()) <
      distance(a.points.back(), other.front())) {
    std::reverse(other.begin(), other.end());
  }
  add_way(piece, a.points.back(), other.front(),
          middle(a.points.back(), other.front()));
  const Piece second = on_disk(other, view);
  piece.insert(piece.end(), second.begin(), second.end());
  add_way(piece, other.back(), a.points.front(),
          middle(other.back(), a.points.front()));
  piece.back() = piece.front();
  return piece;
}

/* The half of a great circle that is seen, from rim to rim. */
Piece great_circle(const Vector3 &normal, View view) {
  const double across = std::hypot(normal[0], normal[1]);
  if (across < kOnRim) return whole_rim();
  const Vector3 along{-normal[1] / across, normal[0] / across, 0.0};
  Vector3 deep = cross(normal, along);
  if (height(deep, view) < 0.0) deep = opposite(deep);
  Piece piece;
  constexpr int kHalf = kSteps / 2;
  for (int i = 0; i <= kHalf; i++) {
    const double angle = std::numbers::pi * i / kHalf;
    Vector3 point = combine(std::cos(angle), along, std::sin(angle), deep);
    if (i == 0 || i == kHalf) point[2] = 0.0;
    if (height(point, view) < 0.0) point[2] = 0.0;
    piece.push_back(on_disk(point, view));
  }
  /* The end lies opposite the start, not at the place by which on_disk would replace it. */
  piece.front() = {along[1], along[0]};
  piece.back() = {-along[1], -along[0]};
  return piece;
}

}  // namespace

DiskPoint on_disk(Vector3 direction, View view) {
  if (height(direction, view) < -kOnRim) direction = opposite(direction);
  const double across = std::hypot(direction[0], direction[1]);
  if (across == 0.0) return {};
  const double inclination = std::atan2(across, std::max(height(direction, view), 0.0));
  const double radius = view.stereographic
                            ? std::tan(0.5 * inclination)
                            : std::numbers::sqrt2 * std::sin(0.5 * inclination);
  return {radius * direction[1] / across, radius * direction[0] / across};
}

std::vector<Piece> nodal_lines(const Eigen &eigen, View view) {
  std::vector<Piece> pieces;
  const std::optional<Cone> cone = cone_of(eigen);
  if (!cone) return pieces;
  for (const Part &part : visible_parts(*cone, view)) {
    pieces.push_back(on_disk(part.points, view));
  }
  return pieces;
}

std::vector<Piece> plane_lines(const Eigen &eigen, View view) {
  if (equal_values(eigen.values, 0, 2)) return {};
  std::vector<Piece> pieces;
  for (const Couple &couple : couples_of(eigen)) {
    pieces.push_back(great_circle(couple.normal, view));
  }
  return pieces;
}

std::vector<Piece> positive_areas(const Eigen &eigen, View view) {
  const std::optional<Cone> cone = cone_of(eigen);
  std::vector<Piece> areas;
  if (!cone) {
    if (eigen.values[0] > 0.0) areas.push_back(whole_rim());
    return areas;
  }
  const auto first = visible(*cone, view), second = visible(cone->opposite_one(), view);
  if (cone->inside > 0.0) {
    if (first) areas.push_back(area_inside(*first, cone->axis, view));
    if (second) areas.push_back(area_inside(*second, opposite(cone->axis), view));
  } else if (first && second && !first->closed && !second->closed) {
    areas.push_back(area_between(*first, *second, view));
  } else {
    areas.push_back(whole_rim());
    if (first) areas.push_back(area_inside(*first, cone->axis, view));
    if (second) areas.push_back(area_inside(*second, opposite(cone->axis), view));
  }
  return areas;
}

}  // namespace ksutil::mechanisms
