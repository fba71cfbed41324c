/* projection: lays longitudes and latitudes on a plane, on a sphere of 6371 km.
 *
 * Source of the formulae: J. P. Snyder, Map Projections - A Working Manual, U.S. Geological
 * Survey Professional Paper 1395 (1987): sections 7 (Mercator), 24 (Lambert azimuthal
 * equal-area), 25 (azimuthal equidistant), 31 (Mollweide). */
#ifndef KSUTIL_TOOLS_PLOT_PROJECTION_H
#define KSUTIL_TOOLS_PLOT_PROJECTION_H

#include <optional>

#include "tools/plot/canvas.h"

namespace ksutil::plot {

class PlaneMap {
 public:
  enum class Kind { kMercator, kLambertEqualArea, kAzimuthalEquidistant, kMollweide };

  /* Degrees.  The middle latitude counts for the two azimuthal kinds alone. */
  PlaneMap(Kind kind, double centre_lon, double centre_lat);

  /* x to the east and y to the north, km; none for what the map cannot show: places near the
   * poles (Mercator) or near the antipode of the centre. */
  std::optional<Position> at(double lon, double lat) const;

  /* Lines that pass from one edge of the world to the other must be cut there: whether two
   * neighbouring points lie on different sides of it. */
  bool cut_between(double lon, double next_lon) const;

  Kind kind() const { return kind_; }
  double centre_lon() const { return lon_; }
  double centre_lat() const { return lat_; }

 private:
  double turned(double lon) const;  // from the centre, -180 to 180

  Kind kind_;
  double lon_, lat_;
  double sin_lat_, cos_lat_;
};

}  // namespace ksutil::plot
#endif
