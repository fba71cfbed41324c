/* plot: kswave plot. */
#include <map>
#include <utility>

#include "tools/common/options.h"
#include "tools/kswave/commands.h"
#include "tools/kswave/plot_figures.h"
#include "tools/plot/picture_options.h"

namespace ksutil::tools {
namespace {

struct PlotOptions {
  Selection selection;
  plot::PictureOptions picture;
  PlotLook look;
  EventChoice event;
  bool section = false, day = false;
};

int draw(const PlotOptions &options) {
  if (options.section && !options.event.any()) {
    complain("--section needs --evid or --orid");
    return kUsage;
  }
  const ChannelSet set(options.selection, "r");
  if (!set.good()) return kFailure;
  EventPicks event;
  if (options.event.any() && !read_event(set.database(), options.event, event)) {
    return kFailure;
  }
  plot::Figure figure;
  bool complete = true;
  const bool made =
      options.section ? add_section(set, options.look, event, figure, complete)
      : options.day
          ? add_day(set, options.look, figure)
          : add_traces(set, options.look, options.event.any() ? &event : nullptr,
                       figure, complete);
  if (!made) return kFailure;
  if (options.event.any() && figure.title.empty()) {
    figure.title = "Origin " + event.title();
  }
  if (plot::write_picture(std::move(figure), options.picture) != 0) return kFailure;
  return set.report() == kOk && complete ? kOk : kFailure;
}

void describe_plot(CLI::App &command, PlotOptions &options) {
  static const std::map<std::string, traveltime::Model> models{
      {"iasp91", traveltime::Model::kIasp91}, {"ak135", traveltime::Model::kAk135}};
  PlotLook &look = options.look;
  add_selection(command, options.selection);
  plot::add_picture_options(command, options.picture);
  add_processing(command, look.processing);
  add_event_choice(command, options.event);
  command
      .add_option("--model", look.model,
                  "Earth model of theoretical times: iasp91 or ak135")
      ->transform(CLI::CheckedTransformer(models));
  command.add_flag("--common", look.common, "One scale for all traces");
  CLI::Option *const section = command.add_flag(
      "--section", options.section, "Traces by their distance from the event");
  command
      .add_flag("--day", options.day,
                "One channel in lines of an hour each, under each other")
      ->excludes(section);
  command.add_option("--line", look.line_minutes, "Of --day: minutes in a line")
      ->check(number_between(0.1, 10080));
  command
      .add_option("--scale", look.scale,
                  "Of --section and --day: factor of the amplitudes")
      ->check(number_between(1e-3, 1e3));
}

}  // namespace

Command plot_command() {
  return make_command<PlotOptions>(
      "plot", "Draws traces, a record section, or a day of one channel",
      {"kswave plot --filter 0.5,5 -o traces.svg data/mlr/mlr",
       "kswave plot --chan BHZ --day --line 1 -o day.svg data/mlr/mlr"},
      describe_plot, draw);
}

}  // namespace ksutil::tools
