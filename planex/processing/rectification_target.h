#pragma once

#include "planex/foundation/image.h"
#include "planex/infra/export.h"

namespace datafusion::planex {

/// Creates an empty height-map grid from limits and counts of samples; the limits are the first
/// and the last sample of each axis.
///
///     PixelSize = ((xMax - xMin) / (width - 1), (yMax - yMin) / (height - 1) or 1 for one row,
///                  (zMax - zMin) / (zSteps - 1))
///     Origin    = (xMin, yMin, zMin), with missing data (xMin, yMin, zMin - PixelSize.z), so that
///                 the stored value 1 stands for zMin and 0 for no data
///
/// @param target      receives the grid, its pixels 0
/// @param type        pixel type; UINT16 for toRectified
/// @param missingData 0 Default, 1 MissingData: the target's HandleZeroPixels
/// @return false with one warning on "Image.Calibration.Planex" and an untouched target: "The
///         width must be larger than 1.", "The height must be at least 1.", "The number of Z steps
///         must be larger than 1.", "Maximum coordinate limits must be larger than the minimum
///         coordinate limits." (equal limits are accepted for X and Y; NaN never). False with the
///         image's own warning when it cannot be created.
PLANEX_EXPORT bool createRectificationTarget(const int& width, const double& xMin,
                                             const double& xMax, const int& height,
                                             const double& yMin, const double& yMax,
                                             const int& zSteps, const double& zMin,
                                             const double& zMax, cmnalg::Image& target,
                                             cmnalg::ImageType type, unsigned char missingData);

/// Creates an empty height-map grid from limits and pixel sizes: ceil((max - min) / size) samples
/// an axis, from the lower limit on. Arguments and outputs as above; the pixel sizes become
/// PixelSize.
///
/// @param pixelSizeZ unless it is above 0, (zMax - zMin) / 16383 is taken
/// @return false with one warning and an untouched target: "Pixel sizes in x and y must be
///         positive integers." (they need not be whole numbers), "Maximum coordinate limits must
///         be larger than the minimum coordinate limits.", or, for more than 100000000 pixels,
///         "Output image size is limited to ... pixels. ..." with the limit and the size (at most
///         2147483647 is shown)
PLANEX_EXPORT bool createRectificationTarget(const double& pixelSizeX, const double& xMin,
                                             const double& xMax, const double& pixelSizeY,
                                             const double& yMin, const double& yMax,
                                             const double& pixelSizeZ, const double& zMin,
                                             const double& zMax, cmnalg::Image& target,
                                             cmnalg::ImageType type, unsigned char missingData);

}  // namespace datafusion::planex
