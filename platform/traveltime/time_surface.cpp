#include "platform/traveltime/internal/time_surface.h"

#include <algorithm>
#include <cmath>

#include "platform/geo/angle.h"

namespace ksutil::traveltime {
namespace {

constexpr double kOwnNearStep = 0.02;
constexpr double kOwnFarStep = 0.1;
constexpr double kOwnSplit = 2.0;
constexpr double kDeeperStep = 0.25;

/* The cubic through two values with given slopes, as weights of the four. */
struct Cubic {
  double value_left, slope_left, value_right, slope_right;

  static Cubic values(double u, double step) {
    const double v = 1.0 - u;
    return {v * v * (1.0 + 2.0 * u), step * u * v * v, u * u * (1.0 + 2.0 * v),
            -step * u * u * v};
  }
  static Cubic slopes(double u, double step) {
    const double v = 1.0 - u;
    return {-6.0 * u * v / step, v * (v - 2.0 * u), 6.0 * u * v / step,
            u * (u - 2.0 * v)};
  }
};

/* Time and slowness of the branch at delta; `next` is the first ray at or beyond it. */
Ray interpolate(const std::vector<Ray> &rays, std::size_t next, double delta) {
  if (next == 0 || next == rays.size()) {
    const Ray &end = next == 0 ? rays.front() : rays.back();
    return {delta, end.time + end.slowness * (delta - end.delta), end.slowness};
  }
  const Ray &left = rays[next - 1];
  const Ray &right = rays[next];
  const double step = right.delta - left.delta;
  const double u = (delta - left.delta) / step;
  const auto combine = [&](const Cubic &c) {
    return c.value_left * left.time + c.slope_left * left.slowness +
           c.value_right * right.time + c.slope_right * right.slowness;
  };
  return {delta, combine(Cubic::values(u, step)), combine(Cubic::slopes(u, step))};
}

DistanceAxis make_axis(TimeSurface::Quantity quantity, double first, double last) {
  DistanceAxis axis;
  axis.start = 0.0;
  axis.far_step = kOwnFarStep;
  axis.near_step = kOwnNearStep;
  if (quantity == TimeSurface::Quantity::kTimeOverChord) {
    axis.near_count = static_cast<std::size_t>(std::lround(kOwnSplit / kOwnNearStep));
  } else {
    /* Whole steps, so that one node is the antipode, where the slope is zero. */
    axis.start = kDeeperStep * std::floor(first / kDeeperStep);
    axis.far_step = kDeeperStep;
  }
  const double far = std::ceil(std::max(0.0, last - axis.split()) / axis.far_step);
  axis.count = axis.near_count + static_cast<std::size_t>(far) + 2;
  return axis;
}

double mix(double left, double right, double weight) {
  return left + (right - left) * weight;
}

}  // namespace

double DistanceAxis::position(std::size_t node) const {
  if (node < near_count) return start + near_step * static_cast<double>(node);
  return split() + far_step * static_cast<double>(node - near_count);
}

TimeSurface::TimeSurface(Quantity quantity, const std::vector<Source> &sources,
                         std::size_t first_source,
                         const std::vector<RayBranch> &branches, double radius)
    : quantity_(quantity), first_source_(first_source), radius_(radius) {
  double first = branches.front().rays.front().delta;
  double last = branches.front().rays.back().delta;
  for (const RayBranch &branch : branches) {
    first = std::min(first, branch.rays.front().delta);
    last = std::max(last, branch.rays.back().delta);
  }
  axis_ = make_axis(quantity, first, last);
  last_node_ = axis_.position(axis_.count - 1);
  nodes_.reserve(branches.size() * axis_.count);
  for (std::size_t i = 0; i < branches.size(); ++i) {
    fill(branches[i], sources[first_source + i].depth);
  }
}

void TimeSurface::fill(const RayBranch &branch, double depth) {
  const Ray &last = branch.rays.back();
  extents_.push_back({branch.rays.front().delta, last.delta, branch.horizontal,
                      last.time, last.slowness});
  std::size_t next = 0;
  for (std::size_t node = 0; node < axis_.count; ++node) {
    const double delta = axis_.position(node);
    while (next < branch.rays.size() && branch.rays[next].delta < delta) ++next;
    const Ray ray = interpolate(branch.rays, next, delta);
    if (quantity_ == Quantity::kTime) {
      nodes_.push_back({ray.time, ray.slowness});
      continue;
    }
    double chord_slope = 0.0;
    const double length = chord(delta, depth, chord_slope);
    /* At the source itself time over chord is slowness over the radius. */
    const double value =
        length > 0.0 ? ray.time / length : ray.slowness / (radius_ * kRadiansPerDegree);
    const double slope =
        length > 0.0 ? (ray.slowness - value * chord_slope) / length : 0.0;
    nodes_.push_back({value, slope});
  }
}

/* Straight line from the source to the surface, km, and its slope in km/degree. */
double TimeSurface::chord(double delta, double depth, double &slope) const {
  const double r = radius_ - depth;
  const double half = std::sin(0.5 * radians(delta));
  const double length = std::sqrt(depth * depth + 4.0 * radius_ * r * half * half);
  slope = kRadiansPerDegree * radius_;
  if (length > 0.0) slope *= r * std::sin(radians(delta)) / length;
  return length;
}

TimeSurface::Extent TimeSurface::extent(const DepthPosition &at) const {
  const Extent &upper = extents_[at.index - first_source_];
  const Extent &lower = extents_[at.index + 1 - first_source_];
  return {mix(upper.first, lower.first, at.weight),
          mix(upper.last, lower.last, at.weight),
          mix(upper.horizontal, lower.horizontal, at.weight),
          mix(upper.last_time, lower.last_time, at.weight),
          mix(upper.last_slowness, lower.last_slowness, at.weight)};
}

TimeSurface::Sample TimeSurface::sample(const DepthPosition &at, double delta) const {
  const bool near = delta < axis_.split();
  const double step = near ? axis_.near_step : axis_.far_step;
  const double steps =
      std::max(0.0, (delta - (near ? axis_.start : axis_.split())) / step);
  const std::size_t last = axis_.count - 2;
  const std::size_t node =
      std::min(last, static_cast<std::size_t>(steps) + (near ? 0 : axis_.near_count));
  const double u = (delta - axis_.position(node)) / step;
  const Node *upper = &nodes_[(at.index - first_source_) * axis_.count + node];
  const Node *lower = upper + axis_.count;
  const auto combine = [&](const Cubic &c) {
    const auto row = [&](const Node *n) {
      return c.value_left * n[0].value + c.slope_left * n[0].slope +
             c.value_right * n[1].value + c.slope_right * n[1].slope;
    };
    return mix(row(upper), row(lower), at.weight);
  };
  const double value = combine(Cubic::values(u, step));
  const double slope = combine(Cubic::slopes(u, step));
  if (quantity_ == Quantity::kTime) return {value, slope};
  double chord_slope = 0.0;
  const double length = chord(delta, at.depth, chord_slope);
  return {value * length, slope * length + value * chord_slope};
}

}  // namespace ksutil::traveltime
