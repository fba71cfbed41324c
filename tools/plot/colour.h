/* colour: chooses colours that readers with any colour vision can distinguish. */
#ifndef KSUTIL_TOOLS_PLOT_COLOUR_H
#define KSUTIL_TOOLS_PLOT_COLOUR_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace ksutil::plot {

/* Red, green, blue and opacity, each 0 to 1. */
struct Colour {
  double r = 0.0, g = 0.0, b = 0.0, a = 1.0;
  bool operator==(const Colour &) const = default;
};

/* The colour of the index-th series of a panel; repeats after eight.
 * Source: Okabe and Ito, Color Universal Design (2008), with a grey for its black. */
Colour series_colour(std::size_t index);

/* The same colour with another opacity, and mixed with black (amount 0 to 1). */
Colour with_opacity(const Colour &colour, double opacity);
Colour darker(const Colour &colour, double amount);

/* "#rrggbb"; the opacity is left out. */
std::string hex_text(const Colour &colour);

/* Reads "#rgb", "#rrggbb" or "#rrrrggggbbbb"; false, with the result untouched, for
 * anything else. */
bool parse_colour(std::string_view text, Colour &colour);

/* A colour for each number from 0 to 1, in between the stops, which are equally spaced. */
struct ColourMap {
  std::vector<Colour> stops;  // two or more
  /* NaN and values outside are taken to the nearer end. */
  Colour at(double fraction) const;
};

/* Dark blue over green to yellow, growing lighter throughout: for amounts.
 * Source: the "viridis" map of S. van der Walt and N. Smith (2015), every 32nd entry. */
const ColourMap &sequential_map();

/* Blue over near white to red: for values on both sides of a middle.
 * Source: C. Brewer's RdBu scheme of eleven classes, reversed. */
const ColourMap &diverging_map();

}  // namespace ksutil::plot
#endif
