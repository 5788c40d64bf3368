#include <cassert>
#include <string>
#include <utility>

#include "core/bindings.h"
#include "core/call.h"
#include "planex/processing/image_alignment.h"

namespace planex_python {

using cmnalg::Image;
using cmnalg::ImageOf;
using datafusion::planex::CalibrationModel;
using datafusion::planex::RunMode;

double numberOf(py::handle record, const FieldName& name) {
  const auto value = py::reinterpret_steal<py::object>(PyObject_GetAttr(record.ptr(), name.text));
  if (!value) throw py::error_already_set();
  const double number = PyFloat_AsDouble(value.ptr());
  if (number == -1.0 && PyErr_Occurred() != nullptr) throw py::error_already_set();
  return number;
}

datafusion::planex::SensorRegion regionOf(py::handle sensor) {
  static const FieldName scaleX("scale_x"), originX("origin_x"), scaleZ("scale_z"),
      originZ("origin_z"), width("width"), height("height");
  datafusion::planex::SensorRegion region;
  region.scaleX = numberOf(sensor, scaleX);
  region.originX = numberOf(sensor, originX);
  region.scaleZ = numberOf(sensor, scaleZ);
  region.originZ = numberOf(sensor, originZ);
  region.width = static_cast<int>(numberOf(sensor, width));  // 0 to 65535
  region.height = static_cast<int>(numberOf(sensor, height));
  return region;
}

void raiseOutsideSensor(const CalibrationModel& model) {
  raise("Error", "the sensor region lies outside the model's sensor of " +
                     std::to_string(model.SensorSize.x) + " x " +
                     std::to_string(model.SensorSize.y) + " pixels");
}

RangeScan::RangeScan(const CalibrationModel& ofModel, py::handle range, py::handle sensor,
                     bool isAligned, bool inDouble)
    : model(ofModel),
      profiles(readProfiles(range, "range_image", kMeasured)),
      region(regionOf(sensor)),
      aligned(isAligned),
      mode(inDouble ? RunMode::DoublePrecision : RunMode::SinglePrecision) {
  if (!isOnSensor(model, region)) raiseOutsideSensor(model);
}

bool RangeScan::Calibrate(std::int64_t first, int count, ImageOf<float>& x,
                          ImageOf<float>& z) const {
  Image range;
  profiles.View(first, count, range);
  range.PixelSize = {region.scaleX, 1.0, region.scaleZ};
  range.Origin = {region.originX, 0.0, region.originZ};
  return applyCalibration(model, aligned, range, x, z, mode);
}

namespace {

py::tuple calibrate(const CalibrationModel& model, py::handle range, py::handle sensor,
                    bool aligned, bool inDouble, py::object xOut, py::object zOut, int threads) {
  const RangeScan scan(model, range, sensor, aligned, inDouble);
  const Profiles& in = scan.profiles;
  Output x(std::move(xOut), "out[0]", cmnalg::IMAGE_TYPE_FLOAT32, in.rows, in.columns);
  Output z(std::move(zOut), "out[1]", cmnalg::IMAGE_TYPE_FLOAT32, in.rows, in.columns);
  requireDisjoint({&in}, {&x.profiles, &z.profiles});
  x.Allocate();
  z.Allocate();
  if (!in.IsEmpty()) {
    forEachBlock(in.rows, profilesPerBlock(kPixelsPerBlock, {&in}), threads,
                 [&](std::int64_t first, int count) {
                   ImageOf<float> xImage;
                   ImageOf<float> zImage;
                   x.profiles.View(first, count, xImage);
                   z.profiles.View(first, count, zImage);
                   const bool done = scan.Calibrate(first, count, xImage, zImage);
                   assert(!done || (xImage.GetData() == x.profiles.At(first) &&
                                    zImage.GetData() == z.profiles.At(first)));
                   return done;
                 });
  }
  return py::make_tuple(x.array, z.array);
}

py::tuple align(const CalibrationModel& model, py::handle xIn, py::handle zIn, py::handle yIn,
                bool aligned, py::object xOut, py::object yOut, py::object zOut, int threads) {
  const Profiles inX = readProfiles(xIn, "x", kFloating);
  const Profiles inZ = readProfiles(zIn, "z", kFloating);
  const bool oneX = inX.rows == 1 && inZ.rows != 1;
  if (inX.columns != inZ.columns || (inX.rows != inZ.rows && !oneX)) {
    throw py::value_error("x must be of the size of z, or one profile of its columns");
  }
  const double* y = readNumbers(yIn, "y", inZ.rows);
  Output outX(std::move(xOut), "out[0]", cmnalg::IMAGE_TYPE_FLOAT32, inZ.rows, inZ.columns);
  Output outY(std::move(yOut), "out[1]", cmnalg::IMAGE_TYPE_FLOAT32, inZ.rows, inZ.columns);
  Output outZ(std::move(zOut), "out[2]", cmnalg::IMAGE_TYPE_FLOAT32, inZ.rows, inZ.columns);
  Profiles inY{
      "y", reinterpret_cast<char*>(const_cast<double*>(y)), cmnalg::IMAGE_TYPE_FLOAT64, inZ.rows, 1,
      1};
  requireDisjoint({&inX, &inZ, &inY}, {&outX.profiles, &outY.profiles, &outZ.profiles});
  for (Output* out : {&outX, &outY, &outZ}) out->Allocate();
  if (!inZ.IsEmpty()) {
    forEachBlock(inZ.rows, profilesPerBlock(kPixelsPerBlock, {&inX, &inZ}), threads,
                 [&](std::int64_t first, int count) {
                   Image x;
                   Image z;
                   ImageOf<float> targets[3];
                   inX.View(oneX ? 0 : first, oneX ? 1 : count, x);
                   inZ.View(first, count, z);
                   outX.profiles.View(first, count, targets[0]);
                   outY.profiles.View(first, count, targets[1]);
                   outZ.profiles.View(first, count, targets[2]);
                   const etl::Vector<double> positions(y + first, y + first + count);
                   return applyAlignment(model, aligned, x, positions, z, targets[0], targets[1],
                                         targets[2], RunMode::Default);
                 });
  }
  return py::make_tuple(outX.array, outY.array, outZ.array);
}

}  // namespace

void bindCalibration(py::module_& module) {
  module.def("calibrate", &calibrate);
  module.def("align", &align);
}

}  // namespace planex_python
