#include "planex/report/canvas.h"

#include <cairo-pdf.h>
#include <cairo-svg.h>
#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>

#include "planex/io/raster.h"
#include "planex/report/line_clip.h"
#include "planex/report/plain_text.h"

namespace planex::report {
namespace {

constexpr double kMostPixels = 16384;

using SurfaceHandle = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;
using ContextHandle = std::unique_ptr<cairo_t, decltype(&cairo_destroy)>;

/// Called from C: no exception may pass.
cairo_status_t append(void* bytes, const unsigned char* data, unsigned size) noexcept {
  try {
    static_cast<std::string*>(bytes)->append(reinterpret_cast<const char*>(data), size);
    return CAIRO_STATUS_SUCCESS;
  } catch (const std::exception&) {
    return CAIRO_STATUS_NO_MEMORY;
  }
}

void check(cairo_status_t status) {
  if (status == CAIRO_STATUS_SUCCESS) return;
  if (status == CAIRO_STATUS_NO_MEMORY) throw std::bad_alloc();
  throw std::runtime_error(std::string("the picture cannot be drawn (") +
                           cairo_status_to_string(status) + ")");
}

void setColor(cairo_t* context, Color color) {
  cairo_set_source_rgb(context, color.r / 255.0, color.g / 255.0, color.b / 255.0);
}

void setFont(cairo_t* context, const TextStyle& style) {
  cairo_select_font_face(context, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
                         style.bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(context, style.size);
  cairo_font_options_t* options = cairo_font_options_create();
  cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_SLIGHT);
  cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
  cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
  cairo_set_font_options(context, options);
  cairo_font_options_destroy(options);
}

double advance(cairo_t* context, const std::string& text) {
  cairo_text_extents_t extents;
  cairo_text_extents(context, text.c_str(), &extents);
  return extents.x_advance;
}

/// A context on which texts are measured.
cairo_t* ruler() {
  thread_local const SurfaceHandle surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, 1, 1),
                                           cairo_surface_destroy);
  thread_local const ContextHandle context(cairo_create(surface.get()), cairo_destroy);
  return context.get();
}

bool isFinite(const Point& point) { return std::isfinite(point.x) && std::isfinite(point.y); }

}  // namespace

#ifdef __SANITIZE_ADDRESS__
// Fontconfig keeps what it has read until the process ends.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the sanitizer asks for this name.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
  return "leak:libfontconfig\n";
}
#endif

std::optional<PictureFormat> pictureFormatOf(std::string_view path) {
  const std::string ending = io::endingOf(std::string(path));
  if (ending == ".png") return PictureFormat::kPng;
  if (ending == ".svg") return PictureFormat::kSvg;
  return std::nullopt;
}

struct Canvas::Surface {
  Surface(double width, double height, PictureFormat pictureFormat)
      : format(pictureFormat), paper{0, 0, width, height} {
    if (!(width >= 1 && height >= 1 && width <= kMostPixels && height <= kMostPixels)) {
      throw std::length_error("a picture has 1 to 16384 pixels in each direction");
    }
    if (format == PictureFormat::kPdf) {
      handle.reset(cairo_pdf_surface_create_for_stream(append, &bytes, width, height));
      // Which is no date, so that none is written.
      cairo_pdf_surface_set_metadata(handle.get(), CAIRO_PDF_METADATA_CREATE_DATE, "none");
    } else if (format == PictureFormat::kSvg) {
      handle.reset(cairo_svg_surface_create_for_stream(append, &bytes, width, height));
      cairo_svg_surface_set_document_unit(handle.get(), CAIRO_SVG_UNIT_PX);
    } else {
      handle.reset(cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(width),
                                              static_cast<int>(height)));
    }
    context.reset(cairo_create(handle.get()));
    check(cairo_status(context.get()));
    cairo_set_line_join(context.get(), CAIRO_LINE_JOIN_ROUND);
    cairo_set_line_cap(context.get(), CAIRO_LINE_CAP_ROUND);
  }

  std::string bytes;
  PictureFormat format;
  Box paper;
  SurfaceHandle handle{nullptr, cairo_surface_destroy};
  ContextHandle context{nullptr, cairo_destroy};
};

Canvas::Canvas(double width, double height, PictureFormat format)
    : surface_(format == PictureFormat::kPdf
                   ? std::make_unique<Surface>(width, height, format)
                   : std::make_unique<Surface>(std::round(width), std::round(height), format)) {
  if (format != PictureFormat::kPdf) fill(surface_->paper, kPaper);
}

Canvas::~Canvas() = default;

void Canvas::fill(const Box& box, Color color) {
  polygon({{box.left, box.top},
           {box.right(), box.top},
           {box.right(), box.bottom()},
           {box.left, box.bottom()}},
          color);
}

void Canvas::frame(const Box& box, Color color) {
  rule({box.left - 1, box.top - 1}, {box.right(), box.top - 1}, color);
  rule({box.left - 1, box.bottom()}, {box.right(), box.bottom()}, color);
  rule({box.left - 1, box.top - 1}, {box.left - 1, box.bottom()}, color);
  rule({box.right(), box.top - 1}, {box.right(), box.bottom()}, color);
}

void Canvas::rule(Point from, Point to, Color color) {
  const double left = std::floor(std::min(from.x, to.x)), top = std::floor(std::min(from.y, to.y));
  const double right = std::floor(std::max(from.x, to.x)),
               bottom = std::floor(std::max(from.y, to.y));
  fill({left, top, right - left + 1, bottom - top + 1}, color);
}

void Canvas::polygon(const std::vector<Point>& corners, Color color) {
  if (corners.empty() || !std::all_of(corners.begin(), corners.end(), isFinite)) return;
  const Box& paper = surface_->paper;
  cairo_t* context = surface_->context.get();
  for (const Point& corner : corners) {
    cairo_line_to(context, std::clamp(corner.x, 0.0, paper.width),
                  std::clamp(corner.y, 0.0, paper.height));
  }
  setColor(context, color);
  cairo_fill(context);
}

void Canvas::line(const std::vector<Point>& points, Color color, double width) {
  cairo_t* context = surface_->context.get();
  const Box& paper = surface_->paper;
  const Box around{-100, -100, paper.width + 200, paper.height + 200};
  std::optional<Point> pen;
  for (std::size_t i = 1; i < points.size(); ++i) {
    Point from = points[i - 1], to = points[i];
    if (!isFinite(from) || !isFinite(to) || !clipTo(around, from, to)) continue;
    if (!pen || pen->x != from.x || pen->y != from.y) cairo_move_to(context, from.x, from.y);
    cairo_line_to(context, to.x, to.y);
    pen = to;
  }
  setColor(context, color);
  cairo_set_line_width(context, width);
  cairo_stroke(context);
}

void Canvas::dots(const std::vector<Point>& points, Color color, double radius) {
  cairo_t* context = surface_->context.get();
  const Box& paper = surface_->paper;
  for (const Point& point : points) {
    if (!(point.x >= -radius && point.x <= paper.width + radius && point.y >= -radius &&
          point.y <= paper.height + radius)) {
      continue;
    }
    cairo_new_sub_path(context);
    cairo_arc(context, point.x, point.y, radius, 0, 2 * std::acos(-1.0));
  }
  setColor(context, color);
  cairo_fill(context);
}

void Canvas::image(Point at, int columns, int rows, const std::vector<Color>& pixels) {
  if (columns < 1 || rows < 1) return;
  const SurfaceHandle handle(cairo_image_surface_create(CAIRO_FORMAT_RGB24, columns, rows),
                             cairo_surface_destroy);
  check(cairo_surface_status(handle.get()));
  cairo_surface_flush(handle.get());
  unsigned char* row = cairo_image_surface_get_data(handle.get());
  const Color* pixel = pixels.data();
  for (int y = 0; y < rows; ++y, row += cairo_image_surface_get_stride(handle.get())) {
    for (int x = 0; x < columns; ++x, ++pixel) {
      const std::uint32_t value = 0xFF000000U | static_cast<std::uint32_t>(pixel->r) << 16 |
                                  static_cast<std::uint32_t>(pixel->g) << 8 | pixel->b;
      std::memcpy(row + 4 * static_cast<std::ptrdiff_t>(x), &value, 4);
    }
  }
  cairo_surface_mark_dirty(handle.get());
  cairo_t* context = surface_->context.get();
  cairo_set_source_surface(context, handle.get(), std::round(at.x), std::round(at.y));
  cairo_pattern_set_filter(cairo_get_source(context), CAIRO_FILTER_NEAREST);
  cairo_paint(context);
}

void Canvas::text(Point at, std::string_view text, const TextStyle& style) {
  if (!isFinite(at)) return;
  const std::string plain = plainText(text);
  cairo_t* context = surface_->context.get();
  const double width = textWidth(text, style);
  const double share = style.anchor == Anchor::kStart ? 0 : style.anchor == Anchor::kEnd ? 1 : 0.5;
  constexpr double kHalfCapital = 0.365;  // of DejaVu Sans, in sizes of the font
  setFont(context, style);
  setColor(context, style.color);
  const Box& paper = surface_->paper;
  cairo_move_to(context, std::clamp(at.x - share * width, -paper.width, 2 * paper.width),
                std::clamp(at.y, -100.0, paper.height + 100) + kHalfCapital * style.size);
  cairo_show_text(context, plain.c_str());
  cairo_new_path(context);
}

double Canvas::textWidth(std::string_view text, const TextStyle& style) {
  setFont(ruler(), style);
  return advance(ruler(), plainText(text));
}

Canvas::Clip::Clip(Canvas& canvas, const Box& box) : canvas_(canvas) {
  cairo_t* context = canvas_.surface_->context.get();
  cairo_save(context);
  cairo_rectangle(context, box.left, box.top, box.width, box.height);
  cairo_clip(context);
}

Canvas::Clip::~Clip() { cairo_restore(canvas_.surface_->context.get()); }

std::string Canvas::libraryVersion() { return cairo_version_string(); }

void Canvas::nextPage() { cairo_show_page(surface_->context.get()); }

void Canvas::setTitle(std::string_view title) {
  if (surface_->format != PictureFormat::kPdf) return;
  cairo_pdf_surface_set_metadata(surface_->handle.get(), CAIRO_PDF_METADATA_TITLE,
                                 plainText(title).c_str());
}

Canvas::Placed::Placed(Canvas& canvas, Point at, double scale, double width, double height)
    : canvas_(canvas), paper_(canvas.surface_->paper) {
  cairo_t* context = canvas_.surface_->context.get();
  cairo_save(context);
  cairo_translate(context, at.x, at.y);
  cairo_scale(context, scale, scale);
  cairo_rectangle(context, 0, 0, width, height);
  cairo_clip(context);
  canvas_.surface_->paper = {0, 0, width, height};
}

Canvas::Placed::~Placed() {
  canvas_.surface_->paper = paper_;
  cairo_restore(canvas_.surface_->context.get());
}

std::string Drawing::file(PictureFormat format) const {
  Canvas canvas(width, height, format);
  draw(canvas);
  return canvas.finish();
}

std::string Canvas::finish() {
  check(cairo_status(surface_->context.get()));
  cairo_surface_t* surface = surface_->handle.get();
  if (surface_->format == PictureFormat::kPng) {
    check(cairo_surface_write_to_png_stream(surface, append, &surface_->bytes));
  }
  cairo_surface_finish(surface);
  check(cairo_surface_status(surface));
  return std::move(surface_->bytes);
}

}  // namespace planex::report
