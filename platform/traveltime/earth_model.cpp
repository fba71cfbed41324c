#include "platform/traveltime/internal/earth_model.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "platform/stock/text.h"

namespace ksutil::traveltime {
namespace {

/* Takes the text up to `separator` (one of several characters) off the front. */
std::string_view take_until(std::string_view &text, std::string_view separators) {
  const std::size_t end = std::min(text.find_first_of(separators), text.size());
  const std::string_view taken = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return taken;
}

bool parse_point(std::string_view line, ModelPoint &point) {
  std::array<double, 3> values{};
  for (double &value : values) {
    line = trimmed(line);
    if (!parse_real(take_until(line, " \t"), value) || !std::isfinite(value))
      return false;
  }
  point = {values[0], values[1], values[2]};
  return point.vp > 0.0 && point.vs >= 0.0;
}

/* Rays bend upward everywhere between two points: r/v falls with depth. */
bool turns_rays(double radius, const ModelPoint &upper, const ModelPoint &lower) {
  const double r_upper = radius - upper.depth;
  const double r_lower = radius - lower.depth;
  return r_upper * lower.vp > r_lower * upper.vp &&
         (upper.vs == 0.0 || r_upper * lower.vs > r_lower * upper.vs);
}

bool is_usable(const EarthModel &model) {
  const std::vector<ModelPoint> &points = model.points;
  if (points.size() < 2 || points.front().depth != 0.0) return false;
  for (std::size_t i = 1; i < points.size(); ++i) {
    const ModelPoint &upper = points[i - 1];
    const ModelPoint &lower = points[i];
    if (lower.depth < upper.depth) return false;
    if (lower.depth == upper.depth) continue;
    const bool same_state = (upper.vs == 0.0) == (lower.vs == 0.0);
    if (!same_state || !turns_rays(model.radius, upper, lower)) return false;
  }
  return true;
}

/* Finds the two boundaries between solid and fluid; false when there are not just these. */
bool find_core(EarthModel &model) {
  int changes = 0;
  for (std::size_t i = 1; i < model.points.size(); ++i) {
    const ModelPoint &lower = model.points[i];
    if ((model.points[i - 1].vs == 0.0) == (lower.vs == 0.0)) continue;
    (changes == 0 ? model.core_depth : model.inner_core_depth) = lower.depth;
    ++changes;
  }
  return changes == 2 && model.points.front().vs > 0.0;
}

}  // namespace

std::optional<EarthModel> parse_tvel(std::string_view text) {
  EarthModel model;
  take_until(text, "\n");
  take_until(text, "\n");
  while (!text.empty()) {
    const std::string_view line = trimmed(take_until(text, "\n"));
    if (line.empty()) continue;
    ModelPoint point;
    if (!parse_point(line, point)) return std::nullopt;
    model.points.push_back(point);
  }
  if (model.points.empty()) return std::nullopt;
  model.radius = model.points.back().depth;
  if (!is_usable(model) || !find_core(model)) return std::nullopt;
  return model;
}

}  // namespace ksutil::traveltime
