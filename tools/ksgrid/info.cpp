/* info: ksgrid info. */
#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "platform/elog/elog.h"
#include "platform/stock/text.h"
#include "tools/common/cells.h"
#include "tools/common/options.h"
#include "tools/common/rows.h"
#include "tools/ksgrid/commands.h"
#include "tools/ksgrid/grid_file.h"

namespace ksutil::tools {
namespace {

using Json = nlohmann::ordered_json;

struct InfoOptions {
  std::string file;
  bool json = false, raw = false;
};

struct Extremes {
  bool known = false;  // whether there is a value
  float low = 0.0F, high = 0.0F;
};

Extremes extremes(const KSGrid &grid) {
  const ElogScope silent;
  Extremes found;
  found.known = ksgrid_maxmin_ksgrid(&grid, -1, nullptr, nullptr, nullptr, nullptr,
                                     &found.low, &found.high) == 0;
  return found;
}

long gaps(const KSGrid &grid) {
  return grid.ndata == 0 ? 0
                         : std::count(grid.data, grid.data + grid.ndata, grid.gapval);
}

std::string joined(const char *first, const char *second) {
  const std::string separator = first != nullptr && second != nullptr ? ", " : "";
  return text_of(first) + separator + text_of(second);
}

void line(const char *name, const std::string &text) {
  std::printf("%-8s%s\n", name, text.c_str());
}

std::string axis_line(const char *name, int n, const float *coords,
                      const std::string &texts) {
  std::string text = name == nullptr ? "" : std::string(name) + ": ";
  text += n == 1 ? "one coordinate, " + number_text(coords[0])
                 : std::to_string(n) + " coordinates from " + number_text(coords[0]) +
                       " to " + number_text(coords[n - 1]);
  return texts.empty() ? text : text + " (" + texts + ")";
}

/* The time of the first frame: epoch seconds when values are shown as stored, or far from
 * any calendar. */
std::string first_time(const KSGrid &grid, bool raw) {
  const std::string time = raw ? "" : time_cell(grid.time);
  return time.empty() ? shortest_cell(grid.time) : time;
}

void print_text(const KSGrid &grid, bool raw) {
  line("name", text_of(grid.name));
  line("x", axis_line(grid.xname, grid.nx, grid.x, joined(grid.xtext1, grid.xtext2)));
  line("y", axis_line(nullptr, grid.ny, grid.y, joined(grid.ytext1, grid.ytext2)));
  std::string frames = std::to_string(grid.nframes);
  if (grid.nframes > 0) frames += ", first at " + first_time(grid, raw);
  if (grid.nframes > 1) frames += format_text(", every %g s", grid.dt);
  line("frames", frames);
  const Extremes values = extremes(grid);
  std::string range = "none";
  if (values.known) range = number_text(values.low) + " to " + number_text(values.high);
  line("values", range + ", " + std::to_string(gaps(grid)) + " gaps");
  if (grid.text1 != nullptr || grid.text2 != nullptr) {
    line("texts", joined(grid.text1, grid.text2));
  }
}

Json axis_json(int n, const float *coords, const char *text1, const char *text2) {
  return Json{{"count", n},
              {"first", json_number(number_text(coords[0]))},
              {"last", json_number(number_text(coords[n - 1]))},
              {"texts", {json_text(text_of(text1)), json_text(text_of(text2))}}};
}

Json json(const KSGrid &grid, bool raw) {
  Json x = axis_json(grid.nx, grid.x, grid.xtext1, grid.xtext2);
  x["name"] = json_text(text_of(grid.xname));
  const Extremes values = extremes(grid);
  Json object = {
      {"name", json_text(text_of(grid.name))},
      {"x", std::move(x)},
      {"y", axis_json(grid.ny, grid.y, grid.ytext1, grid.ytext2)},
      {"frames", grid.nframes},
      {"time", nullptr},
      {"dt", grid.dt},
      {"min", nullptr},
      {"max", nullptr},
      {"gaps", gaps(grid)},
      {"texts", {json_text(text_of(grid.text1)), json_text(text_of(grid.text2))}},
      {"params", grid.params}};
  const std::string time = first_time(grid, raw);
  object["time"] = raw ? json_number(time) : json_text(time);
  if (values.known) {
    object["min"] = json_number(number_text(values.low));
    object["max"] = json_number(number_text(values.high));
  }
  return object;
}

int info(const InfoOptions &options) {
  GridFile file;
  if (!file.open(options.file)) return kFailure;
  Grid grid;
  Json all = Json::array();
  Next next;
  for (int count = 0; (next = file.next(grid)) == Next::kGrid; count++) {
    if (options.json) {
      all.push_back(json(*grid, options.raw));
    } else {
      if (count > 0) std::printf("\n");
      print_text(*grid, options.raw);
    }
  }
  /* Grids before a damaged one are still shown. */
  if (options.json) {
    print_json(all);
  }
  if (next == Next::kEnd) return kOk;
  complain_of_grids(options.file);
  return kFailure;
}

void describe_info(CLI::App &command, InfoOptions &options) {
  command.add_option("file", options.file, "- for standard input")->required();
  command.add_flag("--json", options.json, "Print JSON");
  add_raw(command, options.raw);
}

}  // namespace

Command info_command() {
  return make_command<InfoOptions>(
      "info", "Shows the axes, frames, extremes and texts of every grid of a file",
      {"ksgrid info map.grid", "cat map.grid map.grid | ksgrid info --json -"},
      describe_info, info);
}

}  // namespace ksutil::tools
