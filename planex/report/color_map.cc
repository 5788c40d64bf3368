#include "planex/report/color_map.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace planex::report {
namespace {

/// The curve of the transfer function of sRGB, IEC 61966-2-1.
std::uint8_t encoded(double linear) {
  const double x = std::clamp(linear, 0.0, 1.0);
  const double value = x <= 0.0031308 ? 12.92 * x : 1.055 * std::pow(x, 1 / 2.4) - 0.055;
  return static_cast<std::uint8_t>(std::lround(255 * value));
}

}  // namespace

Color ColorMap::colorOf(const Lab& lab) {
  const auto cube = [](double x) { return x * x * x; };
  const double l = cube(lab.lightness + 0.3963377774 * lab.a + 0.2158037573 * lab.b);
  const double m = cube(lab.lightness - 0.1055613458 * lab.a - 0.0638541728 * lab.b);
  const double s = cube(lab.lightness - 0.0894841775 * lab.a - 1.2914855480 * lab.b);
  return {encoded(4.0767416621 * l - 3.3077115913 * m + 0.2309699292 * s),
          encoded(-1.2684380046 * l + 2.6097574011 * m - 0.3413193965 * s),
          encoded(-0.0041960863 * l - 0.7034186147 * m + 1.7076147010 * s)};
}

ColorMap::ColorMap(const std::vector<Lab>& curve, bool diverging, Color missing)
    : diverging_(diverging), missing_(missing) {
  const std::size_t last = table_.size() - 1;
  if (!diverging) {
    resample(curve, 0, last);
    return;
  }
  const auto middle = curve.begin() + static_cast<std::ptrdiff_t>(curve.size() / 2);
  resample({curve.begin(), middle + 1}, 0, last / 2);
  resample({middle, curve.end()}, last / 2, last);
}

/// Entries first ... last, at equal distances along the curve.
void ColorMap::resample(const std::vector<Lab>& curve, std::size_t first, std::size_t last) {
  std::vector<double> way{0};
  for (std::size_t i = 1; i < curve.size(); ++i) {
    const Lab &from = curve[i - 1], &to = curve[i];
    way.push_back(way.back() +
                  std::hypot(to.lightness - from.lightness, to.a - from.a, to.b - from.b));
  }
  std::size_t piece = 1;
  for (std::size_t i = first; i <= last; ++i) {
    const double at =
        way.back() * static_cast<double>(i - first) / static_cast<double>(last - first);
    while (piece + 1 < curve.size() && way[piece] < at) ++piece;
    const Lab &from = curve[piece - 1], &to = curve[piece];
    const double share = (at - way[piece - 1]) / (way[piece] - way[piece - 1]);
    const auto mix = [share](double a, double b) { return a + share * (b - a); };
    table_[i] = colorOf({mix(from.lightness, to.lightness), mix(from.a, to.a), mix(from.b, to.b)});
  }
}

const std::vector<std::pair<std::string, ColorMap>>& ColorMap::all() {
  static const std::vector<std::pair<std::string, ColorMap>> maps = {
      {"viridis", ColorMap({{0.285, 0.102, -0.091},
                            {0.373, 0.053, -0.115},
                            {0.448, -0.007, -0.098},
                            {0.520, -0.055, -0.061},
                            {0.596, -0.094, -0.017},
                            {0.670, -0.126, 0.035},
                            {0.749, -0.140, 0.101},
                            {0.832, -0.109, 0.159},
                            {0.918, -0.039, 0.182}},
                           false, {222, 222, 222})},
      {"cividis", ColorMap({{0.259, -0.021, -0.088},
                            {0.341, -0.019, -0.108},
                            {0.409, -0.003, -0.062},
                            {0.479, 0.000, -0.027},
                            {0.548, 0.000, -0.003},
                            {0.619, -0.001, 0.021},
                            {0.690, -0.007, 0.056},
                            {0.764, -0.013, 0.096},
                            {0.841, -0.023, 0.138},
                            {0.921, -0.036, 0.176}},
                           false, {222, 222, 222})},
      {"gray", ColorMap({{0.25, 0, 0}, {0.97, 0, 0}}, false, {186, 214, 240})},
      {"diverging", ColorMap({{0.44, -0.020, -0.125},
                              {0.66, -0.030, -0.100},
                              {0.97, 0, 0},
                              {0.66, 0.075, 0.115},
                              {0.44, 0.085, 0.092}},
                             true, {168, 168, 168})},
  };
  return maps;
}

const ColorMap* ColorMap::find(std::string_view name) {
  for (const auto& [key, map] : all()) {
    if (key == name) return &map;
  }
  return nullptr;
}

std::vector<std::string> ColorMap::names() {
  std::vector<std::string> names;
  for (const auto& entry : all()) names.push_back(entry.first);
  return names;
}

Color ColorMap::at(double share) const {
  if (std::isnan(share)) return missing_;
  const auto last = static_cast<double>(table_.size() - 1);
  return table_[static_cast<std::size_t>(std::lround(std::clamp(share, 0.0, 1.0) * last))];
}

ColorScale ColorScale::of(const ColorMap& colors, double low, double high) {
  const double reach = std::max(std::abs(low), std::abs(high));
  if (colors.isDiverging()) return {&colors, -reach, reach};
  return {&colors, low, high};
}

Color ColorScale::at(double value) const {
  if (isLogarithmic) return ColorScale{colors, std::log(low), std::log(high)}.at(std::log(value));
  // Halves, because the distance of two numbers may exceed all numbers.
  const double span = high / 2 - low / 2;
  if (span > 0 && std::isfinite(span)) return colors->at((value / 2 - low / 2) / span);
  return colors->at(std::isfinite(value) ? 0.5 : std::nan(""));
}

std::pair<double, double> endsOf(const std::vector<double>& values) {
  double low = std::numeric_limits<double>::infinity(), high = -low;
  for (const double value : values) {
    if (!std::isfinite(value)) continue;
    low = std::min(low, value);
    high = std::max(high, value);
  }
  if (low > high) low = high = std::nan("");
  return {low, high};
}

}  // namespace planex::report
