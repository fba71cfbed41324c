/* Travel times by numerical quadrature of the ray integrals over radius, independent of
 * the library's shells and tables: slow, for comparison only. */
#ifndef KSUTIL_TESTS_PLATFORM_TRAVELTIME_REFERENCE_RAYS_H
#define KSUTIL_TESTS_PLATFORM_TRAVELTIME_REFERENCE_RAYS_H

#include <functional>
#include <vector>

#include "platform/traveltime/traveltime.h"

namespace ksutil::traveltime {

constexpr double kEarthRadius = 6371.0;

/* Velocity (km/s) as a smooth function of radius (km) between two radii. */
struct ReferenceLayer {
  double top = 0.0, bottom = 0.0;  // radii, km
  std::function<double(double)> velocity;

  double eta(double r) const { return r / velocity(r); }
};

struct ReferenceModel {
  std::vector<ReferenceLayer> layers;  // downward
  double core_radius = 0.0, inner_core_radius = 0.0;
};

/* The polynomials of iasp91: Kennett & Engdahl, Geophys. J. Int. 105 (1991), table 2. */
ReferenceModel reference_iasp91(Wave wave);
/* The model file in the tree, linear between its points. */
ReferenceModel reference_ak135(Wave wave);

/* All rays from one depth. */
class ReferenceRays {
 public:
  ReferenceRays(const ReferenceModel &model, double depth);

  /* The first arrival's time (s) for up to 178 degrees, with waves along the core up to
   * diffraction_end(). */
  double first_time(double delta) const;
  double diffraction_end() const { return diffraction_end_; }

 private:
  struct Ray {
    double p = 0.0;  // s/rad
    double delta = 0.0, time = 0.0;
  };
  struct Family {
    bool up = false;
    std::vector<Ray> rays;
  };

  Ray trace(double p, bool up) const;
  void scan(double upper, double lower, bool up);
  double refine(const Family &family, std::size_t i, double delta) const;

  const ReferenceModel &model_;
  double source_;  // radius, km
  std::vector<Family> families_;
  Ray grazing_;  // touches the core
  double diffraction_end_ = 0.0;
};

}  // namespace ksutil::traveltime
#endif
