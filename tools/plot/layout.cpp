#include "tools/plot/layout.h"

#include <algorithm>
#include <cmath>
#include <set>

#include "tools/plot/text_fit.h"

namespace ksutil::plot {
namespace {

constexpr double kEdge = 12.0;          // around the whole
constexpr double kTickSpace = 8.0;      // between the frame and the labels of ticks
constexpr double kKeyGap = 18.0;        // between the frame and the keys
constexpr double kKeyShare = 0.25;      // of the width, at most for the texts of keys
constexpr std::size_t kMostItems = 40;  // of a legend

/* Of a panel; those of narrow pictures are not towers. */
double default_height(std::size_t panels, double width) {
  if (panels == 1) return std::clamp(0.7 * width, 180.0, 400.0);
  return std::clamp(720.0 / static_cast<double>(panels), 90.0,
                    std::clamp(0.5 * width, 150.0, 270.0));
}

/* Keys leave most of the figure to its data. */
void shorten_keys(Panel &panel, double width) {
  for (Mesh &mesh : panel.meshes) mesh.label = shortened(mesh.label, kTickSize, width);
  for (ColourKey &key : panel.colour_keys)
    key.label = shortened(key.label, kTickSize, width);
  for (StyleKey &key : panel.style_keys) {
    key.label = shortened(key.label, kTickSize, width);
    for (StyleKey::Entry &entry : key.entries) {
      entry.text = shortened(entry.text, kTickSize, width - kLegendSample);
    }
  }
}

/* The ends of a scale, with room for one where all values are equal. */
Range scale_range(double low, double high) {
  if (high > low) return {low, high};
  return {low, low + std::max(1.0, 0.001 * std::abs(low))};
}

/* The bars of a panel: one for each mesh and each key of colours. */
std::vector<Bar> bars_of(const Panel &panel) {
  std::vector<Bar> bars;
  for (const Mesh &mesh : panel.meshes) {
    const Range range = colour_range(mesh);
    bars.push_back({{mesh.label, range.low, range.high,
                     mesh.diverging ? diverging_map() : sequential_map(), false, false},
                    {},
                    {}});
  }
  for (const ColourKey &key : panel.colour_keys) bars.push_back({key, {}, {}});
  for (Bar &bar : bars) {
    ColourKey &key = bar.key;
    const Range range = scale_range(key.low, key.high);
    key.low = range.low;
    key.high = range.high;
    bar.ticks = key.time ? time_ticks(key.low, key.high, 5)
                         : linear_ticks(key.low, key.high, 6);
  }
  return bars;
}

double keys_width(const PanelLayout &layout) {
  double width = 0.0;
  for (const Bar &bar : layout.bars) {
    width =
        std::max(width, text_width(bar.key.label + " " + bar.ticks.factor, kTickSize));
    for (const Tick &tick : bar.ticks.ticks) {
      width = std::max(width, kBarWidth + 8.0 +
                                  std::max(text_width(tick.label, kTickSize),
                                           text_width(tick.context, kTickSize)));
    }
  }
  for (const StyleKey &key : layout.panel.style_keys) {
    width = std::max(width, text_width(key.label, kTickSize));
    for (const StyleKey::Entry &entry : key.entries) {
      width =
          std::max(width, key_sample(key) + 6.0 + text_width(entry.text, kTickSize));
    }
  }
  return width;
}

void choose_colours(PanelLayout &layout) {
  std::size_t next = 0;
  const auto choose = [&next](const std::optional<Colour> &own) {
    return own ? *own : series_colour(next++);
  };
  for (const Line &line : layout.panel.lines) {
    layout.line_colours.push_back(choose(line.colour));
  }
  for (const Points &points : layout.panel.points) {
    layout.point_colours.push_back(choose(points.colour));
  }
}

void collect_legend(PanelLayout &layout) {
  std::set<std::string> seen;
  std::size_t left_out = 0;
  const auto add = [&](LegendItem item) {
    if (item.text.empty() || !seen.insert(item.text).second) return;
    if (layout.legend.size() == kMostItems) {
      left_out++;
    } else {
      layout.legend.push_back(std::move(item));
    }
  };
  const Panel &panel = layout.panel;
  for (std::size_t i = 0; i < panel.lines.size(); i++) {
    add({panel.lines[i].name, layout.line_colours[i], &panel.lines[i], nullptr, {}});
  }
  for (std::size_t i = 0; i < panel.points.size(); i++) {
    const Points &points = panel.points[i];
    if (points.points.empty()) continue;
    add({points.name, layout.point_colours[i], nullptr, &points.points[0].style, {}});
  }
  if (left_out > 0) {
    layout.legend.push_back(
        {"and " + std::to_string(left_out) + " more", {}, {}, {}, {}});
  }
}

/* Sets the legend in rows under `top`, behind the title; returns the rows needed. */
int place_legend(PanelLayout &layout, double left, double width, double top) {
  std::string &title = layout.panel.title;
  title = shortened(title, kPanelTitleSize, width, true);
  int row = 0;
  double x =
      left + (title.empty() ? 0.0 : text_width(title, kPanelTitleSize, true) + 20.0);
  for (LegendItem &item : layout.legend) {
    item.text = shortened(item.text, kTickSize, width - kLegendSample - 6.0);
    const double space = kLegendSample + 6.0 + text_width(item.text, kTickSize) + 16.0;
    if (x > left && x + space - 16.0 > left + width) {
      x = left;
      row++;
    }
    item.at = {x, top + row * kRowHeight + 13.0};
    x += space;
  }
  return title.empty() && layout.legend.empty() ? 0 : row + 1;
}

/* As many ticks as the height has room for, one at least. */
Ticks bar_ticks(const ColourKey &key, double height) {
  constexpr int kMost = 6;
  int count = std::clamp(static_cast<int>(height / (key.time ? 30.0 : 20.0)), 1, kMost);
  Ticks ticks;
  for (; ticks.ticks.empty() && count <= kMost; count++) {
    ticks = (key.time ? time_ticks : linear_ticks)(key.low, key.high, count);
  }
  return ticks;
}

void place_keys(PanelLayout &layout, double left) {
  double y = layout.frame.y;
  const double below = layout.panel.style_keys.empty() ? 0.0 : 0.5;
  const double share =
      layout.frame.height * (1.0 - below) /
      static_cast<double>(std::max<std::size_t>(layout.bars.size(), 1));
  for (Bar &bar : layout.bars) {
    const double head = bar.key.label.empty() ? 2.0 : 18.0;
    const double height = std::clamp(share - head - 14.0, 30.0, 320.0);
    bar.rect = {left, y + head, kBarWidth, height};
    bar.ticks = bar_ticks(bar.key, height);
    y += head + height + 18.0;
  }
  layout.keys_y = y;
}

/* Widens the axis along which the panel would have been too flat or too tall. */
void keep_aspect(Panel &panel, double width) {
  constexpr double kFlattest = 120.0;
  const double tallest = std::clamp(width, 2.0 * kFlattest, 700.0);
  Range x = x_range(panel), y = y_range(panel);
  double unit = width / (x.high - x.low) * panel.aspect;  // of y
  panel.height = unit * (y.high - y.low);
  if (panel.height > tallest) {
    const double middle = 0.5 * (x.low + x.high);
    const double half = 0.5 * (x.high - x.low) * panel.height / tallest;
    x = {middle - half, middle + half};
    panel.height = tallest;
  } else if (panel.height < kFlattest) {
    panel.height = kFlattest;
    y.high = y.low + kFlattest / unit;
  }
  panel.x.low = x.low;
  panel.x.high = x.high;
  panel.y.low = y.low;
  panel.y.high = y.high;
}

bool has_context(const Ticks &ticks) {
  return std::any_of(ticks.ticks.begin(), ticks.ticks.end(),
                     [](const Tick &tick) { return !tick.context.empty(); });
}

/* Height of what stands under a frame. */
double foot_height(const PanelLayout &layout) {
  if (!layout.x_labels || layout.panel.bare) return 0.0;
  if (layout.map && layout.map->curved) return 20.0;
  double height = 20.0;
  if (has_context(layout.x_ticks)) height += 14.0;
  if (!axis_title(layout.panel.x, layout.x_ticks).empty()) height += 20.0;
  return height;
}

double label_width(const Ticks &ticks) {
  double width = 0.0;
  for (const Tick &tick : ticks.ticks) {
    width = std::max({width, text_width(tick.label, kTickSize),
                      text_width(tick.context, kTickSize)});
  }
  return width;
}

int count_for(const Axis &axis, double length, bool across) {
  if (!across) return static_cast<int>(std::clamp(length / 38.0, 3.0, 10.0));
  const double spacing = axis.scale == Scale::kTime       ? 100.0
                         : axis.form != TickForm::kNumber ? 48.0
                                                          : 80.0;
  return static_cast<int>(std::clamp(length / spacing, 2.0, 14.0));
}

/* Titles begin with the frames, or at the edge where that gives them the room they need. */
void place_titles(const Figure &figure, double left, Layout &layout) {
  const double widest =
      std::max(text_width(figure.title, kTitleSize, true),
               std::min(text_width(figure.subtitle, kSubtitleSize), layout.width));
  layout.title_x = widest <= layout.width - left - kEdge ? left : kEdge;
  const double width = layout.width - layout.title_x - kEdge;
  layout.title = wrapped(figure.title, kTitleSize, width, 2, true);
  layout.subtitle = wrapped(figure.subtitle, kSubtitleSize, width, 4);
}

}  // namespace

double key_row(const StyleKey::Entry &entry) {
  return std::max(kRowHeight, entry.style.size + 4.0);
}

double key_sample(const StyleKey &key) {
  double width = kLegendSample;
  for (const StyleKey::Entry &entry : key.entries) {
    width = std::max(width, entry.style.size + 2.0);
  }
  return width;
}

std::string axis_title(const Axis &axis, const Ticks &ticks) {
  std::string title = axis.label;
  if (axis.scale == Scale::kTime) title += title.empty() ? "UTC" : " (UTC)";
  if (!ticks.factor.empty()) title += (title.empty() ? "" : "  ") + ticks.factor;
  return title;
}

Range colour_range(const Mesh &mesh) {
  double low = std::numeric_limits<double>::infinity(), high = -low;
  for (const double value : mesh.values) {
    if (is_gap(value)) continue;
    low = std::min(low, value);
    high = std::max(high, value);
  }
  if (!(low <= high)) low = high = 0.0;
  if (mesh.diverging) {
    high = std::max(std::abs(low), std::abs(high));
    low = -high;
  }
  if (!is_missing(mesh.low)) low = mesh.low;
  if (!is_missing(mesh.high)) high = mesh.high;
  return scale_range(low, high);
}

Layout lay_out(const Figure &figure) {
  Layout layout;
  layout.width = std::ceil(figure.width);
  double left = 0.0, right = 0.0;
  Range shared{};
  for (const Panel &panel : figure.panels) {
    PanelLayout &part = layout.panels.emplace_back();
    part.panel = panel;
    if (is_missing(part.panel.height))
      part.panel.height = default_height(figure.panels.size(), figure.width);
    if (panel.map) part.map = arrange_map(part.panel, figure.width - 160.0);
    if (!is_missing(panel.aspect)) {
      keep_aspect(part.panel, std::max(figure.width - 160.0, 100.0));
      part.panel.aspect = kUnset;
    }
    shorten_keys(part.panel, kKeyShare * figure.width);
    part.bars = bars_of(part.panel);
    right = std::max(right, keys_width(part));
    const Range range = x_range(part.panel);
    shared = layout.panels.size() == 1 ? range : united(shared, range);
    part.y_ticks =
        axis_ticks(part.panel.y, y_range(part.panel).low, y_range(part.panel).high,
                   count_for(part.panel.y, part.panel.height, false));
    if (panel.bare) continue;
    if (part.map && part.map->curved) {
      for (const MapLayout::Label &label : part.map->labels) {
        if (!label.below) {
          left = std::max(left, text_width(label.text, kTickSize) + kTickSpace);
        }
      }
      continue;
    }
    const bool titled = !axis_title(part.panel.y, part.y_ticks).empty();
    left =
        std::max(left, label_width(part.y_ticks) + kTickSpace + (titled ? 20.0 : 0.0));
  }
  left += kEdge;
  const double keys = right;
  right = keys > 0.0 ? keys + kKeyGap + kEdge : 1.5 * kEdge;
  const double width = std::max(figure.width - left - right, 50.0);

  place_titles(figure, left, layout);
  double y = kEdge;
  if (!layout.title.empty()) {
    y += 5.0 + kTitleLine * static_cast<double>(layout.title.size());
  }
  if (!layout.subtitle.empty()) {
    y += 2.0 + kSubtitleLine * static_cast<double>(layout.subtitle.size());
  }
  for (std::size_t i = 0; i < layout.panels.size(); i++) {
    PanelLayout &part = layout.panels[i];
    Panel &panel = part.panel;
    if (figure.panels[i].map) {
      panel = figure.panels[i];
      shorten_keys(panel, kKeyShare * figure.width);
      part.map = arrange_map(panel, width);
    }
    if (!is_missing(figure.panels[i].aspect)) {
      panel.x = figure.panels[i].x;
      panel.y = figure.panels[i].y;
      panel.aspect = figure.panels[i].aspect;
      keep_aspect(panel, width);
    }
    choose_colours(part);
    collect_legend(part);
    y += place_legend(part, left, width, y) * kRowHeight;
    if (i == 0 && part.legend.empty() && panel.title.empty()) y += 8.0;
    part.frame = {left, y, width, panel.height};
    part.figure_width = layout.width;
    part.x = AxisView(panel.x, figure.shared_x ? shared : x_range(panel), left,
                      left + width);
    part.y = AxisView(panel.y, y_range(panel), part.frame.bottom(), part.frame.y);
    part.x_ticks = axis_ticks(panel.x, part.x.range().low, part.x.range().high,
                              count_for(panel.x, width, true));
    part.y_ticks = axis_ticks(panel.y, part.y.range().low, part.y.range().high,
                              count_for(panel.y, panel.height, false));
    part.x_labels = !figure.shared_x || i + 1 == layout.panels.size();
    part.label_x = kEdge + 10.0;
    place_keys(part, part.frame.right() + kKeyGap);
    double keys_end = part.keys_y;
    for (const StyleKey &key : panel.style_keys) {
      keys_end += kRowHeight + 8.0;
      for (const StyleKey::Entry &entry : key.entries) keys_end += key_row(entry);
    }
    y = part.frame.bottom() + foot_height(part) + 10.0;
    if (keys > 0.0) y = std::max(y, keys_end - 10.0);
  }
  layout.height = std::ceil(y - 10.0 + kEdge * 0.75);
  return layout;
}

}  // namespace ksutil::plot
