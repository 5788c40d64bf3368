#include "planex/model/camera_matrix.h"

#include "planex/infra/logger.h"

namespace datafusion::planex {
namespace {

bool refuse(const char* message) {
  base::Logger::Get("Image.Calibration.Planex").Warning("%s", message);
  return false;
}

}  // namespace

bool getK(const double& focal, const double& cx, const double& cy, cmnalg::Matrix<double>& K) {
  if (cx < 0 || cy < 0) return refuse("Invalid lens center coordinate.");
  if (focal < 0) return refuse("Invalid focal length.");
  const double values[9] = {focal, 0, cx, 0, focal, cy, 0, 0, 1};
  K = cmnalg::Matrix<double>::FromRows(3, 3, values);
  return true;
}

}  // namespace datafusion::planex
