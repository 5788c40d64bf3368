#include <pybind11/stl.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/arrays.h"
#include "core/bindings.h"
#include "core/call.h"
#include "planex/infra/json_deserializer.h"
#include "planex/infra/json_serializer.h"
#include "planex/infra/out_stream.h"
#include "planex/infra/visitable.h"
#include "planex/io/document_check.h"
#include "planex/io/model_check.h"
#include "planex/model/model_file.h"

namespace planex_python {
namespace {

using cmnalg::Image;
using datafusion::planex::CalibratedRegion;
using datafusion::planex::CalibrationModel;
using datafusion::planex::ModelState;
using datafusion::planex::SkewMode;
using Matrix = cmnalg::Matrix<double>;

std::string documentOf(etl::IVisitable& object, bool pretty) {
  etl::MemoryOutStream stream;
  base::JsonVisitingSerializer writer(stream, pretty);
  writer.Serialize(object);
  return std::string(stream.GetText());
}

/// Strict: a document with any fault is none; unless recover, and the sensor size confirms it.
CalibrationModel fromJson(const std::string& text, const std::string& source, bool recover) {
  CalibrationModel model;
  std::string fault;
  bool recovered = false;
  call([&] {
    base::JsonVisitingDeSerializer reader(text.c_str(), false);
    reader.DeserializeIntoExistingObject(model);
    if (reader.HasError()) fault = "is no model document. " + reader.GetErrorDescription();
    recovered = recover && reader.HasError() && sensorSizeConfirms(text.c_str(), model);
    if ((fault.empty() || recovered) && !model.IsConsistent()) {
      fault = "has a negative error figure or focal length.";
      recovered = false;
    }
    return true;
  });
  if (recovered) {
    log("planex.Image.Planex.Model", 30,
        source + " " + fault + ". Members behind the fault have the values of a new model.");
  } else if (!fault.empty()) {
    raise("DocumentError", source + " " + fault);
  }
  return model;
}

/// (member, text) of each fault: of the form that the document of the model has, or else of
/// meaning.
std::vector<std::pair<std::string, std::string>> faultsOf(const CalibrationModel& model) {
  std::vector<planex::io::Fault> faults;
  call([&] {
    CalibrationModel copy = model;  // visiting is not const
    faults = planex::io::checkDocument(documentOf(copy, false));
    if (faults.empty()) faults = planex::io::checkModel(model);
    return true;
  });
  std::vector<std::pair<std::string, std::string>> pairs;
  pairs.reserve(faults.size());
  for (const planex::io::Fault& fault : faults) pairs.emplace_back(fault.path, fault.text);
  return pairs;
}

std::string toJson(const CalibrationModel& model, bool pretty) {
  std::string text;
  bool readable = false;
  call([&] {
    CalibrationModel copy = model;  // visiting is not const
    text = documentOf(copy, pretty);
    // Numbers without a form in JSON are written as words that no reader takes.
    base::JsonVisitingDeSerializer reader(text.c_str(), true);
    readable = reader.DeserializeIntoExistingObject(copy);
    return true;
  });
  if (!readable) raise("DocumentError", "the model holds a number that JSON has no form for");
  return text;
}

/// The region of a model as a document of its own.
class RegionDocument final : public etl::IVisitable {
 public:
  explicit RegionDocument(CalibratedRegion& region) : region_(region) {}
  const char* GetClassName() const override { return "CalibratedRegion"; }
  void Visit(etl::IVisitor& visitor) override { region_.Visit(visitor); }
  std::unique_ptr<etl::IVisitable> CloneVisitable() const override {
    return std::make_unique<RegionDocument>(region_);
  }

 private:
  CalibratedRegion& region_;
};

/// Writes the bits of values, one after the other.
class BitWriter {
 public:
  static constexpr bool kReads = false;
  template <typename T>
  void operator()(const T* values, std::size_t count) {
    bits_.append(reinterpret_cast<const char*>(values), count * sizeof(T));
  }
  const std::string& Bits() const { return bits_; }

 private:
  std::string bits_;
};

/// Reads them; ValueError where they end early.
class BitReader {
 public:
  static constexpr bool kReads = true;
  explicit BitReader(const std::string& bits) : bits_(bits) {}
  template <typename T>
  void operator()(T* values, std::size_t count) {
    Require(count, sizeof(T));
    std::memcpy(values, bits_.data() + position_, count * sizeof(T));
    position_ += count * sizeof(T);
  }
  void Require(std::size_t count, std::size_t size) const {
    if (count > (bits_.size() - position_) / size) Damaged();
  }
  void RequireEnd() const {
    if (position_ != bits_.size()) Damaged();
  }
  [[noreturn]] static void Damaged() { throw py::value_error("these are no bits of a model"); }

 private:
  const std::string& bits_;
  std::size_t position_ = 0;
};

template <typename Bits>
void passMatrix(Bits& bits, Matrix& matrix) {
  std::int32_t size[2] = {matrix.Height(), matrix.Width()};
  bits(size, 2);
  if constexpr (Bits::kReads) {
    if (size[0] < 0 || size[1] < 0) bits.Damaged();
    const auto count = static_cast<std::size_t>(size[0]) * static_cast<std::size_t>(size[1]);
    bits.Require(count, sizeof(double));
    if (!matrix.Create(size[0], size[1])) throw std::bad_alloc();
  }
  for (int row = 0; row < size[0]; ++row) bits(matrix[row], static_cast<std::size_t>(size[1]));
}

/// Every field of a model, but the region: written, or read, in one order.
template <typename Bits>
void passFields(Bits& bits, CalibrationModel& model) {
  bits(&model.FileVersion, 1);
  bits(&model.CurrentState, 1);
  bits(&model.SkewMode, 1);
  for (double* value : {&model.CalibrationError, &model.CalibrationErrorMax, &model.AlignmentError,
                        &model.AlignmentErrorMax, &model.FocalLength}) {
    bits(value, 1);
  }
  bits(&model.LensCenter, 1);
  bits(model.LensCoefficients.data(), model.LensCoefficients.size());
  bits(&model.Skew, 1);
  passMatrix(bits, model.Homography);
  passMatrix(bits, model.Pose);
  std::uint64_t count = model.SheetCurve.size();
  bits(&count, 1);
  if constexpr (Bits::kReads) {
    bits.Require(count, sizeof(double));
    model.SheetCurve.resize(count);
  }
  bits(model.SheetCurve.data(), model.SheetCurve.size());
  bits(&model.SensorSize, 1);
}

/// Two parts: the fields, and the region as a document. Equal models have equal bits, and NaN and
/// -0.0, which a document cannot tell or compares as another number, keep theirs.
py::tuple bitsOf(CalibrationModel& model) {
  BitWriter writer;
  passFields(writer, model);
  RegionDocument region(model.CalibratedRegion);
  return py::make_tuple(py::bytes(writer.Bits()), py::bytes(documentOf(region, false)));
}

CalibrationModel fromBits(const std::string& fields, const std::string& region) {
  CalibrationModel model;
  BitReader reader(fields);
  passFields(reader, model);
  reader.RequireEnd();
  RegionDocument document(model.CalibratedRegion);
  base::JsonVisitingDeSerializer regionReader(region.c_str(), true);
  if (!regionReader.DeserializeIntoExistingObject(document)) BitReader::Damaged();
  return model;
}

using Numbers = py::array_t<double, py::array::c_style | py::array::forcecast>;

/// Read-only: a model never changes.
py::array arrayOf(const double* values, py::array::ShapeContainer shape) {
  py::array_t<double> array(std::move(shape), values);
  array.attr("setflags")(py::arg("write") = false);
  return std::move(array);
}

py::array arrayOf(const Matrix& matrix) {
  // A copy has rows without padding.
  const Matrix packed = matrix;  // NOLINT(performance-unnecessary-copy-initialization)
  return arrayOf(packed.Data(), {packed.Height(), packed.Width()});
}

Matrix matrixOf(const Numbers& values) {
  return Matrix::FromRows(static_cast<int>(values.shape(0)), static_cast<int>(values.shape(1)),
                          values.data());
}

/// Five arrays and the places of the cells; without them an empty region.
CalibratedRegion regionOf(py::handle given) {
  CalibratedRegion region;
  if (given.is_none()) return region;
  const auto parts = py::cast<py::tuple>(given);
  Image images[5];
  for (std::size_t i = 0; i < 5; ++i) {
    const TypeSet type = oneOf({i == 0 ? cmnalg::IMAGE_TYPE_INT32 : cmnalg::IMAGE_TYPE_FLOAT32});
    const Profiles cells = readProfiles(parts[i], "region", type);
    if (cells.rows > (1 << 15) || cells.columns > (1 << 15)) {
      throw py::value_error("region must have at most 32768 rows and columns");
    }
    if (!cells.IsEmpty()) cells.View(0, static_cast<int>(cells.rows), images[i]);
  }
  const auto number = [&](std::size_t i) { return py::cast<double>(parts[i]); };
  images[0].Origin = {number(5), number(6), 0.0};
  images[0].PixelSize = {number(7), number(8), 1.0};
  call([&] { return region.SetImages(images[0], images[1], images[2], images[3], images[4]); });
  return region;
}

/// A copy with some of the document's fields changed. Python has checked names and shapes.
CalibrationModel replaced(const CalibrationModel& model, const py::dict& fields) {
  CalibrationModel copy = model;
  for (const auto& [key, value] : fields) {
    const auto name = py::cast<std::string>(key);
    const auto numbers = [&, given = value] { return py::cast<Numbers>(given); };
    if (name == "file_version") copy.FileVersion = py::cast<std::int32_t>(value);
    if (name == "state") copy.CurrentState = static_cast<ModelState>(py::cast<int>(value));
    if (name == "skew_mode") copy.SkewMode = static_cast<SkewMode>(py::cast<int>(value));
    if (name == "calibration_error") copy.CalibrationError = py::cast<double>(value);
    if (name == "calibration_error_max") copy.CalibrationErrorMax = py::cast<double>(value);
    if (name == "alignment_error") copy.AlignmentError = py::cast<double>(value);
    if (name == "alignment_error_max") copy.AlignmentErrorMax = py::cast<double>(value);
    if (name == "focal_length") copy.FocalLength = py::cast<double>(value);
    if (name == "sensor_size") {
      const auto size = py::cast<std::array<std::int32_t, 2>>(value);
      copy.SensorSize = {size[0], size[1]};
    }
    if (name == "lens_center") std::copy_n(numbers().data(), 2, &copy.LensCenter.x);
    if (name == "lens_coefficients") std::copy_n(numbers().data(), 7, copy.LensCoefficients.data());
    if (name == "skew") std::copy_n(numbers().data(), 3, &copy.Skew.x);
    if (name == "homography") copy.Homography = matrixOf(numbers());
    if (name == "pose") copy.Pose = matrixOf(numbers());
    if (name == "sheet_curve") {
      const Numbers curve = numbers();
      copy.SheetCurve.assign(curve.data(), curve.data() + curve.size());
    }
    if (name == "region") copy.CalibratedRegion = regionOf(value);
  }
  return copy;
}

CalibrationModel mirrored(const CalibrationModel& model, bool atX, double x, bool atZ, double z) {
  CalibrationModel copy = model;
  call([&] {
    return (!atX || copy.mirror(true, {x, 0.0})) && (!atZ || copy.mirror(false, {0.0, z}));
  });
  return copy;
}

template <typename T>
py::array pixelsOf(const Image& image) {
  py::array_t<T> pixels({image.GetHeight(), image.GetWidth()});
  const auto columns = static_cast<std::size_t>(image.GetWidth());
  for (int row = 0; row < image.GetHeight(); ++row) {
    const auto* from = static_cast<const T*>(image.GetData()) +
                       static_cast<std::ptrdiff_t>(row) * image.GetPitch();
    std::memcpy(pixels.mutable_data(row, 0), from, columns * sizeof(T));
  }
  pixels.attr("setflags")(py::arg("write") = false);
  return std::move(pixels);
}

/// The five images and the places of the cells; None without a region.
py::object residualsOf(const CalibrationModel& model) {
  const CalibratedRegion& region = model.CalibratedRegion;
  Image count;
  Image average[2];
  Image maximum[2];
  if (!region.IsValid() || !region.GetPointCount(count) ||
      !region.GetAverageResiduals(average[0], average[1]) ||
      !region.GetMaximumResiduals(maximum[0], maximum[1])) {
    return py::none();
  }
  return py::make_tuple(pixelsOf<std::int32_t>(count), pixelsOf<float>(average[0]),
                        pixelsOf<float>(average[1]), pixelsOf<float>(maximum[0]),
                        pixelsOf<float>(maximum[1]), py::make_tuple(count.Origin.x, count.Origin.y),
                        py::make_tuple(count.PixelSize.x, count.PixelSize.y));
}

}  // namespace

void bindModel(py::module_& module) {
  py::class_<CalibrationModel>(module, "Model")
      .def(py::init<>())
      .def_readonly("file_version", &CalibrationModel::FileVersion)
      .def_readonly("calibration_error", &CalibrationModel::CalibrationError)
      .def_readonly("calibration_error_max", &CalibrationModel::CalibrationErrorMax)
      .def_readonly("alignment_error", &CalibrationModel::AlignmentError)
      .def_readonly("alignment_error_max", &CalibrationModel::AlignmentErrorMax)
      .def_readonly("focal_length", &CalibrationModel::FocalLength)
      .def_property_readonly(
          "state", [](const CalibrationModel& m) { return static_cast<int>(m.CurrentState); })
      .def_property_readonly("skew_mode",
                             [](const CalibrationModel& m) { return static_cast<int>(m.SkewMode); })
      .def_property_readonly(
          "sensor_size",
          [](const CalibrationModel& m) { return py::make_tuple(m.SensorSize.x, m.SensorSize.y); })
      .def_property_readonly(
          "lens_center", [](const CalibrationModel& m) { return arrayOf(&m.LensCenter.x, {2}); })
      .def_property_readonly(
          "lens_coefficients",
          [](const CalibrationModel& m) { return arrayOf(m.LensCoefficients.data(), {7}); })
      .def_property_readonly("skew",
                             [](const CalibrationModel& m) { return arrayOf(&m.Skew.x, {3}); })
      .def_property_readonly("homography",
                             [](const CalibrationModel& m) { return arrayOf(m.Homography); })
      .def_property_readonly("pose", [](const CalibrationModel& m) { return arrayOf(m.Pose); })
      .def_property_readonly("sheet_curve",
                             [](const CalibrationModel& m) {
                               return arrayOf(m.SheetCurve.data(),
                                              {static_cast<py::ssize_t>(m.SheetCurve.size())});
                             })
      .def_property_readonly("region", &residualsOf);
  module.def("from_json", &fromJson);
  module.def("to_json", &toJson);
  module.def("faults_of", &faultsOf);
  module.def("write_model", [](const CalibrationModel& model, const std::string& path) {
    call([&] { return writeModel(path, model); });
  });
  module.def("replaced", &replaced);
  module.def("mirrored", &mirrored);
  module.def("bits_of", &bitsOf);
  module.def("from_bits", &fromBits);
}

}  // namespace planex_python
