/* time_surface: tabulates the travel times of one kind of ray over source depth and
 * distance.
 *
 * A surface holds no fold and no crossing with other rays, so that time is smooth over
 * both coordinates: cubic in distance (time and slowness are known at the nodes),
 * linear between the closely spaced depths.  The surface of rays from their own layer
 * stores time over chord length instead of time, because times near the source are
 * conical. */
#ifndef KSUTIL_PLATFORM_TRAVELTIME_INTERNAL_TIME_SURFACE_H
#define KSUTIL_PLATFORM_TRAVELTIME_INTERNAL_TIME_SURFACE_H

#include <cstddef>
#include <vector>

#include "platform/traveltime/internal/ray_branch.h"

namespace ksutil::traveltime {

/* Nodes in distance (degrees): `near_count` steps of `near_step`, then far steps. */
struct DistanceAxis {
  double start = 0.0;
  double near_step = 1.0, far_step = 1.0;
  std::size_t near_count = 0;
  std::size_t count = 0;  // nodes in all, at least 2

  double split() const { return start + near_step * static_cast<double>(near_count); }
  double position(std::size_t node) const;
};

/* Between the sources `index` and `index + 1` of the list, which share a layer; weight
 * 0 is the former. */
struct DepthPosition {
  std::size_t index = 0;
  double weight = 0.0;
  double depth = 0.0;  // km
};

class TimeSurface {
 public:
  enum class Quantity { kTime, kTimeOverChord };

  /* The extent of the rays from one source. */
  struct Extent {
    double first = 0.0, last = 0.0;  // degrees
    double horizontal = 0.0;         // degrees: nearer rays leave upward
    double last_time = 0.0;          // s
    double last_slowness = 0.0;      // s/degree
  };
  struct Sample {
    double time = 0.0, slowness = 0.0;
  };

  /* `branches`: those of the sources `first_source` and up, at least two, for a planet
   * of the given radius (km). */
  TimeSurface(Quantity quantity, const std::vector<Source> &sources,
              std::size_t first_source, const std::vector<RayBranch> &branches,
              double radius);

  Extent extent(const DepthPosition &at) const;

  /* Whether the table reaches out to delta; it always reaches the rays' own extent. */
  bool reaches(double delta) const { return delta <= last_node_; }

  /* For a depth among those of the surface and first <= delta <= the last node; beyond
   * the last ray the time rises with the slowness of that ray. */
  Sample sample(const DepthPosition &at, double delta) const;

 private:
  struct Node {
    double value = 0.0;  // of the quantity
    double slope = 0.0;  // per degree
  };

  void fill(const RayBranch &branch, double depth);
  double chord(double delta, double depth, double &slope) const;

  Quantity quantity_;
  std::size_t first_source_;
  double radius_;
  DistanceAxis axis_;
  double last_node_ = 0.0;
  std::vector<Extent> extents_;  // per source
  std::vector<Node> nodes_;      // per source, axis_.count each
};

}  // namespace ksutil::traveltime
#endif
