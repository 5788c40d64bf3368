#include "planex/model/point_mapping_kernel.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

#include "planex/model/homography.h"
#include "planex/model/lens_polynomial.h"
#include "planex/model/pose.h"
#include "planex/model/sheet_curve.h"

namespace datafusion::planex::kernel {
namespace {

using cmnalg::Vec;

/// Points that take a step together. Every step is a loop over all lanes, so that it vectorises;
/// the coordinates stay in the point's type T between steps, which is where they are rounded.
constexpr int kLanes = 64;

template <typename T>
struct Block {
  T x[kLanes];
  T y[kLanes];
  T z[kLanes];
};

template <typename T>
PLANEX_ALWAYS_INLINE void loadLane(const Vec<2, T>& point, int lane, Block<T>& block) {
  block.x[lane] = point.x;
  block.z[lane] = point.y;
}
template <typename T>
PLANEX_ALWAYS_INLINE void loadLane(const Vec<3, T>& point, int lane, Block<T>& block) {
  block.x[lane] = point.x;
  block.y[lane] = point.y;
  block.z[lane] = point.z;
}

/// Lanes beyond the last point repeat it: any other value might keep an iteration going longer
/// than the points do.
template <typename T, typename Point>
PLANEX_ALWAYS_INLINE void load(const Point* points, int count, Block<T>& block) {
  if (count == kLanes) {
#pragma omp simd
    for (int i = 0; i < kLanes; ++i) loadLane(points[i], i, block);
    return;
  }
  for (int i = 0; i < count; ++i) loadLane(points[i], i, block);
  for (int i = count; i < kLanes; ++i) loadLane(points[count - 1], i, block);
}
template <typename T>
PLANEX_ALWAYS_INLINE void store(const Block<T>& block, int count, Vec<2, T>* points) {
#pragma omp simd
  for (int i = 0; i < count; ++i) points[i] = {block.x[i], block.z[i]};
}
template <typename T>
PLANEX_ALWAYS_INLINE void store(const Block<T>& block, int count, Vec<3, T>* points) {
#pragma omp simd
  for (int i = 0; i < count; ++i) points[i] = {block.x[i], block.y[i], block.z[i]};
}

/// Applies a function of one point in the plane, body(x, z), to every lane.
template <typename T, typename Body>
PLANEX_ALWAYS_INLINE void forEachLane(Block<T>& block, Body body) {
#pragma omp simd
  for (int i = 0; i < kLanes; ++i) {
    T x = block.x[i];
    T z = block.z[i];
    body(x, z);
    block.x[i] = x;
    block.z[i] = z;
  }
}

/// @param n focal length and principal point; c lens; h homography
template <typename T>
PLANEX_ALWAYS_INLINE void pixelToPlane(const double* n, const double* c, const double* h,
                                       Block<T>& block) {
  forEachLane(block, [=](T& x, T& z) {
    basic::normalise(n[0], n[1], n[2], x, z);
    basic::undistort<double>(c, x, z);
    basic::applyHomography<double>(h, x, z);
  });
}

/// Every lane takes each round of basic::distort, settled ones are frozen, and the block is done
/// when none moves, so that each lane sees the rounds of its point alone.
template <typename T>
PLANEX_ALWAYS_INLINE void planeToPixel(const double* n, const double* c, const double* h,
                                       Block<T>& block) {
  forEachLane(block, [=](T& x, T& z) { basic::applyHomography<double>(h, x, z); });
  double xNow[kLanes];
  double zNow[kLanes];
  std::int64_t moving[kLanes];
#pragma omp simd
  for (int i = 0; i < kLanes; ++i) {
    xNow[i] = static_cast<double>(block.x[i]);
    zNow[i] = static_cast<double>(block.z[i]);
    moving[i] = 1;
  }
  std::int64_t anyMoving = 1;
  for (int round = 0; round < basic::kDistortRounds && anyMoving != 0; ++round) {
    anyMoving = 0;
#pragma omp simd reduction(| : anyMoving)
    for (int i = 0; i < kLanes; ++i) {
      double x = xNow[i];
      double z = zNow[i];
      const bool settled = basic::distortRound(c, static_cast<double>(block.x[i]),
                                               static_cast<double>(block.z[i]), x, z);
      const bool frozen = moving[i] == 0;
      xNow[i] = frozen ? xNow[i] : x;
      zNow[i] = frozen ? zNow[i] : z;
      moving[i] = settled ? 0 : moving[i];
      anyMoving |= moving[i];
    }
  }
#pragma omp simd
  for (int i = 0; i < kLanes; ++i) {
    block.x[i] = static_cast<T>(xNow[i]);
    block.z[i] = static_cast<T>(zNow[i]);
    basic::denormalise(n[0], n[1], n[2], block.x[i], block.z[i]);
  }
}

/// basic::removeSheetCurve for all lanes.
template <typename T>
PLANEX_ALWAYS_INLINE void removeSheetCurveLanes(const double* s, Block<T>& block) {
  double now[kLanes];
  for (int i = 0; i < kLanes; ++i) now[i] = static_cast<double>(block.z[i]);
  for (int step = 0; step < basic::kSheetCurveSteps; ++step) {
#pragma omp simd
    for (int i = 0; i < kLanes; ++i) {
      now[i] = basic::sheetCurveStep(s, static_cast<double>(block.x[i]) - s[0],
                                     static_cast<double>(block.z[i]), now[i]);
    }
  }
  for (int i = 0; i < kLanes; ++i) block.z[i] = static_cast<T>(now[i]);
}

template <typename T>
PLANEX_ALWAYS_INLINE void transformLanes(const double* m, Block<T>& block) {
#pragma omp simd
  for (int i = 0; i < kLanes; ++i) {
    Vec<3, T> point{block.x[i], block.y[i], block.z[i]};
    basic::transform(m, point);
    block.x[i] = point.x;
    block.y[i] = point.y;
    block.z[i] = point.z;
  }
}

template <typename T>
PLANEX_ALWAYS_INLINE void take(const MappingPlan::Entry& entry, Block<T>& block) {
  // A local copy tells the compiler that storing points does not change the coefficients.
  double k[MappingPlan::kMaximumCoefficients];
  std::copy(std::begin(entry.coefficients), std::end(entry.coefficients), k);
  switch (entry.step) {
    case MappingStep::PixelToPlane:
      return pixelToPlane(k, k + 3, k + 10, block);
    case MappingStep::PlaneToPixel:
      return planeToPixel(k, k + 3, k + 10, block);
    case MappingStep::Project:
      return forEachLane(block, [&](T& x, T& z) { basic::applyHomography<double>(k, x, z); });
    case MappingStep::ApplySheetCurve:
      return forEachLane(block, [&](T& x, T& z) { basic::applySheetCurve<double>(k, x, z); });
    case MappingStep::RemoveSheetCurve:
      return removeSheetCurveLanes(k, block);
    case MappingStep::ProfileToWorld:
      for (T& y : block.y) y = static_cast<T>(static_cast<double>(y) * k[0] + k[1]);
      return;
    case MappingStep::WorldToProfile:
      for (T& y : block.y) y = static_cast<T>((static_cast<double>(y) - k[1]) / k[0]);
      return;
    case MappingStep::Transform:
      return transformLanes(k, block);
  }
}

template <typename T, typename Point>
struct MapPointsKernel {
  template <bool>
  static PLANEX_ALWAYS_INLINE void run(const MappingPlan& plan, const Point* in, Point* out,
                                       std::size_t count) {
    Block<T> block{};
    for (std::size_t first = 0; first < count; first += kLanes) {
      const int lanes = static_cast<int>(std::min<std::size_t>(kLanes, count - first));
      load(in + first, lanes, block);
      for (const MappingPlan::Entry& entry : plan) take(entry, block);
      store(block, lanes, out + first);
    }
  }
};

}  // namespace

template <typename Point>
MapPoints<Point> mapPointsKernel(cmnalg::InstructionSet set) {
  using T = decltype(Point::x);
  return cmnalg::KernelVariants<MapPointsKernel<T, Point>, void(const MappingPlan&, const Point*,
                                                                Point*, std::size_t)>::choose(set);
}

template MapPoints<Vec<2, float>> mapPointsKernel<Vec<2, float>>(cmnalg::InstructionSet);
template MapPoints<Vec<2, double>> mapPointsKernel<Vec<2, double>>(cmnalg::InstructionSet);
template MapPoints<Vec<3, float>> mapPointsKernel<Vec<3, float>>(cmnalg::InstructionSet);
template MapPoints<Vec<3, double>> mapPointsKernel<Vec<3, double>>(cmnalg::InstructionSet);

}  // namespace datafusion::planex::kernel
