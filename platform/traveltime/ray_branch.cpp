#include "platform/traveltime/internal/ray_branch.h"

#include <algorithm>
#include <cmath>

#include "platform/geo/angle.h"

namespace ksutil::traveltime {
namespace {

constexpr int kUpgoingRays = 100;
constexpr int kRaysPerLayer = 60;
constexpr int kLeastRaysPerSegment = 6;

Ray make_ray(const Path &path, double p) {
  return {degrees(path.x), path.t, p * kRadiansPerDegree};
}

/* Slownesses of rays that turn between eta_max and the bottom of the layer, falling.
 * Distance changes as the root of the difference to each model point's r/v, so that the
 * samples crowd below each of them. */
std::vector<double> turning_slownesses(const Layer &layer, double eta_max) {
  const int segments = static_cast<int>(layer.etas.size()) - 1;
  const int count = std::max(kLeastRaysPerSegment, kRaysPerLayer / segments);
  std::vector<double> slownesses;
  for (std::size_t i = 1; i < layer.etas.size(); ++i) {
    const double upper = std::min(eta_max, layer.etas[i - 1]);
    const double width = upper - layer.etas[i];
    if (width <= 0.0) continue;
    for (int k = 0; k < count; ++k) {
      const double fraction = static_cast<double>(k) / count;
      slownesses.push_back(upper - width * fraction * fraction);
    }
  }
  slownesses.push_back(std::min(eta_max, layer.etas.back()));
  return slownesses;
}

/* From the top of shell `from` to the turning point in the layer, or to its bottom. */
Path descent(const Profile &profile, std::size_t from, const Layer &layer, double p) {
  Path path;
  for (std::size_t i = from; i < layer.end_shell; ++i) {
    const Shell &shell = profile.shells[i];
    if (p >= shell.eta_bottom) return path += shell.descent(p);
    path += shell.crossing(p);
  }
  return path;
}

Path from_surface(const Profile &profile, std::size_t shell, double p) {
  Path path;
  for (std::size_t i = 0; i < shell; ++i) path += profile.shells[i].crossing(p);
  return path;
}

/* Drops rays from `first` on that do not lie farther than all before them. */
void keep_outward(std::vector<Ray> &rays, std::size_t first) {
  std::size_t kept = first;
  for (std::size_t i = first; i < rays.size(); ++i) {
    if (kept > first && rays[i].delta <= rays[kept - 1].delta) continue;
    rays[kept++] = rays[i];
  }
  rays.resize(kept);
}

/* Sums from the surface down to each source (the first `count`), then to the turning
 * point. */
struct Descent {
  std::vector<Path> to_source;
  Path to_turning;
};

Descent descend(const Profile &profile, const Layer &layer,
                const std::vector<Source> &sources, std::size_t count, double p) {
  Descent result;
  result.to_source.reserve(count);
  std::size_t shell = 0;
  Path path;
  for (std::size_t i = 0; i < count; ++i) {
    for (; shell < sources[i].shell; ++shell) path += profile.shells[shell].crossing(p);
    result.to_source.push_back(path);
  }
  for (; shell < layer.first_shell; ++shell) path += profile.shells[shell].crossing(p);
  result.to_turning = path;
  result.to_turning += descent(profile, layer.first_shell, layer, p);
  return result;
}

}  // namespace

std::vector<Source> list_sources(const Profile &profile, double deepest) {
  std::vector<Source> sources;
  for (std::size_t l = 0; l < profile.layers.size(); ++l) {
    const Layer &layer = profile.layers[l];
    for (std::size_t i = layer.first_shell; i < layer.end_shell; ++i) {
      sources.push_back({profile.shells[i].top, i, l});
      if (sources.back().depth >= deepest) return sources;
    }
    const Shell &last = profile.shells[layer.end_shell - 1];
    sources.push_back({last.bottom, layer.end_shell, l});
    if (last.bottom >= deepest) return sources;
  }
  return sources;
}

RayBranch trace_own_layer(const Profile &profile, const Source &source) {
  const Layer &layer = profile.layers[source.layer];
  const double eta = source.shell < layer.end_shell
                         ? profile.shells[source.shell].eta_top
                         : profile.shells[source.shell - 1].eta_bottom;
  RayBranch branch;
  if (source.shell > 0) {
    for (int k = 0; k < kUpgoingRays; ++k) {
      /* The angle from the vertical, with rays crowding towards the horizontal. */
      const double rest = 1.0 - static_cast<double>(k) / kUpgoingRays;
      const double p = eta * std::cos(0.5 * std::numbers::pi * rest * rest);
      branch.rays.push_back(make_ray(from_surface(profile, source.shell, p), p));
    }
  }
  for (const double p : turning_slownesses(layer, eta)) {
    Path path = from_surface(profile, source.shell, p);
    const Path down = descent(profile, source.shell, layer, p);
    path += down;
    path += down;
    if (p == eta) branch.horizontal = degrees(path.x);
    branch.rays.push_back(make_ray(path, p));
  }
  keep_outward(branch.rays, 0);
  return branch;
}

void trace_deeper_layer(
    const Profile &profile, std::size_t layer_index, const std::vector<Source> &sources,
    const std::function<void(const Source &, const RayBranch &)> &receive) {
  const Layer &layer = profile.layers[layer_index];
  const auto count = static_cast<std::size_t>(
      std::count_if(sources.begin(), sources.end(),
                    [&](const Source &source) { return source.layer < layer_index; }));
  const std::vector<double> slownesses =
      turning_slownesses(layer, profile.entry_slowness(layer));
  std::vector<Descent> descents;
  descents.reserve(slownesses.size());
  for (const double p : slownesses) {
    descents.push_back(descend(profile, layer, sources, count, p));
  }
  for (std::size_t s = 0; s < count; ++s) {
    RayBranch branch;
    for (std::size_t i = 0; i < slownesses.size(); ++i) {
      const Path &up = descents[i].to_source[s];
      const Path &down = descents[i].to_turning;
      branch.rays.push_back(
          make_ray({2.0 * down.x - up.x, 2.0 * down.t - up.t}, slownesses[i]));
    }
    const auto nearest =
        std::min_element(branch.rays.begin(), branch.rays.end(),
                         [](const Ray &a, const Ray &b) { return a.delta < b.delta; });
    branch.rays.erase(branch.rays.begin(), nearest);
    keep_outward(branch.rays, 0);
    receive(sources[s], branch);
  }
}

}  // namespace ksutil::traveltime
