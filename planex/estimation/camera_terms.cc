#include "planex/estimation/camera_terms.h"

#include <ceres/jet.h>

#include <algorithm>

namespace planex::estimation {

namespace {

/// A stage: two numbers with their derivatives by kOwn terms of its own and by its inputs.
template <int kOwn>
struct Stage {
  using Number = ceres::Jet<double, kOwn + 2>;

  Stage(const double* own, double xIn, double zIn) : x(xIn, kOwn), z(zIn, kOwn + 1) {
    for (int i = 0; i < kOwn; ++i) terms[i] = Number(own[i], i);
  }
  const Number& output(int i) const { return i == 0 ? x : z; }
  double byInput(int i, int input) const { return output(i).v[kOwn + input]; }

  Number terms[kOwn];
  Number x, z;
};

/// Takes the derivatives by the own terms of a stage through those behind it.
template <int kOwn>
void carry(const Stage<kOwn>& stage, const double (&behind)[2][2], int first,
           MapDerivative& result) {
  for (int i = 0; i < 2; ++i) {
    for (int term = 0; term < kOwn; ++term) {
      result.terms[i][first + term] =
          behind[i][0] * stage.x.v[term] + behind[i][1] * stage.z.v[term];
    }
  }
}

/// What the stages behind are for the inputs of one.
template <int kOwn>
void chain(const Stage<kOwn>& stage, double (&behind)[2][2]) {
  for (auto& row : behind) {
    const double x = row[0], z = row[1];
    for (int input = 0; input < 2; ++input) {
      row[input] = x * stage.byInput(0, input) + z * stage.byInput(1, input);
    }
  }
}

}  // namespace

// Stage by stage, since most terms have no part in most of the operations.
MapDerivative differentiate(const CameraTerms& terms, double radius, cmnalg::Vec<2, double> pixel) {
  Stage<kCurveTerms - kLensTerms> lens(terms.data() + kLensTerms, pixel.x, pixel.y);
  undistortPixel(lens.terms, radius, lens.x, lens.z);
  Stage<kLensTerms> plane(terms.data(), lens.x.a, lens.z.a);
  project(plane.terms, plane.x, plane.z);
  Stage<kTermCount - kCurveTerms> curve(terms.data() + kCurveTerms, plane.x.a, plane.z.a);
  bend(curve.terms, curve.x, curve.z);

  MapDerivative result;
  result.value[0] = curve.x.a;
  result.value[1] = curve.z.a;
  double behind[2][2] = {{1, 0}, {0, 1}};
  carry(curve, behind, kCurveTerms, result);
  chain(curve, behind);
  carry(plane, behind, 0, result);
  chain(plane, behind);
  carry(lens, behind, kLensTerms, result);
  chain(lens, behind);
  for (int i = 0; i < 2; ++i) std::copy_n(behind[i], 2, result.pixel[i]);
  return result;
}

void differentiateByPixel(const CameraTerms& terms, double radius, cmnalg::Vec<2, double> pixel,
                          MapDerivative& result) {
  using Number = ceres::Jet<double, 2>;
  Number numbers[kTermCount];
  for (int i = 0; i < kTermCount; ++i) numbers[i] = Number(terms[i]);
  Number x(pixel.x, 0), z(pixel.y, 1);
  laserFromSensor(numbers, radius, x, z);
  const Number* const coordinates[2] = {&x, &z};
  for (int i = 0; i < 2; ++i) {
    result.value[i] = coordinates[i]->a;
    std::copy_n(coordinates[i]->v.data(), 2, result.pixel[i]);
  }
}

}  // namespace planex::estimation
