#include "planex/model/calibration_model.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <limits>
#include <string>
#include <vector>

#include "planex/model/camera_matrix.h"
#include "planex/model/skewed_pose.h"
#include "tests/support/model_builders.h"
#include "tests/support/refusals.h"

namespace datafusion::planex {
namespace {

using cmnalg::math::TransformType;
using test::matrix;
using Numbers = std::vector<double>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

bool setPose(CalibrationModel& model, TransformType type) {
  cmnalg::math::Transform<3, double> pose;
  pose.Create(matrix(4, 4, {0, -1, 0, 5, 1, 0, 0, 6, 0, 0, 1, 7, 0, 0, 0, 1}), type);
  return model.setPose(pose);
}
bool setHomography(CalibrationModel& model, TransformType type) {
  cmnalg::math::Transform<2, double> homography;
  homography.Create(matrix(3, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9}), type);
  return model.setHomography(homography);
}

constexpr const char* kSkew =
    "Skew vector cannot have zero norm or have zero contribution skewed the image Y-direction.";
constexpr const char* kPose = "The input pose is not a valid similarity transform.";
constexpr const char* kHomography = "The input is not a valid homography transform.";
constexpr const char* kMirror = "The mirror point is invalid.";

/// Changes of a fresh model and the refusals that they meet; null: accepted.
const struct {
  bool (*change)(CalibrationModel&);
  const char* refusal;
} kChanges[] = {
    // clang-format off
    {[](auto& m) { return m.setSkew(0, 0, 0); }, kSkew},
    {[](auto& m) { return m.setSkew(1, -1e-13, 0); }, kSkew},
    {[](auto& m) { return m.setSkew(0, 1.001e-13, 0) && m.Skew.y > 1e-13; }, nullptr},
    {[](auto& m) { return m.setSkew(1, 1, 0) && m.setSkew(0, 1, 1) && m.Skew.y == 1; }, nullptr},
    {[](auto& m) { return m.setSkew(3, -4, 5) && m.Skew.x == 3 && m.Skew.z == 5; }, nullptr},
    {[](auto& m) { return setPose(m, TransformType::AFFINE); }, kPose},
    {[](auto& m) { return setPose(m, TransformType::SIMILARITY) && m.Pose[0][1] == -1; }, nullptr},
    {[](auto& m) { return setHomography(m, static_cast<TransformType>(6)); }, kHomography},
    {[](auto& m) { return setHomography(m, TransformType::HOMOGRAPHY) && m.Homography[2][0] == 7; },
     nullptr},
    {[](auto& m) { return m.mirror(true, {1, kNaN}); }, kMirror},
    {[](auto& m) { return m.mirror(false, {kInfinity, 1}); }, kMirror},
    // clang-format on
};

TEST(CalibrationModel, ChangesAreAcceptedOrRefused) {
  for (const auto& row : kChanges) {
    SCOPED_TRACE(&row - kChanges);
    test::LogCapture log;
    CalibrationModel model;
    const std::string before = test::toJson(model);
    EXPECT_EQ(row.change(model), row.refusal == nullptr);
    EXPECT_EQ(test::toJson(model) == before, row.refusal != nullptr);
    EXPECT_EQ(log.TakeOne("Image.Planex.Model"), test::warning(row.refusal));
  }
}

TEST(CalibrationModel, MirroringComesAfterTheHomography) {
  CalibrationModel model;
  model.Homography = matrix(3, 3, {1, 0, 1, 0, 1, 2, 0, 0, 1});
  ASSERT_TRUE(model.mirror(true, {10, 4}));   // (x, z) -> (20 - x, z)
  ASSERT_TRUE(model.mirror(false, {10, 4}));  // (x, z) -> (x, 8 - z)
  EXPECT_EQ(Numbers(model.Homography.Data(), model.Homography.Data() + 9),
            (Numbers{-1, 0, 19, 0, -1, 6, 0, 0, 1}));
  test::LogCapture log;
  model.Homography = matrix(2, 3, {1, 0, 1, 0, 1, 0});
  EXPECT_FALSE(model.mirror(true, {10, 0}));
  EXPECT_EQ(log.TakeOne(), "WARNING: Invalid perspective matrix.");
}

TEST(CalibrationModel, ResetKeepsWhatDescribesTheDevice) {
  CalibrationModel model = test::fullModel();
  ASSERT_TRUE(model.setLensCorrection(1, 2, 3, 4, 5) && model.setScheimpflug(6, 7));
  EXPECT_EQ(model.LensCoefficients, (std::array<double, 7>{1, 2, 3, 4, 5, 6, 7}));
  ASSERT_TRUE(model.setSheetCurve(1, 2, 3, 4, 5, 6));
  EXPECT_EQ(model.SheetCurve, (etl::Vector<double>{1, 2, 3, 4, 5, 6}));
  model.CalibrationError = model.CalibrationErrorMax = 1;
  model.AlignmentError = model.AlignmentErrorMax = 1;
  model.FileVersion = 3;
  model.CalibratedRegion.Resize(3, 2);
  CalibrationModel want;
  want.FocalLength = model.FocalLength;
  want.SensorSize = model.SensorSize;
  want.LensCenter = model.LensCenter;
  want.SkewMode = model.SkewMode;
  want.SheetCurve = model.SheetCurve;
  want.FileVersion = model.FileVersion;
  want.CalibratedRegion = model.CalibratedRegion;
  const CalibrationModel copy = model;
  const auto clone = model.CloneVisitable();
  const std::string before = test::toJson(model);
  model.reset();
  EXPECT_EQ(test::toJson(model), test::toJson(want));
  EXPECT_EQ(test::toJson(dynamic_cast<CalibrationModel&>(*clone)), before);
  model = copy;
  model = *&model;
  EXPECT_EQ(test::toJson(model), before);
}

TEST(CalibrationModel, NegativeErrorsAreInconsistent) {
  for (double CalibrationModel::*field :
       {&CalibrationModel::CalibrationError, &CalibrationModel::CalibrationErrorMax,
        &CalibrationModel::AlignmentError, &CalibrationModel::AlignmentErrorMax,
        &CalibrationModel::FocalLength}) {
    CalibrationModel model;
    for (const double value : {0.0, kNaN, -1e-300}) {
      model.*field = value;
      EXPECT_EQ(model.IsConsistent(), !(value < 0));
    }
  }
}

TEST(CalibrationModel, ToStringTellsWhatTheStateMakesValid) {
  const struct {
    int state;
    double calibrationError, alignmentError;
    const char* text;
  } rows[] = {
      {0, 0.5, 0.25, "Uncalibrated"},
      {1, 0.5, 0.25, "Calibrated, calibration error 0.50"},
      {2, 0.125, 12.5, "Calibrated and 2D Aligned, calibration error 0.12, alignment error 12.50"},
      {3, 0.5, 1e22,
       "Calibrated and 3D Aligned, calibration error 0.50, alignment error "
       "10000000000000000000000.00, skew vector (-0.10, 1.00, 123.46)"},
      {4, 0.5, -kNaN, "Uncalibrated and 2D Aligned, alignment error nan"},
      {5, 0.5, -kInfinity,
       "Uncalibrated and 3D Aligned, alignment error -inf, skew vector (-0.10, 1.00, 123.46)"},
      {6, 0.5, 0.25, "Uncalibrated"},
  };
  for (const auto& row : rows) {
    CalibrationModel model;
    model.CurrentState = static_cast<ModelState>(row.state);
    model.CalibrationError = row.calibrationError;
    model.AlignmentError = row.alignmentError;
    model.Skew = {-0.1, 1, 123.456};
    EXPECT_EQ(model.toString(), std::string("Planex Camera Model, state: ") + row.text);
  }
  CalibrationModel model;
  model.CurrentState = ModelState::CALIBRATED;
  EXPECT_EQ(model.toString().size(), 58 + 309 + 3U) << "the largest number";
}

TEST(CameraMatrix, TestsCentreBeforeFocalLength) {
  const char* const kCentre = "Invalid lens center coordinate.";
  const struct {
    double focal, cx, cy;
    const char* refusal;
    Numbers want;
  } rows[] = {{-1, -1, 2, kCentre, {}},
              {3, 2, -1, kCentre, {}},
              {-1, 1, 2, "Invalid focal length.", {}},
              {3, 0, 2, nullptr, {3, 0, 0, 0, 3, 2, 0, 0, 1}}};
  for (const auto& row : rows) {
    test::LogCapture log;
    CalibrationModel model;
    model.FocalLength = row.focal;
    model.LensCenter = {row.cx, row.cy};
    const cmnalg::Matrix<double> k = model.getK();
    EXPECT_EQ(log.TakeOne(), test::warning(row.refusal));
    EXPECT_EQ(Numbers(k.Data(), k.Data() + std::ptrdiff_t{k.Width()} * k.Height()), row.want);
    cmnalg::Matrix<double> same;
    EXPECT_EQ(getK(row.focal, row.cx, row.cy, same), row.refusal == nullptr);
  }
}

TEST(SkewedPose, FoldsTheSkewIntoColumns) {
  // a = 0.75 and b = 2.4, so that the lengths sqrt(1 + a^2) = 1.25 and sqrt(1 + b^2) = 2.6 are
  // plain. Any mode but the first two normalises neither column.
  const struct {
    int mode;
    double x, z;
  } rows[] = {{0, 1.25, 2.6}, {1, 1.25, 1}, {2, 1, 1}, {-3, 1, 1}};
  for (const auto& row : rows) {
    for (const int height : {3, 4}) {
      CalibrationModel model;
      model.Pose = matrix(height, 4, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 2});
      model.Skew = {-1.5, 2, -4.8};
      model.SkewMode = static_cast<SkewMode>(row.mode);
      const cmnalg::Matrix<double> e = skewedPose(model);
      for (int r = 0; r < 3; ++r) {
        EXPECT_DOUBLE_EQ(e[r][0], (2.5 + 7 * r) / row.x);
        EXPECT_EQ(e[r][1], 4 * r + 2);
        EXPECT_DOUBLE_EQ(e[r][2], (7.8 + 13.6 * r) / row.z);
        EXPECT_EQ(e[r][3], 4 * r + 4);
      }
      EXPECT_EQ(Numbers(e[3], e[3] + 4), (Numbers{0, 0, 0, height == 3 ? 1.0 : 2.0}));
      const cmnalg::Matrix<double> a = inPlaneAlignment(e);
      EXPECT_EQ(Numbers(a.Data(), a.Data() + 9),
                (Numbers{e[0][0], e[0][2], 4, e[2][0], e[2][2], 12, 0, 0, e[3][3]}));
    }
  }
}

}  // namespace
}  // namespace datafusion::planex
