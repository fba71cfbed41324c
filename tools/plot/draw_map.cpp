#include <algorithm>
#include <cmath>

#include "platform/stock/text.h"
#include "tools/plot/draw.h"
#include "tools/plot/text_fit.h"

namespace ksutil::plot {
namespace {

constexpr Colour kCoast{0.45, 0.45, 0.48, 1.0};
constexpr Colour kBorder{0.72, 0.72, 0.74, 1.0};
constexpr double kFurnitureSize = 10.0;

std::vector<Position> placed(const std::vector<Position> &points,
                             const PanelLayout &layout) {
  std::vector<Position> result;
  result.reserve(points.size());
  for (const Position &point : points) {
    result.push_back({layout.x.at(point.x), layout.y.at(point.y)});
  }
  return result;
}

/* The pieces of a line that the frame shows, without points that no eye could tell apart. */
std::vector<std::vector<Position>> shown(const std::vector<Position> &points,
                                         const Rect &frame) {
  constexpr double kFinest = 0.5, kAround = 4.0;
  const auto outside = [&](const Position &a, const Position &b) {
    return std::max(a.x, b.x) < frame.x - kAround ||
           std::min(a.x, b.x) > frame.right() + kAround ||
           std::max(a.y, b.y) < frame.y - kAround ||
           std::min(a.y, b.y) > frame.bottom() + kAround;
  };
  std::vector<std::vector<Position>> pieces;
  bool open = false;
  for (std::size_t i = 1; i < points.size(); i++) {
    if (outside(points[i - 1], points[i])) {
      open = false;
      continue;
    }
    if (!open) pieces.push_back({points[i - 1]});
    open = true;
    const Position &last = pieces.back().back();
    const bool ends = i + 1 == points.size() || outside(points[i], points[i + 1]);
    if (ends || std::hypot(points[i].x - last.x, points[i].y - last.y) >= kFinest) {
      pieces.back().push_back(points[i]);
    }
  }
  return pieces;
}

/* A text in a corner of the frame, with a light ground; what would reach the bar of
 * kilometres, which ends at `from`, is cut off. */
void draw_note(Canvas &canvas, const Rect &frame, double from,
               const std::string &text) {
  const std::string note = shortened(text, kFurnitureSize, frame.right() - from - 12.0);
  const double width = text_width(note, kFurnitureSize) + 8.0;
  canvas.rectangle({frame.right() - width - 1.0, frame.bottom() - 16.0, width, 15.0},
                   {{}, Colour{1.0, 1.0, 1.0, 0.8}});
  canvas.text({frame.right() - 5.0, frame.bottom() - 5.0}, note,
              {kFurnitureSize, kGreyInk, Anchor::kEnd});
}

/* Returns where the bar ends. */
double draw_bar_of_scale(Canvas &canvas, const PanelLayout &layout) {
  const MapLayout &map = *layout.map;
  const Rect &frame = layout.frame;
  const double length = layout.x.at(layout.x.range().low + map.bar_length) -
                        layout.x.at(layout.x.range().low);
  if (!(map.bar > 0.0) || !(length > 10.0)) return frame.x;
  const std::string text = format_text("%g km", map.bar);
  const double width = std::max(length, text_width(text, kFurnitureSize)) + 12.0;
  canvas.rectangle({frame.x + 1.0, frame.bottom() - 28.0, width, 27.0},
                   {{}, Colour{1.0, 1.0, 1.0, 0.8}});
  const double left = frame.x + 1.0 + 0.5 * (width - length), y = frame.bottom() - 7.0;
  canvas.polyline(
      {{left, y - 4.0}, {left, y}, {left + length, y}, {left + length, y - 4.0}},
      {kInk, {}, 1.2});
  canvas.text({left + 0.5 * length, y - 7.0}, text,
              {kFurnitureSize, kInk, Anchor::kMiddle});
  return frame.x + 1.0 + width;
}

}  // namespace

void draw_coast(Canvas &canvas, const PanelLayout &layout) {
  if (!layout.map) return;
  for (const auto &line : layout.map->grid) {
    canvas.polyline(placed(line, layout), {kGrid, {}, 0.8});
  }
  for (const bool border : {true, false}) {
    const Paint paint{border ? kBorder : kCoast, {}, border ? 0.6 : 0.8};
    for (const MapLayout::Outline &outline : layout.map->coast) {
      if (outline.border != border) continue;
      for (const auto &piece : shown(placed(outline.points, layout), layout.frame)) {
        canvas.polyline(piece, paint);
      }
    }
  }
}

void draw_furniture(Canvas &canvas, const PanelLayout &layout) {
  if (!layout.map) return;
  const double end = draw_bar_of_scale(canvas, layout);
  draw_note(canvas, layout.frame, end, layout.map->note);
}

void draw_map_frame(Canvas &canvas, const PanelLayout &layout) {
  const Rect &frame = layout.frame;
  const Paint paint{kFrame, {}, 1.0};
  if (layout.map->rim.empty()) {
    canvas.rectangle(frame, paint);
  } else {
    canvas.polygon(placed(layout.map->rim, layout), paint);
  }
  double free_from = 0.0, free_below = frame.bottom() + 20.0;
  std::vector<MapLayout::Label> labels = layout.map->labels;
  std::stable_sort(labels.begin(), labels.end(), [](const auto &a, const auto &b) {
    return a.below ? b.below && a.at.x < b.at.x : !b.below && a.at.y < b.at.y;
  });
  for (const MapLayout::Label &label : labels) {
    const Position at{layout.x.at(label.at.x), layout.y.at(label.at.y)};
    const double width = text_width(label.text, kTickSize);
    if (!label.below) {
      if (at.y > free_below - 12.0 || at.x - 7.0 - width < 0.0) continue;
      canvas.text({at.x - 7.0, at.y + 4.0}, label.text,
                  {kTickSize, kInk, Anchor::kEnd});
      free_below = at.y;
    } else if (at.x - width / 2.0 >= free_from) {
      canvas.text({at.x, frame.bottom() + 16.0}, label.text,
                  {kTickSize, kInk, Anchor::kMiddle});
      free_from = at.x + width / 2.0 + 6.0;
    }
  }
}

}  // namespace ksutil::plot
