/* response: kswave response. */
#include <algorithm>
#include <cmath>
#include <vector>

#include "objects/ksvector2.h"
#include "platform/stock/text.h"
#include "tools/common/cells.h"
#include "tools/common/options.h"
#include "tools/common/rows.h"
#include "tools/kswave/commands.h"
#include "tools/kswave/selection.h"
#include "tools/plot/phase.h"
#include "tools/plot/picture_options.h"

namespace ksutil::tools {
namespace {

struct ResponseOptions {
  Selection selection;
  plot::PictureOptions picture;
  Form form = Form::kText;
  std::string motion = "V";
  double fmin = 0.001, fmax = 0.0;  // fmax 0: half the sample rate
  int count = 300;
};

std::string unit_of(const std::string &motion) {
  if (motion == "D") return "counts/m";
  return motion == "V" ? "counts/(m/s)" : "counts/(m/s\xC2\xB2)";
}

int show(const ResponseOptions &options) {
  const ChannelSet set(options.selection, "r");
  if (!set.good()) return kFailure;
  int result = set.report();
  Rows rows({{"sta"},
             {"chan"},
             {"frequency", true, true, "Hz"},
             {"amplitude", true, true},
             {"phase", true, true, "deg"}},
            options.form);
  plot::Figure figure;
  figure.shared_x = true;
  figure.panels.resize(2);
  plot::Panel &amplitude = figure.panels[0], &phase = figure.panels[1];
  amplitude.x = {.label = "frequency (Hz)", .scale = plot::Scale::kLog};
  amplitude.y = {.label = "amplitude (" + unit_of(options.motion) + ")",
                 .scale = plot::Scale::kLog};
  phase.x = amplitude.x;
  phase.y = plot::phase_axis();
  bool any = false;
  for (int i = 0; i < set.count(); ++i) {
    const ksdsseis_channel &channel = set.channel(i);
    const double fmax = options.fmax > 0.0 ? options.fmax : channel.samprate / 2;
    const VectorPtr vector(ksdsseis_response(set.get(), i, options.motion.c_str(),
                                             options.fmin, fmax, options.count,
                                             nullptr));
    if (vector == nullptr) {
      print_register();
      result = kFailure;
      continue;
    }
    any = true;
    plot::Line sizes, angles;
    sizes.name = channel_name(channel);
    for (int j = 0; j < vector->npts; ++j) {
      const double *const row = vector->data + static_cast<std::ptrdiff_t>(j) * 3;
      if (options.picture.path.empty()) {
        rows.add({channel.sta, channel.chan, format_text("%.7g", row[0]),
                  format_text("%.7g", row[1]), real_cell(row[2], 3)});
        continue;
      }
      sizes.x.push_back(row[0]);
      sizes.y.push_back(row[1]);
      plot::append_phase(angles, row[0], row[2]);
    }
    amplitude.lines.push_back(std::move(sizes));
    phase.lines.push_back(std::move(angles));
  }
  if (!any) return kFailure;
  if (options.picture.path.empty()) {
    rows.print();
    return result;
  }
  amplitude.height = 280.0;
  phase.height = 180.0;
  return plot::write_picture(std::move(figure), options.picture) == 0 ? result
                                                                      : kFailure;
}

void describe_response(CLI::App &command, ResponseOptions &options) {
  add_selection(command, options.selection);
  add_form_options(command, options.form);
  plot::add_picture_options(command, options.picture);
  command.get_option("--output")
      ->required(false)
      ->description("Draw amplitudes and phases, .svg, .png or .pdf");
  command
      .add_option("--motion", options.motion,
                  "Counts for what: D, V or A (m, m/s, m/s^2)")
      ->check(CLI::IsMember({"D", "V", "A"}))
      ->capture_default_str();
  command.add_option("--fmin", options.fmin, "Lowest frequency, Hz")
      ->check(number_between(1e-9, 1e6))
      ->capture_default_str();
  command
      .add_option("--fmax", options.fmax,
                  "Highest frequency, Hz; half the sample rate by default")
      ->check(number_between(1e-9, 1e6));
  command.add_option("--count", options.count, "Frequencies")
      ->check(whole_number(2, 100000))
      ->capture_default_str();
}

}  // namespace

Command response_command() {
  return make_command<ResponseOptions>(
      "response", "Shows the responses of instruments to ground motion",
      {"kswave response --chan BHZ -o response.svg data/mlr/mlr",
       "kswave response --fmin 0.1 --fmax 10 --count 5 --chan BHZ data/mlr/mlr"},
      describe_response, show);
}

}  // namespace ksutil::tools
