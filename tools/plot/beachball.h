/* beachball: a mechanism as a disk of a figure. */
#ifndef KSUTIL_TOOLS_PLOT_BEACHBALL_H
#define KSUTIL_TOOLS_PLOT_BEACHBALL_H

#include "tools/plot/figure.h"

namespace ksutil::plot {

struct BeachballStyle {
  bool upper = false;          // hemisphere; the lower one by default
  bool stereographic = false;  // the equal-area projection by default
  bool double_couple = false;  // the best double couple alone, instead of the tensor
  bool planes = false;         // also the nodal planes of the best double couple
  bool axes = false;           // letters at the axes T and P
};

/* The disk of a tensor (mrr, mtt, mpp, mrt, mrp, mtp, N m): areas of outward motion filled.
 * False with a message: not a tensor. */
bool beachball(const double *tensor, const BeachballStyle &style, Disk &disk);

}  // namespace ksutil::plot
#endif
