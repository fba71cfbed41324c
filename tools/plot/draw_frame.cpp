#include <algorithm>

#include "tools/plot/draw.h"

namespace ksutil::plot {
namespace {

constexpr double kTickLength = 4.0;

/* The place of a tick along x, moved so that neither end of its label leaves the
 * picture's side; context lines start at their tick. */
void draw_x_labels(Canvas &canvas, const PanelLayout &layout) {
  const double bottom = layout.frame.bottom();
  double free_from = 0.0, context_from = 0.0;
  for (const Tick &tick : layout.x_ticks.ticks) {
    const double x = layout.x.at(tick.value);
    const double width = text_width(tick.label, kTickSize);
    if (!tick.label.empty() && x - width / 2.0 >= free_from) {
      canvas.text({x, bottom + 16.0}, tick.label, {kTickSize, kInk, Anchor::kMiddle});
      free_from = x + width / 2.0 + 4.0;
    }
    if (tick.context.empty()) continue;
    const double half = text_width(tick.context, kTickSize) / 2.0;
    if (x - half < context_from) continue;
    canvas.text({x, bottom + 30.0}, tick.context,
                {kTickSize, kGreyInk, Anchor::kMiddle});
    context_from = x + half + 6.0;
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

}  // namespace

void draw_grid(Canvas &canvas, const PanelLayout &layout) {
  const Rect &frame = layout.frame;
  const Paint paint{kGrid, {}, 0.8};
  for (const Tick &tick : layout.x_ticks.ticks) {
    if (tick.label.empty()) continue;
    const double x = layout.x.at(tick.value);
    canvas.line({x, frame.y}, {x, frame.bottom()}, paint);
  }
  for (const Tick &tick : layout.y_ticks.ticks) {
    if (tick.label.empty()) continue;
    const double y = layout.y.at(tick.value);
    canvas.line({frame.x, y}, {frame.right(), y}, paint);
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
    canvas.text({frame.x + frame.width / 2.0, frame.bottom() + (context ? 49.0 : 36.0)},
                x_title, {kLabelSize, kInk, Anchor::kMiddle});
  }
}

}  // namespace ksutil::plot
