/* layout: places the parts of a figure. */
#ifndef KSUTIL_TOOLS_PLOT_LAYOUT_H
#define KSUTIL_TOOLS_PLOT_LAYOUT_H

#include <vector>

#include "tools/plot/axis_view.h"
#include "tools/plot/canvas.h"
#include "tools/plot/figure.h"
#include "tools/plot/ticks.h"

namespace ksutil::plot {

inline constexpr double kTitleSize = 16.0, kSubtitleSize = 12.0, kPanelTitleSize = 12.0;
inline constexpr double kTitleLine = 20.0, kSubtitleLine = 16.0;  // heights of lines
inline constexpr double kLabelSize = 12.0, kTickSize = 11.0;
inline constexpr double kRowHeight = 19.0;  // of panel titles and legends
inline constexpr double kBarWidth = 14.0, kLegendSample = 22.0;

/* An entry of the legend above a panel. */
struct LegendItem {
  std::string text;
  Colour colour;
  const Line *line = nullptr;         // a sample of this line
  const PointStyle *point = nullptr;  // or this symbol
  Position at;                        // of its left end, on the base line
};

/* A bar of colours at the right of a panel, and the scale beside it. */
struct Bar {
  ColourKey key;
  Rect rect;
  Ticks ticks;
};

/* The parts of a map besides its data, in the coordinates of its panel. */
struct MapLayout {
  struct Outline {
    bool border = false;
    std::vector<Position> points;
  };
  struct Label {
    Position at;  // on the frame
    std::string text;
    bool below = true;  // the frame's lower side; else at its left
  };
  std::vector<Outline> coast;
  bool curved = false;  // the grid below in place of ticks
  std::vector<std::vector<Position>> grid;
  std::vector<Label> labels;
  std::vector<Position> rim;  // of a map of the whole world, in place of the frame
  std::string note;           // the projection
  double bar = 0.0;           // km
  double bar_length = 0.0;    // along x
};

struct PanelLayout {
  Panel panel;  // as it is drawn: a map's longitudes follow each other; texts fit
  double figure_width = 0.0;
  Rect frame;
  AxisView x, y;
  std::optional<MapLayout> map;
  Ticks x_ticks, y_ticks;
  bool x_labels = true;
  std::vector<Colour> line_colours, point_colours;  // of each series
  std::vector<LegendItem> legend;
  std::vector<Bar> bars;
  double keys_y = 0.0;   // where the keys of styles begin
  double label_x = 0.0;  // where the label of y stands
};

struct Layout {
  double width = 0.0, height = 0.0;
  double title_x = 0.0;  // of the left ends of these lines
  std::vector<std::string> title, subtitle;
  std::vector<PanelLayout> panels;
};

Layout lay_out(const Figure &figure);

/* The height of an entry of a key, and the width of its symbols. */
double key_row(const StyleKey::Entry &entry);
double key_sample(const StyleKey &key);

/* The title of the axis, below or at the side of its ticks. */
std::string axis_title(const Axis &axis, const Ticks &ticks);

/* The ends of a mesh's colours. */
Range colour_range(const Mesh &mesh);

/* Turns longitudes by whole circles until they stand together, projects the data of the
 * panel, and finds ranges of both axes; `panel.height` becomes that of the right aspect for
 * this width. */
MapLayout arrange_map(Panel &panel, double width);

}  // namespace ksutil::plot
#endif
