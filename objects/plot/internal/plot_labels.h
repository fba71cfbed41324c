/* plot_labels: makes labels with the colour, size and symbol of plotted points. */
#ifndef KSUTIL_OBJECTS_PLOT_INTERNAL_PLOT_LABELS_H
#define KSUTIL_OBJECTS_PLOT_INTERNAL_PLOT_LABELS_H

#include "objects/ksvector.h"

namespace ksutil {

/* The parts of a label that have an expression. */
enum { kLabelHue = 1, kLabelSaturation = 2, kLabelSize = 4, kLabelSymbol = 8 };

/* The values of the expressions for one row; 0 for a part without expression. */
struct LabelValues {
  double hue, saturation, size;
  double symbol;  // the result of symbolize()
};

/* Sets the labels of the first n points, n >= 0, from values[n]; see db2vector.  A value
 * that is not finite counts as the hue centre, saturation 0.9, size 1.  If memory is short
 * for a label, the point has none and a message is logged. */
void set_labels(KSVector &vector, int flags, const LabelValues *values, int n, int fill,
                int maxsize, double hue_centre, double hue_range);

/* The symbol's index of a name: for a new name the next, modulo 8; for one met before,
 * that index plus 1, which may be 8. */
int symbolize(const char *name);

}  // namespace ksutil
#endif
