#include "tools/kswave/plot_figures.h"

#include <algorithm>
#include <cmath>

#include "platform/clock/clock.h"
#include "platform/stock/text.h"
#include "platform/trace/trace.h"
#include "tools/common/messages.h"

namespace ksutil::tools {
namespace {

/* The samples of a vector as a line over its own clock less `zero`. */
plot::Line line_of(const ksvector2 &vector, double zero) {
  plot::Line line;
  line.y.assign(vector.data, vector.data + vector.npts);
  line.start = vector.time - zero;
  line.step = vector.dt;
  line.colour = kTraceColour;
  line.width = 0.8;
  return line;
}

/* The mean and the largest deviation from it of the samples that are not gaps. */
struct Level {
  double mean = 0.0, reach = 0.0;
};
Level level_of(const std::vector<double> &samples) {
  Level level;
  double count = 0.0;
  for (const double each : samples) {
    if (is_gap_sample(each) || !std::isfinite(each)) continue;
    level.mean += each;
    count += 1.0;
  }
  if (count > 0.0) level.mean /= count;
  for (const double each : samples) {
    if (is_gap_sample(each) || !std::isfinite(each)) continue;
    level.reach = std::max(level.reach, std::abs(each - level.mean));
  }
  return level;
}

/* Samples become places around `middle`, a deviation of 1 being `scale`. */
void place(plot::Line &line, const Level &level, double middle, double scale) {
  for (double &each : line.y) {
    if (is_gap_sample(each) || !std::isfinite(each)) {
      each = plot::kUnset;
    } else {
      each = middle + (each - level.mean) * scale;
    }
  }
}

void add_marker(plot::Panel &panel, double x, const std::string &label,
                const plot::Colour &colour) {
  plot::Marker &marker = panel.markers.emplace_back();
  marker.x = x;
  marker.label = label;
  marker.colour = colour;
}

/* Picks of the station, and when P and S would come. */
void add_arrivals(const ksdsseis_channel &channel, const EventPicks &event,
                  traveltime::Model model, plot::Panel &panel) {
  for (const Pick &pick : event.picks) {
    if (pick.sta == channel.sta) add_marker(panel, pick.time, pick.phase, kPickColour);
  }
  const double delta = event.distance(channel);
  for (const auto wave : {traveltime::Wave::kP, traveltime::Wave::kS}) {
    traveltime::Arrival arrival;
    if (!traveltime::first_arrival(model, wave, delta, event.depth, arrival)) continue;
    add_marker(panel, event.time + arrival.time, std::string(arrival.phase) + "?",
               kTheoryColour);
  }
}

}  // namespace

bool add_traces(const ChannelSet &set, const PlotLook &look, const EventPicks *event,
                plot::Figure &figure, bool &complete) {
  double reach = 0.0;
  std::vector<double> means;
  for (int i = 0; i < set.count(); ++i) {
    const Series series(set, i, look.processing);
    if (!series.good()) {
      print_register();
      complete = false;
      continue;
    }
    const ksdsseis_channel &channel = set.channel(i);
    const ksvector2 &vector = series.vector();
    plot::Panel &panel = figure.panels.emplace_back();
    panel.title = channel_name(channel);
    panel.height = std::clamp(640.0 / set.count(), 42.0, 180.0);
    panel.x.scale = plot::Scale::kTime;
    panel.x.low = vector.time;
    panel.x.high = vector.time + std::max(vector.npts - 1, 1) * vector.dt;
    panel.lines.push_back(line_of(vector, 0.0));
    const Level level = level_of(panel.lines.back().y);
    means.push_back(level.mean);
    reach = std::max(reach, level.reach);
    if (event != nullptr) add_arrivals(channel, *event, look.model, panel);
  }
  if (figure.panels.empty()) return false;
  if (look.common && reach > 0.0) {
    for (std::size_t i = 0; i < figure.panels.size(); ++i) {
      figure.panels[i].y.low = means[i] - 1.05 * reach;
      figure.panels[i].y.high = means[i] + 1.05 * reach;
    }
  }
  figure.panels[figure.panels.size() / 2].y.label = Series::unit(look.processing);
  figure.shared_x = true;
  return true;
}

bool add_section(const ChannelSet &set, const PlotLook &look, const EventPicks &event,
                 plot::Figure &figure, bool &complete) {
  struct Trace {
    plot::Line line;
    Level level;
    double delta;
    const ksdsseis_channel *channel;
  };
  std::vector<Trace> traces;
  for (int i = 0; i < set.count(); ++i) {
    const ksdsseis_channel &channel = set.channel(i);
    const double delta = event.distance(channel);
    if (std::isnan(delta)) {
      complain("the place of " + std::string(channel.sta) +
               " or of the event is not known: left out");
      complete = false;
      continue;
    }
    const Series series(set, i, look.processing);
    if (!series.good()) {
      print_register();
      complete = false;
      continue;
    }
    Trace trace{line_of(series.vector(), event.time), {}, delta, &channel};
    trace.level = level_of(trace.line.y);
    traces.push_back(std::move(trace));
  }
  if (traces.empty()) return false;
  double near = 1e300, far = -1e300, reach = 0.0, begin = 1e300, end = -1e300;
  for (const Trace &trace : traces) {
    near = std::min(near, trace.delta);
    far = std::max(far, trace.delta);
    reach = std::max(reach, trace.level.reach);
    begin = std::min(begin, trace.line.start);
    end = std::max(end, trace.line.start +
                            trace.line.step * static_cast<double>(trace.line.y.size()));
  }
  /* Traces at one distance still have room. */
  const double room = std::max((far - near) / static_cast<double>(traces.size()), 0.02);
  plot::Panel &panel = figure.panels.emplace_back();
  panel.x.label = "time after the origin (s)";
  panel.y.label = "distance (degrees)";
  panel.height =
      std::clamp(60.0 + 45.0 * static_cast<double>(traces.size()), 300.0, 900.0);
  panel.x.low = begin;
  panel.x.high = end;
  panel.y.low = near - 1.2 * room;
  panel.y.high = far + 1.2 * room;
  plot::Points picks;
  picks.name = "picks";
  for (Trace &trace : traces) {
    const double largest = look.common ? reach : trace.level.reach;
    place(trace.line, trace.level, trace.delta,
          largest > 0.0 ? 0.6 * room * look.scale / largest : 0.0);
    panel.lines.push_back(std::move(trace.line));
    for (const Pick &pick : event.picks) {
      if (pick.sta != trace.channel->sta) continue;
      plot::Point &point = picks.points.emplace_back();
      point.x = pick.time - event.time;
      point.y = trace.delta;
      point.style.symbol = plot::Symbol::kCross;
      point.style.size = 11.0;
      point.style.colour = kPickColour;
    }
  }
  if (!picks.points.empty()) panel.points.push_back(std::move(picks));
  for (const auto wave : {traveltime::Wave::kP, traveltime::Wave::kS}) {
    plot::Line curve;
    curve.name = wave == traveltime::Wave::kP ? "P" : "S";
    curve.dashed = wave == traveltime::Wave::kS;
    curve.colour = kTheoryColour;
    for (int i = 0; i <= 200; ++i) {
      const double low = std::max(panel.y.low, 0.0),
                   high = std::min(panel.y.high, 180.0);
      const double delta = low + (high - low) * i / 200.0;
      traveltime::Arrival arrival;
      if (!traveltime::first_arrival(look.model, wave, delta, event.depth, arrival)) {
        continue;
      }
      curve.x.push_back(arrival.time);
      curve.y.push_back(delta);
    }
    if (!curve.x.empty()) panel.lines.push_back(std::move(curve));
  }
  figure.title = "Origin " + event.title();
  return true;
}

bool add_day(const ChannelSet &set, const PlotLook &look, plot::Figure &figure) {
  if (set.count() != 1) {
    complain("--day draws one channel, and " + std::to_string(set.count()) +
             " are meant; choose one with --sta and --chan");
    return false;
  }
  const Series series(set, 0, look.processing);
  if (!series.good()) return false;
  const ksvector2 &vector = series.vector();
  const double seconds = look.line_minutes * 60.0;
  const double first = std::floor(vector.time / seconds) * seconds;
  const double last = vector.time + (vector.npts - 1) * vector.dt;
  const double lines = std::floor((last - first) / seconds) + 1.0;
  if (lines > 1000.0) {
    complain("more than 1000 lines; shorten the time or lengthen --line");
    return false;
  }
  plot::Line all = line_of(vector, 0.0);
  const Level level = level_of(all.y);
  /* A day is scaled by its usual amplitudes, so that one event does not flatten it. */
  std::vector<double> sizes;
  for (std::size_t i = 0; i < all.y.size(); i += 1 + all.y.size() / 200000) {
    if (!is_gap_sample(all.y[i])) sizes.push_back(std::abs(all.y[i] - level.mean));
  }
  std::sort(sizes.begin(), sizes.end());
  const double usual = sizes.empty()
                           ? 0.0
                           : sizes[static_cast<std::size_t>(
                                 0.995 * static_cast<double>(sizes.size() - 1))];
  place(all, level, 0.0, usual > 0.0 ? -0.5 * look.scale / usual : 0.0);
  plot::Panel &panel = figure.panels.emplace_back();
  panel.x.label = "minutes";
  panel.x.low = 0.0;
  panel.x.high = look.line_minutes;
  panel.y.reverse = true;
  panel.y.low = -1.0;
  panel.y.high = lines;
  panel.height = std::clamp(26.0 * lines + 30.0, 120.0, 8000.0);
  static const plot::Colour kColours[] = {{0.10, 0.22, 0.50, 1.0},
                                          {0.70, 0.15, 0.15, 1.0},
                                          {0.12, 0.45, 0.22, 1.0},
                                          {0.25, 0.25, 0.28, 1.0}};
  double day = -1.0;
  for (int i = 0; i < static_cast<int>(lines); ++i) {
    const double begin = first + i * seconds;
    const auto index = [&](double time) {
      const double at = std::ceil((time - vector.time) / vector.dt - 1e-6);
      return static_cast<std::size_t>(
          std::clamp(at, 0.0, static_cast<double>(vector.npts)));
    };
    const std::size_t from = index(begin), to = index(begin + seconds);
    /* Every date at its first line, and the hours of the others as room allows. */
    const std::string text = time_text(begin, 0);
    const std::size_t clock = std::fmod(seconds, 60.0) == 0.0 ? 5 : 8;
    const bool new_day = std::floor(begin / 86400.0) != day;
    day = std::floor(begin / 86400.0);
    panel.y.names.push_back({static_cast<double>(i),
                             new_day ? text.substr(0, 10) + " " + text.substr(11, clock)
                                     : text.substr(11, clock)});
    if (from >= to) continue;
    plot::Line &line = panel.lines.emplace_back();
    line.colour = kColours[i % 4];
    line.width = 0.7;
    line.start = (vector.time + static_cast<double>(from) * vector.dt - begin) / 60.0;
    line.step = vector.dt / 60.0;
    line.y.assign(all.y.begin() + static_cast<std::ptrdiff_t>(from),
                  all.y.begin() + static_cast<std::ptrdiff_t>(to));
    /* Large amplitudes are cut at two lines, as on a drum. */
    for (double &each : line.y) {
      if (!std::isnan(each)) each = i + std::clamp(each, -1.8, 1.8);
    }
  }
  figure.title = channel_name(set.channel(0));
  figure.subtitle = Series::unit(look.processing);
  if (usual > 0.0) {
    figure.subtitle += format_text(", one line apart: %.4g", 2.0 * usual / look.scale);
  }
  return true;
}

}  // namespace ksutil::tools
