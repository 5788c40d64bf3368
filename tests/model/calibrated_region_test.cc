#include "planex/model/calibrated_region.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "tests/support/warning_capture.h"

namespace datafusion::planex {
namespace {

using cmnalg::Image;
using testing::Each;
using testing::ElementsAre;
using Pixels = std::vector<double>;
using PointList = etl::Vector<cmnalg::Vec<2, double>>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

CalibratedRegion regionOf(int width, int height) {
  CalibratedRegion region;
  region.Resize(width, height);
  return region;
}

/// Point counts, mean and largest residuals in X and in Z.
std::vector<Image> imagesOf(const CalibratedRegion& region) {
  std::vector<Image> images(5);
  EXPECT_TRUE(region.GetPointCount(images[0]));
  EXPECT_TRUE(region.GetAverageResiduals(images[1], images[2]));
  EXPECT_TRUE(region.GetMaximumResiduals(images[3], images[4]));
  return images;
}

Pixels pixels(const CalibratedRegion& region, std::size_t index = 0) {
  const Image image = imagesOf(region)[index];
  Pixels values;
  for (int y = 0; y < image.GetHeight(); ++y) {
    for (int x = 0; x < image.GetWidth(); ++x) values.push_back(image.GetPixel(x, y));
  }
  return values;
}

TEST(CalibratedRegion, FillsCellsFromPointsAndResiduals) {
  CalibratedRegion region = regionOf(3, 2);
  // dx = 4, dz = 3, origin (-3, 2.5). X = -1 is the border of two columns and goes right.
  const PointList points = {{-5, 1}, {7, 7}, {-2, 3.9}, {-1, 1}, {6.9, 6.9}};
  const PointList residuals = {{1, -3}, {0.5, 0.25}, {-3, 1}, {2, -2}, {-1.5, 0.75}};
  for (int round = 0; round < 2; ++round) {  // starts from 0 each time
    ASSERT_TRUE(region.Update(points, residuals));
    const Pixels want[] = {{2, 1, 0, 0, 0, 2},
                           {-1, 2, 0, 0, 0, -0.5},
                           {-1, -2, 0, 0, 0, 0.5},
                           {3, 2, 0, 0, 0, 1.5},
                           {3, 2, 0, 0, 0, 0.75}};
    for (std::size_t i = 0; i < 5; ++i) {
      const Image image = imagesOf(region)[i];
      EXPECT_EQ(pixels(region, i), want[i]);
      EXPECT_EQ(image.GetType(), i == 0 ? cmnalg::IMAGE_TYPE_INT32 : cmnalg::IMAGE_TYPE_FLOAT32);
      EXPECT_EQ(image.PixelSize, (cmnalg::Vec<3, double>{4, 3, 1}));
      EXPECT_EQ(image.Origin, (cmnalg::Vec<3, double>{-3, 2.5, 0}));
    }
  }
  cmnalg::shape::Rectangle area;
  area.Rotation = 1;
  ASSERT_TRUE(region.GetRegion(area));
  EXPECT_EQ(area.Center, (cmnalg::Vec<2, double>{1, 4}));
  EXPECT_TRUE(area.Width == 12 && area.Height == 6 && area.Rotation == 0);

  EXPECT_FALSE(CalibratedRegion().IsValid());
  EXPECT_FALSE(CalibratedRegion().GetRegion(area));
  EXPECT_TRUE(std::isnan(area.Width) && std::isnan(area.Height));
}

TEST(CalibratedRegion, LeavesOutPointsWithoutACell) {
  CalibratedRegion region = regionOf(2, 2);
  const PointList points = {{0, 0}, {kNaN, 5}, {5, kInfinity}, {-kInfinity, kNaN}, {10, 20}};
  ASSERT_TRUE(region.Update(points, PointList(5, {kNaN, 2})));
  EXPECT_THAT(pixels(region), ElementsAre(1, 0, 0, 1));
  EXPECT_THAT(pixels(region, 3), Each(0)) << "a NaN replaces no maximum";
  ASSERT_TRUE(region.Update({{3, 0}, {3, 1}}, PointList(2)));  // dx = 0
  EXPECT_THAT(pixels(region), Each(0));
  EXPECT_TRUE(region.IsValid());
}

constexpr const char* kGrid =
    "Grid must be at least 2x2. Please call Resize() to allocate the feedback images before "
    "calling Update().";
constexpr const char* kTwoPoints =
    "At least two points must be added to calculate the calibrated region";
constexpr const char* kLength = "The amount of residuals must match the amount of points.";

TEST(CalibratedRegion, RefusesWithoutChange) {
  struct Case {
    int width, height;
    std::vector<std::size_t> points, residuals;  // lengths of the lists
    const char* text;
  };
  const Case cases[] = {{0, 0, {2}, {2}, kGrid},           {1, 5, {2}, {2}, kGrid},
                        {5, 1, {2}, {2}, kGrid},           {2, 2, {1}, {1}, kTwoPoints},
                        {2, 2, {3}, {2}, kLength},         {2, 2, {2, 3}, {3, 2}, kLength},
                        {2, 2, {2, 2}, {2}, kLength},      {2, 2, {2}, {2, 2}, kLength},
                        {2, 2, {0, 1}, {0, 1}, kTwoPoints}};
  for (const Case& row : cases) {
    SCOPED_TRACE(&row - cases);
    CalibratedRegion region = regionOf(row.width, row.height);
    const auto lists = [](const std::vector<std::size_t>& lengths) {
      etl::Vector<PointList> filled;
      for (const std::size_t length : lengths)
        filled.emplace_back(length, cmnalg::Vec<2, double>{});
      return filled;
    };
    const Pixels before = pixels(region);
    const WarningCapture log;
    EXPECT_FALSE(row.points.size() == 1 && row.residuals.size() == 1
                     ? region.Update(PointList(row.points[0]), PointList(row.residuals[0]))
                     : region.Update(lists(row.points), lists(row.residuals)));
    EXPECT_THAT(log.Messages(), ElementsAre(row.text));
    EXPECT_THAT(log.Loggers(), ElementsAre("Image.Planex.Model"));
    EXPECT_EQ(pixels(region), before);
  }
  CalibratedRegion region = regionOf(3, 2);
  const WarningCapture log;
  EXPECT_FALSE(region.Update(etl::Vector<PointList>(), {}));
  EXPECT_FALSE(region.Update({{3, 0}, {3, kNaN}}, PointList(2)));
  EXPECT_FALSE(region.Resize(-1, 2));
  EXPECT_FALSE(region.Resize(1 << 20, 1 << 20));
  EXPECT_THAT(log.Messages(), ElementsAre("At least one point list must be supplied.", kTwoPoints,
                                          "Cannot create image with negative width or height.",
                                          "Failed to allocate."));
  EXPECT_EQ(pixels(region), Pixels(6));
}

TEST(CalibratedRegion, CopiesShareUntilOneChanges) {
  CalibratedRegion region = regionOf(2, 2);
  ASSERT_TRUE(region.Update(etl::Vector<PointList>{{{0, 0}}, {}, {{10, 10}, {1, 1}}},
                            etl::Vector<PointList>{{{1, 0}}, {}, {{2, 0}, {3, 0}}}));
  CalibratedRegion updated = region;
  CalibratedRegion resized = region;
  ASSERT_TRUE(updated.Update({{0, 10}, {10, 0}}, {{5, 5}, {6, 6}}));
  ASSERT_TRUE(resized.Resize(2, 2));
  imagesOf(region)[0].SetPixel(0, 0, 77);
  EXPECT_THAT(pixels(region), ElementsAre(2, 0, 0, 1));
  EXPECT_THAT(pixels(region, 1), ElementsAre(2, 0, 0, 2));
  EXPECT_THAT(pixels(updated), ElementsAre(0, 1, 1, 0));
  EXPECT_THAT(pixels(resized), Each(0));
}

}  // namespace
}  // namespace datafusion::planex
