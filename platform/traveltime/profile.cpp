#include "platform/traveltime/internal/profile.h"

#include <algorithm>
#include <cmath>

namespace ksutil::traveltime {
namespace {

/* A layer boundary without a jump needs a gradient that steepens by more than this:
 * smaller steps come from the rounding of published values. */
constexpr double kSteepening = 1.1;

/* Depths of the models' crust and of the discontinuity that ends the range of Pn, km. */
constexpr double kMidCrust = 20.0;
constexpr double kMoho = 35.0;
constexpr double kUppermostMantleEnd = 210.0;

/* Shells are also the source depths of the tables: finer where the wave front from a
 * shallow source is strongly curved. */
double largest_thickness(double depth) {
  if (depth < kMoho) return 0.5;
  if (depth < 120.0) return 1.0;
  if (depth < kUppermostMantleEnd) return 2.0;
  return depth < 700.0 ? 4.0 : 12.0;
}

Region region_of(double top, const EarthModel &model) {
  if (top >= model.inner_core_depth) return Region::kInnerCore;
  if (top >= model.core_depth) return Region::kOuterCore;
  if (top >= kUppermostMantleEnd) return Region::kMantle;
  if (top >= kMoho) return Region::kUppermostMantle;
  return top >= kMidCrust ? Region::kLowerCrust : Region::kUpperCrust;
}

/* Between two model points: velocity linear in depth. */
struct Segment {
  double top, bottom, v_top, v_bottom;

  double velocity(double depth) const {
    return v_top + (v_bottom - v_top) * (depth - top) / (bottom - top);
  }
};

std::vector<Segment> segments_of(const EarthModel &model, Wave wave) {
  const auto velocity = [&](const ModelPoint &point, double segment_top) {
    const bool as_s = wave == Wave::kS && segment_top < model.core_depth;
    return as_s ? point.vs : point.vp;
  };
  std::vector<Segment> segments;
  for (std::size_t i = 1; i < model.points.size(); ++i) {
    const ModelPoint &upper = model.points[i - 1];
    const ModelPoint &lower = model.points[i];
    if (lower.depth == upper.depth) continue;
    segments.push_back({upper.depth, lower.depth, velocity(upper, upper.depth),
                        velocity(lower, upper.depth)});
  }
  return segments;
}

Shell make_shell(const Segment &segment, double radius, double top, double bottom) {
  Shell shell{top, bottom, (radius - top) / segment.velocity(top),
              (radius - bottom) / segment.velocity(bottom), 1.0};
  /* The sphere at the centre has constant velocity. */
  if (bottom < radius) {
    shell.factor = std::log((radius - top) / (radius - bottom)) /
                   std::log(shell.eta_top / shell.eta_bottom);
  }
  return shell;
}

void append_shells(const Segment &segment, double radius, std::vector<Shell> &shells) {
  const double thickness = segment.bottom - segment.top;
  const double pieces = std::ceil(thickness / largest_thickness(segment.top) - 1e-9);
  const auto depth = [&](double piece) {
    return segment.top + thickness * piece / pieces;
  };
  for (double piece = 0.0; piece < pieces; piece += 1.0) {
    const double bottom = piece + 1.0 < pieces ? depth(piece + 1.0) : segment.bottom;
    shells.push_back(make_shell(segment, radius, depth(piece), bottom));
  }
}

bool folds_between(const Shell &upper, const Shell &lower) {
  const bool jump = std::abs(upper.eta_bottom - lower.eta_top) > 1e-9 * lower.eta_top;
  return jump || upper.factor > kSteepening * lower.factor;
}

}  // namespace

Path Shell::crossing(double p) const {
  const Path upper = descent(p);
  return {
      upper.x - factor * std::acos(std::min(1.0, p / eta_bottom)),
      upper.t - factor * std::sqrt(std::max(0.0, (eta_bottom - p) * (eta_bottom + p)))};
}

Path Shell::descent(double p) const {
  return {factor * std::acos(std::min(1.0, p / eta_top)),
          factor * std::sqrt(std::max(0.0, (eta_top - p) * (eta_top + p)))};
}

double Profile::entry_slowness(const Layer &layer) const {
  double slowness = layer.etas.front();
  for (std::size_t i = 0; i < layer.first_shell; ++i) {
    slowness = std::min(slowness, shells[i].eta_bottom);
  }
  return slowness;
}

Profile make_profile(const EarthModel &model, Wave wave) {
  Profile profile;
  profile.radius = model.radius;
  for (const Segment &segment : segments_of(model, wave)) {
    const std::size_t first = profile.shells.size();
    append_shells(segment, model.radius, profile.shells);
    const Shell &top = profile.shells[first];
    if (first == 0 || folds_between(profile.shells[first - 1], top)) {
      Layer layer;
      layer.first_shell = first;
      layer.etas = {top.eta_top};
      layer.region = region_of(segment.top, model);
      profile.layers.push_back(layer);
    }
    Layer &layer = profile.layers.back();
    layer.end_shell = profile.shells.size();
    layer.etas.push_back(profile.shells.back().eta_bottom);
    layer.above_core = segment.bottom == model.core_depth;
  }
  return profile;
}

}  // namespace ksutil::traveltime
