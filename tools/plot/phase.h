/* phase: phases of responses, which begin again after a turn. */
#ifndef KSUTIL_TOOLS_PLOT_PHASE_H
#define KSUTIL_TOOLS_PLOT_PHASE_H

#include "tools/plot/figure.h"

namespace ksutil::plot {

/* Degrees from -180 to 180, with ticks at quarters of a turn. */
Axis phase_axis();

/* Adds a phase (degrees, any number of turns) at a frequency above 0 to a line.  The line takes
 * the shorter way from the phase before: where that passes 180 degrees, it leaves at one edge
 * and comes back at the other.  A phase that is not finite is a gap. */
void append_phase(Line &line, double frequency, double phase);

}  // namespace ksutil::plot
#endif
