/* beachball: a mechanism as a disk of a figure. */
#ifndef KSUTIL_TOOLS_PLOT_BEACHBALL_H
#define KSUTIL_TOOLS_PLOT_BEACHBALL_H

#include "platform/db/db.h"
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

/* The tensor (N m) of a record of mt or of a view with it; of its first nodal plane, with the
 * moment of the record or 1 N m, where elements are missing.  False, without a message, when
 * the record has neither. */
bool row_mechanism(Dbptr row, double *tensor);

}  // namespace ksutil::plot
#endif
