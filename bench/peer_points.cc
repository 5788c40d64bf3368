#include <cstddef>
#include <cstdint>
#include <cstring>

#include "planex/api/planex.h"
#include "planex/infra/export.h"
#include "planex/model/point_mapping.h"
#include "planex/processing/line_extraction.h"

/// What compare.py calls beside other libraries and the C interface does not have: mapPoints and
/// extractLines. And calls of the C interface without Python between them.
namespace {

using datafusion::planex::CalibrationModel;
using datafusion::planex::CoordinateSystem;
using datafusion::planex::mapPoints;

CalibrationModel model;
etl::Vector<cmnalg::Vec<2, double>> pixels;
etl::Vector<cmnalg::Vec<2, double>> calibrated;
etl::Vector<cmnalg::Vec<2, double>> result;

}  // namespace

extern "C" {

PLANEX_EXPORT bool calibrateAgain(std::uint32_t filter, const void* range, float* x, float* z,
                                  int count) {
  bool done = true;
  for (int i = 0; i < count; ++i) done = applyCalibration(filter, range, x, z) && done;
  return done;
}

/// The camera: f, cx, cy, seven lens coefficients, nine of the homography, six of the sheet curve
/// or none.
PLANEX_EXPORT void setCamera(const double* camera, bool sheet) {
  model.CurrentState = datafusion::planex::ModelState::CALIBRATED;
  model.FocalLength = camera[0];
  model.LensCenter = {camera[1], camera[2]};
  std::memcpy(model.LensCoefficients.data(), camera + 3, 7 * sizeof(double));
  model.Homography = cmnalg::Matrix<double>::FromRows(3, 3, camera + 10);
  model.SheetCurve.assign(camera + 19, camera + (sheet ? 25 : 19));
}

/// Sensor positions, u and v in turn; their calibrated points are the input of the way back.
PLANEX_EXPORT bool setPixels(const double* points, std::size_t count) {
  pixels.resize(count);
  for (std::size_t i = 0; i < count; ++i) pixels[i] = {points[2 * i], points[2 * i + 1]};
  calibrated = result = pixels;
  return mapPoints(model, pixels, calibrated, CoordinateSystem::Pixel,
                   CoordinateSystem::Calibrated);
}

/// Places, levels and widths of the strongest lines in one frame.
PLANEX_EXPORT bool extractFrame(void* frame, int columns, int rows, void* range, void* intensity,
                                void* width) {
  const auto view = [&](cmnalg::Image& image, void* data, cmnalg::ImageType type, int height) {
    return image.Create(data, type, columns, height, columns, false,
                        cmnalg::Image::s_defaultImageAllocator, false);
  };
  cmnalg::Image from, levels;
  cmnalg::ImageOf<std::uint16_t> places, widths;
  datafusion::planex::LineLayers layers;
  layers.intensity = &levels;
  layers.width = &widths;
  return view(from, frame, cmnalg::IMAGE_TYPE_UINT8, rows) &&
         view(levels, intensity, cmnalg::IMAGE_TYPE_UINT8, 1) &&
         view(places, range, cmnalg::IMAGE_TYPE_UINT16, 1) &&
         view(widths, width, cmnalg::IMAGE_TYPE_UINT16, 1) &&
         datafusion::planex::extractLines(&from, 1, {}, 0, places, layers);
}

PLANEX_EXPORT bool mapForward() {
  return mapPoints(model, pixels, result, CoordinateSystem::Pixel, CoordinateSystem::Calibrated);
}

PLANEX_EXPORT bool mapInverse() {
  return mapPoints(model, calibrated, result, CoordinateSystem::Calibrated,
                   CoordinateSystem::Pixel);
}

PLANEX_EXPORT void getResult(double* points) {
  for (std::size_t i = 0; i < result.size(); ++i) {
    points[2 * i] = result[i].x;
    points[2 * i + 1] = result[i].y;
  }
}

}  // extern "C"
