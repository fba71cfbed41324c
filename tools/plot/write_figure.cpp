#include <algorithm>

#include "platform/elog/elog.h"
#include "platform/stock/draft_file.h"
#include "platform/stock/text.h"
#include "tools/plot/draw.h"
#include "tools/plot/figure.h"

namespace ksutil::plot {
namespace {

constexpr double kUnitsPerInch = 96.0;
constexpr double kPngLimit = 32000.0;  // pixels of a side, nearly cairo's own limit
constexpr double kSmallestWidth = 200.0, kLargestSide = 20000.0;  // widths of a figure

void draw(Canvas &canvas, const Layout &layout) {
  canvas.rectangle({0.0, 0.0, layout.width, layout.height},
                   {{}, Colour{1.0, 1.0, 1.0, 1.0}});
  double y = 30.0;
  for (const std::string &line : layout.title) {
    canvas.text({layout.title_x, y}, line, {kTitleSize, kInk, Anchor::kStart, true});
    y += kTitleLine;
  }
  y = layout.title.empty() ? y : y - 1.0;
  for (const std::string &line : layout.subtitle) {
    canvas.text({layout.title_x, y}, line, {kSubtitleSize, kGreyInk});
    y += kSubtitleLine;
  }
  for (const PanelLayout &panel : layout.panels) {
    const bool curved = panel.map && panel.map->curved;
    if (!panel.panel.bare && !curved) draw_grid(canvas, panel);
    canvas.begin_clip(panel.frame);
    draw_meshes(canvas, panel);
    draw_coast(canvas, panel);
    draw_lines(canvas, panel);
    draw_points(canvas, panel);
    draw_disks(canvas, panel);
    draw_markers(canvas, panel);
    draw_furniture(canvas, panel);
    canvas.end_clip();
    draw_frame(canvas, panel);
    draw_legend(canvas, panel);
    draw_keys(canvas, panel);
  }
}

bool drawable(const Figure &figure) {
  if (figure.panels.empty()) {
    elog_log(0, "write_figure: there is nothing to draw.\n");
    return false;
  }
  if (!(figure.width >= kSmallestWidth && figure.width <= kLargestSide)) {
    elog_log(0, "write_figure: the width must be from %.0f to %.0f.\n", kSmallestWidth,
             kLargestSide);
    return false;
  }
  if (!(figure.dpi >= 10.0 && figure.dpi <= 2400.0)) {
    elog_log(0, "write_figure: the resolution must be from 10 to 2400 dots an inch.\n");
    return false;
  }
  for (const Panel &panel : figure.panels) {
    const bool own = !is_missing(panel.height);
    if (own && !(panel.height >= 20.0 && panel.height <= kLargestSide)) {
      elog_log(0, "write_figure: heights of panels must be from 20 to %.0f.\n",
               kLargestSide);
      return false;
    }
    if (!std::all_of(panel.meshes.begin(), panel.meshes.end(), usable)) {
      elog_log(0, "write_figure: the coordinates of a mesh do not fit its values.\n");
      return false;
    }
  }
  return true;
}

bool draw_into(const std::unique_ptr<Picture> &picture, const Layout &layout,
               std::string &bytes) {
  if (picture == nullptr) return false;
  draw(picture->canvas(), layout);
  return picture->finish(bytes);
}

bool png_text(const Figure &figure, std::string &bytes) {
  const Layout layout = lay_out(figure);
  const double longest = std::max(layout.width, layout.height);
  const double scale = std::min(figure.dpi / kUnitsPerInch, kPngLimit / longest);
  return draw_into(new_png(layout.width, layout.height, scale), layout, bytes);
}

bool pdf_text(const Figure &figure, std::string &bytes) {
  const Layout layout = lay_out(figure);
  return draw_into(new_pdf(layout.width, layout.height, figure.title), layout, bytes);
}

}  // namespace

std::string svg_text(const Figure &figure) {
  if (!drawable(figure)) return "";
  const Layout layout = lay_out(figure);
  const auto document = new_svg(layout.width, layout.height, figure.title);
  draw(document->canvas(), layout);
  return document->finish();
}

int write_figure(const Figure &figure, const std::string &path) {
  const std::string name = lowered(path);
  std::string content;
  if (name.ends_with(".svg")) {
    content = svg_text(figure);
  } else if (name.ends_with(".png") || name.ends_with(".pdf")) {
    const bool png = name.ends_with(".png");
    if (!drawable(figure) || !(png ? png_text : pdf_text)(figure, content)) return -1;
  } else {
    elog_log(0, "write_figure: %s: pictures end in .svg, .png or .pdf.\n",
             path.c_str());
    return -1;
  }
  if (content.empty()) return -1;
  DraftFile file;
  if (file.open_or_device(path) && file.write(content) && file.put_in_place()) return 0;
  elog_log(1, "write_figure: cannot write %s.\n", path.c_str());
  return -1;
}

}  // namespace ksutil::plot
