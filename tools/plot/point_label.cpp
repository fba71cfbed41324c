#include "tools/plot/point_label.h"

#include <algorithm>
#include <cstdint>

#include "platform/stock/text.h"

namespace ksutil::plot {
namespace {

constexpr std::int64_t kLargest = 100;  // size; larger symbols are drawn so large

bool apply(std::string_view key, std::string_view value, PointStyle &style) {
  Colour colour;
  if (key == "o" || key == "f") {
    if (!parse_colour(value, colour)) return false;
    (key == "o" ? style.colour : style.fill) = colour;
  } else if (key == "sz") {
    std::int64_t size = 0;
    if (!parse_integer(value, size)) return false;
    style.size =
        label_size(static_cast<int>(std::clamp<std::int64_t>(size, 1, kLargest)));
  } else if (key == "sy") {
    return parse_symbol(value, style.symbol);
  }
  return true;
}

}  // namespace

double label_size(int size) { return 2.5 + 1.7 * size; }

bool parse_point_label(std::string_view label, PointStyle &style) {
  label = trimmed(label);
  if (label.size() < 2 || label.front() != '{' || label.back() != '}') return false;
  label = trimmed(label.substr(1, label.size() - 2));
  PointStyle result = style;
  while (!label.empty()) {
    const std::size_t end = std::min(label.find_first_of(" \t"), label.size());
    const std::string_view word = label.substr(0, end);
    const std::size_t equals = word.find('=');
    if (equals == std::string_view::npos ||
        !apply(word.substr(0, equals), word.substr(equals + 1), result)) {
      return false;
    }
    label = trimmed(label.substr(end));
  }
  style = result;
  return true;
}

Points vector_points(const KSVector &vector, int iy, const PointStyle &plain) {
  Points points;
  for (int i = 0; i < vector.npts; i++) {
    if (vector.points == nullptr) {
      points.points.push_back({vector.time + i * vector.dt, vector.data[i], plain});
      continue;
    }
    const KSVectorPoint &from = vector.points[i];
    Point point{from.x, from.y[iy], plain};
    if (from.label != nullptr) parse_point_label(from.label, point.style);
    points.points.push_back(point);
  }
  return points;
}

Line vector_line(const KSVector &vector, int iy) {
  Line line;
  if (vector.points == nullptr) {
    line.y.assign(vector.data, vector.data + vector.npts);
    line.start = vector.time;
    line.step = vector.dt;
    return line;
  }
  for (int i = 0; i < vector.npts; i++) {
    line.x.push_back(vector.points[i].x);
    line.y.push_back(vector.points[i].y[iy]);
  }
  return line;
}

}  // namespace ksutil::plot
