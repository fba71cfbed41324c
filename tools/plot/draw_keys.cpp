#include <cmath>

#include "tools/plot/draw.h"
#include "tools/plot/symbols.h"

namespace ksutil::plot {
namespace {

/* The colours of a key from top to bottom, two pixels a unit. */
Raster shades(const ColourKey &key, const Rect &rect) {
  const auto pixels = [](double length) { return static_cast<int>(2.0 * length); };
  Raster raster{pixels(rect.width), pixels(rect.height), {}};
  for (int row = 0; row < raster.height; row++) {
    const double part = (row + 0.5) / raster.height;
    raster.pixels.insert(raster.pixels.end(), static_cast<std::size_t>(raster.width),
                         pixel(key.map.at(key.reverse ? part : 1.0 - part)));
  }
  return raster;
}

void draw_bar(Canvas &canvas, const Bar &bar) {
  const Rect &rect = bar.rect;
  const ColourKey &key = bar.key;
  std::string label = key.label;
  if (!bar.ticks.factor.empty()) label += (label.empty() ? "" : " ") + bar.ticks.factor;
  canvas.text({rect.x, rect.y - 7.0}, label, {kTickSize, kInk});
  canvas.raster(rect, shades(key, rect));
  canvas.rectangle(rect, {kFrame, {}, 0.8});
  for (const Tick &tick : bar.ticks.ticks) {
    const double fraction = (tick.value - key.low) / (key.high - key.low);
    const double y = rect.y + rect.height * (key.reverse ? fraction : 1.0 - fraction);
    canvas.line({rect.right(), y}, {rect.right() + 3.0, y}, {kFrame, {}, 1.0});
    canvas.text({rect.right() + 6.0, y + 4.0}, tick.label, {kTickSize, kInk});
    if (tick.context.empty()) continue;
    canvas.text({rect.right() + 6.0, y + 16.0}, tick.context, {kTickSize, kGreyInk});
  }
}

}  // namespace

void draw_legend(Canvas &canvas, const PanelLayout &layout) {
  for (const LegendItem &item : layout.legend) {
    const Position middle{item.at.x + kLegendSample / 2.0, item.at.y - 4.0};
    if (item.line != nullptr) {
      canvas.line(
          {item.at.x, middle.y}, {item.at.x + kLegendSample, middle.y},
          {item.colour, {}, std::max(item.line->width, 2.0), item.line->dashed});
    } else if (item.point != nullptr) {
      draw_symbol(canvas, middle, *item.point, item.colour);
    }
    canvas.text({item.at.x + kLegendSample + 6.0, item.at.y}, item.text,
                {kTickSize, kInk});
  }
}

void draw_keys(Canvas &canvas, const PanelLayout &layout) {
  for (const Bar &bar : layout.bars) draw_bar(canvas, bar);
  const double left =
      layout.bars.empty() ? layout.frame.right() + 18.0 : layout.bars.front().rect.x;
  double y = layout.keys_y + 10.0;
  for (const StyleKey &key : layout.panel.style_keys) {
    canvas.text({left, y}, key.label, {kTickSize, kInk});
    y += kRowHeight;
    const double sample = key_sample(key);
    for (const StyleKey::Entry &entry : key.entries) {
      const double more = 0.5 * (key_row(entry) - kRowHeight);
      y += more;
      draw_symbol(canvas, {left + sample / 2.0, y - 4.0}, entry.style, kGreyInk);
      canvas.text({left + sample + 6.0, y}, entry.text, {kTickSize, kInk});
      y += kRowHeight + more;
    }
    y += 8.0;
  }
}

}  // namespace ksutil::plot
