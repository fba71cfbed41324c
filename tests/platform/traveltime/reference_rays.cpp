#include "tests/platform/traveltime/reference_rays.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <limits>
#include <numbers>
#include <string>

namespace ksutil::traveltime {
namespace {

constexpr double kDegrees = 180.0 / std::numbers::pi;
constexpr int kPoints = 20;
/* Steeper rays (s/rad) through the Earth's centre would need a finer quadrature. */
constexpr double kLeastSlowness = 2.0;

struct Gauss {
  std::array<double, kPoints> x, w;  // over 0..1
};

/* Legendre polynomials' roots by Newton's method. */
Gauss make_gauss() {
  Gauss g{};
  for (int i = 0; i < kPoints; ++i) {
    double x = std::cos(std::numbers::pi * (i + 0.75) / (kPoints + 0.5)), slope = 1.0;
    for (int iteration = 0; iteration < 50; ++iteration) {
      double before = 1.0, value = x;
      for (int k = 2; k <= kPoints; ++k) {
        const double next = ((2 * k - 1) * x * value - (k - 1) * before) / k;
        before = value;
        value = next;
      }
      slope = kPoints * (x * value - before) / (x * x - 1.0);
      x -= value / slope;
    }
    const auto at = static_cast<std::size_t>(i);
    g.x[at] = 0.5 * (1.0 + x);
    g.w[at] = 1.0 / ((1.0 - x * x) * slope * slope);
  }
  return g;
}

double turning_radius(const ReferenceLayer &layer, double p) {
  double low = layer.bottom, high = layer.top;
  for (int i = 0; i < 60; ++i) {
    const double middle = 0.5 * (low + high);
    (layer.eta(middle) > p ? high : low) = middle;
  }
  return high;
}

/* Adds distance (rad) and time of one way between two radii of a layer, of which the
 * ray turns in the lower one or passes it. */
void integrate(const ReferenceLayer &layer, double top, double bottom, double p,
               double &x, double &t) {
  static const Gauss gauss = make_gauss();
  const double height = top - bottom;
  for (std::size_t i = 0; i < kPoints; ++i) {
    /* Squared, so that the root's singularity at a turning point vanishes. */
    const double s = gauss.x[i];
    const double r = bottom + height * s * s;
    const double eta = layer.eta(r);
    const double root = std::sqrt(std::max(1e-12, (eta - p) * (eta + p)));
    const double weight = 2.0 * s * height * gauss.w[i] / (r * root);
    x += weight * p;
    t += weight * eta * eta;
  }
}

double polynomial(const std::array<double, 4> &c, double r) {
  const double x = r / kEarthRadius;
  return c[0] + x * (c[1] + x * (c[2] + x * c[3]));
}

}  // namespace

ReferenceModel reference_iasp91(Wave wave) {
  struct Row {
    double top, bottom;  // depths
    std::array<double, 4> p, s;
  };
  static const std::vector<Row> rows = {
      {0, 20, {5.8, 0, 0, 0}, {3.36, 0, 0, 0}},
      {20, 35, {6.5, 0, 0, 0}, {3.75, 0, 0, 0}},
      {35, 120, {8.78541, -0.74953, 0, 0}, {6.706231, -2.248585, 0, 0}},
      {120, 210, {25.41389, -17.69722, 0, 0}, {5.75020, -1.27420, 0, 0}},
      {210, 410, {30.78765, -23.25415, 0, 0}, {15.24213, -11.08552, 0, 0}},
      {410, 660, {29.38896, -21.40656, 0, 0}, {17.70732, -13.50652, 0, 0}},
      {660, 760, {25.96984, -16.93412, 0, 0}, {20.76890, -16.53147, 0, 0}},
      {760,
       2740,
       {25.1486, -41.1538, 51.9932, -26.6083},
       {12.9303, -21.2590, 27.8988, -14.1080}},
      {2740, 2889, {14.49470, -1.47089, 0, 0}, {8.16616, -1.58206, 0, 0}},
      {2889, 5153.9, {10.03904, 3.75665, -13.67046, 0}, {}},
      {5153.9, 6371, {11.24094, 0, -4.09689, 0}, {}}};
  ReferenceModel model;
  for (const Row &row : rows) {
    const auto c = wave == Wave::kS && row.top < 2889 ? row.s : row.p;
    model.layers.push_back({kEarthRadius - row.top, kEarthRadius - row.bottom,
                            [c](double r) { return polynomial(c, r); }});
  }
  model.core_radius = kEarthRadius - 2889;
  model.inner_core_radius = kEarthRadius - 5153.9;
  return model;
}

ReferenceModel reference_ak135(Wave wave) {
  std::ifstream file(KSUTIL_SOURCE_DIR "/platform/traveltime/models/ak135.tvel");
  std::string title;
  std::getline(file, title);
  std::getline(file, title);
  ReferenceModel model;
  double last_depth = 0, last_p = 0, last_s = 0, depth, vp, vs, density;
  while (file >> depth >> vp >> vs >> density) {
    if (depth > last_depth) {
      const bool as_s = wave == Wave::kS && last_s > 0 && last_depth < 5000;
      const double top = kEarthRadius - last_depth, bottom = kEarthRadius - depth;
      const double v = as_s ? last_s : last_p;
      const double slope = ((as_s ? vs : vp) - v) / (bottom - top);
      model.layers.push_back(
          {top, bottom, [=](double r) { return v + slope * (r - top); }});
    } else if (depth > 0 && (last_s == 0.0) != (vs == 0.0)) {
      (vs == 0.0 ? model.core_radius : model.inner_core_radius) = kEarthRadius - depth;
    }
    last_depth = depth;
    last_p = vp;
    last_s = vs;
  }
  return model;
}

ReferenceRays::ReferenceRays(const ReferenceModel &model, double depth)
    : model_(model), source_(kEarthRadius - depth) {
  /* A source on a boundary starts into the layer below it. */
  const auto own = std::find_if(model.layers.begin(), model.layers.end(),
                                [&](const auto &l) { return l.bottom < source_; });
  const double eta = own->eta(source_);
  double least = eta;
  if (depth > 0.0) scan(eta, 1e-6, true);
  for (auto layer = own; layer != model.layers.end(); ++layer) {
    const double upper =
        std::min({least, layer->eta(std::min(layer->top, source_)), eta});
    const double lower = layer->bottom > 0 ? layer->eta(layer->bottom) : kLeastSlowness;
    if (layer->top == model.inner_core_radius)
      diffraction_end_ = trace(upper, false).delta;
    /* A little less than grazing, so that the ray enters the layer. */
    if (lower < upper) scan(upper * (1 - 1e-12), lower, false);
    if (layer->bottom == model.core_radius)
      grazing_ = trace(lower * (1 + 1e-12), false);
    least = std::min(least, lower);
  }
}

ReferenceRays::Ray ReferenceRays::trace(double p, bool up) const {
  double x = 0, t = 0;
  for (const ReferenceLayer &layer : model_.layers) {
    /* Above the source once, below it there and back. */
    if (const double bottom = std::max(layer.bottom, source_); bottom < layer.top) {
      integrate(layer, layer.top, bottom, p, x, t);
    }
    if (up && layer.bottom <= source_) break;
    const double top = std::min(layer.top, source_);
    if (top <= layer.bottom) continue;
    const bool turns = layer.bottom == 0.0 || layer.eta(layer.bottom) <= p;
    const double bottom = turns ? turning_radius(layer, p) : layer.bottom;
    double down_x = 0, down_t = 0;
    integrate(layer, top, bottom, p, down_x, down_t);
    x += 2 * down_x;
    t += 2 * down_t;
    if (turns) break;
  }
  return {p, x * kDegrees, t};
}

void ReferenceRays::scan(double upper, double lower, bool up) {
  const int count = up ? 150 : (model_.layers.size() > 20 ? 15 : 300);
  Family family;
  family.up = up;
  for (int k = 0; k <= count; ++k) {
    const double f = static_cast<double>(k) / count;
    /* Crowded below the upper end and, for rays near the core, above the lower one. */
    const double share = up ? f * f : f * f * (2.0 - f);
    family.rays.push_back(trace(upper - (upper - lower) * share, up));
  }
  families_.push_back(std::move(family));
}

/* The time at delta between the rays i and i + 1, by false position in slowness. */
double ReferenceRays::refine(const Family &family, std::size_t i, double delta) const {
  Ray a = family.rays[i], b = family.rays[i + 1], middle = a;
  for (int iteration = 0; iteration < 12; ++iteration) {
    const double share =
        std::clamp((delta - a.delta) / (b.delta - a.delta + 1e-12), 0.01, 0.99);
    middle = trace(a.p + (b.p - a.p) * share, family.up);
    if (std::abs(middle.delta - delta) < 1e-3) break;
    ((middle.delta < delta) == (a.delta < delta) ? a : b) = middle;
  }
  return middle.time + middle.p / kDegrees * (delta - middle.delta);
}

double ReferenceRays::first_time(double delta) const {
  double best = std::numeric_limits<double>::infinity();
  for (const Family &family : families_) {
    for (std::size_t i = 0; i + 1 < family.rays.size(); ++i) {
      const Ray &a = family.rays[i];
      const Ray &b = family.rays[i + 1];
      /* The margin closes the gap between the last ray above and the first below. */
      if (std::abs(2 * delta - a.delta - b.delta) >
          std::abs(a.delta - b.delta) + 1e-3) {
        continue;
      }
      if (std::min(a.time, b.time) > best) continue;
      best = std::min(best, refine(family, i, delta));
    }
  }
  if (delta > grazing_.delta && delta < diffraction_end_) {
    best = std::min(best,
                    grazing_.time + grazing_.p / kDegrees * (delta - grazing_.delta));
  }
  return best;
}

}  // namespace ksutil::traveltime
