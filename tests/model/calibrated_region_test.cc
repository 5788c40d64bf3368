#include "planex/model/calibrated_region.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "tests/support/model_builders.h"
#include "tests/support/warning_capture.h"

namespace datafusion::planex {
namespace {

using cmnalg::Image;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;

using PointList = etl::Vector<cmnalg::Vec<2, double>>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

constexpr const char* kGridText =
    "Grid must be at least 2x2. Please call Resize() to allocate the feedback images before "
    "calling Update().";
constexpr const char* kTwoPointsText =
    "At least two points must be added to calculate the calibrated region";
constexpr const char* kLengthText = "The amount of residuals must match the amount of points.";
constexpr const char* kNoListText = "At least one point list must be supplied.";

CalibratedRegion regionOf(int width, int height) {
  CalibratedRegion region;
  region.Resize(width, height);
  return region;
}

std::vector<double> pixels(const Image& image) {
  std::vector<double> values;
  for (int y = 0; y < image.GetHeight(); ++y) {
    for (int x = 0; x < image.GetWidth(); ++x) values.push_back(image.GetPixel(x, y));
  }
  return values;
}

struct Contents {
  Image count, meanX, meanZ, maxX, maxZ;
};

Contents contentsOf(const CalibratedRegion& region) {
  Contents contents;
  EXPECT_TRUE(region.GetPointCount(contents.count));
  EXPECT_TRUE(region.GetAverageResiduals(contents.meanX, contents.meanZ));
  EXPECT_TRUE(region.GetMaximumResiduals(contents.maxX, contents.maxZ));
  return contents;
}

TEST(CalibratedRegion, FillsCellsFromPointsAndResiduals) {
  CalibratedRegion region = regionOf(3, 2);
  // dx = 4, dz = 3, origin (-3, 2.5). X = -1 is the border of two columns and goes right.
  const PointList points = {{-5, 1}, {7, 7}, {-2, 3.9}, {-1, 1}, {6.9, 6.9}};
  const PointList residuals = {{1, -3}, {0.5, 0.25}, {-3, 1}, {2, -2}, {-1.5, 0.75}};
  ASSERT_TRUE(region.Update(points, residuals));
  const Contents got = contentsOf(region);
  EXPECT_THAT(pixels(got.count), ElementsAre(2, 1, 0, 0, 0, 2));
  EXPECT_THAT(pixels(got.meanX), ElementsAre(-1, 2, 0, 0, 0, -0.5));
  EXPECT_THAT(pixels(got.meanZ), ElementsAre(-1, -2, 0, 0, 0, 0.5));
  EXPECT_THAT(pixels(got.maxX), ElementsAre(3, 2, 0, 0, 0, 1.5));
  EXPECT_THAT(pixels(got.maxZ), ElementsAre(3, 2, 0, 0, 0, 0.75));
  EXPECT_EQ(got.count.GetType(), cmnalg::IMAGE_TYPE_INT32);
  for (const Image* image : {&got.meanX, &got.meanZ, &got.maxX, &got.maxZ}) {
    EXPECT_EQ(image->GetType(), cmnalg::IMAGE_TYPE_FLOAT32);
  }
  for (const Image* image : {&got.count, &got.meanX, &got.meanZ, &got.maxX, &got.maxZ}) {
    EXPECT_EQ(image->PixelSize, (cmnalg::Vec<3, double>{4, 3, 1}));
    EXPECT_EQ(image->Origin, (cmnalg::Vec<3, double>{-3, 2.5, 0}));
  }
  ASSERT_TRUE(region.Update(points, residuals));  // starts from 0
  EXPECT_THAT(pixels(contentsOf(region).count), ElementsAre(2, 1, 0, 0, 0, 2));
}

TEST(CalibratedRegion, KnowsItsArea) {
  CalibratedRegion region = regionOf(2, 2);
  ASSERT_TRUE(region.Update({{0, 0}, {10, 10}}, {{1, 1}, {2, 2}}));
  cmnalg::shape::Rectangle area;
  area.Rotation = 1;
  ASSERT_TRUE(region.GetRegion(area));
  EXPECT_EQ(area.Center, (cmnalg::Vec<2, double>{5, 5}));
  EXPECT_EQ(area.Width, 10);
  EXPECT_EQ(area.Height, 10);
  EXPECT_EQ(area.Rotation, 0);
  EXPECT_THAT(pixels(contentsOf(region).count), ElementsAre(1, 0, 0, 1));

  EXPECT_FALSE(CalibratedRegion().IsValid());
  EXPECT_FALSE(CalibratedRegion().GetRegion(area));
  EXPECT_TRUE(std::isnan(area.Width) && std::isnan(area.Height));
}

TEST(CalibratedRegion, LeavesOutPointsWithoutACell) {
  CalibratedRegion region = regionOf(2, 2);
  const PointList points = {{0, 0}, {kNaN, 5}, {5, kInfinity}, {-kInfinity, kNaN}, {10, 20}};
  ASSERT_TRUE(region.Update(points, PointList(5, {kNaN, 2})));
  const Contents got = contentsOf(region);
  EXPECT_THAT(pixels(got.count), ElementsAre(1, 0, 0, 1));
  EXPECT_EQ(got.count.PixelSize, (cmnalg::Vec<3, double>{5, 10, 1}));
  EXPECT_THAT(pixels(got.maxX), Each(0)) << "a NaN replaces no maximum";

  ASSERT_TRUE(region.Update({{3, 0}, {3, 1}}, PointList(2)));  // dx = 0
  EXPECT_THAT(pixels(contentsOf(region).count), Each(0));
  EXPECT_TRUE(region.IsValid());

  const WarningCapture log;
  EXPECT_FALSE(region.Update({{3, 0}, {3, kNaN}}, PointList(2)));
  EXPECT_THAT(log.Messages(), ElementsAre(kTwoPointsText));
}

struct RefusalCase {
  const char* name;
  int width, height;
  std::vector<std::size_t> points, residuals;  // lengths of the lists
  const char* text;
};
const RefusalCase kRefusals[] = {
    {"FreshRegion", 0, 0, {2}, {2}, kGridText},
    {"OneColumn", 1, 5, {2}, {2}, kGridText},
    {"OneRow", 5, 1, {2}, {2}, kGridText},
    {"OnePoint", 2, 2, {1}, {1}, kTwoPointsText},
    {"FewerResiduals", 2, 2, {3}, {2}, kLengthText},
    {"NoLists", 2, 2, {}, {}, kNoListText},
    {"SameSumOfLengths", 2, 2, {2, 3}, {3, 2}, kLengthText},
    {"FewerResidualLists", 2, 2, {2, 2}, {2}, kLengthText},
    {"MoreResidualLists", 2, 2, {2}, {2, 2}, kLengthText},
    {"OnePointInManyLists", 2, 2, {0, 1, 0}, {0, 1, 0}, kTwoPointsText},
};

TEST(CalibratedRegion, RefusesWithoutChange) {
  for (const RefusalCase& row : kRefusals) {
    SCOPED_TRACE(row.name);
    CalibratedRegion region = regionOf(row.width, row.height);
    const bool filled = row.width > 1 && row.height > 1;
    if (filled) region.Update({{0, 0}, {10, 10}}, PointList(2));
    const auto lists = [](const std::vector<std::size_t>& lengths) {
      etl::Vector<PointList> filledLists;
      for (const std::size_t length : lengths) filledLists.emplace_back(length);
      return filledLists;
    };
    const WarningCapture log;
    EXPECT_FALSE(row.points.size() == 1 && row.residuals.size() == 1
                     ? region.Update(PointList(row.points[0]), PointList(row.residuals[0]))
                     : region.Update(lists(row.points), lists(row.residuals)));
    EXPECT_THAT(log.Messages(), ElementsAre(row.text));
    EXPECT_THAT(log.Loggers(), ElementsAre("Image.Planex.Model"));
    if (filled) {
      EXPECT_THAT(pixels(contentsOf(region).count), ElementsAre(1, 0, 0, 1));
    }
  }
}

TEST(CalibratedRegion, JoinsListsInOrder) {
  CalibratedRegion region = regionOf(2, 2);
  ASSERT_TRUE(region.Update(etl::Vector<PointList>{{{0, 0}}, {}, {{10, 10}, {1, 1}}},
                            etl::Vector<PointList>{{{1, 0}}, {}, {{2, 0}, {3, 0}}}));
  EXPECT_THAT(pixels(contentsOf(region).meanX), ElementsAre(2, 0, 0, 2));
}

TEST(CalibratedRegion, CopiesShareUntilOneChanges) {
  CalibratedRegion region = regionOf(2, 2);
  ASSERT_TRUE(region.Update({{0, 0}, {10, 10}}, {{1, 1}, {2, 2}}));
  CalibratedRegion updated = region;
  CalibratedRegion resized = region;
  ASSERT_TRUE(updated.Update({{0, 10}, {10, 0}}, {{5, 5}, {6, 6}}));
  ASSERT_TRUE(resized.Resize(2, 2));
  const Contents original = contentsOf(region);
  EXPECT_THAT(pixels(original.count), ElementsAre(1, 0, 0, 1));
  EXPECT_THAT(pixels(original.meanX), ElementsAre(1, 0, 0, 2));
  EXPECT_THAT(pixels(contentsOf(updated).count), ElementsAre(0, 1, 1, 0));
  EXPECT_THAT(pixels(contentsOf(resized).count), Each(0));

  Image taken;
  ASSERT_TRUE(region.GetPointCount(taken));
  taken.SetPixel(0, 0, 77);
  EXPECT_THAT(pixels(contentsOf(region).count), ElementsAre(1, 0, 0, 1));
}

TEST(CalibratedRegion, RefusedSizesChangeNothing) {
  CalibratedRegion region = regionOf(3, 2);
  const WarningCapture log;
  EXPECT_FALSE(region.Resize(-1, 2));
  EXPECT_FALSE(region.Resize(1 << 20, 1 << 20));
  EXPECT_THAT(log.Messages(), ElementsAre("Cannot create image with negative width or height.",
                                          "Failed to allocate."));
  EXPECT_THAT(pixels(contentsOf(region).count), ElementsAreArray(std::vector<double>(6, 0.0)));
}

}  // namespace
}  // namespace datafusion::planex
