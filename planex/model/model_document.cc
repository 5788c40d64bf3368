#include <array>
#include <cstddef>
#include <utility>

#include "planex/infra/logger.h"
#include "planex/infra/sub_object.h"
#include "planex/infra/visitor.h"
#include "planex/model/calibration_model.h"

namespace datafusion::planex {
namespace {

constexpr std::int32_t kCurrentVersion = 2;

/// An enumeration as its name.
template <typename Enum>
void visitName(etl::IVisitor& visitor, Enum& value, const char* member, std::string (*nameOf)(Enum),
               Enum (*valueOf)(const std::string&)) {
  etl::String name = nameOf(value);
  visitor.VisitMemberS(name, member);
  if (visitor.IsReading() && !visitor.HasError()) value = valueOf(name);
}

template <typename T>
void visitPoint(etl::IVisitor& visitor, cmnalg::Vec<2, T>& point, const char* member,
                void (etl::IVisitor::*visit)(T&, const char*)) {
  etl::visitPlainSubObject(visitor, member, "", [&](etl::IVisitor& v) {
    (v.*visit)(point.x, "x");
    (v.*visit)(point.y, "y");
  });
}

void visitVector(etl::IVisitor& visitor, cmnalg::Vec<3, double>& vector, const char* member) {
  etl::visitPlainSubObject(visitor, member, "", [&](etl::IVisitor& v) {
    v.VisitMemberF64(vector.x, "x");
    v.VisitMemberF64(vector.y, "y");
    v.VisitMemberF64(vector.z, "z");
  });
}

/// An array of exactly seven numbers.
void visitLens(etl::IVisitor& visitor, std::array<double, 7>& lens) {
  std::array<double, 7> values = lens;
  std::size_t count = values.size();
  visitor.BeginVisitingArray(etl::ArrayType::Primitives, count, "LensCoefficients");
  if (visitor.HasError()) return;
  if (count != values.size()) {
    visitor.SetArraySizeMismatch();
    return;
  }
  visitor.VisitPodArray(values.data());
  visitor.EndVisitingArray(etl::ArrayType::Primitives);
  if (visitor.IsReading() && !visitor.HasError()) lens = values;
}

/// An array of any length.
void visitList(etl::IVisitor& visitor, etl::Vector<double>& list, const char* member) {
  std::size_t count = list.size();
  visitor.BeginVisitingArray(etl::ArrayType::Primitives, count, member);
  if (visitor.HasError()) return;
  if (!visitor.IsReading()) {
    visitor.VisitPodArray(list.data());
    visitor.EndVisitingArray(etl::ArrayType::Primitives);
    return;
  }
  etl::Vector<double> values(count);
  visitor.VisitPodArray(values.data());
  visitor.EndVisitingArray(etl::ArrayType::Primitives);
  if (!visitor.HasError()) list = std::move(values);
}

}  // namespace

void CalibrationModel::Visit(etl::IVisitor& visitor) {
  visitor.VisitMemberI32(FileVersion, "FileVersion");
  if (visitor.HasError()) return;
  if (visitor.IsReading() && FileVersion != kCurrentVersion) {
    base::Logger::Get(GetClassName())
        .Info("%s",
              "The file version does not match match the expected number. The process will "
              "continue, but the result may be incomplete.");
  }
  visitName(visitor, CurrentState, "CurrentState", stateToString, stringToState);
  visitName(visitor, SkewMode, "SkewMode", skewModeToString, stringToSkewMode);
  visitor.VisitMemberF64(CalibrationError, "CalibrationError");
  visitor.VisitMemberF64(CalibrationErrorMax, "CalibrationErrorMax");
  visitor.VisitMemberF64(AlignmentError, "AlignmentError");
  visitor.VisitMemberF64(AlignmentErrorMax, "AlignmentErrorMax");
  visitor.VisitMemberF64(FocalLength, "FocalLength");
  visitPoint(visitor, SensorSize, "SensorSize", &etl::IVisitor::VisitMemberI32);
  visitPoint(visitor, LensCenter, "LensCenter", &etl::IVisitor::VisitMemberF64);
  visitVector(visitor, Skew, "Skew");
  Homography.Visit(visitor, "Homography");
  Pose.Visit(visitor, "Pose");
  visitLens(visitor, LensCoefficients);
  if (visitor.HasError()) return;

  if (FileVersion >= kCurrentVersion) {
    visitList(visitor, SheetCurve, "SheetCurve");
    etl::visitPlainSubObject(visitor, "CalibratedRegion", "",
                             [this](etl::IVisitor& v) { CalibratedRegion.Visit(v); });
  } else if (visitor.IsReading()) {
    SheetCurve.clear();
    CalibratedRegion.Resize(0, 0);
  }
}

}  // namespace datafusion::planex
