#include <algorithm>

#include "tools/plot/draw.h"
#include "tools/plot/text_fit.h"

namespace ksutil::plot {
namespace {

constexpr double kTickLength = 4.0;

/* The middle of a text of this width, moved so that neither end leaves the picture. */
double within(const PanelLayout &layout, double middle, double width) {
  constexpr double kSpace = 2.0;  // at the sides of the picture
  const double low = 0.5 * width + kSpace;
  return std::max(std::min(middle, layout.figure_width - low), low);
}

void draw_x_labels(Canvas &canvas, const PanelLayout &layout) {
  const double bottom = layout.frame.bottom();
  double free_from = 0.0, context_from = 0.0;
  for (const Tick &tick : layout.x_ticks.ticks) {
    const double width = text_width(tick.label, kTickSize);
    const double x = within(layout, layout.x.at(tick.value), width);
    if (!tick.label.empty() && x - width / 2.0 >= free_from) {
      canvas.text({x, bottom + 16.0}, tick.label, {kTickSize, kInk, Anchor::kMiddle});
      free_from = x + width / 2.0 + 4.0;
    }
    if (tick.context.empty()) continue;
    const double half = text_width(tick.context, kTickSize) / 2.0;
    const double middle = within(layout, layout.x.at(tick.value), 2.0 * half);
    if (middle - half < context_from) continue;
    canvas.text({middle, bottom + 30.0}, tick.context,
                {kTickSize, kGreyInk, Anchor::kMiddle});
    context_from = middle + half + 6.0;
  }
}

void draw_y_labels(Canvas &canvas, const PanelLayout &layout) {
  const double x = layout.frame.x - 7.0;
  for (const Tick &tick : layout.y_ticks.ticks) {
    const double y = layout.y.at(tick.value);
    if (tick.context.empty()) {
      canvas.text({x, y + 4.0}, tick.label, {kTickSize, kInk, Anchor::kEnd});
    } else {
      canvas.text({x, y - 1.0}, tick.label, {kTickSize, kInk, Anchor::kEnd});
      canvas.text({x, y + 11.0}, tick.context, {kTickSize, kGreyInk, Anchor::kEnd});
    }
  }
}

void draw_panel_title(Canvas &canvas, const PanelLayout &layout) {
  if (layout.panel.title.empty()) return;
  const double first_row =
      layout.legend.empty() ? layout.frame.y - 6.0 : layout.legend.front().at.y;
  canvas.text({layout.frame.x, first_row}, layout.panel.title,
              {kPanelTitleSize, kInk, Anchor::kStart, true});
}

/* Whether nothing of the panel can be seen in its frame. */
bool is_empty(const Panel &panel) {
  const auto all_missing = [](const std::vector<double> &values) {
    return std::all_of(values.begin(), values.end(), is_gap);
  };
  const bool any_line =
      std::any_of(panel.lines.begin(), panel.lines.end(),
                  [&](const Line &line) { return !all_missing(line.y); });
  const bool any_point =
      std::any_of(panel.points.begin(), panel.points.end(), [](const Points &points) {
        return std::any_of(points.points.begin(), points.points.end(),
                           [](const Point &point) {
                             return !is_missing(point.x) && !is_missing(point.y);
                           });
      });
  return panel.meshes.empty() && panel.disks.empty() && panel.markers.empty() &&
         !any_line && !any_point;
}

void draw_empty_note(Canvas &canvas, const PanelLayout &layout) {
  const Panel &panel = layout.panel;
  if (panel.map || panel.empty_note.empty() || !is_empty(panel)) return;
  const Rect &frame = layout.frame;
  canvas.text({frame.x + frame.width / 2.0, frame.y + frame.height / 2.0},
              panel.empty_note, {kPanelTitleSize, kGreyInk, Anchor::kMiddle});
}

}  // namespace

void draw_grid(Canvas &canvas, const PanelLayout &layout) {
  const Rect &frame = layout.frame;
  const Paint paint{kGrid, {}, 0.8}, fine{kGrid, {}, 0.4};
  /* Between the decades too, where they are not crowded. */
  const auto minor = [](const Axis &axis, const Ticks &ticks, double length) {
    return axis.scale == Scale::kLog &&
           length > 6.0 * static_cast<double>(ticks.ticks.size());
  };
  const bool minor_x = minor(layout.panel.x, layout.x_ticks, frame.width);
  const bool minor_y = minor(layout.panel.y, layout.y_ticks, frame.height);
  for (const Tick &tick : layout.x_ticks.ticks) {
    if (tick.label.empty() && !minor_x) continue;
    const double x = layout.x.at(tick.value);
    canvas.line({x, frame.y}, {x, frame.bottom()}, tick.label.empty() ? fine : paint);
  }
  for (const Tick &tick : layout.y_ticks.ticks) {
    if (tick.label.empty() && !minor_y) continue;
    const double y = layout.y.at(tick.value);
    canvas.line({frame.x, y}, {frame.right(), y}, tick.label.empty() ? fine : paint);
  }
}

void draw_frame(Canvas &canvas, const PanelLayout &layout) {
  const Rect &frame = layout.frame;
  const Panel &panel = layout.panel;
  draw_panel_title(canvas, layout);
  if (panel.bare) return;
  if (layout.map && layout.map->curved) return draw_map_frame(canvas, layout);
  const Paint paint{kFrame, {}, 1.0};
  canvas.rectangle(frame, paint);
  draw_empty_note(canvas, layout);
  for (const Tick &tick : layout.x_ticks.ticks) {
    const double x = layout.x.at(tick.value);
    const double length = tick.label.empty() ? kTickLength / 2.0 : kTickLength;
    canvas.line({x, frame.bottom()}, {x, frame.bottom() + length}, paint);
  }
  for (const Tick &tick : layout.y_ticks.ticks) {
    const double y = layout.y.at(tick.value);
    const double length = tick.label.empty() ? kTickLength / 2.0 : kTickLength;
    canvas.line({frame.x - length, y}, {frame.x, y}, paint);
  }
  draw_y_labels(canvas, layout);
  const std::string y_title = axis_title(panel.y, layout.y_ticks);
  if (!y_title.empty()) {
    const double width = text_width(y_title, kLabelSize);
    const double size =
        kLabelSize * std::clamp((frame.height + 16.0) / width, 0.7, 1.0);
    canvas.text({layout.label_x, frame.y + frame.height / 2.0}, y_title,
                {size, kInk, Anchor::kMiddle, false, true});
  }
  if (!layout.x_labels) return;
  draw_x_labels(canvas, layout);
  const std::string x_title = axis_title(panel.x, layout.x_ticks);
  const bool context =
      std::any_of(layout.x_ticks.ticks.begin(), layout.x_ticks.ticks.end(),
                  [](const Tick &tick) { return !tick.context.empty(); });
  if (!x_title.empty()) {
    const double room = layout.figure_width - 8.0;
    const double size =
        kLabelSize * std::clamp(room / text_width(x_title, kLabelSize), 0.8, 1.0);
    const std::string text = shortened(x_title, size, room);
    const double middle =
        within(layout, frame.x + frame.width / 2.0, text_width(text, size));
    canvas.text({middle, frame.bottom() + (context ? 49.0 : 36.0)}, text,
                {size, kInk, Anchor::kMiddle});
  }
}

}  // namespace ksutil::plot
