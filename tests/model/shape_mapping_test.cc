#include "planex/model/shape_mapping.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <tuple>

#include "planex/model/calibrated_bounds.h"
#include "planex/model/outline_sampling.h"
#include "tests/support/model_builders.h"
#include "tests/support/refusals.h"

namespace datafusion::planex {
namespace {

using cmnalg::Vec;
using cmnalg::shape::Polyline;
using cmnalg::shape::Rectangle;
using cmnalg::shape3d::Box;
using PointList = etl::Vector<Vec<3, double>>;

constexpr auto kPixel = CoordinateSystem::Pixel;
constexpr auto kCalibrated = CoordinateSystem::Calibrated;
constexpr int kIntMax = std::numeric_limits<int>::max();

TEST(MapBox, PointsAreTheGridOfTheSurfaceEachOnce) {
  Box box = Box::FromCorners({-1, -2, -3}, {1, 2, 3});
  // A quarter turn about Z: the box reaches 2 along X and 1 along profiles, around (10, 20, 30).
  ASSERT_TRUE(
      box.Pose.Create3D(test::matrix(4, 4, {0, -1, 0, 10, 1, 0, 0, 20, 0, 0, 1, 30, 0, 0, 0, 1}),
                        cmnalg::math::TransformType::RIGID));
  for (const int n : {0, 1, 3, 7}) {  // steps of a power of two: exact
    PointList points, want;
    const auto at = [n](int index) { return -1 + index * 2.0 / (n + 1); };
    for (int i = 0; i <= n + 1; ++i) {
      for (int j = 0; j <= n + 1; ++j) {
        for (int k = 0; k <= n + 1; ++k) {
          const bool inside = std::min({i, j, k}) > 0 && std::max({i, j, k}) <= n;
          if (!inside) want.push_back({10 + at(i) * 2, 20 + at(j), 30 + at(k) * 3});
        }
      }
    }
    ASSERT_TRUE(mapBox(test::plainModel(), box, points, kPixel, kPixel, 0, 1, n));
    if (n == 1) {  // ring by ring, then the end faces
      const PointList ring = {{10, 19, 27}, {10, 20, 27}, {10, 21, 27}, {10, 21, 30},
                              {10, 21, 33}, {10, 20, 33}, {10, 19, 33}, {10, 19, 30}};
      EXPECT_EQ(PointList(points.begin() + 8, points.begin() + 16), ring);
      EXPECT_EQ(PointList(points.begin() + 24, points.end()),
                (PointList{{12, 20, 30}, {8, 20, 30}}));
    }
    std::sort(points.begin(), points.end(), [](const auto& a, const auto& b) {
      return std::tie(a.x, a.y, a.z) < std::tie(b.x, b.y, b.z);
    });
    EXPECT_EQ(points, want) << n;
  }
  ASSERT_TRUE(mapBox(test::plainModel(), box, box, kPixel, kCalibrated, 100, 0.5, 0));
  EXPECT_EQ(box.Size, (Vec<3, double>{4, 1, 6}));
  EXPECT_EQ(cmnalg::math::ApplyTransform(box.Pose, {0, 0, 0}), (Vec<3, double>{10, 110, 30}));
  EXPECT_FALSE(mapBox(CalibrationModel(), box, box, kPixel, kCalibrated, 100, 0.5, 0));
  EXPECT_EQ(box.Size, (Vec<3, double>{4, 1, 6}));
}

TEST(ImageBounds, AreThoseOfTheFirstAndTheLastPixel) {
  cmnalg::Image image(cmnalg::IMAGE_TYPE_UINT8, 4, 3, cmnalg::Image::s_defaultImageAllocator);
  image.PixelSize = {0.5, 2, 7};
  image.Origin = {10, 20, 30};
  Vec<3, double> min, max;
  ASSERT_TRUE(
      calculateImageBounds(test::plainModel(), image, 3, 9, min, max, kPixel, kCalibrated, 0));
  EXPECT_EQ(min, (Vec<3, double>{10, 20, 3}));
  EXPECT_EQ(max, (Vec<3, double>{11.5, 24, 9}));
}

TEST(MapRectangle, OutlineByHand) {
  Polyline outline;
  Rectangle area{{10, 20}, 4, 8, std::acos(0.0)};
  ASSERT_TRUE(mapRectangle(test::plainModel(), area, outline, kPixel, kCalibrated, 1));
  const Vec<2, double> kWant[] = {{14, 18}, {14, 20}, {14, 22}, {10, 22},
                                  {6, 22},  {6, 20},  {6, 18},  {10, 18}};
  ASSERT_EQ(outline.Points.size(), 8U);
  for (std::size_t i = 0; i < 8; ++i) {
    EXPECT_NEAR(outline.Points[i].x, kWant[i].x, 1e-14);  // rounding of sine and cosine
    EXPECT_NEAR(outline.Points[i].y, kWant[i].y, 1e-14);
  }
  area.Rotation = 0;
  ASSERT_TRUE(mapRectangle(test::plainModel(), area, area, kPixel, kCalibrated, 1));
  EXPECT_EQ(area.Center, (Vec<2, double>{10, 20}));
  EXPECT_TRUE(area.Width == 4 && area.Height == 8);
}

TEST(ShapeMapping, CountsNeverWrap) {
  EXPECT_EQ(boxPointCount(0), 8U);
  EXPECT_EQ(boxPointCount(100000), 60001200008U);
  EXPECT_EQ(boxPointCount(kIntMax), std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(rectanglePointCount(kIntMax), std::uint64_t{1} << 33);
}

struct Sampling {
  CalibrationModel model = test::plainModel();
  int n = 0;
  double zMin = 1;
};
const char* const kOrder =
    "Range limits for Z must be in proper order. Minimum must be a smaller value than maximum.";
const char* const kSign = "Supersampling must be zero or positive.";
const char* const kMemory = "The points of this supersampling do not fit into memory.";
const char* const kState = "Operation failed because it was called with uncalibrated model.";
/// The texts without and with limits of Z.
const test::Check<Sampling> kChecks[] = {
    {[](auto& a) { a.zMin = 5; }, nullptr, kOrder},
    {[](auto& a) { a.zMin = 4; }, nullptr, nullptr},
    {[](auto& a) { a.zMin = std::nan(""); }, nullptr, nullptr},
    {[](auto& a) { a.n = -1; }, kSign, kSign},
    {[](auto& a) { a.n = -kIntMax - 1; }, kSign, kSign},
    {[](auto& a) { a.n = kIntMax; }, kMemory, kMemory},
    {[](auto& a) { a.model = CalibrationModel(); }, kState, kState},
};

TEST(ShapeMapping, RefusesInOrder) {
  const auto mapImage = [](Sampling& a) {
    Vec<3, double> min, max;
    return calculateImageBounds(a.model, cmnalg::Image(), a.zMin, 4, min, max, kPixel, kCalibrated,
                                a.n);
  };
  expectChecksInOrder(kChecks, mapImage, &test::Check<Sampling>::other);
  // A machine that can hold the outline would map it.
  const auto memory =
      static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGE_SIZE));
  if (memory >= 16.0 * 4 * kIntMax) return;
  expectChecksInOrder(kChecks, [](Sampling& a) {
    Rectangle area{{0, 0}, 1, 1, 0};
    const bool done = mapRectangle(a.model, area, area, kPixel, kCalibrated, a.n);
    EXPECT_EQ(std::isnan(area.Center.x) && std::isnan(area.Center.y), !done);
    return done;
  });
}

}  // namespace
}  // namespace datafusion::planex
