#include "formats/exchange/import/remark_lines.h"

#include <algorithm>

#include "formats/exchange/import/event_rows.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

void append(std::vector<RemarkLine> &lines, std::vector<RemarkLine> more) {
  lines.insert(lines.end(), std::make_move_iterator(more.begin()),
               std::make_move_iterator(more.end()));
}

/* Where a text of more than `width` bytes is divided: at the last blank, else between two
 * characters of UTF-8. */
std::size_t end_of_line(std::string_view text, std::size_t width) {
  const std::size_t blank = text.rfind(' ', width);
  if (blank != text.npos && blank > width / 2) return blank;
  std::size_t end = width;
  while (end > 1 && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80) end--;
  return end;
}

}  // namespace

std::vector<RemarkLine> comment_lines(const std::vector<std::string> &comments,
                                      int width) {
  std::vector<RemarkLine> lines;
  if (width <= 0) return lines;
  const auto room = static_cast<std::size_t>(width);
  for (const std::string &comment : comments) {
    std::string text = comment;
    std::replace_if(
        text.begin(), text.end(),
        [](char c) {
          return (static_cast<unsigned char>(c) < ' ' && c != '\n') || c == 127;
        },
        ' ');
    for (std::string_view rest = text; !rest.empty();) {
      const std::size_t end = std::min(rest.find('\n'), rest.size());
      std::string_view line = trimmed(rest.substr(0, end));
      rest.remove_prefix(std::min(end + 1, rest.size()));
      while (line.size() > room) {
        const std::size_t cut = end_of_line(line, room);
        lines.push_back({std::string(trimmed(line.substr(0, cut))), {}});
        line = trimmed(line.substr(cut));
      }
      if (!line.empty()) lines.push_back({std::string(line), {}});
    }
  }
  return lines;
}

std::vector<RemarkLine> event_remarks(const Event &event, const PreferredIds &preferred,
                                      int width) {
  std::vector<RemarkLine> lines;
  if (!event.place.empty()) lines.push_back({"place: " + event.place, {"place"}});
  if (!event.name.empty()) lines.push_back({"name: " + event.name, {"name"}});
  if (preferred.magid >= 0) {
    lines.push_back({"preferred magnitude: magid " + std::to_string(preferred.magid),
                     {"preferred magnitude"}});
  }
  if (preferred.mtid >= 0) {
    lines.push_back({"preferred mechanism: mtid " + std::to_string(preferred.mtid),
                     {"preferred mechanism"}});
  }
  append(lines, comment_lines(event.comments, width));
  return lines;
}

std::vector<RemarkLine> origin_remarks(const Origin &origin, int width) {
  std::vector<RemarkLine> lines;
  std::string line;
  const auto add = [&line](const char *name, const std::string &value) {
    if (!line.empty()) line += "; ";
    line += std::string(name) + ": " + value;
  };
  if (!origin.status.empty()) add("status", origin.status);
  if (origin.gap >= 0.0) add("gap", format_text("%.10g", origin.gap));
  if (origin.nearest >= 0.0) add("dmin", format_text("%.10g", origin.nearest));
  if (!line.empty()) lines.push_back({line, {"status", "gap", "dmin"}});
  if (!origin.earth_model.empty() && origin.associations.empty()) {
    lines.push_back({"model: " + origin.earth_model, {"model"}});
  }
  append(lines, comment_lines(origin.comments, width));
  return lines;
}

std::vector<RemarkLine> origerr_remarks(const Origin &origin) {
  if (!lacks_ellipse(origin)) return {};
  return {{"ellipse: computed from the covariance", {"ellipse"}}};
}

bool is_of_kind(const RemarkLine &line, std::string_view stored) {
  return std::any_of(line.kinds.begin(), line.kinds.end(), [&](std::string_view kind) {
    return !kind.empty() && stored.starts_with(kind) &&
           stored.substr(kind.size()).starts_with(": ");
  });
}

}  // namespace ksutil::exchange
