/* The labels that tell how the points of a plot look. */
#ifndef KSUTIL_OBJECTS_PLOT_INTERNAL_PLOT_LABELS_H
#define KSUTIL_OBJECTS_PLOT_INTERNAL_PLOT_LABELS_H

#include "objects/ksvector.h"

namespace ksutil {

/* What of a label has an expression. */
enum { kLabelHue = 1, kLabelSaturation = 2, kLabelSize = 4, kLabelSymbol = 8 };

/* What the expressions gave for one row; zero where there is none. */
struct LabelValues {
  double hue, saturation, size;
  double symbol;  // what symbolize gave
};

/* Sets the labels of the first n points, n >= 0, from values[n]; see db2vector.  What is
 * not a finite number counts as the hue centre, saturation 0.9, size 1.  A label for which
 * memory is short is left out, with a message. */
void set_labels(KSVector &vector, int flags, const LabelValues *values, int n, int fill,
                int maxsize, double hue_centre, double hue_range);

/* The symbol's index of a name: for a new name the next, modulo 8; for one met before,
 * that index plus 1, which may be 8. */
int symbolize(const char *name);

}  // namespace ksutil
#endif
