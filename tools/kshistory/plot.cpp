/* plot: kshistory plot. */

#include "platform/elog/elog.h"
#include "tools/kshistory/commands.h"
#include "tools/kshistory/entries.h"
#include "tools/plot/figure.h"
#include "tools/plot/picture_options.h"

namespace ksutil::tools {
namespace {

/* Entries are marked as long as their marks can be distinguished. */
constexpr std::size_t kMaxMarks = 100;

struct PlotOptions {
  std::string file, label = "value";
  plot::PictureOptions picture;
  bool raw = false;
};

plot::Figure draw(const PlotOptions &options,
                  const std::vector<KSHistoryEntry> &entries) {
  plot::Figure figure;
  figure.title = options.file;
  plot::Panel &panel = figure.panels.emplace_back();
  if (options.raw) {
    panel.x.label = "time";
  } else {
    panel.x.scale = plot::Scale::kTime;
  }
  panel.y.label = options.label;
  plot::Line &line = panel.lines.emplace_back();
  plot::Points marks;
  for (const KSHistoryEntry &entry : entries) {
    line.x.push_back(entry.time);
    line.y.push_back(entry.value);
    marks.points.push_back(
        {entry.time, entry.value, {plot::Symbol::kPoint, 5.0, {}, {}}});
  }
  if (entries.size() <= kMaxMarks) {
    line.colour = marks.colour = plot::series_colour(0);
    panel.points.push_back(std::move(marks));
  }
  return figure;
}

int plot_history(const PlotOptions &options) {
  std::vector<KSHistoryEntry> entries;
  if (!read_entries(options.file, entries)) return kFailure;
  if (entries.empty()) {
    elog_log(0, "%s has no entries.\n", options.file.c_str());
    return kFailure;
  }
  return plot::write_picture(draw(options, entries), options.picture) == 0 ? kOk
                                                                           : kFailure;
}

void describe_plot(CLI::App &command, PlotOptions &options) {
  command.add_option("file", options.file, "history file")->required();
  plot::add_picture_options(command, options.picture);
  command.add_option("--label", options.label, "What the values are, with the unit");
  command.add_flag("--raw,--numbers", options.raw,
                   "Times as plain numbers instead of dates");
}

}  // namespace

Command plot_command() {
  return make_command<PlotOptions>(
      "plot", "Draws a history over time",
      {"kshistory plot --label 'latency (s)' -o latency.svg latency.hst"},
      describe_plot, plot_history);
}

}  // namespace ksutil::tools
