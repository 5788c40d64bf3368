#include "planex/estimation/uncertainty_document.h"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "planex/estimation/camera_terms.h"
#include "planex/infra/json_deserializer.h"
#include "planex/infra/json_serializer.h"
#include "planex/infra/out_stream.h"
#include "planex/infra/sub_object.h"
#include "planex/infra/visitor.h"
#include "planex/model/model_checks.h"
#include "planex/model/point_mapping.h"

namespace planex::estimation {
namespace {

using datafusion::planex::CalibrationModel;
using Parts = MapUncertainty::Parts;
using Frame = MapUncertainty::Frame;
using Pixel = cmnalg::Vec<2, double>;

const char kMember[] = "Estimation";
constexpr std::size_t kTriangle = std::size_t{kTermCount} * (kTermCount + 1) / 2;
constexpr std::size_t kMostMinima = 32;
constexpr int kMostSensor = 65535;

[[noreturn]] void fail(const std::string& what) {
  throw UncertaintyFault("the member Estimation is of no use: " + what);
}

/// @{
/// A list of as many numbers.
void visitNumbers(etl::IVisitor& visitor, double* numbers, std::size_t wanted, const char* name) {
  std::size_t count = wanted;
  visitor.BeginVisitingArray(etl::ArrayType::Primitives, count, name);
  if (visitor.HasError()) return;
  if (count != wanted) {
    fail(std::string(name) + " has a list of " + std::to_string(count) + " numbers, not " +
         std::to_string(wanted));
  }
  visitor.VisitPodArray(numbers);
  visitor.EndVisitingArray(etl::ArrayType::Primitives);
}
template <typename List>
void visitNumbers(etl::IVisitor& visitor, List& numbers, const char* name) {
  visitNumbers(visitor, numbers.data(), numbers.size(), name);
}
/// @}

/// A list of at most so many lists of `width` numbers.
void visitRows(etl::IVisitor& visitor, std::vector<double>& numbers, std::size_t width,
               std::size_t most, const char* name) {
  std::size_t count = numbers.size() / width;
  visitor.BeginVisitingArray(etl::ArrayType::Arrays, count, name);
  if (visitor.HasError()) return;
  if (count > most) {
    fail(std::string(name) + " has more than " + std::to_string(most) + " entries");
  }
  numbers.resize(count * width);
  for (std::size_t i = 0; i < count && !visitor.HasError(); ++i) {
    if (i > 0) visitor.VisitArraySeparator();
    visitNumbers(visitor, numbers.data() + i * width, width, name);
  }
  visitor.EndVisitingArray(etl::ArrayType::Arrays);
}

template <typename T>
void visitPair(etl::IVisitor& visitor, cmnalg::Vec<2, T>& pair, const char* name,
               void (etl::IVisitor::*visit)(T&, const char*)) {
  etl::visitPlainSubObject(visitor, name, name, [&](etl::IVisitor& v) {
    (v.*visit)(pair.x, "x");
    (v.*visit)(pair.y, "y");
  });
}

/// The parts as a document has them.
struct Record {
  std::string frame = "fixed";
  cmnalg::Vec<2, std::int32_t> sensorSize;
  Pixel shift;
  double noise = 0, radius = 0;
  CameraTerms terms{};
  std::vector<double> triangle = std::vector<double>(kTriangle);
  std::vector<double> minima, measured;  // rows of 22 and 2

  Record() = default;
  explicit Record(const MapUncertainty& uncertainty);
  void visit(etl::IVisitor& visitor);
  void check() const;
  Parts parts() const;
};

Record::Record(const MapUncertainty& uncertainty) : frame(uncertainty.frameName()) {
  const Parts& parts = uncertainty.parts();
  sensorSize = {parts.sensorSize.x, parts.sensorSize.y};
  shift = parts.shift;
  noise = parts.noise;
  radius = parts.radius;
  terms = parts.terms;
  triangle.clear();
  for (std::size_t row = 0; row < kTermCount; ++row) {
    const double* const values = parts.covariance.data() + row * kTermCount;
    triangle.insert(triangle.end(), values, values + row + 1);
  }
  for (const MapUncertainty::OtherMinimum& other : parts.others) {
    minima.push_back(other.weight);
    minima.insert(minima.end(), other.terms.begin(), other.terms.end());
  }
  for (const Pixel& corner : parts.measured) {
    measured.insert(measured.end(), {corner.x, corner.y});
  }
}

void Record::visit(etl::IVisitor& visitor) {
  visitor.VisitMemberS(frame, "Frame");
  visitPair(visitor, sensorSize, "Sensor", &etl::IVisitor::VisitMemberI32);
  visitor.VisitMemberF64(noise, "Noise");
  visitor.VisitMemberF64(radius, "Radius");
  visitPair(visitor, shift, "Shift", &etl::IVisitor::VisitMemberF64);
  visitNumbers(visitor, terms, "Terms");
  visitNumbers(visitor, triangle, "Covariance");
  visitRows(visitor, minima, kTermCount + 1, kMostMinima, "OtherMinima");
  visitRows(visitor, measured, 2, MapUncertainty::kMostCorners, "Measured");
}

/// A covariance may be short of positive semidefinite by rounding, relative to its variances.
bool isCovariance(const MapUncertainty::Parts& parts) {
  constexpr double kRounding = 1e-9;
  using Square = Eigen::Matrix<double, kTermCount, kTermCount, Eigen::RowMajor>;
  Square matrix = Eigen::Map<const Square>(parts.covariance.data());
  // Terms without variance have no covariance either.
  const Eigen::Matrix<double, kTermCount, 1> scale = matrix.diagonal().unaryExpr(
      [](double variance) { return variance > 0 ? 1 / std::sqrt(variance) : 1.0; });
  matrix = scale.asDiagonal() * matrix * scale.asDiagonal();
  if (matrix.diagonal().minCoeff() < 0 || !matrix.allFinite()) return false;
  if (matrix.cwiseAbs().maxCoeff() > 1 + kRounding) return false;
  const Eigen::SelfAdjointEigenSolver<Square> solver(matrix, Eigen::EigenvaluesOnly);
  return solver.eigenvalues().minCoeff() > -kRounding;
}

void Record::check() const {
  if (frame != "fixed" && frame != "rigid") fail("Frame is neither fixed nor rigid");
  for (const std::int32_t size : {sensorSize.x, sensorSize.y}) {
    if (size < 2 || size > kMostSensor) fail("Sensor is not 2 to 65535 each way");
  }
  if (!(noise >= 0)) fail("Noise is below 0");
  if (!(radius > 0)) fail("Radius is not above 0");
  for (std::size_t i = 0; i < minima.size(); i += kTermCount + 1) {
    if (!(minima[i] >= 0 && minima[i] <= 1)) fail("a weight of OtherMinima is not 0 to 1");
  }
  if (measured.size() < 6) fail("Measured has less than 3 corners");
  for (std::size_t i = 0; i < measured.size(); i += 2) {
    if (!(measured[i] >= -1 && measured[i] <= sensorSize.x && measured[i + 1] >= -1 &&
          measured[i + 1] <= sensorSize.y)) {
      fail("Measured has a corner off the sensor");
    }
  }
}

Parts Record::parts() const {
  Parts parts;
  parts.frame = frame == "rigid" ? Frame::kRigid : Frame::kFixed;
  parts.sensorSize = {sensorSize.x, sensorSize.y};
  parts.shift = shift;
  parts.noise = noise;
  parts.radius = radius;
  parts.terms = terms;
  auto next = triangle.begin();
  for (std::size_t row = 0; row < kTermCount; ++row) {
    for (std::size_t column = 0; column <= row; ++column, ++next) {
      parts.covariance[row * kTermCount + column] = *next;
      parts.covariance[column * kTermCount + row] = *next;
    }
  }
  for (std::size_t i = 0; i < minima.size(); i += kTermCount + 1) {
    MapUncertainty::OtherMinimum other{minima[i], {}};
    std::copy_n(minima.begin() + static_cast<std::ptrdiff_t>(i) + 1, kTermCount,
                other.terms.begin());
    parts.others.push_back(other);
  }
  for (std::size_t i = 0; i < measured.size(); i += 2) {
    parts.measured.push_back({measured[i], measured[i + 1]});
  }
  return parts;
}

/// A model document with the member behind the others.
class EstimatedModel final : public etl::IVisitable {
 public:
  const char* GetClassName() const override { return model.GetClassName(); }
  std::unique_ptr<etl::IVisitable> CloneVisitable() const override {
    return std::make_unique<EstimatedModel>(*this);
  }
  void Visit(etl::IVisitor& visitor) override {
    model.Visit(visitor);
    if (visitor.HasError()) return;
    etl::visitPlainSubObject(visitor, kMember, kMember,
                             [this](etl::IVisitor& v) { record.visit(v); });
  }

  CalibrationModel model;
  Record record;
};

/// Asks for the member as what it never is: the reader's error tells what is there.
class MemberProbe final : public etl::IVisitable {
 public:
  const char* GetClassName() const override { return model_.GetClassName(); }
  std::unique_ptr<etl::IVisitable> CloneVisitable() const override {
    return std::make_unique<MemberProbe>(*this);
  }
  void Visit(etl::IVisitor& visitor) override {
    double number = 0;
    model_.Visit(visitor);
    isModel = !visitor.HasError();
    visitor.VisitMemberF64(number, kMember);
  }
  std::string absence() const {
    return std::string("Data field '") + kMember + "' of class '" + GetClassName() +
           "' not found or out or range";
  }

  bool isModel = false;

 private:
  CalibrationModel model_;
};

/// Whether the places that the terms give are those of the document.
bool isOf(const CalibrationModel& model, const Parts& parts) {
  using datafusion::planex::CoordinateSystem;
  constexpr int kColumns = 33, kRows = 17;
  constexpr double kPart = 1e-6;
  if (!isCalibrated(model.CurrentState) || !homographyUsable(model) || !sheetCurveUsable(model) ||
      model.SensorSize.x != parts.sensorSize.x || model.SensorSize.y != parts.sensorSize.y) {
    return false;
  }
  bool any = false;
  for (int i = 0; i < kColumns * kRows; ++i) {
    const int column = i % kColumns, row = i / kColumns;
    const Pixel pixel{(parts.sensorSize.x - 1) * (column / (kColumns - 1.0)),
                      (parts.sensorSize.y - 1) * (row / (kRows - 1.0))};
    Pixel place;
    if (!datafusion::planex::mapPoints<double>(model, &pixel, &place, 1, CoordinateSystem::Pixel,
                                               CoordinateSystem::Calibrated)) {
      return false;
    }
    MapDerivative d;
    differentiateByPixel(parts.terms, parts.radius, pixel, d);
    // How far the sensor would see if it were everywhere as here: near a horizon, far.
    const double seen = std::hypot(std::hypot(d.pixel[0][0], d.pixel[1][0]) * parts.sensorSize.x,
                                   std::hypot(d.pixel[0][1], d.pixel[1][1]) * parts.sensorSize.y);
    const double off =
        std::hypot(d.value[0] + parts.shift.x - place.x, d.value[1] + parts.shift.y - place.y);
    if (!std::isfinite(place.x) && !std::isfinite(d.value[0])) continue;
    if (!(off <= kPart * seen)) return false;
    any = true;
  }
  return any;
}

}  // namespace

UncertaintyFault::~UncertaintyFault() = default;

std::string documentOf(const CalibrationModel& model, const MapUncertainty& uncertainty,
                       bool pretty) {
  EstimatedModel document;
  document.model = model;
  document.record = Record(uncertainty);
  etl::MemoryOutStream stream;
  base::JsonVisitingSerializer writer(stream, pretty);
  if (!writer.Serialize(document)) fail(writer.GetErrorDescription());
  std::string text(stream.GetText());
  // Numbers without a form in JSON are written as words that no reader takes.
  base::JsonVisitingDeSerializer reader(text.c_str(), true);
  if (!reader.DeserializeIntoExistingObject(document)) fail(reader.GetErrorDescription());
  return text;
}

std::optional<MapUncertainty> uncertaintyIn(const std::string& text) {
  MemberProbe probe;
  base::JsonVisitingDeSerializer asked(text.c_str(), false);
  asked.DeserializeIntoExistingObject(probe);
  const std::string& error = asked.GetErrorDescription();
  if (!probe.isModel) throw UncertaintyFault("is no model document (" + error + ")");
  if (error == probe.absence()) return std::nullopt;
  EstimatedModel document;
  base::JsonVisitingDeSerializer reader(text.c_str(), false);
  if (!reader.DeserializeIntoExistingObject(document)) fail(reader.GetErrorDescription());
  document.record.check();
  const Parts parts = document.record.parts();
  if (!isCovariance(parts)) fail("Covariance is none");
  if (!isOf(document.model, parts)) {
    throw UncertaintyFault(
        "the member Estimation belongs to another map than that of the document; estimate anew");
  }
  return MapUncertainty(parts);
}

}  // namespace planex::estimation
