/* coast_lines: the coasts of the Earth and the borders of its countries, from Natural
 * Earth; see NOTICE in this folder. */
#ifndef KSUTIL_TOOLS_PLOT_COAST_COAST_LINES_H
#define KSUTIL_TOOLS_PLOT_COAST_COAST_LINES_H

#include <vector>

namespace ksutil::plot {

struct GeoPoint {
  float lon = 0.0F, lat = 0.0F;  // degrees
};

struct GeoLine {
  bool border = false;  // else a coast
  std::vector<GeoPoint> points;
};

/* Lines at 1:110m, or at 1:50m when `fine`.  Decoded at the first call; from any thread. */
const std::vector<GeoLine> &coast_lines(bool fine);

}  // namespace ksutil::plot
#endif
