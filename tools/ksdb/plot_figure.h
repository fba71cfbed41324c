/* plot_figure: makes a figure of points from the records of a view. */
#ifndef KSUTIL_TOOLS_KSDB_PLOT_FIGURE_H
#define KSUTIL_TOOLS_KSDB_PLOT_FIGURE_H

#include <optional>
#include <string>

#include "platform/db/db.h"
#include "tools/plot/figure.h"

namespace ksutil::tools {

/* All expressions but x and y may be empty. */
struct PlotOptions {
  std::string x, y, hue, saturation, size, symbol;
  std::string title, subtitle, x_label, y_label, hue_label, size_label;
  int max_size = 10;
  /* From amber (the smallest value) over red and violet to blue: these hues also differ
   * in brightness, for readers who distinguish few colours. */
  double hue_centre = -45.0, hue_range = -190.0;
  /* The scale of --hue: these hues, else colours that grow evenly lighter. */
  bool hues = false;
  double opacity = 1.0;
  std::optional<plot::Map> map;
  bool hollow = false;
};

/* Makes one panel with a point for each record on which all expressions have a value, and
 * keys for hue, saturation, size and symbol; a disk for each mechanism with the symbol
 * "beachball".  False with a message. */
bool make_plot(Dbptr view, const PlotOptions &options, plot::Figure &figure);

}  // namespace ksutil::tools
#endif
