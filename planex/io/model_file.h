#pragma once

#include <string>

#include "planex/infra/export.h"
#include "planex/model/calibration_model.h"

namespace planex::io {

/// The whole text of a file; "-" is standard input. A Failure when it cannot be read or is larger
/// than a model document can be (256 MB).
PLANEX_EXPORT std::string readTextFile(const std::string& path);

/// Reads a model document without any tolerance: a Failure for a file that cannot be read, text
/// that is no model document, and an error figure or focal length below 0. What makes sense beyond
/// that is for the command `check` to say.
PLANEX_EXPORT datafusion::planex::CalibrationModel loadModel(const std::string& path);

/// The same, and the SHA-256 of the document in hexadecimal digits, by which it is known again.
PLANEX_EXPORT datafusion::planex::CalibrationModel loadModel(const std::string& path,
                                                             std::string& sha256);

/// The same, and the text of the document, for members that are none of the model.
PLANEX_EXPORT datafusion::planex::CalibrationModel loadModel(const std::string& path,
                                                             std::string& sha256,
                                                             std::string& document);

}  // namespace planex::io
