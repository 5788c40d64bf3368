// Rectification with any images, grids and settings, against a plain scalar loop.

#include <algorithm>
#include <vector>

#include "planex/processing/rectification.h"
#include "tests/support/property.h"
#include "tests/support/reference.h"
#include "tests/support/samples.h"

namespace {

using cmnalg::Vec;
using datafusion::planex::RectificationMode;
using test::Drawn;

template <typename X, typename Z>
void checkClassLevel(test::ByteSource& source) {
  test::CheckedLog log;
  const int height = source.Between(0, 7);
  // A row may hold more points than are kept as 16-bit numbers.
  const int points = source.Between(0, 200) + (source.Between(0, 255) == 255 ? 65536 : 0);
  const auto stray = [&source] { return source.Between(0, 63) == 63 ? 1 : 0; };
  const Drawn<X> x(source, points, height);
  Drawn<Z> z(source, points + stray(), height);
  if (source.Flip()) {  // the largest mean
    for (std::size_t i = 0; i < z.pixels.size(); i += 16) z.pixels[i] = test::narrowed<Z>(65535);
  }
  const Drawn<std::uint8_t> intensity(source, points, height + stray());
  const int columns = source.Between(0, 100);
  Drawn<std::uint16_t> target(source, columns, height + stray());
  Drawn<std::uint8_t> targetIntensity(source, columns + 1 - 2 * stray(), height);
  target.image.HandleZeroPixels =
      stray() != 0 ? cmnalg::ZeroPixels::Default : cmnalg::ZeroPixels::MissingData;
  const Vec<2, double> spacing{
      source.Flip() ? source.Between(-9, 9) / 1000.0 : test::drawNumber(source),
      test::drawNumber(source) - 1};
  const double splatSize = test::drawScale(source);
  const int mode = source.Between(0, 5);
  const auto rectificationMode = static_cast<RectificationMode>(mode);
  const bool withIntensity = source.Flip();
  const bool clear = source.Flip();

  std::vector<std::uint16_t> heights = target.pixels;
  std::vector<std::uint8_t> intensities = targetIntensity.pixels;
  log.Clear();
  const bool done = test::tries([&] {
    return withIntensity
               ? toRectified(x.image, z.image, intensity.image, spacing, splatSize,
                             rectificationMode, target.image, targetIntensity.image, clear)
               : toRectified(x.image, z.image, spacing, splatSize, rectificationMode, target.image,
                             clear);
  });
  log.CheckRefusal(done);
  if (!done && clear && mode > 2) return;  // an unknown mode is refused behind the clearing
  if (done && clear) {
    std::fill(heights.begin(), heights.end(), std::uint16_t{0});
    if (withIntensity) std::fill(intensities.begin(), intensities.end(), std::uint8_t{0});
  }
  for (int v = 0; done && v < height; ++v) {
    const double slope = spacing.x * splatSize;
    const double width = spacing.y * splatSize;
    const Vec<3, double>& size = target.image.PixelSize;
    const Vec<3, double>& origin = target.image.Origin;
    const reference::Rectification k{x.image.PixelSize.z / size.x,
                                     (x.image.Origin.z - origin.x) / size.x,
                                     z.image.PixelSize.z / size.z,
                                     (z.image.Origin.z - origin.z) / size.z,
                                     0.55 * size.z * slope / size.x,
                                     0.55 * (origin.z * slope + width) / size.x,
                                     mode,
                                     clear};
    const auto row = [v](auto& drawn, auto& pixels) {
      return pixels.data() + std::ptrdiff_t{v} * drawn.image.GetPitch();
    };
    reference::rectifyRow(k, row(x, x.pixels), row(z, z.pixels),
                          withIntensity ? row(intensity, intensity.pixels) : nullptr, points,
                          row(target, heights),
                          withIntensity ? row(targetIntensity, intensities) : nullptr, columns);
  }
  CHECK_HOLDS(target.pixels == heights && targetIntensity.pixels == intensities);
}

}  // namespace

PLANEX_PROPERTY(rectification) {
  const test::MayFail enough(false);
  do {
    test::withPixelType(source, [&](auto x) {
      test::withPixelType(source,
                          [&](auto z) { checkClassLevel<decltype(x), decltype(z)>(source); });
    });
  } while (!source.IsEmpty());
}
