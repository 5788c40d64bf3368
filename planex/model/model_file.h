#pragma once

#include <string>
#include <string_view>

#include "planex/infra/export.h"
#include "planex/model/calibration_model.h"

namespace datafusion::planex {

/// Reads a model document from a file, without the tolerance that the C interface has for damaged
/// ones.
///
/// @param path  name of a regular file; the text ends at its first NUL byte or its end
/// @param model untouched after a failure
/// @return false with one warning on the logger "Image.Planex.Model", which names the file: it
///         cannot be opened or read, the text is no model document (with the place and kind of its
///         first fault), or an error figure or the focal length is negative
///
/// May be called on several threads at once. Only std::bad_alloc is thrown.
PLANEX_EXPORT bool readModel(const std::string& path, CalibrationModel& model);

/// Writes a model as an indented document, which readModel() reads back to the same bits.
///
/// A file of that name is replaced as soon as the new one is complete, and keeps its content after
/// a failure; a name that belongs to anything else, a link for example, is refused.
///
/// @return false with one warning on the logger "Image.Planex.Model", which names the file: the
///         model holds a number that JSON has no form for (NaN, infinite), or the file cannot be
///         written
///
/// Only std::bad_alloc is thrown.
PLANEX_EXPORT bool writeModel(const std::string& path, const CalibrationModel& model);

/// Whether a document whose reading stopped with an error may be taken all the same, as the C
/// interface takes it: its text has exactly one place that says "SensorSize" with two numbers
/// behind it, and they are the sensor size that `partlyRead` has. Members behind the error then
/// have the values of a new model.
PLANEX_EXPORT bool sensorSizeConfirms(std::string_view text, const CalibrationModel& partlyRead);

}  // namespace datafusion::planex
