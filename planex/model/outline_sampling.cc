#include "planex/model/outline_sampling.h"

#include <unistd.h>

#include <array>
#include <cstddef>
#include <limits>
#include <new>
#include <stdexcept>

#include "planex/model/model_checks.h"

namespace datafusion::planex {
namespace {

using cmnalg::Vec;

/// In bytes. A system that overcommits grants larger lists, and ends the process that fills them.
std::uint64_t physicalMemory() {
  const long pages = sysconf(_SC_PHYS_PAGES);
  const long pageSize = sysconf(_SC_PAGE_SIZE);
  if (pages <= 0 || pageSize <= 0) return std::numeric_limits<std::uint64_t>::max();
  return static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageSize);
}

/// An empty list with room for `count` points.
template <typename Point>
bool reserve(etl::Vector<Point>& points, std::uint64_t count) {
  points.clear();
  if (count > physicalMemory() / sizeof(Point)) return false;
  try {
    points.reserve(count);
  } catch (const std::bad_alloc&) {
    return false;
  } catch (const std::length_error&) {
    return false;
  }
  return true;
}

template <typename Point>
bool prepare(etl::Vector<Point>& points, int supersampling, std::uint64_t (*pointCount)(int)) {
  if (supersampling < 0) return refuse("Supersampling must be zero or positive.");
  return reserve(points, pointCount(supersampling)) ||
         refuse("The points of this supersampling do not fit into memory.");
}

/// Appends grid points of a box, given by their indices along its edges.
class BoxSampler {
 public:
  BoxSampler(const cmnalg::shape3d::Box& box, int supersampling,
             etl::Vector<Vec<3, double>>& points)
      : box_(box), steps_(std::int64_t{supersampling} + 1), points_(points) {}

  void AppendRing(std::int64_t layer) {
    for (std::int64_t i = 0; i < steps_; ++i) Append(i, layer, 0);
    for (std::int64_t i = 0; i < steps_; ++i) Append(steps_, layer, i);
    for (std::int64_t i = steps_; i > 0; --i) Append(i, layer, steps_);
    for (std::int64_t i = steps_; i > 0; --i) Append(0, layer, i);
  }

  void AppendInterior(std::int64_t layer) {
    for (std::int64_t row = 1; row < steps_; ++row) {
      for (std::int64_t column = 1; column < steps_; ++column) Append(column, layer, row);
    }
  }

 private:
  void Append(std::int64_t x, std::int64_t y, std::int64_t z) {
    const Vec<3, double> local{Coordinate(x) * box_.Size.x / 2, Coordinate(y) * box_.Size.y / 2,
                               Coordinate(z) * box_.Size.z / 2};
    points_.push_back(cmnalg::math::ApplyTransform(box_.Pose, local));
  }

  /// Exactly -1 and 1 at the ends.
  double Coordinate(std::int64_t i) const {
    return -1 + static_cast<double>(i) * 2 / static_cast<double>(steps_);
  }

  const cmnalg::shape3d::Box& box_;
  const std::int64_t steps_;  // along one edge
  etl::Vector<Vec<3, double>>& points_;
};

}  // namespace

std::uint64_t boxPointCount(int supersampling) {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();
  const auto n = static_cast<std::uint64_t>(supersampling);
  const std::uint64_t k = n + 2;
  std::uint64_t onRings = 0;
  std::uint64_t count = 0;
  // 2 n^2 stays below 2^63 for every int.
  if (__builtin_mul_overflow(4 * k, k - 1, &onRings)) return kLargest;
  return __builtin_add_overflow(2 * n * n, onRings, &count) ? kLargest : count;
}

std::uint64_t rectanglePointCount(int supersampling) {
  return 4 * (static_cast<std::uint64_t>(supersampling) + 1);
}

bool sampleBox(const cmnalg::shape3d::Box& box, int supersampling,
               etl::Vector<Vec<3, double>>& points) {
  if (!prepare(points, supersampling, boxPointCount)) return false;
  BoxSampler sampler(box, supersampling, points);
  const std::int64_t last = std::int64_t{supersampling} + 1;
  for (std::int64_t layer = 0; layer <= last; ++layer) sampler.AppendRing(layer);
  sampler.AppendInterior(0);
  sampler.AppendInterior(last);
  return true;
}

bool sampleRectangle(const cmnalg::shape::Rectangle& rectangle, int supersampling,
                     etl::Vector<Vec<2, double>>& points) {
  if (!prepare(points, supersampling, rectanglePointCount)) return false;
  const std::array<Vec<2, double>, 4> corners = rectangle.GetCorners();
  const std::int64_t steps = std::int64_t{supersampling} + 1;
  for (std::size_t edge = 0; edge < corners.size(); ++edge) {
    const Vec<2, double>& from = corners[edge];
    const Vec<2, double>& to = corners[(edge + 1) % corners.size()];
    for (std::int64_t j = 0; j < steps; ++j) {
      const double t = static_cast<double>(j) / static_cast<double>(steps);
      points.push_back({(1 - t) * from.x + t * to.x, (1 - t) * from.y + t * to.y});
    }
  }
  return true;
}

}  // namespace datafusion::planex
