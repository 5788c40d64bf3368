#pragma once

/**
 * @file
 * @brief The plain records and the constants of the C interface. Valid C99 and C++17.
 *
 * Sensor coordinates are pixels: column u along the laser line, row v across it, (0, 0) the centre
 * of the first pixel. World coordinates are in the length unit of the camera model (usually
 * millimetres): X along the laser line, Y along the scan, Z the range.
 *
 * The layouts are part of the binary interface and are pinned below.
 */

#include <stddef.h>
#include <stdint.h>

/**
 * @name Pixel formats
 * The GenICam PFNC codes that the interface accepts.
 * @{
 */
/** 8 bits, unsigned: range images and co-rectified images. */
#define PLANEX_PIXEL_FORMAT_MONO8 UINT32_C(0x01080001)
/** 16 bits, unsigned, host byte order: range images and co-rectified images. */
#define PLANEX_PIXEL_FORMAT_MONO16 UINT32_C(0x01100007)
/** 16 bits, unsigned, host byte order: range images only. */
#define PLANEX_PIXEL_FORMAT_COORD3D_C16 UINT32_C(0x011000B8)
/** @} */

/**
 * @name Rectification modes
 * Which value a cell of the height map gets when several points cover it.
 * @{
 */
/** The mean of all points. */
#define PLANEX_RECTIFICATION_MEAN UINT32_C(0)
/** The point with the largest range value. */
#define PLANEX_RECTIFICATION_HIGHEST UINT32_C(1)
/** The point with the smallest range value. */
#define PLANEX_RECTIFICATION_LOWEST UINT32_C(2)
/** The point with the smallest intensity; needs a co-rectified image. */
#define PLANEX_RECTIFICATION_DARKEST UINT32_C(3)
/** The point with the largest intensity; needs a co-rectified image. A point of intensity 0 never
 * fills a cell. */
#define PLANEX_RECTIFICATION_BRIGHTEST UINT32_C(4)
/** @} */

/**
 * @brief Where on the sensor the columns and values of a range image lie.
 *
 *     u = scaleX * column + originX,   v = scaleZ * value + originZ
 *
 * A value of 0 means that nothing was measured. A negative scale says that the region extends
 * towards smaller sensor coordinates.
 */
typedef struct SensorTraits {
  /** Column step of the range image, in sensor columns. */
  double scaleX;
  /** Sensor column of the first column of the range image. */
  double originX;
  /** Step of the range values, in sensor rows: 1/16 for values in sixteenths of a pixel. */
  double scaleZ;
  /** Sensor row of range value 0. */
  double originZ;
  /** Width of the sensor region, in sensor columns. */
  uint16_t width;
  /** Height of the sensor region, in sensor rows. */
  uint16_t height;
} SensorTraits;

/** @brief The size of an image in pixels: one row per profile, one column per sample of it. */
typedef struct ImageSize {
  /** Columns. */
  uint16_t width;
  /** Rows. */
  uint16_t height;
} ImageSize;

/**
 * @brief The world box of a height map and its division into columns, rows and range levels.
 *
 * rangeTraitsToTransform() says how indices and coordinates belong together.
 */
typedef struct WorldRangeTraits {
  /** World X of the first column. */
  double xMin;
  /** World X of the last column. */
  double xMax;
  /** Number of columns. */
  uint32_t xCount;
  /** World Y of the first row, in profiles where calculateCalibrationBounds() filled the record. */
  double yMin;
  /** World Y of the last row. */
  double yMax;
  /** Number of rows. */
  uint32_t yCount;
  /** World Z of range value 1. */
  double zMin;
  /** World Z of range value zLevels - 1. */
  double zMax;
  /** Number of range values, with 0 for "no data" among them; 65536 for 16-bit range values. */
  uint32_t zLevels;
} WorldRangeTraits;

/**
 * @brief How wide a calibrated point is spread over the columns of the height map.
 *
 * The lateral distance between neighbouring points is taken to be splatA * Z + splatB, in world
 * units; a point covers 0.55 * splatC of it to both sides.
 */
typedef struct SplatSettings {
  /** Growth of the distance with Z, in world units per world unit. */
  double splatA;
  /** The distance at Z = 0, in world units. */
  double splatB;
  /** Factor on the distance; not negative. 1 closes the gaps of a smooth surface, 0 writes a point
   * to a single column. */
  double splatC;
} SplatSettings;

/**
 * @brief World coordinates of the indices and values of a height map.
 *
 *     X = scaleX * column + originX,   Y = scaleY * row + originY,   Z = scaleZ * value + originZ
 */
typedef struct RangeTransform {
  /** Column step in world units. */
  double scaleX;
  /** World X of column 0. */
  double originX;
  /** Row step in world units. */
  double scaleY;
  /** World Y of row 0. */
  double originY;
  /** Step of the range values in world units. */
  double scaleZ;
  /** World Z of range value 0, one step below zMin. */
  double originZ;
} RangeTransform;

/** @cond */
#if defined(__cplusplus)
#define PLANEX_PIN_LAYOUT(condition) static_assert(condition, #condition)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define PLANEX_PIN_LAYOUT(condition) _Static_assert(condition, #condition)
#else
#define PLANEX_PIN_LAYOUT(condition) extern int planexPinnedLayout[(condition) ? 1 : -1]
#endif

PLANEX_PIN_LAYOUT(sizeof(SensorTraits) == 40 && offsetof(SensorTraits, scaleX) == 0 &&
                  offsetof(SensorTraits, originX) == 8 && offsetof(SensorTraits, scaleZ) == 16 &&
                  offsetof(SensorTraits, originZ) == 24 && offsetof(SensorTraits, width) == 32 &&
                  offsetof(SensorTraits, height) == 34);
PLANEX_PIN_LAYOUT(sizeof(ImageSize) == 4 && offsetof(ImageSize, width) == 0 &&
                  offsetof(ImageSize, height) == 2);
PLANEX_PIN_LAYOUT(
    sizeof(WorldRangeTraits) == 72 && offsetof(WorldRangeTraits, xMin) == 0 &&
    offsetof(WorldRangeTraits, xMax) == 8 && offsetof(WorldRangeTraits, xCount) == 16 &&
    offsetof(WorldRangeTraits, yMin) == 24 && offsetof(WorldRangeTraits, yMax) == 32 &&
    offsetof(WorldRangeTraits, yCount) == 40 && offsetof(WorldRangeTraits, zMin) == 48 &&
    offsetof(WorldRangeTraits, zMax) == 56 && offsetof(WorldRangeTraits, zLevels) == 64);
PLANEX_PIN_LAYOUT(sizeof(SplatSettings) == 24 && offsetof(SplatSettings, splatA) == 0 &&
                  offsetof(SplatSettings, splatB) == 8 && offsetof(SplatSettings, splatC) == 16);
PLANEX_PIN_LAYOUT(sizeof(RangeTransform) == 48 && offsetof(RangeTransform, scaleX) == 0 &&
                  offsetof(RangeTransform, originX) == 8 &&
                  offsetof(RangeTransform, scaleY) == 16 &&
                  offsetof(RangeTransform, originY) == 24 &&
                  offsetof(RangeTransform, scaleZ) == 32 &&
                  offsetof(RangeTransform, originZ) == 40);

#undef PLANEX_PIN_LAYOUT
/** @endcond */

#ifdef __cplusplus
namespace tavik {
namespace planex {
using ::ImageSize;
using ::RangeTransform;
using ::SensorTraits;
using ::SplatSettings;
using ::WorldRangeTraits;
}  // namespace planex
}  // namespace tavik
#endif
