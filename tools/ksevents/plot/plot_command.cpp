/* plot_command: ksevents plot. */
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <unordered_set>
#include <vector>

#include "platform/clock/clock.h"
#include "platform/elog/elog.h"
#include "platform/stock/text.h"
#include "tools/common/open_database.h"
#include "tools/common/options.h"
#include "tools/common/table_rows.h"
#include "tools/ksevents/commands.h"
#include "tools/ksevents/plot/catalogue_figures.h"
#include "tools/ksevents/plot/event_page.h"
#include "tools/plot/map_options.h"
#include "tools/plot/picture_options.h"
#include "tools/plot/stations.h"

namespace ksutil::tools {
namespace {

struct EventPlotOptions {
  std::string database, where, kind = "map";
  std::vector<std::string> through;
  long evid = -1;
  Section section;
  double mc = plot::kUnset, bin = 0.1;
  plot::PictureOptions picture;
  plot::MapOptions map;
};

constexpr const char *kKinds[] = {"map",        "section",        "frequency-magnitude",
                                  "cumulative", "magnitude-time", "hours",
                                  "depths",     "residuals"};

/* Titles in the order of kKinds. */
constexpr const char *kTitles[] = {
    "Earthquakes of ",      "Section of ",       "Frequencies of magnitudes of ",
    "Number of events of ", "Magnitudes of ",    "Hours of ",
    "Depths of ",           "Time residuals of "};

/* The time residuals of the origins shown; false with a message. */
bool read_residuals(const std::string &name, const std::vector<CatalogueEvent> &events,
                    std::vector<double> &residuals) {
  const OpenDatabase database(name, "r");
  Dbptr assoc = database ? database.table("assoc") : dbinvalid();
  long count = 0;
  if (assoc.table < 0) return false;
  const TableRows rows(assoc);
  if (!rows.good() || dbquery(assoc, dbq_record_count, &count) < 0) return false;
  std::unordered_set<long> origins;
  for (const CatalogueEvent &event : events) origins.insert(event.orid);
  {
    const ElogScope unheard;  // unreadable rows have been counted already
    for (assoc.record = 0; assoc.record < count; assoc.record++) {
      long orid;
      double residual;
      if (dbgetv(assoc, "orid", &orid, "timeres", &residual,
                 static_cast<char *>(nullptr)) != 0) {
        continue;
      }
      if (residual != -999.0 && origins.contains(orid)) residuals.push_back(residual);
    }
  }
  return rows.complete();
}

bool read_section(const EventPlotOptions &options, Section &section) {
  section = options.section;
  if (options.through.empty()) return true;
  if (options.through.size() == 2 && parse_real(options.through[0], section.lon) &&
      parse_real(options.through[1], section.lat) && std::fabs(section.lon) <= 720.0 &&
      std::fabs(section.lat) <= 90.0) {
    return true;
  }
  complain("--through is not longitude,latitude in degrees");
  return false;
}

int write(plot::Figure &&figure, const EventPlotOptions &options) {
  return plot::write_picture(std::move(figure), options.picture) == 0 ? kOk : kFailure;
}

int plot_catalogue(const EventPlotOptions &options, const plot::Map &map) {
  Section section;
  if (!read_section(options, section)) return kUsage;
  std::vector<CatalogueEvent> events;
  Unreadable unreadable;
  const int code = read_catalogue(options.database, options.where, events, unreadable);
  if (code != kOk) return code;
  if (events.empty()) {
    complain("there are no events to draw");
    return kFailure;
  }
  plot::Figure figure;
  const auto kind = static_cast<std::size_t>(
      std::find(std::begin(kKinds), std::end(kKinds), options.kind) -
      std::begin(kKinds));
  figure.title =
      kTitles[kind] + std::filesystem::path(options.database).filename().string();
  figure.subtitle = options.where;
  switch (kind) {
    case 0:
      add_map(events, map, figure);
      if (options.map.stations) {
        const OpenDatabase database(options.database, "r");
        if (!database || !plot::add_stations(database.table("site"), std_now(),
                                             figure.panels.back())) {
          return kFailure;
        }
      }
      break;
    case 1:
      add_section(events, section, figure);
      break;
    case 2:
      add_frequency_magnitude(events, options.mc, options.bin, figure);
      break;
    case 3:
      add_cumulative(events, figure);
      break;
    case 4:
      add_magnitude_time(events, figure);
      break;
    case 5:
      add_hours(events, figure);
      break;
    case 6:
      add_depths(events, figure);
      break;
    default: {
      std::vector<double> residuals;
      if (!read_residuals(options.database, events, residuals)) return kFailure;
      add_residuals(residuals, figure);
    }
  }
  const int written = write(std::move(figure), options);
  return written != kOk ? written
                        : report_unreadable(unreadable, "records", options.database);
}

int draw(const EventPlotOptions &options) {
  const auto map = plot::map_of(options.map);
  if (!map) return kUsage;
  if (options.evid < 0) return plot_catalogue(options, *map);
  plot::Figure figure;
  if (!make_event_page(options.database, options.evid, *map, figure)) return kFailure;
  return write(std::move(figure), options);
}

void describe_plot(CLI::App &command, EventPlotOptions &options) {
  add_database(command, options.database);
  command
      .add_option("evid", options.evid,
                  "Draw the page of this event instead of a figure")
      ->check(whole_number(0));
  plot::add_picture_options(command, options.picture);
  command
      .add_option(
          "--kind", options.kind,
          "map, section, frequency-magnitude, cumulative, magnitude-time, hours, "
          "depths or residuals")
      ->check(
          CLI::IsMember(std::vector<std::string>(std::begin(kKinds), std::end(kKinds))))
      ->capture_default_str();
  command
      .add_option("--where", options.where, "Only events for which this query is true")
      ->type_name("QUERY");
  plot::add_map_options(command, options.map, "");
  command
      .add_option("--azimuth", options.section.azimuth,
                  "Of a section, degrees clockwise from north")
      ->check(number_between(-360.0, 360.0))
      ->capture_default_str();
  add_list(command, "--through", options.through,
           "Of a section: longitude,latitude (the middle of the events)");
  command
      .add_option("--half-width", options.section.half_width,
                  "Of a section: greatest distance of the events, km")
      ->check(number_between(0.0, 20000.0));
  command
      .add_option("--exaggeration", options.section.exaggeration,
                  "Of a section: depth over distance (1, more where it would be flat)")
      ->check(number_between(0.01, 1000.0));
  command
      .add_option("--mc", options.mc,
                  "Magnitude of completeness (found by maximum curvature)")
      ->check(number_between(-10.0, 12.0));
  command.add_option("--bin", options.bin, "Width of bins of magnitudes")
      ->check(number_between(0.01, 1.0))
      ->capture_default_str();
}

}  // namespace

Command plot_command() {
  return make_command<EventPlotOptions>(
      "plot", "Draws the usual figures of a catalogue, or the page of one event",
      {"ksevents plot --projection equal-area -o map.png data/aug2015",
       "ksevents plot --kind frequency-magnitude -o gr.svg data/aug2015",
       "ksevents plot --kind section --azimuth 100 --through 180,-20 --half-width 300 "
       "-o section.svg --where 'lat < -12 && lat > -28' data/aug2015",
       "ksevents plot -o event.png data/ueb/ueb_test 48836019"},
      describe_plot, draw);
}

}  // namespace ksutil::tools
