#pragma once

#include <algorithm>
#include <cstddef>
#include <limits>
#include <optional>
#include <queue>
#include <vector>

#include "planex/foundation/vec.h"
#include "planex/io/bounds.h"

namespace planex::io {

/// Where functions of sensor column and row are not all positive, or may not be.
struct NotPositive {
  cmnalg::Vec<2, double> place;
  bool decided;  ///< false: no bound says which; one of them comes very close to 0 there, or is 0
};

/// Looks for a place of the rectangle from (0, 0) to `last` where one of some functions is not
/// positive.
///
/// First a grid of places is tried. What lies between them is decided by bounds: over a box B with
/// the middle m each function is in the bounds of its formula, and in those of the mean value form
///
///     f(m) + f_u(B) (B_u - m_u) + f_v(B) (B_v - m_v)
///
/// whose excess falls with the square of the box's size. The box that may hold the least value is
/// halved next, until there is none left that may hold 0, or a middle is not positive, or a box is
/// as small as places can be told apart, or the number of boxes ends the search.
///
/// Source: Ratschek and Rokne, Computer Methods for the Range of Functions, Ellis Horwood 1984.
///
/// @param last       not negative
/// @param functions  called with (u, v) of type double, Bounds or Dual<Bounds>; gives a std::array
///                   of that type
/// @return nothing when all are positive everywhere: this is certain, rounding included
template <typename Functions>
class PositiveSearch {
 public:
  PositiveSearch(const cmnalg::Vec<2, double>& last, const Functions& functions)
      : last_(last), functions_(functions) {}

  std::optional<NotPositive> run() {
    if (const std::optional<NotPositive> found = tryGrid()) return found;
    add({{0, 0}, last_, 0});
    for (int halved = 0; !found_ && !boxes_.empty(); ++halved) {
      const Box box = boxes_.top();
      boxes_.pop();
      const cmnalg::Vec<2, double> middle = middleOf(box);
      const double width = box.to.x - box.from.x, height = box.to.y - box.from.y;
      if (halved == kMostHalved || std::max(width, height) < kLeastSide) return {{middle, false}};
      Box first = box, second = box;
      if (width > height) {
        first.to.x = second.from.x = middle.x;
      } else {
        first.to.y = second.from.y = middle.y;
      }
      add(first);
      add(second);
    }
    return found_;
  }

 private:
  struct Box {
    cmnalg::Vec<2, double> from, to;
    double least;  // that a function may have in it
    bool operator<(const Box& other) const { return least > other.least; }
  };

  static constexpr int kGrid = 64;             // intervals along each side
  static constexpr int kMostHalved = 1 << 15;  // boxes, in all
  static constexpr double kLeastSide = 1e-6;   // pixels

  static cmnalg::Vec<2, double> middleOf(const Box& box) {
    return {box.from.x + (box.to.x - box.from.x) / 2, box.from.y + (box.to.y - box.from.y) / 2};
  }

  std::optional<NotPositive> tryGrid() const {
    for (int row = 0; row <= kGrid; ++row) {
      for (int column = 0; column <= kGrid; ++column) {
        const cmnalg::Vec<2, double> place{last_.x * column / kGrid, last_.y * row / kGrid};
        for (const double value : functions_(place.x, place.y)) {
          if (!(value > 0)) return {{place, true}};
        }
      }
    }
    return std::nullopt;
  }

  /// Keeps a box in which a function may not be positive.
  void add(Box box) {
    const cmnalg::Vec<2, double> middle = middleOf(box);
    const Bounds u{box.from.x, box.to.x}, v{box.from.y, box.to.y};
    const auto over = functions_(Dual<Bounds>(u, 1.0, 0.0), Dual<Bounds>(v, 0.0, 1.0));
    const auto at = functions_(Bounds(middle.x), Bounds(middle.y));
    box.least = std::numeric_limits<double>::infinity();
    for (std::size_t i = 0; i < over.size(); ++i) {
      if (at[i].high <= 0) found_ = {middle, true};
      const Bounds mean = at[i] + over[i].u * (u - middle.x) + over[i].v * (v - middle.y);
      double least = -std::numeric_limits<double>::infinity();
      for (const double low : {over[i].value.low, mean.low}) {
        if (low > least) least = low;  // never for NaN
      }
      box.least = std::min(box.least, least);
    }
    if (!(box.least > 0)) boxes_.push(box);
  }

  const cmnalg::Vec<2, double> last_;
  const Functions& functions_;
  std::priority_queue<Box> boxes_;
  std::optional<NotPositive> found_;
};

}  // namespace planex::io
