/* eval: ksgrid eval. */
#include <climits>
#include <string>
#include <vector>

#include "platform/stock/memory.h"
#include "tools/common/options.h"
#include "tools/common/rows.h"
#include "tools/ksgrid/commands.h"
#include "tools/ksgrid/grid_file.h"
#include "tools/ksgrid/text_table.h"

namespace ksutil::tools {
namespace {

struct EvalOptions {
  std::string file, points, mode = "bilinear", model = "iasp91";
  int grid = 0, frame = 0;
  std::vector<double> x, y;
  bool distances = false;
  double depth = 0.0;
  Form form = Form::kText;
};

struct Points {
  std::vector<float> x, y;

  void add(double px, double py) {
    x.push_back(static_cast<float>(px));
    y.push_back(static_cast<float>(py));
  }
};

bool collect(const EvalOptions &options, Points &points) {
  for (std::size_t i = 0; i < options.x.size(); i++) {
    if (!fits_float(options.x[i]) || !fits_float(options.y[i])) {
      complain("a coordinate is out of the range of single precision");
      return false;
    }
    points.add(options.x[i], options.y[i]);
  }
  if (options.points.empty()) return true;
  TextTable table;
  if (!read_table(options.points, 2, 2, table)) return false;
  for (std::size_t i = 0; i < table.rows(); i++) {
    points.add(table.row(i)[0], table.row(i)[1]);
  }
  return true;
}

int eval(const EvalOptions &options) {
  if (options.x.size() != options.y.size()) {
    complain("--x and --y need as many values as each other");
    return kUsage;
  }
  if (options.x.empty() && options.points.empty()) {
    complain("eval needs --x and --y, or --points");
    return kUsage;
  }
  Points points;
  Grid grid;
  int frame = 0;
  if (!collect(options, points) || !read_grid(options.file, options.grid, grid) ||
      !find_frame(*grid, options.frame, frame)) {
    return kFailure;
  }
  const int count = static_cast<int>(points.x.size());
  float *out = nullptr;
  int nout = 0;
  const int result =
      options.distances
          ? ksgrid_eval_d2slow_ksgrid(grid.get(), options.model.c_str(), options.depth,
                                      frame, count, points.x.data(), points.y.data(),
                                      options.mode.c_str(), "none", &out, &nout)
          : ksgrid_eval_ksgrid(grid.get(), frame, count, points.x.data(),
                               points.y.data(), options.mode.c_str(), "none", &out,
                               &nout);
  const MallocPtr<float> values(out);
  if (result != 0) return kFailure;
  const auto numbers = [](const char *name) { return Column{name, true, true}; };
  Rows rows({numbers("x"), numbers("y"), numbers("value")}, options.form);
  for (std::size_t i = 0; i < points.x.size(); i++) {
    const float value = out[i];
    rows.add({number_text(points.x[i]), number_text(points.y[i]),
              value == grid->gapval ? "" : number_text(value)});
  }
  rows.print();
  return kOk;
}

void describe_eval(CLI::App &command, EvalOptions &options) {
  command.add_option("file", options.file, "- for standard input")->required();
  command.add_option("--x", options.x, "x of one or more points")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->type_name("X,...");
  command.add_option("--y", options.y, "y of as many points")
      ->delimiter(',')
      ->allow_extra_args(false)
      ->type_name("Y,...");
  command.add_option("--points", options.points, "A table of points: x y");
  command.add_option("--grid", options.grid, "Which grid of the file (0)")
      ->check(whole_number(0, INT_MAX));
  command.add_option("--frame", options.frame, "Which frame (0)");
  command.add_option("--mode", options.mode, "bilinear (default) or block")
      ->check(CLI::IsMember({"bilinear", "block"}));
  CLI::Option *distances = command.add_flag(
      "--distances", options.distances,
      "x and y are degrees east and north; the grid is one of slowness, s/degree");
  command.add_option("--depth", options.depth, "Of the source, km, for --distances")
      ->needs(distances);
  command.add_option("--model", options.model, "iasp91 (default) or ak135")
      ->needs(distances)
      ->check(CLI::IsMember({"iasp91", "ak135"}));
  add_form_options(command, options.form);
}

}  // namespace

Command eval_command() {
  return make_command<EvalOptions>(
      "eval", "Evaluates a frame at points; a point without a value is left blank",
      {"ksgrid eval --x 12.5,13 --y 47.9,48 map.grid",
       "ksgrid eval --mode block --csv --x 12.5 --y 48 map.grid"},
      describe_eval, eval);
}

}  // namespace ksutil::tools
