#pragma once

#include <cstdint>
#include <vector>

#include "planex/infra/export.h"
#include "planex/scan/extracted_frames.h"

namespace planex::scan {

/// What became of the columns of some frames.
struct LineCounts {
  std::int64_t columns = 0;  ///< of frames that are not lost
  std::int64_t found = 0;    ///< of them with a line
  std::int64_t clipped = 0;  ///< of these with the greatest level at the place of the line
  std::int64_t levels = 0;   ///< sum of the levels at the places

  /// @{
  /// Shares, 0 to 1, and the mean level; 0 of nothing.
  double foundShare() const { return columns > 0 ? ratio(found, columns) : 0; }
  double clippedShare() const { return found > 0 ? ratio(clipped, found) : 0; }
  double meanLevel() const { return found > 0 ? ratio(levels, found) : 0; }
  /// @}

 private:
  static double ratio(std::int64_t part, std::int64_t whole) {
    return static_cast<double>(part) / static_cast<double>(whole);
  }
};

/// What becomes of the frames of a scan, block by block.
class PLANEX_EXPORT LineFigures {
 public:
  /// Both outlive the object.
  /// @param extraction with widths; deviations have a median where it has them
  /// @param frame      of the source
  LineFigures(const FrameExtraction& extraction, const io::ImageShape& frame);

  /// Takes the next frames. @return the counts of them alone
  LineCounts take(const ExtractedFrames& block);

  /// The counts of all frames.
  const LineCounts& counts() const { return counts_; }
  /// @{
  /// Medians of all points, in rows; 0 without points, and of deviations that are not wanted.
  double medianWidth() const { return median(widths_, 64); }
  double medianDeviation() const { return median(deviations_, 1024); }
  /// @}

 private:
  template <typename Pixel>
  LineCounts count(const ExtractedFrames& block) const;
  double median(const std::vector<std::int64_t>& histogram, double steps) const;

  const FrameExtraction& extraction_;
  const io::ImageShape frame_;
  LineCounts counts_;
  std::vector<std::int64_t> widths_, deviations_;  // how often each value of 16 bits is there
};

}  // namespace planex::scan
