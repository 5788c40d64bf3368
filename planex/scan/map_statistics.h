#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>

#include "planex/infra/export.h"
#include "planex/io/ordered_work.h"
#include "planex/scan/height_map.h"

namespace planex::scan {

/// Z = a + b X + c Y.
struct HeightPlane {
  /// @{
  /// Coefficients, in the unit of Z, and per unit of X and of Y.
  double a, b, c;
  /// @}
  /// @{
  /// Angles in degrees at which the plane rises along X, along Y, and along its steepest line.
  PLANEX_EXPORT double tiltX() const;
  PLANEX_EXPORT double tiltY() const;
  PLANEX_EXPORT double tilt() const;
  /// @}
};

/// Height parameters of what is left of a map without its plane, e = Z - (a + b X + c Y), over n
/// cells of equal area; no filter is applied.
///
///     Sq  = sqrt(sum e^2 / n)             Sp = max e
///     Sa  = sum |e| / n                   Sv = -min e
///     Ssk = sum e^3 / n / Sq^3            Sz = Sp + Sv
///     Sku = sum e^4 / n / Sq^4
///
/// Source: ISO 25178-2:2021, section 4.3, with sums over measured cells for the integrals.
struct Roughness {
  /// @{
  /// In the unit of Z.
  double sq, sa, sz, sp, sv;
  /// @}
  /// @{
  /// Nothing where e is rounding alone: Sq at most 2^-46 of the largest stored number times scaleZ.
  std::optional<double> ssk, sku;
  /// @}
};

/// The shares, in percent, of which statistics have percentiles.
inline constexpr std::array<int, 7> kPercents = {1, 5, 25, 50, 75, 95, 99};

/// What a height map is, as numbers; lengths in its unit. Without filled cells only the counts
/// hold.
struct MapStatistics {
  std::int64_t cells = 0;   ///< of the range
  std::int64_t filled = 0;  ///< with a height
  /// @{
  /// Of the heights.
  double minimum = 0, maximum = 0, mean = 0;
  /// @}

  /// The heights below which there are kPercents of the cells: with the filled cells sorted,
  ///
  ///     h = (n - 1) percent / 100,   z[floor h] + (h - floor h) (z[floor h + 1] - z[floor h])
  ///
  /// Source: Hyndman and Fan, Sample quantiles in statistical packages, 1996, definition 7.
  std::array<double, kPercents.size()> percentiles{};
  /// @{
  /// The least-squares plane, and what remains without it; nothing for cells on one line.
  std::optional<HeightPlane> plane;
  std::optional<Roughness> roughness;
  /// @}

  /// That of kPercents which is 50.
  double median() const { return percentiles[3]; }
};

/// Statistics of the cells in a range, in two passes over the file and in bounded memory.
///
/// Nothing depends on the number of workers: each block of rows has its own sums, and those of the
/// blocks, whose sizes follow from the width of the map, are joined in order. Moments are taken
/// around the means of a row, then joined pair by pair (Chan, Golub and LeVeque, Algorithms for
/// computing the sample variance, 1983), so that the place of the map and its offset in Z cost no
/// digits. Percentiles are exact: the first pass counts the upper 16 bits of the stored numbers,
/// the second one the lower 16 bits of those numbers that share the upper ones with a wanted rank.
///
/// @param advance hears of cells that were looked at, each of them twice
/// A Failure for a map that is damaged.
PLANEX_EXPORT MapStatistics
calculateStatistics(HeightMap& map, const CellRange& range, io::WorkerPool& pool,
                    const std::function<void(std::int64_t cells)>& advance);

}  // namespace planex::scan
