#pragma once

/**
 * @file
 * @brief The C interface of planex: from a camera model and range images to height maps.
 *
 * A laser-line camera reports, for every sensor column of every profile, the sensor row at which it
 * saw the laser. The usual chain turns such range images into metric height maps:
 *
 *     registerLogHandler                                     (optional)
 *     createModelFromFilePath or createModelFromJson
 *     createCalibrationFilter,    then applyCalibration      per range image
 *     calculateCalibrationBounds, createRectificationFilter, then rectify per calibrated image
 *     destroyRectificationFilter, destroyCalibrationFilter, destroyModel
 *
 * planex/api/points.h goes on from calibrated images to aligned points, and maps single points.
 *
 * **Handles.** Models and filters live inside the library and are named by handles: numbers that
 * count up from 1, one sequence per kind, never 0. At most 256 objects of a kind exist at a time. A
 * handle stays valid until its object is destroyed and is not issued again, neither after a destroy
 * nor after a destroy-all. There is nothing to initialise.
 *
 * **Failures.** A function that returns bool returns true on success. A refusal returns false and
 * hands one text to the log, quoted in the documentation of each function after the words "Log".
 * The text goes to the function given to registerLogHandler(), with local time and level in front:
 *
 *     2024-05-03 14-07-09: SEVERE: Argument jsonData is NULL
 *
 * Where a function says so, a result of false comes without such a text; then a WARNING of the
 * algorithm tells the reason, when a handler was there to receive it.
 *
 * **Exceptions.** A refusal never throws. Running out of memory in a place that is not named below
 * passes std::bad_alloc on to the caller; objects and outputs are then as after any other failure.
 * A log text that there is no memory for is lost.
 *
 * **Threads.** The interface takes no lock: a caller with several threads serialises its calls, of
 * all functions together. Within applyCalibration() and rectify() the rows are divided among OpenMP
 * threads; no result depends on their number.
 *
 * **Buffers.** All buffers belong to the caller, hold rows one after the other without padding, are
 * aligned for their element type and are used only during the call, except `coRectifiedFormats` of
 * createRectificationFilter().
 */

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "planex/api/records.h"
#include "planex/infra/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Creates a camera model from the text of a model document.
 *
 * A document that stops being readable after its sensor size is still accepted when the whole text
 * says "SensorSize" with two numbers exactly once and the two numbers are those of the model.
 *
 * @param jsonData     the document, NUL-terminated; read during the call only
 * @param modelHandle  receives the handle of the model; 0 after every failure but the first
 * @return true when the model was created
 *
 * Log, in the order of the checks: "Handle is NULL"; "Argument jsonData is NULL"; "Too many models
 * created, destroy unused models by calling destroyModel()"; "The json buffer does not contain
 * valid json"; "The json data does not describe a valid model" (an error figure or the focal length
 * is negative).
 */
PLANEX_EXPORT bool createModelFromJson(const char* jsonData, uint32_t* modelHandle);

/**
 * @brief Creates a camera model from a model document in a file.
 *
 * @param filePath     name of a regular file; the text ends at its first NUL byte or its end
 * @param modelHandle  as in createModelFromJson()
 * @return true when the model was created
 *
 * Log: "Not able to open calibration file" when the path is null or does not name a readable
 * regular file; `*modelHandle` then keeps its value. Otherwise as createModelFromJson().
 */
PLANEX_EXPORT bool createModelFromFilePath(const char* filePath, uint32_t* modelHandle);

/**
 * @brief Writes a model as a document, indented, with a terminating NUL.
 *
 * @param modelHandle   the model
 * @param jsonData      receives the text; bytes behind the NUL stay as they are
 * @param jsonDataSize  size of that buffer in bytes; the text and its NUL must fit. The needed size
 *                      is not reported: double the buffer and try again
 * @return true when the text was written; after a failure the buffer is untouched
 *
 * Log, in the order of the checks: "Argument jsonData is NULL"; "The provided model handle does not
 * map to a previously created model"; "Failed to create json from model"; "The provided json buffer
 * is to small for the model".
 */
PLANEX_EXPORT bool createJsonFromModel(uint32_t modelHandle, char* jsonData, size_t jsonDataSize);

/**
 * @brief Destroys a model and writes 0 to the variable with its handle.
 *
 * Calibration filters made for the model stay, but applyCalibration() refuses them from then on.
 *
 * @param modelHandle  the variable; null is accepted and does nothing
 * @return false for an unknown handle, which stays in the variable
 *
 * Log: "The provided model handle does not map to a previously created model".
 */
PLANEX_EXPORT bool destroyModel(uint32_t* modelHandle);

/** @brief Destroys all models; filters stay. */
PLANEX_EXPORT void destroyAllModels(void);

/**
 * @brief Creates a filter that calibrates range images of one size and kind with one model.
 *
 * The filter refers to the model by its handle: the model must outlive the use of the filter.
 *
 * @param modelHandle   the model
 * @param sensorTraits  where the range image lies on the sensor. Its region, from originX over
 *                      `width` columns and from originZ over `height` rows in the directions of the
 *                      signs of scaleX and scaleZ, must lie within the model's sensor; a scale of 0
 *                      leaves its origin to be tested
 * @param imageSize     size of the range images in pixels
 * @param pixelFormat   pixel format of the range images: Mono8, Mono16 or Coord3D_C16. Tested by
 *                      applyCalibration(), not here
 * @param filterHandle  receives the handle of the filter; untouched by the first two failures, null
 *                      after the last
 * @return true when the filter was created
 *
 * Log, in the order of the checks: "The provided model handle does not map to a previously created
 * model"; "Sensor traits does not match the model"; "Handle is NULL"; "Too many calibration filters
 * created, destroy unused calibrationFilters by calling destroyCalibrationFilter()".
 */
PLANEX_EXPORT bool createCalibrationFilter(uint32_t modelHandle, SensorTraits sensorTraits,
                                           ImageSize imageSize, uint32_t pixelFormat,
                                           uint32_t* filterHandle);

/**
 * @brief Destroys a calibration filter and writes 0 to the variable with its handle.
 *
 * @param filterHandle  the variable; null is accepted and does nothing
 * @return false for an unknown handle, which stays in the variable
 *
 * Log: "The provided calibration filter handle does not map to a previously created filter".
 */
PLANEX_EXPORT bool destroyCalibrationFilter(uint32_t* filterHandle);

/** @brief Destroys all calibration filters; models stay. */
PLANEX_EXPORT void destroyAllCalibrationFilters(void);

/**
 * @brief Turns a range image into world X and Z, one pair per pixel.
 *
 * Each measured pixel is normalised by focal length and lens centre, undistorted, projected onto
 * the laser plane and corrected by the sheet curve, as far as the model has them. A pixel of value
 * 0 becomes NaN in both outputs.
 *
 * @param filterHandle      the filter; its imageSize is the size of all three images
 * @param inputBufferRange  range values, imageSize.width x imageSize.height elements of 8 bits
 *                          (Mono8) or 16 bits (Mono16, Coord3D_C16)
 * @param outputBufferX     receives X in world units, as many floats
 * @param outputBufferZ     receives Z in world units, as many floats; the three buffers must not
 *                          overlap
 * @return true when both outputs were written
 *
 * Log, in the order of the checks: "Argument inputBufferRange is NULL"; "Argument outputBufferX is
 * NULL"; "Argument outputBufferZ is NULL"; "The provided calibration filter handle does not map to
 * a previously created filter"; "The provided model handle does not map to a previously created
 * model"; "Unknown PixelFormat". The outputs are untouched in all these cases, and also where the
 * calibration itself refuses, which returns false without such a text: a lens centre, focal length,
 * homography or sheet curve that cannot be used, or buffers that overlap.
 */
PLANEX_EXPORT bool applyCalibration(uint32_t filterHandle, const void* inputBufferRange,
                                    float* outputBufferX, float* outputBufferZ);

/**
 * @brief Computes the world box that a sensor region covers, and splat settings for it.
 *
 * The outline of the region and five of its columns are mapped into the world. The box is their
 * minimum and maximum, divided into imageSize.width columns, imageSize.height rows and 65536 range
 * levels; Y is counted in profiles. The splat settings are the least-squares line through the
 * lateral distance of neighbouring columns over Z. Where the region has no depth to fit it,
 * splatA is 2 and splatB the column step of the box. splatC is 1.
 *
 * @param modelHandle       the model
 * @param sensorTraits      the sensor region, as in createCalibrationFilter()
 * @param imageSize         size of the range images in pixels
 * @param worldRangeTraits  receives the box; adjust it as you like before rectifying
 * @param splatSettings     receives the splat settings
 * @return true when both records were filled; after a failure they are untouched
 *
 * Log, in the order of the checks: "Argument worldRangeTraits is NULL"; "Argument splatSettings is
 * NULL"; "The provided model handle does not map to a previously created model"; "Sensor traits
 * does not match the model"; "Invalid data in sensor traits scale X / Z" (the region divided by
 * scaleZ gives no finite number of range values, or more than 2^24); "The sensor region could not
 * be mapped to world coordinates", together with a WARNING that tells why.
 */
PLANEX_EXPORT bool calculateCalibrationBounds(uint32_t modelHandle, SensorTraits sensorTraits,
                                              ImageSize imageSize,
                                              WorldRangeTraits* worldRangeTraits,
                                              SplatSettings* splatSettings);

/**
 * @brief The relation of column, row and range value of a height map to world coordinates.
 *
 *     scaleX = (xMax - xMin) / (xCount - 1),    originX = xMin
 *     scaleY = (yMax - yMin) / (yCount - 1),    originY = yMin
 *     scaleZ = (zMax - zMin) / (zLevels - 2),   originZ = zMin - scaleZ
 *
 * So range value 1 stands for zMin and zLevels - 1 for zMax; 0 is kept for missing data. Never
 * fails: a count that leaves nothing to divide by gives infinity or NaN. Counts are taken as signed
 * 32-bit numbers.
 *
 * @param worldRangeTraits  the world box and its division
 * @return the transform
 */
PLANEX_EXPORT RangeTransform rangeTraitsToTransform(WorldRangeTraits worldRangeTraits);

/**
 * @brief Creates a filter that resamples calibrated images onto the grid of a height map.
 *
 * Nothing but the handle is checked here; rectify() tests what the filter holds.
 *
 * @param rectificationMode   one of PLANEX_RECTIFICATION_...
 * @param worldRangeTraits    the grid, normally from calculateCalibrationBounds(); yCount must be
 *                            the height of the images, because rows are not resampled
 * @param inputSize           size in pixels of the X and Z images and of the co-rectified inputs
 * @param coRectifiedCount    number of co-rectified images; its low 32 bits count. 0 for none
 * @param coRectifiedFormats  pixel format of each co-rectified input, Mono8 or Mono16. The pointer
 *                            is kept, not the values: the array must live as long as the filter.
 *                            May be null when there are none
 * @param splatSettings       width of a point, normally from calculateCalibrationBounds()
 * @param missingDataValue    value of height-map cells that no point fell into
 * @param filterHandle        receives the handle of the filter; 0 after every failure but the first
 * @return true when the filter was created
 *
 * Log, in the order of the checks: "Handle is NULL"; "Too many rectification filters created,
 * destroy unused rectificationFilters by calling destroyRectificationFilter()".
 */
PLANEX_EXPORT bool createRectificationFilter(uint32_t rectificationMode,
                                             WorldRangeTraits worldRangeTraits, ImageSize inputSize,
                                             uint64_t coRectifiedCount,
                                             const uint32_t* coRectifiedFormats,
                                             SplatSettings splatSettings, float missingDataValue,
                                             uint32_t* filterHandle);

/**
 * @brief Destroys a rectification filter and writes 0 to the variable with its handle.
 *
 * @param filterHandle  the variable; null is accepted and does nothing
 * @return false for an unknown handle, which stays in the variable
 *
 * Log: "The provided rectification filter handle does not map to a previously created filter".
 */
PLANEX_EXPORT bool destroyRectificationFilter(uint32_t* filterHandle);

/** @brief Destroys all rectification filters. */
PLANEX_EXPORT void destroyAllRectificationFilters(void);

/**
 * @brief Resamples calibrated X and Z images, and co-rectified images, onto a height map.
 *
 * Every point is written to the columns around its X in its own row; where points meet, the mode of
 * the filter decides. Range is quantised to the 16-bit levels of the grid and converted back:
 *
 *     outputRange = value * scaleZ + originZ     (rangeTraitsToTransform(), in float, rounded once)
 *
 * @param filterHandle      the filter
 * @param inputX            world X, inputSize.width x inputSize.height floats
 * @param inputZ            world Z, as many floats; NaN where nothing was measured
 * @param inputCoRectified  coRectifiedCount pointers to images of inputSize pixels, in the formats
 *                          of the filter. A Mono16 image is reduced to 8 bits first: its smallest
 *                          value becomes 0, its largest 255. Not looked at when there are none
 * @param outputRange       receives the height map, xCount x yCount floats in world units, the
 *                          missing-data value where no point fell. May overlap the inputs
 * @param outputCoRectified coRectifiedCount pointers to images of xCount x yCount bytes, always 8
 *                          bits; 0 where no point fell. None may overlap the X and Z images, its
 *                          own input unless that is Mono16, the input of a later image, another
 *                          output or outputRange. Not looked at when there are none
 * @return true when all outputs were written
 *
 * Log, in the order of the checks: "inputX is NULL"; "inputZ is NULL"; "outputRange is NULL"; "The
 * provided rectification filter handle does not map to a previously created filter"; "Invalid data
 * in sensor traits scale X / Z" (no usable size or scale of the inputs or the grid, or no memory
 * to work in); "inputCoRectified array is NULL"; "outputCoRectified array is NULL"; then for each
 * co-rectified image i, counted from 0: "The data format of the corectified image number i is
 * null"; "The data pointer of inputCoRectified number i is null"; "The data pointer of
 * outputCoRectified number i is null"; "Image format of the corectified image id not supported";
 * and "Unknown rectification mode", which without co-rectified images is the last check. Images
 * before the one that failed are written; outputRange is untouched after every failure.
 *
 * Where the rectification itself refuses, the result is false without such a text: a grid of
 * another number of rows than the inputs, a negative splatC, a mode that needs an intensity without
 * one, or buffers that overlap.
 */
PLANEX_EXPORT bool rectify(uint32_t filterHandle, const float* inputX, const float* inputZ,
                           const void* const* inputCoRectified, float* outputRange,
                           void* const* outputCoRectified);

/**
 * @brief Sends all log texts to a function of the caller from now on.
 *
 * Replaces the function registered before, and every other handler of the root logger. Without a
 * registered function the texts are printed to standard output, one line each.
 *
 * @param callback  receives one NUL-terminated text per record, without line end, valid during the
 *                  call. It runs on the thread of the failing call and may call any function of
 *                  this interface, this one included; what is logged meanwhile on that thread is
 *                  dropped. Null prints to standard output instead
 */
PLANEX_EXPORT void registerLogHandler(void (*callback)(const char*));

#ifdef __cplusplus
}  // extern "C"
#endif
