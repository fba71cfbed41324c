#include <algorithm>
#include <cmath>

#include "tools/plot/layout.h"

namespace ksutil::plot {
namespace {

constexpr double kLowest = 200.0, kHighest = 620.0;  // heights of a map

/* Where to cut the round of longitudes: opposite to the middle of what cannot be turned,
 * else in the middle of the widest stretch without points. */
double cut_of(const Panel &panel, bool only_points) {
  if (!only_points) {
    Panel fixed = panel;
    fixed.points.clear();
    const Range range = x_range(fixed);
    return 0.5 * (range.low + range.high) - 180.0;
  }
  std::vector<double> longitudes;
  for (const Points &points : panel.points) {
    for (const Point &point : points.points) {
      if (is_missing(point.x) || is_missing(point.y)) continue;
      longitudes.push_back(point.x - 360.0 * std::floor(point.x / 360.0));
    }
  }
  for (const Disk &disk : panel.disks) {
    if (is_missing(disk.x) || is_missing(disk.y)) continue;
    longitudes.push_back(disk.x - 360.0 * std::floor(disk.x / 360.0));
  }
  if (longitudes.empty()) return -180.0;
  std::sort(longitudes.begin(), longitudes.end());
  double gap = longitudes.front() + 360.0 - longitudes.back();
  double middle = longitudes.back() + 0.5 * gap;
  for (std::size_t i = 1; i < longitudes.size(); i++) {
    if (longitudes[i] - longitudes[i - 1] <= gap) continue;
    gap = longitudes[i] - longitudes[i - 1];
    middle = longitudes[i - 1] + 0.5 * gap;
  }
  return middle;
}

void widen(Range &range, double span) {
  const double middle = 0.5 * (range.low + range.high);
  range = {middle - 0.5 * span, middle + 0.5 * span};
}

}  // namespace

void arrange_map(Panel &panel, double width) {
  const bool only_points = panel.meshes.empty() && panel.lines.empty();
  if (is_missing(panel.x.low) && is_missing(panel.x.high)) {
    const double cut = cut_of(panel, only_points);
    for (Points &points : panel.points) {
      for (Point &point : points.points) {
        point.x -= 360.0 * std::floor((point.x - cut) / 360.0);
      }
    }
    for (Disk &disk : panel.disks) {
      disk.x -= 360.0 * std::floor((disk.x - cut) / 360.0);
    }
  }
  Range x = x_range(panel), y = y_range(panel);
  if (x.high - x.low > 340.0) widen(x, 360.0);
  y = {std::max(y.low, -90.0), std::min(y.high, 90.0)};
  if (y.high <= y.low) y = {-90.0, 90.0};
  const double across =
      std::max(std::cos(0.5 * (y.low + y.high) * std::acos(-1.0) / 180.0), 0.2);
  double height = width * (y.high - y.low) / ((x.high - x.low) * across);
  /* Too tall or too flat: show more of the world rather than a strip. */
  if (height > kHighest) {
    widen(x, std::min(360.0, (x.high - x.low) * height / kHighest));
    height = std::min(kHighest, width * (y.high - y.low) / ((x.high - x.low) * across));
  } else if (height < kLowest) {
    widen(y, (y.high - y.low) * kLowest / height);
    y = {std::max(y.low, -90.0), std::min(y.high, 90.0)};
    height = width * (y.high - y.low) / ((x.high - x.low) * across);
  }
  const double middle = 0.5 * (x.low + x.high);
  const double turn = only_points ? 360.0 * std::round(middle / 360.0) : 0.0;
  for (Points &points : panel.points) {
    for (Point &point : points.points) point.x -= turn;
  }
  for (Disk &disk : panel.disks) disk.x -= turn;
  panel.x.low = x.low - turn;
  panel.x.high = x.high - turn;
  panel.y.low = y.low;
  panel.y.high = y.high;
  panel.x.scale = panel.y.scale = Scale::kLinear;
  panel.x.form = TickForm::kLongitude;
  panel.y.form = TickForm::kLatitude;
  panel.height = height;
}

}  // namespace ksutil::plot
