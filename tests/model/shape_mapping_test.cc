#include "planex/model/shape_mapping.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <tuple>

#include "planex/model/outline_sampling.h"
#include "planex/model/point_mapping.h"
#include "tests/support/model_builders.h"
#include "tests/support/warning_capture.h"

namespace datafusion::planex {
namespace {

using cmnalg::Vec;
using cmnalg::math::TransformType;
using cmnalg::shape::Polyline;
using cmnalg::shape::Rectangle;
using cmnalg::shape3d::Box;
using PointList = etl::Vector<Vec<3, double>>;

constexpr auto kPixel = CoordinateSystem::Pixel;
constexpr auto kCalibrated = CoordinateSystem::Calibrated;
constexpr auto kAligned = CoordinateSystem::Aligned;
constexpr int kIntMax = std::numeric_limits<int>::max();

/// The points as they are sampled: between equal systems nothing is mapped.
PointList samplesOf(const Box& box, int supersampling) {
  PointList points;
  EXPECT_TRUE(
      mapBox(test::plainModel(), box, points, kCalibrated, kCalibrated, 0, 1, supersampling));
  return points;
}

TEST(MapBox, PointsComeRingByRingThenTheEndFaces) {
  const Box box = Box::FromCorners({-1, -2, -3}, {1, 2, 3});
  const PointList kCorners = {{-1, -2, -3}, {1, -2, -3}, {1, -2, 3}, {-1, -2, 3},
                              {-1, 2, -3},  {1, 2, -3},  {1, 2, 3},  {-1, 2, 3}};
  EXPECT_EQ(samplesOf(box, 0), kCorners);

  const PointList points = samplesOf(box, 1);
  ASSERT_EQ(points.size(), 26U);
  const PointList kMiddleRing = {{-1, 0, -3}, {0, 0, -3}, {1, 0, -3}, {1, 0, 0},
                                 {1, 0, 3},   {0, 0, 3},  {-1, 0, 3}, {-1, 0, 0}};
  EXPECT_EQ(PointList(points.begin() + 8, points.begin() + 16), kMiddleRing);
  EXPECT_EQ(PointList(points.begin() + 24, points.end()), (PointList{{0, -2, 0}, {0, 2, 0}}));

  const PointList faces = samplesOf(Box::FromCorners({-2, -2, -2}, {2, 2, 2}), 3);
  ASSERT_EQ(faces.size(), 98U);
  EXPECT_EQ(PointList(faces.begin() + 80, faces.begin() + 84),
            (PointList{{-1, -2, -1}, {0, -2, -1}, {1, -2, -1}, {-1, -2, 0}}));
  EXPECT_EQ(faces[89], (Vec<3, double>{-1, 2, -1}));
}

TEST(MapBox, PointsAreTheGridOfTheSurfaceEachOnce) {
  for (const int n : {0, 1, 2, 3, 7}) {
    const int last = n + 1;
    PointList want;
    for (int i = 0; i <= last; ++i) {
      for (int j = 0; j <= last; ++j) {
        for (int k = 0; k <= last; ++k) {
          const bool inside = std::min({i, j, k}) > 0 && std::max({i, j, k}) < last;
          const auto at = [last](int index) { return -1 + index * 2.0 / last; };
          if (!inside) want.push_back({at(i), at(j) * 2, at(k) * 3});
        }
      }
    }
    PointList points = samplesOf(Box::FromCorners({-1, -2, -3}, {1, 2, 3}), n);
    const auto order = [](const Vec<3, double>& a, const Vec<3, double>& b) {
      return std::tie(a.x, a.y, a.z) < std::tie(b.x, b.y, b.z);
    };
    std::sort(points.begin(), points.end(), order);
    ASSERT_EQ(points.size(), want.size()) << n;
    for (std::size_t i = 0; i < want.size(); ++i) {
      EXPECT_NEAR(points[i].x, want[i].x, 1e-15) << n;
      EXPECT_NEAR(points[i].y, want[i].y, 1e-15) << n;
      EXPECT_NEAR(points[i].z, want[i].z, 1e-15) << n;
    }
  }
}

TEST(MapBox, PosesScalesAndOffsetsByHand) {
  // A quarter turn about Z: the box reaches 2 along X and 1 along profiles, around (10, 20, 30).
  Box box;
  box.Size = {2, 4, 6};
  ASSERT_TRUE(
      box.Pose.Create3D(test::matrix(4, 4, {0, -1, 0, 10, 1, 0, 0, 20, 0, 0, 1, 30, 0, 0, 0, 1}),
                        TransformType::RIGID));
  const CalibrationModel model = test::plainModel();
  Vec<3, double> min;
  Vec<3, double> max;
  ASSERT_TRUE(mapBox(model, box, min, max, kPixel, kCalibrated, 100, 0.5, 0));
  EXPECT_EQ(min, (Vec<3, double>{8, 109.5, 27}));
  EXPECT_EQ(max, (Vec<3, double>{12, 110.5, 33}));

  ASSERT_TRUE(mapBox(model, box, box, kPixel, kCalibrated, 100, 0.5, 0));
  EXPECT_EQ(box.Size, (Vec<3, double>{4, 1, 6}));
  EXPECT_EQ(cmnalg::math::ApplyTransform(box.Pose, {0, 0, 0}), (Vec<3, double>{10, 110, 30}));
}

TEST(MapBox, NanStaysInTheFirstPointOnly) {
  CalibrationModel model = test::plainModel();
  model.Homography = test::matrix(3, 3, {1, 0, 0, 0, 1, 0, 1, 0, 0});  // X = x / x, Z = y / x
  Vec<3, double> min;
  Vec<3, double> max;
  ASSERT_TRUE(mapBox(model, Box::FromCorners({0, 0, 0}, {2, 1, 2}), min, max, kPixel, kCalibrated,
                     0, 1, 0));
  EXPECT_TRUE(std::isnan(min.x) && std::isnan(max.x) && std::isnan(min.z));
  EXPECT_EQ(max.y, 1);

  ASSERT_TRUE(mapBox(model, Box::FromCorners({-2, 0, -2}, {0, 1, 0}), min, max, kPixel, kCalibrated,
                     0, 1, 0));
  EXPECT_EQ(min, (Vec<3, double>{1, 0, -std::numeric_limits<double>::infinity()}));
  EXPECT_EQ(max, (Vec<3, double>{1, 1, 1}));
}

// A smooth mapping has its extremes on the surface, so the bounds are those of the whole grid.
TEST(MapBox, BoundsAreThoseOfTheWholeGrid) {
  std::mt19937 random(24);
  const auto draw = [&random](double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random);
  };
  for (int round = 0; round < 50; ++round) {
    const CalibrationModel model = test::randomModel(random);
    const Vec<3, double> a{draw(0, 1000), draw(0, 100), draw(0, 400)};
    const Vec<3, double> b{draw(1500, 2560), draw(200, 300), draw(600, 1000)};
    const int n = static_cast<int>(random() % 6);
    const double yOffset = draw(-10, 10);
    const double yScale = draw(-1, 1);
    const CoordinateSystem to = round % 2 == 0 ? kCalibrated : kAligned;

    PointList grid;
    const auto at = [n](double first, double last, int i) {
      return first + (last - first) * i / (n + 1);
    };
    for (int i = 0; i <= n + 1; ++i) {
      for (int j = 0; j <= n + 1; ++j) {
        for (int k = 0; k <= n + 1; ++k) {
          grid.push_back({at(a.x, b.x, i), at(a.y, b.y, j), at(a.z, b.z, k)});
        }
      }
    }
    ASSERT_TRUE(mapPoints<double>(model, grid, grid, kPixel, to, yOffset, yScale));

    Vec<3, double> min;
    Vec<3, double> max;
    ASSERT_TRUE(mapBox(model, Box::FromCorners(a, b), min, max, kPixel, to, yOffset, yScale, n));
    for (double Vec<3, double>::*member :
         {&Vec<3, double>::x, &Vec<3, double>::y, &Vec<3, double>::z}) {
      const auto ends = std::minmax_element(
          grid.begin(), grid.end(),
          [member](const auto& p, const auto& q) { return p.*member < q.*member; });
      // Samples around the centre of a box and from its corner differ in the last digits.
      EXPECT_NEAR(min.*member, *ends.first.*member, 1e-9) << round;
      EXPECT_NEAR(max.*member, *ends.second.*member, 1e-9) << round;
    }
  }
}

TEST(MapRectangle, OutlineByHand) {
  const Rectangle rectangle{{10, 20}, 4, 8, 0};
  Polyline outline;
  ASSERT_TRUE(mapRectangle(test::plainModel(), rectangle, outline, kPixel, kCalibrated, 3));
  const etl::Vector<Vec<2, double>> kWant = {
      {8, 16},  {9, 16},  {10, 16}, {11, 16}, {12, 16}, {12, 18}, {12, 20}, {12, 22},
      {12, 24}, {11, 24}, {10, 24}, {9, 24},  {8, 24},  {8, 22},  {8, 20},  {8, 18}};
  EXPECT_EQ(outline.Points, kWant);

  CalibrationModel model = test::plainModel();  // Z = y + x^2 / 4: lowest where only samples are
  model.setSheetCurve(0, 0, 0, 0, 0.25, 0);
  Rectangle bounds{{0, 0}, 4, 2, 0};
  ASSERT_TRUE(mapRectangle(model, bounds, bounds, kPixel, kCalibrated, 0));
  EXPECT_EQ(bounds.Center, (Vec<2, double>{0, 1}));
  EXPECT_EQ(bounds.Height, 2);
  bounds = {{0, 0}, 4, 2, 0};
  ASSERT_TRUE(mapRectangle(model, bounds, bounds, kPixel, kCalibrated, 1));
  EXPECT_EQ(bounds.Center, (Vec<2, double>{0, 0.5}));
  EXPECT_EQ(bounds.Width, 4);
  EXPECT_EQ(bounds.Height, 3);
}

TEST(ShapeMapping, CountsNeverWrap) {
  EXPECT_EQ(boxPointCount(0), 8U);
  EXPECT_EQ(boxPointCount(100000), 60001200008U);
  EXPECT_EQ(boxPointCount(kIntMax), std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(rectanglePointCount(0), 4U);
  EXPECT_EQ(rectanglePointCount(kIntMax), std::uint64_t{1} << 33);
}

struct Refusal {
  const char* name;
  ModelState state;
  int supersampling;
  const char* message;
};
const Refusal kRefusals[] = {
    {"NegativeBeforeState", ModelState::UNCALIBRATED, -1,
     "Supersampling must be zero or positive."},
    {"LeastInt", ModelState::CALIBRATED, std::numeric_limits<int>::min(),
     "Supersampling must be zero or positive."},
    {"Uncalibrated", ModelState::UNCALIBRATED, 0,
     "Operation failed because it was called with uncalibrated model."},
    {"NoMemory", ModelState::CALIBRATED, kIntMax,
     "The points of this supersampling do not fit into memory."},
};

TEST(ShapeMapping, RefusalsLeaveTheOutputs) {
  for (const Refusal& c : kRefusals) {
    SCOPED_TRACE(c.name);
    CalibrationModel model = test::plainModel();
    model.CurrentState = c.state;
    const auto expectOne = [&c](const WarningCapture& log) {
      EXPECT_EQ(log.Messages(), std::vector<std::string>{c.message});
      EXPECT_EQ(log.Loggers(), std::vector<std::string>{"Image.Calibration.Planex"});
    };
    const Box box = Box::FromCorners({0, 0, 0}, {1, 1, 1});
    const int n = c.supersampling;
    {
      const WarningCapture log;
      PointList points = {{1, 2, 3}};
      EXPECT_FALSE(mapBox(model, box, points, kPixel, kCalibrated, 0, 1, n));
      EXPECT_EQ(points, (PointList{{1, 2, 3}}));
      expectOne(log);
    }
    {
      const WarningCapture log;
      Vec<3, double> min{1, 2, 3};
      Vec<3, double> max{4, 5, 6};
      EXPECT_FALSE(mapBox(model, box, min, max, kPixel, kCalibrated, 0, 1, n));
      EXPECT_EQ(min, (Vec<3, double>{1, 2, 3}));
      EXPECT_EQ(max, (Vec<3, double>{4, 5, 6}));
      expectOne(log);
    }
    {
      const WarningCapture log;
      Box out = box;
      EXPECT_FALSE(mapBox(model, box, out, kPixel, kCalibrated, 0, 1, n));
      EXPECT_EQ(out.Size, box.Size);
      expectOne(log);
    }
    // A machine that can hold the outline would map it.
    const auto memory =
        static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGE_SIZE));
    if (n == kIntMax && memory >= 16.0 * 4 * 2147483648.0) continue;
    {
      const WarningCapture log;
      Polyline outline{{{1, 2}}};
      EXPECT_FALSE(mapRectangle(model, {{0, 0}, 1, 1, 0}, outline, kPixel, kCalibrated, n));
      EXPECT_EQ(outline.Points, (etl::Vector<Vec<2, double>>{{1, 2}}));
      expectOne(log);
    }
    {
      const WarningCapture log;
      Rectangle out{{1, 2}, 3, 4, 5};
      EXPECT_FALSE(mapRectangle(model, {{0, 0}, 1, 1, 0}, out, kPixel, kCalibrated, n));
      EXPECT_TRUE(std::isnan(out.Center.x) && std::isnan(out.Center.y));
      EXPECT_EQ(out.Width, 3);
      expectOne(log);
    }
  }
}

}  // namespace
}  // namespace datafusion::planex
