/* make: ksgrid make. */
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "platform/clock/clock.h"
#include "platform/stock/text.h"
#include "tools/common/write_safely.h"
#include "tools/ksgrid/commands.h"
#include "tools/ksgrid/grid_file.h"
#include "tools/ksgrid/text_table.h"

namespace ksutil::tools {
namespace {

/* Refuse input that fills less than 1/kSparsest of the mesh its coordinates span. */
constexpr std::size_t kSparsest = 100;

struct MakeOptions {
  std::string table, output, name, xname, time = "1970-01-01";
  std::vector<std::string> xtexts, ytexts, texts;
  double dt = 1.0;
};

/* The different values of a column, ascending. */
std::vector<float> coordinates(const TextTable &table, std::size_t column) {
  std::vector<float> coords;
  for (std::size_t i = 0; i < table.rows(); i++) coords.push_back(table.row(i)[column]);
  std::sort(coords.begin(), coords.end());
  coords.erase(std::unique(coords.begin(), coords.end()), coords.end());
  return coords;
}

std::size_t index_of(const std::vector<float> &coords, float value) {
  return static_cast<std::size_t>(
      std::lower_bound(coords.begin(), coords.end(), value) - coords.begin());
}

bool check_points(const TextTable &table, const std::string &path) {
  for (std::size_t i = 0; i < table.rows(); i++) {
    if (std::isfinite(table.row(i)[0]) && std::isfinite(table.row(i)[1])) continue;
    complain(path + ":" + std::to_string(table.lines[i]) +
             ": x and y must be finite numbers");
    return false;
  }
  return true;
}

/* Puts the values of each row at its node of every frame; false with a complaint when a
 * node is given twice. */
bool place_values(const TextTable &table, const std::string &path,
                  const std::vector<float> &x, const std::vector<float> &y,
                  std::vector<float> &frames) {
  const std::size_t size = x.size() * y.size();
  std::vector<long> lines(size, 0);
  for (std::size_t i = 0; i < table.rows(); i++) {
    const float *const row = table.row(i);
    const std::size_t node = index_of(x, row[0]) + x.size() * index_of(y, row[1]);
    if (lines[node] != 0) {
      complain(path + ":" + std::to_string(table.lines[i]) +
               ": the same point as in line " + std::to_string(lines[node]));
      return false;
    }
    lines[node] = table.lines[i];
    for (std::size_t frame = 0; frame + 2 < table.columns; frame++) {
      const float value = row[frame + 2];
      if (!std::isnan(value)) frames[frame * size + node] = value;
    }
  }
  return true;
}

bool write_grid(const Grid &grid, const std::string &path) {
  if (path == "-") return ksgrid_write_fd_ksgrid(grid.get(), STDOUT_FILENO) == 0;
  return write_safely(path, [&](const std::string &beside) {
    const FileHandle file = open_file(beside, O_WRONLY | O_CREAT | O_TRUNC);
    if (file) return ksgrid_write_fd_ksgrid(grid.get(), file.get()) == 0;
    complain(beside + ": " + std::strerror(errno));
    return false;
  });
}

const char *text_at(const std::vector<std::string> &texts, std::size_t i) {
  return i < texts.size() ? texts[i].c_str() : nullptr;
}

int make(const MakeOptions &options) {
  double time = 0.0;
  if (!parse_real(options.time, time) && !parse_date_text(options.time, time)) {
    complain("'" + options.time + "' is not a time");
    return kUsage;
  }
  if (std::max({options.texts.size(), options.xtexts.size(), options.ytexts.size()}) >
      2) {
    complain("a grid and its axes have at most two texts each");
    return kUsage;
  }
  TextTable table;
  if (!read_table(options.table, 3, std::numeric_limits<std::size_t>::max(), table) ||
      !check_points(table, options.table)) {
    return kFailure;
  }
  const std::vector<float> x = coordinates(table, 0), y = coordinates(table, 1);
  if (x.size() * y.size() / kSparsest > table.rows()) {
    complain(options.table + ": not a mesh: " + std::to_string(x.size()) +
             " different x and " + std::to_string(y.size()) + " different y for " +
             std::to_string(table.rows()) + " points");
    return kFailure;
  }
  const Grid grid(
      ksgrid_create(options.xname.empty() ? nullptr : options.xname.c_str(),
                    static_cast<int>(x.size()), x.data(), text_at(options.xtexts, 0),
                    text_at(options.xtexts, 1), static_cast<int>(y.size()), y.data(),
                    text_at(options.ytexts, 0), text_at(options.ytexts, 1),
                    text_at(options.texts, 0), text_at(options.texts, 1),
                    options.name.empty() ? nullptr : options.name.c_str(), nullptr));
  if (grid.get() == nullptr) return kFailure;
  const std::size_t nframes = table.columns - 2;
  std::vector<float> frames(x.size() * y.size() * nframes, grid->gapval);
  if (!place_values(table, options.table, x, y, frames) ||
      ksgrid_put_ksgrid(grid.get(), static_cast<int>(nframes), frames.data(), time,
                        options.dt) != 0) {
    return kFailure;
  }
  return write_grid(grid, options.output) ? kOk : kFailure;
}

void describe_make(CLI::App &command, MakeOptions &options) {
  command
      .add_option("table", options.table,
                  "Lines of x, y and the value of each frame; - for standard input")
      ->required();
  command.add_option("output", options.output, "- for standard output")->required();
  command.add_option("--name", options.name, "Of the grid");
  command.add_option("--xname", options.xname, "Name of the x axis");
  const auto add_texts = [&](const char *option, std::vector<std::string> &texts,
                             const char *help) {
    command.add_option(option, texts, help)
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  };
  add_texts("--xtext", options.xtexts,
            "Text of the x axis; a second time: its second text");
  add_texts("--ytext", options.ytexts, "Text of the y axis, the same");
  add_texts("--text", options.texts, "Text of the grid, the same");
  command.add_option("--time", options.time,
                     "Of the first frame: a date and time, or epoch seconds");
  command.add_option("--dt", options.dt, "Seconds between frames (1)");
}

}  // namespace

Command make_grid_command() {
  return make_command<MakeOptions>(
      "make", "Makes a grid from a table of points",
      {"ksgrid make --name 'P arrival' --text s data/points.txt map.grid"},
      describe_make, make);
}

}  // namespace ksutil::tools
