#include "planex/foundation/rectangle.h"

#include <cmath>
#include <cstddef>

#include "planex/infra/float_environment.h"

namespace cmnalg::shape {

std::array<Vec<2, double>, 4> Rectangle::GetCorners() const {
  const base::DefaultFloatEnvironment environment;
  const double cosine = std::cos(Rotation);
  const double sine = std::sin(Rotation);
  const double w = Width / 2;
  const double h = Height / 2;
  const std::array<Vec<2, double>, 4> local = {{{-w, -h}, {w, -h}, {w, h}, {-w, h}}};
  std::array<Vec<2, double>, 4> corners;
  for (std::size_t i = 0; i < corners.size(); ++i) {
    const auto [p, q] = local[i];
    corners[i] = {Center.x + (p * cosine - q * sine), Center.y + (p * sine + q * cosine)};
  }
  return corners;
}

bool Rectangle::IsValid() const {
  const base::DefaultFloatEnvironment environment;
  return std::isfinite(Center.x) && std::isfinite(Center.y) && std::isfinite(Width) &&
         std::isfinite(Height) && std::isfinite(Rotation) && Width >= 0 && Height >= 0;
}

}  // namespace cmnalg::shape
