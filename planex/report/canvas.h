#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "planex/report/color_map.h"

namespace planex::report {

inline constexpr Color kPaper{255, 255, 255};
inline constexpr Color kInk{33, 37, 41};       ///< texts and axes
inline constexpr Color kFaint{226, 229, 233};  ///< lines of grids

/// A point of a picture in pixels, X to the right and Y down; of a figure, in its unit and Y up.
struct Point {
  double x = 0, y = 0;
};

/// An area of a picture, in pixels.
struct Box {
  double left = 0, top = 0, width = 0, height = 0;
  double right() const { return left + width; }
  double bottom() const { return top + height; }
};

enum class PictureFormat { kPng, kSvg, kPdf };

/// The format that the ending of the name of a picture asks for, .png or .svg in any case; nothing
/// for others.
std::optional<PictureFormat> pictureFormatOf(std::string_view path);

/// How a text stands at its point: from there to the right, around it, or up to it.
enum class Anchor { kStart, kMiddle, kEnd };

struct TextStyle {
  double size = 13;
  Color color = kInk;
  Anchor anchor = Anchor::kStart;
  bool bold = false;
};

/// A picture that is drawn, in smooth lines and letters, and then taken as the bytes of a file.
///
/// Texts may be any bytes: what is no UTF-8, and characters that control the direction of a text or
/// a terminal, show as question marks. Points that are not finite interrupt a line, and what lies
/// outside of the picture is not drawn. The same calls give the same bytes on one machine.
class Canvas {
 public:
  /// White paper, of points in a PDF and of pixels else. Throws std::length_error for sizes that no
  /// picture has.
  Canvas(double width, double height, PictureFormat format);
  ~Canvas();
  Canvas(const Canvas&) = delete;
  Canvas& operator=(const Canvas&) = delete;

  void fill(const Box& box, Color color);
  /// A frame of one pixel around the box.
  void frame(const Box& box, Color color);
  /// A sharp line of one pixel, along rows or columns.
  void rule(Point from, Point to, Color color);
  void line(const std::vector<Point>& points, Color color, double width = 1.5);
  void dots(const std::vector<Point>& points, Color color, double radius);
  void polygon(const std::vector<Point>& corners, Color color);

  /// Pixels of columns x rows with their upper left corner at a point, row by row.
  void image(Point at, int columns, int rows, const std::vector<Color>& pixels);

  /// Writes a text whose capitals are as high above as below `at`.
  void text(Point at, std::string_view text, const TextStyle& style = {});
  /// The width of a text in pixels.
  static double textWidth(std::string_view text, const TextStyle& style = {});

  /// Begins another page of a PDF.
  void nextPage();
  /// What a PDF is called. It tells no date, since the same calls give the same bytes.
  void setTitle(std::string_view title);

  /// While it lives, only the inside of the box is drawn on.
  class Clip {
   public:
    Clip(Canvas& canvas, const Box& box);
    ~Clip();
    Clip(const Clip&) = delete;
    Clip& operator=(const Clip&) = delete;

   private:
    Canvas& canvas_;
  };

  /// While it lives, a picture of that width and height is drawn with its upper left corner at a
  /// point, `scale` times as large.
  class Placed {
   public:
    Placed(Canvas& canvas, Point at, double scale, double width, double height);
    ~Placed();
    Placed(const Placed&) = delete;
    Placed& operator=(const Placed&) = delete;

   private:
    Canvas& canvas_;
    Box paper_;
  };

  /// That of Cairo, as it is loaded.
  static std::string libraryVersion();

  /// Ends the picture. Throws std::bad_alloc for memory that is used up, and std::runtime_error for
  /// what else kept it from being drawn.
  std::string finish();

 private:
  struct Surface;
  std::unique_ptr<Surface> surface_;
};

/// A picture that is drawn as often as needed: as a file of its own, or placed on a page.
struct Drawing {
  double width = 1, height = 1;  ///< pixels
  std::function<void(Canvas& canvas)> draw;

  /// The bytes of its file.
  std::string file(PictureFormat format) const;
};

}  // namespace planex::report
