/* ray_branch: traces the rays from one source depth to the surface over their range of
 * slowness. */
#ifndef KSUTIL_PLATFORM_TRAVELTIME_INTERNAL_RAY_BRANCH_H
#define KSUTIL_PLATFORM_TRAVELTIME_INTERNAL_RAY_BRANCH_H

#include <cstddef>
#include <functional>
#include <vector>

#include "platform/traveltime/internal/profile.h"

namespace ksutil::traveltime {

struct Ray {
  double delta = 0.0;     // degrees
  double time = 0.0;      // s
  double slowness = 0.0;  // s/degree
};

/* A source depth of the tables.  A depth between two layers occurs twice: once as the
 * bottom of the upper layer, where rays start into that layer only, and once as the top
 * of the lower one. */
struct Source {
  double depth = 0.0;     // km
  std::size_t shell = 0;  // the first shell below the source
  std::size_t layer = 0;  // the layer it belongs to
};

/* The tops and bottoms of all shells down to `deepest` km or the first beyond it, in
 * ascending order. */
std::vector<Source> list_sources(const Profile &profile, double deepest);

/* The rays of a source that turn in one layer (or leave upward), in order of rising
 * distance, at least one. */
struct RayBranch {
  std::vector<Ray> rays;
  double horizontal = 0.0;  // distance of the ray that leaves horizontally, degrees
};

/* Rays that stay within the source's layer and those above: they leave upward, then
 * downward. */
RayBranch trace_own_layer(const Profile &profile, const Source &source);

/* For each of the sources above the layer, in order, the rays that turn in the layer and
 * move outward as they turn deeper: of a folded curve only this part can arrive first. */
void trace_deeper_layer(
    const Profile &profile, std::size_t layer, const std::vector<Source> &sources,
    const std::function<void(const Source &, const RayBranch &)> &receive);

}  // namespace ksutil::traveltime
#endif
