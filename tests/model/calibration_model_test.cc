#include "planex/model/calibration_model.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <functional>
#include <limits>
#include <vector>

#include "planex/model/camera_matrix.h"
#include "planex/model/homography.h"
#include "planex/model/skewed_pose.h"
#include "tests/support/model_builders.h"
#include "tests/support/warning_capture.h"

namespace datafusion::planex {
namespace {

using cmnalg::math::TransformType;
using test::matrix;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

cmnalg::math::Transform<3, double> poseOf(TransformType type) {
  cmnalg::math::Transform<3, double> pose;
  pose.Create(matrix(4, 4, {0, -1, 0, 5, 1, 0, 0, 6, 0, 0, 1, 7, 0, 0, 0, 1}), type);
  return pose;
}

cmnalg::math::Transform<2, double> homographyOf(TransformType type) {
  cmnalg::math::Transform<2, double> homography;
  homography.Create(matrix(3, 3, {1, 2, 3, 4, 5, 6, 7, 8, 9}), type);
  return homography;
}

constexpr const char* kSkewText =
    "Skew vector cannot have zero norm or have zero contribution skewed the image Y-direction.";
constexpr const char* kPoseText = "The input pose is not a valid similarity transform.";
constexpr const char* kHomographyText = "The input is not a valid homography transform.";
constexpr const char* kMirrorText = "The mirror point is invalid.";

/// A change of a model: the refusal that it meets, or none and what it leaves in the model.
struct ChangeCase {
  const char* name;
  std::function<bool(CalibrationModel&)> change;
  const char* refusal;
  std::function<bool(const CalibrationModel&)> accepted;
};

bool rowsAre(const cmnalg::Matrix<double>& m, const std::vector<double>& values) {
  return std::vector<double>(m.Data(), m.Data() + std::ptrdiff_t{m.Width()} * m.Height()) == values;
}

bool skewIs(const CalibrationModel& m, double x, double y, double z) {
  return m.Skew == cmnalg::Vec<3, double>{x, y, z};
}

const ChangeCase kChanges[] = {
    // clang-format off
    {"SkewWithoutLength", [](auto& m) { return m.setSkew(0, 0, 0); }, kSkewText, {}},
    {"SkewWithoutY", [](auto& m) { return m.setSkew(1, 0, 0); }, kSkewText, {}},
    {"SkewWithHardlyAnyY", [](auto& m) { return m.setSkew(1, -1e-13, 0); }, kSkewText, {}},
    {"SkewJustLongEnough", [](auto& m) { return m.setSkew(0, 2e-13, 0); }, nullptr,
     [](auto& m) { return skewIs(m, 0, 2e-13, 0); }},
    {"SkewKeepsItsLength", [](auto& m) { return m.setSkew(3, -4, 5); }, nullptr,
     [](auto& m) { return skewIs(m, 3, -4, 5); }},
    {"AffinePose", [](auto& m) { return m.setPose(poseOf(TransformType::AFFINE)); }, kPoseText,
     {}},
    {"SimilarPose", [](auto& m) { return m.setPose(poseOf(TransformType::SIMILARITY)); },
     nullptr, [](auto& m) { return m.Pose[0][1] == -1 && m.Pose[2][3] == 7; }},
    {"HomographyOfNoType",
     [](auto& m) { return m.setHomography(homographyOf(static_cast<TransformType>(6))); },
     kHomographyText, {}},
    {"AnyHomography",
     [](auto& m) { return m.setHomography(homographyOf(TransformType::HOMOGRAPHY)); }, nullptr,
     [](auto& m) { return m.Homography[0][2] == 3 && m.Homography[2][0] == 7; }},
    {"LensCorrectionThenScheimpflug",
     [](auto& m) { return m.setScheimpflug(6, 7) && m.setLensCorrection(1, 2, 3, 4, 5); },
     nullptr,
     [](auto& m) { return m.LensCoefficients == std::array<double, 7>{1, 2, 3, 4, 5, 6, 7}; }},
    {"SheetCurveIsSixLong",
     [](auto& m) { m.SheetCurve.resize(9); return m.setSheetCurve(1, 2, 3, 4, 5, 6); }, nullptr,
     [](auto& m) { return m.SheetCurve == etl::Vector<double>{1, 2, 3, 4, 5, 6}; }},
    {"MirrorAtNaN", [](auto& m) { return m.mirror(true, {1, kNaN}); }, kMirrorText, {}},
    {"MirrorAtInfinity", [](auto& m) { return m.mirror(false, {kInfinity, 1}); }, kMirrorText,
     {}},
    // (x, z) -> (20 - x, z), then (x, 8 - z)
    {"MirrorX", [](auto& m) { return m.mirror(true, {10, 4}); }, nullptr,
     [](auto& m) { return rowsAre(m.Homography, {-1, 0, 20, 0, 1, 0, 0, 0, 1}); }},
    {"MirrorZ", [](auto& m) { return m.mirror(false, {10, 4}); }, nullptr,
     [](auto& m) { return rowsAre(m.Homography, {1, 0, 0, 0, -1, 8, 0, 0, 1}); }},
    // clang-format on
};

TEST(CalibrationModel, ChangesAreAcceptedOrRefused) {
  for (const ChangeCase& row : kChanges) {
    SCOPED_TRACE(row.name);
    const WarningCapture log;
    CalibrationModel model;
    const std::string before = test::toJson(model);
    EXPECT_EQ(row.change(model), row.refusal == nullptr);
    if (row.refusal == nullptr) {
      EXPECT_TRUE(row.accepted(model));
      EXPECT_THAT(log.Messages(), IsEmpty());
    } else {
      EXPECT_EQ(test::toJson(model), before);
      EXPECT_THAT(log.Messages(), ElementsAre(row.refusal));
      EXPECT_THAT(log.Loggers(), ElementsAre("Image.Planex.Model"));
    }
  }
}

TEST(CalibrationModel, MirroringComesAfterTheHomography) {
  CalibrationModel model;
  model.Homography = matrix(3, 3, {1, 0, 1, 0, 1, 0, 0, 0, 1});
  ASSERT_TRUE(model.mirror(true, {10, 0}));
  double x = 2;
  double z = 5;
  basic::applyHomography(model.Homography.Data(), x, z);
  EXPECT_EQ(x, 17);
  EXPECT_EQ(z, 5);

  const WarningCapture log;
  model.Homography = matrix(2, 3, {1, 0, 1, 0, 1, 0});
  EXPECT_FALSE(model.mirror(true, {10, 0}));
  EXPECT_THAT(log.Messages(), ElementsAre("Invalid perspective matrix."));
  EXPECT_EQ(model.Homography.Height(), 2);
}

TEST(CalibrationModel, ResetKeepsWhatDescribesTheDevice) {
  std::mt19937 random(1);
  CalibrationModel model = test::randomModel(random);
  model.CalibrationError = model.CalibrationErrorMax = 1;
  model.AlignmentError = model.AlignmentErrorMax = 1;
  model.FileVersion = 3;
  CalibrationModel want;
  want.FileVersion = 3;
  want.SkewMode = model.SkewMode;
  want.FocalLength = model.FocalLength;
  want.LensCenter = model.LensCenter;
  want.SensorSize = model.SensorSize;
  want.SheetCurve = model.SheetCurve;
  want.CalibratedRegion.Resize(3, 2);
  model.CalibratedRegion.Resize(3, 2);
  model.reset();
  EXPECT_EQ(test::toJson(model), test::toJson(want));
}

TEST(CalibrationModel, CopiesAreIndependent) {
  std::mt19937 random(2);
  CalibrationModel model = test::randomModel(random);
  const std::string before = test::toJson(model);
  CalibrationModel copy = model;
  const auto clone = model.CloneVisitable();
  model.Homography[0][0] = -1;
  model.Pose[0][0] = -1;
  model.SheetCurve[0] = -1;
  EXPECT_EQ(test::toJson(copy), before);
  EXPECT_EQ(test::toJson(dynamic_cast<CalibrationModel&>(*clone)), before);
  copy = *&copy;
  EXPECT_EQ(test::toJson(copy), before);
}

TEST(CalibrationModel, NegativeErrorsAreInconsistent) {
  double CalibrationModel::*const fields[] = {
      &CalibrationModel::CalibrationError, &CalibrationModel::CalibrationErrorMax,
      &CalibrationModel::AlignmentError, &CalibrationModel::AlignmentErrorMax,
      &CalibrationModel::FocalLength};
  for (double CalibrationModel::*field : fields) {
    CalibrationModel model;
    for (const double accepted : {0.0, kNaN}) {
      model.*field = accepted;
      EXPECT_TRUE(model.IsConsistent());
    }
    model.*field = -1e-300;
    EXPECT_FALSE(model.IsConsistent());
  }
}

struct TextCase {
  int state;
  double calibrationError, alignmentError;
  const char* text;
};
const TextCase kTexts[] = {
    {0, 0.5, 0.25, "Uncalibrated"},
    {1, 0.5, 0.25, "Calibrated, calibration error 0.50"},
    {2, 0.125, 12.5, "Calibrated and 2D Aligned, calibration error 0.12, alignment error 12.50"},
    {3, 0.5, 0.25,
     "Calibrated and 3D Aligned, calibration error 0.50, alignment error 0.25, skew vector (-0.10, "
     "1.00, 123.46)"},
    {4, 0.5, -kNaN, "Uncalibrated and 2D Aligned, alignment error nan"},
    {5, 0.5, -kInfinity,
     "Uncalibrated and 3D Aligned, alignment error -inf, skew vector (-0.10, 1.00, 123.46)"},
    {6, 0.5, 0.25, "Uncalibrated"},
};

TEST(CalibrationModel, ToStringTellsWhatTheStateMakesValid) {
  for (const TextCase& row : kTexts) {
    CalibrationModel model;
    model.CurrentState = static_cast<ModelState>(row.state);
    model.CalibrationError = row.calibrationError;
    model.AlignmentError = row.alignmentError;
    model.Skew = {-0.1, 1, 123.456};
    EXPECT_EQ(model.toString(), std::string("Planex Camera Model, state: ") + row.text);
  }
}

TEST(CalibrationModel, ToStringHoldsTheLargestNumber) {
  CalibrationModel model;
  model.CurrentState = ModelState::CALIBRATED;
  const std::string text = model.toString();
  EXPECT_THAT(text, testing::HasSubstr("error 17976931348623157"));
  EXPECT_EQ(
      text.size(),
      std::string("Planex Camera Model, state: Calibrated, calibration error ").size() + 309 + 3);
}

TEST(CameraMatrix, TestsCentreBeforeFocalLength) {
  const struct {
    double focal, cx, cy;
    const char* refusal;
  } cases[] = {{-1, -1, 2, "Invalid lens center coordinate."},
               {3, 2, -1, "Invalid lens center coordinate."},
               {-1, 1, 2, "Invalid focal length."},
               {3, 0, 2, nullptr}};
  for (const auto& row : cases) {
    const WarningCapture log;
    CalibrationModel model;
    model.FocalLength = row.focal;
    model.LensCenter = {row.cx, row.cy};
    const cmnalg::Matrix<double> k = model.getK();
    if (row.refusal == nullptr) {
      EXPECT_THAT(std::vector<double>(k.Data(), k.Data() + 9),
                  ElementsAre(3, 0, 0, 0, 3, 2, 0, 0, 1));
    } else {
      EXPECT_TRUE(k.IsEmpty());
      EXPECT_THAT(log.Messages(), ElementsAre(row.refusal));
      EXPECT_THAT(log.Loggers(), ElementsAre("Image.Calibration.Planex"));
    }
  }
}

// a = 0.75 and b = 2.4, so that the lengths sqrt(1 + a^2) = 1.25 and sqrt(1 + b^2) = 2.6 are plain.
struct SkewCase {
  const char* name;
  int mode;
  double column0[3], column2[3];
};
const SkewCase kSkews[] = {
    {"BothNormalised", 0, {2.5 / 1.25, 9.5 / 1.25, 16.5 / 1.25}, {7.8 / 2.6, 21.4 / 2.6, 35 / 2.6}},
    {"OnlyXNormalised", 1, {2.5 / 1.25, 9.5 / 1.25, 16.5 / 1.25}, {7.8, 21.4, 35}},
    {"NoneNormalised", 2, {2.5, 9.5, 16.5}, {7.8, 21.4, 35}},
    {"AnyOtherMode", -3, {2.5, 9.5, 16.5}, {7.8, 21.4, 35}},
};

TEST(SkewedPose, FoldsTheSkewIntoColumns) {
  for (const SkewCase& row : kSkews) {
    for (const int height : {3, 4}) {
      SCOPED_TRACE(row.name);
      CalibrationModel model;
      model.Pose = matrix(height, 4, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 2});
      model.Skew = {-1.5, 2, -4.8};
      model.SkewMode = static_cast<SkewMode>(row.mode);
      const cmnalg::Matrix<double> e = skewedPose(model);
      const double last = height == 3 ? 1 : 2;
      for (int r = 0; r < 3; ++r) {
        EXPECT_DOUBLE_EQ(e[r][0], row.column0[r]);
        EXPECT_EQ(e[r][1], 4 * r + 2);
        EXPECT_DOUBLE_EQ(e[r][2], row.column2[r]);
        EXPECT_EQ(e[r][3], 4 * r + 4);
      }
      EXPECT_THAT(std::vector<double>(e[3], e[3] + 4), ElementsAre(0, 0, 0, last));
      const cmnalg::Matrix<double> a = inPlaneAlignment(e);
      EXPECT_THAT(std::vector<double>(a.Data(), a.Data() + 9),
                  ElementsAre(e[0][0], e[0][2], 4, e[2][0], e[2][2], 12, 0, 0, last));
    }
  }
}

}  // namespace
}  // namespace datafusion::planex
