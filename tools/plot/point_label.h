/* point_label: reads the labels of plot vectors, which define the look of points. */
#ifndef KSUTIL_TOOLS_PLOT_POINT_LABEL_H
#define KSUTIL_TOOLS_PLOT_POINT_LABEL_H

#include <string_view>

#include "objects/ksvector.h"
#include "tools/plot/figure.h"

namespace ksutil::plot {

/* The diameter of a symbol of size 1, 2, ... as labels count sizes. */
double label_size(int size);

/* Reads "{ o=#rrrrggggbbbb f=#rrrrggggbbbb sz=5 sy=circle }": outline, fill, size and
 * symbol, each where it is given.  Other keys are passed over.  False, with the style
 * untouched, for a text that is no such label. */
bool parse_point_label(std::string_view label, PointStyle &style);

/* The points of a point vector with y[iy], as their labels say; those without a label, or
 * with one that is just a text, look like `plain`. */
Points vector_points(const KSVector &vector, int iy, const PointStyle &plain);

/* The points of a point vector, or the samples of a series, as a line. */
Line vector_line(const KSVector &vector, int iy);

}  // namespace ksutil::plot
#endif
