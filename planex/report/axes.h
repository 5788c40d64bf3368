#pragma once

#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "planex/report/canvas.h"
#include "planex/report/color_map.h"
#include "planex/report/ticks.h"

namespace planex::report {

/// One direction of a figure: the numbers at its ends, and what they are, "X (mm)".
struct Range {
  double from = 0;  ///< at the left or below
  double to = 1;    ///< at the right or above; may be the smaller number
  std::string title;
};

/// "X (mm)"; just "X" without a unit.
std::string titleWithUnit(std::string_view name, std::string_view unit);

/// An area of a picture with numbers along its lower and its left side.
class Axes {
 public:
  Axes(const Box& area, Range x, Range y);

  double column(double x) const;
  double row(double y) const;
  Point at(const Point& point) const { return {column(point.x), row(point.y)}; }
  const Box& area() const { return area_; }

  /// Pixels that numbers and title take on the left of the area and below it. Above, the title of
  /// the left side takes kAbove.
  double left() const;
  static constexpr double kBelow = 46, kAbove = 28;

  /// Lines across the area at the numbers.
  void drawGrid(Canvas& canvas) const;
  /// Frame, numbers and titles.
  void draw(Canvas& canvas) const;

 private:
  Box area_;
  Range x_, y_;
  Ticks xTicks_, yTicks_;
};

/// A bar of all colours with numbers, titled "Z (mm)", and pointed at the ends beyond which there
/// are values.
class ColorBar {
 public:
  static constexpr double kThickness = 18;

  ColorBar(const ColorScale& scale, std::string title) : scale_(scale), title_(std::move(title)) {}

  /// Upright, numbers on the right. @param area  of the colours alone; the title stands above
  void drawUpright(Canvas& canvas, const Box& area) const;
  /// Lying, numbers below. @param area  of the colours alone; the title stands above
  void drawLying(Canvas& canvas, const Box& area) const;

 private:
  std::vector<Color> colorsAlong(int pixels) const;
  void drawOutline(Canvas& canvas, const std::array<Point, 3>& first,
                   const std::array<Point, 3>& last) const;

  ColorScale scale_;
  std::string title_;
};

/// A little field of a colour and what it stands for. @return the pixel behind the text
double drawSwatch(Canvas& canvas, Point at, Color color, std::string_view text);

/// A bar of a round length, at most `most` pixels wide, and above it that length.
/// @param at            the left end of the bar
/// @param unitsPerPixel of the picture, along its rows
void drawScaleBar(Canvas& canvas, Point at, double most, double unitsPerPixel,
                  std::string_view unit);

}  // namespace planex::report
