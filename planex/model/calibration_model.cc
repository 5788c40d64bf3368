#include "planex/model/calibration_model.h"

#include <charconv>
#include <cmath>
#include <utility>

#include "planex/infra/class_repository.h"
#include "planex/infra/float_environment.h"
#include "planex/model/camera_matrix.h"
#include "planex/model/model_checks.h"

namespace datafusion::planex {
namespace {

constexpr const char* kClassName = "Image.Planex.Model";
constexpr double kSmallestLength = 1e-13;

[[maybe_unused]] const bool kRegistered = etl::registerClass<CalibrationModel>(kClassName);

cmnalg::Matrix<double> identity(int size) { return cmnalg::Matrix<double>::Identity(size, size); }

/// Two decimals, as %3.2f gives in the C locale; any NaN is nan.
std::string twoDecimals(double value) {
  if (std::isnan(value)) return "nan";
  char text[320];  // the largest double has 309 digits before the point
  const auto end = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 2).ptr;
  return {text, end};
}

}  // namespace

CalibrationModel::CalibrationModel() : Homography(identity(3)), Pose(identity(4)) {}
CalibrationModel::CalibrationModel(const CalibrationModel& other) = default;
CalibrationModel::CalibrationModel(CalibrationModel&& other) noexcept = default;
CalibrationModel& CalibrationModel::operator=(CalibrationModel&& other) noexcept = default;
CalibrationModel::~CalibrationModel() = default;

CalibrationModel& CalibrationModel::operator=(const CalibrationModel& other) {
  if (this != &other) *this = CalibrationModel(other);
  return *this;
}

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
  const base::DefaultFloatEnvironment environment;
  if (std::sqrt(x * x + y * y + z * z) <= kSmallestLength || std::abs(y) <= kSmallestLength) {
    return refuseToChange(
        "Skew vector cannot have zero norm or have zero contribution skewed the image "
        "Y-direction.");
  }
  Skew = {x, y, z};
  return true;
}

bool CalibrationModel::setPose(const cmnalg::math::Transform<3, double>& pose) {
  if (pose.GetType() > cmnalg::math::TransformType::SIMILARITY) {
    return refuseToChange("The input pose is not a valid similarity transform.");
  }
  Pose = pose.GetMatrix();
  return true;
}

bool CalibrationModel::setHomography(const cmnalg::math::Transform<2, double>& homography) {
  if (homography.GetType() > cmnalg::math::TransformType::HOMOGRAPHY) {
    return refuseToChange("The input is not a valid homography transform.");
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
  cmnalg::Matrix<double> homography = identity(3);
  cmnalg::Matrix<double> pose = identity(4);
  Homography = std::move(homography);
  Pose = std::move(pose);
  LensCoefficients = {};
  Skew = {0.0, 1.0, 0.0};
  CurrentState = ModelState::UNCALIBRATED;
  CalibrationError = CalibrationErrorMax = AlignmentError = AlignmentErrorMax = kNeverSet;
}

bool CalibrationModel::IsConsistent() const {
  const base::DefaultFloatEnvironment environment;
  return !(CalibrationError < 0.0 || CalibrationErrorMax < 0.0 || AlignmentError < 0.0 ||
           AlignmentErrorMax < 0.0 || FocalLength < 0.0);
}

cmnalg::Matrix<double> CalibrationModel::getK() const {
  cmnalg::Matrix<double> k;
  static_cast<void>(planex::getK(FocalLength, LensCenter.x, LensCenter.y, k));
  return k;
}

bool CalibrationModel::mirror(bool mirrorX, cmnalg::Vec<2, double> point) {
  const base::DefaultFloatEnvironment environment;
  if (!std::isfinite(point.x) || !std::isfinite(point.y)) {
    return refuseToChange("The mirror point is invalid.");
  }
  if (!homographyUsable(*this)) return refuseToChange("Invalid perspective matrix.");
  cmnalg::Matrix<double> mirroring = identity(3);
  const int axis = mirrorX ? 0 : 1;
  mirroring[axis][axis] = -1.0;
  mirroring[axis][2] = 2.0 * (mirrorX ? point.x : point.y);
  cmnalg::Matrix<double> mirrored = mirroring * Homography;
  if (mirrored.IsEmpty()) return false;  // no memory; the product has warned
  Homography = std::move(mirrored);
  return true;
}

std::string CalibrationModel::toString() const {
  const base::DefaultFloatEnvironment environment;
  const bool calibrated = isCalibrated(CurrentState);
  const bool aligned2d = isAligned2D(CurrentState);
  const bool aligned3d = isAligned3D(CurrentState);

  std::string text = "Planex Camera Model, state: ";
  text += calibrated ? "Calibrated" : "Uncalibrated";
  if (aligned2d) text += " and 2D Aligned";
  if (aligned3d) text += " and 3D Aligned";
  if (calibrated) text += ", calibration error " + twoDecimals(CalibrationError);
  if (aligned2d || aligned3d) text += ", alignment error " + twoDecimals(AlignmentError);
  if (aligned3d) {
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
