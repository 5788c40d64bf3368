#pragma once

#include <stdexcept>
#include <string>

namespace test {

/// A camera of 640 x 480 pixels with every part of the model in use; 50 pixels are about 5 units.
inline const std::string kModelDocument = R"({"class": "Image.Planex.Model", "data": {
  "FileVersion": 2,
  "CurrentState": "CALIBRATED",
  "SkewMode": "XZ_IN_LIGHT_PLANE",
  "CalibrationError": 0.5,
  "CalibrationErrorMax": 1.5,
  "AlignmentError": 0.25,
  "AlignmentErrorMax": 2.5,
  "FocalLength": 1000.0,
  "SensorSize": {"x": 640, "y": 480},
  "LensCenter": {"x": 321.5, "y": 238.25},
  "Skew": {"x": 0.0, "y": 1.0, "z": 0.0},
  "Homography": [[100, 2, 1], [-3, 120, 50], [0.01, 0.3, 1]],
  "Pose": [[1, 0, 0, 0], [0, 1, 0, 0], [0, 0, 1, 0], [0, 0, 0, 1]],
  "LensCoefficients": [-0.12, 0.03, -0.002, 0.001, -0.0015, 0.002, -0.003],
  "SheetCurve": [0.5, 0.001, 0.01, 0.002, -0.0003, 0.00001],
  "CalibratedRegion": {"PointCount": null, "AverageResidualX": null, "AverageResidualZ": null,
                       "MaximumResidualX": null, "MaximumResidualZ": null}
}})";

/// `text` with the first `from` replaced; throws when there is none.
inline std::string with(std::string text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  if (at == std::string::npos) throw std::logic_error("not in the document: " + from);
  return text.replace(at, from.size(), to);
}

/// f = 1, lens centre (1, 1), no correction of any kind: X = u - 1, Z = v - 1.
inline std::string plainModelDocument() {
  std::string text = with(kModelDocument, "1000.0", "1.0");
  text = with(text, R"("x": 321.5, "y": 238.25)", R"("x": 1, "y": 1)");
  text = with(text, "[[100, 2, 1], [-3, 120, 50], [0.01, 0.3, 1]]", "[[1,0,0],[0,1,0],[0,0,1]]");
  text = with(text, "[-0.12, 0.03, -0.002, 0.001, -0.0015, 0.002, -0.003]", "[0,0,0,0,0,0,0]");
  return with(text, "[0.5, 0.001, 0.01, 0.002, -0.0003, 0.00001]", "[]");
}

}  // namespace test
