#include "planex/processing/world_heights.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "planex/processing/intensity_reduction.h"
#include "planex/processing/rectification.h"
#include "tests/support/warning_capture.h"

namespace datafusion::planex {
namespace {

constexpr int kWidth = 4;
constexpr int kHeight = 2;
constexpr float kMissing = -1;
const auto& kAllocator = cmnalg::Image::s_defaultImageAllocator;

template <typename T>
cmnalg::ImageOf<T> view(std::vector<T>& pixels, int pitch = kWidth) {
  return {pixels.data(), kWidth, kHeight, pitch, false, kAllocator, false};
}

struct WorldTargets : testing::Test {
  // One point a column, of levels 1 to 4 in row 0; row 1 has one point at level 8.
  std::vector<float> xPixels{0, 1, 2, 3, 0, 1, 2, 3};
  std::vector<float> zPixels{10.5F, 11, 11.5F, 12, NAN, NAN, 14, NAN};
  cmnalg::ImageOf<float> x = view(xPixels), z = view(zPixels);
  std::vector<std::uint8_t> grey = std::vector<std::uint8_t>(8, 9), greyOut = grey;
  cmnalg::ImageOf<std::uint8_t> intensity = view(grey), intensityOut = view(greyOut);
  const HeightGrid grid{kWidth, kHeight, {1, 0}, levelAxis(10.5, 14, 9)};
  const SplatShape splat{{0, 0}, 1};
};

TEST_F(WorldTargets, MayBePaddedAndTakeThePlaceOfASource) {
  std::vector<float> padded(12, 77);
  auto target = view(padded, 6);
  EXPECT_TRUE(toRectifiedWorld(x, z, splat, RectificationMode::LOWEST, grid, kMissing, target));
  EXPECT_EQ(padded, (std::vector<float>{10.5F, 11, 11.5F, 12, 77, 77, kMissing, kMissing, 14,
                                        kMissing, 77, 77}));
  auto overZ = view(zPixels);
  EXPECT_TRUE(toRectifiedWorld(x, z, splat, RectificationMode::LOWEST, grid, kMissing, overZ));
  EXPECT_EQ(zPixels, (std::vector<float>{10.5F, 11, 11.5F, 12, kMissing, kMissing, 14, kMissing}));
}

TEST_F(WorldTargets, ThatDoNotFitAreRefused) {
  std::vector<float> heights(8, 7);
  cmnalg::ImageOf<float> none, narrow(heights.data(), 3, 2, 0, false, kAllocator, false);
  auto target = view(heights);
  HeightGrid empty = grid;
  empty.width = 0;
  const std::string size = "The height target must be as large as the grid.";
  const struct {
    const char* name;
    cmnalg::ImageOf<float>* target;
    cmnalg::ImageOf<std::uint8_t>& intensityTarget;
    const HeightGrid& grid;
    std::string warning;
  } cases[] = {
      {"no image", &none, intensityOut, grid, size},
      {"another width", &narrow, intensityOut, grid, size},
      {"no column", nullptr, intensityOut, empty, size},
      {"over the source", &target, intensity, grid, "Cannot reuse source image as target image."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const WarningCapture log;
    EXPECT_FALSE(toRectifiedWorld(x, z, intensity, splat, RectificationMode::LOWEST, c.grid,
                                  kMissing, c.target, c.intensityTarget));
    EXPECT_EQ(log.Messages(), std::vector<std::string>{c.warning});
    EXPECT_EQ(heights, std::vector<float>(8, 7));
    EXPECT_EQ(greyOut, std::vector<std::uint8_t>(8, 9));
  }
}

TEST(IntensityReduction, GivesPartsWhatTheWholeGives) {
  const std::vector<std::uint16_t> values{500, 510, 1520, 1010, 65535, 0};
  IntensityLimits limits = findIntensityLimits(values.data(), 2);
  limits.Include(findIntensityLimits(values.data() + 2, 2));
  std::vector<std::uint8_t> out(6);
  for (std::size_t i : {0, 3}) reduceIntensities(values.data() + i, 3, limits, out.data() + i);
  EXPECT_EQ(out, (std::vector<std::uint8_t>{0, 3, 255, 128, 255, 0}));
}

}  // namespace
}  // namespace datafusion::planex
