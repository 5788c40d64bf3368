#pragma once

/// @file
/// Lists of points between the three coordinate systems of a model.
///
/// One point takes these steps, and back in reverse order; basic:: has the formulas:
///
///     Pixel       normalise, undistort, applyHomography with H = Homography, applySheetCurve
///     Calibrated  2D: applyHomography with A; 3D: transform with E
///     Aligned
///
/// E is the pose P with the skew (kx, ky, kz) folded in. With a = -kx / ky and b = -kz / ky:
///
///     E[r][0] = (P[r][0] + a P[r][1]) nx,  E[r][1] = P[r][1],
///     E[r][2] = (P[r][2] + b P[r][1]) nz,  E[r][3] = P[r][3]      for r = 0, 1, 2
///     E[3]    = (0, 0, 0, P[3][3])
///
///     XZ_IN_LIGHT_PLANE      nx = 1 / sqrt(1 + a^2),  nz = 1 / sqrt(1 + b^2)
///     Z_NOT_IN_LIGHT_PLANE   nx = 1 / sqrt(1 + a^2),  nz = 1
///     otherwise              nx = nz = 1
///
/// A is the part of E that acts in the laser plane, its rows and columns 0, 2 and 3. Backwards the
/// matrices are H^-1, A^-1 and E^-1, formed once a call, and the steps removeSheetCurve, distort
/// and denormalise. In 3D, x and z take the steps, and the profile index p belongs to the Y of the
/// calibrated system by
///
///     Y = p yScale + yOffset,   p = (Y - yOffset) / yScale
///
/// T is float or double. Arithmetic is in double; each step leaves its result in the point, rounded
/// to T. Points are not checked: what is not finite runs through.
///
/// The lists may be the same. Nothing is written but `out`; calls may run side by side. A refusal
/// is one warning on the logger "Image.Calibration.Planex" and false, with `out` untouched. Only
/// std::bad_alloc is thrown.

#include <cstddef>

#include "planex/foundation/vec.h"
#include "planex/infra/containers.h"
#include "planex/model/calibration_model.h"
#include "planex/model/coordinate_system.h"

namespace datafusion::planex {

/// Maps points of the laser plane or the sensor.
///
/// @param in  (u, v) in pixels, or (X, Z) in the model's length unit
/// @param out as many points
/// @return false with
///         "Operation failed because it was called with uncalibrated model." in state 0, even when
///         `from` equals `to`, which otherwise copies;
///         where the way passes between Pixel and Calibrated: "Invalid perspective matrix." (not
///         3 x 3, or singular on the way back), then "Invalid sheet curve." (one to five
///         coefficients);
///         where it passes between Calibrated and Aligned: "Invalid pose matrix." (not 4 columns
///         and 3 or 4 rows, or A or E singular on the way back).
///         The first of these that the point would meet is reported, alone.
template <typename T>
bool mapPoints(const CalibrationModel& model, const etl::Vector<cmnalg::Vec<2, T>>& in,
               etl::Vector<cmnalg::Vec<2, T>>& out, CoordinateSystem from, CoordinateSystem to);

/// Maps points in space.
///
/// @param in      (u, p, v) with the profile index p in the middle, or (X, Y, Z)
/// @param yOffset Y of profile 0
/// @param yScale  distance of neighbouring profiles
/// @return false as in 2D, and after the copying, where `from` or `to` is Pixel and the state is
///         not 1, 2 or 3, with "mapPoints called with uncalibrated model."
template <typename T>
bool mapPoints(const CalibrationModel& model, const etl::Vector<cmnalg::Vec<3, T>>& in,
               etl::Vector<cmnalg::Vec<3, T>>& out, CoordinateSystem from, CoordinateSystem to,
               const double& yOffset, const double& yScale);

/// @{
/// The same for `count` points in arrays, without a list to make: `out` is `in`, or shares no
/// memory with it. Refusals as above; only std::bad_alloc is thrown, before anything is written.
template <typename T>
bool mapPoints(const CalibrationModel& model, const cmnalg::Vec<2, T>* in, cmnalg::Vec<2, T>* out,
               std::size_t count, CoordinateSystem from, CoordinateSystem to);
template <typename T>
bool mapPoints(const CalibrationModel& model, const cmnalg::Vec<3, T>* in, cmnalg::Vec<3, T>* out,
               std::size_t count, CoordinateSystem from, CoordinateSystem to, const double& yOffset,
               const double& yScale);
/// @}

/// @{
/// A single direction in 2D. They do not ask for the state; otherwise they refuse as mapPoints.
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
/// @}

}  // namespace datafusion::planex
