#include "planex/model/shape_mapping.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <tuple>

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

/// The points as they are sampled: between equal systems nothing is mapped.
PointList samplesOf(const Box& box, int n) {
  PointList points;
  EXPECT_TRUE(mapBox(test::plainModel(), box, points, kCalibrated, kCalibrated, 0, 1, n));
  return points;
}

TEST(MapBox, PointsComeRingByRingThenTheEndFaces) {
  const PointList points = samplesOf(Box::FromCorners({-1, -2, -3}, {1, 2, 3}), 1);
  const PointList middleRing = {{-1, 0, -3}, {0, 0, -3}, {1, 0, -3}, {1, 0, 0},
                                {1, 0, 3},   {0, 0, 3},  {-1, 0, 3}, {-1, 0, 0}};
  EXPECT_EQ(PointList(points.begin() + 8, points.begin() + 16), middleRing);
  EXPECT_EQ(PointList(points.begin() + 24, points.end()), (PointList{{0, -2, 0}, {0, 2, 0}}));
}

TEST(MapBox, PointsAreTheGridOfTheSurfaceEachOnce) {
  for (const int n : {0, 1, 3, 7}) {  // steps of a power of two: exact
    PointList want;
    const auto at = [n](int index) { return -1 + index * 2.0 / (n + 1); };
    for (int i = 0; i <= n + 1; ++i) {
      for (int j = 0; j <= n + 1; ++j) {
        for (int k = 0; k <= n + 1; ++k) {
          const bool inside = std::min({i, j, k}) > 0 && std::max({i, j, k}) <= n;
          if (!inside) want.push_back({at(i), at(j) * 2, at(k) * 3});
        }
      }
    }
    PointList points = samplesOf(Box::FromCorners({-1, -2, -3}, {1, 2, 3}), n);
    std::sort(points.begin(), points.end(), [](const auto& a, const auto& b) {
      return std::tie(a.x, a.y, a.z) < std::tie(b.x, b.y, b.z);
    });
    EXPECT_EQ(points, want) << n;
  }
}

TEST(MapBox, PosesScalesAndOffsetsByHand) {
  // A quarter turn about Z: the box reaches 2 along X and 1 along profiles, around (10, 20, 30).
  Box box;
  box.Size = {2, 4, 6};
  ASSERT_TRUE(
      box.Pose.Create3D(test::matrix(4, 4, {0, -1, 0, 10, 1, 0, 0, 20, 0, 0, 1, 30, 0, 0, 0, 1}),
                        cmnalg::math::TransformType::RIGID));
  Vec<3, double> min;
  Vec<3, double> max;
  ASSERT_TRUE(mapBox(test::plainModel(), box, min, max, kPixel, kCalibrated, 100, 0.5, 0));
  EXPECT_EQ(min, (Vec<3, double>{8, 109.5, 27}));
  EXPECT_EQ(max, (Vec<3, double>{12, 110.5, 33}));
  ASSERT_TRUE(mapBox(test::plainModel(), box, box, kPixel, kCalibrated, 100, 0.5, 0));
  EXPECT_EQ(box.Size, (Vec<3, double>{4, 1, 6}));
  EXPECT_EQ(cmnalg::math::ApplyTransform(box.Pose, {0, 0, 0}), (Vec<3, double>{10, 110, 30}));
}

TEST(MapRectangle, OutlineByHand) {
  Polyline outline;
  ASSERT_TRUE(
      mapRectangle(test::plainModel(), {{10, 20}, 4, 8, 0}, outline, kPixel, kCalibrated, 1));
  const etl::Vector<Vec<2, double>> kWant = {{8, 16},  {10, 16}, {12, 16}, {12, 20},
                                             {12, 24}, {10, 24}, {8, 24},  {8, 20}};
  EXPECT_EQ(outline.Points, kWant);
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
};
const test::Check<Sampling> kChecks[] = {
    {[](auto& a) { a.n = -1; }, "Supersampling must be zero or positive."},
    {[](auto& a) { a.n = -kIntMax - 1; }, "Supersampling must be zero or positive."},
    {[](auto& a) { a.n = kIntMax; }, "The points of this supersampling do not fit into memory."},
    {[](auto& a) { a.model = CalibrationModel(); },
     "Operation failed because it was called with uncalibrated model."},
};

TEST(ShapeMapping, RefusesInOrder) {
  expectChecksInOrder(kChecks, [](Sampling& a) {
    PointList points;
    return mapBox(a.model, Box::FromCorners({0, 0, 0}, {1, 1, 1}), points, kPixel, kCalibrated, 0,
                  1, a.n);
  });
  // A machine that can hold the outline would map it.
  const auto memory =
      static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGE_SIZE));
  if (memory >= 16.0 * 4 * kIntMax) return;
  expectChecksInOrder(kChecks, [](Sampling& a) {
    Polyline outline;
    return mapRectangle(a.model, {{0, 0}, 1, 1, 0}, outline, kPixel, kCalibrated, a.n);
  });
}

}  // namespace
}  // namespace datafusion::planex
