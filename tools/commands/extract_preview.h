#pragma once

#include <planex/scan/extracted_frames.h>

#include <chrono>
#include <optional>
#include <string>

#include "tools/cli/options.h"

namespace planex::tools {

/// A picture of the last frame with the line that was found in it, anew every second: for aiming,
/// focus and exposure.
class ExtractPreview {
 public:
  /// @param path  of a PNG or SVG; empty: no picture
  /// @param extraction, frame  outlive the object
  /// Throws CLI::ValidationError for other names.
  ExtractPreview(const std::string& path, const scan::FrameExtraction& extraction,
                 const io::ImageShape& frame, const Context& context);

  /// Draws the last frame of a block, if there was none for a second.
  void show(const scan::ExtractedFrames& block);

 private:
  using Clock = std::chrono::steady_clock;

  const std::string path_;
  const scan::FrameExtraction& extraction_;
  const io::ImageShape frame_;
  bool force_;
  std::optional<Clock::time_point> next_;
};

}  // namespace planex::tools
