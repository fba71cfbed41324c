/* plot: kssac plot. */
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "tools/kssac/commands.h"
#include "tools/kssac/sac_file.h"
#include "tools/plot/figure.h"
#include "tools/plot/picture_options.h"

namespace ksutil::tools {
namespace {

struct PlotOptions {
  std::vector<std::string> files;
  plot::PictureOptions picture;
  bool relative = false;
};

struct Seismogram {
  std::string file;
  KssacPtr kssac;
};

const char *unit_of(KSSac *kssac) {
  std::int64_t idep = 0;
  known(kssac, "IDEP", idep);
  switch (idep) {
    case 6:
      return "displacement (nm)";
    case 7:
      return "velocity (nm/s)";
    case 8:
      return "acceleration (nm/s\xC2\xB2)";
    case 50:
      return "velocity (V)";
    default:
      return "";
  }
}

/* The picks of a seismogram, with the text that the header has for each, or its name. */
void add_picks(KSSac *kssac, double zero, plot::Panel &panel) {
  std::vector<std::pair<std::string, std::string>> picks{
      {"O", "KO"}, {"A", "KA"}, {"F", "KF"}};
  for (int i = 0; i < 10; ++i) {
    const std::string number = std::to_string(i);
    picks.emplace_back("T" + number, "KT" + number);
  }
  for (const auto &[name, label_name] : picks) {
    double time;
    std::string label = name;
    if (!known(kssac, name.c_str(), time) || !std::isfinite(time)) continue;
    known(kssac, label_name.c_str(), label);
    plot::Marker &marker = panel.markers.emplace_back();
    marker.x = zero + time;
    marker.label = label;
  }
}

/* Times count from `zero`: the reference time as epoch seconds, or 0. */
plot::Panel panel_of(const Seismogram &seismogram, bool absolute) {
  KSSac *const kssac = seismogram.kssac.get();
  double zero = 0.0, begin = 0.0, delta = 1.0;
  if (absolute) reference_time(kssac, zero);
  known(kssac, "B", begin);
  known(kssac, "DELTA", delta);
  plot::Panel panel;
  panel.title = channel_name(kssac);
  if (panel.title.empty()) panel.title = seismogram.file;
  if (absolute) {
    panel.x.scale = plot::Scale::kTime;
  } else {
    panel.x.label = "time after the reference time (s)";
  }
  panel.y.label = unit_of(kssac);
  const float *const data = kssac->image->data;
  plot::Line &line = panel.lines.emplace_back();
  line.y.assign(data, data + kssac->image->npts_data);
  line.start = zero + begin;
  line.step = delta;
  const auto span = delta * static_cast<double>(kssac->image->npts_data - 1);
  panel.x.low = zero + begin;
  panel.x.high = zero + begin + (span > 0.0 ? span : delta);
  add_picks(kssac, zero, panel);
  return panel;
}

int draw(const PlotOptions &options) {
  std::vector<Seismogram> seismograms;
  bool absolute = !options.relative;
  for (const std::string &file : options.files) {
    KssacPtr kssac = read_sac(file);
    if (kssac == nullptr || !is_evenly_sampled(kssac.get(), file)) return kFailure;
    double reference;
    absolute = absolute && reference_time(kssac.get(), reference);
    seismograms.push_back({file, std::move(kssac)});
  }
  plot::Figure figure;
  figure.shared_x = seismograms.size() > 1;
  for (const Seismogram &seismogram : seismograms) {
    figure.panels.push_back(panel_of(seismogram, absolute));
  }
  return plot::write_picture(std::move(figure), options.picture) == 0 ? kOk : kFailure;
}

void describe_plot(CLI::App &command, PlotOptions &options) {
  command.add_option("files", options.files, "SAC files")->required();
  plot::add_picture_options(command, options.picture);
  command.add_flag("--relative", options.relative,
                   "Times as seconds after each file's reference time");
}

}  // namespace

Command plot_command() {
  return make_command<PlotOptions>(
      "plot", "Draws seismograms with their picks, one below another",
      {"kssac plot -o seismograms.svg MLR.*.sac"}, describe_plot, draw);
}

}  // namespace ksutil::tools
