#include "planex/processing/image_calibration.h"

#include <limits>

#include "planex/foundation/memory_overlap.h"
#include "planex/infra/float_environment.h"
#include "planex/model/model_checks.h"
#include "planex/model/skewed_pose.h"
#include "planex/processing/calibration_block.h"

namespace datafusion::planex {
namespace {

bool mapsIntoAlignedPlane(const CalibrationModel& model, bool aligned) {
  return aligned && model.CurrentState >= ModelState::CALIBRATED_ALIGNED_2D &&
         model.CurrentState <= ModelState::ALIGNED_3D;
}

bool isModelUsable(const CalibrationModel& model) {
  // Written so that NaN passes.
  if (model.LensCenter.x <= 0.0 || model.LensCenter.y <= 0.0) {
    return refuse("Invalid lens center matrix.");
  }
  if (model.FocalLength <= 0.0) return refuse("Invalid focal length.");
  if (!homographyUsable(model)) return refuse("Invalid perspective matrix.");
  if (!sheetCurveUsable(model)) return refuse("Invalid sheet curve.");
  return true;
}

void describeTarget(const cmnalg::Image& range, cmnalg::Image& target) {
  target.HandleZeroPixels = cmnalg::ZeroPixels::MissingData;
  target.PixelSize.y = range.PixelSize.y;
  target.Origin.y = range.Origin.y;
}

}  // namespace

cmnalg::Matrix<double> getCalibrationTransform(const CalibrationModel& model, bool aligned) {
  const base::DefaultFloatEnvironment environment;
  if (!homographyUsable(model)) return {};
  if (!mapsIntoAlignedPlane(model, aligned)) return model.Homography;
  if (!poseUsable(model)) return {};
  return inPlaneAlignment(skewedPose(model)) * model.Homography;
}

bool applyCalibration(const CalibrationModel& model, bool aligned, const cmnalg::Image& range,
                      cmnalg::ImageOf<float>& x, cmnalg::ImageOf<float>& z, RunMode mode) {
  const base::DefaultFloatEnvironment environment;
  if (!isModelUsable(model)) return false;
  if (sharesMemory(range, x) || sharesMemory(range, z) || sharesMemory(x, z)) {
    return refuse("Cannot reuse source image as target image.");
  }
  const cmnalg::Matrix<double> transform = getCalibrationTransform(model, aligned);
  if (transform.IsEmpty()) return refuse("Invalid pose matrix.");
  const double f = model.FocalLength;
  const double a = range.PixelSize.x / f;
  const double b = range.PixelSize.z / f;
  const double c = (range.Origin.x - model.LensCenter.x) / f;
  const double d = (range.Origin.z - model.LensCenter.y) / f;

  for (cmnalg::ImageOf<float>* target : {&x, &z}) {
    if (!target->Create(range.GetWidth(), range.GetHeight(),
                        cmnalg::Image::s_defaultImageAllocator)) {
      return false;
    }
  }
  bool done = basic::applyCalibration(range, a, b, c, d, std::numeric_limits<double>::quiet_NaN(),
                                      model.LensCoefficients.data(), transform.Data(), x, z,
                                      usesDoublePrecision(mode));
  if (done && !model.SheetCurve.empty()) {
    done = basic::applyCalibrationSheetCurve(model.SheetCurve.data(), x, z);
  }
  describeTarget(range, x);
  describeTarget(range, z);
  return done;
}

}  // namespace datafusion::planex
