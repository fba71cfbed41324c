/* first_arrival_table: the first arrivals of one model and type of wave, over all
 * depths and distances. */
#ifndef KSUTIL_PLATFORM_TRAVELTIME_INTERNAL_FIRST_ARRIVAL_TABLE_H
#define KSUTIL_PLATFORM_TRAVELTIME_INTERNAL_FIRST_ARRIVAL_TABLE_H

#include <cstddef>
#include <vector>

#include "platform/traveltime/internal/earth_model.h"
#include "platform/traveltime/internal/time_surface.h"
#include "platform/traveltime/traveltime.h"

namespace ksutil::traveltime {

/* A table does not change after its construction: any number of threads may read it. */
class FirstArrivalTable {
 public:
  static constexpr double kDeepest = 700.0;  // km

  FirstArrivalTable(const EarthModel &model, Wave wave);

  /* 0 <= delta <= 180 degrees, 0 <= depth <= kDeepest km. */
  Arrival find(double delta, double depth) const;

 private:
  /* Rays that turn in one layer. */
  struct Branch {
    TimeSurface surface;
    std::size_t layer;
    Region region;
    bool diffracts;
  };

  void add_own(const Profile &profile, std::size_t layer);
  void add_deeper(const Profile &profile, std::size_t layer);
  DepthPosition locate(double depth) const;
  void compare(const Branch &branch, const DepthPosition &at, double delta,
               double diffraction_end, Arrival &best) const;

  Wave wave_;
  std::vector<Source> sources_;
  std::vector<double> depths_;  // of the sources
  std::vector<Branch> own_;     // per layer that holds sources
  std::vector<Branch> deeper_;  // for sources above the branch's layer, downward
};

}  // namespace ksutil::traveltime
#endif
