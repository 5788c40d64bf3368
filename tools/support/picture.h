#pragma once

#include <planex/io/output_file.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace planex::tools {

struct Color {
  std::uint8_t r = 0, g = 0, b = 0;
};

inline constexpr Color kPaper{24, 26, 30};     ///< background
inline constexpr Color kInk{235, 235, 235};    ///< texts and main lines
inline constexpr Color kFaint{90, 96, 106};    ///< axes and frames
inline constexpr Color kAccent{240, 170, 50};  ///< what a drawing is about

/// Blue, cyan, green, yellow, red for 0 ... 1; what lies outside takes the nearer end, NaN paper.
Color falseColor(double share);

/// A picture of 8-bit RGB pixels. (0, 0) is the upper left pixel; drawing outside does nothing.
class Picture {
 public:
  static constexpr int kGlyphWidth = 6;   ///< distance of letters at scale 1
  static constexpr int kGlyphHeight = 7;  ///< height of letters at scale 1
  static constexpr int kMostPixels = 1 << 28;

  /// All pixels paper. Throws std::length_error for sizes below 1 or of more than kMostPixels.
  Picture(int width, int height);

  int width() const { return width_; }
  int height() const { return height_; }
  Color at(int x, int y) const { return pixels_[index(x, y)]; }

  void set(int x, int y, Color color);
  void fill(int x, int y, int width, int height, Color color);
  /// The one pixel wide frame whose upper left pixel is (x, y).
  void frame(int x, int y, int width, int height, Color color);
  /// A smooth line; nothing when an end is not finite.
  void line(double x0, double y0, double x1, double y1, Color color);

  /// A text with its upper left corner at (x, y), each dot scale x scale pixels. Printable ASCII
  /// and the micro sign; anything else shows as a box.
  void text(int x, int y, std::string_view text, Color color, int scale = 1);
  /// The width of a text in pixels.
  static int textWidth(std::string_view text, int scale = 1);

  /// Writes the picture as a PNG; the caller commits.
  void writePng(io::OutputFile& file) const;

 private:
  std::size_t index(int x, int y) const {
    return static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) +
           static_cast<std::size_t>(x);
  }
  bool contains(int x, int y) const { return x >= 0 && x < width_ && y >= 0 && y < height_; }
  void blend(int x, int y, Color color, double share);

  int width_, height_;
  std::vector<Color> pixels_;
};

/// The largest of 1, 2, 5 times a power of ten that is at most `span`; 0 unless span is positive
/// and finite.
double roundStep(double span);

/// The multiples of a step from `min` to `max`, at most a hundred; none for a step of 0.
std::vector<double> roundValues(double min, double max, double step);

/// A number with as many digits as a label of that step needs: 0.25 in steps of 0.05 is "0.25".
std::string labelText(double value, double step);

/// Draws a column of false colours with labels: red, `max`, above. `height` pixels high, with texts
/// some 20 + 8 letters wide.
void drawLegend(Picture& picture, int x, int y, int height, double min, double max,
                std::string_view unit, int scale = 1);

/// Draws a scale bar of a round length, at most `mostPixels` wide, its length written above.
/// @param pixelsPerUnit  of the picture, along its rows
void drawScaleBar(Picture& picture, int x, int y, int mostPixels, double pixelsPerUnit,
                  std::string_view unit, int scale = 1);

}  // namespace planex::tools
