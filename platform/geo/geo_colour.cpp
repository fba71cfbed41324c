#include <cmath>

#include "platform/geo/geo.h"

namespace {

/* Clamps to 0 ... 1; NaN becomes 0. */
double unit(double value) { return value >= 0.0 ? std::fmin(value, 1.0) : 0.0; }

/* One channel between m1 and m2 at the hue, 0 <= hue < 360. */
double channel(double m1, double m2, double hue) {
  if (hue < 60.0) return m1 + (m2 - m1) * hue / 60.0;
  if (hue < 180.0) return m2;
  if (hue < 240.0) return m1 + (m2 - m1) * (240.0 - hue) / 60.0;
  return m1;
}

double wrapped(double hue) {
  if (!std::isfinite(hue)) return 0.0;
  hue = std::fmod(hue, 360.0);
  if (hue < 0.0) hue += 360.0;
  return hue < 360.0 ? hue : 0.0;
}

}  // namespace

void hls2rgb(double h, double l, double s, double *r, double *g, double *b) {
  l = unit(l);
  s = unit(s);
  const double m2 = l <= 0.5 ? l * (1.0 + s) : l + s - l * s;
  const double m1 = 2.0 * l - m2;
  const double hue = wrapped(h);
  *r = unit(channel(m1, m2, wrapped(hue + 120.0)));
  *g = unit(channel(m1, m2, hue));
  *b = unit(channel(m1, m2, wrapped(hue - 120.0)));
}
