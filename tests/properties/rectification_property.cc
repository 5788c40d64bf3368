// Rectification with any images, grids and settings: at class level against a plain scalar loop,
// and rectify() against the class level.

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "planex/api/planex.h"
#include "planex/processing/rectification.h"
#include "tests/support/property.h"
#include "tests/support/reference.h"
#include "tests/support/samples.h"

namespace {

using cmnalg::ImageOf;
using cmnalg::Vec;
using datafusion::planex::RectificationMode;
using datafusion::planex::toRectified;
using test::Drawn;

const auto& kAllocator = cmnalg::Image::s_defaultImageAllocator;

/// How points are spread over the grid.
struct Splat {
  explicit Splat(test::ByteSource& source)
      : spacing{source.Flip() ? source.Between(-9, 9) / 1000.0 : test::drawNumber(source),
                test::drawNumber(source) - 1},
        size(test::drawScale(source)) {}
  Vec<2, double> spacing;
  double size;
};

template <typename X, typename Z>
void checkClassLevel(test::ByteSource& source) {
  test::CheckedLog log;
  const int height = source.Between(0, 7);
  const int points = source.Between(0, 200);
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
  const Splat splat(source);
  const int mode = source.Between(0, 5);
  const auto rectificationMode = static_cast<RectificationMode>(mode);
  const bool withIntensity = source.Flip();
  const bool clear = source.Flip();

  std::vector<std::uint16_t> heights = target.pixels;
  std::vector<std::uint8_t> intensities = targetIntensity.pixels;
  log.Clear();
  const bool done = test::tries([&] {
    return withIntensity
               ? toRectified(x.image, z.image, intensity.image, splat.spacing, splat.size,
                             rectificationMode, target.image, targetIntensity.image, clear)
               : toRectified(x.image, z.image, splat.spacing, splat.size, rectificationMode,
                             target.image, clear);
  });
  log.CheckRefusal(done);
  if (!done && clear && mode > 2) return;  // an unknown mode is refused behind the clearing
  if (done && clear) {
    std::fill(heights.begin(), heights.end(), std::uint16_t{0});
    if (withIntensity) std::fill(intensities.begin(), intensities.end(), std::uint8_t{0});
  }
  for (int v = 0; done && v < height; ++v) {
    const double slope = splat.spacing.x * splat.size;
    const double width = splat.spacing.y * splat.size;
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

/// 16-bit intensities, or 8-bit ones as they are, in 8 bits.
std::vector<std::uint8_t> inEightBits(const std::vector<std::uint16_t>& values, bool wide) {
  const auto limits = std::minmax_element(values.begin(), values.end());
  const int min = *limits.first;
  const int span = std::max(*limits.second - min, 1);
  std::vector<std::uint8_t> bytes;
  for (const int value : values) {
    bytes.push_back(
        static_cast<std::uint8_t>(wide ? std::round((value - min) * 255.0 / span) : value & 255));
  }
  return bytes;
}

/// rectify() gives what the class level gives in 16 bits. The heights may overwrite X.
void checkWorldHeights(test::ByteSource& source) {
  test::CheckedLog log;
  const ImageSize size = {static_cast<std::uint16_t>(source.Between(0, 60)),
                          static_cast<std::uint16_t>(source.Between(0, 4))};
  WorldRangeTraits traits = {0, 59, 60, 0, 1, size.height, 0, 8, 65536};
  if (source.Flip()) {
    const auto number = [&source] { return test::drawNumber(source); };
    traits.xCount = static_cast<std::uint32_t>(source.Between(0, 60));
    traits.xMin = number() - 20;
    traits.xMax = source.Flip() ? traits.xMin + 30 : number();
    traits.zMin = number() - 20;
    traits.zMax = source.Flip() ? traits.zMin + 50 : number();
    traits.zLevels = source.Flip() ? 100 : source.Count();
  }
  const Splat splat(source);
  Drawn<float> x(source, size.width, size.height, 0);
  Drawn<float> z(source, size.width, size.height, 0);
  Drawn<std::uint16_t> wide(source, size.width, size.height, 0);
  const bool isWide = source.Flip();
  std::vector<std::uint8_t> bytes = inEightBits(wide.pixels, isWide);
  ImageOf<std::uint8_t> intensity(bytes.data(), size.width, size.height, 0, false, kAllocator,
                                  false);
  for (ImageOf<float>* image : {&x.image, &z.image}) {
    image->PixelSize = {1, 1, 1};
    image->Origin = {0, 0, 0};
  }
  const bool withImage = source.Flip();
  constexpr RectificationMode kModes[] = {RectificationMode::MEAN,      RectificationMode::HIGHEST,
                                          RectificationMode::LOWEST,    RectificationMode::DARKEST,
                                          RectificationMode::BRIGHTEST, RectificationMode{5}};
  const auto mode = static_cast<std::uint32_t>(source.Between(0, 5));

  // In 16 bits, then in world heights by the formula.
  const RangeTransform t = rangeTraitsToTransform(traits);
  const auto columns = static_cast<int>(traits.xCount);
  ImageOf<std::uint16_t> levels(columns, size.height, kAllocator);
  ImageOf<std::uint8_t> wantImage(columns, size.height, kAllocator);
  levels.PixelSize = {t.scaleX, 1, t.scaleZ};
  levels.Origin = {t.originX, 0, t.originZ};
  levels.HandleZeroPixels = cmnalg::ZeroPixels::MissingData;
  const datafusion::planex::HeightGrid grid{
      columns, size.height, {t.scaleX, t.originX}, {t.scaleZ, t.originZ}};
  const bool expected = grid.IsConsistent() &&
                        (withImage ? toRectified(x.image, z.image, intensity, splat.spacing,
                                                 splat.size, kModes[mode], levels, wantImage, true)
                                   : toRectified(x.image, z.image, splat.spacing, splat.size,
                                                 kModes[mode], levels, true));

  const std::uint32_t format = isWide ? PLANEX_PIXEL_FORMAT_MONO16 : PLANEX_PIXEL_FORMAT_MONO8;
  std::uint32_t filter = 0;
  CHECK_HOLDS(createRectificationFilter(mode, traits, size, withImage ? 1 : 0, &format,
                                        {splat.spacing.x, splat.spacing.y, splat.size}, -1.5F,
                                        &filter));
  const std::size_t cells = std::size_t{traits.xCount} * traits.yCount;
  const bool overwrites = source.Flip() && cells <= x.pixels.size();
  std::vector<float> apart(std::max(cells, std::size_t{1}), 4711.0F);
  std::vector<float>& heights = overwrites ? x.pixels : apart;
  const std::vector<float> before = heights;
  std::vector<std::uint8_t> gotImage(apart.size(), 7);
  const void* const in[] = {isWide ? static_cast<const void*>(wide.pixels.data()) : bytes.data()};
  void* const out[] = {gotImage.data()};
  log.Clear();
  const bool rectified = test::tries(
      [&] { return rectify(filter, x.pixels.data(), z.pixels.data(), in, heights.data(), out); });
  log.CheckCall(rectified);
  CHECK_HOLDS(destroyRectificationFilter(&filter));
  CHECK_HOLDS(rectified == expected);
  CHECK_HOLDS(rectified || std::memcmp(heights.data(), before.data(), heights.size() * 4) == 0);
  for (std::size_t i = 0; i < cells; ++i) {
    const std::uint16_t level = levels.GetRowPtr(0)[i];
    const float want = std::fma(static_cast<float>(level), static_cast<float>(t.scaleZ),
                                static_cast<float>(t.originZ));
    CHECK_HOLDS(!rectified || test::sameBits(heights[i], level == 0 ? -1.5F : want));
    CHECK_HOLDS(withImage ? !rectified || gotImage[i] == wantImage.GetRowPtr(0)[i]
                          : gotImage[i] == 7);
  }
}

}  // namespace

PLANEX_PROPERTY(rectification) {
  const test::MayFail enough(false);
  do {
    if (source.Between(0, 2) == 0) {
      checkWorldHeights(source);
      continue;
    }
    test::withPixelType(source, [&](auto x) {
      test::withPixelType(source,
                          [&](auto z) { checkClassLevel<decltype(x), decltype(z)>(source); });
    });
  } while (!source.IsEmpty());
}
