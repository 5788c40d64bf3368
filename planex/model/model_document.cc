#include <cstddef>

#include "planex/infra/logger.h"
#include "planex/infra/sub_object.h"
#include "planex/model/calibration_model.h"

namespace datafusion::planex {
namespace {

constexpr std::int32_t kFileVersion = 2;

/// An enumeration as its name: converted before writing and after reading.
template <typename Enum, typename ToText, typename FromText>
void visitName(etl::IVisitor& visitor, Enum& value, const char* name, ToText toText,
               FromText fromText) {
  std::string text = toText(value);
  visitor.VisitMemberS(text, name);
  if (visitor.IsReading() && !visitor.HasError()) value = fromText(text);
}

/// Exactly the seven coefficients.
void visitLensCoefficients(etl::IVisitor& visitor, std::array<double, 7>& coefficients) {
  std::size_t count = coefficients.size();
  visitor.BeginVisitingArray(etl::ArrayType::Primitives, count, "LensCoefficients");
  if (visitor.HasError()) return;
  if (count != coefficients.size()) {
    visitor.SetError(
        "Serialized array size mismatch while de-serializing class 'Image.Planex.Model'");
    return;
  }
  visitor.VisitPodArray(coefficients.data());
  visitor.EndVisitingArray(etl::ArrayType::Primitives);
}

void visitSheetCurve(etl::IVisitor& visitor, etl::Vector<double>& curve) {
  std::size_t count = curve.size();
  visitor.BeginVisitingArray(etl::ArrayType::Primitives, count, "SheetCurve");
  if (visitor.HasError()) return;
  curve.resize(count);
  visitor.VisitPodArray(curve.data());
  visitor.EndVisitingArray(etl::ArrayType::Primitives);
}

template <typename T>
void visitXy(etl::IVisitor& visitor, const char* name, cmnalg::Vec<2, T>& point,
             void (etl::IVisitor::*member)(T&, const char*)) {
  etl::visitPlainSubObject(visitor, name, "", [&](etl::IVisitor& members) {
    (members.*member)(point.x, "x");
    (members.*member)(point.y, "y");
  });
}

void visitXyz(etl::IVisitor& visitor, const char* name, cmnalg::Vec<3, double>& point) {
  etl::visitPlainSubObject(visitor, name, "", [&](etl::IVisitor& members) {
    members.VisitMemberF64(point.x, "x");
    members.VisitMemberF64(point.y, "y");
    members.VisitMemberF64(point.z, "z");
  });
}

}  // namespace

void CalibrationModel::Visit(etl::IVisitor& visitor) {
  visitor.VisitMemberI32(FileVersion, "FileVersion");
  if (visitor.IsReading() && !visitor.HasError() && FileVersion != kFileVersion) {
    base::Logger::Get(GetClassName())
        .Info(
            "The file version does not match match the expected number. The process will continue, "
            "but the result may be incomplete.");
  }
  visitName(visitor, CurrentState, "CurrentState", stateToString, stringToState);
  visitName(visitor, SkewMode, "SkewMode", skewModeToString, stringToSkewMode);
  visitor.VisitMemberF64(CalibrationError, "CalibrationError");
  visitor.VisitMemberF64(CalibrationErrorMax, "CalibrationErrorMax");
  visitor.VisitMemberF64(AlignmentError, "AlignmentError");
  visitor.VisitMemberF64(AlignmentErrorMax, "AlignmentErrorMax");
  visitor.VisitMemberF64(FocalLength, "FocalLength");
  visitXy(visitor, "SensorSize", SensorSize, &etl::IVisitor::VisitMemberI32);
  visitXy(visitor, "LensCenter", LensCenter, &etl::IVisitor::VisitMemberF64);
  visitXyz(visitor, "Skew", Skew);
  Homography.Visit(visitor, "Homography");
  Pose.Visit(visitor, "Pose");
  visitLensCoefficients(visitor, LensCoefficients);
  if (visitor.HasError()) return;
  if (FileVersion >= kFileVersion) {
    visitSheetCurve(visitor, SheetCurve);
    etl::visitPlainSubObject(visitor, "CalibratedRegion", "",
                             [&](etl::IVisitor& members) { CalibratedRegion.Visit(members); });
  } else if (visitor.IsReading()) {
    SheetCurve.clear();
    CalibratedRegion.Resize(0, 0);
  }
}

}  // namespace datafusion::planex
