#include "tools/plot/phase.h"

#include <cmath>
#include <cstdlib>

#include "tools/plot/axis_view.h"

namespace ksutil::plot {

Axis phase_axis() {
  constexpr int kTurn = 360;
  Axis axis{.label = "phase (degrees)", .low = -190.0, .high = 190.0};
  for (int value = -kTurn / 2; value <= kTurn / 2; value += kTurn / 4) {
    axis.names.push_back({static_cast<double>(value),
                          (value < 0 ? "−" : "") + std::to_string(std::abs(value))});
  }
  return axis;
}

void append_phase(Line &line, double frequency, double phase) {
  const auto add = [&line](double x, double y) {
    line.x.push_back(x);
    line.y.push_back(y);
  };
  if (!std::isfinite(phase)) return add(frequency, kUnset);
  const double here = std::remainder(phase, 360.0);
  const double before = line.y.empty() ? kUnset : line.y.back();
  const double jump = here - before;
  if (!is_missing(before) && std::abs(jump) > 180.0) {
    const double edge = jump < 0.0 ? 180.0 : -180.0;
    const double way = jump < 0.0 ? jump + 360.0 : jump - 360.0;
    const double part = (edge - before) / way;
    const double from = line.x.back();
    const double x = from > 0.0 && frequency > 0.0
                         ? from * std::pow(frequency / from, part)
                         : from + part * (frequency - from);
    add(x, edge);
    add(x, kUnset);
    add(x, -edge);
  }
  add(frequency, here);
}

}  // namespace ksutil::plot
