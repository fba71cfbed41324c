/* canvas: draws shapes and texts in the units of the figure, y downward. */
#ifndef KSUTIL_TOOLS_PLOT_CANVAS_H
#define KSUTIL_TOOLS_PLOT_CANVAS_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/plot/colour.h"

namespace ksutil::plot {

struct Rect {
  double x = 0.0, y = 0.0, width = 0.0, height = 0.0;
  double right() const { return x + width; }
  double bottom() const { return y + height; }
};

struct Position {
  double x = 0.0, y = 0.0;
};

struct Paint {
  std::optional<Colour> stroke, fill;
  double width = 1.0;
  bool dashed = false;
  bool operator==(const Paint &) const = default;
};

enum class Anchor { kStart, kMiddle, kEnd };

struct TextStyle {
  double size = 11.0;
  Colour colour;
  Anchor anchor = Anchor::kStart;
  bool bold = false;
  bool upright = false;  // turned by 90 degrees, to be read from below
};

/* A picture of equally large cells; row 0 is at the top. */
struct Raster {
  int width = 0, height = 0;
  std::vector<std::uint32_t> pixels;  // 0xAARRGGBB, colours multiplied by the opacity
};

class Canvas {
 public:
  virtual ~Canvas() = default;

  /* An open line, or a closed shape. */
  virtual void polyline(const std::vector<Position> &points, const Paint &paint) = 0;
  virtual void polygon(const std::vector<Position> &points, const Paint &paint) = 0;
  /* Closed outlines, filled by the even-odd rule: one inside another is a hole. */
  virtual void shape(const std::vector<std::vector<Position>> &outlines,
                     const Paint &paint) = 0;
  virtual void circle(Position centre, double radius, const Paint &paint) = 0;
  virtual void rectangle(const Rect &rect, const Paint &paint) = 0;
  virtual void raster(const Rect &rect, const Raster &raster) = 0;
  /* `at` is on the base line. */
  virtual void text(Position at, const std::string &text, const TextStyle &style) = 0;
  /* Shapes up to end_clip show within the rectangle only.  Clips do not nest. */
  virtual void begin_clip(const Rect &rect) = 0;
  virtual void end_clip() = 0;
  /* Whether each shape takes room in the file, as in a document. */
  virtual bool keeps_shapes() const { return true; }

  void line(Position from, Position to, const Paint &paint) {
    polyline({from, to}, paint);
  }
};

/* An SVG document; texts stay texts. */
class SvgDocument {
 public:
  virtual ~SvgDocument() = default;
  virtual Canvas &canvas() = 0;
  virtual std::string finish() = 0;  // once, at the end
};
std::unique_ptr<SvgDocument> new_svg(double width, double height,
                                     const std::string &title);

/* A picture that is kept in memory until it is finished. */
class Picture {
 public:
  virtual ~Picture() = default;
  virtual Canvas &canvas() = 0;
  /* The file's content, once, at the end; false with a message. */
  virtual bool finish(std::string &bytes) = 0;
};

/* A PNG picture of `scale` pixels a unit; null with a message when it cannot be made. */
std::unique_ptr<Picture> new_png(double width, double height, double scale);

/* A PDF document of one page, 96 units an inch; null with a message. */
std::unique_ptr<Picture> new_pdf(double width, double height, const std::string &title);

/* What `draw` draws within a rectangle, `scale` pixels a unit, on a clear ground; empty when
 * memory is short. */
Raster raster_of(const Rect &rect, double scale,
                 const std::function<void(Canvas &)> &draw);

/* The content of a PNG file with the pixels of a raster; empty when memory is short. */
std::string png_bytes(const Raster &raster);

/* The width of a text in units, by the font that PNG uses. */
double text_width(const std::string &text, double size, bool bold = false);

/* `text` as valid UTF-8 without control characters, so that neither an XML reader nor the
 * font machinery refuses it; question marks stand for what is not. */
std::string printable(const std::string &text);

}  // namespace ksutil::plot
#endif
