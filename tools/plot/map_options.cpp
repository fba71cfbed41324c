#include "tools/plot/map_options.h"

#include <cmath>

#include "platform/stock/text.h"
#include "tools/common/messages.h"
#include "tools/common/options.h"

namespace ksutil::plot {
namespace {

/* Degrees; false unless there are as many as wanted, all finite. */
bool parse_degrees(const std::vector<std::string> &items, std::size_t count,
                   double *degrees) {
  if (items.size() != count) return false;
  for (std::size_t i = 0; i < count; i++) {
    if (!parse_real(items[i], degrees[i]) || !(std::fabs(degrees[i]) <= 720.0)) {
      return false;
    }
  }
  return true;
}

}  // namespace

void add_map_options(CLI::App &command, MapOptions &options,
                     const std::string &description) {
  if (!description.empty()) command.add_flag("--map", options.map, description);
  command
      .add_option("--projection", options.projection,
                  "Of a map: plate-carree, mercator, equal-area or azimuthal")
      ->check(CLI::IsMember({"plate-carree", "mercator", "equal-area", "azimuthal"}))
      ->capture_default_str();
  tools::add_list(command, "--extent", options.extent,
                  "Of a map: west,east,south,north in degrees");
  tools::add_list(command, "--centre", options.centre,
                  "Of an equal-area or azimuthal map: longitude,latitude");
  command.add_flag("--no-coast", options.no_coast, "No coast lines");
  command.add_flag("--no-borders", options.no_borders, "No borders of countries");
  command.add_flag("--stations", options.stations,
                   "Of a map: also the stations of the table site that are valid now");
}

std::optional<Map> map_of(const MapOptions &options) {
  Map map;
  parse_projection(options.projection, map.projection);
  double extent[4], centre[2];
  if (!options.extent.empty()) {
    if (!parse_degrees(options.extent, 4, extent) || extent[0] == extent[1] ||
        !(extent[2] < extent[3]) || extent[2] < -90.0 || extent[3] > 90.0) {
      tools::complain("--extent is not west,east,south,north in degrees");
      return std::nullopt;
    }
    map.west = extent[0];
    map.east = extent[1];
    map.south = extent[2];
    map.north = extent[3];
  }
  if (!options.centre.empty()) {
    if (!parse_degrees(options.centre, 2, centre) || std::fabs(centre[1]) > 90.0) {
      tools::complain("--centre is not longitude,latitude in degrees");
      return std::nullopt;
    }
    map.centre_lon = centre[0];
    map.centre_lat = centre[1];
  }
  map.coast = !options.no_coast;
  map.borders = !options.no_borders;
  return map;
}

}  // namespace ksutil::plot
