#include "tools/plot/axis_view.h"

#include <algorithm>
#include <functional>

namespace ksutil::plot {
namespace {

/* Grows with the values that an axis can show. */
class Extent {
 public:
  explicit Extent(const Axis &axis) : log_(axis.scale == Scale::kLog) {}

  void add(double value) {
    if (is_missing(value) || (log_ && value <= 0.0)) return;
    low_ = std::min(low_, value);
    high_ = std::max(high_, value);
  }
  bool empty() const { return low_ > high_; }
  double low() const { return low_; }
  double high() const { return high_; }

 private:
  bool log_;
  double low_ = std::numeric_limits<double>::infinity();
  double high_ = -std::numeric_limits<double>::infinity();
};

/* Gives a range that is (nearly) one value some room. */
Range opened(const Axis &axis, double low, double high) {
  const double size = std::max(std::abs(low), std::abs(high));
  const double resolution = 8.0 * std::numeric_limits<double>::epsilon() * size;
  if (high - low > resolution) return {low, high};
  if (axis.scale == Scale::kLog) return {low / 3.0, high * 3.0};
  const double room = axis.scale == Scale::kTime || size == 0.0 ? 1.0 : 0.1 * size;
  return {low - room, high + room};
}

Range with_margin(const Axis &axis, Range range, double margin) {
  if (axis.scale == Scale::kLog) {
    const double decades = std::log10(range.high) - std::log10(range.low);
    const double factor = std::pow(10.0, margin * decades);
    return {std::max(range.low / factor, 1e-300), std::min(range.high * factor, 1e300)};
  }
  const double room = margin * (range.high - range.low);
  return {range.low - room, range.high + room};
}

bool given(const Axis &axis, double end) {
  return !is_missing(end) && (axis.scale != Scale::kLog || end > 0.0);
}

Range axis_range(const Axis &axis, const Extent &extent, double margin) {
  Range range = axis.scale == Scale::kLog ? Range{1.0, 10.0} : Range{0.0, 1.0};
  if (!extent.empty()) {
    range = with_margin(axis, opened(axis, extent.low(), extent.high()), margin);
  }
  const bool low = given(axis, axis.low), high = given(axis, axis.high);
  if (low) range.low = axis.low;
  if (high) range.high = axis.high;
  /* Data may lie wholly on the other side of the one end that is given. */
  if (low && !high && range.high <= range.low) {
    range.high = opened(axis, range.low, range.low).high;
  }
  if (high && !low && range.low >= range.high) {
    range.low = opened(axis, range.high, range.high).low;
  }
  if (range.low > range.high) std::swap(range.low, range.high);
  return opened(axis, range.low, range.high);
}

}  // namespace

AxisView::AxisView(const Axis &axis, const Range &range, double from, double to)
    : range_(range),
      log_(axis.scale == Scale::kLog),
      low_(transformed(range.low)),
      high_(transformed(range.high)),
      from_(axis.reverse ? to : from),
      to_(axis.reverse ? from : to) {}

double AxisView::value(double position) const {
  const double inner = low_ + (position - from_) / (to_ - from_) * (high_ - low_);
  return log_ ? std::pow(10.0, inner) : inner;
}

Range x_range(const Panel &panel) {
  Extent extent(panel.x);
  for (const Line &line : panel.lines) {
    if (line.x.empty() && !line.y.empty()) {
      extent.add(line.start);
      extent.add(line.start + line.step * static_cast<double>(line.y.size() - 1));
    }
    for (const double x : line.x) extent.add(x);
  }
  for (const Points &points : panel.points) {
    for (const Point &point : points.points) extent.add(point.x);
  }
  for (const Disk &disk : panel.disks) extent.add(disk.x);
  for (const Mesh &mesh : panel.meshes) {
    if (!usable(mesh)) continue;
    for (const double edge : cell_edges(mesh.x, mesh.nx)) extent.add(edge);
  }
  if (extent.empty()) {
    for (const Marker &marker : panel.markers) extent.add(marker.x);
  }
  const bool only_lines = panel.points.empty() && panel.disks.empty();
  return axis_range(panel.x, extent, only_lines ? 0.0 : 0.03);
}

Range y_range(const Panel &panel) {
  Extent extent(panel.y);
  for (const Line &line : panel.lines) {
    for (const double y : line.y) {
      if (!line.x.empty() || !is_gap(y)) extent.add(y);
    }
  }
  for (const Points &points : panel.points) {
    for (const Point &point : points.points) extent.add(point.y);
  }
  for (const Disk &disk : panel.disks) extent.add(disk.y);
  for (const Mesh &mesh : panel.meshes) {
    if (!usable(mesh)) continue;
    for (const double edge : cell_edges(mesh.y, mesh.ny)) extent.add(edge);
  }
  const bool only_mesh =
      panel.lines.empty() && panel.points.empty() && panel.disks.empty();
  return axis_range(panel.y, extent, only_mesh ? 0.0 : 0.05);
}

Range united(const Range &a, const Range &b) {
  return {std::min(a.low, b.low), std::max(a.high, b.high)};
}

std::vector<double> cell_edges(const std::vector<double> &coordinates, std::size_t n) {
  if (coordinates.size() == n + 1) return coordinates;
  std::vector<double> edges(n + 1);
  for (std::size_t i = 1; i < n; i++) {
    edges[i] = 0.5 * (coordinates[i - 1] + coordinates[i]);
  }
  edges.front() = n > 1 ? 2.0 * coordinates.front() - edges[1] : coordinates[0] - 0.5;
  edges.back() = n > 1 ? 2.0 * coordinates.back() - edges[n - 1] : coordinates[0] + 0.5;
  return edges;
}

bool usable(const Mesh &mesh) {
  const auto fits = [](const std::vector<double> &coordinates, std::size_t n) {
    return n > 0 && (coordinates.size() == n || coordinates.size() == n + 1) &&
           std::none_of(coordinates.begin(), coordinates.end(), is_missing) &&
           std::is_sorted(coordinates.begin(), coordinates.end());
  };
  return fits(mesh.x, mesh.nx) && fits(mesh.y, mesh.ny) &&
         mesh.values.size() == mesh.nx * mesh.ny;
}

}  // namespace ksutil::plot
