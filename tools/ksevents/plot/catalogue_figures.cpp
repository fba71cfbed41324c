#include "tools/ksevents/plot/catalogue_figures.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

#include "platform/geo/angle.h"
#include "platform/geo/geo.h"
#include "platform/stock/text.h"
#include "tools/ksevents/plot/magnitude_statistics.h"

namespace ksutil::tools {
namespace {

constexpr double kDay = 86400.0;
constexpr double kKmPerDegree = 6371.0 * kRadiansPerDegree;
constexpr double kSmallest = 3.0, kPerMagnitude = 2.6;  // diameters of symbols

const plot::Colour kBlue = plot::series_colour(0);

/* Bars as one filled line: counts[i] over low + i * width to the next. */
plot::Line bars(double low, double width, const std::vector<long> &counts) {
  plot::Line line;
  line.colour = plot::darker(kBlue, 0.3);
  line.fill = plot::with_opacity(kBlue, 0.55);
  line.width = 0.9;
  const auto add = [&line](double x, double y) {
    line.x.push_back(x);
    line.y.push_back(y);
  };
  add(low, 0.0);
  for (std::size_t i = 0; i < counts.size(); i++) {
    const double from = low + width * static_cast<double>(i);
    const auto count = static_cast<double>(counts[i]);
    add(from, count);
    add(from + width, count);
    add(from + width, 0.0);
  }
  return line;
}

std::string join(const std::string &a, const std::string &b) {
  return a.empty() || b.empty() ? a + b : a + "; " + b;
}

std::string events_text(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " event" : " events");
}

/* The diameter of a magnitude; a small one where it is not known. */
double size_of(double magnitude, double smallest) {
  return std::isnan(magnitude)
             ? kSmallest
             : kSmallest + kPerMagnitude * std::max(0.0, magnitude - smallest);
}

/* 1, or the round number that gives depths (lat) a fifth of the distances (lon). */
double legible_exaggeration(const std::vector<CatalogueEvent> &events) {
  if (events.empty()) return 1.0;
  const auto [west, east] =
      std::minmax_element(events.begin(), events.end(),
                          [](const auto &a, const auto &b) { return a.lon < b.lon; });
  double deepest = 1.0;
  for (const CatalogueEvent &event : events) deepest = std::max(deepest, event.lat);
  const double wanted = 0.2 * (east->lon - west->lon) / deepest;
  for (const double factor : {1.0, 2.0, 5.0, 10.0, 20.0, 50.0}) {
    if (factor >= wanted) return factor;
  }
  return 100.0;
}

double smallest_magnitude(const std::vector<CatalogueEvent> &events) {
  double smallest = 1e30;
  for (const CatalogueEvent &event : events) {
    if (event.magnitude < smallest) smallest = event.magnitude;
  }
  return smallest;
}

}  // namespace

void add_events(const std::vector<CatalogueEvent> &events, plot::Panel &panel) {
  const double smallest = smallest_magnitude(events);
  double largest = smallest, deepest = 0.0, shallowest = 1e30;
  for (const CatalogueEvent &event : events) {
    if (event.magnitude > largest) largest = event.magnitude;
    if (event.depth > deepest) deepest = event.depth;
    if (event.depth < shallowest) shallowest = event.depth;
  }
  if (shallowest > deepest) shallowest = deepest;
  /* Shallow events are light, deep ones dark, as the sea on a chart. */
  plot::ColourMap colours = plot::sequential_map();
  std::reverse(colours.stops.begin(), colours.stops.end());
  const double span = std::max(deepest - shallowest, 1e-9);
  /* Many events are a cloud: small symbols let its structure show. */
  const double part = events.size() > 20000 ? 0.5 : events.size() > 3000 ? 0.75 : 1.0;
  const double opacity = events.size() > 3000 ? 0.6 : 0.9;
  plot::Points &points = panel.points.emplace_back();
  for (const CatalogueEvent &event : events) {
    plot::PointStyle style;
    style.size = part * size_of(event.magnitude, smallest);
    const plot::Colour colour = std::isnan(event.depth)
                                    ? plot::Colour{0.6, 0.6, 0.6, 1.0}
                                    : colours.at((event.depth - shallowest) / span);
    style.fill = plot::with_opacity(colour, opacity);
    style.colour = plot::with_opacity(plot::darker(colour, 0.55), opacity);
    points.points.push_back({event.lon, event.lat, style});
  }
  /* Small symbols are drawn last: large ones would hide them. */
  std::stable_sort(
      points.points.begin(), points.points.end(),
      [](const auto &a, const auto &b) { return a.style.size > b.style.size; });
  if (deepest > shallowest) {
    panel.colour_keys.push_back(
        {"depth (km)", shallowest, deepest, colours, false, true});
  }
  if (smallest > 12.0) return;
  plot::StyleKey key{"magnitude", {}};
  const double step = largest - smallest > 2.5 ? 1.0 : 0.5;
  for (double m = step * std::ceil(smallest / step); m <= largest + 1e-9; m += step) {
    plot::PointStyle style;
    style.size = part * size_of(m, smallest);
    key.entries.push_back({style, format_text("%.1f", m)});
  }
  if (key.entries.size() > 1) panel.style_keys.push_back(std::move(key));
}

void add_map(const std::vector<CatalogueEvent> &events, const plot::Map &map,
             plot::Figure &figure) {
  plot::Panel &panel = figure.panels.emplace_back();
  panel.map = map;
  add_events(events, panel);
  figure.subtitle = join(figure.subtitle, events_text(events.size()));
}

void add_section(const std::vector<CatalogueEvent> &events, const Section &section,
                 plot::Figure &figure) {
  double lon = section.lon, lat = section.lat;
  if (std::isnan(lon) || std::isnan(lat)) {
    /* The middle on the sphere, which the cut of longitudes does not disturb. */
    std::array<double, 3> sum{};
    for (const CatalogueEvent &event : events) {
      sum[0] += std::cos(radians(event.lat)) * std::cos(radians(event.lon));
      sum[1] += std::cos(radians(event.lat)) * std::sin(radians(event.lon));
      sum[2] += std::sin(radians(event.lat));
    }
    lon = degrees(std::atan2(sum[1], sum[0]));
    lat = degrees(std::atan2(sum[2], std::hypot(sum[0], sum[1])));
  }
  std::vector<CatalogueEvent> shown;
  for (CatalogueEvent event : events) {
    if (std::isnan(event.depth)) continue;
    const double distance = distance_degrees(lat, lon, event.lat, event.lon);
    const double angle =
        radians(azimuth_degrees(lat, lon, event.lat, event.lon) - section.azimuth);
    /* Along and across the great circle of the section. */
    const double d = radians(distance);
    const double across = std::asin(std::sin(d) * std::sin(angle));
    const double along = std::atan2(std::sin(d) * std::cos(angle), std::cos(d));
    if (std::fabs(degrees(across)) * kKmPerDegree > section.half_width) continue;
    event.lon = degrees(along) * kKmPerDegree;
    event.lat = event.depth;
    shown.push_back(event);
  }
  plot::Panel &panel = figure.panels.emplace_back();
  add_events(shown, panel);
  panel.colour_keys.clear();  // depth is an axis here
  panel.x.label = format_text("distance along N%.0f°E (km)", section.azimuth);
  panel.y = {.label = "depth (km)", .reverse = true};
  const double exaggeration = std::isnan(section.exaggeration)
                                  ? legible_exaggeration(shown)
                                  : section.exaggeration;
  panel.aspect = exaggeration;
  std::string note = format_text("through %.2f° %.2f°, vertical exaggeration %g", lat,
                                 lon, exaggeration);
  if (!std::isnan(section.half_width)) {
    note += format_text(", events within %g km", section.half_width);
  }
  figure.subtitle = join(figure.subtitle, note);
}

void add_frequency_magnitude(const std::vector<CatalogueEvent> &events, double mc,
                             double bin, plot::Figure &figure) {
  std::vector<double> magnitudes;
  for (const CatalogueEvent &event : events) magnitudes.push_back(event.magnitude);
  const MagnitudeCounts counts = count_magnitudes(magnitudes, bin);
  const bool given = !std::isnan(mc);
  if (!given) mc = completeness(counts).value_or(plot::kUnset);
  plot::Panel &panel = figure.panels.emplace_back();
  panel.x.label = "magnitude";
  panel.y = {.label = "events", .scale = plot::Scale::kLog, .whole = true};
  plot::Points cumulative, single;
  cumulative.name = "of this magnitude and above";
  single.name = format_text("in bins of %g", bin);
  plot::PointStyle circle, square;
  circle.fill = kBlue;
  square.symbol = plot::Symbol::kSquare;
  square.size = 5.0;
  cumulative.colour = kBlue;
  single.colour = plot::Colour{0.5, 0.5, 0.52, 1.0};
  for (std::size_t i = 0; i < counts.counts.size(); i++) {
    const double m = counts.magnitude(i);
    cumulative.points.push_back({m, static_cast<double>(counts.at_least(i)), circle});
    if (counts.counts[i] > 0) {
      single.points.push_back({m, static_cast<double>(counts.counts[i]), square});
    }
  }
  std::string note = events_text(events.size());
  if (const auto fit = fit_frequencies(magnitudes, mc, bin)) {
    plot::Line line;
    line.name = format_text("b = %.2f ± %.2f", fit->b, fit->error);
    line.colour = plot::series_colour(1);
    line.width = 1.6;
    const double end = (fit->a + 0.3) / fit->b;
    for (const double m : {mc, end}) {
      line.x.push_back(m);
      line.y.push_back(std::pow(10.0, fit->a - fit->b * m));
    }
    panel.lines.push_back(line);
    panel.markers.push_back({mc, format_text("Mc %.1f", mc), {}});
    note = format_text(
        "b = %.2f ± %.2f (Aki 1965; Shi & Bolt 1982), a = %.2f, %ld of %zu "
        "events; Mc %.1f %s",
        fit->b, fit->error, fit->a, fit->events, events.size(), mc,
        given ? "given" : "by maximum curvature + 0.2");
  } else {
    note += ", too few for a value of b";
  }
  panel.points = {single, cumulative};
  figure.subtitle = join(figure.subtitle, note);
}

void add_cumulative(const std::vector<CatalogueEvent> &events, plot::Figure &figure) {
  plot::Panel &panel = figure.panels.emplace_back();
  panel.x.scale = plot::Scale::kTime;
  panel.y = {.label = "cumulative number of events", .low = 0.0, .whole = true};
  plot::Line &line = panel.lines.emplace_back();
  line.width = 1.5;
  double count = 0.0;
  for (const CatalogueEvent &event : events) {
    line.x.insert(line.x.end(), {event.time, event.time});
    line.y.insert(line.y.end(), {count, count + 1.0});
    count += 1.0;
  }
  figure.subtitle = join(figure.subtitle, events_text(events.size()));
}

void add_magnitude_time(const std::vector<CatalogueEvent> &events,
                        plot::Figure &figure) {
  plot::Panel &panel = figure.panels.emplace_back();
  panel.x.scale = plot::Scale::kTime;
  panel.y.label = "magnitude";
  plot::Points &points = panel.points.emplace_back();
  const double smallest = smallest_magnitude(events);
  plot::Line stems;
  stems.colour = plot::with_opacity(kBlue, 0.35);
  stems.width = 0.7;
  for (const CatalogueEvent &event : events) {
    if (std::isnan(event.magnitude)) continue;
    plot::PointStyle style;
    style.size = 4.0;
    style.fill = kBlue;
    points.points.push_back({event.time, event.magnitude, style});
    stems.x.insert(stems.x.end(), {event.time, event.time, plot::kUnset});
    stems.y.insert(stems.y.end(), {smallest, event.magnitude, plot::kUnset});
  }
  points.colour = kBlue;
  if (points.points.size() <= 2000) panel.lines.push_back(std::move(stems));
  figure.subtitle =
      join(figure.subtitle, events_text(points.points.size()) + " with a magnitude");
}

void add_hours(const std::vector<CatalogueEvent> &events, plot::Figure &figure) {
  std::vector<long> counts(24);
  for (const CatalogueEvent &event : events) {
    const double second = event.time - kDay * std::floor(event.time / kDay);
    counts[static_cast<std::size_t>(std::min(second / 3600.0, 23.0))]++;
  }
  plot::Panel &panel = figure.panels.emplace_back();
  panel.x = {.label = "hour of the day (UTC)", .low = 0.0, .high = 24.0};
  panel.y = {.label = "events", .low = 0.0, .whole = true};
  for (int hour = 0; hour <= 24; hour += 3) {
    panel.x.names.push_back({static_cast<double>(hour), std::to_string(hour)});
  }
  panel.lines.push_back(bars(0.0, 1.0, counts));
  figure.subtitle = join(figure.subtitle, events_text(events.size()));
}

void add_depths(const std::vector<CatalogueEvent> &events, plot::Figure &figure) {
  double deepest = 0.0;
  std::size_t known = 0;
  for (const CatalogueEvent &event : events) {
    if (event.depth > deepest) deepest = event.depth;
    known += std::isnan(event.depth) ? 0 : 1;
  }
  const double width = deepest > 300.0 ? 20.0 : deepest > 60.0 ? 5.0 : 1.0;
  std::vector<long> counts(static_cast<std::size_t>(deepest / width) + 1);
  for (const CatalogueEvent &event : events) {
    if (std::isnan(event.depth)) continue;
    counts[static_cast<std::size_t>(std::max(event.depth, 0.0) / width)]++;
  }
  plot::Panel &panel = figure.panels.emplace_back();
  panel.x = {.label = "depth (km)", .low = 0.0};
  panel.y = {.label = format_text("events in %g km", width), .low = 0.0, .whole = true};
  panel.lines.push_back(bars(0.0, width, counts));
  figure.subtitle = join(figure.subtitle, events_text(known) + " with a depth");
}

void add_residuals(const std::vector<double> &residuals, plot::Figure &figure) {
  plot::Panel &panel = figure.panels.emplace_back();
  panel.x.label = "time residual (s), observed minus computed";
  panel.y = {.label = "arrivals", .low = 0.0, .whole = true};
  panel.empty_note = "no residuals";
  const auto n = static_cast<double>(residuals.size());
  if (residuals.empty()) {
    figure.subtitle = join(figure.subtitle, "no residuals");
    return;
  }
  const double mean = std::accumulate(residuals.begin(), residuals.end(), 0.0) / n;
  double squares = 0.0;
  for (const double r : residuals) squares += (r - mean) * (r - mean);
  const double spread = n > 1.0 ? std::sqrt(squares / (n - 1.0)) : 0.0;
  /* Wild readings must not squeeze the rest. */
  std::vector<double> sorted = residuals;
  std::sort(sorted.begin(), sorted.end());
  const double median = sorted[sorted.size() / 2];
  const double quarters = sorted[sorted.size() * 3 / 4] - sorted[sorted.size() / 4];
  const double farthest = std::max(sorted.back() - median, median - sorted.front());
  const double reach =
      std::min(std::max(4.0 * quarters, 2.0 * spread), farthest) + 1e-3;
  const double raw = 2.0 * reach / std::clamp(std::sqrt(n) * 1.5, 8.0, 60.0);
  const double decade = std::pow(10.0, std::floor(std::log10(raw)));
  const double width = decade * (raw / decade < 2.0   ? 2.0
                                 : raw / decade < 5.0 ? 5.0
                                                      : 10.0);
  const double low = width * std::floor((median - reach) / width);
  std::vector<long> counts(static_cast<std::size_t>(2.0 * reach / width) + 2);
  long outside = 0;
  for (const double r : residuals) {
    const double place = std::floor((r - low) / width);
    if (place < 0.0 || place >= static_cast<double>(counts.size())) {
      outside++;
    } else {
      counts[static_cast<std::size_t>(place)]++;
    }
  }
  panel.lines.push_back(bars(low, width, counts));
  panel.markers.push_back({mean, "mean", {}});
  std::string note = format_text(
      "%zu arrivals, mean %.2f s, standard deviation %.2f s, "
      "median %.2f s",
      residuals.size(), mean, spread, median);
  if (outside > 0) note += format_text("; %ld beyond the axis", outside);
  figure.subtitle = join(figure.subtitle, note);
}

}  // namespace ksutil::tools
