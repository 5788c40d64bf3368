#include "planex/processing/rectification_target.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "tests/support/warning_capture.h"

namespace datafusion::planex {
namespace {

using cmnalg::Image;
using Texts = std::vector<std::string>;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
const double kNaN = std::nan("");
const char* const kLimits =
    "Maximum coordinate limits must be larger than the minimum coordinate limits.";

struct ByCount {
  const char* name;
  int width;
  double xMin, xMax;
  int height;
  double yMin, yMax;
  int zSteps;
  double zMin, zMax;
  const char* text;  ///< null: accepted
};
const ByCount kByCount[] = {
    {"WidthFirst", 1, 0, 1, 0, 0, 1, 1, 0, 1, "The width must be larger than 1."},
    {"Height", 2, 0, 1, 0, 0, 1, 1, 0, 1, "The height must be at least 1."},
    {"ZSteps", 2, 0, 1, 1, 0, 1, 1, 0, 1, "The number of Z steps must be larger than 1."},
    {"XOrder", 2, 1, 0, 1, 0, 1, 2, 0, 1, kLimits},
    {"YOrder", 2, 0, 1, 1, 1, 0, 2, 0, 1, kLimits},
    {"EqualZ", 2, 0, 1, 1, 0, 1, 2, 1, 1, kLimits},
    {"NaNLimit", 2, kNaN, 1, 1, 0, 1, 2, 0, 1, kLimits},
    {"EqualXAndY", 2, 1, 1, 1, 1, 1, 2, 0, 1, nullptr},
};

TEST(RectificationTarget, ChecksCountsAndLimits) {
  for (const ByCount& c : kByCount) {
    SCOPED_TRACE(c.name);
    Image target;
    WarningCapture log;
    EXPECT_EQ(createRectificationTarget(c.width, c.xMin, c.xMax, c.height, c.yMin, c.yMax, c.zSteps,
                                        c.zMin, c.zMax, target, cmnalg::IMAGE_TYPE_UINT16, 1),
              c.text == nullptr);
    EXPECT_EQ(log.Messages(), c.text == nullptr ? Texts{} : Texts{c.text});
  }
}

TEST(RectificationTarget, DescribesTheGridOfCounts) {
  Image target;
  ASSERT_TRUE(createRectificationTarget(3, 10.0, 20.0, 5, -1.0, 1.0, 11, 2.0, 4.0, target,
                                        cmnalg::IMAGE_TYPE_UINT16, 1));
  EXPECT_EQ(target.PixelSize, (cmnalg::Vec<3, double>{5.0, 0.5, 0.2}));
  EXPECT_EQ(target.Origin, (cmnalg::Vec<3, double>{10.0, -1.0, 2.0 - 0.2}));
  EXPECT_EQ(target.HandleZeroPixels, cmnalg::ZeroPixels::MissingData);
  EXPECT_EQ(target.GetPixel(2, 4), 0.0);
  ASSERT_TRUE(createRectificationTarget(2, 0.0, 10.0, 1, 0.0, 7.0, 2, 0.0, 1.0, target,
                                        cmnalg::IMAGE_TYPE_FLOAT32, 0));
  EXPECT_EQ(target.PixelSize, (cmnalg::Vec<3, double>{10.0, 1.0, 1.0}));
  EXPECT_EQ(target.Origin, (cmnalg::Vec<3, double>{0.0, 0.0, 0.0}));
  EXPECT_EQ(target.HandleZeroPixels, cmnalg::ZeroPixels::Default);
}

const char* const kSizes = "Pixel sizes in x and y must be positive integers.";
std::string tooLarge(const char* pixels) {
  return std::string(
             "Output image size is limited to 100000000 pixels. Select a smaller region        "
             "   or larger pixel sizes. Current output size would have been ") +
         pixels + ".";
}

struct BySize {
  const char* name;
  double sizeX, xMax, sizeY, yMax, sizeZ, zMax;
  std::string text;  ///< empty: accepted
};
const BySize kBySize[] = {
    {"ZeroX", 0, 1, 1, 1, 1, 1, kSizes},
    {"NaNY", 1, 1, kNaN, 1, 1, 1, kSizes},
    {"EqualX", 1, 0, 1, 1, 1, 1, kLimits},
    {"EqualY", 1, 1, 1, 0, 1, 1, kLimits},
    {"NaNZ", 1, 1, 1, 1, 1, kNaN, kLimits},
    {"OneColumnTooMany", 1, 10001, 1, 10000, 1, 1, tooLarge("100010000")},
    {"ProductBeyondInt", 1, 3e9, 1, 3e9, 1, 1, tooLarge("2147483647")},
    {"InfiniteLimit", 1, kInfinity, 1, 1, 1, 1, tooLarge("2147483647")},
    {"ProductThatWouldWrap", 1, 65536, 1, 65536, 1, 1, tooLarge("2147483647")},
    {"Accepted", 3, 10, 2, 5, 1, 1, ""},
};

TEST(RectificationTarget, ChecksSizesAndLimits) {
  for (const BySize& c : kBySize) {
    SCOPED_TRACE(c.name);
    Image target;
    WarningCapture log;
    EXPECT_EQ(createRectificationTarget(c.sizeX, 0.0, c.xMax, c.sizeY, 0.0, c.yMax, c.sizeZ, 0.0,
                                        c.zMax, target, cmnalg::IMAGE_TYPE_UINT16, 1),
              c.text.empty());
    EXPECT_EQ(log.Messages(), c.text.empty() ? Texts{} : Texts{c.text});
  }
}

TEST(RectificationTarget, DescribesTheGridOfSizes) {
  Image target;
  ASSERT_TRUE(createRectificationTarget(3.0, 1.0, 11.0, 2.0, 0.0, 5.0, 0.0, 0.0, 16383.0, target,
                                        cmnalg::IMAGE_TYPE_UINT16, 1));
  EXPECT_EQ(target.GetWidth(), 4);
  EXPECT_EQ(target.GetHeight(), 3);
  EXPECT_EQ(target.PixelSize, (cmnalg::Vec<3, double>{3.0, 2.0, 1.0}));
  EXPECT_EQ(target.Origin, (cmnalg::Vec<3, double>{1.0, 0.0, -1.0}));
  EXPECT_TRUE(createRectificationTarget(1.0, 0.0, 1e4, 1.0, 0.0, 1e4, 1.0, 0.0, 1.0, target,
                                        cmnalg::IMAGE_TYPE_UINT8, 1));
}

}  // namespace
}  // namespace datafusion::planex
