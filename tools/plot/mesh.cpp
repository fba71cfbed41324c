#include <algorithm>
#include <cmath>

#include "tools/plot/draw.h"

namespace ksutil::plot {
namespace {

constexpr double kPixelsPerUnit = 2.0;
constexpr std::size_t kOutside = static_cast<std::size_t>(-1);

/* For each pixel of a side: the cell whose values it shows. */
std::vector<std::size_t> cells_along(int pixels, double from, const AxisView &view,
                                     const std::vector<double> &edges) {
  std::vector<std::size_t> cells(static_cast<std::size_t>(pixels), kOutside);
  for (std::size_t i = 0; i < cells.size(); i++) {
    const double value =
        view.value(from + (static_cast<double>(i) + 0.5) / kPixelsPerUnit);
    if (!(value >= edges.front() && value <= edges.back())) continue;
    const auto above = std::upper_bound(edges.begin() + 1, edges.end() - 1, value);
    cells[i] = static_cast<std::size_t>(above - edges.begin()) - 1;
  }
  return cells;
}

}  // namespace

std::uint32_t pixel(const Colour &colour) {
  const auto channel = [](double value) {
    return static_cast<std::uint32_t>(std::lround(value * 255.0));
  };
  return 0xFF000000U | channel(colour.r) << 16 | channel(colour.g) << 8 |
         channel(colour.b);
}

Raster mesh_raster(const Mesh &mesh, const Rect &frame, const AxisView &x,
                   const AxisView &y) {
  const auto pixels = [](double length) {
    return std::max(1, static_cast<int>(std::lround(length * kPixelsPerUnit)));
  };
  Raster raster{pixels(frame.width), pixels(frame.height), {}};
  const auto columns =
      cells_along(raster.width, frame.x, x, cell_edges(mesh.x, mesh.nx));
  const auto rows = cells_along(raster.height, frame.y, y, cell_edges(mesh.y, mesh.ny));
  const ColourMap &map = mesh.diverging ? diverging_map() : sequential_map();
  const Range range = colour_range(mesh);
  std::vector<std::uint32_t> colours;
  for (const double value : mesh.values) {
    const double fraction = (value - range.low) / (range.high - range.low);
    colours.push_back(is_gap(value) ? 0U : pixel(map.at(fraction)));
  }
  for (const std::size_t row : rows) {
    for (const std::size_t column : columns) {
      raster.pixels.push_back(
          row == kOutside || column == kOutside ? 0U : colours[row * mesh.nx + column]);
    }
  }
  return raster;
}

void draw_meshes(Canvas &canvas, const PanelLayout &layout) {
  for (const Mesh &mesh : layout.panel.meshes) {
    if (!usable(mesh)) continue;
    canvas.raster(layout.frame, mesh_raster(mesh, layout.frame, layout.x, layout.y));
  }
}

}  // namespace ksutil::plot
