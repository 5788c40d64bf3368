#include "planex/model/point_mapping.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/model_builders.h"
#include "tests/support/refusals.h"

namespace datafusion::planex {
namespace {

using cmnalg::Vec;
using test::matrix;
using Matrix = cmnalg::Matrix<double>;
using Model = CalibrationModel;
using System = CoordinateSystem;

/// Worked out by hand, of a model that maps every point to itself but for one change. The systems
/// are 0 pixel, 1 calibrated and 2 aligned.
const struct {
  const char* name;
  void (*change)(Model&);
  int from, to;
  Vec<2, double> in, want;
} kValues[] = {
    // clang-format off
    {"Normalises", [](auto& m) { m.FocalLength = 500, m.LensCenter = {320, 240}; }, 0, 1,
     {820, 240}, {1, 0}},
    // r2 = 13, radial = 1 + 13 + 2 * 169 + 3 * 2197 = 6943
    {"Lens", [](auto& m) { m.LensCoefficients = {1, 2, 3, 4, 5, 6, 7}; }, 0, 1,
     {2, 3}, {13886 + 48 + 105 + 78, 20829 + 124 + 60 + 91}},
    {"Homography",
     [](auto& m) { m.Homography = matrix(3, 3, {0, 1, 5, 1, 0, 0, 1, 0.5, 0.5}); }, 0, 1,
     {2, 3}, {2, 0.5}},
    // d = (3 - 1) (1 + 0.5 * 2) = 4: 2 + 10 + 2 * 4 + 3 * 16 + 4 * 64
    {"SheetCurve", [](auto& m) { m.SheetCurve = {1, 0.5, 10, 2, 3, 4, 99}; }, 0, 1,
     {3, 2}, {3, 324}},
    {"Pose",
     [](auto& m) { m.Pose = matrix(4, 4, {0, 9, 1, 5, 9, 9, 9, 9, -2, 9, 0, 8, 5, 5, 5, 4}); }, 1, 2,
     {2, 3}, {2, 1}},
    // x <- 1 - x^2 and u <- u - (u^3 - 2 u + 2) / (3 u^2 - 2) alternate between 1 and 0.
    {"AHundredRounds", [](auto& m) { m.LensCoefficients[5] = 1; }, 1, 0, {1, 0}, {1, 0}},
    {"TenSteps", [](auto& m) { m.SheetCurve = {0, 1, 3, -3, 0, 1}; }, 1, 0, {1, 0}, {1, 0}},
    // clang-format on
};

TEST(PointMapping, ValuesByHand) {
  for (const auto& row : kValues) {
    Model model = test::plainModel();
    row.change(model);
    etl::Vector<Vec<2, double>> points = {row.in};
    ASSERT_TRUE(mapPoints<double>(model, points, points, static_cast<System>(row.from),
                                  static_cast<System>(row.to)));
    EXPECT_EQ(points[0], row.want) << row.name;
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
    {[](auto& m) { set(m, 5), m.SheetCurve = {1}; }, 0, 1, kSheet, kPixels},
    {[](auto& m) { set(m, 5); }, 2, 0, nullptr, kPixels},
    {[](auto& m) { set(m, 5); }, 0, 0, nullptr, nullptr},
    {[](auto& m) { set(m, 5); }, 1, 2, nullptr, nullptr},
    {[](auto& m) { m.Pose = m.Homography = {}; }, -1, 7, nullptr, nullptr},
    {[](auto& m) { m.Pose = {}; }, 1, -1, kPose, kPose},
    {[](auto& m) { m.Homography.Create(3, 3, 5); }, 0, 1, kHomography, kHomography},
    {[](auto& m) { m.Homography[0][0] = 0; }, 0, 2, nullptr, nullptr},
    {[](auto& m) { m.Homography[0][0] = 0, m.SheetCurve = {1}; }, 1, 0, kHomography, kHomography},
    {[](auto& m) { m.Homography = {}; }, 1, 2, nullptr, nullptr},
    {[](auto& m) { m.Pose = Matrix::Identity(2, 4); }, 1, 2, kPose, kPose},
    {[](auto& m) { m.Pose = Matrix::Identity(5, 4); }, 2, 1, kPose, kPose},
    {[](auto& m) { m.Pose.Create(4, 4, 5); }, 1, 2, kPose, kPose},
    {[](auto& m) { m.Pose[0][0] = 0; }, 1, 2, nullptr, nullptr},
    {[](auto& m) { m.Pose[0][0] = 0; }, 2, 1, kPose, kPose},
    {[](auto& m) { m.Pose[1][1] = 0; }, 2, 1, nullptr, kPose},
    {[](auto& m) { m.SheetCurve.resize(5); }, 0, 2, kSheet, kSheet},
    {[](auto& m) { m.SheetCurve.resize(5); }, 1, 0, kSheet, kSheet},
    // clang-format on
};

template <typename Point, typename... Profile>
void expectOutcome(const Model& model, int from, int to, const char* text, Profile... profile) {
  test::LogCapture log;
  etl::Vector<Point> points = {{7, 7}};
  EXPECT_EQ(mapPoints<float>(model, points, points, static_cast<System>(from),
                             static_cast<System>(to), profile...),
            text == nullptr);
  EXPECT_EQ(log.TakeOne("Image.Calibration.Planex"), test::warning(text));
}

TEST(PointMapping, RefusesModelsThatTheDirectionCannotUse) {
  for (const auto& row : kRefusals) {
    SCOPED_TRACE(&row - kRefusals);
    Model model = test::plainModel();
    row.change(model);
    expectOutcome<Vec<2, float>>(model, row.from, row.to, row.inPlane);
    expectOutcome<Vec<3, float>>(model, row.from, row.to, row.inSpace, 0, 1);
  }
}

}  // namespace
}  // namespace datafusion::planex
