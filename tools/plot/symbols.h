/* symbols: draws the plotting symbols. */
#ifndef KSUTIL_TOOLS_PLOT_SYMBOLS_H
#define KSUTIL_TOOLS_PLOT_SYMBOLS_H

#include "tools/plot/canvas.h"
#include "tools/plot/figure.h"

namespace ksutil::plot {

/* A symbol with its centre at a place; `colour` is for a style without one. */
void draw_symbol(Canvas &canvas, Position at, const PointStyle &style,
                 const Colour &colour);

}  // namespace ksutil::plot
#endif
