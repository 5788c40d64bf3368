#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <string>

#include "planex/api/boundary.h"
#include "planex/api/conversions.h"
#include "planex/api/planex.h"
#include "planex/api/registries.h"
#include "planex/foundation/image_of.h"
#include "planex/foundation/memory_overlap.h"
#include "planex/infra/refusal.h"
#include "planex/processing/intensity_reduction.h"
#include "planex/processing/rectification.h"

namespace tavik::planex {
namespace {

using cmnalg::Bytes;
using cmnalg::Image;
using cmnalg::ImageOf;
using datafusion::planex::findIntensityLimits;
using datafusion::planex::RectificationMode;
using datafusion::planex::reduceIntensities;

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

/// The steps of one rectify(): the wrapped inputs, the grid, and one pass over both per
/// co-rectified image, of which the last one writes the world range.
class Rectification {
 public:
  /// Throws where the inputs or the grid cannot be images.
  Rectification(const RectificationFilter& filter, const float* x, const float* z)
      : filter_(checkedSize(filter)),
        x_(wrapInput<float>(x)),
        z_(wrapInput<float>(z)),
        grid_(gridOf(filter.worldRangeTraits)) {
    CalibrationException::throwUnless(
        x_.IsConsistent() && z_.IsConsistent() && grid_.IsConsistent(), kInvalidScaleMessage);
  }

  /// The height map without co-rectified images. False where the algorithm refuses.
  bool rectifyHeights(float* range) {
    auto heights = wrap<float>(range, grid_.width, grid_.height);
    return toRectifiedWorld(x_, z_, splat(), modeOf(filter_.rectificationMode), grid_,
                            filter_.missingDataValue, heights);
  }

  /// Throws for what cannot be co-rectified image i.
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

  /// Whether output i may be written: it shares no memory with the world range, with an output that
  /// was written before, or with an input that is still to be read. Else one warning and false.
  bool mayWrite(std::uint32_t i, std::uint32_t count, const void* const* inputs,
                void* const* outputs, const float* range) const {
    const Bytes target = outputBytes(outputs[i]);
    bool shared = overlaps(target, {range, target.size * sizeof(float)});
    for (std::uint32_t j = 0; j < i && !shared; ++j) {
      shared = overlaps(target, outputBytes(outputs[j]));
    }
    for (std::uint32_t k = i + 1; k < count && !shared; ++k) {
      shared = overlaps(target, inputBytes(filter_.coRectifiedFormats[k], inputs[k]));
    }
    return !shared ||
           base::refuse("Image.Calibration.Planex", "Cannot reuse source image as target image.");
  }

  /// The height map together with co-rectified image i; `range` is null for all but the last. False
  /// where the algorithm refuses.
  bool rectifyWithImage(std::uint32_t i, const void* input, void* output, float* range) {
    const ImageOf<std::uint8_t>& intensity = intensityOf(filter_.coRectifiedFormats[i], input);
    auto target = wrap<std::uint8_t>(output, grid_.width, grid_.height);
    ImageOf<float> heights;
    if (range != nullptr) heights = wrap<float>(range, grid_.width, grid_.height);
    return toRectifiedWorld(x_, z_, intensity, splat(), modeOf(filter_.rectificationMode), grid_,
                            filter_.missingDataValue, range == nullptr ? nullptr : &heights,
                            target);
  }

 private:
  template <typename T>
  ImageOf<T> wrapInput(const void* pixels) const {
    return wrap<T>(pixels, filter_.inputSize.width, filter_.inputSize.height);
  }

  std::size_t inputPixels() const {
    return std::size_t{filter_.inputSize.width} * filter_.inputSize.height;
  }

  /// Throws for more pixels than an image can have.
  static const RectificationFilter& checkedSize(const RectificationFilter& filter) {
    const std::uint64_t pixels = std::uint64_t{filter.inputSize.width} * filter.inputSize.height;
    CalibrationException::throwUnless(pixels <= std::numeric_limits<std::int32_t>::max(),
                                      kInvalidScaleMessage);
    return filter;
  }

  Bytes outputBytes(const void* output) const {
    return {output, static_cast<std::size_t>(grid_.width) * static_cast<std::size_t>(grid_.height)};
  }

  Bytes inputBytes(std::uint32_t format, const void* input) const {
    return {input, format == PLANEX_PIXEL_FORMAT_MONO16 ? inputPixels() * 2 : inputPixels()};
  }

  /// A Mono8 input as it is; a Mono16 input reduced to 8 bits, in memory that serves all of them.
  const ImageOf<std::uint8_t>& intensityOf(std::uint32_t format, const void* input) {
    if (format == PLANEX_PIXEL_FORMAT_MONO8) {
      mono8_ = wrapInput<std::uint8_t>(input);
      return mono8_;
    }
    CalibrationException::throwUnless(
        reduced_.Create(filter_.inputSize.width, filter_.inputSize.height,
                        Image::s_defaultImageAllocator),
        kInvalidScaleMessage);
    const auto* values = static_cast<const std::uint16_t*>(input);
    reduceIntensities(values, inputPixels(), findIntensityLimits(values, inputPixels()),
                      reduced_.GetRowPtr(0));
    return reduced_;
  }

  datafusion::planex::SplatShape splat() const {
    const SplatSettings& settings = filter_.splatSettings;
    return {{settings.splatA, settings.splatB}, settings.splatC};
  }

  const RectificationFilter& filter_;
  ImageOf<float> x_, z_;
  datafusion::planex::HeightGrid grid_;
  ImageOf<std::uint8_t> mono8_, reduced_;
};

bool rectifyImages(Rectification& rectification, std::uint32_t count, const void* const* inputs,
                   void* const* outputs, float* range) {
  CalibrationException::throwUnless(inputs != nullptr, "inputCoRectified array is NULL");
  CalibrationException::throwUnless(outputs != nullptr, "outputCoRectified array is NULL");
  for (std::uint32_t i = 0; i < count; ++i) {
    float* lastRange = i + 1 == count ? range : nullptr;
    rectification.checkImage(i, inputs[i], outputs[i]);
    if (!rectification.mayWrite(i, count, inputs, outputs, range) ||
        !rectification.rectifyWithImage(i, inputs[i], outputs[i], lastRange)) {
      return false;
    }
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
    try {
      Rectification rectification(filter, inputX, inputZ);
      const auto count = static_cast<uint32_t>(filter.coRectifiedCount);
      return count == 0 ? rectification.rectifyHeights(outputRange)
                        : rectifyImages(rectification, count, inputCoRectified, outputCoRectified,
                                        outputRange);
    } catch (const std::bad_alloc&) {
      throw CalibrationException(kInvalidScaleMessage);  // the grid is too large for its scratch
    }
  });
}
