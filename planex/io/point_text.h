#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "planex/infra/export.h"
#include "planex/io/text_table.h"

namespace planex::io {

/// A point of two or three coordinates; of two the third is 0.
using TextPoint = std::array<double, 3>;

/// How a heading calls the three coordinates, whatever the case of its letters; in the plane there
/// are the first and the last.
struct CoordinateNames {
  std::array<std::string_view, 3> names;   ///< as headings are written
  std::array<std::string_view, 3> others;  ///< what else is read
};

/// @{
/// Of sensor pixels, and of the laser plane and aligned coordinates.
inline constexpr CoordinateNames kPixelNames = {{"column", "profile", "row"}, {"u", "p", "v"}};
inline constexpr CoordinateNames kWorldNames = {{"X", "Y", "Z"}, {"X", "Y", "Z"}};
/// @}

/// Reads points from a TextTable, one a line.
///
/// The first line may be a heading, a line without any number: then coordinates stand in the
/// columns that it names. Otherwise they are the first columns, two where there are two, else
/// three. Columns beside them may hold anything, also nothing; every line has as many as the first.
/// Memory holds one line, and what belongs to the points read last.
class PLANEX_EXPORT PointReader {
 public:
  /// @param path "-": standard input. A Failure when the file cannot be opened
  PointReader(const std::string& path, const CoordinateNames& names);

  /// Reads up to `count` more points into the list, which is emptied first; fewer where the other
  /// columns take much memory.
  /// @return false when there are none left. A Failure names the line that is no point, and the
  ///         column where one is to blame
  bool read(std::size_t count, std::vector<TextPoint>& points);

  /// 2 or 3; 0 before the first line was read.
  int dimensions() const { return dimensions_; }
  /// Columns of every line, at least as many.
  int columns() const { return static_cast<int>(layout_.size()); }
  /// Whether the first line was a heading.
  bool hasHeading() const { return !table_.heading().empty(); }

  /// The heading with these names for the coordinates, "id,X,Z\n".
  std::string heading(const CoordinateNames& names) const;
  /// Appends "7,1.5,2\n": point `i` of those read last, with other coordinates in place of its own.
  void append(std::string& text, std::size_t i, const TextPoint& point) const;

 private:
  void begin();
  void findNames();
  void takePoint(std::vector<TextPoint>& points);

  TextTable table_;
  const CoordinateNames names_;
  int dimensions_ = 0;
  std::vector<int> layout_;  // of each column: which coordinate it is, or kOther
  std::string others_;       // other columns of the points read last, each with a comma
  std::vector<std::size_t> othersOfPoint_;  // where they begin
};

/// Appends "1.5,2,nan\n". Numbers have as many digits as reading back needs.
PLANEX_EXPORT void appendPoint(std::string& text, const TextPoint& point, int dimensions);

}  // namespace planex::io
