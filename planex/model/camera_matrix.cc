#include "planex/model/camera_matrix.h"

#include <utility>

#include "planex/infra/float_environment.h"
#include "planex/model/model_checks.h"

namespace datafusion::planex {

bool getK(const double& focal, const double& cx, const double& cy, cmnalg::Matrix<double>& K) {
  const base::DefaultFloatEnvironment environment;
  if (cx < 0.0 || cy < 0.0) return refuse("Invalid lens center coordinate.");
  if (focal < 0.0) return refuse("Invalid focal length.");
  // The arguments may be elements of K.
  auto k = cmnalg::Matrix<double>::Identity(3, 3);
  k[0][0] = k[1][1] = focal;
  k[0][2] = cx;
  k[1][2] = cy;
  K = std::move(k);
  return true;
}

}  // namespace datafusion::planex
