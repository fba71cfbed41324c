#include <cairo-pdf.h>
#include <cairo.h>
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

#include <cmath>
#include <cstring>

#include "platform/elog/elog.h"
#include "tools/plot/canvas.h"

namespace ksutil::plot {
namespace {

struct SurfaceDeleter {
  void operator()(cairo_surface_t *surface) const { cairo_surface_destroy(surface); }
};
struct ContextDeleter {
  void operator()(cairo_t *context) const { cairo_destroy(context); }
};
using SurfacePtr = std::unique_ptr<cairo_surface_t, SurfaceDeleter>;
using ContextPtr = std::unique_ptr<cairo_t, ContextDeleter>;

/* Cairo's limit for the sides of a picture. */
constexpr double kMaxPixels = 32767.0;

/* A unit of a figure is a CSS pixel, 1/96 inch; a point is 1/72 inch. */
constexpr double kPointsPerUnit = 0.75;

cairo_status_t append_bytes(void *to, const unsigned char *data, unsigned length) {
  try {
    static_cast<std::string *>(to)->append(reinterpret_cast<const char *>(data),
                                           length);
  } catch (...) {
    return CAIRO_STATUS_NO_MEMORY;
  }
  return CAIRO_STATUS_SUCCESS;
}

void choose_font(cairo_t *cr, double size, bool bold) {
  cairo_select_font_face(cr, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
                         bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(cr, size);
}

double advance_of(cairo_t *cr, const std::string &text) {
  cairo_text_extents_t extents;
  cairo_text_extents(cr, text.c_str(), &extents);
  return extents.x_advance;
}

SurfacePtr surface_of(const Raster &raster) {
  SurfacePtr surface(
      cairo_image_surface_create(CAIRO_FORMAT_ARGB32, raster.width, raster.height));
  if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) return surface;
  cairo_surface_flush(surface.get());
  unsigned char *data = cairo_image_surface_get_data(surface.get());
  const auto stride =
      static_cast<std::size_t>(cairo_image_surface_get_stride(surface.get()));
  const auto width = static_cast<std::size_t>(raster.width);
  for (std::size_t row = 0; row < static_cast<std::size_t>(raster.height); row++) {
    std::memcpy(data + row * stride, raster.pixels.data() + row * width, 4 * width);
  }
  cairo_surface_mark_dirty(surface.get());
  return surface;
}

/* Draws on any surface; what the file is made of is for the kinds below. */
class CairoCanvas : public Canvas, public Picture {
 public:
  CairoCanvas(SurfacePtr surface, double scale)
      : surface_(std::move(surface)), context_(cairo_create(surface_.get())) {
    cairo_scale(cr(), scale, scale);
    cairo_set_line_join(cr(), CAIRO_LINE_JOIN_ROUND);
    cairo_font_options_t *options = cairo_font_options_create();
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
    cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
    cairo_set_font_options(cr(), options);
    cairo_font_options_destroy(options);
  }

  Canvas &canvas() override { return *this; }

  void polyline(const std::vector<Position> &points, const Paint &paint) override {
    trace(points);
    draw(paint);
  }

  void polygon(const std::vector<Position> &points, const Paint &paint) override {
    trace(points);
    cairo_close_path(cr());
    draw(paint);
  }

  void shape(const std::vector<std::vector<Position>> &outlines,
             const Paint &paint) override {
    cairo_new_path(cr());
    for (const std::vector<Position> &outline : outlines) {
      cairo_new_sub_path(cr());
      for (const Position &point : outline) cairo_line_to(cr(), point.x, point.y);
      cairo_close_path(cr());
    }
    cairo_set_fill_rule(cr(), CAIRO_FILL_RULE_EVEN_ODD);
    draw(paint);
    cairo_set_fill_rule(cr(), CAIRO_FILL_RULE_WINDING);
  }

  void circle(Position centre, double radius, const Paint &paint) override {
    cairo_new_path(cr());
    cairo_arc(cr(), centre.x, centre.y, radius, 0.0, 2.0 * std::acos(-1.0));
    draw(paint);
  }

  void rectangle(const Rect &rect, const Paint &paint) override {
    cairo_new_path(cr());
    cairo_rectangle(cr(), rect.x, rect.y, rect.width, rect.height);
    draw(paint);
  }

  void raster(const Rect &rect, const Raster &raster) override {
    const SurfacePtr picture = surface_of(raster);
    cairo_save(cr());
    cairo_translate(cr(), rect.x, rect.y);
    cairo_scale(cr(), rect.width / raster.width, rect.height / raster.height);
    cairo_set_source_surface(cr(), picture.get(), 0.0, 0.0);
    cairo_pattern_set_filter(cairo_get_source(cr()), CAIRO_FILTER_NEAREST);
    cairo_paint(cr());
    cairo_restore(cr());
  }

  void text(Position at, const std::string &text, const TextStyle &style) override {
    const std::string shown = printable(text);
    cairo_save(cr());
    choose_font(cr(), style.size, style.bold);
    set_source(style.colour);
    cairo_translate(cr(), at.x, at.y);
    if (style.upright) cairo_rotate(cr(), -std::acos(0.0));
    const double share = style.anchor == Anchor::kStart    ? 0.0
                         : style.anchor == Anchor::kMiddle ? 0.5
                                                           : 1.0;
    cairo_move_to(cr(), -share * advance_of(cr(), shown), 0.0);
    cairo_show_text(cr(), shown.c_str());
    cairo_restore(cr());
  }

  void begin_clip(const Rect &rect) override {
    cairo_save(cr());
    cairo_new_path(cr());
    cairo_rectangle(cr(), rect.x, rect.y, rect.width, rect.height);
    cairo_clip(cr());
  }

  void end_clip() override { cairo_restore(cr()); }

 protected:
  cairo_t *cr() const { return context_.get(); }
  cairo_surface_t *surface() const { return surface_.get(); }

  /* Logs what went wrong; true for nothing. */
  static bool good(cairo_status_t status) {
    if (status == CAIRO_STATUS_SUCCESS) return true;
    elog_log(0, "write_figure: %s.\n", cairo_status_to_string(status));
    return false;
  }

 private:
  void set_source(const Colour &colour) {
    cairo_set_source_rgba(cr(), colour.r, colour.g, colour.b, colour.a);
  }

  void trace(const std::vector<Position> &points) {
    cairo_new_path(cr());
    for (const Position &point : points) cairo_line_to(cr(), point.x, point.y);
  }

  void draw(const Paint &paint) {
    if (paint.fill) {
      set_source(*paint.fill);
      cairo_fill_preserve(cr());
    }
    if (paint.stroke) {
      static constexpr double kDashes[] = {5.0, 3.0};
      set_source(*paint.stroke);
      cairo_set_line_width(cr(), paint.width);
      cairo_set_dash(cr(), kDashes, paint.dashed ? 2 : 0, 0.0);
      cairo_stroke_preserve(cr());
    }
    cairo_new_path(cr());
  }

  SurfacePtr surface_;
  ContextPtr context_;
};

class PngPicture : public CairoCanvas {
 public:
  using CairoCanvas::CairoCanvas;

  bool keeps_shapes() const override { return false; }

  bool finish(std::string &bytes) override {
    return good(cairo_status(cr())) &&
           good(cairo_surface_write_to_png_stream(surface(), append_bytes, &bytes));
  }
};

/* One page; the surface writes to `content` as it goes. */
class PdfPicture : public CairoCanvas {
 public:
  PdfPicture(SurfacePtr surface, double scale, std::shared_ptr<std::string> content)
      : CairoCanvas(std::move(surface), scale), content_(std::move(content)) {}

  bool finish(std::string &bytes) override {
    if (!good(cairo_status(cr()))) return false;
    cairo_surface_finish(surface());
    bytes = *content_;
    return good(cairo_surface_status(surface()));
  }

 private:
  const std::shared_ptr<std::string> content_;
};

}  // namespace

std::unique_ptr<Picture> new_png(double width, double height, double scale) {
  const double columns = std::ceil(width * scale), rows = std::ceil(height * scale);
  if (!(columns <= kMaxPixels && rows <= kMaxPixels)) {
    elog_log(0, "write_figure: %.0f by %.0f pixels are too many; PNG goes to %.0f.\n",
             columns, rows, kMaxPixels);
    return nullptr;
  }
  SurfacePtr surface(cairo_image_surface_create(
      CAIRO_FORMAT_RGB24, static_cast<int>(columns), static_cast<int>(rows)));
  const cairo_status_t status = cairo_surface_status(surface.get());
  if (status != CAIRO_STATUS_SUCCESS) {
    elog_log(0, "write_figure: %s.\n", cairo_status_to_string(status));
    return nullptr;
  }
  /* The last row and column may be covered in part only. */
  const ContextPtr background(cairo_create(surface.get()));
  cairo_set_source_rgb(background.get(), 1.0, 1.0, 1.0);
  cairo_paint(background.get());
  return std::make_unique<PngPicture>(std::move(surface), scale);
}

std::unique_ptr<Picture> new_pdf(double width, double height,
                                 const std::string &title) {
  auto content = std::make_shared<std::string>();
  SurfacePtr surface(cairo_pdf_surface_create_for_stream(
      append_bytes, content.get(), width * kPointsPerUnit, height * kPointsPerUnit));
  const cairo_status_t status = cairo_surface_status(surface.get());
  if (status != CAIRO_STATUS_SUCCESS) {
    elog_log(0, "write_figure: %s.\n", cairo_status_to_string(status));
    return nullptr;
  }
  cairo_pdf_surface_set_metadata(surface.get(), CAIRO_PDF_METADATA_TITLE,
                                 printable(title).c_str());
  return std::make_unique<PdfPicture>(std::move(surface), kPointsPerUnit,
                                      std::move(content));
}

Raster raster_of(const Rect &rect, double scale,
                 const std::function<void(Canvas &)> &draw) {
  Raster raster{static_cast<int>(std::ceil(rect.width * scale)),
                static_cast<int>(std::ceil(rect.height * scale)),
                {}};
  cairo_surface_t *const shared =
      cairo_image_surface_create(CAIRO_FORMAT_ARGB32, raster.width, raster.height);
  const SurfacePtr keeper(cairo_surface_reference(shared));
  SurfacePtr surface(shared);
  if (cairo_surface_status(shared) != CAIRO_STATUS_SUCCESS) return {};
  /* A whole number of pixels may be a little more than the rectangle. */
  const double fit = raster.width / rect.width;
  cairo_surface_set_device_offset(shared, -rect.x * fit, -rect.y * fit);
  PngPicture picture(std::move(surface), fit);
  draw(picture.canvas());
  cairo_surface_flush(shared);
  const unsigned char *const data = cairo_image_surface_get_data(shared);
  const auto stride = static_cast<std::size_t>(cairo_image_surface_get_stride(shared));
  const auto width = static_cast<std::size_t>(raster.width);
  raster.pixels.resize(width * static_cast<std::size_t>(raster.height));
  for (std::size_t row = 0; row < static_cast<std::size_t>(raster.height); row++) {
    std::memcpy(raster.pixels.data() + row * width, data + row * stride, 4 * width);
  }
  return raster;
}

std::string png_bytes(const Raster &raster) {
  std::string bytes;
  const SurfacePtr surface = surface_of(raster);
  const cairo_status_t status =
      cairo_surface_write_to_png_stream(surface.get(), append_bytes, &bytes);
  return status == CAIRO_STATUS_SUCCESS ? bytes : std::string();
}

double text_width(const std::string &text, double size, bool bold) {
  const SurfacePtr surface(cairo_image_surface_create(CAIRO_FORMAT_A8, 1, 1));
  const ContextPtr context(cairo_create(surface.get()));
  choose_font(context.get(), size, bold);
  return advance_of(context.get(), printable(text));
}

}  // namespace ksutil::plot

#ifdef __SANITIZE_ADDRESS__
/* The font library keeps what it has found of fonts until the process ends, and beyond. */
extern "C" __attribute__((visibility("default"))) const char *
__lsan_default_suppressions() {
  return "leak:libfontconfig\n";
}

/* Standard error is for messages of the program. */
extern "C" __attribute__((visibility("default"))) const char *__lsan_default_options() {
  return "print_suppressions=0";
}
#endif
