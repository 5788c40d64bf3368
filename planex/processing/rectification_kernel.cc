#include "planex/processing/rectification_kernel.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>
#include <utility>

#include "planex/foundation/pixel_dispatch.h"
#include "planex/processing/cell_rules.h"

namespace datafusion::planex::kernel {
namespace {

using cmnalg::InstructionSet;
using cmnalg::KernelVariants;

template <typename Pixel>
PLANEX_ALWAYS_INLINE bool isMeasured(Pixel raw) {
  if constexpr (std::is_floating_point_v<Pixel>) {
    return raw == raw;
  } else {
    return raw != 0;
  }
}

/// Rounds half away from zero as the sum says: add or subtract 0.5, to be truncated.
PLANEX_ALWAYS_INLINE double beforeTruncation(double value) {
  return value >= 0.0 ? value + 0.5 : value - 0.5;
}

/// Half-width at a target height: rounded, at least 0 (also for NaN), at most the maximum.
PLANEX_ALWAYS_INLINE std::int32_t halfWidthAt(double height, double slope, double intercept) {
  const double rounded = slope * height + intercept + 0.5;
  const double atMost = rounded < kMaximumHalfWidth ? rounded : double{kMaximumHalfWidth};
  return static_cast<std::int32_t>(rounded >= 1.0 ? atMost : 0.0);
}

template <typename XPixel, typename ZPixel, bool kMean>
struct PlaceRowKernel {
  template <bool>
  static PLANEX_ALWAYS_INLINE WidthRange run(const void* xSamples, const void* zSamples,
                                             const SplatCoefficients& coefficients,
                                             const PlacedPoints& points) {
    const auto* __restrict x = static_cast<const XPixel*>(xSamples);
    const auto* __restrict z = static_cast<const ZPixel*>(zSamples);
    const SplatCoefficients k = coefficients;
    std::int32_t* __restrict columns = points.column;
    std::int32_t* __restrict halfWidths = points.halfWidth;
    std::int32_t* __restrict quantised = points.quantised;
    double* __restrict heights = points.height;
    const int count = points.count;
    std::int32_t narrowest = kMaximumHalfWidth + 1;
    std::int32_t widest = 0;
#pragma omp simd reduction(min : narrowest) reduction(max : widest)
    for (int i = 0; i < count; ++i) {
      const double column =
          beforeTruncation(static_cast<double>(x[i]) * k.columnScale + k.columnOffset);
      const double height = static_cast<double>(z[i]) * k.heightScale + k.heightOffset;
      const bool inReach = (column > -1.0 - kMaximumHalfWidth) & (column < k.columnLimit);
      const bool inRange =
          kMean ? (height > 0.0) & (height <= 65535.0) : (height >= 1.0) & (height < 65536.0);
      const bool used = isMeasured(z[i]) & inReach & inRange;
      const double safeHeight = used ? height : 1.0;
      const std::int32_t cell = static_cast<std::int32_t>(safeHeight);
      const std::int32_t width = halfWidthAt(kMean ? safeHeight : static_cast<double>(cell),
                                             k.widthSlope, k.widthIntercept);
      const std::int32_t widthOrLess = used ? width : 0;
      const std::int32_t widthOrMore = used ? width : kMaximumHalfWidth + 1;
      columns[i] = static_cast<std::int32_t>(used ? column : double{kDroppedColumn});
      // For the branches of means, a point that is not used looks like a usual one, but small.
      halfWidths[i] = kMean && !used ? std::min(width, 1) : widthOrLess;
      narrowest = widthOrMore < narrowest ? widthOrMore : narrowest;
      widest = widest < widthOrLess ? widthOrLess : widest;
      if constexpr (kMean) {
        heights[i] = safeHeight;
      } else {
        quantised[i] = cell;
      }
    }
    return {narrowest, widest};
  }
};

// The modes in which one point wins.
//
// A point is stored once, as its key, in the array of its half-width. Then, from the widest
// half-width down, each array takes the minimum of three neighbours of the next wider one: a
// splat of half-width w becomes three splats of half-width w - 1. What is left to widen when the
// narrowest is reached goes in growing steps, as three splats side by side make one three times
// as wide. The last array holds the winner of every cell, and the cell rule is applied once. The
// work hardly depends on the half-widths.

/// Rank in the upper half; in the lower half the point's index, which settles ties and finds the
/// point again. Without intensity the rank alone is enough.
template <typename Rule, typename Key, bool kWithIntensity>
struct KeyOf {
  static constexpr int kShift = kWithIntensity ? static_cast<int>(sizeof(Key)) * 4 : 0;
  static constexpr Key kEmpty = static_cast<Key>(~Key{0});

  static PLANEX_ALWAYS_INLINE Key make(std::uint32_t rank, int index) {
    if constexpr (kWithIntensity) {
      return static_cast<Key>((static_cast<Key>(rank) << kShift) | static_cast<Key>(index));
    } else {
      static_cast<void>(index);
      return static_cast<Key>(rank);
    }
  }
  static PLANEX_ALWAYS_INLINE std::size_t index(Key key) {
    return static_cast<std::size_t>(key & ((Key{1} << kShift) - 1));
  }
};

template <typename Rule, typename Key, bool kWithIntensity>
struct WinnerRowKernel {
  using Keys = KeyOf<Rule, Key, kWithIntensity>;

  template <bool>
  static PLANEX_ALWAYS_INLINE void run(const PlacedPoints& points, const WidthRange& widths,
                                       const std::uint8_t* intensity, const TargetRow& target,
                                       void* scratch) {
    if (widths.narrowest > widths.widest) return;
    const std::ptrdiff_t stride = target.width + static_cast<std::ptrdiff_t>(kMargins);
    const int levelCount = widths.widest - widths.narrowest + 1;
    Key* storage = static_cast<Key*>(scratch);
    std::memset(storage, 0xFF, sizeof(Key) * static_cast<std::size_t>(stride * levelCount));
    Key* levels = storage + kMargin;
    scatter(points, widths, intensity, levels, stride);
    for (int width = widths.widest; width > widths.narrowest; --width) {
      Key* wider = levels + (width - widths.narrowest) * stride;
      joinLevels(wider, wider - stride, 1 - width, std::ptrdiff_t{target.width} + width - 1);
    }
    const Key* best = widen(levels, levels + stride, widths.narrowest, target.width);
    if constexpr (kWithIntensity) {
      storeWithIntensity(best, points, intensity, target);
    } else {
      storeHeights(best, target);
    }
  }

 private:
  static PLANEX_ALWAYS_INLINE void scatter(const PlacedPoints& points, const WidthRange& widths,
                                           const std::uint8_t* intensity, Key* levels,
                                           std::ptrdiff_t stride) {
    for (int i = 0; i < points.count; ++i) {
      const auto ranked =
          static_cast<std::uint32_t>(Rule::kRanksIntensity ? intensity[i] : points.quantised[i]);
      const Key key = Keys::make(Rule::rank(ranked), i);
      const int level = std::max(points.halfWidth[i] - widths.narrowest, 0);  // 0 when not used
      Key& cell = levels[level * stride + points.column[i]];
      cell = key < cell ? key : cell;
    }
  }

  /// narrow[k] takes the best of itself and wide[k - 1 ... k + 1], for k in [begin, end).
  static PLANEX_ALWAYS_INLINE void joinLevels(const Key* __restrict wide, Key* __restrict narrow,
                                              std::ptrdiff_t begin, std::ptrdiff_t end) {
#pragma omp simd
    for (std::ptrdiff_t k = begin; k < end; ++k) {
      const Key left = wide[k - 1] < wide[k] ? wide[k - 1] : wide[k];
      const Key right = wide[k + 1] < narrow[k] ? wide[k + 1] : narrow[k];
      narrow[k] = left < right ? left : right;
    }
  }

  /// The best of splats[k - halfWidth ... k + halfWidth] for every cell k of the target, in one of
  /// the two arrays. Windows that reach `done` to either side cover three times as much when they
  /// are taken 2 done + 1 apart.
  static PLANEX_ALWAYS_INLINE const Key* widen(Key* splats, Key* spare, int halfWidth,
                                               int targetWidth) {
    for (int done = 0; done < halfWidth;) {
      const int step = std::min(2 * done + 1, halfWidth - done);
      done += step;
      joinThree(splats, spare, step, done - halfWidth,
                std::ptrdiff_t{targetWidth} + halfWidth - done);
      std::swap(splats, spare);
    }
    return splats;
  }
  static PLANEX_ALWAYS_INLINE void joinThree(const Key* __restrict in, Key* __restrict out,
                                             std::ptrdiff_t step, std::ptrdiff_t begin,
                                             std::ptrdiff_t end) {
#pragma omp simd
    for (std::ptrdiff_t k = begin; k < end; ++k) {
      const Key sides = in[k - step] < in[k + step] ? in[k - step] : in[k + step];
      out[k] = sides < in[k] ? sides : in[k];
    }
  }

  static PLANEX_ALWAYS_INLINE void storeHeights(const Key* __restrict best,
                                                const TargetRow& target) {
    std::uint16_t* __restrict height = target.height;
    const int width = target.width;
#pragma omp simd
    for (int k = 0; k < width; ++k) {
      const std::uint32_t stored = height[k];
      const std::uint32_t candidate = Rule::heightOfRank(best[k]);
      const bool replace = (best[k] != Keys::kEmpty) & Rule::replaces(candidate, 0, stored, 0);
      height[k] = static_cast<std::uint16_t>(replace ? candidate : stored);
    }
  }

  static PLANEX_ALWAYS_INLINE void storeWithIntensity(const Key* best, const PlacedPoints& points,
                                                      const std::uint8_t* intensity,
                                                      const TargetRow& target) {
    for (int k = 0; k < target.width; ++k) {
      if (best[k] == Keys::kEmpty) continue;
      const std::size_t i = Keys::index(best[k]);
      const auto height = static_cast<std::uint32_t>(points.quantised[i]);
      if (!Rule::replaces(height, intensity[i], target.height[k], target.intensity[k])) continue;
      target.height[k] = static_cast<std::uint16_t>(height);
      target.intensity[k] = intensity[i];
    }
  }
};

// MEAN: sums are formed in the order of the points, as each cell's rounding depends on it.

/// Sums of one cell, one vector wide: height, count and, with intensity, intensity and a lane
/// that stays 0.
template <bool kWithIntensity>
struct CellSums {
  typedef double Lanes __attribute__((vector_size(kWithIntensity ? 32 : 16)));
  static constexpr int kLanes = kWithIntensity ? 4 : 2;
};

template <bool kWithIntensity, bool kOverwrite>
struct MeanRowKernel {
  using Cell = CellSums<kWithIntensity>;
  using Lanes = typename Cell::Lanes;

  template <bool>
  static PLANEX_ALWAYS_INLINE void run(const PlacedPoints& points, const WidthRange& /*widths*/,
                                       const std::uint8_t* intensity, const TargetRow& target,
                                       void* scratch) {
    auto* sums = static_cast<double*>(scratch);
    const std::size_t cells = static_cast<std::size_t>(target.width) + kMargins;
    std::memset(sums, 0, sizeof(Lanes) * cells);
    for (int i = 0; i < points.count; ++i) {
      const std::ptrdiff_t halfWidth = points.halfWidth[i];
      double* first = sums + (kMargin + points.column[i] - halfWidth) * Cell::kLanes;
      Lanes point;
      if constexpr (kWithIntensity) {
        point = Lanes{points.height[i], 1.0, static_cast<double>(intensity[i]), 0.0};
      } else {
        point = Lanes{points.height[i], 1.0};
      }
      addToSpan(first, halfWidth, point);
    }
    store(sums + kMargin * Cell::kLanes, target);
  }

 private:
  static PLANEX_ALWAYS_INLINE void add(double* cell, const Lanes& point) {
    Lanes sum;
    std::memcpy(&sum, cell, sizeof sum);
    sum += point;
    std::memcpy(cell, &sum, sizeof sum);
  }

  static PLANEX_ALWAYS_INLINE void addToSpan(double* first, std::ptrdiff_t halfWidth,
                                             const Lanes& point) {
    add(first, point);
    if (halfWidth == 0) return;
    if (halfWidth == 1) {  // the usual width, without a loop
      add(first + Cell::kLanes, point);
      add(first + 2 * Cell::kLanes, point);
      return;
    }
    for (std::ptrdiff_t k = 1; k <= 2 * halfWidth; ++k) add(first + k * Cell::kLanes, point);
  }

  static PLANEX_ALWAYS_INLINE void store(const double* __restrict sums, const TargetRow& target) {
    std::uint16_t* __restrict heights = target.height;
    std::uint8_t* __restrict intensities = target.intensity;
    const int width = target.width;
#pragma omp simd
    for (std::ptrdiff_t k = 0; k < width; ++k) {
      const double heightSum = sums[k * Cell::kLanes];
      const double count = sums[k * Cell::kLanes + 1];
      const bool hit = count > 0.0;
      const double n = hit ? count : 1.0;
      const double stored = static_cast<double>(heights[k]);
      const double height =
          kOverwrite ? heightSum / n : (stored * n + heightSum) / (stored != 0.0 ? n * 2.0 : n);
      const std::int32_t written = chosen(hit, truncated(height, 65535.0), heights[k]);
      heights[k] = static_cast<std::uint16_t>(written);
      if constexpr (kWithIntensity) {
        const double intensitySum = sums[k * Cell::kLanes + 2];
        const double before = static_cast<double>(intensities[k]);
        // The weight looks at the height just written, not at the one before.
        const double mean = kOverwrite ? intensitySum / n
                                       : (before * n + intensitySum) / (written != 0 ? n * 2.0 : n);
        intensities[k] =
            static_cast<std::uint8_t>(chosen(hit, truncated(mean + 0.5, 255.0), intensities[k]));
      }
    }
  }

  static PLANEX_ALWAYS_INLINE std::int32_t truncated(double value, double limit) {
    return static_cast<std::int32_t>(value < limit ? value : limit);
  }
  /// A choice without a branch: the compiler would move the division into one, and then not
  /// vectorise.
  static PLANEX_ALWAYS_INLINE std::int32_t chosen(bool first, std::int32_t a, std::int32_t b) {
    const std::int32_t mask = -static_cast<std::int32_t>(first);
    return (a & mask) | (b & ~mask);
  }
};

using ResolveSignature = void(const PlacedPoints&, const WidthRange&, const std::uint8_t*,
                              const TargetRow&, void*);

std::size_t rowCells(int targetWidth) { return static_cast<std::size_t>(targetWidth) + kMargins; }

template <typename Rule, typename Key, bool kWithIntensity>
Resolver winner(int targetWidth, int largest, InstructionSet set) {
  using Kernel = WinnerRowKernel<Rule, Key, kWithIntensity>;
  return {KernelVariants<Kernel, ResolveSignature>::choose(set),
          sizeof(Key) * rowCells(targetWidth) * static_cast<std::size_t>(largest + 1)};
}

template <typename Rule>
Resolver winnerWithIntensity(int pointCount, int targetWidth, int largest, InstructionSet set) {
  return pointCount <= 65536 ? winner<Rule, std::uint32_t, true>(targetWidth, largest, set)
                             : winner<Rule, std::uint64_t, true>(targetWidth, largest, set);
}

template <bool kWithIntensity, bool kOverwrite>
Resolver mean(int targetWidth, InstructionSet set) {
  using Kernel = MeanRowKernel<kWithIntensity, kOverwrite>;
  return {KernelVariants<Kernel, ResolveSignature>::choose(set),
          sizeof(typename CellSums<kWithIntensity>::Lanes) * rowCells(targetWidth)};
}

}  // namespace

PlaceRow placeRow(cmnalg::ImageType xType, cmnalg::ImageType zType, bool isMean,
                  InstructionSet set) {
  using Signature =
      WidthRange(const void*, const void*, const SplatCoefficients&, const PlacedPoints&);
  PlaceRow chosen = nullptr;
  cmnalg::dispatchMeasuredType(zType, [&](auto z) {
    return cmnalg::dispatchMeasuredType(xType, [&](auto x) {
      using X = typename decltype(x)::type;
      using Z = typename decltype(z)::type;
      chosen = isMean ? KernelVariants<PlaceRowKernel<X, Z, true>, Signature>::choose(set)
                      : KernelVariants<PlaceRowKernel<X, Z, false>, Signature>::choose(set);
      return true;
    });
  });
  return chosen;
}

int largestHalfWidth(const SplatCoefficients& k) {
  return std::max(halfWidthAt(1.0, k.widthSlope, k.widthIntercept),
                  halfWidthAt(65535.0, k.widthSlope, k.widthIntercept));
}

Resolver resolver(RectificationMode mode, bool withIntensity, bool overwrite, int pointCount,
                  int targetWidth, int largest, InstructionSet set) {
  switch (mode) {
    case RectificationMode::MEAN:
      if (withIntensity) {
        return overwrite ? mean<true, true>(targetWidth, set) : mean<true, false>(targetWidth, set);
      }
      return overwrite ? mean<false, true>(targetWidth, set) : mean<false, false>(targetWidth, set);
    case RectificationMode::LOWEST:
      return withIntensity ? winnerWithIntensity<LowestRule>(pointCount, targetWidth, largest, set)
                           : winner<LowestRule, std::uint16_t, false>(targetWidth, largest, set);
    case RectificationMode::HIGHEST:
      return withIntensity ? winnerWithIntensity<HighestRule>(pointCount, targetWidth, largest, set)
                           : winner<HighestRule, std::uint16_t, false>(targetWidth, largest, set);
    case RectificationMode::DARKEST:
      if (!withIntensity) break;
      return winnerWithIntensity<DarkestRule>(pointCount, targetWidth, largest, set);
    case RectificationMode::BRIGHTEST:
      if (!withIntensity) break;
      return winnerWithIntensity<BrightestRule>(pointCount, targetWidth, largest, set);
  }
  return {nullptr, 0};
}

}  // namespace datafusion::planex::kernel
