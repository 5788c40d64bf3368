#include "planex/model/calibrated_bounds.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "planex/model/point_mapping.h"
#include "tests/support/model_builders.h"
#include "tests/support/warning_capture.h"

namespace datafusion::planex {
namespace {

using cmnalg::Vec;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kLargest = std::numeric_limits<double>::max();

struct Bounds {
  Vec<2, double> min{11, 12};
  Vec<2, double> max{13, 14};
  double slope = 15;
  double offset = 16;
};

/// X = x / (1 - y / 100) and Z = y / (1 - y / 100), hence X = x (1 + Z / 100).
CalibrationModel wideningModel() {
  CalibrationModel model = test::plainModel();
  model.Homography = test::matrix(3, 3, {1, 0, 0, 0, 1, 0, 0, -0.01, 1});
  return model;
}

/// X = 0.6 x - 0.8 y, Z = 0.8 x + 0.6 y: the ends of a row differ in Z, too.
CalibrationModel turnedModel() {
  CalibrationModel model = test::plainModel();
  model.Homography = test::matrix(3, 3, {0.6, -0.8, 0, 0.8, 0.6, 0, 0, 0, 1});
  return model;
}

TEST(CalibratedBounds, ByHand) {
  struct Case {
    const char* name;
    CalibrationModel model;
    Vec<2, double> pixMin, pixMax;
    Bounds want;
  };
  const Case kCases[] = {
      {"Plain", test::plainModel(), {2, 3}, {21, 41}, {{2, 3}, {21, 41}, 0, 1}},
      {"SpacingGrowsWithZ",
       wideningModel(),
       {5, 20},
       {15, 50},
       {{5 / 0.8, 20 / 0.8}, {15 / 0.5, 50 / 0.5}, 0.01, 1}},
      {"DistanceNotDifferenceOfX", turnedModel(), {0, 0}, {10, 20}, {{-16, 0}, {6, 20}, 0, 1}},
      {"OneRowFallsBack", test::plainModel(), {2, 7}, {12, 7}, {{2, 7}, {12, 7}, 1, 1}},
      {"FallbackUsesX", turnedModel(), {0, 5}, {10, 5}, {{-4, 3}, {2, 11}, 1, 0.6}},
      {"Reversed", test::plainModel(), {21, 41}, {2, 3}, {{2, 3}, {21, 41}, 0, -1}},
  };
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.name);
    Bounds got;
    ASSERT_TRUE(calculateCalibratedBounds(c.model, false, c.pixMin, c.pixMax, got.min, got.max,
                                          got.slope, got.offset));
    EXPECT_NEAR(got.min.x, c.want.min.x, 1e-13);
    EXPECT_NEAR(got.min.y, c.want.min.y, 1e-13);
    EXPECT_NEAR(got.max.x, c.want.max.x, 1e-13);
    EXPECT_NEAR(got.max.y, c.want.max.y, 1e-13);
    EXPECT_NEAR(got.slope, c.want.slope, 1e-12);
    EXPECT_NEAR(got.offset, c.want.offset, 1e-12);
  }
}

TEST(CalibratedBounds, ShortFormTakesTheWholeSensor) {
  CalibrationModel model = test::plainModel();
  model.SensorSize = {101, 51};
  Bounds got;
  ASSERT_TRUE(calculateCalibratedBounds(model, false, got.min, got.max, got.slope, got.offset));
  EXPECT_EQ(got.min, (Vec<2, double>{0, 0}));
  EXPECT_EQ(got.max, (Vec<2, double>{100, 50}));

  model.SensorSize = {0, 0};
  ASSERT_TRUE(calculateCalibratedBounds(model, false, got.min, got.max, got.slope, got.offset));
  EXPECT_EQ(got.min, (Vec<2, double>{-1, -1}));
  EXPECT_EQ(got.max, (Vec<2, double>{0, 0}));
}

TEST(CalibratedBounds, OutputsMayBeTheInputs) {
  Vec<2, double> low{5, 20};
  Vec<2, double> high{15, 50};
  double slope = 0;
  double offset = 0;
  ASSERT_TRUE(
      calculateCalibratedBounds(wideningModel(), false, low, high, low, high, slope, offset));
  EXPECT_NEAR(low.x, 5 / 0.8, 1e-13);
  EXPECT_NEAR(high.y, 50 / 0.5, 1e-13);
  EXPECT_NEAR(offset, 1, 1e-12);
}

TEST(CalibratedBounds, EndsAreExactWhateverTheStep) {
  std::mt19937 random(19);
  std::uniform_real_distribution<double> draw(-10, 10);
  for (int round = 0; round < 1000; ++round) {
    const Vec<2, double> low{draw(random), draw(random)};
    const Vec<2, double> high{low.x + 11 + draw(random), low.y + 11 + draw(random)};
    Bounds got;
    ASSERT_TRUE(calculateCalibratedBounds(test::plainModel(), false, low, high, got.min, got.max,
                                          got.slope, got.offset));
    EXPECT_EQ(got.min, low);
    EXPECT_EQ(got.max, high);
  }
}

TEST(CalibratedBounds, EveryInnerColumnIsSampled) {
  for (int lowest = 1; lowest <= 18; ++lowest) {
    CalibrationModel model = test::plainModel();  // Z = y + (x - lowest)^2
    model.setSheetCurve(lowest, 0, 0, 0, 1, 0);
    Bounds got;
    ASSERT_TRUE(calculateCalibratedBounds(model, false, {0, 0}, {19, 5}, got.min, got.max,
                                          got.slope, got.offset));
    EXPECT_EQ(got.min.y, 0) << lowest;
  }
}

/// Mapped one by one, the line through the means.
Bounds slowBounds(const CalibrationModel& model, bool aligned, Vec<2, double> low,
                  Vec<2, double> high) {
  Bounds bounds{{kLargest, kLargest}, {-kLargest, -kLargest}, 0, 0};
  const auto map = [&](double column, double row) {
    etl::Vector<Vec<2, double>> p = {
        {low.x + column * ((high.x - low.x) / 19), low.y + row * ((high.y - low.y) / 19)}};
    EXPECT_TRUE(
        mapPoints<double>(model, p, p, CoordinateSystem::Pixel,
                          aligned ? CoordinateSystem::Aligned : CoordinateSystem::Calibrated));
    bounds.min = {std::min(bounds.min.x, p[0].x), std::min(bounds.min.y, p[0].y)};
    bounds.max = {std::max(bounds.max.x, p[0].x), std::max(bounds.max.y, p[0].y)};
    return p[0];
  };
  std::vector<double> z;
  std::vector<double> r;
  for (int i = 0; i < 20; ++i) {
    const auto left = map(0, i);
    const auto right = map(19, i);
    r.push_back(std::hypot(right.x - left.x, right.y - left.y) / (high.x - low.x));
    z.push_back(map(9.5, i).y);
    map(i, 0);
    map(i, 19);
  }
  double zMean = 0;
  double rMean = 0;
  for (int i = 0; i < 20; ++i) {
    zMean += z[i] / 20;
    rMean += r[i] / 20;
  }
  double above = 0;
  double below = 0;
  for (int i = 0; i < 20; ++i) {
    above += (z[i] - zMean) * (r[i] - rMean);
    below += (z[i] - zMean) * (z[i] - zMean);
  }
  bounds.slope = above / below;
  bounds.offset = rMean - bounds.slope * zMean;
  return bounds;
}

TEST(CalibratedBounds, RandomModelsAgreeWithASlowReference) {
  std::mt19937 random(7);
  const auto draw = [&random](double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random);
  };
  for (int round = 0; round < 100; ++round) {
    SCOPED_TRACE(round);
    const CalibrationModel model = test::randomModel(random);
    const bool aligned = round % 2 == 1;
    const Vec<2, double> low{draw(0, 1000), draw(0, 400)};
    const Vec<2, double> high{draw(1500, 2559), draw(600, 999)};
    const Bounds want = slowBounds(model, aligned, low, high);
    Bounds got;
    ASSERT_TRUE(calculateCalibratedBounds(model, aligned, low, high, got.min, got.max, got.slope,
                                          got.offset));
    // Coordinates are some hundreds, spacings some hundredths; the last row differs by rounding.
    EXPECT_NEAR(got.min.x, want.min.x, 1e-9);
    EXPECT_NEAR(got.min.y, want.min.y, 1e-9);
    EXPECT_NEAR(got.max.x, want.max.x, 1e-9);
    EXPECT_NEAR(got.max.y, want.max.y, 1e-9);
    EXPECT_NEAR(got.slope, want.slope, 1e-11);
    EXPECT_NEAR(got.offset, want.offset, 1e-11);
  }
}

TEST(CalibratedBounds, NanIsLeftOutAndFailuresTouchNothing) {
  Bounds got;
  ASSERT_TRUE(calculateCalibratedBounds(test::plainModel(), false, {0, kNan}, {19, 38}, got.min,
                                        got.max, got.slope, got.offset));
  EXPECT_EQ(got.min, (Vec<2, double>{0, 38}));
  EXPECT_EQ(got.max, (Vec<2, double>{19, 38}));
  EXPECT_EQ(got.slope, 1);
  EXPECT_EQ(got.offset, 1);
  ASSERT_TRUE(calculateCalibratedBounds(test::plainModel(), false, {kNan, kNan}, {kNan, kNan},
                                        got.min, got.max, got.slope, got.offset));
  EXPECT_EQ(got.min, (Vec<2, double>{kLargest, kLargest}));
  EXPECT_EQ(got.max, (Vec<2, double>{-kLargest, -kLargest}));

  const WarningCapture log;
  Bounds untouched;
  EXPECT_FALSE(calculateCalibratedBounds(CalibrationModel(), true, untouched.min, untouched.max,
                                         untouched.slope, untouched.offset));
  EXPECT_EQ(untouched.min, (Vec<2, double>{11, 12}));
  EXPECT_EQ(untouched.max, (Vec<2, double>{13, 14}));
  EXPECT_EQ(untouched.slope, 15);
  EXPECT_EQ(untouched.offset, 16);
  EXPECT_EQ(log.Messages().size(), 1U);
}

cmnalg::Image gridImage(int width, int height) {
  cmnalg::Image image(cmnalg::IMAGE_TYPE_UINT16, width, height,
                      cmnalg::Image::s_defaultImageAllocator);
  image.PixelSize = {2, 3, 7};
  image.Origin = {10, 20, 99};
  return image;
}

TEST(ImageBounds, SpanTheGridOfTheImage) {
  constexpr auto kPixel = CoordinateSystem::Pixel;
  constexpr auto kCalibrated = CoordinateSystem::Calibrated;
  Vec<3, double> min;
  Vec<3, double> max;
  ASSERT_TRUE(calculateImageBounds(test::plainModel(), gridImage(3, 5), 1, 4, min, max, kPixel,
                                   kCalibrated, 0));
  EXPECT_EQ(min, (Vec<3, double>{10, 20, 1}));
  EXPECT_EQ(max, (Vec<3, double>{14, 32, 4}));

  ASSERT_TRUE(calculateImageBounds(test::plainModel(), gridImage(0, 0), 4, 4, min, max, kPixel,
                                   kCalibrated, 2));
  EXPECT_EQ(min, (Vec<3, double>{8, 17, 4}));
  EXPECT_EQ(max, (Vec<3, double>{10, 20, 4}));

  ASSERT_TRUE(calculateImageBounds(test::plainModel(), gridImage(3, 5), kNan, 4, min, max, kPixel,
                                   kCalibrated, 0));
  EXPECT_TRUE(std::isnan(min.z) && std::isnan(max.z));
}

TEST(ImageBounds, RefusesLimitsThenSupersampling) {
  struct Case {
    double zMin;
    const char* message;
  };
  const Case kCases[] = {
      {5,
       "Range limits for Z must be in proper order. Minimum must be a smaller value than maximum."},
      {4, "Supersampling must be zero or positive."},
  };
  for (const Case& c : kCases) {
    const WarningCapture log;
    Vec<3, double> min{1, 2, 3};
    Vec<3, double> max{4, 5, 6};
    EXPECT_FALSE(calculateImageBounds(test::plainModel(), gridImage(3, 5), c.zMin, 4, min, max,
                                      CoordinateSystem::Pixel, CoordinateSystem::Calibrated, -1));
    EXPECT_EQ(log.Messages(), std::vector<std::string>{c.message});
    EXPECT_EQ(log.Loggers(), std::vector<std::string>{"Image.Calibration.Planex"});
    EXPECT_EQ(min, (Vec<3, double>{1, 2, 3}));
    EXPECT_EQ(max, (Vec<3, double>{4, 5, 6}));
  }
}

}  // namespace
}  // namespace datafusion::planex
