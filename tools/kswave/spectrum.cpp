/* spectrum: kswave spectrum. */
#include <algorithm>
#include <cmath>
#include <span>
#include <vector>

#include "platform/stock/text.h"
#include "tools/common/options.h"
#include "tools/common/rows.h"
#include "tools/kswave/commands.h"
#include "tools/kswave/selection.h"
#include "tools/plot/picture_options.h"
#include "waveforms/signal.h"

namespace ksutil::tools {
namespace {

struct SpectrumOptions {
  Selection selection;
  plot::PictureOptions picture;
  Form form = Form::kText;
  Processing processing;
  double piece = 0.0;  // s; 0: an eighth of the time
};

std::string unit_of(const Processing &processing) {
  if (processing.motion == "D") return "m\xC2\xB2/Hz";
  if (processing.motion == "V") return "(m/s)\xC2\xB2/Hz";
  if (processing.motion == "A") return "(m/s\xC2\xB2)\xC2\xB2/Hz";
  return "counts\xC2\xB2/Hz";
}

bool spectrum_of(const ksvector2 &vector, double piece,
                 std::vector<double> &frequencies, std::vector<double> &density) {
  const double wanted =
      piece > 0.0 ? piece / vector.dt : std::max(vector.npts / 8.0, 64.0);
  std::string problem;
  if (power_spectrum(
          std::span<const double>(vector.data, static_cast<std::size_t>(vector.npts)),
          1.0 / vector.dt,
          static_cast<std::size_t>(std::min(wanted, static_cast<double>(vector.npts))),
          frequencies, density, problem)) {
    return true;
  }
  complain(std::string(vector.name) + ": " + problem);
  return false;
}

int show(const SpectrumOptions &options) {
  const ChannelSet set(options.selection, "r");
  if (!set.good()) return kFailure;
  int result = set.report();
  Rows rows(
      {{"sta"}, {"chan"}, {"frequency", true, true, "Hz"}, {"density", true, true}},
      options.form);
  plot::Figure figure;
  plot::Panel &panel = figure.panels.emplace_back();
  panel.x = {.label = "frequency (Hz)", .scale = plot::Scale::kLog};
  panel.y = {.label =
                 "power spectral density (dB of " + unit_of(options.processing) + ")"};
  panel.height = 380.0;
  bool any = false;
  for (int i = 0; i < set.count(); ++i) {
    const ksdsseis_channel &channel = set.channel(i);
    const Series series(set, i, options.processing);
    std::vector<double> frequencies, density;
    if (!series.good() ||
        !spectrum_of(series.vector(), options.piece, frequencies, density)) {
      print_register();
      result = kFailure;
      continue;
    }
    any = true;
    plot::Line line;
    line.name = channel_name(channel);
    for (std::size_t j = 0; j < density.size(); ++j) {
      if (options.picture.path.empty()) {
        rows.add({channel.sta, channel.chan, format_text("%.7g", frequencies[j]),
                  format_text("%.7g", density[j])});
      } else {
        line.x.push_back(frequencies[j]);
        line.y.push_back(density[j] > 0.0 ? 10.0 * std::log10(density[j])
                                          : plot::kUnset);
      }
    }
    panel.lines.push_back(std::move(line));
  }
  if (!any) return kFailure;
  if (options.picture.path.empty()) {
    rows.print();
    return result;
  }
  return plot::write_picture(std::move(figure), options.picture) == 0 ? result
                                                                      : kFailure;
}

void describe_spectrum(CLI::App &command, SpectrumOptions &options) {
  add_selection(command, options.selection);
  add_form_options(command, options.form);
  plot::add_picture_options(command, options.picture);
  command.get_option("--output")
      ->required(false)
      ->description("Draw the spectra in dB, .svg, .png or .pdf");
  add_processing(command, options.processing);
  command
      .add_option("--piece", options.piece,
                  "Seconds of the pieces that are averaged; an eighth of the time by "
                  "default")
      ->check(number_between(1e-3, 1e9));
}

}  // namespace

Command spectrum_command() {
  return make_command<SpectrumOptions>("spectrum", "Shows power spectral densities",
                                       {"kswave spectrum -o spectrum.svg data/mlr/mlr"},
                                       describe_spectrum, show);
}

}  // namespace ksutil::tools
