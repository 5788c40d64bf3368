#include "planex/processing/rectification_target.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "tests/support/refusals.h"

namespace datafusion::planex {
namespace {

using cmnalg::Image;
using cmnalg::Vec;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
const double kNaN = std::nan("");
const char* const kLimits =
    "Maximum coordinate limits must be larger than the minimum coordinate limits.";

struct Arguments {
  int width = 3, height = 5, zSteps = 11;
  Vec<3, double> size{3, 2, 1}, min{10, -1, 2}, max{20, 1, 4};
};
const char* const kSizes = "Pixel sizes in x and y must be positive integers.";
#define TOO_LARGE(pixels)                                                               \
  "Output image size is limited to 100000000 pixels. Select a smaller region          " \
  " or larger pixel sizes. Current output size would have been " pixels "."
/// The texts of grids of so many cells, and of cells of a size.
const test::Check<Arguments> kChecks[] = {
    {[](auto& a) { a.width = 1; }, "The width must be larger than 1.", nullptr},
    {[](auto& a) { a.height = 0; }, "The height must be at least 1.", nullptr},
    {[](auto& a) { a.zSteps = 1; }, "The number of Z steps must be larger than 1.", nullptr},
    {[](auto& a) { a.size.x = 0; }, nullptr, kSizes},
    {[](auto& a) { a.size.y = kNaN; }, nullptr, kSizes},
    {[](auto& a) { a.max.x = 9; }, kLimits, kLimits},
    {[](auto& a) { a.max.y = -2; }, kLimits, kLimits},
    {[](auto& a) { a.max.x = 10; }, nullptr, kLimits},
    {[](auto& a) { a.max.y = -1; }, nullptr, kLimits},
    {[](auto& a) { a.max.z = 2; }, kLimits, kLimits},
    {[](auto& a) { a.min.x = kNaN; }, kLimits, kLimits},
    {[](auto& a) { a.max.x = 30010, a.max.y = 20001; }, nullptr, TOO_LARGE("100010000")},
    {[](auto& a) { a.max.x = 3e9, a.max.y = 3e9; }, nullptr, TOO_LARGE("2147483647")},
    {[](auto& a) { a.max.x = kInfinity; }, nullptr, TOO_LARGE("2147483647")},
};

bool create(const Arguments& a, Image& target, cmnalg::ImageType type, unsigned char missingData) {
  return createRectificationTarget(a.width, a.min.x, a.max.x, a.height, a.min.y, a.max.y, a.zSteps,
                                   a.min.z, a.max.z, target, type, missingData);
}
bool createBySize(const Arguments& a, Image& target, cmnalg::ImageType type) {
  return createRectificationTarget(a.size.x, a.min.x, a.max.x, a.size.y, a.min.y, a.max.y, a.size.z,
                                   a.min.z, a.max.z, target, type, 1);
}

TEST(RectificationTarget, RefusesInOrder) {
  Image target;
  constexpr auto kType = cmnalg::IMAGE_TYPE_UINT16;
  expectChecksInOrder(kChecks, [&](Arguments& a) { return create(a, target, kType, 1); });
  const auto bySize = [&](Arguments& a) { return createBySize(a, target, kType); };
  expectChecksInOrder(kChecks, bySize, &test::Check<Arguments>::other);
}

TEST(RectificationTarget, DescribesTheGrid) {
  Image target(cmnalg::IMAGE_TYPE_UINT16, 3, 5, Image::s_defaultImageAllocator);
  target.SetPixel(2, 4, 7);
  const auto expectGrid = [&](Vec<3, double> pixelSize, Vec<3, double> origin, bool missing) {
    EXPECT_EQ(target.PixelSize, pixelSize);
    EXPECT_EQ(target.Origin, origin);
    EXPECT_EQ(target.HandleZeroPixels == cmnalg::ZeroPixels::MissingData, missing);
  };
  ASSERT_TRUE(create({}, target, cmnalg::IMAGE_TYPE_UINT16, 1));
  EXPECT_EQ(target.GetPixel(2, 4), 0);
  expectGrid({5, 0.5, 0.2}, {10, -1, 2 - 0.2}, true);
  ASSERT_TRUE(create({2, 1, 2}, target, cmnalg::IMAGE_TYPE_FLOAT32, 0));
  expectGrid({10, 1, 2}, {10, -1, 2}, false);
  ASSERT_TRUE(createBySize({0, 0, 0, {3, 2, 0}, {0, 0, 0}, {10, 5, 16383}}, target,
                           cmnalg::IMAGE_TYPE_UINT16));
  EXPECT_TRUE(target.GetWidth() == 4 && target.GetHeight() == 3);
  expectGrid({3, 2, 1}, {0, 0, -1}, true);
  EXPECT_TRUE(createBySize({0, 0, 0, {1, 1, 1}, {0, 0, 0}, {1e4, 1e4, 1}}, target,
                           cmnalg::IMAGE_TYPE_UINT8));
}

}  // namespace
}  // namespace datafusion::planex
