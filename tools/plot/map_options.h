/* MapOptions: the options of every subcommand that draws a map. */
#ifndef KSUTIL_TOOLS_PLOT_MAP_OPTIONS_H
#define KSUTIL_TOOLS_PLOT_MAP_OPTIONS_H

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/plot/figure.h"

namespace ksutil::plot {

struct MapOptions {
  bool map = false;
  std::string projection = "plate-carree";
  std::vector<std::string> extent, centre;
  bool no_coast = false, no_borders = false, stations = false;
};

/* Adds --map with the description given (none: the picture is a map anyway), --projection,
 * --extent, --centre, --no-coast, --no-borders and --stations. */
void add_map_options(CLI::App &command, MapOptions &options,
                     const std::string &description);

/* The map that the options ask for; none, after a complaint, when an extent or a centre
 * makes no sense. */
std::optional<Map> map_of(const MapOptions &options);

}  // namespace ksutil::plot
#endif
