#include "tools/plot/text_fit.h"

#include "tools/plot/canvas.h"

namespace ksutil::plot {
namespace {

/* Removes the last character of UTF-8. */
void remove_last(std::string &text) {
  while (!text.empty() && (static_cast<unsigned char>(text.back()) & 0xC0U) == 0x80U) {
    text.pop_back();
  }
  if (!text.empty()) text.pop_back();
}

}  // namespace

std::string shortened(const std::string &text, double size, double width, bool bold) {
  if (text_width(text, size, bold) <= width) return text;
  constexpr std::size_t kMostBytes = 2000;  // more fit on no picture
  std::string start = printable(text.substr(0, kMostBytes));
  while (!start.empty() && text_width(start + "…", size, bold) > width) {
    remove_last(start);
  }
  while (start.ends_with(' ')) start.pop_back();
  return start + "…";
}

std::vector<std::string> wrapped(const std::string &text, double size, double width,
                                 std::size_t most, bool bold) {
  std::vector<std::string> lines;
  std::size_t at = 0;
  while (at < text.size() && lines.size() < most) {
    if (lines.size() + 1 == most || text_width(text.substr(at), size, bold) <= width) {
      lines.push_back(shortened(text.substr(at), size, width, bold));
      break;
    }
    /* The last blank before which the line fits; a word too long is shortened. */
    std::size_t end = std::string::npos;
    for (std::size_t blank = text.find(' ', at); blank != std::string::npos;
         blank = text.find(' ', blank + 1)) {
      const bool fits = text_width(text.substr(at, blank - at), size, bold) <= width;
      if (fits || end == std::string::npos) end = blank;
      if (!fits) break;
    }
    lines.push_back(shortened(text.substr(at, end - at), size, width, bold));
    at = end == std::string::npos ? text.size() : text.find_first_not_of(' ', end);
  }
  return lines;
}

}  // namespace ksutil::plot
