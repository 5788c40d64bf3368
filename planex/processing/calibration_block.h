#pragma once

#include "planex/foundation/image.h"
#include "planex/foundation/image_of.h"
#include "planex/infra/export.h"

namespace datafusion::planex::basic {

/// Calibrates a whole range image with given coefficients: applyCalibrationBlock over all its
/// columns and rows, in double precision or in single precision.
///
/// @return false, without a message, for signed-integer range images, otherwise as the block
PLANEX_EXPORT bool applyCalibration(const cmnalg::Image& range, const double& a, const double& b,
                                    const double& c, const double& d, const double& missingValue,
                                    const double* lensCoefficients, const double* transform,
                                    cmnalg::ImageOf<float>& x, cmnalg::ImageOf<float>& z,
                                    bool doublePrecision);

/// Calibrates columns [columnBegin, columnEnd) of rows [rowBegin, rowEnd).
///
/// For the stored value r of column u:
///
///     xn = u a + c,  yn = r b + d                                      (in P; fused in float)
///     rho = xn^2 + yn^2,  radial = 1 + rho (c0 + rho (c1 + rho c2))    (in double from here)
///     xd = xn radial + 2 c3 xn yn + c4 (rho + 2 xn^2) + c5 rho         (rounded to P)
///     yd = yn radial + c3 (rho + 2 yn^2) + 2 c4 xn yn + c6 rho         (rounded to P)
///     w = t6 xd + t7 yd + t8
///     X = (t0 xd + t1 yd + t2) / w,  Z = (t3 xd + t4 yd + t5) / w      (rounded to float)
///
/// Source: Brown, Decentering distortion of lenses, Photogrammetric Engineering 32(3), 1966, for
/// the radial and tangential terms; Hartley and Zisserman, Multiple View Geometry, 2nd ed.,
/// section 2.3, for the projective map. A pixel without measurement (0 in an integer image; not
/// above 0, or NaN, in a floating one) gives the missing value in both targets.
///
/// @tparam P                 float or double: the precision of xn, yn, xd and yd
/// @param range              UINT8, UINT16, UINT32, UINT64, FLOAT32 or FLOAT64
/// @param a, b, c, d         column scale, value scale, column offset and value offset in focal
///                           lengths
/// @param lensCoefficients   seven values c0 ... c6
/// @param transform          nine values t0 ... t8, row-major: sensor plane to laser plane
/// @param x, z               targets, at least as large as the block; may be pitched; must not
///                           overlap `range` or each other
/// @return false, without a message and without a written pixel, for any other range type, for
///         null coefficients, and for a block that is not inside the three images
///
/// Rows are divided among the threads of one OpenMP team; results do not depend on it.
template <typename P>
bool applyCalibrationBlock(int columnBegin, int columnEnd, int rowBegin, int rowEnd,
                           const cmnalg::Image& range, const double& a, const double& b,
                           const double& c, const double& d, const double& missingValue,
                           const double* lensCoefficients, const double* transform,
                           cmnalg::ImageOf<float>& x, cmnalg::ImageOf<float>& z);

/// @cond explicit instantiations
extern template PLANEX_EXPORT bool applyCalibrationBlock<float>(
    int, int, int, int, const cmnalg::Image&, const double&, const double&, const double&,
    const double&, const double&, const double*, const double*, cmnalg::ImageOf<float>&,
    cmnalg::ImageOf<float>&);
extern template PLANEX_EXPORT bool applyCalibrationBlock<double>(
    int, int, int, int, const cmnalg::Image&, const double&, const double&, const double&,
    const double&, const double&, const double*, const double*, cmnalg::ImageOf<float>&,
    cmnalg::ImageOf<float>&);
/// @endcond

/// applyCalibrationBlockSheetCurve over the width and height of x.
PLANEX_EXPORT bool applyCalibrationSheetCurve(const double* sheetCurve, cmnalg::ImageOf<float>& x,
                                              cmnalg::ImageOf<float>& z);

/// Corrects z in place for the curvature of the light sheet, for every pixel of the block whose z
/// is not NaN:
///
///     t = (x - s0) (1 + z s1)
///     z <- float(s2 + s3 t + s4 t^2 + s5 t^3) + z
///
/// in double, the last sum in float. x is not changed.
///
/// @param sheetCurve six values s0 ... s5
/// @return false for null coefficients and for a block that is not inside both images
PLANEX_EXPORT bool applyCalibrationBlockSheetCurve(int columnBegin, int columnEnd, int rowBegin,
                                                   int rowEnd, const double* sheetCurve,
                                                   cmnalg::ImageOf<float>& x,
                                                   cmnalg::ImageOf<float>& z);

}  // namespace datafusion::planex::basic
