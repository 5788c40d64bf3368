#pragma once

#include <cmath>
#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include "planex/infra/json_deserializer.h"
#include "planex/infra/json_serializer.h"
#include "planex/infra/out_stream.h"
#include "planex/model/calibration_model.h"

namespace test {

using datafusion::planex::CalibrationModel;
using datafusion::planex::ModelState;
using datafusion::planex::SkewMode;

inline cmnalg::Matrix<double> matrix(int rows, int cols, const std::vector<double>& values) {
  return cmnalg::Matrix<double>::FromRows(rows, cols, values.data());
}

/// A calibrated camera that does as little as possible: pixels are focal lengths, and everything
/// else is the identity.
inline CalibrationModel plainModel() {
  CalibrationModel model;
  model.CurrentState = ModelState::CALIBRATED;
  model.FocalLength = 1.0;
  model.LensCenter = {0.0, 0.0};
  return model;
}

/// A calibrated and aligned camera of 2560 x 1000 pixels with every part in use; each call draws
/// another one. Distortion is moderate: mappings settle everywhere on the sensor.
inline CalibrationModel randomModel(std::mt19937& random) {
  const auto around = [&random](double middle, double spread) {
    return std::uniform_real_distribution<double>(middle - spread, middle + spread)(random);
  };
  CalibrationModel model;
  model.CurrentState = ModelState::CALIBRATED_ALIGNED_3D;
  model.SkewMode = static_cast<SkewMode>(std::uniform_int_distribution<int>(0, 2)(random));
  model.SensorSize = {2560, 1000};
  model.FocalLength = around(3000, 500);
  model.LensCenter = {around(1280, 50), around(500, 50)};
  model.setLensCorrection(around(0, 0.1), around(0, 0.05), around(0, 0.02), around(0, 0.002),
                          around(0, 0.002));
  model.setScheimpflug(around(0, 0.01), around(0, 0.01));
  model.Homography = matrix(3, 3,
                            {around(200, 30), around(0, 10), around(0, 5),   //
                             around(0, 10), around(250, 30), around(40, 5),  //
                             around(0, 0.05), around(0.4, 0.1), 1});
  model.setSheetCurve(around(0, 2), around(0, 1e-3), around(0, 0.1), around(0, 1e-3),
                      around(0, 1e-5), around(0, 1e-7));
  model.setSkew(around(0, 0.3), around(1, 0.2), around(0, 0.3));
  const double angle = around(0, 0.5);
  const double c = std::cos(angle);
  const double s = std::sin(angle);
  model.Pose = matrix(4, 4,
                      {c, 0.1 * s, s, around(0, 20),   //
                       0.05, 1, 0.02, around(0, 20),   //
                       -s, 0.1 * c, c, around(0, 20),  //
                       0, 0, 0, 1});
  return model;
}

inline std::string toJson(CalibrationModel& model) {
  etl::MemoryOutStream stream;
  base::JsonVisitingSerializer serializer(stream, false);
  if (!serializer.Serialize(model)) return serializer.GetErrorDescription();
  return std::string(stream.GetText());
}

/// Fills the model. @return the error, empty on success
inline std::string readJson(const std::string& text, CalibrationModel& model) {
  base::JsonVisitingDeSerializer document(text.c_str(), false);
  document.DeserializeIntoExistingObject(model);
  return document.GetErrorDescription();
}

/// `text` with its first `what` replaced; without one it comes back empty, which no test accepts.
inline std::string replaced(std::string text, const std::string& what, const std::string& with) {
  const std::size_t at = text.find(what);
  return at == std::string::npos ? std::string() : text.replace(at, what.size(), with);
}

}  // namespace test
