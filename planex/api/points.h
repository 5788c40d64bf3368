#pragma once

/**
 * @file
 * @brief The C interface of planex for points: aligned images, and lists of points between the
 * coordinate systems of a model. It goes with planex.h, whose rules on handles, failures,
 * exceptions, threads and buffers hold here as well.
 *
 *     createModelFromFilePath
 *     createCalibrationFilter,  then applyCalibration   per range image
 *     createAlignmentFilter,    then applyAlignment     per calibrated image
 *
 * Calibrated X and Z lie in the laser plane. A camera is never mounted square to the movement: the
 * alignment carries every point, with its position along the scan as Y, through the pose and the
 * skew of the model into X, Y and Z of the aligned system.
 */

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "planex/api/records.h"
#include "planex/infra/export.h"

/**
 * @name Coordinate systems
 * What the coordinates of a point mean.
 * @{
 */
/** Sensor column and row, in pixels; in space the index of the profile is between them. */
#define PLANEX_COORDINATES_PIXEL UINT32_C(0)
/** X and Z in the laser plane, in the length unit of the model; in space Y along the scan is
 * between them. */
#define PLANEX_COORDINATES_CALIBRATED UINT32_C(1)
/** Behind the pose: X and Z, in space X, Y and Z. */
#define PLANEX_COORDINATES_ALIGNED UINT32_C(2)
/** @} */

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Creates a filter that aligns calibrated images of one size with one model.
 *
 * The filter refers to the model by its handle: the model must outlive the use of the filter. Pose
 * and skew of the model are tested by applyAlignment(), not here.
 *
 * @param modelHandle   the model
 * @param imageSize     size of the calibrated images in pixels
 * @param filterHandle  receives the handle of the filter; untouched by the first failure, null
 *                      after the second, 0 after the last
 * @return true when the filter was created
 *
 * Log, in the order of the checks: "The provided model handle does not map to a previously created
 * model"; "Handle is NULL"; "Too many alignment filters created, destroy unused alignmentFilters by
 * calling destroyAlignmentFilter()".
 */
PLANEX_EXPORT bool createAlignmentFilter(uint32_t modelHandle, ImageSize imageSize,
                                         uint32_t* filterHandle);

/**
 * @brief Destroys an alignment filter and writes 0 to the variable with its handle.
 *
 * @param filterHandle  the variable; null is accepted and does nothing
 * @return false for an unknown handle, which stays in the variable
 *
 * Log: "The provided alignment filter handle does not map to a previously created filter".
 */
PLANEX_EXPORT bool destroyAlignmentFilter(uint32_t* filterHandle);

/** @brief Destroys all alignment filters; models stay. */
PLANEX_EXPORT void destroyAllAlignmentFilters(void);

/**
 * @brief Carries calibrated points through the skew-corrected pose of the model:
 *
 *     (X', Y', Z') = E (X, Y, Z, 1),   the upper three rows of E
 *
 * in double, each result rounded to float once. `planex/model/point_mapping.h` has the formula of
 * E. Rows are divided among OpenMP threads; no result depends on their number.
 *
 * @param filterHandle  the filter; its imageSize is the size of all images
 * @param inputX        calibrated X, imageSize.width x imageSize.height floats
 * @param inputY        position along the scan in world units, imageSize.height doubles, one for
 *                      each row
 * @param inputZ        calibrated Z, as many floats as X; NaN where nothing was measured
 * @param outputX       receives aligned X in world units, as many floats
 * @param outputY       receives aligned Y
 * @param outputZ       receives aligned Z; NaN in all three where nothing was measured. No image
 *                      may overlap another one, but for inputX and inputZ
 * @return true when the outputs were written
 *
 * Log, in the order of the checks: "Argument inputX is NULL"; "Argument inputY is NULL"; "Argument
 * inputZ is NULL"; "Argument outputX is NULL"; "Argument outputY is NULL"; "Argument outputZ is
 * NULL"; "The provided alignment filter handle does not map to a previously created filter"; "The
 * provided model handle does not map to a previously created model". The outputs are untouched in
 * all these cases, and also where the alignment itself refuses, which returns false without such a
 * text: a pose or skew that cannot be used, images that overlap, or too many pixels.
 */
PLANEX_EXPORT bool applyAlignment(uint32_t filterHandle, const float* inputX, const double* inputY,
                                  const float* inputZ, float* outputX, float* outputY,
                                  float* outputZ);

/**
 * @brief Maps points of the sensor or of the laser plane to another coordinate system.
 *
 * @param modelHandle   the model; calibrated
 * @param from          coordinate system of the input, one of PLANEX_COORDINATES_...
 * @param to            coordinate system of the output; equal to `from` copies
 * @param count         number of points
 * @param inputPoints   pairs (column, row) or (X, Z): 2 count doubles
 * @param outputPoints  receives as many; inputPoints itself, or memory apart from it
 * @return true when the points were written; after a failure they are untouched
 *
 * Log, in the order of the checks: "Unknown coordinate system"; "Too many points" (their bytes
 * would pass the address space); "Argument inputPoints is NULL" and "Argument outputPoints is
 * NULL", neither for a count of 0; "The input and output points overlap"; "The provided model
 * handle does not map to a previously created model". A model that has no such mapping, as it is
 * uncalibrated or its homography or pose has no inverse, returns false with a WARNING that says so.
 */
PLANEX_EXPORT bool mapPlanePoints(uint32_t modelHandle, uint32_t from, uint32_t to, size_t count,
                                  const double* inputPoints, double* outputPoints);

/**
 * @brief Maps points in space to another coordinate system.
 *
 * The index p of a profile belongs to Y of the calibrated system by Y = p scaleY + originY.
 *
 * @param inputPoints   triples (column, profile, row) or (X, Y, Z): 3 count doubles
 * @param scaleY        distance of neighbouring profiles in world units
 * @param originY       Y of profile 0
 *
 * Everything else is as for mapPlanePoints(). A model in a state that is only aligned has no
 * mapping from or to the sensor.
 */
PLANEX_EXPORT bool mapSpacePoints(uint32_t modelHandle, uint32_t from, uint32_t to, double scaleY,
                                  double originY, size_t count, const double* inputPoints,
                                  double* outputPoints);

#ifdef __cplusplus
}  // extern "C"
#endif
