#include "planex/processing/rectification.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "planex/processing/intensity_reduction.h"
#include "tests/support/refusals.h"

namespace datafusion::planex {
namespace {

using cmnalg::Image;
using cmnalg::ImageOf;

const auto& kAllocator = Image::s_defaultImageAllocator;

/// The images of one call.
struct Arguments {
  Arguments() {
    x.SetAll(1);
    std::fill_n(static_cast<float*>(z.GetData()), 8, 1.0F);
    target.HandleZeroPixels = cmnalg::ZeroPixels::MissingData;
  }
  ImageOf<float> x{4, 2, kAllocator};
  Image z{cmnalg::IMAGE_TYPE_FLOAT32, 4, 2, kAllocator};
  Image intensity{cmnalg::IMAGE_TYPE_UINT8, 4, 2, kAllocator};
  ImageOf<std::uint16_t> target{6, 2, kAllocator};
  ImageOf<std::uint8_t> targetIntensity{6, 2, kAllocator};
  HeightGrid grid{6, 2, {}, {}};
  ImageOf<float> world{6, 2, kAllocator};
  double splatSize = 1;
  RectificationMode mode = RectificationMode::LOWEST;
};

/// Lets an image begin in the memory of another.
template <typename Pixel>
void place(ImageOf<Pixel>& image, Image& in, int byte) {
  image.Create(reinterpret_cast<Pixel*>(static_cast<unsigned char*>(in.GetData()) + byte), 6, 2, 0,
               false, kAllocator, false);
}

/// Two rows of four intensities, of which the last is byte 11; rows of eight bytes would end
/// with 15.
void inPaddedRows(Arguments& a) {
  a.intensity.Create(a.world.GetData(), cmnalg::IMAGE_TYPE_UINT8, 4, 2, 8, false, kAllocator,
                     false);
}

using Mode = RectificationMode;
const char* const kInvalid = "One or more input images are invalid. Please check your input.";
const char* const kTargets = "Target images must be valid.";
const char* const kSize = "X, Z and I inputs must be of the same size.";
const char* const kHeight = "Target images must have the same height as the source images.";
const char* const kMissing = "Target image must allow missing data.";
const char* const kReuse = "Cannot reuse source image as target image.";
const char* const kMode =
    "Intensity must be provided to use rectification modes BRIGHTEST or DARKEST.";
/// The texts without and with intensity.
const test::Check<Arguments> kChecks[] = {
    // clang-format off
    {[](auto& a) { a.x.Deallocate(); }, kInvalid, kInvalid},
    {[](auto& a) { a.z.PixelSize.y = std::nan(""); }, kInvalid, kInvalid},
    {[](auto& a) { a.intensity.Deallocate(); }, nullptr, kInvalid},
    {[](auto& a) { a.target.Deallocate(); }, "Target image must be a valid image.", kTargets},
    {[](auto& a) { a.targetIntensity.Deallocate(); }, nullptr, kTargets},
    {[](auto& a) { a.x.Create(5, 2, kAllocator); }, "X and Z inputs must be of the same size.", kSize},
    {[](auto& a) { a.intensity.Create(cmnalg::IMAGE_TYPE_UINT8, 4, 3, 0, kAllocator); }, nullptr, kSize},
    {[](auto& a) { a.target.Create(6, 3, kAllocator); },
     "Target image must have the same height as the source image.", kHeight},
    {[](auto& a) { a.targetIntensity.Create(6, 3, kAllocator); }, nullptr, kHeight},
    {[](auto& a) { a.intensity.Create(cmnalg::IMAGE_TYPE_UINT16, 4, 2, 0, kAllocator); }, nullptr,
     "Intensity image must be of UINT8 type."},
    {[](auto& a) { a.splatSize = -1e-300; }, "Splat size should be larger than 0.0.",
     "Splat size should be larger than 0."},
    {[](auto& a) { a.splatSize = std::nan(""); }, nullptr, nullptr},
    {[](auto& a) { a.target.HandleZeroPixels = cmnalg::ZeroPixels::Default; }, kMissing, kMissing},
    {[](auto& a) { place(a.target, a.x, 8); }, kReuse, kReuse},
    {[](auto& a) { place(a.target, a.z, 8); }, kReuse, kReuse},
    {[](auto& a) { place(a.target, a.intensity, 0); }, nullptr, kReuse},
    {[](auto& a) { place(a.targetIntensity, a.x, 8); }, nullptr, kReuse},
    {[](auto& a) { place(a.targetIntensity, a.z, 8); }, nullptr, kReuse},
    {[](auto& a) { place(a.targetIntensity, a.intensity, 2); }, nullptr, kReuse},
    {[](auto& a) { place(a.targetIntensity, a.target, 3); }, nullptr, kReuse},
    {[](auto& a) { place(a.targetIntensity, a.world, 11); inPaddedRows(a); }, nullptr, kReuse},
    {[](auto& a) { place(a.targetIntensity, a.world, 12); inPaddedRows(a); }, nullptr, nullptr},
    {[](auto& a) { a.targetIntensity.Create(5, 2, kAllocator); }, nullptr,
     "The intensity target must be at least as wide as the target image."},
    {[](auto& a) { a.z.Create(cmnalg::IMAGE_TYPE_INT16, 4, 2, 0, kAllocator); }, "", ""},
    {[](auto& a) { a.mode = Mode::DARKEST; }, kMode, nullptr},
    {[](auto& a) { a.mode = Mode::BRIGHTEST; }, kMode, nullptr},
    {[](auto& a) { a.mode = static_cast<Mode>(5); }, kMode, "Unsupported rectification mode."},
    // clang-format on
};

TEST(Rectification, RefusesInOrder) {
  expectChecksInOrder(kChecks, [](Arguments& a) {
    return toRectified(a.x, a.z, {0, 0}, a.splatSize, a.mode, a.target, true);
  });
  const auto withIntensity = [](Arguments& a) {
    return toRectified(a.x, a.z, a.intensity, {0, 0}, a.splatSize, a.mode, a.target,
                       a.targetIntensity, true);
  };
  expectChecksInOrder(kChecks, withIntensity, &test::Check<Arguments>::other);
}

const char* const kGrid = "The height target must be as large as the grid.";
const test::Check<Arguments> kWorldChecks[] = {
    {[](auto& a) { a.world.Deallocate(); }, kGrid},
    {[](auto& a) { a.world.Create(5, 2, kAllocator); }, kGrid},
    {[](auto& a) { a.grid.width = 0; }, kGrid},
    {[](auto& a) { place(a.world, a.targetIntensity, 0); }, kReuse},
    {[](auto& a) { a.world.Create(a.x, false), a.grid.width = 4; }, nullptr},
};

TEST(Rectification, RefusesWorldTargetsInOrder) {
  expectChecksInOrder(kWorldChecks, [](Arguments& a) {
    a.targetIntensity.Pix(3, 1) = 9;
    const bool done = toRectifiedWorld(a.x, a.z, a.intensity, {{0, 0}, 1}, a.mode, a.grid, -1,
                                       &a.world, a.targetIntensity);
    EXPECT_EQ(a.targetIntensity.Pix(3, 1), done ? 0 : 9);
    return done;
  });
}

TEST(Rectification, WorldTargetsMayBePadded) {
  Arguments a;
  a.z.SetPixel(1, 0, 3);
  std::vector<float> heights(16, 77);
  a.world.Create(heights.data(), 6, 2, 8, false, kAllocator, false);
  EXPECT_TRUE(toRectifiedWorld(a.x, a.z, {{0, 0}, 1}, Mode::HIGHEST, a.grid, -1, a.world));
  EXPECT_EQ(heights, (std::vector<float>{-1, 3, -1, -1, -1, -1, 77, 77,  //
                                         -1, 1, -1, -1, -1, -1, 77, 77}));
  a.world.Create(1, 2, kAllocator);
  a.grid.width = 1;
  a.grid.x.origin = 1;
  EXPECT_TRUE(a.grid.IsConsistent());
  EXPECT_TRUE(toRectifiedWorld(a.x, a.z, {{0, 0}, 1}, Mode::HIGHEST, a.grid, -1, a.world));
  EXPECT_EQ(a.world.Pix(0, 1), 1);
}

TEST(IntensityReduction, TakesTheNearestLimits) {
  const std::uint16_t values[] = {5, 15, 30, 0, 0};
  EXPECT_TRUE(findIntensityLimits(values, 3).max == 30 && findIntensityLimits(values, 3).min == 5);
  EXPECT_EQ(findIntensityLimits(values + 3, 2).max, 0);
  std::uint8_t reduced[3];
  reduceIntensities(values, 3, {10, 20}, reduced);
  EXPECT_TRUE(reduced[0] == 0 && reduced[1] == 128 && reduced[2] == 255);
}

}  // namespace
}  // namespace datafusion::planex
