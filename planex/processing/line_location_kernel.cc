#include "planex/processing/line_location_kernel.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>

#include "planex/processing/line_detection_kernel.h"

namespace datafusion::planex::kernel {
namespace {

// A told width that differs by less costs little. Filters for less than two rows fall between the
// pixels.
constexpr double kNarrow = 0.65;
constexpr double kWide = 1.38;
constexpr double kLeastNarrowed = 4.0;
// Shot noise moves a line by less where the narrow filter is right; grains of speckle, which make
// lines look narrow, pull it further.
constexpr double kMostMove = 1.0 / 25.0;
// Of the full scale: what is clipped may lie lower where a dark frame was taken off.
constexpr double kClipped = 15.0 / 16.0;

std::array<FittingFilter, 3> fittingFilters(double lineWidth, const LocationFilter& told) {
  const int searched = told.searched;
  const double mostMove = lineWidth * kMostMove;
  const auto below = static_cast<std::int32_t>(std::ceil(lineWidth * kNarrow * 64.0));
  const auto above = static_cast<std::int32_t>(std::floor(lineWidth * kWide * 64.0));
  const std::int32_t narrowest = lineWidth >= kLeastNarrowed ? below : 0;
  constexpr std::int32_t kWidest = std::numeric_limits<std::int32_t>::max();
  constexpr double kAnyMove = std::numeric_limits<double>::infinity();
  const LocationFilter half(LineFilter(std::max(lineWidth / 2.0, 1.0)),
                            static_cast<int>(std::ceil(mostMove)) + 1);
  const LocationFilter twice(LineFilter(std::min(lineWidth * 2.0, 60.0)), searched);
  return {{{half, 0, narrowest - 1, mostMove, 1},
           {told, narrowest, above, kAnyMove, 0},
           {twice, above + 1, kWidest, kAnyMove, 1}}};
}

}  // namespace

LocationFilter::LocationFilter(const LineFilter& filter, int searchedRows)
    : taps((filter.taps.size() + 3) / 4 * 4),
      squareSum(0),
      chord(filter.chord),
      searched(searchedRows),
      reach(searchedRows + 1 + static_cast<int>(taps.size())) {
  std::copy(filter.taps.begin(), filter.taps.end(), taps.begin());
  for (const std::int32_t tap : taps) squareSum += 2 * tap * tap;
}

LocationConstants::LocationConstants(const LineSettings& settings, const LineFilter& lineFilter,
                                     int frameRows, double perRow, double greatest)
    : filter(lineFilter),
      told(lineFilter, lineFilter.boxHalf + 1),
      fitting(fittingFilters(settings.lineWidth, told)),
      rows(frameRows),
      firstMiddle(settings.firstRow - 0.5),
      lastMiddle((settings.endRow == 0 ? frameRows : settings.endRow) - 0.5),
      placesPerRow(perRow),
      fullScale(greatest),
      gain(settings.gain),
      floorVariance(settings.readNoise * settings.readNoise + 1.0 / 12.0),
      roundingVariance(1.0 / (12.0 * perRow * perRow)) {
  const double widest =
      settings.maximumWidth == 0.0 ? 4.0 * settings.lineWidth : settings.maximumWidth;
  minimumWidth = static_cast<std::int32_t>(std::ceil(settings.minimumWidth * 64.0));
  maximumWidth = static_cast<std::int32_t>(std::floor(widest * 64.0));
  told.reach = std::max(told.reach, told.searched + static_cast<int>(widest / 2.0) + 2);
  if (settings.method == LineMethod::CENTRE_OF_GRAVITY) {
    told.reach = std::max(told.reach, told.searched + 2 * filter.windowHalf + 5);
  }
}

namespace {

using cmnalg::InstructionSet;
using cmnalg::KernelVariants;

constexpr std::int32_t kNone = std::numeric_limits<std::int16_t>::min();

/// What is known of the lines in kLanes columns; rows count from that of the largest v.
struct Lines {
  std::int32_t crossing[kLanes];  // kNone without
  std::int32_t nearest[kLanes];   // row to the crossing
  double middle[kLanes];
  std::int32_t left[kLanes], right[kLanes];  // beyond the flanks; kNone without
  int clipped[kLanes];                       // 1 or 0
  double deviation[kLanes];
};

template <typename Sum>
struct Block {
  const Sum* pixels;  // blockRows() times kLanes
  const Sum* d;       // of the rows -searched to searched + 1
  int reach, searched;

  const Sum* row(int i) const { return pixels + (reach + i) * kLanes; }
  PLANEX_ALWAYS_INLINE double at(int i, int lane) const {
    return static_cast<double>(row(std::clamp(i, -reach, reach))[lane]);
  }
};

/// Moves what lies around the places into the block, a lane a column; outside repeats the border.
template <typename Pixel, typename Sum>
PLANEX_ALWAYS_INLINE void gather(const LocationFilter& filter, int frameRows, const Pixel* pixels,
                                 std::ptrdiff_t pitch, const Sum* place, int lanes,
                                 Sum* __restrict block) {
  const int blockRows = filter.blockRows();
  const int top = *std::min_element(place, place + lanes) - filter.reach;
  const int apart = *std::max_element(place, place + lanes) - filter.reach - top;
  if (lanes == kLanes && apart < kLanes && top >= 0 && top + apart + blockRows <= frameRows) {
    // All at the height of the uppermost, and then each lane upwards, by one bit of its way after
    // the other.
    Sum way[kLanes];
    for (int lane = 0; lane < kLanes; ++lane) {
      way[lane] = static_cast<Sum>(place[lane] - top - filter.reach);
    }
    int rows = blockRows + apart;
    for (int r = 0; r < rows; ++r) {
      const Pixel* const from = pixels + (top + r) * pitch;
#pragma omp simd
      for (int lane = 0; lane < kLanes; ++lane) block[r * kLanes + lane] = from[lane];
    }
    for (int bit = 1; bit <= apart; bit *= 2) {
      Sum moves[kLanes];
      for (int lane = 0; lane < kLanes; ++lane) moves[lane] = (way[lane] & bit) != 0 ? -1 : 0;
      for (int r = 0; r + bit < rows; ++r) {
        Sum* const row = block + r * kLanes;
        const Sum* const lower = row + bit * kLanes;
#pragma omp simd
        for (int lane = 0; lane < kLanes; ++lane) {
          row[lane] = static_cast<Sum>((lower[lane] & moves[lane]) | (row[lane] & ~moves[lane]));
        }
      }
    }
    return;
  }
  for (int lane = 0; lane < kLanes; ++lane) {
    const int column = std::min(lane, lanes - 1);
    for (int r = 0; r < blockRows; ++r) {
      const int row = std::clamp(place[column] - filter.reach + r, 0, frameRows - 1);
      block[r * kLanes + lane] = pixels[column + row * pitch];
    }
  }
}

/// d of all rows that are searched, four taps at a time.
template <typename Sum>
PLANEX_ALWAYS_INLINE void differentiate(const LocationFilter& filter, const Sum* block,
                                        Sum* __restrict d) {
  const int count = (2 * filter.searched + 2) * kLanes;
  const Sum* const from = block + (filter.reach - filter.searched) * kLanes;
  for (std::size_t t = 0; t < filter.taps.size(); t += 4) {
    const auto h0 = static_cast<Sum>(filter.taps[t]), h1 = static_cast<Sum>(filter.taps[t + 1]);
    const auto h2 = static_cast<Sum>(filter.taps[t + 2]), h3 = static_cast<Sum>(filter.taps[t + 3]);
    const int step = (static_cast<int>(t) + 1) * kLanes;
    const Sum* __restrict up = from + step;
    const Sum* __restrict down = from - step;
    const Sum kept = t == 0 ? 0 : -1;
#pragma omp simd
    for (int j = 0; j < count; ++j) {
      Sum sum = static_cast<Sum>(d[j] & kept);
      sum = static_cast<Sum>(sum + h0 * static_cast<Sum>(up[j] - down[j]));
      sum = static_cast<Sum>(sum + h1 * static_cast<Sum>(up[j + kLanes] - down[j - kLanes]));
      sum =
          static_cast<Sum>(sum + h2 * static_cast<Sum>(up[j + 2 * kLanes] - down[j - 2 * kLanes]));
      sum =
          static_cast<Sum>(sum + h3 * static_cast<Sum>(up[j + 3 * kLanes] - down[j - 3 * kLanes]));
      d[j] = sum;
    }
  }
}

template <typename Sum>
PLANEX_ALWAYS_INLINE Sum smaller(Sum a, Sum b) {
  return a < b ? a : b;
}

template <typename Sum>
PLANEX_ALWAYS_INLINE Sum larger(Sum a, Sum b) {
  return a > b ? a : b;
}

/// Notes row i where d crosses zero behind it.
template <typename Sum>
PLANEX_ALWAYS_INLINE void takeCrossing(const Block<Sum>& block, int i, Sum* __restrict nearest) {
  const Sum* const here = block.d + (block.searched + i) * kLanes;
#pragma omp simd
  for (int lane = 0; lane < kLanes; ++lane) {
    const Sum crosses = static_cast<Sum>(-static_cast<Sum>(here[lane] > 0) &
                                         -static_cast<Sum>(here[lane + kLanes] <= 0));
    nearest[lane] = static_cast<Sum>((static_cast<Sum>(i) & crosses) | (nearest[lane] & ~crosses));
  }
}

/// The row in front of the crossing that lies nearest to row 0.
template <typename Sum>
PLANEX_ALWAYS_INLINE void findCrossings(const Block<Sum>& block, Lines& lines) {
  Sum nearest[kLanes];
  for (Sum& row : nearest) row = static_cast<Sum>(kNone);
  for (int i = block.searched; i > 0; --i) {
    takeCrossing(block, i, nearest);
    takeCrossing(block, -i, nearest);
  }
  takeCrossing(block, 0, nearest);
  for (int lane = 0; lane < kLanes; ++lane) lines.crossing[lane] = nearest[lane];
}

/// Bends the levels of clipped lines, f (2 - f / fullScale): they reach the greatest one without
/// the kink that, sampled by pixels, pulls at the middle.
template <typename Sum>
PLANEX_ALWAYS_INLINE void bend(double fullScale, const int* clipped, int blockRows,
                               Sum* __restrict block) {
  if (std::none_of(clipped, clipped + kLanes, [](int is) { return is != 0; })) return;
  for (int r = 0; r < blockRows; ++r) {
    Sum* const row = block + r * kLanes;
#pragma omp simd
    for (int lane = 0; lane < kLanes; ++lane) {
      const double level = std::min(static_cast<double>(row[lane]), fullScale);
      const double bent = std::floor(level * (2.0 - level / fullScale) + 0.5);
      row[lane] = clipped[lane] != 0 ? static_cast<Sum>(bent) : row[lane];
    }
  }
}

/// The middle of the lines by their derivative.
template <typename Sum>
PLANEX_ALWAYS_INLINE void findMiddles(const LocationFilter& filter, const Block<Sum>& block,
                                      Lines& lines) {
  double first[kLanes], second[kLanes], zeros[kLanes];
  for (int lane = 0; lane < kLanes; ++lane) {
    const int i = lines.crossing[lane] == kNone ? 0 : lines.crossing[lane];
    const Sum* d = block.d + (filter.searched + i) * kLanes + lane;
    first[lane] = d[0];
    second[lane] = d[kLanes];
    // Where d stays 0 for a while, as on lines that are clipped far, the middle is that of it.
    int flat = 0;
    if (d[kLanes] == 0) {
      while (i + flat < filter.searched && d[std::ptrdiff_t{flat + 2} * kLanes] == 0) ++flat;
    }
    zeros[lane] = 0.5 * flat;
    lines.nearest[lane] = (first[lane] < -second[lane] ? i : i + 1) + flat / 2;
  }
  const double q = filter.chord;
#pragma omp simd
  for (int lane = 0; lane < kLanes; ++lane) {
    const double c = first[lane] / (first[lane] - second[lane]);
    lines.middle[lane] = static_cast<double>(lines.crossing[lane]) + zeros[lane] +
                         (c - q * c * (1.0 - c) * (1.0 - 2.0 * c));
  }
}

/// Finds the rows beyond the flanks: the nearest ones that, with the next one, lie below half of
/// the height over the background. So a dark grain of speckle does not end a line.
/// @param level six times the level of half height
template <typename Sum>
PLANEX_ALWAYS_INLINE void findFlanks(double fullScale, const Block<Sum>& block, Lines& lines,
                                     Sum* level) {
  constexpr Sum kMost = std::numeric_limits<Sum>::max();
  Sum middle[kLanes], lowLeft[kLanes], lowRight[kLanes], left[kLanes], right[kLanes];
  for (int lane = 0; lane < kLanes; ++lane) {
    const int i = lines.crossing[lane] == kNone ? 0 : lines.nearest[lane];
    middle[lane] = static_cast<Sum>(i);
    const Sum* const at = block.row(i) + lane;
    const Sum peak = std::max({at[-kLanes], at[0], at[kLanes]});
    lines.clipped[lane] = static_cast<double>(peak) >= kClipped * fullScale ? 1 : 0;
    level[lane] = static_cast<Sum>(3 * peak);
    lowLeft[lane] = lowRight[lane] = kMost;
    left[lane] = right[lane] = static_cast<Sum>(kNone);
  }
  for (int r = -block.reach + 1; r < block.reach; ++r) {
    const Sum* row = block.row(r);
    const auto place = static_cast<Sum>(r);
#pragma omp simd
    for (int lane = 0; lane < kLanes; ++lane) {
      const Sum three = static_cast<Sum>(row[lane - kLanes] + row[lane] + row[lane + kLanes]);
      const Sum before = static_cast<Sum>(-static_cast<Sum>(place < middle[lane]));
      const Sum behind = static_cast<Sum>(-static_cast<Sum>(place > middle[lane]));
      // Of the wrong side: the largest number.
      lowLeft[lane] = smaller(static_cast<Sum>(three | (kMost & ~before)), lowLeft[lane]);
      lowRight[lane] = smaller(static_cast<Sum>(three | (kMost & ~behind)), lowRight[lane]);
    }
  }
  for (int lane = 0; lane < kLanes; ++lane) {
    level[lane] = static_cast<Sum>(level[lane] + std::max(lowLeft[lane], lowRight[lane]));
  }
  for (int r = -block.reach + 1; r < block.reach; ++r) {
    const Sum* row = block.row(r);
    const Sum* mirrored = block.row(-r);
    const auto place = static_cast<Sum>(r);
    const auto opposite = static_cast<Sum>(-r);
#pragma omp simd
    for (int lane = 0; lane < kLanes; ++lane) {
      const Sum upper = static_cast<Sum>(6 * larger(row[lane], row[lane - kLanes]));
      const Sum lower = static_cast<Sum>(6 * larger(mirrored[lane], mirrored[lane + kLanes]));
      const Sum l = static_cast<Sum>(-static_cast<Sum>(upper < level[lane]) &
                                     -static_cast<Sum>(place < middle[lane]));
      const Sum g = static_cast<Sum>(-static_cast<Sum>(lower < level[lane]) &
                                     -static_cast<Sum>(opposite > middle[lane]));
      left[lane] = static_cast<Sum>((place & l) | (left[lane] & ~l));
      right[lane] = static_cast<Sum>((opposite & g) | (right[lane] & ~g));
    }
  }
  for (int lane = 0; lane < kLanes; ++lane) {
    lines.left[lane] = left[lane];
    lines.right[lane] = right[lane];
  }
}

/// Moves a window to its own centre of gravity, from the middle that the lines have.
template <typename Sum>
PLANEX_ALWAYS_INLINE void centre(const LocationConstants& k, const Block<Sum>& block, int lane,
                                 Lines& lines) {
  const double half = k.filter.windowHalf;
  const double start = lines.middle[lane];
  double middle = start;
  double spread = 0.0;
  double signal = 0.0;
  double beyond = 0.0;
  for (int round = 0; round < 3; ++round) {
    const double low = middle - half;
    const double high = middle + half;
    const int first = static_cast<int>(std::floor(low + 0.5));
    const int last = static_cast<int>(std::floor(high + 0.5));
    double background = 0.0;
    for (int r = 1; r <= 3; ++r) background += block.at(first - r, lane) + block.at(last + r, lane);
    background /= 6.0;
    signal = 0.0;
    spread = 0.0;
    double moment = 0.0;
    for (int r = first; r <= last; ++r) {
      const double from = std::max(r - 0.5, low);
      const double to = std::min(r + 0.5, high);
      const double f = block.at(r, lane);
      const double way = r - middle;
      const double part = to - from;
      signal += part * (f - background);
      moment += part * (f - background) * way;
      spread += part * way * (part * way) * (k.floorVariance + k.gain * f);
    }
    beyond = half * (block.at(first, lane) + block.at(last, lane) - 2.0 * background);
    middle += moment / signal;
    if (!(signal > 0.0 && std::fabs(middle - start) <= half)) {
      lines.crossing[lane] = kNone;
      return;
    }
  }
  lines.middle[lane] = middle;
  // The window follows its result, and what lies at its ends pulls at it.
  const double slope = std::max(signal - beyond, 0.25 * signal);
  lines.deviation[lane] = std::sqrt(spread / (slope * slope) + k.roundingVariance);
}

/// The variance of a bent level: that of the level, times the square of the slope of the bend.
PLANEX_ALWAYS_INLINE double bentVariance(const LocationConstants& k, double bent) {
  const double rest = std::max(1.0 - bent / k.fullScale, 0.0);  // (1 - f / fullScale)^2
  return 4.0 * rest * (k.floorVariance + k.gain * k.fullScale * (1.0 - std::sqrt(rest)));
}

/// The standard deviation of a zero crossing: that of d there over its slope.
template <typename Sum>
PLANEX_ALWAYS_INLINE void deviate(const LocationConstants& k, const LocationFilter& filter,
                                  const Block<Sum>& block, int lane, bool bent, Lines& lines) {
  const int i = lines.crossing[lane];
  const Sum* const d = block.d + (filter.searched + i) * kLanes + lane;
  const double here = d[0];
  const double next = d[kLanes];
  const Sum* const at = block.row(lines.nearest[lane]) + lane;
  std::int64_t light = 0;
  double variance = 0.0;
  for (std::size_t t = 0; t < filter.taps.size(); ++t) {
    const auto away = static_cast<std::ptrdiff_t>(t + 1) * kLanes;
    const std::int64_t square = std::int64_t{filter.taps[t]} * filter.taps[t];
    if (bent) {
      variance +=
          static_cast<double>(square) * (bentVariance(k, at[away]) + bentVariance(k, at[-away]));
    } else {
      light += square * (std::int64_t{at[away]} + at[-away]);
    }
  }
  if (!bent) variance = filter.squareSum * k.floorVariance + k.gain * static_cast<double>(light);
  const double slope = here - next;
  lines.deviation[lane] = std::sqrt(variance / (slope * slope) + k.roundingVariance);
}

/// The fraction of a row from `beyond`, below the level, to where the level is, in 1/64: 64 where
/// the row inside lies below it, too.
/// @param level six times it
PLANEX_ALWAYS_INLINE double flank(double level, double beyond, double inside) {
  // Columns without a line have anything here, and a rise of 0.
  const double rise = std::max(std::max(6.0 * inside, level) - 6.0 * beyond, 1.0);
  return std::floor(64.0 * (level - 6.0 * beyond) / rise + 0.5);
}

template <typename Pixel, bool kGravity>
struct LocateLinesKernel {
  using Sum = LineSum<Pixel>;

  template <bool>
  static PLANEX_ALWAYS_INLINE void run(const LocationConstants& k, const LocationSource& source,
                                       void* scratch, const LocationTarget& target) {
    const auto* const strengths = static_cast<const Sum*>(source.strengths);
    for (int u = 0; u < source.columns; u += kLanes) {
      const int lanes = std::min(kLanes, source.columns - u);
      const bool any = std::any_of(strengths + u, strengths + u + lanes,
                                   [](Sum strength) { return strength > 0; });
      if (!any) {
        leave(target, u, lanes);
        continue;
      }
      locate(k, source, u, lanes, static_cast<Sum*>(scratch), target);
    }
  }

  /// No line in these columns.
  static PLANEX_ALWAYS_INLINE void leave(const LocationTarget& target, int u, int lanes) {
    const auto count = static_cast<std::size_t>(lanes);
    std::memset(target.range + u, 0, count * sizeof(std::uint16_t));
    if (target.width != nullptr) std::memset(target.width + u, 0, count * sizeof(std::uint16_t));
    if (target.intensity != nullptr) {
      std::memset(static_cast<Pixel*>(target.intensity) + u, 0, count * sizeof(Pixel));
    }
    if (target.reason != nullptr) {
      std::memset(target.reason + u, static_cast<int>(LineReason::NOTHING), count);
    }
    if (target.deviation != nullptr) {
      std::memset(target.deviation + u, 0, count * sizeof(std::uint16_t));
    }
  }

  /// Finds where a filter has the middle of lines that are near `starts`.
  static PLANEX_ALWAYS_INLINE Block<Sum> cross(const LocationConstants& k,
                                               const LocationFilter& filter,
                                               const LocationSource& source, int u, int lanes,
                                               const Sum* starts, const int* clipped, Sum* scratch,
                                               Lines& lines) {
    Sum* const d = scratch + (filter.blockRows() + kLanes) * kLanes;
    gather(filter, k.rows, static_cast<const Pixel*>(source.pixels) + u, source.pitch, starts,
           lanes, scratch);
    if (clipped != nullptr) bend(k.fullScale, clipped, filter.blockRows(), scratch);
    differentiate(filter, scratch, d);
    const Block<Sum> block{scratch, d, filter.reach, filter.searched};
    findCrossings(block, lines);
    findMiddles(filter, block, lines);
    return block;
  }

  static PLANEX_ALWAYS_INLINE void locate(const LocationConstants& k, const LocationSource& source,
                                          int u, int lanes, Sum* scratch,
                                          const LocationTarget& target) {
    const Sum* const strengths = static_cast<const Sum*>(source.strengths) + u;
    const Sum* const places = static_cast<const Sum*>(source.places) + u;
    Lines lines;
    Sum level[kLanes];
    const Block<Sum> block = cross(k, k.told, source, u, lanes, places, nullptr, scratch, lines);
    findFlanks(k.fullScale, block, lines, level);
    const bool deviations = target.deviation != nullptr;
    if (kGravity || deviations) {
      for (int lane = 0; lane < lanes; ++lane) {
        if (strengths[lane] == 0 || lines.crossing[lane] == kNone) continue;
        if constexpr (kGravity) {
          centre(k, block, lane, lines);
        } else {
          deviate(k, k.told, block, lane, false, lines);
        }
      }
    }

    std::int32_t width[kLanes];
    for (int lane = 0; lane < kLanes; ++lane) {
      const int left = lines.left[lane] == kNone ? -1 : lines.left[lane];
      const int right = lines.right[lane] == kNone ? 1 : lines.right[lane];
      const Sum* const l = block.row(left) + lane;
      const Sum* const r = block.row(right) + lane;
      const double height = level[lane];
      width[lane] =
          64 * (right - left) - static_cast<std::int32_t>(flank(height, l[0], l[kLanes]) +
                                                          flank(height, r[0], r[-kLanes]));
    }
    if constexpr (!kGravity) {
      for (const FittingFilter& filter : k.fitting) {
        int any = 0;
        for (int lane = 0; lane < kLanes; ++lane) {
          any |= filter.isFor(width[lane], lines.clipped[lane]);
        }
        if (any == 0) continue;
        bool suits[kLanes];
        for (int lane = 0; lane < lanes; ++lane) {
          // Beyond the border lines are cut, whatever a filter says.
          const int row = places[lane] + lines.nearest[lane];
          suits[lane] = filter.isFor(width[lane], lines.clipped[lane]) != 0 &&
                        strengths[lane] > 0 && lines.crossing[lane] != kNone &&
                        lines.left[lane] != kNone && lines.right[lane] != kNone && row >= 0 &&
                        row < k.rows;
        }
        if (std::none_of(suits, suits + lanes, [](bool suit) { return suit; })) continue;
        locateAgain(k, filter, source, u, lanes, suits, scratch + k.told.scratchSize(kLanes),
                    deviations, lines);
      }
    }
    for (int lane = 0; lane < lanes; ++lane) {
      const double row = places[lane] + lines.middle[lane];
      int reason = 0;
      double place = 0.0;
      if (strengths[lane] == 0) {
        reason = static_cast<int>(LineReason::NOTHING);
      } else if (lines.crossing[lane] == kNone) {
        reason = static_cast<int>(LineReason::NO_CROSSING);
      } else {
        place = std::floor(row * k.placesPerRow + 0.5);
        reason = refusal(k, places[lane], row, lines.left[lane], lines.right[lane], width[lane]);
        if (reason == 0 && !(place >= 1.0)) reason = static_cast<int>(LineReason::CUT);
      }
      const bool found = reason == 0;
      target.range[u + lane] = found ? static_cast<std::uint16_t>(place) : std::uint16_t{0};
      if (target.width != nullptr) {
        target.width[u + lane] = found ? static_cast<std::uint16_t>(width[lane]) : std::uint16_t{0};
      }
      if (target.reason != nullptr) target.reason[u + lane] = static_cast<std::uint8_t>(reason);
      if (deviations) {
        target.deviation[u + lane] =
            found ? static_cast<std::uint16_t>(
                        std::min(std::floor(lines.deviation[lane] * 1024.0 + 0.5), 65535.0))
                  : std::uint16_t{0};
      }
      if (target.intensity != nullptr) {
        static_cast<Pixel*>(target.intensity)[u + lane] =
            found ? meanLevel(k, block, lane) : Pixel{0};
      }
    }
  }

  /// Locates lines by a filter that suits them, from where they are; they stay there where it finds
  /// nothing near.
  static PLANEX_ALWAYS_INLINE void locateAgain(const LocationConstants& k,
                                               const FittingFilter& filter,
                                               const LocationSource& source, int u, int lanes,
                                               const bool* suits, Sum* scratch, bool deviations,
                                               Lines& lines) {
    const Sum* const places = static_cast<const Sum*>(source.places) + u;
    const auto startOf = [&](std::ptrdiff_t lane) {
      return static_cast<Sum>(places[lane] + lines.nearest[lane]);
    };
    // Others follow one of them, so that all lie close together.
    const Sum start = startOf(std::find(suits, suits + lanes, true) - suits);
    Sum starts[kLanes];
    for (int lane = 0; lane < lanes; ++lane) starts[lane] = suits[lane] ? startOf(lane) : start;
    Lines others;
    const Block<Sum> block =
        cross(k, filter, source, u, lanes, starts, lines.clipped, scratch, others);
    for (int lane = 0; lane < lanes; ++lane) {
      if (!suits[lane] || others.crossing[lane] == kNone) continue;
      const double middle = lines.nearest[lane] + others.middle[lane];
      if (std::fabs(middle - lines.middle[lane]) > filter.mostMove) continue;
      lines.middle[lane] = middle;
      if (!deviations) continue;
      deviate(k, filter, block, lane, lines.clipped[lane] != 0, others);
      lines.deviation[lane] = others.deviation[lane];
    }
  }

  static PLANEX_ALWAYS_INLINE int refusal(const LocationConstants& k, int place, double row,
                                          std::int32_t left, std::int32_t right,
                                          std::int32_t width) {
    const auto cutIf = [](bool cut, LineReason otherwise) {
      return static_cast<int>(cut ? LineReason::CUT : otherwise);
    };
    if (!(row >= k.firstMiddle && row <= k.lastMiddle)) return static_cast<int>(LineReason::CUT);
    if (left == kNone) return cutIf(place < k.told.reach, LineReason::TOO_WIDE);
    if (right == kNone) return cutIf(place + k.told.reach >= k.rows, LineReason::TOO_WIDE);
    if (width > k.maximumWidth) return static_cast<int>(LineReason::TOO_WIDE);
    if (width < k.minimumWidth) return static_cast<int>(LineReason::TOO_NARROW);
    const double space = width / 64.0;
    return row < space || row > k.rows - 1 - space ? static_cast<int>(LineReason::CUT) : 0;
  }

  static PLANEX_ALWAYS_INLINE Pixel meanLevel(const LocationConstants& k, const Block<Sum>& block,
                                              int lane) {
    std::int64_t sum = 0;
    for (int r = -k.filter.boxHalf; r <= k.filter.boxHalf; ++r) sum += block.row(r)[lane];
    const std::int64_t rows = k.filter.boxRows();
    return static_cast<Pixel>((2 * sum + rows) / (2 * rows));
  }
};

}  // namespace

LocateLines locateLines(bool wide, LineMethod method, InstructionSet set) {
  using Signature =
      void(const LocationConstants&, const LocationSource&, void*, const LocationTarget&);
  const bool gravity = method == LineMethod::CENTRE_OF_GRAVITY;
  if (wide) {
    return gravity
               ? KernelVariants<LocateLinesKernel<std::uint16_t, true>, Signature>::choose(set)
               : KernelVariants<LocateLinesKernel<std::uint16_t, false>, Signature>::choose(set);
  }
  return gravity ? KernelVariants<LocateLinesKernel<std::uint8_t, true>, Signature>::choose(set)
                 : KernelVariants<LocateLinesKernel<std::uint8_t, false>, Signature>::choose(set);
}

}  // namespace datafusion::planex::kernel
