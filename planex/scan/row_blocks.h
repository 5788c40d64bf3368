#pragma once

namespace planex::scan {

/// Rows first ... end - 1 of an image, in blocks of `block` rows; the last one may be smaller.
struct RowBlocks {
  int first;  ///< the first row
  int end;    ///< behind the last row
  int block;  ///< rows of a block, 1 or more

  /// The number of rows.
  int count() const { return end - first; }

  /// Calls body(row, count) for one block after the other.
  template <typename Body>
  void forEach(Body&& body) const {
    for (int row = first; row < end;) {
      const int rows = end - row < block ? end - row : block;
      body(row, rows);
      row += rows;
    }
  }
};

}  // namespace planex::scan
