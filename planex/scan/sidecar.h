#pragma once

#include <optional>
#include <string>

#include "planex/infra/export.h"

namespace planex::scan {

/// What the sidecar of a range image, a JSON file beside it, says of the scan:
///
///     {"sensor": {"scaleX": 1, "originX": 0, "scaleZ": 0.0625, "originZ": 160,
///                 "width": 2560, "height": 704},
///      "rows": {"scaleY": 0.1, "originY": 0}}
///
/// One of "sensor" and "rows" may be missing. In "sensor" the sizes may; in "rows" the origin may,
/// which is 0, and {"positions": "FILE"} stands for a file of YPositions, whose name is relative to
/// the folder of the sidecar.
struct ScanSidecar {
  std::string path;  ///< the file; empty where there is none

  /// @{
  /// As SensorSettings; all but the sizes are there where one is.
  std::optional<double> scaleX, originX, scaleZ, originZ, width, height;
  /// @}

  std::optional<double> scaleY;  ///< distance of neighbouring rows, in the unit of the model; not 0
  std::optional<double> originY;  ///< Y of row 0
  std::string positions;          ///< the file of positions, as seen from here; empty without
  /// Standard deviation of a place in sensor rows, as the extraction of the lines tells it.
  std::optional<double> rowNoise;
  /// How many bits of a pixel carry its value, as the pixel format of the camera tells.
  std::optional<int> bits;
};

/// Reads a sidecar.
///
/// A sidecar that planex wrote beside a range image has these members, and others. One that planex
/// wrote beside another output says nothing of a scan when it stands beside an image. Where it is
/// named, it says how the scan of that output was taken.
///
/// @param named  the file; empty: IMAGE.json, where that exists
/// @param image  the range image; empty: none, and "-", standard input, has no sidecar
/// A Failure, which names the member, for a file that cannot be read or is no JSON object, and for
/// members that are missing, unknown, there twice, of another type, or out of range.
PLANEX_EXPORT ScanSidecar readScanSidecar(const std::string& named, const std::string& image);

}  // namespace planex::scan
