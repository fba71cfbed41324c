#include "tools/ksvector/curves.h"

#include <algorithm>

#include "tools/plot/point_label.h"

namespace ksutil::tools {
namespace {

/* Times before 1973 are taken for seconds from some other beginning. */
constexpr double kEarliestEpoch = 1e8;

bool tells_looks(const KSVector &vector) {
  plot::PointStyle style;
  return std::any_of(
      vector.points, vector.points + vector.npts, [&](const auto &point) {
        return point.label != nullptr && plot::parse_point_label(point.label, style);
      });
}

/* Adds y[iy] of a vector as the next series of a panel. */
void add_series(const Curve &curve, int iy, const std::string &name,
                const CurveOptions &options, plot::Panel &panel) {
  const KSVector &vector = *curve.vector;
  const std::size_t number = std::max(panel.lines.size(), panel.points.size());
  const plot::Colour colour = plot::series_colour(number);
  CurveStyle style = options.style;
  if (style == CurveStyle::kAuto) {
    style = vector.points != nullptr && tells_looks(vector) ? CurveStyle::kPoints
                                                            : CurveStyle::kLines;
  }
  if (style != CurveStyle::kPoints) {
    plot::Line line = plot::vector_line(vector, iy);
    line.name = name;
    line.colour = colour;
    line.dashed = number / 8 % 2 == 1;  // the colours begin again
    panel.lines.push_back(std::move(line));
  }
  if (style != CurveStyle::kLines) {
    plot::Points points =
        plot::vector_points(vector, iy, {plot::Symbol::kCircle, 5.0, colour, colour});
    if (style == CurveStyle::kPoints) points.name = name;
    points.colour = colour;
    panel.points.push_back(std::move(points));
  }
}

}  // namespace

void add_response_panels(const std::vector<Curve> &curves, const CurveOptions &options,
                         plot::Figure &figure) {
  figure.shared_x = true;
  for (const int iy : {0, 1}) {
    plot::Panel &panel = figure.panels.emplace_back();
    panel.x.label = options.x_label.empty() ? "frequency (Hz)" : options.x_label;
    panel.x.scale = plot::Scale::kLog;
    panel.y.label = iy == 0 ? "amplitude" : "phase";
    if (iy == 0) {
      if (!options.y_label.empty()) panel.y.label = options.y_label;
      panel.y.scale = plot::Scale::kLog;
    }
    /* One legend serves both. */
    for (const Curve &curve : curves) {
      add_series(curve, iy, iy == 0 ? curve.name : "", options, panel);
    }
  }
}

void add_point_panel(const std::vector<Curve> &curves, const CurveOptions &options,
                     plot::Figure &figure) {
  plot::Panel &panel = figure.panels.emplace_back();
  panel.x.label = options.x_label;
  panel.y.label = options.y_label;
  if (options.log_x) panel.x.scale = plot::Scale::kLog;
  if (options.time) panel.x.scale = plot::Scale::kTime;
  if (options.log_y) panel.y.scale = plot::Scale::kLog;
  for (const Curve &curve : curves) {
    const int ny = curve.vector->ny;
    for (int iy = 0; iy < ny; iy++) {
      const std::string column = ny > 1 ? " y" + std::to_string(iy) : "";
      const bool alone = curves.size() == 1 && ny == 1;
      add_series(curve, iy, alone ? "" : curve.name + column, options, panel);
    }
  }
}

void add_series_panels(const std::vector<Curve> &curves, const CurveOptions &options,
                       plot::Figure &figure) {
  figure.shared_x = true;
  for (const Curve &curve : curves) {
    plot::Panel &panel = figure.panels.emplace_back();
    panel.title = curve.name;
    panel.x.label = options.x_label;
    panel.y.label = options.y_label;
    if (curve.vector->time > kEarliestEpoch) {
      panel.x.scale = plot::Scale::kTime;
    } else if (options.x_label.empty()) {
      panel.x.label = "time (s)";
    }
    if (options.log_y) panel.y.scale = plot::Scale::kLog;
    add_series(curve, 0, "", options, panel);
  }
}

}  // namespace ksutil::tools
