#include "tools/plot/picture_options.h"

#include <cmath>
#include <utility>

#include "platform/stock/text.h"

namespace ksutil::plot {

bool parse_length(const std::string &text, double &units) {
  constexpr double kPerInch = 96.0, kPerCentimetre = kPerInch / 2.54;
  std::string number = text;
  double factor = 1.0;
  if (text.ends_with("in") || text.ends_with("cm")) {
    factor = text.ends_with("in") ? kPerInch : kPerCentimetre;
    number.resize(text.size() - 2);
  }
  double value = 0.0;
  if (!parse_real(number, value) || !(value > 0.0)) return false;
  units = value * factor;
  return std::isfinite(units);
}

void add_picture_options(CLI::App &command, PictureOptions &options) {
  command.add_option("-o,--output", options.path, "The picture: .svg, .png or .pdf")
      ->required();
  command.add_option("--title", options.title, "Text above (default: what is drawn)");
  command
      .add_option_function<std::string>(
          "--width",
          [&options](const std::string &text) {
            double units = 0.0;
            if (!parse_length(text, units) || units < 200.0 || units > 20000.0) {
              throw CLI::ValidationError(
                  "--width", "'" + text +
                                 "' is not a width: pixels from 200 to 20000, or a "
                                 "length such as 18cm or 7in");
            }
            options.width = units;
          },
          "Of the picture: pixels of an SVG (96 an inch), or a length as 18cm or 7in")
      ->default_str(std::to_string(static_cast<int>(options.width)));
  command.add_option("--dpi", options.dpi, "Dots an inch of a PNG")
      ->check(CLI::Range(10.0, 2400.0))
      ->capture_default_str();
}

int write_picture(Figure figure, const PictureOptions &options) {
  if (!options.title.empty()) figure.title = options.title;
  figure.width = options.width;
  figure.dpi = options.dpi;
  return write_figure(figure, options.path);
}

}  // namespace ksutil::plot
