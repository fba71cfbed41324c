#include "tools/ksdb/plot_figure.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <set>
#include <vector>

#include "objects/db2vector.h"
#include "platform/elog/elog.h"
#include "platform/geo/geo.h"
#include "platform/stock/memory.h"
#include "tools/common/cells.h"
#include "tools/common/cli.h"
#include "tools/ksdb/plot_disks.h"
#include "tools/ksdb/quantity.h"
#include "tools/plot/point_label.h"
#include "tools/plot/symbol_cycle.h"
#include "tools/plot/ticks.h"

namespace ksutil::tools {
namespace {

constexpr std::size_t kMostSymbols = 24;  // of the key

struct VectorDeleter {
  void operator()(KSVector *vector) const { ksvector_free_vector(vector); }
};
using VectorPtr = std::unique_ptr<KSVector, VectorDeleter>;

const char *or_null(const std::string &text) {
  return text.empty() ? nullptr : text.c_str();
}

long count_of(Dbptr view) {
  long count = 0;
  return dbquery(view, dbq_record_count, &count) < 0 ? -1 : count;
}

/* False with a message that names the option. */
bool compiles(Dbptr view, const char *option, const std::string &text, int type) {
  Expression *expression = nullptr;
  const int mark = elog_mark();
  if (dbex_compile(view, text.c_str(), &expression, type) < 0) {
    const MallocPtr<char> why(elog_string(0));
    elog_flush(0, mark);
    std::string reason = why == nullptr ? "not an expression.\n" : why.get();
    const std::size_t begin = reason.find("Can't compile");
    if (begin != std::string::npos) reason.erase(0, begin);
    elog_log(0, "%s: %s", option, reason.c_str());
    return false;
  }
  dbex_free(expression);
  return true;
}

/* The records on which every expression has a value; invalid with a message. */
Dbptr with_values(Dbptr view, const PlotOptions &options) {
  struct Given {
    const char *option;
    const std::string &text;
    int type;
  };
  for (const Given &given : {Given{"--x", options.x, dbexREAL},
                             {"--y", options.y, dbexREAL},
                             {"--hue", options.hue, dbexREAL},
                             {"--saturation", options.saturation, dbexREAL},
                             {"--size", options.size, dbexREAL},
                             {"--symbol", options.symbol, dbexTEXT}}) {
    if (given.text.empty() || (given.type == dbexTEXT && given.text == kBeachball)) {
      continue;
    }
    if (!compiles(view, given.option, given.text, given.type)) return dbinvalid();
    view = dbsubset(view, ("!isnull(" + given.text + ")").c_str());
    if (view.table < 0) return view;
  }
  return view;
}

VectorPtr make_vector(Dbptr view, const PlotOptions &options) {
  return VectorPtr(db2vector(
      view, options.x.c_str(), options.y.c_str(), or_null(options.hue),
      or_null(options.saturation), or_null(options.size), nullptr, nullptr, nullptr,
      options.hollow ? 0 : 1, options.max_size, options.hue_centre, options.hue_range));
}

/* The value of an expression on each record; none when it cannot be found. */
std::vector<double> values_of(Dbptr view, const std::string &expression) {
  const VectorPtr vector(db2vector(view, expression.c_str(), "0", nullptr, nullptr,
                                   nullptr, nullptr, nullptr, nullptr, 0, 1, 0.0, 0.0));
  std::vector<double> values;
  for (int i = 0; vector != nullptr && i < vector->npts; i++) {
    values.push_back(vector->points[i].x);
  }
  return values;
}

/* Finds the smallest and the largest value of an expression. */
bool range_of(Dbptr view, const std::string &expression, double &low, double &high) {
  const std::vector<double> values = values_of(view, expression);
  if (values.empty()) return false;
  const auto [smallest, largest] = std::minmax_element(values.begin(), values.end());
  low = *smallest;
  high = *largest;
  return true;
}

plot::Colour colour_of(double hue, double saturation) {
  plot::Colour colour;
  hls2rgb(hue, 0.6, saturation, &colour.r, &colour.g, &colour.b);
  return colour;
}

/* Colours that grow evenly lighter with the values; what is deep is dark. */
bool add_even_colours(Dbptr view, const PlotOptions &options, plot::Panel &panel) {
  const std::vector<double> values = values_of(view, options.hue);
  std::vector<plot::Point> &points = panel.points.back().points;
  if (values.size() != points.size()) return false;
  const auto [low, high] = std::minmax_element(values.begin(), values.end());
  const Quantity quantity = quantity_of(view, options.hue);
  plot::ColourKey key{options.hue_label.empty() ? quantity.label : options.hue_label,
                      *low,
                      *high,
                      plot::sequential_map(),
                      quantity.time,
                      quantity.down};
  /* The lightest would not stand out against the white half of a beachball. */
  if (options.symbol == kBeachball) key.map.stops.pop_back();
  if (quantity.down) std::reverse(key.map.stops.begin(), key.map.stops.end());
  const double range = *high > *low ? *high - *low : 1.0;
  for (std::size_t i = 0; i < points.size(); i++) {
    plot::PointStyle &style = points[i].style;
    style.colour = key.map.at((values[i] - *low) / range);
    if (!options.hollow) style.fill = style.colour;
  }
  panel.colour_keys.push_back(std::move(key));
  return true;
}

/* Shows the scale that db2vector uses in the key. */
bool add_colour_key(Dbptr view, const PlotOptions &options, bool hue,
                    plot::Panel &panel) {
  const std::string &expression = hue ? options.hue : options.saturation;
  if (expression.empty()) return true;
  plot::ColourKey key;
  if (!range_of(view, expression, key.low, key.high)) return false;
  const Quantity quantity = quantity_of(view, expression);
  key.label = hue && !options.hue_label.empty() ? options.hue_label : quantity.label;
  key.time = quantity.time;
  key.reverse = quantity.down;
  constexpr int kStops = 33;
  for (int i = 0; i < kStops; i++) {
    const double part = i / (kStops - 1.0);
    key.map.stops.push_back(
        hue ? colour_of(options.hue_centre + (part - 0.5) * options.hue_range, 0.9)
            : colour_of(options.hue_centre, 0.3 + 0.7 * part));
  }
  panel.colour_keys.push_back(std::move(key));
  return true;
}

plot::PointStyle key_style(const PlotOptions &options) {
  plot::PointStyle style;
  style.colour = plot::Colour{0.45, 0.45, 0.48, 1.0};
  if (!options.hollow) style.fill = style.colour;
  return style;
}

bool add_size_key(Dbptr view, const PlotOptions &options, plot::Panel &panel) {
  if (options.size.empty()) return true;
  const bool disks = options.symbol == kBeachball;
  double low = 0.0, high = 0.0;
  if (!range_of(view, options.size, low, high)) return false;
  plot::StyleKey key;
  key.label = options.size_label.empty() ? quantity_of(view, options.size).label
                                         : options.size_label;
  const bool time = quantity_of(view, options.size).time;
  std::vector<plot::Tick> ticks;
  if (high > low) {
    ticks = (time ? plot::time_ticks : plot::linear_ticks)(low, high, 5).ticks;
  }
  std::erase_if(ticks, [](const plot::Tick &tick) { return tick.label.empty(); });
  if (ticks.empty() && time) ticks = {{low, time_cell(low), ""}};
  if (ticks.empty()) ticks = {{low, plot::short_number(low, 0.0), ""}};
  const double range = high > low ? high - low : 1.0;
  for (const plot::Tick &tick : ticks) {
    plot::PointStyle style = key_style(options);
    const double size =
        std::floor(1.0 + (options.max_size - 1.0) * (tick.value - low) / range);
    if (disks) {
      style.fill.reset();
      style.size = disk_size(size);
    } else {
      style.size = plot::label_size(static_cast<int>(size));
    }
    if (time) {
      const std::string date = tick.context.empty() ? "" : "  " + tick.context;
      key.entries.push_back({style, tick.label + date});
    } else {
      key.entries.push_back({style, plot::short_number(tick.value, high - low)});
    }
  }
  panel.style_keys.push_back(std::move(key));
  return true;
}

/* The text that decides the symbol of each point, in the order of the points. */
bool symbol_texts(Dbptr view, const PlotOptions &options, std::size_t count,
                  std::vector<std::string> &texts) {
  for (std::size_t i = 0; i < count; ++i) {
    view.record = static_cast<long>(i);
    char *text = nullptr;
    if (dbex_evalstr(view, options.symbol.c_str(), dbexTEXT, &text) < 0) return false;
    texts.emplace_back(MallocPtr<char>(text).get());
  }
  return true;
}

/* Gives each text a symbol, and also a colour where no hue is asked for, and lists them
 * in a key. */
bool add_symbols(Dbptr view, const PlotOptions &options, plot::Panel &panel) {
  if (options.symbol.empty() || options.symbol == kBeachball) return true;
  std::vector<plot::Point> &points = panel.points.back().points;
  std::vector<std::string> texts;
  if (!symbol_texts(view, options, points.size(), texts)) return false;
  const auto looks = plot::looks_of(std::set<std::string>(texts.begin(), texts.end()));
  const bool coloured = options.hue.empty() && options.saturation.empty();
  const auto apply = [&](const plot::Look &look, plot::PointStyle &style) {
    style.symbol = look.symbol;
    if (!coloured) return;
    style.colour = look.colour;
    if (!options.hollow) style.fill = look.colour;
  };
  for (std::size_t i = 0; i < points.size(); ++i) {
    apply(looks.at(texts[i]), points[i].style);
  }
  plot::StyleKey key;
  key.label = quantity_of(view, options.symbol).label;
  for (const auto &[text, look] : looks) {
    if (key.entries.size() == kMostSymbols) {
      complain("the key leaves out " + std::to_string(looks.size() - kMostSymbols) +
               " symbols");
      break;
    }
    plot::PointStyle style = key_style(options);
    apply(look, style);
    style.size = 9.0;
    key.entries.push_back({style, text});
  }
  panel.style_keys.push_back(std::move(key));
  return true;
}

/* Disks in place of the points, with sizes as db2vector gives them to points. */
bool add_disks(Dbptr view, const PlotOptions &options, plot::Panel &panel,
               std::string &subtitle) {
  std::vector<double> sizes;
  if (!options.size.empty()) {
    sizes = values_of(view, options.size);
    if (sizes.size() != panel.points.back().points.size()) return false;
    const auto [low, high] = std::minmax_element(sizes.begin(), sizes.end());
    const double least = *low, range = *high > *low ? *high - *low : 1.0;
    for (double &size : sizes) {
      size = 1.0 + (options.max_size - 1.0) * (size - least) / range;
    }
  }
  long left_out = 0;
  if (!replace_by_disks(view, sizes, options.opacity, panel, left_out)) return false;
  subtitle += (subtitle.empty() ? "" : "; ") + std::to_string(panel.disks.size()) +
              " lower focal hemispheres";
  if (left_out > 0) {
    subtitle += ", " + std::to_string(left_out) + " rows without a mechanism";
  }
  return true;
}

plot::Axis axis_of(Dbptr view, const std::string &expression,
                   const std::string &label) {
  const Quantity quantity = quantity_of(view, expression);
  plot::Axis axis;
  axis.label = label.empty() ? quantity.label : label;
  if (quantity.time) axis.scale = plot::Scale::kTime;
  axis.reverse = quantity.down;
  return axis;
}

}  // namespace

bool make_plot(Dbptr view, const PlotOptions &options, plot::Figure &figure) {
  const long all = count_of(view);
  if (all < 0) return false;
  view = with_values(view, options);
  const long count = view.table < 0 ? -1 : count_of(view);
  if (count < 0) return false;
  if (count == 0) {
    complain(all == 0 ? "no rows" : "no row has all values");
    return false;
  }
  const VectorPtr vector = make_vector(view, options);
  if (vector == nullptr || vector->npts != count) return false;

  figure.title = options.title;
  figure.subtitle = options.subtitle;
  if (count < all) {
    figure.subtitle += (figure.subtitle.empty() ? "" : "; ") +
                       std::to_string(all - count) + " of " + std::to_string(all) +
                       " rows lack a value";
  }
  plot::Panel &panel = figure.panels.emplace_back();
  panel.x = axis_of(view, options.x, options.x_label);
  panel.y = axis_of(view, options.y, options.y_label);
  panel.map = options.map;
  if (panel.map) {
    panel.x.label = options.x_label;
    panel.y.label = options.y_label;
  }
  plot::PointStyle plain;
  plain.colour = plot::series_colour(0);
  if (!options.hollow) plain.fill = plain.colour;
  panel.points.push_back(plot::vector_points(*vector, 0, plain));
  std::vector<plot::Point> &points = panel.points.back().points;
  const bool even = !options.hues && !options.hue.empty() && options.saturation.empty();
  if (!(even ? add_even_colours(view, options, panel)
             : add_colour_key(view, options, true, panel)) ||
      !add_colour_key(view, options, false, panel) ||
      !add_size_key(view, options, panel) || !add_symbols(view, options, panel)) {
    return false;
  }
  if (options.symbol == kBeachball) {
    return add_disks(view, options, panel, figure.subtitle);
  }
  for (plot::Point &point : points) {
    for (std::optional<plot::Colour> *const colour :
         {&point.style.colour, &point.style.fill}) {
      if (*colour) *colour = plot::with_opacity(**colour, options.opacity);
    }
  }
  /* Draw small points last: large ones would hide them. */
  std::stable_sort(points.begin(), points.end(), [](const auto &a, const auto &b) {
    return a.style.size > b.style.size;
  });
  return true;
}

}  // namespace ksutil::tools
