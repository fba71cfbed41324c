/* Figures: what a tool draws, as data.  Fill a Figure and call write_figure.
 *
 *   Figure figure;
 *   figure.title = "ANMO BHZ";
 *   Panel &panel = figure.panels.emplace_back();
 *   panel.x = {.scale = Scale::kTime};
 *   panel.y = {.label = "counts"};
 *   panel.lines.push_back({.y = samples, .start = time, .step = 1.0 / samprate});
 *   panel.markers.push_back({.x = arrival, .label = "P"});
 *   if (write_figure(figure, "anmo.svg") != 0) return kFailure;
 *
 * Everything has a default: axes find their ranges, series their colours, panels their
 * heights.  Lengths are in units of the figure, 96 an inch, which are pixels of an SVG and,
 * unless `dpi` says otherwise, two pixels of a PNG.  Texts are UTF-8; bytes that are not
 * are shown as question marks.
 *
 * Threads: figures are plain data; write_figure may run in several threads at once. */
#ifndef KSUTIL_TOOLS_PLOT_FIGURE_H
#define KSUTIL_TOOLS_PLOT_FIGURE_H

#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "tools/plot/colour.h"

namespace ksutil::plot {

inline constexpr double kUnset = std::numeric_limits<double>::quiet_NaN();

enum class Scale {
  kLinear,
  kLog,  // values that are not positive are gaps
  kTime  // epoch seconds, labelled as UTC dates and times
};

/* The form of the numbers at the ticks. */
enum class TickForm { kNumber, kLatitude, kLongitude };

/* A tick with a text of its own. */
struct NamedTick {
  double value = 0.0;
  std::string text = {};
};

struct Axis {
  std::string label = {};  // with its unit: "depth (km)"
  Scale scale = Scale::kLinear;
  double low = kUnset, high = kUnset;  // unset ends come from the data, with a margin
  bool reverse = false;                // low at the right or at the top
  TickForm form = TickForm::kNumber;
  std::vector<NamedTick> names = {};  // ascending; in place of numbers, if any
  bool whole = false;                 // numbers of things: no ticks between
};

/* A line through points in their order, or through samples (no x).  What is not a number
 * interrupts it, and so do samples that mark a gap (those of tr_isgap); a single point
 * between gaps is drawn as a dot.  Any number of points: where many share a column of
 * pixels, only their extremes are drawn. */
struct Line {
  std::vector<double> x = {};  // [y.size()], or empty: x = start + i * step
  std::vector<double> y = {};
  double start = 0.0, step = 1.0;
  std::string name = {};              // for the legend; empty: not in it
  std::optional<Colour> colour = {};  // the panel's next colour by default
  double width = 1.2;
  bool dashed = false;
  std::optional<Colour> fill = {};  // of the area between the line and y = 0
};

/* In the order of the library's plot vectors: point, cross, x, ... */
enum class Symbol {
  kPoint,  // a filled disc
  kCross,
  kX,
  kTriangle,
  kSquare,
  kCircle,
  kStar,
  kDiamond
};
inline constexpr int kSymbolCount = 8;

/* "point", "cross", ... and back; false for another name. */
const char *symbol_name(Symbol symbol);
bool parse_symbol(std::string_view name, Symbol &symbol);

struct PointStyle {
  Symbol symbol = Symbol::kCircle;
  double size = 6.0;                  // diameter
  std::optional<Colour> colour = {};  // outline; the series' colour by default
  std::optional<Colour> fill = {};    // none: hollow
};

struct Point {
  double x = 0.0, y = 0.0;  // not drawn when one is not a number
  PointStyle style = {};
};

/* Points with symbols; later ones lie on top.  Many of them are one image in an SVG or PDF. */
struct Points {
  std::vector<Point> points = {};
  std::string name = {};  // for the legend, with the style of the first point
  std::optional<Colour> colour = {};  // of points without one; the next one by default
};

/* A round symbol with areas and lines inside, as a focal sphere seen from above.  Places
 * lie on the unit disk, x to the right, y up. */
struct DiskPlace {
  double x = 0.0, y = 0.0;
};
struct DiskText {
  DiskPlace at = {};
  std::string text = {};
};
struct Disk {
  double x = 0.0,
         y = 0.0;      // its middle, in the panel; not drawn when one is not a number
  double size = 30.0;  // diameter, in units of the figure
  std::vector<std::vector<DiskPlace>> areas =
      {};  // closed; one inside another is a hole
  std::vector<std::vector<DiskPlace>> lines = {};
  std::vector<DiskText> texts = {};
  std::optional<Colour> fill = {};  // of the areas; the panel's next colour by default
  double opacity = 1.0;
  std::string label = {};  // beneath
};

/* A field of values over a rectangle, drawn as coloured cells with a bar of the scale.
 * Coordinates ascend; a cell reaches half-way to its neighbours, or, when there is one
 * coordinate more than there are values, from one coordinate to the next. */
struct Mesh {
  std::vector<double> x = {}, y = {};  // [nx] or [nx + 1], [ny] or [ny + 1]
  std::vector<double> values = {};  // [ny * nx], x fastest; gaps as of samples: blank
  std::size_t nx = 0, ny = 0;
  std::string label = {};              // of the colour bar, with the unit
  double low = kUnset, high = kUnset;  // of the colours; from the values by default
  bool diverging = false;              // colours on both sides of 0
};

/* A line over the height of the panel, with a text at its upper end. */
struct Marker {
  double x = 0.0;
  std::string label = {};
  std::optional<Colour> colour = {};
};

/* A key at the right of a panel that explains the look of its points. */
struct ColourKey {
  std::string label = {};
  double low = 0.0, high = 1.0;
  ColourMap map = {};
  bool time = false;     // low and high are epoch seconds
  bool reverse = false;  // low at the top
};
struct StyleKey {
  std::string label = {};
  struct Entry {
    PointStyle style = {};
    std::string text = {};
  };
  std::vector<Entry> entries = {};
};

/* How longitudes and latitudes are laid on the plane.  kEqualArea is Lambert's azimuthal
 * projection, and Mollweide's for what spans more than half of the world, unless that lies
 * around one pole; kAzimuthal keeps distances from its centre. */
enum class Projection { kPlateCarree, kMercator, kEqualArea, kAzimuthal };

/* "plate-carree", "mercator", "equal-area", "azimuthal" and back; false for another name. */
const char *projection_name(Projection projection);
bool parse_projection(std::string_view name, Projection &projection);

/* What makes a panel a map: x and y are degrees.  Panels with meshes are plate carree.  The
 * map names its projection, and has a bar of kilometres, which holds in its middle. */
struct Map {
  Projection projection = Projection::kPlateCarree;
  /* The extent, degrees; unset ends come from the data with a margin, longitudes cut where
   * fewest points are. */
  double west = kUnset, east = kUnset, south = kUnset, north = kUnset;
  /* The centre of kEqualArea and kAzimuthal; the middle of the extent by default. */
  double centre_lon = kUnset, centre_lat = kUnset;
  bool coast = true, borders = true;
};

struct Panel {
  std::string title = {};  // small, above the left end
  Axis x = {}, y = {};
  std::vector<Mesh> meshes = {};  // drawn first; each has its colour bar
  std::vector<Line> lines = {};
  std::vector<Points> points = {};
  std::vector<Disk> disks = {};  // on top of the points
  std::vector<Marker> markers = {};
  std::vector<ColourKey> colour_keys = {};
  std::vector<StyleKey> style_keys = {};
  std::string empty_note = "no data";  // in the frame when nothing else is
  bool bare = false;                   // no frame, grid, ticks or labels of axes
  double height = kUnset;       // of the frame; by default a share of a pleasant whole
  std::optional<Map> map = {};  // the height follows from the extent
  /* The length of a unit of y over that of a unit of x: the height follows, and y is widened
   * where the panel would be too flat to read. */
  double aspect = kUnset;
};

struct Figure {
  std::string title = {};
  std::string subtitle = {};  // smaller, under the title
  std::vector<Panel> panels = {};
  double width = 900.0;
  double dpi = 192.0;  // dots an inch of a PNG
  bool shared_x =
      false;  // one range of x for all panels, ticks labelled under the last
};

/* Writes the figure as SVG, PNG or PDF, by the end of the file's name.  0, or -1 with a message
 * in the error register; a file that could not be written whole is removed. */
int write_figure(const Figure &figure, const std::string &path);

/* The figure as the text of an SVG document; empty, with a message, when it cannot be
 * drawn (no panels, a size that is not positive or out of reach). */
std::string svg_text(const Figure &figure);

}  // namespace ksutil::plot
#endif
