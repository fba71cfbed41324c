/* axis_view: lays an axis over a stretch of the picture. */
#ifndef KSUTIL_TOOLS_PLOT_AXIS_VIEW_H
#define KSUTIL_TOOLS_PLOT_AXIS_VIEW_H

#include <cmath>

#include "platform/trace/trace.h"
#include "tools/plot/figure.h"

namespace ksutil::plot {

/* Not a number, or beyond what can be drawn. */
inline bool is_missing(double value) { return !(std::abs(value) < 1e300); }

/* Whether a sample or a value of a mesh is missing or marks a gap. */
inline bool is_gap(double value) { return is_missing(value) || is_gap_sample(value); }

struct Range {
  double low = 0.0, high = 1.0;
};

/* Values on an axis to positions between `from` (the low end) and `to`, and back. */
class AxisView {
 public:
  AxisView() = default;
  AxisView(const Axis &axis, const Range &range, double from, double to);

  /* Not finite for what the axis cannot show. */
  double at(double value) const {
    return from_ + (transformed(value) - low_) * (to_ - from_) / (high_ - low_);
  }
  double value(double position) const;
  bool inside(double value) const {
    return value >= range_.low && value <= range_.high;
  }
  const Range &range() const { return range_; }

 private:
  double transformed(double value) const { return log_ ? std::log10(value) : value; }

  Range range_;
  bool log_ = false;
  double low_ = 0.0, high_ = 1.0;  // transformed ends
  double from_ = 0.0, to_ = 1.0;
};

/* The ranges of a panel's axes: what the axes say, else all of its data with a margin.
 * Never empty: an axis without data, or with a single value, gets room around it. */
Range x_range(const Panel &panel);
Range y_range(const Panel &panel);

/* The range of both. */
Range united(const Range &a, const Range &b);

/* The ends of a mesh's cells: [n + 1] from [n] centres, or those given. */
std::vector<double> cell_edges(const std::vector<double> &coordinates, std::size_t n);

/* Whether the mesh has as many coordinates and values as it says, and they ascend. */
bool usable(const Mesh &mesh);

}  // namespace ksutil::plot
#endif
