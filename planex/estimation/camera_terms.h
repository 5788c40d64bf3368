#pragma once

#include <array>

#include "planex/foundation/vec.h"
#include "planex/model/homography.h"
#include "planex/model/lens_polynomial.h"
#include "planex/model/sheet_curve.h"

namespace planex::estimation {

/// What measurements can determine of a camera model:
///
///     0 ...  7   the homography h00 ... h21; h22 is 1
///     8 ... 14   the lens coefficients c0 ... c6
///    15, 16      the lens centre in pixels
///    17 ... 20   s0, s1, s4 and s5 of the sheet curve; s2 and s3 are 0
///
/// Sensor coordinates are normalised with the half diagonal of the sensor in place of a focal
/// length, so that a lens coefficient is the effect of its term at the corner, in half diagonals.
/// The focal length, s2 and s3 change nothing that the other terms could not undo.
constexpr int kTermCount = 21;
using CameraTerms = std::array<double, kTermCount>;

/// @{
/// Where the groups begin.
constexpr int kLensTerms = 8;
constexpr int kCentreTerms = 15;
constexpr int kCurveTerms = 17;
/// @}

/// @{
/// The stages of the way from a sensor pixel to the laser plane, in place: the formulas of the
/// model.
/// @tparam C       a number, or one that carries derivatives
/// @param lens     c0 ... c6 and the lens centre
/// @param h        h00 ... h21
/// @param s        s0, s1, s4 and s5
/// @param radius   half the diagonal of the sensor in pixels
template <typename C>
void undistortPixel(const C* lens, double radius, C& x, C& y) {
  datafusion::planex::basic::normalise(C(radius), lens[7], lens[8], x, y);
  datafusion::planex::basic::undistort(lens, x, y);
}
template <typename C>
void project(const C* h, C& x, C& y) {
  const C homography[9] = {h[0], h[1], h[2], h[3], h[4], h[5], h[6], h[7], C(1)};
  datafusion::planex::basic::applyHomography(homography, x, y);
}
template <typename C>
void bend(const C* s, const C& x, C& z) {
  const C curve[6] = {s[0], s[1], C(0), C(0), s[2], s[3]};
  datafusion::planex::basic::applySheetCurve(curve, x, z);
}
/// @}

/// All three.
template <typename C>
void laserFromSensor(const C* terms, double radius, C& x, C& y) {
  undistortPixel(terms + kLensTerms, radius, x, y);
  project(terms, x, y);
  bend(terms + kCurveTerms, x, y);
}

/// The same for plain numbers.
inline cmnalg::Vec<2, double> laserFromSensor(const CameraTerms& terms, double radius,
                                              cmnalg::Vec<2, double> pixel) {
  laserFromSensor(terms.data(), radius, pixel.x, pixel.y);
  return pixel;
}

/// A place of the laser plane and its derivatives.
struct MapDerivative {
  double value[2];              ///< X and Z
  double terms[2][kTermCount];  ///< of X and Z, to the terms
  double pixel[2][2];           ///< of X and Z, to column and row
};

/// The place of a pixel with all derivatives, exact to rounding.
MapDerivative differentiate(const CameraTerms& terms, double radius, cmnalg::Vec<2, double> pixel);

/// The same without derivatives to the terms, which are left as they are.
void differentiateByPixel(const CameraTerms& terms, double radius, cmnalg::Vec<2, double> pixel,
                          MapDerivative& result);

}  // namespace planex::estimation
