#include "planex/estimation/profile_partition.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>

#include "planex/estimation/robust_scale.h"

namespace planex::estimation {
namespace {

using Pixel = cmnalg::Vec<2, double>;
using Pixels = std::vector<Pixel>;

constexpr std::size_t kMostBins = 560;
constexpr std::size_t kLeastBins = 5;  // of a piece
constexpr double kPrice = 60;          // of a piece, in variances of a bin
constexpr double kMiddle = 0.76;       // of a piece, through which its line goes
constexpr double kSameSlope = 0.15;    // of what slopes differ by, of pieces that are one

/// Of each bin the pixel with the median row. On a slope that is the middle one, and spikes do not
/// move it.
Pixels binned(Pixels pixels) {
  std::sort(pixels.begin(), pixels.end(),
            [](const Pixel& a, const Pixel& b) { return a.x != b.x ? a.x < b.x : a.y < b.y; });
  const double first = pixels.front().x;
  const double width = std::max(1.0, (pixels.back().x - first + 1) / kMostBins);
  Pixels bins;
  for (auto begin = pixels.begin(); begin != pixels.end();) {
    const double bin = std::floor((begin->x - first) / width);
    const auto end = std::find_if(begin, pixels.end(), [&](const Pixel& p) {
      return std::floor((p.x - first) / width) > bin;
    });
    const auto middle = begin + (end - begin) / 2;
    std::nth_element(begin, middle, end, [](const Pixel& a, const Pixel& b) { return a.y < b.y; });
    bins.push_back(*middle);
    begin = end;
  }
  return bins;
}

/// The standard deviation of rows, whatever they show: from third differences.
double noiseOf(const Pixels& bins) {
  std::vector<double> sizes;
  for (std::size_t i = 3; i < bins.size(); ++i) {
    sizes.push_back(std::abs(bins[i].y - 3 * bins[i - 1].y + 3 * bins[i - 2].y - bins[i - 3].y));
  }
  constexpr double kLeast = 1e-3;  // pixels
  return std::max(normalDeviation(std::move(sizes)) / std::sqrt(20.0), kLeast);
}

/// Sums from which the line through any range of bins follows.
class Sums {
 public:
  explicit Sums(const Pixels& bins) : origin_(bins[bins.size() / 2]), sums_(bins.size() + 1) {
    for (std::size_t i = 0; i < bins.size(); ++i) {
      const double x = bins[i].x - origin_.x, y = bins[i].y - origin_.y;
      const Sum& s = sums_[i];
      sums_[i + 1] = {s.x + x, s.y + y, s.xx + x * x, s.xy + x * y, s.yy + y * y};
    }
  }

  /// Squared distances of the bins [begin, end) from their line, along the rows.
  double squares(std::size_t begin, std::size_t end) const {
    const Moments m = moments(begin, end);
    return std::max(m.yy - (m.xx > 0 ? m.xy * m.xy / m.xx : 0), 0.0);
  }

 private:
  struct Sum {
    double x = 0, y = 0, xx = 0, xy = 0, yy = 0;
  };
  struct Moments {
    double xx, xy, yy;
  };

  Moments moments(std::size_t begin, std::size_t end) const {
    const Sum &a = sums_[begin], &b = sums_[end];
    const auto n = static_cast<double>(end - begin);
    const double x = b.x - a.x, y = b.y - a.y;
    return {b.xx - a.xx - x * x / n, b.xy - a.xy - x * y / n, b.yy - a.yy - y * y / n};
  }

  Pixel origin_;
  std::vector<Sum> sums_;
};

/// A piece: its bins [begin, end) and the line v = row + slope (u - column).
struct Piece {
  std::size_t begin, end;
  double column = 0, row = 0, slope = 0;

  double at(double u) const { return row + slope * (u - column); }
};

/// Through the middle of the piece; bins far from the line do not count.
void fitLine(const Pixels& bins, double noise, Piece& piece) {
  const auto count = piece.end - piece.begin;
  const auto margin = static_cast<std::size_t>(static_cast<double>(count) * (1 - kMiddle) / 2);
  const auto begin = bins.begin() + static_cast<std::ptrdiff_t>(piece.begin + margin);
  const auto end = bins.begin() + static_cast<std::ptrdiff_t>(piece.end - margin);
  double limit = std::numeric_limits<double>::infinity();
  for (int round = 0; round < 4; ++round) {
    double n = 0, x = 0, y = 0, xx = 0, xy = 0;
    for (auto bin = begin; bin != end; ++bin) {
      if (std::abs(bin->y - piece.at(bin->x)) > limit) continue;
      const double u = bin->x - begin->x, v = bin->y - begin->y;
      n += 1, x += u, y += v, xx += u * u, xy += u * v;
    }
    const double spread = xx - x * x / n;
    if (n < 3 || !(spread > 0)) return;
    piece.slope = (xy - x * y / n) / spread;
    piece.column = begin->x + x / n;
    piece.row = begin->y + y / n;
    std::vector<double> sizes;
    for (auto bin = begin; bin != end; ++bin) sizes.push_back(std::abs(bin->y - piece.at(bin->x)));
    limit = 3 * std::max(normalDeviation(std::move(sizes)), noise);
  }
}

std::vector<Piece> partition(const Pixels& bins, double noise) {
  const Sums sums(bins);
  const double price = kPrice * noise * noise;
  constexpr double kFar = std::numeric_limits<double>::infinity();
  std::vector<double> best(bins.size() + 1, kFar);
  std::vector<std::size_t> from(bins.size() + 1, 0);
  best[0] = 0;
  for (std::size_t end = kLeastBins; end <= bins.size(); ++end) {
    for (std::size_t begin = 0; begin + kLeastBins <= end; ++begin) {
      if (best[begin] == kFar) continue;
      const double cost = best[begin] + price + sums.squares(begin, end);
      if (cost >= best[end]) continue;
      best[end] = cost;
      from[end] = begin;
    }
  }
  std::vector<Piece> pieces;
  for (std::size_t end = bins.size(); end > 0; end = from[end]) pieces.push_back({from[end], end});
  std::reverse(pieces.begin(), pieces.end());
  for (Piece& piece : pieces) fitLine(bins, noise, piece);
  return pieces;
}

/// What lens and sheet bend is not a corner: neighbours whose slopes differ by little become one.
void merge(const Pixels& bins, double noise, std::vector<Piece>& pieces) {
  std::vector<double> changes;
  for (std::size_t i = 1; i < pieces.size(); ++i) {
    changes.push_back(std::abs(pieces[i].slope - pieces[i - 1].slope));
  }
  if (changes.empty()) return;
  const double least = kSameSlope * upperMedian(std::move(changes));
  std::vector<Piece> merged = {pieces.front()};
  for (std::size_t i = 1; i < pieces.size(); ++i) {
    Piece& last = merged.back();
    const double between = bins[pieces[i].begin].x;
    const bool isOne = std::abs(pieces[i].slope - last.slope) < least &&
                       std::abs(pieces[i].at(between) - last.at(between)) < 20 * noise;
    if (!isOne) {
      merged.push_back(pieces[i]);
      continue;
    }
    last.end = pieces[i].end;
    fitLine(bins, noise, last);
  }
  pieces = std::move(merged);
}

}  // namespace

std::vector<SeenCorner> findCorners(const Pixels& pixels) {
  if (pixels.size() < 4 * kLeastBins) return {};
  const Pixels bins = binned(pixels);
  if (bins.size() < 2 * kLeastBins) return {};
  const double noise = noiseOf(bins);
  std::vector<Piece> pieces = partition(bins, noise);
  merge(bins, noise, pieces);
  std::vector<SeenCorner> corners;
  bool continues = false;
  for (std::size_t i = 1; i < pieces.size(); ++i) {
    const Piece &left = pieces[i - 1], &right = pieces[i];
    const double change = right.slope - left.slope;
    const double column =
        left.column + (right.row - left.row - right.slope * (right.column - left.column)) / -change;
    // Where the lines meet, near where the pieces do: else one of them is no edge.
    const double reach = 2 + 0.15 * std::min(bins[left.end - 1].x - bins[left.begin].x,
                                             bins[right.end - 1].x - bins[right.begin].x);
    const bool isCorner =
        column > bins[left.end - 1].x - reach && column < bins[right.begin].x + reach;
    if (isCorner) {
      corners.push_back({{column, left.at(column)}, change > 0 ? 1 : -1, continues});
    }
    continues = isCorner;
  }
  return corners;
}

}  // namespace planex::estimation
