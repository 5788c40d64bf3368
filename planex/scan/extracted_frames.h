#pragma once

#include <cstdint>
#include <vector>

#include "planex/foundation/image.h"
#include "planex/foundation/image_of.h"
#include "planex/infra/export.h"
#include "planex/io/frame_source.h"
#include "planex/processing/line_extraction.h"
#include "planex/scan/row_stream.h"

namespace planex::scan {

/// How frames become rows of a range image.
struct FrameExtraction {
  datafusion::planex::LineSettings settings;  ///< how lines are looked for
  const cmnalg::Image* dark = nullptr;        ///< taken from every frame; outlives it
  bool transpose = false;                     ///< the line runs along the columns of the frames
  /// @{
  /// What is wanted beside the range.
  bool intensity = false, width = false, quality = false, deviation = false;
  /// @}

  /// The size and type of frames as lines are looked for in them.
  io::ImageShape shapeOf(const io::ImageShape& frame) const {
    return transpose ? io::ImageShape{frame.height, frame.width, frame.type} : frame;
  }
};

/// Some frames on their way to rows of a range image, a row a frame. Of lost frames the rows are
/// empty, with quality LineReason::FRAME_LOST.
class PLANEX_EXPORT ExtractedFrames : public RowBlock {
 public:
  /// Both outlive the object.
  ExtractedFrames(io::FrameSource& source, const FrameExtraction& extraction)
      : source_(source), extraction_(extraction) {}

  /// A Failure for settings that extractLines() refuses.
  void process() override;

  /// @{
  /// The rows; empty where they are not wanted.
  const cmnalg::ImageOf<std::uint16_t>& range() const { return range_; }
  const cmnalg::Image& intensity() const { return intensity_; }
  const cmnalg::ImageOf<std::uint16_t>& width() const { return width_; }
  const cmnalg::ImageOf<std::uint8_t>& quality() const { return quality_; }
  const cmnalg::ImageOf<std::uint16_t>& deviation() const { return deviation_; }
  /// @}
  /// What is known of the frames.
  const std::vector<io::FrameNote>& notes() const { return notes_; }
  /// The frames as they came, without padding.
  const std::vector<char>& frames() const { return frames_; }

 protected:
  /// @cond
  void read() override;
  /// @endcond

 private:
  void prepare(cmnalg::Image& frame, std::size_t i);

  io::FrameSource& source_;
  const FrameExtraction& extraction_;
  std::vector<char> frames_;
  std::vector<io::FrameNote> notes_;
  std::vector<cmnalg::Image> prepared_;
  cmnalg::ImageOf<std::uint16_t> range_, width_, deviation_;
  cmnalg::ImageOf<std::uint8_t> quality_;
  cmnalg::Image intensity_, raw_;
};

}  // namespace planex::scan
