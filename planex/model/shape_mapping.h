#pragma once

/// @file
/// Whole shapes between the coordinate systems of a model. A mapping bends straight edges, so
/// shapes are sampled along them: with a supersampling of n >= 0, every edge has n points between
/// its ends. Coordinates and units are those of mapPoints: pixels, or the length unit of the model.
///
/// All functions return false with one warning on "Image.Calibration.Planex" and, unless noted,
/// untouched outputs:
///   - n < 0: "Supersampling must be zero or positive.", before anything else;
///   - a list of points larger than the memory of the machine, or that cannot be allocated: "The
///     points of this supersampling do not fit into memory.";
///   - whatever mapPoints refuses, with its texts.
/// Points are not tested: what is not finite, and what lies on the horizon of the homography, comes
/// out as infinities or NaN. Reentrant: they read the model and write their outputs only.

#include "planex/foundation/box.h"
#include "planex/foundation/polyline.h"
#include "planex/foundation/rectangle.h"
#include "planex/foundation/vec.h"
#include "planex/infra/containers.h"
#include "planex/infra/export.h"
#include "planex/model/calibration_model.h"
#include "planex/model/coordinate_system.h"

namespace datafusion::planex {

/// Maps points on the surface of a box.
///
/// Of the n + 2 equally spaced layers along the y axis of the box each gives a ring of 4 (n + 1)
/// points, and each of the two end faces across y gives its n x n inner grid: 2 n^2 + 4 k (k - 1)
/// points with k = n + 2, the eight corners for n = 0. They are carried through the pose of the box
/// and mapped as by mapPoints.
///
/// @param box     in system `from`
/// @param points  out: in system `to`. Rings first, from y = -Size.y / 2 up; each starts at the
///                corner of minimal x and z and runs towards +x, +z, -x, -z. Then the inner grids
///                of the lower and the upper end face, row by row: z rising, in each row x rising
/// @param yOffset, yScale  profile index to Y: Y = index * yScale + yOffset
PLANEX_EXPORT bool mapBox(const CalibrationModel& model, const cmnalg::shape3d::Box& box,
                          etl::Vector<cmnalg::Vec<3, double>>& points, CoordinateSystem from,
                          CoordinateSystem to, const double& yOffset, const double& yScale,
                          int supersampling);

/// Component-wise minimum and maximum of the points above. Both start at the first point and yield
/// to lesser and greater numbers only: a NaN in a later point is left out, one in the first stays.
PLANEX_EXPORT bool mapBox(const CalibrationModel& model, const cmnalg::shape3d::Box& box,
                          cmnalg::Vec<3, double>& min, cmnalg::Vec<3, double>& max,
                          CoordinateSystem from, CoordinateSystem to, const double& yOffset,
                          const double& yScale, int supersampling);

/// The box with edges along the axes of `to` that this minimum and maximum span. `out` may be the
/// box that is mapped.
PLANEX_EXPORT bool mapBox(const CalibrationModel& model, const cmnalg::shape3d::Box& box,
                          cmnalg::shape3d::Box& out, CoordinateSystem from, CoordinateSystem to,
                          const double& yOffset, const double& yScale, int supersampling);

/// Maps the outline of a rectangle: 4 (n + 1) points.
///
/// @param rectangle  in system `from`; x is column or X, y is row or Z
/// @param out        in system `to`: the points of the edges from corner 0 to 1, 1 to 2, 2 to 3 and
///                   3 to 0 (Rectangle::GetCorners), each with its first corner:
///
///     (1 - t) c_e + t c_{e+1},   t = j / (n + 1),   j = 0 ... n
PLANEX_EXPORT bool mapRectangle(const CalibrationModel& model,
                                const cmnalg::shape::Rectangle& rectangle,
                                cmnalg::shape::Polyline& out, CoordinateSystem from,
                                CoordinateSystem to, int supersampling);

/// The bounding box of that outline, see Polyline::GetBoundingBox. `out` may be the rectangle that
/// is mapped. After a failure its centre is NaN and the rest of it as it was.
PLANEX_EXPORT bool mapRectangle(const CalibrationModel& model,
                                const cmnalg::shape::Rectangle& rectangle,
                                cmnalg::shape::Rectangle& out, CoordinateSystem from,
                                CoordinateSystem to, int supersampling);

}  // namespace datafusion::planex
