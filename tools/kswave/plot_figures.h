/* plot_figures: makes the pictures of kswave plot. */
#ifndef KSUTIL_TOOLS_KSWAVE_PLOT_FIGURES_H
#define KSUTIL_TOOLS_KSWAVE_PLOT_FIGURES_H

#include "platform/traveltime/traveltime.h"
#include "tools/kswave/event_picks.h"
#include "tools/kswave/selection.h"
#include "tools/plot/figure.h"

namespace ksutil::tools {

struct PlotLook {
  Processing processing;
  traveltime::Model model = traveltime::Model::kIasp91;
  bool common = false;         // one scale for all traces
  double scale = 1.0;          // of sections and days: heights of traces
  double line_minutes = 60.0;  // of a day
};

inline const plot::Colour kTraceColour{0.12, 0.25, 0.45, 1.0};
inline const plot::Colour kPickColour{0.80, 0.12, 0.12, 1.0};
inline const plot::Colour kTheoryColour{0.10, 0.50, 0.25, 1.0};

/* One trace under the other.  `event` may be null.  False with messages; a channel that
 * cannot be read is left out, with `complete` false. */
bool add_traces(const ChannelSet &set, const PlotLook &look, const EventPicks *event,
                plot::Figure &figure, bool &complete);

/* Traces at their distances from an event, over the time after its origin. */
bool add_section(const ChannelSet &set, const PlotLook &look, const EventPicks &event,
                 plot::Figure &figure, bool &complete);

/* The days of one channel in lines of some minutes each. */
bool add_day(const ChannelSet &set, const PlotLook &look, plot::Figure &figure);

}  // namespace ksutil::tools
#endif
