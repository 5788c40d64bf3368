#pragma once

#include <cstdint>

#include "planex/foundation/box.h"
#include "planex/foundation/rectangle.h"
#include "planex/foundation/vec.h"
#include "planex/infra/containers.h"

namespace datafusion::planex {

// Points along the outline of a shape. With a supersampling of n every edge carries n points
// between its two ends, evenly spaced. Counts that do not fit 64 bits come out as the largest
// value.

/// 2 n^2 + 4 k (k - 1) with k = n + 2.
std::uint64_t boxPointCount(int supersampling);
/// 4 (n + 1).
std::uint64_t rectanglePointCount(int supersampling);

/// Replaces `points` by the surface points of a box, carried through its pose. In the frame of the
/// box, with coordinates t_i size / 2 where t_i = -1 + 2 i / (n + 1), i = 0 ... n + 1, their order
/// is
///
///   1. for every layer y = t_0 ... t_{n+1}, the ring along the four edges of its rectangle, which
///      starts at (x, z) = (t_0, t_0) and goes on through (t_{n+1}, t_0), (t_{n+1}, t_{n+1}) and
///      (t_0, t_{n+1}), each corner once;
///   2. the inner points of the face y = t_0, row by row: z = t_1 ... t_n, in each x = t_1 ... t_n;
///   3. likewise those of the face y = t_{n+1}.
///
/// @return false, with `points` in any state, and one warning on "Image.Calibration.Planex":
///         "Supersampling must be zero or positive.", or "The points of this supersampling do not
///         fit into memory." for a list larger than the memory of the machine or that cannot be
///         allocated
bool sampleBox(const cmnalg::shape3d::Box& box, int supersampling,
               etl::Vector<cmnalg::Vec<3, double>>& points);

/// Replaces `points` by points along the edges from corner 0 to 1, 1 to 2, 2 to 3 and 3 to 0, each
/// edge with its first corner and without its last:
///
///     (1 - t) c_e + t c_{e+1},   t = j / (n + 1),   j = 0 ... n
///
/// @return as sampleBox
bool sampleRectangle(const cmnalg::shape::Rectangle& rectangle, int supersampling,
                     etl::Vector<cmnalg::Vec<2, double>>& points);

}  // namespace datafusion::planex
