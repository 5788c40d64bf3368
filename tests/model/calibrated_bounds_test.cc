#include "planex/model/calibrated_bounds.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/support/model_builders.h"
#include "tests/support/refusals.h"

namespace datafusion::planex {
namespace {

using cmnalg::Vec;

// By hand, for models that are nothing but a homography: a part of the sensor and what it becomes.
TEST(CalibratedBounds, ByHand) {
  const std::vector<double> plain = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  // X = x / (1 - y / 100) and Z = y / (1 - y / 100), hence X = x (1 + Z / 100)
  const std::vector<double> widening = {1, 0, 0, 0, 1, 0, 0, -0.01, 1};
  const std::vector<double> turned = {0.6, -0.8, 0, 0.8, 0.6, 0, 0, 0, 1};
  const struct {
    const std::vector<double>& homography;
    Vec<2, double> pixMin, pixMax;
    double want[6];  // min, max, slope, offset
  } rows[] = {
      {widening, {5, 20}, {15, 50}, {5 / 0.8, 20 / 0.8, 15 / 0.5, 50 / 0.5, 0.01, 1}},
      {turned, {0, 0}, {10, 20}, {-16, 0, 6, 20, 0, 1}},  // a distance, not a difference of X
      {turned, {0, 5}, {10, 5}, {-4, 3, 2, 11, 1, 0.6}},  // no line through one row
      {plain, {21, 41}, {2, 3}, {2, 3, 21, 41, 0, -1}},
      {plain, {0, std::nan("")}, {19, 38}, {0, 38, 19, 38, 1, 1}},
  };
  for (const auto& row : rows) {
    CalibrationModel model = test::plainModel();
    model.Homography = test::matrix(3, 3, row.homography);
    Vec<2, double> min, max;
    double line[2];
    ASSERT_TRUE(calculateCalibratedBounds(model, false, row.pixMin, row.pixMax, min, max, line[0],
                                          line[1]));
    const double got[] = {min.x, min.y, max.x, max.y, line[0], line[1]};
    for (int i = 0; i < 6; ++i) EXPECT_NEAR(got[i], row.want[i], 1e-12) << &row - rows << i;
  }
}

TEST(ImageBounds, RefuseLimitsBeforeSupersampling) {
  struct Arguments {
    double zMin = 1;
    int supersampling = 0;
  };
  const test::Check<Arguments> kChecks[] = {
      {[](Arguments& a) { a.zMin = 5; },
       "Range limits for Z must be in proper order. Minimum must be a smaller value than maximum."},
      {[](Arguments& a) { a.supersampling = -1; }, "Supersampling must be zero or positive."},
      {[](Arguments& a) { a.zMin = 4; }, nullptr},
      {[](Arguments& a) { a.zMin = std::nan(""); }, nullptr},
  };
  expectChecksInOrder(kChecks, [](Arguments& a) {
    Vec<3, double> min, max;
    return calculateImageBounds(test::plainModel(), cmnalg::Image(), a.zMin, 4, min, max,
                                CoordinateSystem::Pixel, CoordinateSystem::Calibrated,
                                a.supersampling);
  });
}

}  // namespace
}  // namespace datafusion::planex
