#include <algorithm>
#include <cmath>

#include "tools/plot/draw.h"
#include "tools/plot/symbols.h"

namespace ksutil::plot {

namespace {

constexpr std::size_t kMostShapes = 10000;  // more of them are an image
constexpr double kPixelsOfPoints = 2.0, kMostPixels = 2e7;

void draw_each(Canvas &canvas, const PanelLayout &layout) {
  for (std::size_t i = 0; i < layout.panel.points.size(); i++) {
    for (const Point &point : layout.panel.points[i].points) {
      if (is_missing(point.x) || is_missing(point.y) || !layout.x.inside(point.x) ||
          !layout.y.inside(point.y)) {
        continue;
      }
      draw_symbol(canvas, {layout.x.at(point.x), layout.y.at(point.y)}, point.style,
                  layout.point_colours[i]);
    }
  }
}

}  // namespace

void draw_points(Canvas &canvas, const PanelLayout &layout) {
  std::size_t count = 0;
  for (const Points &points : layout.panel.points) count += points.points.size();
  if (count > kMostShapes && canvas.keeps_shapes()) {
    const Rect &frame = layout.frame;
    const double scale = std::min(
        kPixelsOfPoints, std::sqrt(kMostPixels / (frame.width * frame.height)));
    const Raster raster =
        raster_of(frame, scale, [&](Canvas &pixels) { draw_each(pixels, layout); });
    if (!raster.pixels.empty()) {
      return canvas.raster(
          {frame.x, frame.y, frame.width, frame.width * raster.height / raster.width},
          raster);
    }
  }
  draw_each(canvas, layout);
}

void draw_markers(Canvas &canvas, const PanelLayout &layout) {
  constexpr std::size_t kLevels = 3;  // rows of labels, when they are close together
  constexpr Colour kMarker{0.80, 0.16, 0.16, 1.0};
  std::vector<const Marker *> markers;
  for (const Marker &marker : layout.panel.markers) {
    if (layout.x.inside(marker.x)) markers.push_back(&marker);
  }
  std::stable_sort(markers.begin(), markers.end(), [&](const auto *a, const auto *b) {
    return layout.x.at(a->x) < layout.x.at(b->x);
  });
  const Rect &frame = layout.frame;
  for (const Marker *marker : markers) {
    const double x = layout.x.at(marker->x);
    canvas.line({x, frame.y}, {x, frame.bottom()},
                {marker->colour.value_or(kMarker), {}, 1.2});
  }
  double taken[kLevels] = {frame.x, frame.x, frame.x};
  for (const Marker *marker : markers) {
    if (marker->label.empty()) continue;
    const double x = layout.x.at(marker->x);
    const double width = text_width(marker->label, kTickSize, true) + 6.0;
    const bool left = x + width > frame.right();
    const double start = left ? x - width : x;
    std::size_t level = 0;
    while (level + 1 < kLevels && taken[level] > start) level++;
    taken[level] = start + width + 2.0;
    const double top = frame.y + 1.0 + static_cast<double>(level) * 15.0;
    canvas.rectangle({start + 0.6, top, width - 1.2, 14.0},
                     {{}, Colour{1.0, 1.0, 1.0, 0.8}});
    canvas.text({start + 3.0, top + 11.0}, marker->label,
                {kTickSize, marker->colour.value_or(kMarker), Anchor::kStart, true});
  }
}

}  // namespace ksutil::plot
