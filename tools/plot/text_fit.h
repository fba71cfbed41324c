/* Texts that fit into the width there is. */
#ifndef KSUTIL_TOOLS_PLOT_TEXT_FIT_H
#define KSUTIL_TOOLS_PLOT_TEXT_FIT_H

#include <string>
#include <vector>

namespace ksutil::plot {

/* The beginning of a text, with an ellipsis where it is wider than `width`. */
std::string shortened(const std::string &text, double size, double width,
                      bool bold = false);

/* The text in at most `most` lines, broken at blanks; the last line is shortened where it does
 * not fit.  No line for an empty text. */
std::vector<std::string> wrapped(const std::string &text, double size, double width,
                                 std::size_t most, bool bold = false);

}  // namespace ksutil::plot
#endif
