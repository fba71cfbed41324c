/* catalogue_figures: the usual figures of a catalogue. */
#ifndef KSUTIL_TOOLS_KSEVENTS_PLOT_CATALOGUE_FIGURES_H
#define KSUTIL_TOOLS_KSEVENTS_PLOT_CATALOGUE_FIGURES_H

#include <vector>

#include "tools/ksevents/plot/catalogue.h"
#include "tools/plot/figure.h"

namespace ksutil::tools {

/* A vertical plane through a place. */
struct Section {
  double azimuth = 90.0;                          // of x, degrees clockwise from north
  double lon = plot::kUnset, lat = plot::kUnset;  // the place; the middle of the events
  double half_width = plot::kUnset;  // km: events farther from the plane are left out
  double exaggeration =
      plot::kUnset;  // of depth over distance; 1, or more for a flat one
};

/* Each adds its panels and tells in the subtitle what was computed, and by which method. */
void add_map(const std::vector<CatalogueEvent> &events, const plot::Map &map,
             plot::Figure &figure);
void add_section(const std::vector<CatalogueEvent> &events, const Section &section,
                 plot::Figure &figure);
/* mc NaN: by maximum curvature. */
void add_frequency_magnitude(const std::vector<CatalogueEvent> &events, double mc,
                             double bin, plot::Figure &figure);
void add_cumulative(const std::vector<CatalogueEvent> &events, plot::Figure &figure);
void add_magnitude_time(const std::vector<CatalogueEvent> &events,
                        plot::Figure &figure);
void add_hours(const std::vector<CatalogueEvent> &events, plot::Figure &figure);
void add_depths(const std::vector<CatalogueEvent> &events, plot::Figure &figure);
/* Of times, in s. */
void add_residuals(const std::vector<double> &residuals, plot::Figure &figure);

/* Points coloured by depth and sized by magnitude, with keys; used by maps and sections. */
void add_events(const std::vector<CatalogueEvent> &events, plot::Panel &panel);

}  // namespace ksutil::tools
#endif
