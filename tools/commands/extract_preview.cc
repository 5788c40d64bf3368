#include "tools/commands/extract_preview.h"

#include <planex/io/output_file.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "planex/report/frame_picture.h"

namespace planex::tools {
namespace {

/// Levels in 8 bits; that of full scale is 255, and no other.
template <typename Pixel>
std::vector<std::uint8_t> levelsOf(const char* frame, std::size_t pixels, double fullScale) {
  const auto* const from = reinterpret_cast<const Pixel*>(frame);
  std::vector<std::uint8_t> levels(pixels);
  std::transform(from, from + pixels, levels.begin(), [fullScale](Pixel level) {
    return static_cast<std::uint8_t>(std::min(255.0 * level / fullScale, 255.0));
  });
  return levels;
}

}  // namespace

ExtractPreview::ExtractPreview(const std::string& path, const scan::FrameExtraction& extraction,
                               const io::ImageShape& frame, const Context& context)
    : path_(path), extraction_(extraction), frame_(frame), force_(context.force) {
  if (!path.empty() && !report::pictureFormatOf(path)) {
    throw CLI::ValidationError("--preview", "'" + path + "' ends neither in .png nor .svg");
  }
}

void ExtractPreview::show(const scan::ExtractedFrames& block) {
  const Clock::time_point now = Clock::now();
  if (path_.empty() || (next_ && now < *next_)) return;
  next_ = now + std::chrono::seconds(1);
  const int last = block.count() - 1;
  const std::size_t bytes = frame_.rowBytes() * static_cast<std::size_t>(frame_.height);
  const char* const frame = block.frames().data() + bytes * static_cast<std::size_t>(last);
  const bool narrow = frame_.type == cmnalg::IMAGE_TYPE_UINT8;
  const double fullScale = extraction_.settings.fullScale;
  report::FrameView view;
  view.columns = frame_.width;
  view.rows = frame_.height;
  view.levels = narrow ? levelsOf<std::uint8_t>(frame, bytes, fullScale)
                       : levelsOf<std::uint16_t>(frame, bytes / 2, fullScale);
  view.alongRows = !extraction_.transpose;
  const double places = datafusion::planex::linePlacesPerRow(extraction_.shapeOf(frame_).height);
  for (int u = 0; u < block.range().GetWidth(); ++u) {
    const std::uint16_t place = block.range().Pix(u, last);
    view.line.push_back(place == 0 ? std::numeric_limits<double>::quiet_NaN() : place / places);
  }
  io::OutputFile file(path_, force_);
  file.write(report::drawFrame(view, *report::pictureFormatOf(path_)));
  file.commit();
  force_ = true;  // the picture before is replaced
}

}  // namespace planex::tools
