#include <cstdint>
#include <limits>

#include "planex/api/boundary.h"
#include "planex/api/points.h"
#include "planex/api/registries.h"
#include "planex/foundation/image_of.h"
#include "planex/foundation/memory_overlap.h"
#include "planex/foundation/vec.h"
#include "planex/model/point_mapping.h"
#include "planex/processing/image_alignment.h"

namespace tavik::planex {
namespace {

using datafusion::planex::CoordinateSystem;

/// A calibrated or aligned image over the caller's pixels, not written through where they are
/// const. False, after the image's own warning, for more pixels than an image can have.
bool wrap(const float* pixels, ImageSize size, cmnalg::ImageOf<float>& image) {
  return image.Create(const_cast<float*>(pixels), size.width, size.height, 0, false,
                      cmnalg::Image::s_defaultImageAllocator, false);
}

CoordinateSystem systemOf(std::uint32_t number) {
  CalibrationException::throwUnless(number <= PLANEX_COORDINATES_ALIGNED,
                                    "Unknown coordinate system");
  return static_cast<CoordinateSystem>(number);
}

/// The points of an interface array, after all checks but that of the model.
template <int N>
struct PointArrays {
  using Point = cmnalg::Vec<N, double>;
  static_assert(sizeof(Point) == N * sizeof(double));

  PointArrays(std::size_t count, const double* input, double* output)
      : in(reinterpret_cast<const Point*>(input)), out(reinterpret_cast<Point*>(output)) {
    CalibrationException::throwUnless(
        count <= std::numeric_limits<std::ptrdiff_t>::max() / sizeof(Point), "Too many points");
    if (count == 0) return;
    CalibrationException::throwUnless(input != nullptr, "Argument inputPoints is NULL");
    CalibrationException::throwUnless(output != nullptr, "Argument outputPoints is NULL");
    const std::size_t size = count * sizeof(Point);
    CalibrationException::throwUnless(
        input == output || !cmnalg::overlaps({input, size}, {output, size}),
        "The input and output points overlap");
  }

  const Point* in;
  Point* out;
};

}  // namespace
}  // namespace tavik::planex

using namespace tavik::planex;  // NOLINT(google-build-using-namespace): the bodies of this file

bool createAlignmentFilter(uint32_t modelHandle, ImageSize imageSize, uint32_t* filterHandle) {
  return guarded([&] {
    models().copyOf(modelHandle);
    CalibrationException::throwUnless(filterHandle != nullptr, "Handle is NULL");
    *filterHandle = 0;
    *filterHandle = alignmentFilters().insert({modelHandle, imageSize});
    return true;
  });
}

bool destroyAlignmentFilter(uint32_t* filterHandle) {
  return guarded([&] { return destroyByHandle(alignmentFilters(), filterHandle); });
}

void destroyAllAlignmentFilters() { alignmentFilters().clear(); }

bool applyAlignment(uint32_t filterHandle, const float* inputX, const double* inputY,
                    const float* inputZ, float* outputX, float* outputY, float* outputZ) {
  return guarded([&] {
    CalibrationException::throwUnless(inputX != nullptr, "Argument inputX is NULL");
    CalibrationException::throwUnless(inputY != nullptr, "Argument inputY is NULL");
    CalibrationException::throwUnless(inputZ != nullptr, "Argument inputZ is NULL");
    CalibrationException::throwUnless(outputX != nullptr, "Argument outputX is NULL");
    CalibrationException::throwUnless(outputY != nullptr, "Argument outputY is NULL");
    CalibrationException::throwUnless(outputZ != nullptr, "Argument outputZ is NULL");
    const AlignmentFilter filter = alignmentFilters().copyOf(filterHandle);
    const auto model = models().copyOf(filter.modelHandle);
    const ImageSize size = filter.imageSize;
    cmnalg::ImageOf<float> x, z, xOut, yOut, zOut;
    return wrap(inputX, size, x) && wrap(inputZ, size, z) && wrap(outputX, size, xOut) &&
           wrap(outputY, size, yOut) && wrap(outputZ, size, zOut) &&
           datafusion::planex::applyAlignment(model, false, x, {inputY, inputY + size.height}, z,
                                              xOut, yOut, zOut,
                                              datafusion::planex::RunMode::Default);
  });
}

bool mapPlanePoints(uint32_t modelHandle, uint32_t from, uint32_t to, size_t count,
                    const double* inputPoints, double* outputPoints) {
  return guarded([&] {
    const CoordinateSystem source = systemOf(from), target = systemOf(to);
    const PointArrays<2> points(count, inputPoints, outputPoints);
    return mapPoints(models().copyOf(modelHandle), points.in, points.out, count, source, target);
  });
}

bool mapSpacePoints(uint32_t modelHandle, uint32_t from, uint32_t to, double scaleY, double originY,
                    size_t count, const double* inputPoints, double* outputPoints) {
  return guarded([&] {
    const CoordinateSystem source = systemOf(from), target = systemOf(to);
    const PointArrays<3> points(count, inputPoints, outputPoints);
    return mapPoints(models().copyOf(modelHandle), points.in, points.out, count, source, target,
                     originY, scaleY);
  });
}
