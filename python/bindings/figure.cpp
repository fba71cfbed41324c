/* figure: pictures of the drawing library for Python. */
#include <pybind11/stl.h>

#include <array>
#include <optional>

#include "bindings/bindings.h"
#include "bindings/interpreter/arguments.h"
#include "bindings/interpreter/failure.h"
#include "bindings/interpreter/locks.h"

#include "tools/plot/beachball.h"
#include "tools/plot/figure.h"

namespace ksutil::python {

namespace {

using plot::kUnset;

/* A figure that is filled from Python; guarded by the GIL, and copied to be drawn. */
struct Figure {
  plot::Figure figure;

  plot::Panel &panel(int index) {
    const auto count = static_cast<int>(figure.panels.size());
    if (index < 0) index += count;
    if (index < 0 || index >= count) throw py::index_error("there is no such panel");
    return figure.panels[static_cast<std::size_t>(index)];
  }
};

plot::Scale scale_of(const std::string &word) {
  if (word == "linear") return plot::Scale::kLinear;
  if (word == "log") return plot::Scale::kLog;
  if (word == "time") return plot::Scale::kTime;
  throw py::value_error("a scale is 'linear', 'log' or 'time', not '" + word + "'");
}

std::optional<plot::Colour> colour_of(const std::optional<std::string> &text) {
  if (!text) return std::nullopt;
  plot::Colour colour;
  if (!plot::parse_colour(*text, colour)) {
    throw py::value_error("'" + *text + "' is not a colour like '#rrggbb'");
  }
  return colour;
}

std::vector<double> list_of(const py::object &values, const char *name,
                            int dimensions = 1) {
  const Doubles numbers = doubles(values, name, dimensions, kUnset);
  return {numbers.data(), numbers.data() + numbers.size()};
}

void limits(plot::Axis &axis, const std::optional<double> &low,
            const std::optional<double> &high) {
  if (low) axis.low = *low;
  if (high) axis.high = *high;
}

int add_panel(
    Figure &self, const std::string &title, const std::string &xlabel,
    const std::string &ylabel, const std::string &xscale, const std::string &yscale,
    const std::optional<std::pair<std::optional<double>, std::optional<double>>> &xlim,
    const std::optional<std::pair<std::optional<double>, std::optional<double>>> &ylim,
    bool reverse_y, bool bare, std::optional<double> height,
    std::optional<double> aspect) {
  plot::Panel panel;
  panel.title = title;
  panel.x.label = xlabel;
  panel.y.label = ylabel;
  panel.x.scale = scale_of(xscale);
  panel.y.scale = scale_of(yscale);
  panel.y.reverse = reverse_y;
  if (xlim) limits(panel.x, xlim->first, xlim->second);
  if (ylim) limits(panel.y, ylim->first, ylim->second);
  panel.bare = bare;
  if (height) panel.height = *height;
  if (aspect) panel.aspect = *aspect;
  self.figure.panels.push_back(std::move(panel));
  return static_cast<int>(self.figure.panels.size()) - 1;
}

void add_map(Figure &self, const std::string &title, const std::string &projection,
             const std::optional<std::array<double, 4>> &extent, bool coast,
             bool borders) {
  plot::Panel panel;
  panel.title = title;
  plot::Map map;
  if (!plot::parse_projection(projection, map.projection)) {
    throw py::value_error("there is no projection '" + projection + "'");
  }
  if (extent) {
    map.west = (*extent)[0];
    map.east = (*extent)[1];
    map.south = (*extent)[2];
    map.north = (*extent)[3];
  }
  map.coast = coast;
  map.borders = borders;
  panel.map = map;
  self.figure.panels.push_back(std::move(panel));
}

void add_line(Figure &self, const py::object &y, const py::object &x, double start,
              double step, const std::string &name,
              const std::optional<std::string> &colour, double width, bool dashed,
              int panel) {
  plot::Line line;
  line.y = list_of(y, "y");
  if (!x.is_none()) {
    line.x = list_of(x, "x");
    if (line.x.size() != line.y.size()) {
      throw py::value_error("x and y must have the same length");
    }
  }
  line.start = start;
  line.step = step;
  line.name = name;
  line.colour = colour_of(colour);
  line.width = width;
  line.dashed = dashed;
  self.panel(panel).lines.push_back(std::move(line));
}

void add_points(Figure &self, const py::object &x, const py::object &y,
                const py::object &size, const std::string &symbol,
                const std::string &name, const std::optional<std::string> &colour,
                const std::optional<std::string> &fill, int panel) {
  const std::vector<double> xs = list_of(x, "x"), ys = list_of(y, "y");
  const std::vector<double> sizes = list_of(size, "size", -1);
  if (xs.size() != ys.size() || (sizes.size() != 1 && sizes.size() != xs.size())) {
    throw py::value_error("x, y and size must have the same length");
  }
  plot::Points points;
  plot::PointStyle style;
  if (!plot::parse_symbol(symbol, style.symbol)) {
    throw py::value_error("there is no symbol '" + symbol + "'");
  }
  style.colour = colour_of(colour);
  style.fill = colour_of(fill);
  for (std::size_t i = 0; i < xs.size(); ++i) {
    style.size = sizes.size() == 1 ? sizes[0] : sizes[i];
    points.points.push_back({xs[i], ys[i], style});
  }
  points.name = name;
  points.colour = colour_of(colour);
  self.panel(panel).points.push_back(std::move(points));
}

void add_mesh(Figure &self, const py::object &x, const py::object &y,
              const py::object &values, const std::string &label, bool diverging,
              int panel) {
  plot::Mesh mesh;
  mesh.x = list_of(x, "x");
  mesh.y = list_of(y, "y");
  const Doubles cells = doubles(values, "values", 2, kUnset);
  mesh.ny = static_cast<std::size_t>(cells.shape(0));
  mesh.nx = static_cast<std::size_t>(cells.shape(1));
  const auto fits = [](std::size_t coordinates, std::size_t count) {
    return count > 0 && (coordinates == count || coordinates == count + 1);
  };
  if (!fits(mesh.x.size(), mesh.nx) || !fits(mesh.y.size(), mesh.ny)) {
    throw py::value_error("values must have the shape [ny, nx] of the coordinates");
  }
  mesh.values.assign(cells.data(), cells.data() + cells.size());
  mesh.label = label;
  mesh.diverging = diverging;
  self.panel(panel).meshes.push_back(std::move(mesh));
}

void add_mechanism(Figure &self, const std::array<double, 6> &tensor, double x,
                   double y, double size, const std::string &label,
                   const std::optional<std::string> &fill, bool upper, bool planes,
                   bool axes, int panel) {
  plot::BeachballStyle style;
  style.upper = upper;
  style.planes = planes;
  style.axes = axes;
  plot::Disk disk;
  const Failure failure;
  if (!plot::beachball(tensor.data(), style, disk)) failure.raise("not a tensor");
  disk.x = x;
  disk.y = y;
  disk.size = size;
  disk.label = label;
  disk.fill = colour_of(fill);
  self.panel(panel).disks.push_back(std::move(disk));
}

py::str svg(const Figure &self) {
  const plot::Figure copy = self.figure;
  const Failure failure;
  const std::string text = released([&] { return plot::svg_text(copy); });
  if (text.empty()) failure.raise("the figure cannot be drawn");
  return py::str(text);
}

void save(const Figure &self, const py::object &path, std::optional<double> dpi) {
  plot::Figure copy = self.figure;
  if (dpi) copy.dpi = *dpi;
  const std::string name = path_of(path);
  const Failure failure;
  failure.check(released([&] { return plot::write_figure(copy, name); }));
}

}  // namespace

void bind_figure(py::module_ &m) {
  py::class_<Figure> type(m, "Figure",
                          R"(A picture of panels, drawn as SVG, PNG or PDF.

Figure(title="", *, subtitle="", width=900.0, shared_x=False)

width  in pixels of an SVG, 96 an inch

Notebooks show figures as they are.  Lines, points and the like go into the panel that was
added last; panel=i means another.)");
  type.def(py::init([](const std::string &title, const std::string &subtitle,
                       double width, bool shared_x) {
             Figure made;
             made.figure.title = title;
             made.figure.subtitle = subtitle;
             made.figure.width = width;
             made.figure.shared_x = shared_x;
             return made;
           }),
           py::arg("title") = "", py::kw_only(), py::arg("subtitle") = "",
           py::arg("width") = 900.0, py::arg("shared_x") = false);
  type.def("panel", add_panel, py::arg("title") = "", py::kw_only(),
           py::arg("xlabel") = "", py::arg("ylabel") = "", py::arg("xscale") = "linear",
           py::arg("yscale") = "linear", py::arg("xlim") = py::none(),
           py::arg("ylim") = py::none(), py::arg("reverse_y") = false,
           py::arg("bare") = false, py::arg("height") = py::none(),
           py::arg("aspect") = py::none(),
           R"(Adds a panel and gives its number.

xscale, yscale  "linear", "log" or "time" (epoch seconds)
xlim, ylim      (low, high), either may be None)");
  type.def("map", add_map, py::arg("title") = "", py::kw_only(),
           py::arg("projection") = "plate-carree", py::arg("extent") = py::none(),
           py::arg("coast") = true, py::arg("borders") = true,
           R"(Adds a map: x is the longitude, y the latitude, in degrees.

projection  "plate-carree", "mercator", "equal-area" or "azimuthal"
extent      (west, east, south, north))");
  type.def("line", add_line, py::arg("y"), py::arg("x") = py::none(), py::kw_only(),
           py::arg("start") = 0.0, py::arg("step") = 1.0, py::arg("name") = "",
           py::arg("colour") = py::none(), py::arg("width") = 1.2,
           py::arg("dashed") = false, py::arg("panel") = -1,
           R"(Adds a line through y [n] at x [n], or at start + i * step.

NaN, masked values and gaps interrupt it; name stands in the legend.)");
  type.def("points", add_points, py::arg("x"), py::arg("y"), py::kw_only(),
           py::arg("size") = 6.0, py::arg("symbol") = "circle", py::arg("name") = "",
           py::arg("colour") = py::none(), py::arg("fill") = py::none(),
           py::arg("panel") = -1,
           R"(Adds symbols at x [n] and y [n].

size    diameter: one, or [n]
symbol  point, cross, x, triangle, square, circle, star or diamond)");
  type.def(
      "mesh", add_mesh, py::arg("x"), py::arg("y"), py::arg("values"), py::kw_only(),
      py::arg("label") = "", py::arg("diverging") = false, py::arg("panel") = -1,
      "Adds coloured cells of values [ny, nx] at ascending x and y; NaN is blank.");
  type.def("mechanism", add_mechanism, py::arg("tensor"), py::arg("x") = 0.0,
           py::arg("y") = 0.0, py::kw_only(), py::arg("size") = 30.0,
           py::arg("label") = "", py::arg("fill") = py::none(),
           py::arg("upper") = false, py::arg("planes") = false, py::arg("axes") = false,
           py::arg("panel") = -1,
           R"(Adds the focal sphere of a moment tensor.

tensor  mrr, mtt, mpp, mrt, mrp, mtp in N m (r up, t south, p east)
upper   the upper hemisphere in place of the lower one
planes  also the nodal planes of the best double couple
axes    letters at the axes T and P)");
  type.def(
      "marker",
      [](Figure &self, double x, const std::string &label,
         const std::optional<std::string> &colour, int panel) {
        self.panel(panel).markers.push_back({x, label, colour_of(colour)});
      },
      py::arg("x"), py::arg("label") = "", py::kw_only(),
      py::arg("colour") = py::none(), py::arg("panel") = -1,
      "Adds a line over the height of the panel, with a text.");
  type.def("svg", svg, "The text of an SVG document.");
  type.def("_repr_svg_", svg);
  type.def("save", save, py::arg("path"), py::kw_only(), py::arg("dpi") = py::none(),
           "Writes SVG, PNG or PDF, by the end of the file's name; dpi of a PNG.");
  type.def("__repr__", [](const Figure &self) {
    return "<ksutil.Figure '" + self.figure.title + "', " +
           std::to_string(self.figure.panels.size()) + " panels>";
  });
}

}  // namespace ksutil::python
