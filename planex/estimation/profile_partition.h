#pragma once

#include <vector>

#include "planex/foundation/vec.h"

namespace planex::estimation {

/// Where two straight pieces of a profile meet.
struct SeenCorner {
  cmnalg::Vec<2, double> pixel;  ///< sensor column and row
  int turn;                      ///< 1 where the rows' slope along the columns grows, else -1
  bool continues;                ///< begins with the piece that ends at the corner before
};

/// The corners of a profile, from left to right.
///
/// The profile is put into at most 560 bins, of each the pixel with the median row. The bins are
/// cut into straight pieces so that the squared distances from the pieces and a price for each
/// piece are least, exactly, by dynamic programming. Lines through the middle of neighbouring
/// pieces meet in a corner.
///
/// Source: optimal partition by dynamic programming, Jackson et al., An algorithm for optimal
/// partitioning of data on an interval, IEEE Signal Processing Letters 12(2), 2005.
///
/// @param pixels of one scan, in any order; one row at most per column counts
std::vector<SeenCorner> findCorners(const std::vector<cmnalg::Vec<2, double>>& pixels);

}  // namespace planex::estimation
