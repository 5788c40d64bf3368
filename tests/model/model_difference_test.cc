#include "planex/model/model_difference.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "tests/support/log_capture.h"
#include "tests/support/model_builders.h"

namespace datafusion::planex {
namespace {

/// Pixels of 5 x 4 as they are, and shifted by (u, u v) / 4 but for the last column, which has no
/// place.
std::vector<CalibrationModel> shifted() {
  std::vector<CalibrationModel> models(2, test::plainModel());
  for (CalibrationModel& model : models) model.SensorSize = {5, 4};
  models[1].Homography = test::matrix(3, 3, {1, 0, 0, 0, 1, 0, -0.25, 0, 1});
  return models;
}

TEST(ModelDifference, IsOverColumnsAndRowsAndTheLast) {
  const std::vector<CalibrationModel> models = shifted();
  for (const int step : {1, 2, 3, 100}) {
    SCOPED_TRACE(step);
    std::int64_t points = 0, unmatched = 0, told = 0;
    double squares = 0, largest = 0;
    cmnalg::Vec<2, double> place;
    for (int row = 0; row < 4; ++row) {
      for (int column = 0; column < 5; ++column) {
        if ((row % step != 0 && row != 3) || (column % step != 0 && column != 4)) continue;
        const double w = 1 - column / 4.0;
        if (w == 0) {
          ++unmatched;
          continue;
        }
        const double distance = std::hypot(column / w - column, row / w - row);
        ++points;
        squares += distance * distance;
        if (distance > largest) place = {1.0 * column, 1.0 * row};
        largest = std::max(largest, distance);
      }
    }
    ModelDifference found;
    ASSERT_TRUE(compareModels(models[0], models[1], CoordinateSystem::Calibrated, step, found,
                              [&](std::int64_t pixels) { told += pixels; }));
    EXPECT_EQ(found.points, points);
    EXPECT_EQ(found.unmatched, unmatched);
    EXPECT_EQ(told, points + unmatched);
    EXPECT_DOUBLE_EQ(found.rms, std::sqrt(squares / static_cast<double>(points)));
    EXPECT_DOUBLE_EQ(found.largest, largest);
    EXPECT_EQ(found.pixel, place);
    EXPECT_EQ(found.worldA, place);
  }
  EXPECT_EQ(differenceStep({2048, 2048}), 1);
  EXPECT_EQ(differenceStep({2049, 2048}), 2);
  EXPECT_EQ(differenceStep({1 << 24, 1}), 4);
}

TEST(ModelDifference, RefusesWithoutChange) {
  std::vector<CalibrationModel> models = shifted();
  ModelDifference found;
  found.points = 7;
  const auto refuses = [&](int step) {
    test::LogCapture log;
    return !compareModels(models[0], models[1], CoordinateSystem::Calibrated, step, found) &&
           log.Warnings() == 1 && found.points == 7;
  };
  EXPECT_TRUE(refuses(0));
  models[0].SensorSize.x = 6;
  EXPECT_TRUE(refuses(1));
  models[0].SensorSize = models[1].SensorSize = {0, 4};
  EXPECT_TRUE(refuses(1));
  models = shifted();
  models[1].CurrentState = ModelState::UNCALIBRATED;
  EXPECT_TRUE(refuses(1));
}

}  // namespace
}  // namespace datafusion::planex
