#include "planex/model/point_mapping.h"

#include <algorithm>

#include "planex/foundation/matrix_inverse.h"
#include "planex/infra/float_environment.h"
#include "planex/model/model_checks.h"
#include "planex/model/point_mapping_kernel.h"
#include "planex/model/skewed_pose.h"

namespace datafusion::planex {
namespace {

using cmnalg::Vec;
using kernel::MappingPlan;
using kernel::MappingStep;
using Matrix = cmnalg::Matrix<double>;
template <typename T>
using Plane = etl::Vector<Vec<2, T>>;
template <typename T>
using Space = etl::Vector<Vec<3, T>>;

CoordinateSystem normalised(CoordinateSystem system) {
  return system == CoordinateSystem::Pixel || system == CoordinateSystem::Calibrated
             ? system
             : CoordinateSystem::Aligned;
}

/// Puts together the steps between two coordinate systems. Each function appends its steps, or
/// warns and returns false when the model lacks what they need.
class PlanBuilder {
 public:
  explicit PlanBuilder(const CalibrationModel& model) : model_(model) {}

  const MappingPlan& Plan() const { return plan_; }

  bool PixelToCalibrated() {
    if (!homographyUsable(model_)) return refuse("Invalid perspective matrix.");
    if (!sheetCurveUsable(model_)) return refuse("Invalid sheet curve.");
    AddCamera(MappingStep::PixelToPlane, model_.Homography);
    AddSheetCurve(MappingStep::ApplySheetCurve);
    return true;
  }

  bool CalibratedToPixel() {
    Matrix inverse;
    if (!homographyUsable(model_) || !cmnalg::math::Inverse(inverse, model_.Homography)) {
      return refuse("Invalid perspective matrix.");
    }
    if (!sheetCurveUsable(model_)) return refuse("Invalid sheet curve.");
    AddSheetCurve(MappingStep::RemoveSheetCurve);
    AddCamera(MappingStep::PlaneToPixel, inverse);
    return true;
  }

  /// In the plane with the homography A (Project), in space with E (Transform), or their inverse.
  bool Alignment(MappingStep step, bool inverted) {
    if (!poseUsable(model_)) return refuse("Invalid pose matrix.");
    const bool inPlane = step == MappingStep::Project;
    Matrix matrix = skewedPose(model_);
    if (inPlane) matrix = inPlaneAlignment(matrix);
    if (inverted) {
      Matrix inverse;
      if (!cmnalg::math::Inverse(inverse, matrix)) return refuse("Invalid pose matrix.");
      matrix = inverse;
    }
    plan_.Add(step, matrix.Data(), inPlane ? 9 : 12);
    return true;
  }

  void Profile(MappingStep step, double yOffset, double yScale) {
    const double coefficients[2] = {yScale, yOffset};
    plan_.Add(step, coefficients, 2);
  }

 private:
  void AddCamera(MappingStep step, const Matrix& homography) {
    double coefficients[kernel::kCameraCoefficientCount] = {model_.FocalLength, model_.LensCenter.x,
                                                            model_.LensCenter.y};
    std::copy_n(model_.LensCoefficients.data(), 7, coefficients + 3);
    std::copy_n(homography.Data(), 9, coefficients + 10);
    plan_.Add(step, coefficients, kernel::kCameraCoefficientCount);
  }

  void AddSheetCurve(MappingStep step) {
    if (!model_.SheetCurve.empty()) plan_.Add(step, model_.SheetCurve.data(), 6);
  }

  const CalibrationModel& model_;
  MappingPlan plan_;
};

/// Applies a plan; one without steps copies.
template <typename Point>
void run(const MappingPlan& plan, const Point* in, Point* out, std::size_t count) {
  if (plan.begin() != plan.end()) {
    kernel::mapPointsKernel<Point>(cmnalg::currentInstructionSet())(plan, in, out, count);
  } else if (in != out) {
    std::copy_n(in, count, out);
  }
}

template <typename Point>
void run(const MappingPlan& plan, const etl::Vector<Point>& in, etl::Vector<Point>& out) {
  out.resize(in.size());
  run(plan, in.data(), out.data(), in.size());
}

bool addPlaneSteps(PlanBuilder& builder, CoordinateSystem from, CoordinateSystem to) {
  if (from == CoordinateSystem::Pixel && !builder.PixelToCalibrated()) return false;
  if (from == CoordinateSystem::Aligned && !builder.Alignment(MappingStep::Project, true))
    return false;
  if (to == CoordinateSystem::Pixel) return builder.CalibratedToPixel();
  return to == CoordinateSystem::Calibrated || builder.Alignment(MappingStep::Project, false);
}

bool addSpaceSteps(PlanBuilder& builder, CoordinateSystem from, CoordinateSystem to, double yOffset,
                   double yScale) {
  if (from == CoordinateSystem::Pixel) {
    if (!builder.PixelToCalibrated()) return false;
    builder.Profile(MappingStep::ProfileToWorld, yOffset, yScale);
  }
  if (from == CoordinateSystem::Aligned && !builder.Alignment(MappingStep::Transform, true))
    return false;
  if (to == CoordinateSystem::Pixel) {
    builder.Profile(MappingStep::WorldToProfile, yOffset, yScale);
    return builder.CalibratedToPixel();
  }
  return to == CoordinateSystem::Calibrated || builder.Alignment(MappingStep::Transform, false);
}

template <typename T>
bool mapInPlane(const CalibrationModel& model, const Plane<T>& in, Plane<T>& out,
                CoordinateSystem from, CoordinateSystem to) {
  const base::DefaultFloatEnvironment environment;
  PlanBuilder builder(model);
  if (!addPlaneSteps(builder, from, to)) return false;
  run(builder.Plan(), in, out);
  return true;
}

bool hasState(const CalibrationModel& model) {
  return model.CurrentState != ModelState::UNCALIBRATED ||
         refuse("Operation failed because it was called with uncalibrated model.");
}

/// What both forms of the mapping in the plane do first.
bool planPlane(PlanBuilder& builder, const CalibrationModel& model, CoordinateSystem from,
               CoordinateSystem to) {
  from = normalised(from);
  to = normalised(to);
  return hasState(model) && (from == to || addPlaneSteps(builder, from, to));
}

/// And in space.
bool planSpace(PlanBuilder& builder, const CalibrationModel& model, CoordinateSystem from,
               CoordinateSystem to, double yOffset, double yScale) {
  from = normalised(from);
  to = normalised(to);
  if (!hasState(model)) return false;
  if (from == to) return true;
  const bool ofPixels = from == CoordinateSystem::Pixel || to == CoordinateSystem::Pixel;
  if (ofPixels && !isCalibrated(model.CurrentState)) {
    return refuse("mapPoints called with uncalibrated model.");
  }
  return addSpaceSteps(builder, from, to, yOffset, yScale);
}

}  // namespace

template <typename T>
bool mapPoints(const CalibrationModel& model, const Plane<T>& in, Plane<T>& out,
               CoordinateSystem from, CoordinateSystem to) {
  const base::DefaultFloatEnvironment environment;
  PlanBuilder builder(model);
  if (!planPlane(builder, model, from, to)) return false;
  run(builder.Plan(), in, out);
  return true;
}

template <typename T>
bool mapPoints(const CalibrationModel& model, const Vec<2, T>* in, Vec<2, T>* out,
               std::size_t count, CoordinateSystem from, CoordinateSystem to) {
  const base::DefaultFloatEnvironment environment;
  PlanBuilder builder(model);
  if (!planPlane(builder, model, from, to)) return false;
  run(builder.Plan(), in, out, count);
  return true;
}

template <typename T>
bool mapPoints(const CalibrationModel& model, const Space<T>& in, Space<T>& out,
               CoordinateSystem from, CoordinateSystem to, const double& yOffset,
               const double& yScale) {
  const base::DefaultFloatEnvironment environment;
  PlanBuilder builder(model);
  if (!planSpace(builder, model, from, to, yOffset, yScale)) return false;
  run(builder.Plan(), in, out);
  return true;
}

template <typename T>
bool mapPoints(const CalibrationModel& model, const Vec<3, T>* in, Vec<3, T>* out,
               std::size_t count, CoordinateSystem from, CoordinateSystem to, const double& yOffset,
               const double& yScale) {
  const base::DefaultFloatEnvironment environment;
  PlanBuilder builder(model);
  if (!planSpace(builder, model, from, to, yOffset, yScale)) return false;
  run(builder.Plan(), in, out, count);
  return true;
}

template <typename T>
bool mapPointsPixToCal(const CalibrationModel& model, const Plane<T>& in, Plane<T>& out) {
  return mapInPlane(model, in, out, CoordinateSystem::Pixel, CoordinateSystem::Calibrated);
}

template <typename T>
bool mapPointsCalToPix(const CalibrationModel& model, const Plane<T>& in, Plane<T>& out) {
  return mapInPlane(model, in, out, CoordinateSystem::Calibrated, CoordinateSystem::Pixel);
}

template <typename T>
bool mapPointsPixToAligned(const CalibrationModel& model, const Plane<T>& in, Plane<T>& out) {
  return mapInPlane(model, in, out, CoordinateSystem::Pixel, CoordinateSystem::Aligned);
}

template <typename T>
bool mapPointsAlignedToPix(const CalibrationModel& model, const Plane<T>& in, Plane<T>& out) {
  return mapInPlane(model, in, out, CoordinateSystem::Aligned, CoordinateSystem::Pixel);
}

template <typename T>
bool mapPointsAlignedToCal(const CalibrationModel& model, const Plane<T>& in, Plane<T>& out) {
  return mapInPlane(model, in, out, CoordinateSystem::Aligned, CoordinateSystem::Calibrated);
}

#define PLANEX_INSTANTIATE(T)                                                                     \
  template PLANEX_EXPORT bool mapPoints<T>(const CalibrationModel&, const Plane<T>&, Plane<T>&,   \
                                           CoordinateSystem, CoordinateSystem);                   \
  template PLANEX_EXPORT bool mapPoints<T>(const CalibrationModel&, const Space<T>&, Space<T>&,   \
                                           CoordinateSystem, CoordinateSystem, const double&,     \
                                           const double&);                                        \
  template PLANEX_EXPORT bool mapPoints<T>(const CalibrationModel&, const Vec<2, T>*, Vec<2, T>*, \
                                           std::size_t, CoordinateSystem, CoordinateSystem);      \
  template PLANEX_EXPORT bool mapPoints<T>(const CalibrationModel&, const Vec<3, T>*, Vec<3, T>*, \
                                           std::size_t, CoordinateSystem, CoordinateSystem,       \
                                           const double&, const double&);                         \
  template PLANEX_EXPORT bool mapPointsPixToCal<T>(const CalibrationModel&, const Plane<T>&,      \
                                                   Plane<T>&);                                    \
  template PLANEX_EXPORT bool mapPointsCalToPix<T>(const CalibrationModel&, const Plane<T>&,      \
                                                   Plane<T>&);                                    \
  template PLANEX_EXPORT bool mapPointsPixToAligned<T>(const CalibrationModel&, const Plane<T>&,  \
                                                       Plane<T>&);                                \
  template PLANEX_EXPORT bool mapPointsAlignedToPix<T>(const CalibrationModel&, const Plane<T>&,  \
                                                       Plane<T>&);                                \
  template PLANEX_EXPORT bool mapPointsAlignedToCal<T>(const CalibrationModel&, const Plane<T>&,  \
                                                       Plane<T>&)
PLANEX_INSTANTIATE(float);
PLANEX_INSTANTIATE(double);
#undef PLANEX_INSTANTIATE

}  // namespace datafusion::planex
