#include "planex/scan/map_statistics.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include "planex/scan/row_stream.h"

namespace planex::scan {
namespace {

constexpr int kBlockCells = 1 << 19;
constexpr std::size_t kHalf = 1 << 16;  // numbers of 16 bits
constexpr double kDegrees = 180 / 3.14159265358979323846;

/// Bits that are ordered as the floats are.
std::uint32_t keyOf(float value) {
  std::uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  return (bits >> 31) != 0 ? ~bits : bits | 0x80000000U;
}

float valueOf(std::uint32_t key) {
  const std::uint32_t bits = (key >> 31) != 0 ? key & 0x7FFFFFFFU : ~key;
  float value = 0;
  std::memcpy(&value, &bits, sizeof bits);
  return value;
}

/// Numbers by rank, in two passes over them.
class Ranks {
 public:
  void countUpper(float value) { ++upper_[keyOf(value) >> 16]; }

  /// Between the passes: which ranks, from 0 on, are wanted. @param wanted  growing
  void want(const std::vector<std::int64_t>& wanted) {
    std::int64_t below = 0;  // numbers whose upper half is smaller
    auto rank = wanted.begin();
    for (std::size_t upper = 0; upper < kHalf && rank != wanted.end(); ++upper) {
      if (*rank < below + upper_[upper]) {
        slots_[upper] = static_cast<int>(bins_.size());
        bins_.push_back(
            {static_cast<std::uint32_t>(upper), below, std::vector<std::int64_t>(kHalf)});
      }
      below += upper_[upper];
      while (rank != wanted.end() && *rank < below) ++rank;
    }
  }

  void countLower(float value) {
    const std::uint32_t key = keyOf(value);
    const int slot = slots_[key >> 16];
    if (slot >= 0) ++bins_[static_cast<std::size_t>(slot)].lower[key & 0xFFFF];
  }

  /// The number of a rank that was wanted.
  float at(std::int64_t rank) const {
    auto bin = bins_.end() - 1;
    while (bin->below > rank) --bin;
    std::int64_t below = bin->below;
    std::uint32_t lower = 0;
    while ((below += bin->lower[lower]) <= rank) ++lower;
    return valueOf(bin->upper << 16 | lower);
  }

 private:
  struct Bin {
    std::uint32_t upper;
    std::int64_t below;
    std::vector<std::int64_t> lower;
  };

  std::vector<std::int64_t> upper_ = std::vector<std::int64_t>(kHalf);
  std::vector<int> slots_ = std::vector<int>(kHalf, -1);
  std::vector<Bin> bins_;
};

/// Means of column, row and stored value, and sums of products of the distances from them.
struct Moments {
  double count = 0, u = 0, v = 0, z = 0;
  double uu = 0, uv = 0, vv = 0, uz = 0, vz = 0;

  void join(const Moments& other) {
    if (other.count == 0) return;
    const double all = count + other.count;
    const double share = other.count / all, weight = count * share;
    const double du = other.u - u, dv = other.v - v, dz = other.z - z;
    uu += other.uu + du * du * weight;
    uv += other.uv + du * dv * weight;
    vv += other.vv + dv * dv * weight;
    uz += other.uz + du * dz * weight;
    vz += other.vz + dv * dz * weight;
    u += du * share;
    v += dv * share;
    z += dz * share;
    count = all;
  }
};

/// @param values of the columns first ... end - 1 of a row
Moments momentsOf(const float* values, int first, int end, int row) {
  Moments sums;
  sums.v = row;
  for (int u = first; u < end; ++u) {
    if (std::isnan(values[u])) continue;
    sums.count += 1;
    sums.u += u;
    sums.z += values[u];
  }
  if (sums.count == 0) return sums;
  sums.u /= sums.count;
  sums.z /= sums.count;
  double rest = 0;  // what rounding left out of the mean
  for (int u = first; u < end; ++u) {
    if (std::isnan(values[u])) continue;
    const double du = u - sums.u, dz = values[u] - sums.z;
    sums.uu += du * du;
    sums.uz += du * dz;
    rest += dz;
  }
  sums.z += rest / sums.count;
  return sums;
}

/// A plane in columns, rows and stored values: what is above it is z - meanZ - p (u - meanU) - q (v
/// - meanV).
struct StoredPlane {
  double p, q;

  /// Nothing for points on a line, or so near to one that rounding decides.
  static std::optional<StoredPlane> of(const Moments& m) {
    constexpr double kLine = 1e-12;
    const double determinant = m.uu * m.vv - m.uv * m.uv;
    if (!(determinant > kLine * m.uu * m.vv)) return std::nullopt;
    return StoredPlane{(m.uz * m.vv - m.vz * m.uv) / determinant,
                       (m.vz * m.uu - m.uz * m.uv) / determinant};
  }
};

/// Sums of powers of the distances from a plane.
struct Residuals {
  double absolute = 0, square = 0, cube = 0, fourth = 0;
  double least = 0, most = 0;  // the mean is 0 but for rounding

  void include(double e) {
    const double square_ = e * e;
    absolute += std::abs(e);
    square += square_;
    cube += square_ * e;
    fourth += square_ * square_;
    least = std::min(least, e);
    most = std::max(most, e);
  }

  void join(const Residuals& other) {
    absolute += other.absolute;
    square += other.square;
    cube += other.cube;
    fourth += other.fourth;
    least = std::min(least, other.least);
    most = std::max(most, other.most);
  }
};

/// Rows of the map, and their sums.
class SummedRows final : public RowBlock {
 public:
  /// @param plane, means  null in the first pass
  SummedRows(HeightMap& map, const CellRange& range, const StoredPlane* plane, const Moments* means)
      : map_(map), range_(range), plane_(plane), means_(means) {}

  void process() override {
    moments_ = {};
    residuals_ = {};
    for (int row = first(); row < first() + count(); ++row) {
      if (means_ == nullptr) {
        moments_.join(momentsOf(rowAt(row), range_.firstColumn, range_.endColumn, row));
      } else if (plane_ != nullptr) {
        residuals_.join(residualsOf(rowAt(row), row));
      }
    }
  }

  const Moments& moments() const { return moments_; }
  const Residuals& residuals() const { return residuals_; }

  template <typename Body>
  void forEachHeight(Body&& body) const {
    for (int row = first(); row < first() + count(); ++row) {
      const float* const values = rowAt(row);
      for (int u = range_.firstColumn; u < range_.endColumn; ++u) {
        if (!std::isnan(values[u])) body(values[u]);
      }
    }
  }

 protected:
  void read() override {
    values_.resize(static_cast<std::size_t>(count()) * static_cast<std::size_t>(map_.columns()));
    map_.readRows(first(), count(), values_.data());
  }

 private:
  const float* rowAt(int row) const {
    return values_.data() +
           static_cast<std::size_t>(row - first()) * static_cast<std::size_t>(map_.columns());
  }

  Residuals residualsOf(const float* values, int row) const {
    Residuals sums;
    const double offset = plane_->q * (row - means_->v);
    for (int u = range_.firstColumn; u < range_.endColumn; ++u) {
      if (std::isnan(values[u])) continue;
      sums.include(values[u] - means_->z - plane_->p * (u - means_->u) - offset);
    }
    return sums;
  }

  HeightMap& map_;
  const CellRange range_;
  const StoredPlane* const plane_;
  const Moments* const means_;
  std::vector<float> values_;
  Moments moments_;
  Residuals residuals_;
};

/// The plane of the indices and stored values in the world.
HeightPlane toWorld(const StoredPlane& plane, const Moments& means, const HeightMap& map) {
  const auto place = [](const io::Axis& axis, double index) {
    return axis.scale * index + axis.origin;
  };
  const double b = plane.p * map.z().scale / map.x().scale;
  const double c = plane.q * map.z().scale / map.y().scale;
  return {place(map.z(), means.z) - b * place(map.x(), means.u) - c * place(map.y(), means.v), b,
          c};
}

/// @param scale    of stored values
/// @param largest  of them, without sign
Roughness toRoughness(const Residuals& sums, double count, double scale, double largest) {
  const double rootMeanSquare = std::sqrt(sums.square / count);
  Roughness result{rootMeanSquare * scale,
                   sums.absolute / count * scale,
                   (sums.most - sums.least) * scale,
                   sums.most * scale,
                   0 - sums.least * scale,  // not -0
                   {},
                   {}};
  if (!(rootMeanSquare > std::ldexp(largest, -46))) return result;
  const double square = sums.square / count;
  result.ssk = sums.cube / count / (square * rootMeanSquare);
  result.sku = sums.fourth / count / (square * square);
  return result;
}

}  // namespace

double HeightPlane::tiltX() const { return std::atan(b) * kDegrees; }
double HeightPlane::tiltY() const { return std::atan(c) * kDegrees; }
double HeightPlane::tilt() const { return std::atan(std::hypot(b, c)) * kDegrees; }

MapStatistics calculateStatistics(HeightMap& map, const CellRange& range, io::WorkerPool& pool,
                                  const std::function<void(std::int64_t cells)>& advance) {
  const RowBlocks blocks{range.firstRow, range.endRow, std::max(1, kBlockCells / map.columns())};
  const auto pass = [&](const StoredPlane* plane, const Moments* means, const auto& take) {
    streamRows<SummedRows>(
        pool, blocks, [&] { return std::make_unique<SummedRows>(map, range, plane, means); },
        [&](const SummedRows& rows) {
          take(rows);
          advance(std::int64_t{rows.count()} * range.columns());
        });
  };
  const auto height = [&](double value) { return map.z().scale * value + map.z().origin; };

  MapStatistics result;
  result.cells = std::int64_t{range.columns()} * range.rows();
  Moments moments;
  Ranks ranks;
  float least = std::numeric_limits<float>::infinity(), most = -least;
  pass(nullptr, nullptr, [&](const SummedRows& rows) {
    moments.join(rows.moments());
    rows.forEachHeight([&](float value) {
      least = std::min(least, value);
      most = std::max(most, value);
      ranks.countUpper(value);
    });
  });
  result.filled = static_cast<std::int64_t>(moments.count);
  if (result.filled == 0) return result;
  result.minimum = height(least);
  result.maximum = height(most);
  result.mean = height(moments.z);

  std::vector<std::int64_t> wanted;
  const auto last = result.filled - 1;
  const auto rankBelow = [&](int percent) {
    return last / 100 * percent + last % 100 * percent / 100;
  };
  for (const int percent : kPercents) {
    wanted.push_back(rankBelow(percent));
    wanted.push_back(std::min(rankBelow(percent) + 1, last));
  }
  std::sort(wanted.begin(), wanted.end());
  ranks.want(wanted);
  const std::optional<StoredPlane> plane = StoredPlane::of(moments);
  Residuals residuals;
  pass(plane ? &*plane : nullptr, &moments, [&](const SummedRows& rows) {
    residuals.join(rows.residuals());
    rows.forEachHeight([&](float value) { ranks.countLower(value); });
  });
  for (std::size_t i = 0; i < kPercents.size(); ++i) {
    const std::int64_t rank = rankBelow(kPercents[i]);
    const double part = static_cast<double>(last % 100 * kPercents[i] % 100) / 100;
    const double low = ranks.at(rank), high = ranks.at(std::min(rank + 1, last));
    result.percentiles[i] = height(low + part * (high - low));
  }
  if (!plane) return result;
  result.plane = toWorld(*plane, moments, map);
  result.roughness = toRoughness(residuals, moments.count, map.z().scale,
                                 std::max(std::abs(least), std::abs(most)));
  return result;
}

}  // namespace planex::scan
