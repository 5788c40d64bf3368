#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "planex/model/calibration_model.h"
#include "tests/support/byte_source.h"
#include "tests/support/documents.h"

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

/// A calibrated camera of 2560 x 1000 pixels with every part in use, but for lens terms that may be
/// left out. Distortion is moderate: mappings settle everywhere on the sensor.
inline CalibrationModel moderateModel(ByteSource& source) {
  const auto around = [&source](double middle, double spread) {
    return middle + spread * source.Raw<std::int8_t>() / 128;
  };
  CalibrationModel model;
  model.CurrentState = static_cast<ModelState>(source.Between(1, 3));
  model.SkewMode = static_cast<SkewMode>(source.Between(0, 2));
  model.SensorSize = {2560, 1000};
  model.FocalLength = around(3000, 500);
  model.LensCenter = {around(1280, 50), around(500, 50)};
  const int lensTerms = source.Between(0, 3);
  model.setLensCorrection(around(0, 0.1), around(0, 0.05), 0, 0, 0);
  if (lensTerms > 0) model.setScheimpflug(around(0, 0.01), around(0, 0.01));
  for (std::size_t i = 2; lensTerms > 1 && i < 5; ++i) {
    model.LensCoefficients[i] = around(0, i == 2 ? 0.02 : 0.002);
  }
  model.Homography = matrix(3, 3,
                            {around(200, 30), around(0, 10), around(0, 5),   //
                             around(0, 10), around(250, 30), around(40, 5),  //
                             around(0, 0.05), around(0.4, 0.1), 1});
  model.setSheetCurve(around(0, 2), around(0, 1e-3), around(0, 0.1), around(0, 1e-3),
                      around(0, 1e-5), around(0, 1e-7));
  if (source.Between(0, 3) == 0) model.SheetCurve.clear();
  model.setSkew(around(0, 0.3), around(1, 0.2), around(0, 0.3));
  const double angle = around(0, 0.5);
  const double c = std::cos(angle);
  const double s = std::sin(angle);
  model.Pose = matrix(source.Between(3, 4), 4,
                      {c, 0.1 * s, s, around(0, 20),   //
                       0.05, 1, 0.02, around(0, 20),   //
                       -s, 0.1 * c, c, around(0, 20),  //
                       0, 0, 0, 1});
  return model;
}

/// Always the same one, in which no two members have the same value.
inline CalibrationModel fullModel() {
  std::uint8_t bytes[64];
  for (std::size_t i = 0; i < sizeof bytes; ++i) bytes[i] = static_cast<std::uint8_t>(95 * i + 15);
  ByteSource source(bytes, sizeof bytes);
  return moderateModel(source);
}

/// A matrix of any numbers and mostly of the size that is wanted.
inline cmnalg::Matrix<double> anyMatrix(ByteSource& source, int rows, int cols) {
  if (source.Between(0, 3) == 0) {
    rows = source.Between(0, 5);
    cols = source.Between(0, 5);
  }
  cmnalg::Matrix<double> any;
  any.Create(rows, cols, cols + (source.Between(0, 7) == 0 ? 1 : 0));
  for (int r = 0; r < rows; ++r) {
    for (int c = 0; c < cols; ++c) any[r][c] = source.Flip() ? source.Real() : (r == c ? 1.0 : 0.0);
  }
  return any;
}

/// A moderate model, in which now and then a part is replaced by anything at all.
inline CalibrationModel anyModel(ByteSource& source) {
  CalibrationModel model = moderateModel(source);
  const auto spoils = [&source] { return source.Between(0, 7) == 7; };
  if (spoils()) model.CurrentState = static_cast<ModelState>(source.Between(0, 6));
  if (spoils()) model.SkewMode = static_cast<SkewMode>(source.Between(0, 3));
  if (spoils()) {
    model.SensorSize = {static_cast<int>(source.Count()), static_cast<int>(source.Count())};
  }
  if (spoils()) model.FocalLength = source.Real();
  if (spoils()) model.LensCenter = {source.Real(), source.Real()};
  if (spoils()) model.LensCoefficients[source.Raw<std::uint8_t>() % 7U] = source.Real();
  if (spoils()) model.Skew = {source.Real(), source.Real(), source.Real()};
  if (spoils()) model.Homography = anyMatrix(source, 3, 3);
  if (spoils()) model.Pose = anyMatrix(source, source.Between(3, 4), 4);
  if (spoils()) model.SheetCurve.resize(static_cast<std::size_t>(source.Between(0, 8)));
  for (double& s : model.SheetCurve) s = spoils() ? source.Real() : s;
  return model;
}

}  // namespace test
