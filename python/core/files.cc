#include <pybind11/stl.h>
#include <unistd.h>

#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "core/bindings.h"
#include "core/call.h"
#include "planex/io/failure.h"
#include "planex/io/image_reader.h"
#include "planex/scan/sensor.h"
#include "planex/scan/sidecar.h"
#include "planex/scan/y_positions.h"

namespace planex_python {
namespace {

namespace io = planex::io;
namespace scan = planex::scan;

using datafusion::planex::CalibrationModel;
using io::Failure;
using io::ImageReader;
using io::ImageShape;

/// A range image in a file, for all threads of the interpreter.
///
/// A reader stands in the middle of a file, so each call has one for itself: one that another call
/// left, or a new one. Readers that failed are not used again, nor those of a parent process, with
/// which the file's position would be shared.
class ImageFile {
 public:
  explicit ImageFile(std::string path) : path_(std::move(path)) {
    const py::gil_scoped_release release;
    idle_.push_back(ImageReader::open(path_, io::Samples::kRanges));
    shape_ = idle_.back()->shape();
  }

  const ImageShape& Shape() const { return shape_; }

  /// Rows from `first` on, into an array of its type and as many columns.
  py::object Read(std::int64_t first, std::int64_t count, py::object given) {
    if (first < 0 || count < 0 || count > shape_.height - first) {
      throw py::value_error("rows lie outside the image");
    }
    Output out(std::move(given), "out", shape_.type, count, shape_.width);
    out.Allocate();
    std::unique_ptr<ImageReader> reader;
    forEachBlock(count, profilesPerBlock(kPixelsPerBlock, {&out.profiles}), 0,
                 [&](std::int64_t done, int rows) {
                   if (reader == nullptr) reader = Take();
                   reader->readRows(static_cast<int>(first + done), rows, out.profiles.At(done));
                   return true;
                 });
    if (reader != nullptr) {
      const std::lock_guard<std::mutex> lock(idleLock_);
      idle_.push_back(std::move(reader));
    }
    return out.array;
  }

 private:
  std::unique_ptr<ImageReader> Take() {
    {
      const std::lock_guard<std::mutex> lock(idleLock_);
      if (process_ != ::getpid()) idle_.clear();
      process_ = ::getpid();
      if (!idle_.empty()) {
        std::unique_ptr<ImageReader> reader = std::move(idle_.back());
        idle_.pop_back();
        return reader;
      }
    }
    std::unique_ptr<ImageReader> reader = ImageReader::open(path_, io::Samples::kRanges);
    const ImageShape& shape = reader->shape();
    if (shape.width == shape_.width && shape.height == shape_.height && shape.type == shape_.type) {
      return reader;
    }
    throw Failure(path_, "has become an image of another size or type; open it again");
  }

  std::string path_;
  ImageShape shape_;
  std::mutex idleLock_;  // never waits for the GIL
  std::vector<std::unique_ptr<ImageReader>> idle_;
  pid_t process_ = ::getpid();
};

/// The numbers of a sensor region, sizes as far as they are told; None where nothing is. And where
/// rows lie.
py::tuple readSidecar(const std::string& path, const CalibrationModel* model) {
  const scan::ScanSidecar told = scan::readScanSidecar(path, "");
  py::object sensor = py::none();
  if (told.scaleX && model != nullptr) {
    const scan::ResolvedSensor region = scan::resolveSensor({}, told, *model, "the model");
    sensor = py::make_tuple(region.width, region.height, region.scaleX, region.originX,
                            region.scaleZ, region.originZ);
  } else if (told.scaleX) {
    sensor = py::make_tuple(told.width, told.height, told.scaleX, told.originX, told.scaleZ,
                            told.originZ);
  }
  return py::make_tuple(sensor, told.scaleY, told.originY, py::bytes(told.positions));
}

/// Y of so many rows.
py::array rowPositions(const std::string& path, int rows) {
  const scan::YPositions y = scan::resolveY({}, scan::readScanSidecar(path, ""), rows);
  py::array_t<double> positions(rows);
  for (int row = 0; row < rows; ++row) positions.mutable_at(row) = y.at(row);
  return std::move(positions);
}

void translate(std::exception_ptr thrown) {
  try {
    if (thrown != nullptr) std::rethrow_exception(std::move(thrown));
  } catch (const Failure& failure) {
    setError("ImageError", failure.what());
  }
}

}  // namespace

void bindFiles(py::module_& module) {
  py::register_local_exception_translator(&translate);
  py::class_<ImageFile>(module, "ImageFile")
      .def(py::init<std::string>())
      .def_property_readonly("shape",
                             [](const ImageFile& file) {
                               return py::make_tuple(file.Shape().height, file.Shape().width);
                             })
      .def_property_readonly(
          "type_name",
          [](const ImageFile& file) { return cmnalg::serialisedTypeName(file.Shape().type); })
      .def("read", &ImageFile::Read);
  module.def("read_sidecar", &readSidecar);
  module.def("row_positions", &rowPositions);
}

}  // namespace planex_python
