/* plot: ksmoment plot. */
#include <algorithm>
#include <cmath>

#include "mechanisms/ksmoment.h"
#include "platform/stock/text.h"
#include "tools/common/options.h"
#include "tools/ksmoment/commands.h"
#include "tools/ksmoment/mechanisms.h"
#include "tools/plot/beachball.h"
#include "tools/plot/picture_options.h"

namespace ksutil::tools {
namespace {

constexpr std::size_t kMostDisks = 2000;
constexpr double kLargestDisk = 320.0;
constexpr double kLabelSpace = 26.0;

struct BallsOptions {
  MechanismOptions mechanisms;
  plot::PictureOptions picture;
  plot::BeachballStyle style;
  std::string colour;
  long columns = 0;
  bool no_labels = false;
};

std::string label_of(const Mechanism &mechanism) {
  const double moment = ksmoment_moment(mechanism.tensor.data());
  const std::string size =
      moment > 1e6 ? format_text("Mw %.1f", ksmoment_magnitude(moment)) : "";
  if (mechanism.evid >= 0) {
    return std::to_string(mechanism.evid) + (size.empty() ? "" : "  " + size);
  }
  return mechanism.label.size() <= 24 ? mechanism.label : size;
}

/* The disks in rows, as many in each as make the picture a little wider than tall. */
int draw(const BallsOptions &options) {
  std::vector<Mechanism> mechanisms;
  const int code = collect_mechanisms(options.mechanisms, mechanisms);
  if (code != kOk) return code;
  if (mechanisms.empty()) {
    complain("there is no mechanism to draw");
    return kFailure;
  }
  if (mechanisms.size() > kMostDisks) {
    complain(std::to_string(mechanisms.size()) +
             " mechanisms are too many for a picture; "
             "--limit or --where chooses some");
    return kFailure;
  }
  plot::Colour colour = plot::series_colour(0);
  if (!options.colour.empty() && !plot::parse_colour(options.colour, colour)) {
    complain("--colour '" + options.colour + "' is not a colour like #d55e00");
    return kUsage;
  }
  const auto count = static_cast<double>(mechanisms.size());
  const double columns = options.columns > 0
                             ? std::min(static_cast<double>(options.columns), count)
                             : std::ceil(std::sqrt(1.4 * count));
  const double rows = std::ceil(count / columns);
  const double label = options.no_labels ? 0.0 : kLabelSpace;
  const double cell =
      std::min((options.picture.width - 30.0) / columns, kLargestDisk / 0.8);

  plot::Figure figure;
  figure.title = options.mechanisms.database.empty()
                     ? ""
                     : "Focal mechanisms of " + options.mechanisms.database;
  figure.subtitle = std::string(options.style.upper ? "upper" : "lower") +
                    " hemisphere, " +
                    (options.style.stereographic ? "equal angles" : "equal areas");
  plot::Panel &panel = figure.panels.emplace_back();
  panel.bare = true;
  const double half = 0.5 * (options.picture.width - 30.0) / cell;
  panel.x = {.low = 0.5 * columns - half, .high = 0.5 * columns + half};
  panel.y = {.low = 0.0, .high = rows, .reverse = true};
  panel.height = std::max(20.0, rows * (cell + label));
  for (std::size_t i = 0; i < mechanisms.size(); i++) {
    const double place = static_cast<double>(i), row = std::floor(place / columns);
    plot::Disk disk;
    if (!plot::beachball(mechanisms[i].tensor.data(), options.style, disk))
      return kFailure;
    disk.x = place - row * columns + 0.5;
    disk.y = row + 0.5 * cell / (cell + label);
    disk.size = 0.84 * cell;
    disk.fill = colour;
    if (!options.no_labels) disk.label = label_of(mechanisms[i]);
    panel.disks.push_back(std::move(disk));
  }
  return plot::write_picture(std::move(figure), options.picture) == 0 ? kOk : kFailure;
}

void describe_plot(CLI::App &command, BallsOptions &options) {
  add_mechanism_options(command, options.mechanisms);
  plot::add_picture_options(command, options.picture);
  command.add_flag("--upper", options.style.upper, "The upper hemisphere");
  command.add_flag("--stereographic", options.style.stereographic,
                   "Equal angles instead of equal areas");
  command.add_flag("--double-couple", options.style.double_couple,
                   "The best double couple instead of the tensor");
  command.add_flag("--planes", options.style.planes,
                   "Also the nodal planes of the best double couple");
  command.add_flag("--axes", options.style.axes, "The axes T and P");
  command.add_option("--colour", options.colour, "Of outward first motion, as #rrggbb");
  command.add_option("--columns", options.columns, "Beachballs in a row")
      ->check(whole_number(1, 100));
  command.add_flag("--no-labels", options.no_labels, "No texts beneath");
}

}  // namespace

Command plot_command() {
  return make_command<BallsOptions>(
      "plot", "Draws mechanisms as beachballs",
      {"ksmoment plot --plane 133,72,66 --planes --axes -o ball.svg",
       "ksmoment plot --tensor 2,-1,-1,0.5,0,0.3 --plane 30,45,90 -o balls.png"},
      describe_plot, draw);
}

}  // namespace ksutil::tools
