#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "planex/infra/export.h"

namespace planex::io {

/// Where the target of a scan stands, as a file tells it.
struct TargetPoseLine {
  std::string scan;  ///< the name of its file
  /// @{
  /// Of its origin, and its angle in degrees; NaN: not known.
  double x, z, angle;
  /// @}
  /// @{
  /// Their standard uncertainties, 0 or more; 0 of what is not known.
  double sx, sz, sangle;
  /// @}
  std::int64_t line;  ///< of the file, counted from 1
};

/// Reads poses from a TextTable whose first line names the columns: `scan`, and of x, z, angle, sx,
/// sz and sangle those that there are. An empty field is not known; a pose that is known needs its
/// uncertainty. Other columns are refused; lines that begin with # are passed over.
///
/// A Failure names the line, and the column where one is to blame: a number that is none or not
/// finite, an uncertainty below 0 or none, a scan that has a line already.
PLANEX_EXPORT std::vector<TargetPoseLine> readTargetPoses(const std::string& path);

}  // namespace planex::io
