#include <algorithm>

#include "tools/plot/draw.h"

namespace ksutil::plot {
namespace {

/* Positions beyond this are out of every picture; drawing programs lose their way there. */
constexpr double kFarAway = 20000.0;

/* Takes consecutive positions and keeps, of those in one column of pixels, what can be
 * seen: where the line enters and leaves, its lowest and its highest. */
class Thinner {
 public:
  void add(const Position &at) {
    const double column = std::floor(at.x);
    if (held_ > 0 && column != column_) flush();
    if (held_ == 0) {
      column_ = column;
      first_ = lowest_ = highest_ = at;
      low_at_ = high_at_ = 0;
    } else if (at.y < lowest_.y) {
      lowest_ = at;
      low_at_ = held_;
    } else if (at.y > highest_.y) {
      highest_ = at;
      high_at_ = held_;
    }
    last_ = at;
    held_++;
  }

  void end_stroke() {
    flush();
    if (!stroke_.empty()) strokes_.push_back(std::move(stroke_));
    stroke_.clear();
  }

  std::vector<std::vector<Position>> take() { return std::move(strokes_); }

 private:
  /* In a crowded column the way in and out cannot be told from the rest. */
  static constexpr std::size_t kCrowd = 8;

  void flush() {
    if (held_ == 0) return;
    const std::size_t last = held_ - 1;
    const bool crowded = held_ > kCrowd;
    const std::size_t early = std::min(low_at_, high_at_);
    const std::size_t late = std::max(low_at_, high_at_);
    const Position &early_at = low_at_ < high_at_ ? lowest_ : highest_;
    const Position &late_at = low_at_ < high_at_ ? highest_ : lowest_;
    if (!crowded || early == 0) stroke_.push_back(first_);
    if (early > 0) stroke_.push_back(early_at);
    if (late > early) stroke_.push_back(late_at);
    if (!crowded && last > late) stroke_.push_back(last_);
    held_ = 0;
  }

  std::size_t held_ = 0, low_at_ = 0, high_at_ = 0;
  double column_ = 0.0;
  Position first_, last_, lowest_, highest_;
  std::vector<Position> stroke_;
  std::vector<std::vector<Position>> strokes_;
};

}  // namespace

std::vector<std::vector<Position>> strokes(const Line &line, const AxisView &x,
                                           const AxisView &y) {
  Thinner thinner;
  const std::size_t count =
      line.x.empty() ? line.y.size() : std::min(line.x.size(), line.y.size());
  for (std::size_t i = 0; i < count; i++) {
    const double value_x =
        line.x.empty() ? line.start + static_cast<double>(i) * line.step : line.x[i];
    const Position at{x.at(value_x), y.at(line.y[i])};
    const bool gap = line.x.empty() ? is_gap(line.y[i]) : is_missing(line.y[i]);
    if (gap || is_missing(value_x) || !std::isfinite(at.x) || !std::isfinite(at.y)) {
      thinner.end_stroke();
      continue;
    }
    thinner.add(
        {std::clamp(at.x, -kFarAway, kFarAway), std::clamp(at.y, -kFarAway, kFarAway)});
  }
  thinner.end_stroke();
  return thinner.take();
}

void draw_lines(Canvas &canvas, const PanelLayout &layout) {
  for (std::size_t i = 0; i < layout.panel.lines.size(); i++) {
    const Line &line = layout.panel.lines[i];
    const Colour &colour = layout.line_colours[i];
    for (const std::vector<Position> &stroke : strokes(line, layout.x, layout.y)) {
      if (stroke.size() == 1) {
        canvas.circle(stroke[0], std::max(line.width, 1.0), {{}, colour});
      } else {
        if (line.fill) {
          const double base =
              std::clamp(layout.y.at(0.0), layout.frame.y, layout.frame.bottom());
          std::vector<Position> area = stroke;
          area.push_back({stroke.back().x, base});
          area.push_back({stroke.front().x, base});
          canvas.polygon(area, {{}, line.fill});
        }
        canvas.polyline(stroke, {colour, {}, line.width, line.dashed});
      }
    }
  }
}

}  // namespace ksutil::plot
