#include "planex/foundation/box.h"

#include "planex/infra/float_environment.h"

namespace cmnalg {

namespace math {

Vec<3, double> ApplyTransform(const Transform<3, double>& transform, const Vec<3, double>& point) {
  const base::DefaultFloatEnvironment environment;
  const Matrix<double>& m = transform.GetMatrix();
  const auto row = [&](int r) {
    return m[r][0] * point.x + m[r][1] * point.y + m[r][2] * point.z + m[r][3];
  };
  const Vec<3, double> affine{row(0), row(1), row(2)};
  if (!transform.IsHomography()) return affine;
  const double w = row(3);
  return {affine.x / w, affine.y / w, affine.z / w};
}

}  // namespace math

namespace shape3d {

Box Box::FromCorners(const Vec<3, double>& a, const Vec<3, double>& b) {
  const base::DefaultFloatEnvironment environment;
  auto pose = Matrix<double>::Identity(4, 4);
  pose[0][3] = a.x / 2 + b.x / 2;
  pose[1][3] = a.y / 2 + b.y / 2;
  pose[2][3] = a.z / 2 + b.z / 2;
  Box box;
  box.Size = {b.x - a.x, b.y - a.y, b.z - a.z};
  box.Pose.Create(pose, math::TransformType::TRANSLATION);
  return box;
}

}  // namespace shape3d
}  // namespace cmnalg
