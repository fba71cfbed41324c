#include <cmath>
#include <cstdlib>

#include "platform/stock/text.h"
#include "tools/plot/canvas.h"

namespace ksutil::plot {
namespace {

/* Two decimals without zeros at the end: a hundredth of a pixel is not to be seen. */
void append_number(std::string &text, double value) {
  const long hundredths = std::isfinite(value) ? std::lround(value * 100.0) : 0;
  if (hundredths < 0) text += '-';
  const long size = std::labs(hundredths);
  text += std::to_string(size / 100);
  const long rest = size % 100;
  if (rest == 0) return;
  text += '.';
  text += static_cast<char>('0' + rest / 10);
  if (rest % 10 != 0) text += static_cast<char>('0' + rest % 10);
}

std::string number(double value) {
  std::string text;
  append_number(text, value);
  return text;
}

std::string escaped(const std::string &text) {
  std::string result;
  for (const char c : printable(text)) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

std::string base64(const std::string &bytes) {
  static constexpr char kDigits[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    unsigned group = 0;
    for (std::size_t j = 0; j < 3; j++) {
      group = group << 8 |
              (i + j < bytes.size() ? static_cast<unsigned char>(bytes[i + j]) : 0U);
    }
    for (std::size_t j = 0; j < 4; j++) {
      text += i + j > bytes.size() ? '=' : kDigits[group >> (18 - 6 * j) & 63U];
    }
  }
  return text;
}

/* Shapes that follow each other with one paint share a group element that carries it. */
class SvgCanvas : public Canvas, public SvgDocument {
 public:
  SvgCanvas(double width, double height, const std::string &title) {
    out_ =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<svg "
        "xmlns=\"http://www.w3.org/2000/svg\" "
        "width=\"" +
        number(width) + "\" height=\"" + number(height) + "\" viewBox=\"0 0 " +
        number(width) + " " + number(height) +
        "\" font-family=\"DejaVu Sans,Verdana,Helvetica,sans-serif\">\n";
    if (!title.empty()) out_ += "<title>" + escaped(title) + "</title>\n";
  }

  Canvas &canvas() override { return *this; }

  std::string finish() override {
    close_group();
    out_ += "</svg>\n";
    return std::move(out_);
  }

  void polyline(const std::vector<Position> &points, const Paint &paint) override {
    path(points, paint, "");
  }

  void polygon(const std::vector<Position> &points, const Paint &paint) override {
    path(points, paint, "z");
  }

  void shape(const std::vector<std::vector<Position>> &outlines,
             const Paint &paint) override {
    open_group(paint);
    out_ += "<path fill-rule=\"evenodd\" d=\"";
    for (const std::vector<Position> &outline : outlines) append_path(outline, "z");
    out_ += "\"/>\n";
  }

  void circle(Position centre, double radius, const Paint &paint) override {
    open_group(paint);
    out_ += "<circle cx=\"" + number(centre.x) + "\" cy=\"" + number(centre.y) +
            "\" r=\"" + number(radius) + "\"/>\n";
  }

  void rectangle(const Rect &rect, const Paint &paint) override {
    open_group(paint);
    out_ += "<rect" + place(rect) + "/>\n";
  }

  void raster(const Rect &rect, const Raster &raster) override {
    close_group();
    out_ += "<image" + place(rect) +
            " preserveAspectRatio=\"none\" href=\"data:image/png;base64," +
            base64(png_bytes(raster)) + "\"/>\n";
  }

  void text(Position at, const std::string &text, const TextStyle &style) override {
    close_group();
    static constexpr const char *kAnchors[] = {"", " text-anchor=\"middle\"",
                                               " text-anchor=\"end\""};
    out_ += "<text x=\"" + number(at.x) + "\" y=\"" + number(at.y) + "\" font-size=\"" +
            number(style.size) + "\" fill=\"" + hex_text(style.colour) + "\"" +
            kAnchors[static_cast<int>(style.anchor)];
    if (style.bold) out_ += " font-weight=\"bold\"";
    if (style.upright) {
      out_ += " transform=\"rotate(-90 " + number(at.x) + " " + number(at.y) + ")\"";
    }
    out_ += ">" + escaped(text) + "</text>\n";
  }

  void begin_clip(const Rect &rect) override {
    close_group();
    const std::string id = "clip" + std::to_string(clips_++);
    out_ += "<clipPath id=\"" + id + "\"><rect" + place(rect) +
            "/></clipPath>\n<g clip-path=\"url(#" + id + ")\">\n";
  }

  void end_clip() override {
    close_group();
    out_ += "</g>\n";
  }

 private:
  static std::string place(const Rect &rect) {
    return " x=\"" + number(rect.x) + "\" y=\"" + number(rect.y) + "\" width=\"" +
           number(rect.width) + "\" height=\"" + number(rect.height) + "\"";
  }

  static std::string opacity(const char *what, const Colour &colour) {
    if (colour.a >= 1.0) return "";
    return std::string(" ") + what + "-opacity=\"" + number(colour.a) + "\"";
  }

  void open_group(const Paint &paint) {
    if (group_ == paint) return;
    close_group();
    group_ = paint;
    out_ += "<g fill=\"";
    out_ += paint.fill ? hex_text(*paint.fill) + "\"" + opacity("fill", *paint.fill)
                       : std::string("none\"");
    if (paint.stroke) {
      out_ += " stroke=\"" + hex_text(*paint.stroke) + "\"" +
              opacity("stroke", *paint.stroke);
      if (paint.width != 1.0) out_ += " stroke-width=\"" + number(paint.width) + "\"";
      out_ += " stroke-linejoin=\"round\"";
      if (paint.dashed) out_ += " stroke-dasharray=\"5 3\"";
    }
    out_ += ">\n";
  }

  void close_group() {
    if (group_) out_ += "</g>\n";
    group_.reset();
  }

  void path(const std::vector<Position> &points, const Paint &paint, const char *end) {
    if (points.empty()) return;
    open_group(paint);
    out_ += "<path d=\"";
    append_path(points, end);
    out_ += "\"/>\n";
  }

  void append_path(const std::vector<Position> &points, const char *end) {
    if (points.empty()) return;
    out_ += 'M';
    for (std::size_t i = 0; i < points.size(); i++) {
      if (i > 0) out_ += i == 1 ? 'L' : ' ';
      append_number(out_, points[i].x);
      out_ += ',';
      append_number(out_, points[i].y);
    }
    out_ += end;
  }

  std::string out_;
  std::optional<Paint> group_;
  int clips_ = 0;
};

}  // namespace

std::unique_ptr<SvgDocument> new_svg(double width, double height,
                                     const std::string &title) {
  return std::make_unique<SvgCanvas>(width, height, title);
}

}  // namespace ksutil::plot
