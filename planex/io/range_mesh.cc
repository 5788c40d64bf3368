#include "planex/io/range_mesh.h"

#include <cmath>

namespace planex::io {
namespace {

struct Corner {
  double x, y, z;
  std::uint32_t index;

  Corner(const SampleRow& row, std::size_t column)
      : x(double{row.x[column]}),
        y(double{row.y[column]}),
        z(double{row.z[column]}),
        index(row.index[column]) {}
};

/// The square of a length; no number, or infinite, where a point is missing.
double squaredDistance(const Corner& p, const Corner& q) {
  const double x = q.x - p.x, y = q.y - p.y, z = q.z - p.z;
  return x * x + y * y + z * z;
}

void append(const Corner& p, const Corner& q, const Corner& r, Triangles& triangles) {
  for (const Corner* corner : {&p, &q, &r}) triangles.corners.push_back(corner->index);
  const double up = (q.x - p.x) * (r.y - p.y) - (q.y - p.y) * (r.x - p.x);
  triangles.facing += (up > 0 ? 1 : 0) - (up < 0 ? 1 : 0);
}

}  // namespace

void connectRows(const SampleRow& upper, const SampleRow& lower, std::size_t columns,
                 double maxEdge, Triangles triangles) {
  const double most = maxEdge * maxEdge;
  for (std::size_t i = 0; i + 1 < columns; ++i) {
    const Corner a(upper, i), b(upper, i + 1), c(lower, i), d(lower, i + 1);
    const double ad = squaredDistance(a, d), bc = squaredDistance(b, c);
    // Comparisons with a missing point are false.
    const bool above = squaredDistance(a, b) <= most, below = squaredDistance(c, d) <= most;
    const bool left = squaredDistance(a, c) <= most, right = squaredDistance(b, d) <= most;
    if (bc <= ad || !std::isfinite(ad)) {
      if (!(bc <= most)) continue;
      if (above && left) append(a, c, b, triangles);
      if (below && right) append(b, c, d, triangles);
    } else if (ad <= most) {
      if (left && below) append(a, c, d, triangles);
      if (above && right) append(a, d, b, triangles);
    }
  }
}

}  // namespace planex::io
