#include "planex/scan/extracted_frames.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>

#include "planex/io/failure.h"
#include "planex/io/library_warnings.h"
#include "planex/processing/frame_preparation.h"

namespace planex::scan {

using cmnalg::Image;
using datafusion::planex::LineReason;

void ExtractedFrames::read() {
  const auto most = static_cast<std::size_t>(count());
  frames_.resize(most * source_.frameBytes());
  notes_.resize(most);
  shrink(source_.read(count(), frames_.data(), notes_.data()));
}

/// Makes the image in which lines are looked for in frame `i`.
void ExtractedFrames::prepare(Image& frame, std::size_t i) {
  const io::ImageShape& shape = source_.shape();
  Image& raw = extraction_.transpose ? raw_ : frame;
  if (!raw.Create(frames_.data() + i * source_.frameBytes(), shape.type, shape.width, shape.height,
                  shape.width, false, Image::s_defaultImageAllocator, false)) {
    throw std::bad_alloc();
  }
  if (extraction_.dark != nullptr && !datafusion::planex::subtractDark(*extraction_.dark, raw)) {
    io::failWithLibraryWarnings("extract", "is refused", "see planex extract --help");
  }
  if (extraction_.transpose && !datafusion::planex::transpose(raw, frame)) throw std::bad_alloc();
}

void ExtractedFrames::process() {
  const auto rows = static_cast<std::size_t>(count());
  prepared_.resize(rows);
  for (std::size_t i = 0; i < rows; ++i) prepare(prepared_[i], i);

  const int columns = extraction_.shapeOf(source_.shape()).width;
  const auto& allocator = Image::s_defaultImageAllocator;
  bool created = range_.Create(columns, count(), allocator);
  datafusion::planex::LineLayers layers;
  if (extraction_.intensity) {
    created = created && intensity_.Create(source_.shape().type, columns, count(), 0, allocator);
    layers.intensity = &intensity_;
  }
  if (extraction_.width) {
    created = created && width_.Create(columns, count(), allocator);
    layers.width = &width_;
  }
  if (extraction_.quality) {
    created = created && quality_.Create(columns, count(), allocator);
    layers.quality = &quality_;
  }
  if (extraction_.deviation) {
    created = created && deviation_.Create(columns, count(), allocator);
    layers.deviation = &deviation_;
  }
  if (!created) throw std::bad_alloc();
  if (!datafusion::planex::extractLines(prepared_.data(), count(), extraction_.settings, 0, range_,
                                        layers)) {
    io::failWithLibraryWarnings("extract", "is refused", "see planex extract --help");
  }
  for (int i = 0; i < count() && extraction_.quality; ++i) {
    if (!notes_[static_cast<std::size_t>(i)].lost) continue;
    std::memset(quality_.GetRowPtr(i), static_cast<int>(LineReason::FRAME_LOST),
                static_cast<std::size_t>(columns));
  }
}

}  // namespace planex::scan
