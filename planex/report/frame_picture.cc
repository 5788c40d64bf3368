#include "planex/report/frame_picture.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace planex::report {
namespace {

constexpr int kMostPixels = 1600;
constexpr Color kLine{255, 48, 48};
constexpr Color kClipped{64, 160, 255};

}  // namespace

std::string drawFrame(const FrameView& view, PictureFormat format) {
  const int step = std::max(1, (std::max(view.columns, view.rows) + kMostPixels - 1) / kMostPixels);
  const int width = (view.columns - 1) / step + 1;
  const int height = (view.rows - 1) / step + 1;
  std::vector<Color> pixels;
  pixels.reserve(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
  for (int v = 0; v < view.rows; v += step) {
    for (int u = 0; u < view.columns; u += step) {
      const std::uint8_t level =
          view.levels[static_cast<std::size_t>(v) * static_cast<std::size_t>(view.columns) +
                      static_cast<std::size_t>(u)];
      pixels.push_back(level == 255 ? kClipped : Color{level, level, level});
    }
  }
  Canvas canvas(width, height, format);
  canvas.image({0, 0}, width, height, pixels);
  std::vector<Point> line;
  for (std::size_t i = 0; i < view.line.size(); ++i) {
    const double along = (static_cast<double>(i) + 0.5) / step;
    const double across = (view.line[i] + 0.5) / step;
    line.push_back(view.alongRows ? Point{along, across} : Point{across, along});
  }
  canvas.line(line, kLine, 1);
  return canvas.finish();
}

}  // namespace planex::report
