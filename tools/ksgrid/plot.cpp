/* plot: ksgrid plot. */
#include <climits>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "platform/elog/elog.h"
#include "tools/common/cells.h"
#include "tools/common/options.h"
#include "tools/ksgrid/commands.h"
#include "tools/ksgrid/grid_file.h"
#include "tools/plot/figure.h"
#include "tools/plot/picture_options.h"

namespace ksutil::tools {
namespace {

struct PlotOptions {
  std::string file, x_label, y_label, label;
  plot::PictureOptions picture;
  int grid = 0;
  std::vector<int> frames{0};
  double low = plot::kUnset, high = plot::kUnset;
  bool diverging = false, map = false;
};

plot::Mesh frame_mesh(const KSGrid &grid, int frame) {
  plot::Mesh mesh;
  mesh.nx = static_cast<std::size_t>(grid.nx);
  mesh.ny = static_cast<std::size_t>(grid.ny);
  mesh.x.assign(grid.x, grid.x + grid.nx);
  mesh.y.assign(grid.y, grid.y + grid.ny);
  const std::size_t size = mesh.nx * mesh.ny;
  const float *const data = grid.data + static_cast<std::size_t>(frame) * size;
  for (std::size_t i = 0; i < size; i++) {
    mesh.values.push_back(data[i] == grid.gapval ? plot::kUnset : data[i]);
  }
  return mesh;
}

/* One scale for all frames of a figure, so that their colours can be compared; unset when
 * none of them has a value. */
void find_scale(const KSGrid &grid, const std::vector<int> &frames, double &low,
                double &high) {
  const ElogScope silent;
  for (const int frame : frames) {
    float least = 0.0F, greatest = 0.0F;
    if (ksgrid_maxmin_ksgrid(&grid, frame, nullptr, nullptr, nullptr, nullptr, &least,
                             &greatest) != 0) {
      continue;
    }
    low = std::fmin(low, least);
    high = std::fmax(high, greatest);
  }
}

std::string frame_title(const KSGrid &grid, int frame) {
  const std::string number = "frame " + std::to_string(frame);
  const double time = grid.time + frame * grid.dt;
  return grid.time == 0.0 ? number : number + ", " + time_cell(time);
}

int draw(const PlotOptions &options) {
  if (options.low >= options.high) {
    complain("--low must be less than --high");
    return kUsage;
  }
  Grid grid;
  if (!read_grid(options.file, options.grid, grid)) return kFailure;
  if (ksgrid_order(grid.get()) != 0) return kFailure;
  std::vector<int> frames;
  for (const int number : options.frames) {
    frames.push_back(0);
    if (!find_frame(*grid, number, frames.back())) return kFailure;
  }
  double low = options.low, high = options.high;
  if (frames.size() > 1 && std::isnan(low)) find_scale(*grid, frames, low, high);
  plot::Figure figure;
  figure.title = text_of(grid->name);
  for (const int frame : frames) {
    plot::Panel &panel = figure.panels.emplace_back();
    panel.title = frame_title(*grid, frame);
    if (options.map) panel.map.emplace();
    panel.x.label = options.x_label.empty() ? text_of(grid->xname) : options.x_label;
    panel.y.label = options.y_label;
    plot::Mesh mesh = frame_mesh(*grid, frame);
    mesh.label = options.label;
    mesh.low = low;
    mesh.high = high;
    mesh.diverging = options.diverging;
    panel.meshes.push_back(std::move(mesh));
  }
  return plot::write_picture(std::move(figure), options.picture) == 0 ? kOk : kFailure;
}

void describe_plot(CLI::App &command, PlotOptions &options) {
  command.add_option("file", options.file, "- for standard input")->required();
  options.picture.width = 700.0;
  plot::add_picture_options(command, options.picture);
  command.add_option("--grid", options.grid, "Which grid of the file (0)")
      ->check(whole_number(0, INT_MAX));
  command.add_option("--frame", options.frames, "Which frames, one below another (0)")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->type_name("N,...");
  CLI::Option *low =
      command.add_option("--low", options.low, "Value of the first colour");
  CLI::Option *high =
      command.add_option("--high", options.high, "Value of the last colour");
  low->needs(high);
  high->needs(low);
  command.add_flag("--diverging", options.diverging, "Colours on both sides of 0");
  command.add_flag("--map", options.map, "x and y are longitude and latitude");
  command.add_option("--x-label", options.x_label, "By default the x axis name");
  command.add_option("--y-label", options.y_label, "Text beside the y axis");
  command.add_option("--label", options.label, "Of the colours, with their unit");
}

}  // namespace

Command plot_command() {
  return make_command<PlotOptions>(
      "plot", "Draws frames as maps of colours, with axes and a scale",
      {"ksgrid plot --map --label 'arrival (s)' -o map.png map.grid"}, describe_plot,
      draw);
}

}  // namespace ksutil::tools
