/* plot_command: ksdb plot. */
#include <cmath>
#include <filesystem>
#include <memory>
#include <string>

#include "platform/clock/clock.h"
#include "tools/common/options.h"
#include "tools/common/unreadable.h"
#include "tools/ksdb/conditions.h"
#include "tools/ksdb/open_tables.h"
#include "tools/ksdb/plot_figure.h"
#include "tools/plot/map_options.h"
#include "tools/plot/picture_options.h"
#include "tools/plot/stations.h"

namespace ksutil::tools {
namespace {

struct PlotCommandOptions {
  std::string database, tables, where;
  plot::PictureOptions picture;
  plot::MapOptions map;
  PlotOptions plot;
  std::string colours = "viridis";
};

bool usable(PlotOptions &plot) {
  if (plot.map) {
    if (plot.x.empty()) plot.x = "lon";
    if (plot.y.empty()) plot.y = "lat";
  }
  if (plot.x.empty() || plot.y.empty()) {
    complain("--x and --y are needed, or --map");
    return false;
  }
  if (!(std::abs(plot.hue_centre) + std::abs(plot.hue_range) / 2.0 <= 360.0)) {
    complain("hues must lie between -360 and 360 degrees");
    return false;
  }
  return true;
}

int draw(const PlotCommandOptions &given) {
  PlotCommandOptions options = given;
  const PlotOptions usual;
  options.plot.hues = options.colours == "hue" ||
                      options.plot.hue_centre != usual.hue_centre ||
                      options.plot.hue_range != usual.hue_range;
  if (options.map.map) {
    options.plot.map = plot::map_of(options.map);
    if (!options.plot.map) return kUsage;
  }
  if (!usable(options.plot)) return kUsage;
  if (options.map.stations && !options.map.map) {
    complain("--stations needs --map");
    return kUsage;
  }
  const OpenDatabase database(options.database, "r");
  if (!database) return kFailure;
  Dbptr view = open_tables(database, options.tables);
  if (view.table < 0) return kFailure;
  if (const int code = Conditions().compile(view, {options.where}); code != kOk) {
    return code;
  }
  if (!options.where.empty()) view = dbsubset(view, options.where.c_str());
  if (view.table < 0) return kFailure;
  if (options.picture.title.empty()) {
    options.plot.title = std::filesystem::path(options.database).filename().string() +
                         " " + options.tables;
    options.plot.subtitle = options.where;
  }
  plot::Figure figure;
  if (!make_plot(view, options.plot, figure)) return kFailure;
  if (options.map.stations &&
      !plot::add_stations(database.table("site"), std_now(), figure.panels.back())) {
    return kFailure;
  }
  if (plot::write_picture(std::move(figure), options.picture) != 0) return kFailure;
  return report_unreadable({take_left_out(), 0}, "records", options.database);
}

void describe_plot(CLI::App &command, PlotCommandOptions &options) {
  PlotOptions &plot = options.plot;
  add_database(command, options.database);
  add_tables(command, options.tables);
  plot::add_picture_options(command, options.picture);
  add_where(command, options.where);
  command.add_option("--x", plot.x, "Expression of the horizontal place");
  command.add_option("--y", plot.y, "Expression of the vertical place");
  command.add_option("--hue", plot.hue, "Expression that decides the hue");
  command.add_option("--saturation", plot.saturation,
                     "Expression that decides how strong the colour is");
  command.add_option("--size", plot.size, "Expression that decides the size");
  command.add_option(
      "--symbol", plot.symbol,
      "Expression of texts: one symbol each; or beachball: the mechanisms "
      "of rows of mt");
  plot::add_map_options(command, options.map,
                        "A map: x and y are degrees (default lon and lat)");
  command.add_flag("--hollow", plot.hollow, "Outlines only");
  command.add_option("--max-size", plot.max_size, "Size of the largest symbol")
      ->check(whole_number(1, 100))
      ->capture_default_str();
  command
      .add_option("--colours", options.colours,
                  "Scale of --hue: viridis, or hue for a part of the circle of hues")
      ->check(CLI::IsMember({"viridis", "hue"}))
      ->capture_default_str();
  command.add_option("--hue-centre", plot.hue_centre, "Degrees: 0 red, 240 blue")
      ->capture_default_str();
  command
      .add_option("--hue-range", plot.hue_range,
                  "Degrees from the smallest to the largest value")
      ->capture_default_str();
  command.add_option("--x-label", plot.x_label);
  command.add_option("--y-label", plot.y_label);
  command.add_option("--hue-label", plot.hue_label);
  command.add_option("--size-label", plot.size_label);
  command.add_option("--opacity", plot.opacity, "Of the symbols, 0 to 1")
      ->check(number_between(0.0, 1.0))
      ->capture_default_str();
}

}  // namespace

Command plot_command() {
  return make_command<PlotCommandOptions>(
      "plot", "Draws the records as points",
      {"ksdb plot --map --hue depth -o map.svg data/aug2015 origin",
       "ksdb plot --x time --y magnitude --where 'magnitude >= 5' -o times.png "
       "data/aug2015 origin+netmag"},
      describe_plot, draw);
}

}  // namespace ksutil::tools
