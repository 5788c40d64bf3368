#pragma once

#include "planex/foundation/vec.h"
#include "planex/infra/containers.h"
#include "planex/infra/export.h"
#include "planex/model/calibration_model.h"
#include "planex/model/coordinate_system.h"

namespace datafusion::planex {

/// Maps points of the sensor or laser plane from one coordinate system to another.
///
///     Pixel to Calibrated     normalise, undistort, homography H, sheet curve
///     Calibrated to Pixel     inverse sheet curve, H^-1, inverse lens polynomial, denormalise
///     Calibrated to Aligned   homography with A, the in-plane part of the skew-corrected pose
///     Aligned to Calibrated   homography with A^-1
///     Pixel to and from Aligned  through Calibrated
///
/// The formulas stand at the functions of one point (lens_polynomial.h, homography.h,
/// sheet_curve.h). Arithmetic is in double; with T = float the point is rounded where it is stored:
/// after normalisation, lens correction, homography and sheet curve.
///
/// @param in   Pixel: (column, row) in pixels; Calibrated and Aligned: (X, Z) in the model's unit
/// @param out  resized to the length of `in`; may be the same list
/// @param from, to  values other than Pixel and Calibrated mean Aligned. Equal ones copy the list.
/// @return false, `out` untouched, with a warning on "Image.Calibration.Planex": "Operation failed
///         because it was called with uncalibrated model." in state UNCALIBRATED; "Invalid
///         perspective matrix.", "Invalid pose matrix.", "Invalid sheet curve." for parts that the
///         mapping needs and that have no usable shape or no inverse
///
/// Points are not tested: NaN and infinities run through, a point on a horizon gives infinities.
/// Reentrant; throws only std::bad_alloc.
template <typename T>
bool mapPoints(const CalibrationModel& model, const etl::Vector<cmnalg::Vec<2, T>>& in,
               etl::Vector<cmnalg::Vec<2, T>>& out, CoordinateSystem from, CoordinateSystem to);

/// Maps points of space: X and Z as above, and the profile index p of a pixel as
///
///     Y = p yScale + yOffset,   p = (Y - yOffset) / yScale
///
/// The aligned system is reached with all of E, the skew-corrected pose (basic::transform), and
/// left with its inverse.
///
/// @param in  Pixel: (column, profile index, row); otherwise (X, Y, Z)
/// @return as above; moreover "mapPoints called with uncalibrated model." when `from` or `to` is
///         Pixel and the state is not 1, 2 or 3
template <typename T>
bool mapPoints(const CalibrationModel& model, const etl::Vector<cmnalg::Vec<3, T>>& in,
               etl::Vector<cmnalg::Vec<3, T>>& out, CoordinateSystem from, CoordinateSystem to,
               const double& yOffset, const double& yScale);

// The 2D directions by name. They do not test the state of the model, otherwise as above.
template <typename T>
bool mapPointsPixToCal(const CalibrationModel& model, const etl::Vector<cmnalg::Vec<2, T>>& in,
                       etl::Vector<cmnalg::Vec<2, T>>& out);
template <typename T>
bool mapPointsCalToPix(const CalibrationModel& model, const etl::Vector<cmnalg::Vec<2, T>>& in,
                       etl::Vector<cmnalg::Vec<2, T>>& out);
template <typename T>
bool mapPointsPixToAligned(const CalibrationModel& model, const etl::Vector<cmnalg::Vec<2, T>>& in,
                           etl::Vector<cmnalg::Vec<2, T>>& out);
template <typename T>
bool mapPointsAlignedToPix(const CalibrationModel& model, const etl::Vector<cmnalg::Vec<2, T>>& in,
                           etl::Vector<cmnalg::Vec<2, T>>& out);
template <typename T>
bool mapPointsAlignedToCal(const CalibrationModel& model, const etl::Vector<cmnalg::Vec<2, T>>& in,
                           etl::Vector<cmnalg::Vec<2, T>>& out);

}  // namespace datafusion::planex
