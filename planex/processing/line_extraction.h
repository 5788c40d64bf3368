#pragma once

/// @file
/// From frames of a camera that looks at a laser line to range images: every column of a frame
/// gives the row of its line, every frame gives a row of the range image.

#include <cstdint>

#include "planex/foundation/image.h"
#include "planex/foundation/image_of.h"
#include "planex/infra/export.h"
#include "planex/model/sensor_region.h"
#include "planex/processing/line_settings.h"

namespace datafusion::planex {

/// What points have beside their place; null: not wanted. Images have the rows that the range image
/// gets, and are 0 where it is 0, but for the quality.
struct LineLayers {
  /// The mean level over the line, round(0.64 lineWidth) rows to either side; of the frames' type.
  cmnalg::Image* intensity = nullptr;
  /// Width at half height in 1/64 rows, around the first place of DERIVATIVE: half way from the
  /// lowest three rows beside the line, on the side where they are brighter, to the brightest of
  /// the three rows around the place. A flank is where two rows, one after the other, lie below
  /// that, interpolated linearly.
  cmnalg::ImageOf<std::uint16_t>* width = nullptr;
  /// kLeastConfidence to 255 for points, round(255 (1 - strongest other line / chosen line)); else
  /// a LineReason.
  cmnalg::ImageOf<std::uint8_t>* quality = nullptr;
  /// The standard deviation of the place that LineSettings::gain and readNoise make, in 1/1024
  /// rows, at most 65535, the rounding of the place included. Speckle is not in it.
  cmnalg::ImageOf<std::uint16_t>* deviation = nullptr;
};

/// How finely places are stored.
/// @param frameHeight rows of a frame, 1 to 32767
/// @return values a row: 64 to 1024 rows, then the greatest power of two with which the last row
///         has a value of 16 bits
PLANEX_EXPORT int linePlacesPerRow(int frameHeight);

/// Where on the sensor the range image of frames lies.
/// @param frames  scaleX and originX of the columns of the frames, scaleZ and originZ of their
/// rows;
///                a width or height of 0 stands for what the frames cover, at least 1
/// @param columns, rows  of a frame
/// @return the same with scaleZ / linePlacesPerRow(rows), and sizes of at most 65535
PLANEX_EXPORT SensorRegion lineRegion(const SensorRegion& frames, int columns, int rows);

/// Makes a range image of `profiles` rows for frames like this one: as wide, cleared, 0 being
/// missing data, with
///
///     PixelSize (x of the frame, 1, y of the frame / linePlacesPerRow),
///     Origin    (x of the frame, 0, y of the frame)
///
/// where PixelSize and Origin of a frame tell where its pixels lie on the sensor.
///
/// @return false, with one WARNING on "Image.Extraction.Planex" and `range` as it was, for a frame
///         that extractLines() refuses and for less than one profile
PLANEX_EXPORT bool createLineTarget(const cmnalg::Image& frame, int profiles,
                                    cmnalg::ImageOf<std::uint16_t>& range);

/// Finds the line in every column of frames. Frame k gives row firstProfile + k of the targets: the
/// place of the line in rows of the frame times linePlacesPerRow, rounded, 0 where there is none.
///
/// A line outshines by the threshold what lies above and below it. With S(i) the sum of the rows
/// i - a to i + a of a column, rows outside repeating the border, a = round(0.64 lineWidth) and
/// w = 2 a + 1,
///
///     v(i) = min(S(i) - S(i - w), S(i) - S(i + w)) >= w threshold
///
/// holds for stretches of rows, each a line whose strength is the largest v, at the first row that
/// has it; edges, ramps and light around give none. The place of the chosen one is, by DERIVATIVE,
/// the nearest to this row and at most a + 1 rows away (the smaller row of two equally near ones),
///
///     d(i) = sum over k = 1 ... K - 1 of h_k (f(i + k) - f(i - k)),   h_k ~ k (K^2 - k^2)^2
///     row  = i + c - q c (1 - c) (1 - 2 c),   c = d(i) / (d(i) - d(i + 1)),   d(i) > 0 >= d(i + 1)
///
/// with K = round(1.7 lineWidth), h_k rounded to whole numbers that sum up to at most 128, sigma =
/// lineWidth / 2.3548 and q = 1 / (2 (sigma^2 + K^2 / 9)), which takes off the error of the chord.
/// Where d stays 0 behind a crossing, the middle of these rows is the place.
///
/// A line that is, at half height, less than 0.65 or more than 1.38 times as wide as told is
/// located again by DERIVATIVE, with half or twice lineWidth (at most 60) in K, h, sigma and q, at
/// the crossing nearest to its place and at most a + 1 rows away. Narrower filters are not taken
/// where lineWidth is below 4, nor where they move the place by more than lineWidth / 25, as grains
/// of speckle do.
///
/// A line that is clipped, one of the three rows around its place being at 15/16 of fullScale or
/// higher, is located again by DERIVATIVE, with the filter that its width asks for, in the levels
///
///     round(f (2 - f / fullScale)),   f at most fullScale
///
/// which reach the greatest one smoothly: the kink of a clipped profile, sampled by pixels, pulls
/// at the zero crossing, by up to 0.08 rows on lines of 2.4 rows.
///
/// CENTRE_OF_GRAVITY starts at the first place and moves a window of round(2.5 sigma) rows to
/// either side three times to the centre of gravity of the brightness in it, over the mean of three
/// rows beyond each end; rows that lie in the window in part count by that part.
///
/// A line whose place lies outside of the searched rows, or nearer to the border of the frame than
/// its width, is cut. Rows outside of the searched ones serve the filters of lines inside.
///
/// Source: Blais and Rioux, Real-time numerical peak detector, Signal Processing 11, 1986
/// (filters); Fisher and Naidu, A comparison of algorithms for subpixel peak detection, 1996.
///
/// @param frames  `count` images of UINT8 or UINT16, of one size and type, as wide as the targets,
///                1 to 32767 rows high
/// @param range   has rows firstProfile ... firstProfile + count - 1, as do the layers
/// @return false, with one WARNING on "Image.Extraction.Planex" and targets as they were, for
///         frames, targets and settings that are none of these
///
/// Frames are divided among threads; results do not depend on them. Reentrant for other targets.
PLANEX_EXPORT bool extractLines(const cmnalg::Image* frames, int count,
                                const LineSettings& settings, int firstProfile,
                                cmnalg::ImageOf<std::uint16_t>& range,
                                const LineLayers& layers = {});

}  // namespace datafusion::planex
