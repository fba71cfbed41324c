#include <algorithm>
#include <cmath>

#include "tools/plot/draw.h"

namespace ksutil::plot {
namespace {

constexpr double kSmallestLined =
    18.0;  // the edges of areas are enough in smaller ones
constexpr double kFinestArc = 0.4;

class DiskDrawing {
 public:
  DiskDrawing(Canvas &canvas, const Disk &disk, Position middle)
      : canvas_(canvas), disk_(disk), middle_(middle), radius_(disk.size / 2.0) {}

  void draw(const Colour &fill) {
    const Colour white = with_opacity({1.0, 1.0, 1.0, 1.0}, disk_.opacity);
    const Colour ink = with_opacity(kInk, disk_.opacity);
    const double stroke = std::clamp(disk_.size / 60.0, 0.5, 1.4);
    canvas_.circle(middle_, radius_, {{}, white});
    if (!disk_.areas.empty()) {
      std::vector<std::vector<Position>> outlines;
      for (const auto &area : disk_.areas) outlines.push_back(placed(area));
      canvas_.shape(outlines, {{}, with_opacity(fill, disk_.opacity * fill.a)});
    }
    if (disk_.size >= kSmallestLined || disk_.areas.empty()) {
      for (const auto &line : disk_.lines) {
        canvas_.polyline(placed(line), {ink, {}, stroke});
      }
    }
    canvas_.circle(middle_, radius_, {ink, {}, stroke});
    for (const DiskText &text : disk_.texts) draw_text(text);
    if (disk_.label.empty()) return;
    canvas_.text({middle_.x, middle_.y + radius_ + kTickSize + 3.0}, disk_.label,
                 {kTickSize, kInk, Anchor::kMiddle});
  }

 private:
  Position at(const DiskPlace &place) const {
    return {middle_.x + radius_ * place.x, middle_.y - radius_ * place.y};
  }

  /* Without the points of a fine curve that no eye could tell apart. */
  std::vector<Position> placed(const std::vector<DiskPlace> &places) const {
    std::vector<Position> result;
    for (std::size_t i = 0; i < places.size(); i++) {
      const Position here = at(places[i]);
      const bool end = i == 0 || i + 1 == places.size();
      if (!end &&
          std::hypot(here.x - result.back().x, here.y - result.back().y) < kFinestArc) {
        continue;
      }
      result.push_back(here);
    }
    return result;
  }

  /* A text with a light ground, so that it shows on either colour. */
  void draw_text(const DiskText &text) {
    const Position place = at(text.at);
    const double size = std::clamp(disk_.size / 14.0, 8.0, 14.0);
    canvas_.circle(place, 0.75 * size, {{}, Colour{1.0, 1.0, 1.0, 0.85}});
    canvas_.text({place.x, place.y + 0.36 * size}, text.text,
                 {size, kInk, Anchor::kMiddle, true});
  }

  Canvas &canvas_;
  const Disk &disk_;
  const Position middle_;
  const double radius_;
};

}  // namespace

void draw_disks(Canvas &canvas, const PanelLayout &layout) {
  for (std::size_t i = 0; i < layout.panel.disks.size(); i++) {
    const Disk &disk = layout.panel.disks[i];
    if (is_missing(disk.x) || is_missing(disk.y) || !layout.x.inside(disk.x) ||
        !layout.y.inside(disk.y)) {
      continue;
    }
    DiskDrawing(canvas, disk, {layout.x.at(disk.x), layout.y.at(disk.y)})
        .draw(disk.fill.value_or(series_colour(0)));
  }
}

}  // namespace ksutil::plot
