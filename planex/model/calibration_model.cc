#include "planex/model/calibration_model.h"

#include <charconv>
#include <cmath>

#include "planex/infra/class_repository.h"
#include "planex/infra/logger.h"
#include "planex/model/camera_matrix.h"
#include "planex/model/model_checks.h"

namespace datafusion::planex {
namespace {

constexpr const char* kClassName = "Image.Planex.Model";
constexpr double kSmallestSkew = 1e-13;

const bool kRegistered = etl::registerClass<CalibrationModel>(kClassName);

using Matrix = cmnalg::Matrix<double>;

bool refuse(const char* message) {
  base::Logger::Get(kClassName).Warning("%s", message);
  return false;
}

/// Two decimals whatever the locale says; any NaN is "nan".
std::string twoDecimals(double value) {
  if (std::isnan(value)) return "nan";
  char text[400];  // the largest double has 309 digits before the point
  const auto result = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 2);
  return std::string(text, result.ptr);
}

bool isCalibrated(ModelState state) {
  return state == ModelState::CALIBRATED || state == ModelState::CALIBRATED_ALIGNED_2D ||
         state == ModelState::CALIBRATED_ALIGNED_3D;
}

bool isAligned2D(ModelState state) {
  return state == ModelState::CALIBRATED_ALIGNED_2D || state == ModelState::ALIGNED_2D;
}

bool isAligned3D(ModelState state) {
  return state == ModelState::CALIBRATED_ALIGNED_3D || state == ModelState::ALIGNED_3D;
}

}  // namespace

CalibrationModel::CalibrationModel()
    : Homography(Matrix::Identity(3, 3)), Pose(Matrix::Identity(4, 4)) {}

bool CalibrationModel::setLensCorrection(const double& c0, const double& c1, const double& c2,
                                         const double& c3, const double& c4) {
  LensCoefficients = {c0, c1, c2, c3, c4, LensCoefficients[5], LensCoefficients[6]};
  return true;
}

bool CalibrationModel::setScheimpflug(double c5, double c6) {
  LensCoefficients[5] = c5;
  LensCoefficients[6] = c6;
  return true;
}

bool CalibrationModel::setSkew(double x, double y, double z) {
  if (std::sqrt(x * x + y * y + z * z) <= kSmallestSkew || std::abs(y) <= kSmallestSkew) {
    return refuse(
        "Skew vector cannot have zero norm or have zero contribution skewed the image "
        "Y-direction.");
  }
  Skew = {x, y, z};
  return true;
}

bool CalibrationModel::setPose(const cmnalg::math::Transform<3, double>& pose) {
  if (pose.GetType() > cmnalg::math::TransformType::SIMILARITY) {
    return refuse("The input pose is not a valid similarity transform.");
  }
  Pose = pose.GetMatrix();
  return true;
}

bool CalibrationModel::setHomography(const cmnalg::math::Transform<2, double>& homography) {
  if (homography.GetType() > cmnalg::math::TransformType::HOMOGRAPHY) {
    return refuse("The input is not a valid homography transform.");
  }
  Homography = homography.GetMatrix();
  return true;
}

bool CalibrationModel::setSheetCurve(const double& s0, const double& s1, const double& s2,
                                     const double& s3, const double& s4, const double& s5) {
  SheetCurve = {s0, s1, s2, s3, s4, s5};
  return true;
}

void CalibrationModel::reset() {
  Homography = Matrix::Identity(3, 3);
  Pose = Matrix::Identity(4, 4);
  LensCoefficients.fill(0.0);
  Skew = {0.0, 1.0, 0.0};
  CurrentState = ModelState::UNCALIBRATED;
  CalibrationError = CalibrationErrorMax = AlignmentError = AlignmentErrorMax = kNeverSet;
}

bool CalibrationModel::IsConsistent() const {
  for (const double value :
       {CalibrationError, CalibrationErrorMax, AlignmentError, AlignmentErrorMax, FocalLength}) {
    if (value < 0.0) return false;
  }
  return true;
}

Matrix CalibrationModel::getK() const {
  Matrix k;
  datafusion::planex::getK(FocalLength, LensCenter.x, LensCenter.y, k);
  return k;
}

bool CalibrationModel::mirror(bool mirrorX, cmnalg::Vec<2, double> point) {
  if (!std::isfinite(point.x) || !std::isfinite(point.y)) {
    return refuse("The mirror point is invalid.");
  }
  if (!homographyUsable(*this)) return refuse("Invalid perspective matrix.");
  Matrix reflection = Matrix::Identity(3, 3);
  const int axis = mirrorX ? 0 : 1;
  reflection[axis][axis] = -1.0;
  reflection[axis][2] = 2.0 * (mirrorX ? point.x : point.y);
  Homography = reflection * Homography;
  return true;
}

std::string CalibrationModel::toString() const {
  const bool calibrated = isCalibrated(CurrentState);
  const bool aligned2D = isAligned2D(CurrentState);
  const bool aligned3D = isAligned3D(CurrentState);
  std::string text = "Planex Camera Model, state: ";
  text += calibrated ? "Calibrated" : "Uncalibrated";
  if (aligned2D) text += " and 2D Aligned";
  if (aligned3D) text += " and 3D Aligned";
  if (calibrated) text += ", calibration error " + twoDecimals(CalibrationError);
  if (aligned2D || aligned3D) text += ", alignment error " + twoDecimals(AlignmentError);
  if (aligned3D) {
    text += ", skew vector (" + twoDecimals(Skew.x) + ", " + twoDecimals(Skew.y) + ", " +
            twoDecimals(Skew.z) + ")";
  }
  return text;
}

const char* CalibrationModel::GetClassName() const { return kClassName; }

std::unique_ptr<etl::IVisitable> CalibrationModel::CloneVisitable() const {
  return std::make_unique<CalibrationModel>(*this);
}

}  // namespace datafusion::planex
