#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "planex/infra/export.h"

namespace planex::io {

/// A sensor pixel whose place in the laser plane was measured.
struct MeasuredPoint {
  /// @{
  /// Sensor column and row.
  double u, v;
  /// @}
  /// @{
  /// In the laser plane; NaN: not known.
  double x, z;
  /// @}
  double sigma;       ///< standard deviation of the pixel; NaN where the file has none
  int scan;           ///< its place in MeasuredPoints::scans
  std::int64_t line;  ///< of the file, counted from 1; of an array the row, counted from 0
};

/// What a file of measured points holds.
struct MeasuredPoints {
  std::vector<MeasuredPoint> points;  ///< in the order of the file
  std::vector<std::string> scans;     ///< names, in the order in which they appear
  bool havePlaces = true;             ///< false: no X and no Z of any; profiles of a target
  bool isArray = false;               ///< read from an array, not from lines of text
};

/// Reads measured points from a TextTable whose first line names the columns: u and v, x and z
/// unless the places are not known, and where they are given, `scan`, a name of the group that the
/// point belongs to, and `sigma`, the standard deviation of the pixel. Other columns are passed
/// over, and so are lines that begin with
/// #. One of x and z may be empty: that coordinate is not known.
///
/// Or, where holdsPointArray() says so, from an NPY array of N rows of u, v, x and z; NaN stands
/// for a coordinate that is not known.
///
/// Without `scan` all points belong to one scan, which is called by the name of the file.
/// A Failure names the line, and the column where one is to blame. At most 2^22 points are read.
PLANEX_EXPORT MeasuredPoints readMeasuredPoints(const std::string& path);

/// Whether a file is called .npy and its header announces points: float64, or float32 in four
/// columns. Other arrays are range images; what cannot be opened, or has no valid header, is none.
PLANEX_EXPORT bool holdsPointArray(const std::string& path);

}  // namespace planex::io
