#include "planex/scan/line_figures.h"

#include <algorithm>
#include <cstddef>

namespace planex::scan {
namespace {

constexpr std::size_t kValues = 65536;

void add(const cmnalg::ImageOf<std::uint16_t>& image, std::vector<std::int64_t>& histogram) {
  for (int row = 0; row < image.GetHeight(); ++row) {
    const std::uint16_t* const values = image.GetRowPtr(row);
    for (int u = 0; u < image.GetWidth(); ++u) ++histogram[values[u]];
  }
}

}  // namespace

LineFigures::LineFigures(const FrameExtraction& extraction, const io::ImageShape& frame)
    : extraction_(extraction),
      frame_(frame),
      widths_(kValues),
      deviations_(extraction.deviation ? kValues : 0) {}

template <typename Pixel>
LineCounts LineFigures::count(const ExtractedFrames& block) const {
  const int places = datafusion::planex::linePlacesPerRow(extraction_.shapeOf(frame_).height);
  const double most = extraction_.settings.fullScale;
  const auto width = static_cast<std::size_t>(frame_.width);
  const auto* const dark = extraction_.dark == nullptr
                               ? nullptr
                               : static_cast<const Pixel*>(extraction_.dark->GetData());
  LineCounts counts;
  for (int k = 0; k < block.count(); ++k) {
    const auto index = static_cast<std::size_t>(k);
    if (block.notes()[index].lost) continue;
    const auto* const pixels = reinterpret_cast<const Pixel*>(
        block.frames().data() +
        index * frame_.rowBytes() * static_cast<std::size_t>(frame_.height));
    const std::uint16_t* const range = block.range().GetRowPtr(k);
    const int columns = block.range().GetWidth();
    counts.columns += columns;
    for (int u = 0; u < columns; ++u) {
      if (range[u] == 0) continue;
      const auto column = static_cast<std::size_t>(u);
      const auto row = static_cast<std::size_t>((range[u] + places / 2) / places);
      const std::size_t at = extraction_.transpose ? column * width + row : row * width + column;
      const int level = pixels[at] + (dark == nullptr ? 0 : dark[at]);
      ++counts.found;
      counts.levels += level;
      counts.clipped += level >= most ? 1 : 0;
    }
  }
  return counts;
}

LineCounts LineFigures::take(const ExtractedFrames& block) {
  const LineCounts counts = frame_.type == cmnalg::IMAGE_TYPE_UINT8 ? count<std::uint8_t>(block)
                                                                    : count<std::uint16_t>(block);
  counts_.columns += counts.columns;
  counts_.found += counts.found;
  counts_.clipped += counts.clipped;
  counts_.levels += counts.levels;
  add(block.width(), widths_);
  if (extraction_.deviation) add(block.deviation(), deviations_);
  return counts;
}

double LineFigures::median(const std::vector<std::int64_t>& histogram, double steps) const {
  std::int64_t below = 0;
  for (std::size_t value = 1; value < histogram.size(); ++value) {
    below += histogram[value];
    if (2 * below >= counts_.found && below > 0) return static_cast<double>(value) / steps;
  }
  return 0;
}

}  // namespace planex::scan
