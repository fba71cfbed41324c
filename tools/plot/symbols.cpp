#include "tools/plot/symbols.h"

#include <array>
#include <cmath>

namespace ksutil::plot {
namespace {

constexpr std::array<const char *, kSymbolCount> kNames = {
    "point", "cross", "x", "triangle", "square", "circle", "star", "diamond"};

/* `count` corners, on the circle and on an inner one in turn, the first at the top. */
std::vector<Position> corners(Position at, int count, double outer, double inner) {
  std::vector<Position> points;
  const double step = 2.0 * std::acos(-1.0) / count;
  for (int i = 0; i < count; i++) {
    const double radius = i % 2 == 0 ? outer : inner;
    points.push_back(
        {at.x + radius * std::sin(i * step), at.y - radius * std::cos(i * step)});
  }
  return points;
}

}  // namespace

const char *symbol_name(Symbol symbol) {
  return kNames[static_cast<std::size_t>(symbol)];
}

bool parse_symbol(std::string_view name, Symbol &symbol) {
  for (std::size_t i = 0; i < kNames.size(); i++) {
    if (name != kNames[i]) continue;
    symbol = static_cast<Symbol>(i);
    return true;
  }
  return false;
}

void draw_symbol(Canvas &canvas, Position at, const PointStyle &style,
                 const Colour &colour) {
  const Colour outline = style.colour.value_or(colour);
  const double r = style.size / 2.0;
  Paint paint{outline, style.fill, 1.0, false};
  /* Filled alike, neighbours would flow together: a darker rim keeps them apart. */
  if (style.fill && *style.fill == outline) {
    paint.stroke = darker(outline, 0.45);
    paint.width = 0.7;
  }
  const double arm = 0.88 * r;
  switch (style.symbol) {
    case Symbol::kPoint:
      return canvas.circle(at, r,
                           {paint.fill ? paint.stroke : std::nullopt,
                            paint.fill ? paint.fill : outline, paint.width});
    case Symbol::kCross:
      paint = {outline, std::nullopt, 1.3};
      canvas.line({at.x - r, at.y}, {at.x + r, at.y}, paint);
      return canvas.line({at.x, at.y - r}, {at.x, at.y + r}, paint);
    case Symbol::kX:
      paint = {outline, std::nullopt, 1.3};
      canvas.line({at.x - arm, at.y - arm}, {at.x + arm, at.y + arm}, paint);
      return canvas.line({at.x - arm, at.y + arm}, {at.x + arm, at.y - arm}, paint);
    case Symbol::kTriangle:
      return canvas.polygon(corners(at, 3, 1.15 * r, 1.15 * r), paint);
    case Symbol::kSquare:
      return canvas.rectangle({at.x - arm, at.y - arm, 2.0 * arm, 2.0 * arm}, paint);
    case Symbol::kCircle:
      return canvas.circle(at, r, paint);
    case Symbol::kStar:
      return canvas.polygon(corners(at, 10, 1.25 * r, 0.5 * r), paint);
    case Symbol::kDiamond:
      return canvas.polygon(corners(at, 4, 1.2 * r, 1.2 * r), paint);
  }
}

}  // namespace ksutil::plot
