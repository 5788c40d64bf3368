#include "planex/scan/row_resampling.h"

#include <cmath>
#include <cstddef>
#include <string>

#include "planex/io/failure.h"

namespace planex::scan {
namespace {

/// 1 or -1 for the way that Y goes.
double directionOf(const YPositions& y, const RowBlocks& rows) {
  const double way = y.at(rows.end - 1) < y.at(rows.first) ? -1 : 1;
  for (int row = rows.first + 1; row < rows.end; ++row) {
    if (way * y.at(row) >= way * y.at(row - 1)) continue;
    throw io::Failure(y.file(),
                      "turns back at row " + std::to_string(row) + "; give --rows that go one way");
  }
  return way;
}

}  // namespace

RowResampling::RowResampling(const YPositions& y, const RowBlocks& rows) : first_(rows.first) {
  if (const std::optional<io::Axis> line = y.line()) {
    line_ = {line->scale, line->scale * rows.first + line->origin};
    return;
  }
  const double way = directionOf(y, rows);
  const double first = y.at(rows.first);
  const double spacing = rows.count() > 1 ? (y.at(rows.end - 1) - first) / (rows.count() - 1) : 1;
  if (spacing == 0 || !std::isfinite(spacing)) {
    throw io::Failure(y.file(), "gives all rows one Y; give --rows that move");
  }
  line_ = {spacing, first};
  int before = rows.first, next = before + 1, shown = -1;  // around the Y that is wanted
  leftOut_ = rows.count();
  for (int row = 0; row < rows.count(); ++row) {
    const double wanted = spacing * row + first;
    for (; next < rows.end && way * y.at(next) <= way * wanted; ++next) {
      if (y.at(next) != y.at(before)) before = next;  // the earliest of those in one place
    }
    const auto distance = [&](int i) { return std::abs(y.at(i) - wanted); };
    const int source = next < rows.end && distance(next) < distance(before) ? next : before;
    const bool near = distance(source) < std::abs(spacing);
    sources_.push_back(near ? source : -1);
    if (!near) ++emptyRows_;
    if (near && source != shown) --leftOut_;
    if (near) shown = source;
  }
}

}  // namespace planex::scan
