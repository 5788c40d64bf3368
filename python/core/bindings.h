#pragma once

#include <pybind11/pybind11.h>

#include <cstdint>

#include "core/arrays.h"
#include "planex/model/calibration_model.h"
#include "planex/model/sensor_region.h"
#include "planex/processing/image_calibration.h"

namespace planex_python {

/// @{
/// Each adds the functions of one file to the module.
void bindModel(py::module_& module);
void bindCalibration(py::module_& module);
void bindRectification(py::module_& module);
void bindPoints(py::module_& module);
void bindFiles(py::module_& module);
void bindPointFiles(py::module_& module);
void bindMapFiles(py::module_& module);
void bindEstimation(py::module_& module);
void bindExtraction(py::module_& module);
/// @}

/// The name of a field, made once: asking for an attribute by a C string makes it anew each time.
struct FieldName {
  explicit FieldName(const char* name) : text(PyUnicode_InternFromString(name)) {}
  PyObject* text;  // lives as long as the process
};

/// A field of a record; TypeError for what is no number.
double numberOf(py::handle record, const FieldName& name);

/// The fields of a planex.SensorTraits.
datafusion::planex::SensorRegion regionOf(py::handle sensor);

[[noreturn]] void raiseOutsideSensor(const datafusion::planex::CalibrationModel& model);

/// A range image, and how it becomes points: what calibrate and height_map have in common.
struct RangeScan {
  /// Raises where the array or the sensor region is of no use.
  RangeScan(const datafusion::planex::CalibrationModel& ofModel, py::handle range,
            py::handle sensor, bool isAligned, bool inDouble);

  /// Calibrates some profiles into images of their size.
  bool Calibrate(std::int64_t first, int count, cmnalg::ImageOf<float>& x,
                 cmnalg::ImageOf<float>& z) const;

  const datafusion::planex::CalibrationModel& model;
  Profiles profiles;
  datafusion::planex::SensorRegion region;
  bool aligned;
  datafusion::planex::RunMode mode;
};

}  // namespace planex_python
