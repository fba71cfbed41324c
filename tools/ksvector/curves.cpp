#include "tools/ksvector/curves.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <numbers>

#include "tools/plot/phase.h"
#include "tools/plot/point_label.h"

namespace ksutil::tools {
namespace {

/* Times before 1973 are probably seconds since another beginning. */
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
    line.dashed = number / 8 % 2 == 1;  // here the colours repeat
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

/* In files in radians no phase exceeds a full turn; in files in degrees some do, unless
 * the instrument hardly delays anything. */
bool in_radians(const KSVector &vector, PhaseUnit unit) {
  constexpr double kTurn = 2.0 * std::numbers::pi * 1.001;
  if (unit != PhaseUnit::kAuto) return unit == PhaseUnit::kRadians;
  double largest = 0.0;
  for (int i = 0; i < vector.npts; ++i) {
    largest = std::max(largest, std::abs(vector.points[i].y[1]));
  }
  return largest > 0.0 && largest <= kTurn;
}

/* Phases in degrees from -180 to 180. */
plot::Line phase_line(const KSVector &vector, PhaseUnit unit) {
  const double factor = in_radians(vector, unit) ? 180.0 / std::numbers::pi : 1.0;
  plot::Line line;
  for (int i = 0; i < vector.npts; ++i) {
    plot::append_phase(line, vector.points[i].x, vector.points[i].y[1] * factor);
  }
  return line;
}

void add_phases(const std::vector<Curve> &curves, const CurveOptions &options,
                plot::Panel &panel) {
  panel.y = plot::phase_axis();
  for (std::size_t i = 0; i < curves.size(); ++i) {
    plot::Line line = phase_line(*curves[i].vector, options.phase);
    line.colour = plot::series_colour(i);
    line.dashed = i / 8 % 2 == 1;
    panel.lines.push_back(std::move(line));
  }
}

/* "amplitude (count/nm)" when all responses have that unit. */
std::string amplitude_label(const std::vector<Curve> &curves) {
  const std::string &unit = curves.front().amplitude_unit;
  const bool common = std::all_of(curves.begin(), curves.end(), [&](const auto &curve) {
    return curve.amplitude_unit == unit;
  });
  return unit.empty() || !common ? "amplitude" : "amplitude (" + unit + ")";
}

}  // namespace

std::string amplitude_unit(const std::string &file) {
  constexpr int kLines = 200;  // comments stand at the beginning
  std::ifstream stream(file);
  std::string line;
  for (int i = 0; i < kLines && std::getline(stream, line) && line.starts_with('#');
       ++i) {
    const std::size_t at = line.find("Amp(");
    const std::size_t end = line.find(')', at);
    if (at == std::string::npos || end == std::string::npos) continue;
    return line.substr(at + 4, end - at - 4);
  }
  return "";
}

void add_response_panels(const std::vector<Curve> &curves, const CurveOptions &options,
                         plot::Figure &figure) {
  figure.shared_x = true;
  for (const bool amplitudes : {true, false}) {
    plot::Panel &panel = figure.panels.emplace_back();
    panel.x.label = options.x_label.empty() ? "frequency (Hz)" : options.x_label;
    panel.x.scale = plot::Scale::kLog;
    if (!amplitudes) {
      add_phases(curves, options, panel);  // the legend of the amplitudes serves both
      continue;
    }
    panel.y.label = options.y_label.empty() ? amplitude_label(curves) : options.y_label;
    panel.y.scale = plot::Scale::kLog;
    for (const Curve &curve : curves) add_series(curve, 0, curve.name, options, panel);
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
