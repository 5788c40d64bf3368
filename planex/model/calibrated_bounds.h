#pragma once

#include "planex/foundation/image.h"
#include "planex/foundation/vec.h"
#include "planex/infra/export.h"
#include "planex/model/calibration_model.h"
#include "planex/model/coordinate_system.h"

namespace datafusion::planex {

/// Bounds of the volume that the grid of an image spans, mapped from one system to another.
///
/// The volume is the box with the opposite corners
///
///     (Origin.x, Origin.y, zMin),
///     (Origin.x + (W - 1) PixelSize.x, Origin.y + (H - 1) PixelSize.y, zMax)
///
/// and the bounds are those of mapBox, with yOffset 0, yScale 1 and the same supersampling. The
/// pixels are not read. Of W and H nothing is asked: without columns or rows the second corner lies
/// one pixel size before the first.
///
/// @param image       its columns, rows and values mean the components of system `from`
/// @param zMin, zMax  in system `from`; where they, PixelSize or Origin are not finite, neither are
///                    the bounds
/// @param min, max    out: in system `to`
/// @return false with one warning on "Image.Calibration.Planex" and untouched outputs: "Range
///         limits for Z must be in proper order. Minimum must be a smaller value than maximum." for
///         zMin > zMax (equal limits are a flat volume), then those of mapBox
///
/// Reentrant.
PLANEX_EXPORT bool calculateImageBounds(const CalibrationModel& model, const cmnalg::Image& image,
                                        double zMin, double zMax, cmnalg::Vec<3, double>& min,
                                        cmnalg::Vec<3, double>& max, CoordinateSystem from,
                                        CoordinateSystem to, int supersampling);

/// Extent of a part of the sensor in the laser plane, and how the distance of neighbouring points
/// there depends on Z.
///
/// Twenty rows and twenty columns of pixels, evenly spaced from pixMin to pixMax, the last ones at
/// pixMax itself, are mapped: the rows at their two ends and in the middle, the eighteen inner
/// columns at their two ends. Over the rows i, with r_i the distance of the two mapped ends divided
/// by pixMax.x - pixMin.x, and z_i the Z of the mapped middle, the least-squares line is
///
///     r = resOffset + resSlope z
///
/// Where the rows have no spread in Z (see cmnalg::math::LineFit) resSlope is 1.0, whatever that
/// means for other Z, and resOffset is (max.x - min.x) / (pixMax.x - pixMin.x).
///
/// @param aligned         map to aligned instead of calibrated coordinates
/// @param pixMin, pixMax  sensor column and row, in pixels; nothing is asked of their order or
///                        size. Equal columns give r_i that are not finite
/// @param min, max        out: least and greatest X (x) and Z (y) of all mapped points. NaN is left
///                        out: without any number a component of min stays the largest double, one
///                        of max the lowest
/// @param resSlope, resOffset  out: length unit per pixel and length unit; length unit per pixel
/// @return false with the warning of mapPoints and untouched outputs when that refuses the model
///
/// Outputs may be the same objects as pixMin and pixMax. Reentrant.
PLANEX_EXPORT bool calculateCalibratedBounds(const CalibrationModel& model, bool aligned,
                                             const cmnalg::Vec<2, double>& pixMin,
                                             const cmnalg::Vec<2, double>& pixMax,
                                             cmnalg::Vec<2, double>& min,
                                             cmnalg::Vec<2, double>& max, double& resSlope,
                                             double& resOffset);

/// The same for the whole sensor: pixMin = (0, 0), pixMax = (SensorSize.x - 1, SensorSize.y - 1).
PLANEX_EXPORT bool calculateCalibratedBounds(const CalibrationModel& model, bool aligned,
                                             cmnalg::Vec<2, double>& min,
                                             cmnalg::Vec<2, double>& max, double& resSlope,
                                             double& resOffset);

}  // namespace datafusion::planex
