// Triangles between the samples of a range image.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace planex::io {

/// One row of samples.
struct SampleRow {
  const float* x;              ///< X; not finite where a point is missing, as in Y or Z
  const float* y;              ///< Y
  const float* z;              ///< Z
  const std::uint32_t* index;  ///< numbers of the points; any where one is missing
};

/// Triangles that are torn where neighbours are far apart.
struct Triangles {
  std::vector<std::uint32_t>& corners;  ///< three by three, appended
  std::int64_t& facing;                 ///< how many face +Z, less those that face away
};

/// Appends the triangles between two rows that are neighbours, from the first column on. Of the
/// four samples of two columns the shorter diagonal makes two triangles, or one where a point is
/// missing; none has an edge longer than maxEdge.
///
/// They go a, c, b and b, c, d, or a, c, d and a, d, b, where a and b stand in the upper row and c
/// and d below.
void connectRows(const SampleRow& upper, const SampleRow& lower, std::size_t columns,
                 double maxEdge, Triangles triangles);

}  // namespace planex::io
