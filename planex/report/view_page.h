#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "planex/io/output_file.h"
#include "planex/report/view_data.h"

namespace planex::report {

/// A map as a page shows it: cells at the crossings of columns and rows.
struct ViewMap {
  std::string name;               ///< of the file
  std::string unit;               ///< of X and Z
  std::string yUnit;              ///< of Y; another one where Y is no length
  int columns = 0;                ///< as the page has them
  int rows = 0;                   ///< likewise
  io::Axis x, y;                  ///< centres of those cells
  std::vector<ViewLayer> layers;  ///< of columns * rows cells each; heights are the first
  /// Of a cloud: X, Y and Z of the points that are drawn; the cells tell the highest of them.
  std::vector<float> points;
  /// What the file holds, and what of it the page shows: pairs of title and text.
  std::vector<std::pair<std::string, std::string>> facts;
};

/// How large a page is.
struct ViewPageSize {
  std::int64_t page = 0;  ///< bytes
  std::int64_t data = 0;  ///< those of them that tell cells and points
};

/// Writes a page for a browser: maps and clouds to turn, look into and measure, for people who
/// have nothing but the file.
///
/// All that the page needs is in it, three.js with its licence, too; its security policy forbids to
/// load anything. Texts come from files and may hold anything: they stand in a JSON text in which
/// nothing ends a script, and the page shows them as texts alone. The same maps give the same
/// bytes.
///
/// @param maps  one or more; differences are layers of their own
ViewPageSize writeViewPage(const std::vector<ViewMap>& maps, io::OutputFile& file);

/// The layer that tells how much higher a map is than another one: at each cell less the number of
/// the cell of the other map that lies nearest, where that is one whose area holds the place.
/// Nothing has a number where either map has none.
ViewLayer differenceOf(const ViewMap& map, const ViewMap& other);

}  // namespace planex::report
