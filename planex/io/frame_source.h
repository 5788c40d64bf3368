#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "planex/infra/export.h"
#include "planex/io/image_reader.h"

namespace planex::io {

/// What is known of a frame beside its pixels.
struct FrameNote {
  bool lost = false;  ///< the camera did not deliver it: its pixels are 0
  /// Where along the movement it was taken, in the unit of lengths, where the source knows it.
  double y = std::numeric_limits<double>::quiet_NaN();
};

/// Frames of a camera, one after the other, all of one size and type: UINT8 or UINT16.
///
/// What is wrong with the source ends in a Failure that names it, and the frame. Memory does not
/// grow with the number of frames. Not for several threads at once.
class PLANEX_EXPORT FrameSource {
 public:
  virtual ~FrameSource() = default;
  FrameSource(const FrameSource&) = delete;
  FrameSource& operator=(const FrameSource&) = delete;

  /// How texts call it: the file, the folder, or the camera.
  const std::string& name() const { return name_; }
  /// Of every frame.
  const ImageShape& shape() const { return shape_; }
  /// Bytes of a frame.
  std::size_t frameBytes() const {
    return shape_.rowBytes() * static_cast<std::size_t>(shape_.height);
  }

  /// How many frames there are; nothing where only the end will tell.
  virtual std::optional<std::int64_t> count() const { return std::nullopt; }
  /// Passes over frames; less where the end comes first.
  virtual void skip(std::int64_t frames) = 0;
  /// Reads the next frames, row by row in host byte order and without padding. Waits for one of
  /// them, and for more only where they come from files.
  /// @param most   at least 1
  /// @param frames `most` times frameBytes()
  /// @param notes  `most` of them
  /// @return how many were read; 0 at the end
  virtual int read(int most, void* frames, FrameNote* notes) = 0;

 protected:
  /// Announces nothing yet.
  explicit FrameSource(std::string name) : name_(std::move(name)) {}
  /// What every frame is like.
  void announce(const ImageShape& shape) { shape_ = shape; }

 private:
  std::string name_;
  ImageShape shape_;
};

/// The layout of frames in a file without headings.
struct RawFrames {
  /// How pixels are stored: one byte; two, the lower first; or packed without gaps, the lower bits
  /// first (PFNC Mono10p, Mono12p).
  enum class Packing { kMono8, kMono10, kMono12, kMono16, kMono10p, kMono12p };

  int width = 0;                      ///< columns
  int height = 0;                     ///< rows
  Packing packing = Packing::kMono8;  ///< of pixels

  /// How many bits of a pixel carry its value.
  PLANEX_EXPORT int bits() const;

  /// Reads "2560x1024:mono8". A Failure for other texts.
  PLANEX_EXPORT static RawFrames parse(const std::string& text);
};

/// Opens frames in files: folders of images, whose files are taken in natural order (frame_2 before
/// frame_10) and of which those that are no images by their ending (of raw data .raw and .bin) are
/// passed over; images (PNG, PGM, TIFF, NPY of two axes) of one frame each; TIFF files with a page
/// a frame, without pages that are smaller copies or masks of others; PGM streams, one image behind
/// the other; raw data. "-" is standard input, with PGM images or raw data, read as they come.
///
/// Where the first file of a folder holds one frame, all must, so that their number is known and
/// frames can be passed over without opening files. Frames have at most
/// ImageReader::kMaximumColumns columns, 32767 rows and 1 GiB. Failures count frames from 0, over
/// all paths: "scan.pgm: frame 12 is cut off after ..."
///
/// @param paths one or more, whose frames follow each other
/// @param raw   what files are that have no headings; null: images
PLANEX_EXPORT std::unique_ptr<FrameSource> openFrames(const std::vector<std::string>& paths,
                                                      const RawFrames* raw = nullptr);

}  // namespace planex::io
