#include "planex/model/point_mapping.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/support/model_builders.h"
#include "tests/support/warning_capture.h"

namespace datafusion::planex {
namespace {

using cmnalg::Vec;
using test::matrix;
using Matrix = cmnalg::Matrix<double>;
using Model = CalibrationModel;
using System = CoordinateSystem;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

void liftThenDouble(Model& m) {
  m.setSheetCurve(0, 0, 10, 0, 0, 0);
  m.Pose = matrix(3, 4, {2, 0, 0, 0, 0, 1, 0, 0, 0, 0, 2, 0});
}
void turn(Model& m) { m.Pose = matrix(4, 4, {0, 9, 1, 5, 9, 9, 9, 9, -2, 9, 0, 7, 0, 0, 0, 1}); }

/// Values worked out by hand, of a model that maps every point to itself but for one change. The
/// systems are 0 pixel, 1 calibrated and 2 aligned.
const struct {
  const char* name;
  void (*change)(Model&);
  int from, to;
  Vec<2, double> in, want;
} kPlaneCases[] = {
    // clang-format off
    {"Normalises", [](auto& m) { m.FocalLength = 500, m.LensCenter = {320, 240}; }, 0, 1,
     {820, 240}, {1, 0}},
    // At (2, 3) r2 = 13, one coefficient at a time.
    {"RadialOfR2", [](auto& m) { m.LensCoefficients[0] = 1; }, 0, 1, {2, 3}, {28, 42}},
    {"RadialOfR4", [](auto& m) { m.LensCoefficients[1] = 1; }, 0, 1, {2, 3}, {340, 510}},
    {"RadialOfR6", [](auto& m) { m.LensCoefficients[2] = 1; }, 0, 1, {2, 3}, {4396, 6594}},
    {"TangentialC3", [](auto& m) { m.LensCoefficients[3] = 1; }, 0, 1, {2, 3}, {14, 34}},
    {"TangentialC4", [](auto& m) { m.LensCoefficients[4] = 1; }, 0, 1, {2, 3}, {23, 15}},
    {"ScheimpflugX", [](auto& m) { m.LensCoefficients[5] = 1; }, 0, 1, {2, 3}, {15, 3}},
    {"ScheimpflugY", [](auto& m) { m.LensCoefficients[6] = 1; }, 0, 1, {2, 3}, {2, 16}},
    {"HomographyUsesOldXForNewY",
     [](auto& m) { m.Homography = matrix(3, 3, {0, 1, 5, 1, 0, 0, 0, 0, 1}); }, 0, 1,
     {2, 3}, {8, 2}},
    {"HomographyDividesByW",
     [](auto& m) { m.Homography = matrix(3, 3, {1, 0, 0, 0, 1, 0, 1, 0.5, 0.5}); }, 0, 1,
     {2, 3}, {0.5, 0.75}},
    // d = (3 - 1) (1 + 0.5 * 2) = 4: 2 + 10 + 2 * 4 + 3 * 16 + 4 * 64
    {"SheetCurve", [](auto& m) { m.SheetCurve = {1, 0.5, 10, 2, 3, 4, 99}; }, 0, 1,
     {3, 2}, {3, 324}},
    {"AlignsWithRowsAndColumnsOfXAndZ", turn, 1, 2, {2, 3}, {8, 3}},
    {"AlignmentDividesByTheLastElement",
     [](auto& m) { m.Pose = matrix(4, 4, {1, 0, 0, 6, 0, 1, 0, 0, 0, 0, 1, 2, 5, 5, 5, 4}); }, 1, 2,
     {2, 6}, {2, 2}},
    {"PixelToAlignedPassesTheSheetCurve", liftThenDouble, 0, 2, {2, 3}, {4, 26}},
    // clang-format on
};

TEST(PointMapping, ValuesByHandInThePlane) {
  for (const auto& row : kPlaneCases) {
    SCOPED_TRACE(row.name);
    Model model = test::plainModel();
    row.change(model);
    etl::Vector<Vec<2, double>> points = {row.in};
    ASSERT_TRUE(mapPoints<double>(model, points, points, static_cast<System>(row.from),
                                  static_cast<System>(row.to)));
    EXPECT_DOUBLE_EQ(points[0].x, row.want.x);
    EXPECT_DOUBLE_EQ(points[0].y, row.want.y);
  }
}

TEST(PointMapping, ValuesByHandInSpace) {
  Model model = test::plainModel();
  model.Homography = matrix(3, 3, {2, 0, 0, 0, 4, 0, 0, 0, 1});
  model.Pose = matrix(4, 4, {1, 2, 3, 4, 0, 5, 0, 6, 0, 0, 7, 8, 0, 0, 0, 1});
  model.Skew = {-1, 2, 0};  // a = 0.5: the first column gains half the second
  model.SkewMode = SkewMode::XZ_NOT_IN_LIGHT_PLANE;
  const Vec<3, double> places[] = {{1, 10, 2}, {2, 105, 8}, {242, 536, 64}};
  for (int from = 0; from < 3; ++from) {
    for (int to = 0; to < 3; ++to) {
      etl::Vector<Vec<3, double>> points = {places[from]};
      ASSERT_TRUE(mapPoints<double>(model, points, points, static_cast<System>(from),
                                    static_cast<System>(to), 5, 10));
      EXPECT_NEAR(points[0].x, places[to].x, 1e-12) << from << to;
      EXPECT_NEAR(points[0].y, places[to].y, 1e-12) << from << to;
      EXPECT_NEAR(points[0].z, places[to].z, 1e-12) << from << to;
    }
  }
}

constexpr const char* kState = "Operation failed because it was called with uncalibrated model.";
constexpr const char* kPixels = "mapPoints called with uncalibrated model.";
constexpr const char* kHomography = "Invalid perspective matrix.";
constexpr const char* kPose = "Invalid pose matrix.";
constexpr const char* kSheet = "Invalid sheet curve.";

void set(Model& m, int state) { m.CurrentState = static_cast<ModelState>(state); }

/// What a direction refuses in the plane and in space; null: accepted.
const struct {
  void (*change)(Model&);
  int from, to;
  const char* inPlane;
  const char* inSpace;
} kRefusals[] = {
    // clang-format off
    {[](auto& m) { set(m, 0); }, 1, 1, kState, kState},
    {[](auto& m) { set(m, 0), m.SheetCurve = {1}; }, 0, 1, kState, kState},
    {[](auto& m) { set(m, 4); }, 0, 1, nullptr, kPixels},
    {[](auto& m) { set(m, 5); }, 2, 0, nullptr, kPixels},
    {[](auto& m) { set(m, 5), m.SheetCurve = {1}; }, 0, 1, kSheet, kPixels},
    {[](auto& m) { set(m, 5); }, 0, 0, nullptr, nullptr},
    {[](auto& m) { set(m, 5); }, 1, 2, nullptr, nullptr},
    {[](auto& m) { m.Pose = m.Homography = {}; }, -1, 7, nullptr, nullptr},
    {[](auto& m) { m.Pose = {}; }, 1, -1, kPose, kPose},
    {[](auto& m) { m.Homography.Create(3, 3, 5); }, 0, 1, kHomography,
     kHomography},
    {[](auto& m) { m.Homography.Create(3, 3, 5); }, 1, 0, kHomography,
     kHomography},
    {[](auto& m) { m.Homography[0][0] = 0; }, 0, 2, nullptr, nullptr},
    {[](auto& m) { m.Homography[0][0] = 0; }, 1, 0, kHomography,
     kHomography},
    {[](auto& m) { m.Homography[0][0] = kNaN; }, 0, 1, nullptr, nullptr},
    {[](auto& m) { m.Homography = {}; }, 1, 2, nullptr, nullptr},
    {[](auto& m) { m.Pose = {}; }, 1, 0, nullptr, nullptr},
    {[](auto& m) { m.Pose = Matrix::Identity(2, 4); }, 1, 2, kPose, kPose},
    {[](auto& m) { m.Pose = Matrix::Identity(5, 4); }, 2, 1, kPose, kPose},
    {[](auto& m) { m.Pose.Create(4, 4, 5); }, 1, 2, kPose, kPose},
    {[](auto& m) { m.Pose[0][0] = 0; }, 1, 2, nullptr, nullptr},
    {[](auto& m) { m.Pose[0][0] = 0; }, 2, 1, kPose, kPose},
    {[](auto& m) { m.Pose[1][1] = 0; }, 2, 1, nullptr, kPose},
    {[](auto& m) { m.Skew = {1, 0, 0}; }, 2, 0, kPose, kPose},
    {[](auto& m) { m.SheetCurve.resize(5); }, 0, 2, kSheet, kSheet},
    {[](auto& m) { m.SheetCurve.resize(5); }, 1, 0, kSheet, kSheet},
    {[](auto& m) { m.SheetCurve.resize(1); }, 1, 2, nullptr, nullptr},
    {[](auto& m) { m.Homography = {}, m.SheetCurve.resize(1); }, 1, 0, kHomography, kHomography},
    // clang-format on
};

void expectOutcome(bool mapped, const char* text, const WarningCapture& log) {
  EXPECT_EQ(mapped, text == nullptr);
  if (text == nullptr) {
    EXPECT_THAT(log.Messages(), testing::IsEmpty());
  } else {
    EXPECT_THAT(log.Messages(), testing::ElementsAre(text));
    EXPECT_THAT(log.Loggers(), testing::ElementsAre("Image.Calibration.Planex"));
  }
}

TEST(PointMapping, RefusesModelsThatTheDirectionCannotUse) {
  for (const auto& row : kRefusals) {
    SCOPED_TRACE(&row - kRefusals);
    Model model = test::plainModel();
    row.change(model);
    const auto from = static_cast<System>(row.from);
    const auto to = static_cast<System>(row.to);
    {
      const WarningCapture log;
      etl::Vector<Vec<2, float>> points = {{7, 7}};
      expectOutcome(mapPoints<float>(model, points, points, from, to), row.inPlane, log);
    }
    const WarningCapture log;
    etl::Vector<Vec<3, float>> points = {{7, 7, 7}};
    expectOutcome(mapPoints<float>(model, points, points, from, to, 0, 1), row.inSpace, log);
  }
}

}  // namespace
}  // namespace datafusion::planex
