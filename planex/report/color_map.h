#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace planex::report {

/// A colour of the screen (sRGB).
struct Color {
  std::uint8_t r = 0, g = 0, b = 0;
};

/// A scale of colours for the numbers from 0 to 1.
///
/// Equal steps of the number are equal steps to the eye: the colours lie at equal distances on a
/// curve in the space Oklab, in which distances approximate perceived differences. Lightness grows
/// all along, or grows to the middle and falls, so that the scales work for the colour-blind and on
/// grey paper, too.
///
///     viridis    from violet over green to yellow
///     cividis    from blue over grey to yellow, alike for nearly all kinds of colour vision
///     gray       from black to white
///     diverging  from blue over white to brown, for differences: white is 0
///
/// Source: B. Ottosson, A perceptual color space for image processing, 2020 (Oklab).
class ColorMap {
 public:
  /// The map of that name; null where there is none. Maps live as long as the program.
  static const ColorMap* find(std::string_view name);
  /// The names, in the order above.
  static std::vector<std::string> names();

  /// What lies outside takes the colour of the nearer end; NaN that of missing values.
  Color at(double share) const;
  /// For what has no value: no colour of the scale is like it.
  Color missing() const { return missing_; }
  /// Whether the middle of the scale stands for 0.
  bool isDiverging() const { return diverging_; }

 private:
  struct Lab {
    double lightness, a, b;
  };

  ColorMap(const std::vector<Lab>& curve, bool diverging, Color missing);
  void resample(const std::vector<Lab>& curve, std::size_t first, std::size_t last);
  static Color colorOf(const Lab& lab);
  static const std::vector<std::pair<std::string, ColorMap>>& all();

  std::array<Color, 257> table_{};
  bool diverging_;
  Color missing_;
};

/// Which numbers the ends of a colour map stand for.
struct ColorScale {
  const ColorMap* colors = nullptr;
  double low = 0, high = 1;
  bool lowerValues = false, higherValues = false;  ///< whether there are values beyond the ends
  bool isLogarithmic = false;  ///< equal ratios are equal steps of colour; both ends are above 0

  /// A scale from low to high; for a diverging map from -x to x with both of them inside.
  static ColorScale of(const ColorMap& colors, double low, double high);
  Color at(double value) const;
};

/// The smallest and the largest of those values that are finite; NaN where there are none.
std::pair<double, double> endsOf(const std::vector<double>& values);

}  // namespace planex::report
