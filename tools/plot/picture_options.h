/* PictureOptions: the options of every subcommand that writes a picture. */
#ifndef KSUTIL_TOOLS_PLOT_PICTURE_OPTIONS_H
#define KSUTIL_TOOLS_PLOT_PICTURE_OPTIONS_H

#include <CLI/CLI.hpp>
#include <string>

#include "tools/plot/figure.h"

namespace ksutil::plot {

struct PictureOptions {
  std::string path, title;
  double width = 900.0;  // in units of a figure
  double dpi = 192.0;
};

/* Adds --output, --title, --width (pixels of an SVG, or a length with cm or in) and --dpi. */
void add_picture_options(CLI::App &command, PictureOptions &options);

/* Writes the figure as the options say; a title given replaces the figure's.  0, or -1 with
 * a message. */
int write_picture(Figure figure, const PictureOptions &options);

/* Reads "900", "18cm" or "7in" as units of a figure; false for anything else, and for what
 * is not above 0. */
bool parse_length(const std::string &text, double &units);

}  // namespace ksutil::plot
#endif
