#include "planex/processing/line_extraction.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <memory>
#include <vector>

#include "planex/foundation/memory_overlap.h"
#include "planex/infra/containers.h"
#include "planex/infra/float_environment.h"
#include "planex/infra/refusal.h"
#include "planex/processing/line_detection_kernel.h"
#include "planex/processing/line_filter.h"
#include "planex/processing/line_location_kernel.h"
#include "planex/processing/pixel_block.h"
#include "planex/processing/row_parallel.h"

namespace datafusion::planex {
namespace {

using cmnalg::Image;
using cmnalg::ImageOf;

constexpr int kMostFrameRows = 32767;  // their numbers have 16 bits, and a sign

bool refuse(const char* reason) { return base::refuse("Image.Extraction.Planex", reason); }

bool isFrame(const Image& frame) {
  return (frame.GetType() == cmnalg::IMAGE_TYPE_UINT8 ||
          frame.GetType() == cmnalg::IMAGE_TYPE_UINT16) &&
         frame.GetWidth() > 0 && frame.GetHeight() > 0 && frame.GetHeight() <= kMostFrameRows &&
         frame.GetData() != nullptr;
}

bool areFrames(const Image* frames, int count) {
  for (int i = 0; i < count; ++i) {
    if (!isFrame(frames[i])) {
      return refuse("Frames must have pixels of 8 or 16 bits, and 1 to 32767 rows.");
    }
    if (frames[i].GetType() != frames[0].GetType() ||
        frames[i].GetWidth() != frames[0].GetWidth() ||
        frames[i].GetHeight() != frames[0].GetHeight()) {
      return refuse("Frames must have one size and type.");
    }
  }
  return true;
}

double levelsOf(const Image& frame) {
  return frame.GetType() == cmnalg::IMAGE_TYPE_UINT8 ? 255.0 : 65535.0;
}

double fullScaleOf(const LineSettings& settings, const Image& frame) {
  return settings.fullScale != 0.0 ? settings.fullScale : levelsOf(frame);
}

double thresholdOf(const LineSettings& settings, const Image& frame) {
  return settings.threshold != 0.0 ? settings.threshold : 0.04 * fullScaleOf(settings, frame);
}

bool areSettings(const LineSettings& s, const Image& frame) {
  if ((s.method != LineMethod::DERIVATIVE && s.method != LineMethod::CENTRE_OF_GRAVITY) ||
      !(s.choice >= LineChoice::STRONGEST && s.choice <= LineChoice::NEAREST)) {
    return refuse("Unsupported method or choice of lines.");
  }
  // Written so that NaN is refused.
  if (!(s.lineWidth >= 1.0 && s.lineWidth <= 60.0)) {
    return refuse("The line width must be 1 to 60 rows.");
  }
  if (!(s.fullScale >= 0.0 && s.fullScale <= levelsOf(frame))) {
    return refuse("The full scale must be a level of the frames.");
  }
  if (!(s.threshold >= 0.0 && s.threshold <= levelsOf(frame))) {
    return refuse("The threshold must be a level of the frames.");
  }
  if (!(s.minimumWidth >= 0.0 && s.minimumWidth <= 240.0 && s.maximumWidth >= 0.0 &&
        s.maximumWidth <= 240.0 && (s.maximumWidth == 0.0 || s.minimumWidth <= s.maximumWidth))) {
    return refuse("The widths of lines must be 0 to 240 rows, the smaller one first.");
  }
  const int end = s.endRow == 0 ? frame.GetHeight() : s.endRow;
  if (!(s.firstRow >= 0 && s.firstRow < end && end <= frame.GetHeight())) {
    return refuse("The searched rows must be rows of the frame.");
  }
  if (!(s.gain >= 0.0 && s.gain <= levelsOf(frame) && s.readNoise >= 0.0 &&
        s.readNoise <= levelsOf(frame))) {
    return refuse("Gain and read noise must be numbers of levels.");
  }
  return true;
}

/// What becomes of the frames, with the type of frames for the intensity.
struct Targets {
  ImageOf<std::uint16_t>& range;
  const LineLayers& layers;

  /// Calls body(image, type) for each that is wanted.
  template <typename Body>
  bool all(const Image& frame, Body&& body) const {
    const auto takes = [&](const Image* image, cmnalg::ImageType type) {
      return image == nullptr || body(*image, type);
    };
    return takes(&range, cmnalg::IMAGE_TYPE_UINT16) && takes(layers.intensity, frame.GetType()) &&
           takes(layers.width, cmnalg::IMAGE_TYPE_UINT16) &&
           takes(layers.quality, cmnalg::IMAGE_TYPE_UINT8) &&
           takes(layers.deviation, cmnalg::IMAGE_TYPE_UINT16);
  }
};

bool areTargets(const Image* frames, int count, int firstProfile, const Targets& targets) {
  const int width = frames[0].GetWidth();
  const bool fit = targets.all(frames[0], [&](const Image& image, cmnalg::ImageType type) {
    return image.GetType() == type && image.GetWidth() == width && image.GetData() != nullptr &&
           firstProfile >= 0 && image.GetHeight() - count >= firstProfile;
  });
  if (!fit) {
    return refuse("Targets must be as wide as the frames, and have a row for each of them.");
  }
  const bool apart = targets.all(frames[0], [&](const Image& image, cmnalg::ImageType) {
    int same = 0;
    targets.all(frames[0], [&](const Image& other, cmnalg::ImageType) {
      same += sharesMemory(image, other) ? 1 : 0;
      return true;
    });
    return same == 1 && std::none_of(frames, frames + count, [&](const Image& frame) {
             return sharesMemory(image, frame);
           });
  });
  return apart || refuse("Cannot reuse source image as target image.");
}

void* addressOf(Image* image, int row) {
  return image == nullptr ? nullptr : const_cast<std::byte*>(pixelAddress(*image, 0, row));
}

/// The same for all frames of a call.
struct Extraction {
  Extraction(const LineSettings& settings, const Image& frame, const Targets& wanted)
      : filter(settings.lineWidth),
        location(settings, filter, frame.GetHeight(), linePlacesPerRow(frame.GetHeight()),
                 fullScaleOf(settings, frame)),
        targets(wanted),
        firstRow(settings.firstRow),
        endRow(settings.endRow == 0 ? frame.GetHeight() : settings.endRow) {
    const cmnalg::InstructionSet set = cmnalg::currentInstructionSet();
    const bool wide = frame.GetType() == cmnalg::IMAGE_TYPE_UINT16;
    const double least = std::ceil(thresholdOf(settings, frame) * filter.boxRows());
    rule = {settings.choice, std::clamp(settings.nearestRow, 0, frame.GetHeight() - 1),
            std::max(static_cast<std::int32_t>(least), 1), wanted.layers.quality != nullptr};
    detect = kernel::detectRows(wide, rule, false, set);
    detectOne = kernel::detectRows(wide, rule, true, set);
    locate = kernel::locateLines(wide, settings.method, set);
  }

  LineFilter filter;
  kernel::LocationConstants location;
  Targets targets;
  int firstRow, endRow;
  kernel::DetectionRule rule{};
  kernel::DetectRows detect, detectOne;
  kernel::LocateLines locate;
};

/// What one thread works with, for frames of a pixel type.
template <typename Pixel>
class FrameScratch {
 public:
  using Sum = kernel::LineSum<Pixel>;

  FrameScratch(const Extraction& extraction, int columns)
      : extraction_(extraction),
        columns_(static_cast<std::size_t>(columns)),
        stride_((columns_ + kLineNumbers - 1) / kLineNumbers * kLineNumbers),
        state_(7 * stride_ + kLineNumbers),
        block_(extraction.location.scratchSize()),
        dark_(columns_) {}

  /// Row `profile` of the targets from a frame.
  void extract(const Image& frame, int profile) {
    detect(frame);
    const kernel::DetectionState<Sum> state = states();
    const Targets& targets = extraction_.targets;
    auto* const quality = static_cast<std::uint8_t*>(addressOf(targets.layers.quality, profile));
    extraction_.locate(
        extraction_.location,
        {frame.GetData(), frame.GetPitch(), frame.GetWidth(), state.chosen, state.place},
        block_.data(),
        {targets.range.GetRowPtr(profile), addressOf(targets.layers.intensity, profile),
         static_cast<std::uint16_t*>(addressOf(targets.layers.width, profile)), quality,
         static_cast<std::uint16_t*>(addressOf(targets.layers.deviation, profile))});
    if (quality != nullptr) rate(state, quality);
  }

 private:
  kernel::DetectionState<Sum> states() {
    void* begin = state_.data();
    std::size_t space = state_.size() * sizeof(Sum);
    auto* const aligned = static_cast<Sum*>(std::align(kCacheLine, 1, begin, space));
    Sum* s[7];
    for (std::size_t i = 0; i < 7; ++i) s[i] = aligned + i * stride_;
    return {s[0], s[1], s[2], s[3], s[4], s[5], s[6]};
  }

  void detect(const Image& frame) {
    std::fill(state_.begin(), state_.end(), Sum{0});
    const kernel::DetectionState<Sum> state = states();
    const int a = extraction_.filter.boxHalf;
    const int width = extraction_.filter.boxRows();
    const auto row = [&](int i) -> const Pixel* {
      const int inside = std::clamp(i, 0, frame.GetHeight() - 1);
      return static_cast<const Pixel*>(frame.GetData()) +
             static_cast<std::ptrdiff_t>(inside) * frame.GetPitch();
    };
    const int first = extraction_.firstRow;
    const int end = extraction_.endRow;
    for (int k = -a; k <= a; ++k) {
      const Pixel* const here = row(first - 1 + k);
      const Pixel* const above = row(first - 1 + k - width);
      const Pixel* const below = row(first - 1 + k + width);
      for (std::size_t u = 0; u < columns_; ++u) {
        state.above[u] = static_cast<Sum>(state.above[u] + here[u] - above[u]);
        state.below[u] = static_cast<Sum>(state.below[u] + here[u] - below[u]);
      }
    }
    kernel::DetectionRows rows[kernel::kDetectedRows];
    for (int i = first; i < end;) {
      const int count = end - i < kernel::kDetectedRows ? 1 : kernel::kDetectedRows;
      for (int k = 0; k < count; ++k) {
        rows[k] = {row(i + k + a), row(i + k - 1 - a), row(i + k - 3 * a - 2),
                   row(i + k + 3 * a + 1)};
      }
      (count == 1 ? extraction_.detectOne : extraction_.detect)(rows, i, frame.GetWidth(),
                                                                extraction_.rule, &state);
      i += count;
    }
    finish(state);
  }

  /// Ends the lines that reach the last row, and drops what is no line.
  void finish(const kernel::DetectionState<Sum>& state) {
    const auto least = static_cast<Sum>(extraction_.rule.leastStrength);
    if (extraction_.rule.choice == LineChoice::STRONGEST && !extraction_.rule.withOther) {
      for (std::size_t u = 0; u < columns_; ++u) {
        if (state.chosen[u] < least) state.chosen[u] = 0;
      }
      return;
    }
    // Rows below the searched ones in which nothing lies: sums of zeros over lines that go on.
    std::fill(state.above, state.above + columns_, Sum{0});
    std::fill(state.below, state.below + columns_, Sum{0});
    const Pixel* const dark = dark_.data();
    const kernel::DetectionRows row{dark, dark, dark, dark};
    extraction_.detectOne(&row, extraction_.endRow, static_cast<int>(columns_), extraction_.rule,
                          &state);
  }

  /// Makes confidences of the qualities that are no reasons.
  void rate(const kernel::DetectionState<Sum>& state, std::uint8_t* quality) {
    for (std::size_t u = 0; u < columns_; ++u) {
      if (quality[u] != 0) continue;
      const std::int32_t chosen = state.chosen[u];
      const std::int32_t margin = std::max(chosen - std::int32_t{state.other[u]}, 0);
      quality[u] = static_cast<std::uint8_t>(
          std::max((255 * margin + chosen / 2) / chosen, kLeastConfidence));
    }
  }

  // Where vectors of AVX-512 lie across two cache lines, detection takes up to a quarter longer.
  static constexpr std::size_t kCacheLine = 64;
  static constexpr std::size_t kLineNumbers = kCacheLine / sizeof(Sum);

  const Extraction& extraction_;
  std::size_t columns_;
  std::size_t stride_;
  etl::Vector<Sum> state_;
  etl::Vector<Sum> block_;
  etl::Vector<Pixel> dark_;
};

template <typename Pixel>
void extract(const Extraction& extraction, const Image* frames, int count, int firstProfile) {
  const std::int64_t pixels = std::int64_t{frames[0].GetWidth()} * frames[0].GetHeight();
  // All memory is there before the first row is written: targets are complete or untouched.
  std::vector<FrameScratch<Pixel>> scratch(
      static_cast<std::size_t>(threading_helpers::maximumRowBlocks(0, count, pixels)),
      FrameScratch<Pixel>(extraction, frames[0].GetWidth()));
  std::atomic<std::size_t> next{0};
  threading_helpers::forEachRowBlock(0, count, pixels, [&](int first, int last) {
    FrameScratch<Pixel>& mine = scratch[next.fetch_add(1)];
    for (int i = first; i < last; ++i) mine.extract(frames[i], firstProfile + i);
  });
}

}  // namespace

int linePlacesPerRow(int frameHeight) {
  int places = 64;
  while (places > 1 && std::int64_t{frameHeight - 1} * places > 65535) places /= 2;
  return places;
}

SensorRegion lineRegion(const SensorRegion& frames, int columns, int rows) {
  const auto extent = [](int given, double scale, int pixels) {
    const double covered = std::ceil(std::fabs(scale) * pixels);
    return given > 0 ? given : static_cast<int>(std::fmin(std::fmax(covered, 1.0), 65535.0));
  };
  SensorRegion region = frames;
  region.width = extent(frames.width, frames.scaleX, columns);
  region.height = extent(frames.height, frames.scaleZ, rows);
  region.scaleZ /= linePlacesPerRow(rows);
  return region;
}

bool createLineTarget(const Image& frame, int profiles, ImageOf<std::uint16_t>& range) {
  if (!areFrames(&frame, 1)) return false;
  if (profiles < 1) return refuse("There must be at least one profile.");
  const cmnalg::Vec<3, double> size{frame.PixelSize.x, 1.0,
                                    frame.PixelSize.y / linePlacesPerRow(frame.GetHeight())};
  const cmnalg::Vec<3, double> origin{frame.Origin.x, 0.0, frame.Origin.y};
  if (!range.Create(frame.GetWidth(), profiles, Image::s_defaultImageAllocator)) return false;
  range.SetAll(0);
  range.PixelSize = size;
  range.Origin = origin;
  range.HandleZeroPixels = cmnalg::ZeroPixels::MissingData;
  return true;
}

bool extractLines(const Image* frames, int count, const LineSettings& settings, int firstProfile,
                  ImageOf<std::uint16_t>& range, const LineLayers& layers) {
  const base::DefaultFloatEnvironment environment;
  if (frames == nullptr || count < 1) return refuse("There must be at least one frame.");
  const Targets targets{range, layers};
  if (!areFrames(frames, count) || !areSettings(settings, frames[0]) ||
      !areTargets(frames, count, firstProfile, targets)) {
    return false;
  }
  const Extraction extraction(settings, frames[0], targets);
  if (frames[0].GetType() == cmnalg::IMAGE_TYPE_UINT16) {
    extract<std::uint16_t>(extraction, frames, count, firstProfile);
  } else {
    extract<std::uint8_t>(extraction, frames, count, firstProfile);
  }
  return true;
}

}  // namespace datafusion::planex
