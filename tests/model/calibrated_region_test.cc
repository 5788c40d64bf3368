#include "planex/model/calibrated_region.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "tests/support/refusals.h"

namespace datafusion::planex {
namespace {

using cmnalg::Image;
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

/// The pixels of point counts, mean and largest residuals in X and in Z.
std::vector<Pixels> contents(const CalibratedRegion& region) {
  std::vector<Image> images(5);
  EXPECT_TRUE(region.GetPointCount(images[0]));
  EXPECT_TRUE(region.GetAverageResiduals(images[1], images[2]));
  EXPECT_TRUE(region.GetMaximumResiduals(images[3], images[4]));
  std::vector<Pixels> all(5);
  for (std::size_t i = 0; i < 5; ++i) {
    EXPECT_EQ(images[i].GetType(), i == 0 ? cmnalg::IMAGE_TYPE_INT32 : cmnalg::IMAGE_TYPE_FLOAT32);
    EXPECT_EQ(images[i].PixelSize, images[0].PixelSize);
    EXPECT_EQ(images[i].Origin, images[0].Origin);
    for (int y = 0; y < images[0].GetHeight(); ++y) {
      for (int x = 0; x < images[0].GetWidth(); ++x) all[i].push_back(images[i].GetPixel(x, y));
    }
  }
  return all;
}

TEST(CalibratedRegion, FillsCellsFromPointsAndResiduals) {
  CalibratedRegion region = regionOf(3, 2);
  // Cells of 4 x 3 from (-5, 1) on. X = -1 is the border of two columns and goes right.
  const PointList points = {{-5, 1}, {7, 7},         {kNaN, 5}, {-2, 3.9},
                            {-1, 1}, {5, kInfinity}, {6.9, 6.9}};
  const PointList residuals = {{1, -3}, {-1.5, 0.75}, {9, 9},     {-3, 1},
                               {2, -2}, {9, 9},       {0.5, 0.25}};
  for (int round = 0; round < 2; ++round) {  // starts from 0 each time
    ASSERT_TRUE(region.Update(points, residuals));
    EXPECT_THAT(contents(region),
                ElementsAre(Pixels{2, 1, 0, 0, 0, 2}, Pixels{-1, 2, 0, 0, 0, -0.5},
                            Pixels{-1, -2, 0, 0, 0, 0.5}, Pixels{3, 2, 0, 0, 0, 1.5},
                            Pixels{3, 2, 0, 0, 0, 0.75}));
  }
  Image count;
  region.GetPointCount(count);
  EXPECT_EQ(count.PixelSize, (cmnalg::Vec<3, double>{4, 3, 1}));
  EXPECT_EQ(count.Origin, (cmnalg::Vec<3, double>{-3, 2.5, 0}));
  cmnalg::shape::Rectangle area;
  area.Rotation = 1;
  ASSERT_TRUE(region.GetRegion(area));
  EXPECT_EQ(area.Center, (cmnalg::Vec<2, double>{1, 4}));
  EXPECT_TRUE(area.Width == 12 && area.Height == 6 && area.Rotation == 0);
  EXPECT_FALSE(CalibratedRegion().GetRegion(area));
  EXPECT_TRUE(std::isnan(area.Width) && std::isnan(area.Height));

  ASSERT_TRUE(region.Update({{3, 0}, {3, 1}}, PointList(2)));  // no width: in no cell
  EXPECT_EQ(contents(region)[0], Pixels(6));
  ASSERT_TRUE(region.Update({{0, 0}, {1, 1}}, PointList(2, {kNaN, 0})));
  EXPECT_EQ(contents(region)[3], Pixels(6)) << "a NaN replaces no maximum";
}

constexpr const char* kGrid =
    "Grid must be at least 2x2. Please call Resize() to allocate the feedback images before "
    "calling Update().";
constexpr const char* kTwoPoints =
    "At least two points must be added to calculate the calibrated region";
constexpr const char* kLength = "The amount of residuals must match the amount of points.";

TEST(CalibratedRegion, RefusesWithoutChange) {
  const struct {
    int width, height;
    std::vector<std::size_t> points, residuals;  // lengths of the lists
    const char* text;
  } rows[] = {{2, 2, {}, {}, "At least one point list must be supplied."},
              {0, 0, {2}, {2}, kGrid},
              {1, 5, {2}, {2}, kGrid},
              {5, 1, {2}, {2}, kGrid},
              {2, 2, {0, 1}, {0, 1}, kTwoPoints},
              {2, 2, {2, 3}, {3, 2}, kLength},
              {2, 2, {2, 2}, {2}, kLength},
              {2, 2, {2}, {2, 2}, kLength}};
  for (const auto& row : rows) {
    etl::Vector<PointList> points, residuals;
    for (const std::size_t length : row.points) points.emplace_back(length);
    for (const std::size_t length : row.residuals) residuals.emplace_back(length);
    CalibratedRegion region = regionOf(row.width, row.height);
    test::LogCapture log;
    EXPECT_FALSE(region.Update(points, residuals));
    EXPECT_EQ(log.TakeOne("Image.Planex.Model"), test::warning(row.text));
  }
  CalibratedRegion region = regionOf(2, 2);
  const etl::Vector<PointList> lists = {{{0, 0}}, {}, {{10, 10}, {1, 1}}};
  ASSERT_TRUE(region.Update(lists, lists));
  test::LogCapture log;
  EXPECT_FALSE(region.Update({{3, 0}, {3, kNaN}}, PointList(2)));
  EXPECT_EQ(log.TakeOne(), test::warning(kTwoPoints));
  EXPECT_FALSE(region.Update(PointList(3), PointList(2)));
  EXPECT_FALSE(region.Resize(-1, 2) || region.Resize(1 << 20, 1 << 20));
  EXPECT_EQ(contents(region)[0], (Pixels{2, 0, 0, 1}));
  EXPECT_EQ(contents(region)[1], (Pixels{0.5, 0, 0, 10}));
}

TEST(CalibratedRegion, TakesImagesOfOneSize) {
  CalibratedRegion region = regionOf(3, 2);
  ASSERT_TRUE(region.Update({{-5, 1}, {7, 7}, {1, 6}}, {{1, -3}, {-2, 0.75}, {9, 8}}));
  Image count, mean[2], maximum[2];
  ASSERT_TRUE(region.GetPointCount(count) && region.GetAverageResiduals(mean[0], mean[1]) &&
              region.GetMaximumResiduals(maximum[0], maximum[1]));
  CalibratedRegion other = regionOf(1, 1);
  const CalibratedRegion before = other;
  mean[1].Origin.x = 1e6;  // of no matter
  const struct {
    const Image &count, &mean;
  } wrong[] = {{mean[0], mean[0]}, {count, count}, {count, Image()}};
  for (const auto& row : wrong) {
    test::LogCapture log;
    EXPECT_FALSE(other.SetImages(row.count, row.mean, mean[1], maximum[0], maximum[1]));
    EXPECT_EQ(log.TakeOne(), test::warning("The images of a calibrated region must be of one size, "
                                           "counts in INT32 and residuals in FLOAT32."));
  }
  EXPECT_EQ(contents(other), contents(before));
  ASSERT_TRUE(other.SetImages(count, mean[0], mean[1], maximum[0], maximum[1]));
  EXPECT_EQ(contents(other), contents(region));
}

TEST(CalibratedRegion, CopiesShareUntilOneChanges) {
  CalibratedRegion region = regionOf(2, 2);
  ASSERT_TRUE(region.Update({{0, 0}, {10, 10}}, PointList(2)));
  CalibratedRegion updated = region;
  CalibratedRegion resized = region;
  ASSERT_TRUE(updated.Update({{0, 10}, {10, 0}}, PointList(2)));
  ASSERT_TRUE(resized.Resize(2, 2));
  Image count;
  region.GetPointCount(count);
  count.SetPixel(0, 0, 77);
  EXPECT_EQ(contents(region)[0], (Pixels{1, 0, 0, 1}));
}

}  // namespace
}  // namespace datafusion::planex
