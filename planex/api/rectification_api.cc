#include <string>

#include "planex/api/boundary.h"
#include "planex/api/intensity_reduction.h"
#include "planex/api/planex.h"
#include "planex/api/rectification_grid.h"
#include "planex/api/registries.h"
#include "planex/api/world_bounds.h"
#include "planex/foundation/image_of.h"
#include "planex/processing/rectification.h"

namespace tavik::planex {
namespace {

using cmnalg::Image;
using cmnalg::ImageOf;
using datafusion::planex::RectificationMode;

/// The interface's numbers put HIGHEST before LOWEST.
RectificationMode modeOf(std::uint32_t interfaceMode) {
  switch (interfaceMode) {
    case PLANEX_RECTIFICATION_MEAN:
      return RectificationMode::MEAN;
    case PLANEX_RECTIFICATION_HIGHEST:
      return RectificationMode::HIGHEST;
    case PLANEX_RECTIFICATION_LOWEST:
      return RectificationMode::LOWEST;
    case PLANEX_RECTIFICATION_DARKEST:
      return RectificationMode::DARKEST;
    case PLANEX_RECTIFICATION_BRIGHTEST:
      return RectificationMode::BRIGHTEST;
    default:
      throw CalibrationException("Unknown rectification mode");
  }
}

/// An image over the caller's pixels; not written through where they are const.
template <typename T>
ImageOf<T> wrap(const void* pixels, int width, int height) {
  return ImageOf<T>(static_cast<T*>(const_cast<void*>(pixels)), width, height, 0, false,
                    Image::s_defaultImageAllocator, false);
}

/// The steps of one rectify(): the wrapped inputs, the working grid, and one pass over both per
/// co-rectified image.
class Rectification {
 public:
  /// Throws where the inputs or the grid cannot be images.
  Rectification(const RectificationFilter& filter, const float* x, const float* z)
      : filter_(filter), x_(wrapInput<float>(x)), z_(wrapInput<float>(z)), grid_(checkedTraits()) {}

  /// The height map without co-rectified images. False where the algorithm refuses.
  bool rectifyHeights() {
    const RectificationMode mode = modeOf(filter_.rectificationMode);
    return datafusion::planex::toRectified(x_, z_, spacing(), filter_.splatSettings.splatC, mode,
                                           grid_.values(), true);
  }

  /// The height map together with co-rectified image i. Throws for what cannot be an image, false
  /// where the algorithm refuses.
  bool rectifyWithImage(std::uint32_t i, const void* input, void* output) {
    checkImage(i, input, output);
    const ImageOf<std::uint8_t>& intensity = intensityOf(filter_.coRectifiedFormats[i], input);
    ImageOf<std::uint16_t>& heights = grid_.values();
    auto target = wrap<std::uint8_t>(output, heights.GetWidth(), heights.GetHeight());
    const RectificationMode mode = modeOf(filter_.rectificationMode);
    return datafusion::planex::toRectified(
        x_, z_, intensity, spacing(), filter_.splatSettings.splatC, mode, heights, target, true);
  }

  /// What the last pass found, in world units.
  void writeRange(float* out) const { grid_.toWorldRange(filter_.missingDataValue, out); }

 private:
  template <typename T>
  ImageOf<T> wrapInput(const void* pixels) const {
    return wrap<T>(pixels, filter_.inputSize.width, filter_.inputSize.height);
  }

  /// The grid's description, once the inputs have passed.
  const WorldRangeTraits& checkedTraits() const {
    CalibrationException::throwUnless(x_.IsConsistent(), kInvalidScaleMessage);
    CalibrationException::throwUnless(z_.IsConsistent(), kInvalidScaleMessage);
    return filter_.worldRangeTraits;
  }

  void checkImage(std::uint32_t i, const void* input, const void* output) const {
    const std::string number = std::to_string(i);
    CalibrationException::throwUnless(
        filter_.coRectifiedFormats != nullptr,
        "The data format of the corectified image number " + number + " is null");
    CalibrationException::throwUnless(
        input != nullptr, "The data pointer of inputCoRectified number " + number + " is null");
    CalibrationException::throwUnless(
        output != nullptr, "The data pointer of outputCoRectified number " + number + " is null");
    const std::uint32_t format = filter_.coRectifiedFormats[i];
    CalibrationException::throwUnless(
        format == PLANEX_PIXEL_FORMAT_MONO16 || format == PLANEX_PIXEL_FORMAT_MONO8,
        "Image format of the corectified image id not supported");
  }

  /// A Mono8 input as it is; a Mono16 input reduced to 8 bits, in memory that serves all of them.
  const ImageOf<std::uint8_t>& intensityOf(std::uint32_t format, const void* input) {
    if (format == PLANEX_PIXEL_FORMAT_MONO8) {
      mono8_ = wrapInput<std::uint8_t>(input);
      return mono8_;
    }
    const ImageSize size = filter_.inputSize;
    if (reduced_.Create(size.width, size.height, Image::s_defaultImageAllocator)) {
      reduceTo8Bit(static_cast<const std::uint16_t*>(input), std::size_t{size.width} * size.height,
                   reduced_.GetRowPtr(0));
    }
    return reduced_;
  }

  cmnalg::Vec<2, double> spacing() const {
    return {filter_.splatSettings.splatA, filter_.splatSettings.splatB};
  }

  const RectificationFilter& filter_;
  ImageOf<float> x_, z_;
  RectificationGrid grid_;
  ImageOf<std::uint8_t> mono8_, reduced_;
};

bool rectifyImages(Rectification& rectification, std::uint32_t count, const void* const* inputs,
                   void* const* outputs) {
  CalibrationException::throwUnless(inputs != nullptr, "inputCoRectified array is NULL");
  CalibrationException::throwUnless(outputs != nullptr, "outputCoRectified array is NULL");
  for (std::uint32_t i = 0; i < count; ++i) {
    if (!rectification.rectifyWithImage(i, inputs[i], outputs[i])) return false;
  }
  return true;
}

}  // namespace
}  // namespace tavik::planex

using namespace tavik::planex;  // NOLINT(google-build-using-namespace): the bodies of this file

bool createRectificationFilter(uint32_t rectificationMode, WorldRangeTraits worldRangeTraits,
                               ImageSize inputSize, uint64_t coRectifiedCount,
                               const uint32_t* coRectifiedFormats, SplatSettings splatSettings,
                               float missingDataValue, uint32_t* filterHandle) {
  return guarded([&] {
    CalibrationException::throwUnless(filterHandle != nullptr, "Handle is NULL");
    *filterHandle = 0;
    *filterHandle = rectificationFilters().insert({splatSettings, rectificationMode,
                                                   worldRangeTraits, inputSize, coRectifiedCount,
                                                   coRectifiedFormats, missingDataValue});
    return true;
  });
}

bool destroyRectificationFilter(uint32_t* filterHandle) {
  return guarded([&] { return destroyByHandle(rectificationFilters(), filterHandle); });
}

void destroyAllRectificationFilters() { rectificationFilters().clear(); }

bool rectify(uint32_t filterHandle, const float* inputX, const float* inputZ,
             const void* const* inputCoRectified, float* outputRange,
             void* const* outputCoRectified) {
  return guarded([&] {
    CalibrationException::throwUnless(inputX != nullptr, "inputX is NULL");
    CalibrationException::throwUnless(inputZ != nullptr, "inputZ is NULL");
    CalibrationException::throwUnless(outputRange != nullptr, "outputRange is NULL");
    const RectificationFilter filter = rectificationFilters().copyOf(filterHandle);
    Rectification rectification(filter, inputX, inputZ);
    const auto count = static_cast<uint32_t>(filter.coRectifiedCount);
    const bool rectified =
        count == 0 ? rectification.rectifyHeights()
                   : rectifyImages(rectification, count, inputCoRectified, outputCoRectified);
    if (rectified) rectification.writeRange(outputRange);
    return rectified;
  });
}
