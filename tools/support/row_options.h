#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "tools/images/image_reader.h"

namespace planex_tools {

/// Which rows of a scan are processed, and how many at a time.
struct RowOptions {
  std::string rows;  ///< --rows A:B; empty: all
  int block = 0;     ///< --block N; 0: about a million pixels
};

/// Adds --rows and --block.
void addRowOptions(CLI::App& command, RowOptions& options);

/// Rows first ... end - 1, in blocks of `block` rows; the last one may be smaller.
struct RowBlocks {
  int first, end, block;

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

/// The rows of an image that the options ask for. Throws CLI::ValidationError for rows that are
/// written wrongly, none, or not in the image.
RowBlocks resolveRows(const RowOptions& options, const ImageShape& image);

}  // namespace planex_tools
