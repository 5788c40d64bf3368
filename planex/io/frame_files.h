// The kinds of files behind openFrames.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "planex/io/frame_source.h"
#include "planex/io/image_reader.h"

namespace planex::io {

/// Frames in one file, one after the other. Failures name the file, and say of what is wrong with a
/// frame what is wrong with the file: who knows its number puts it between.
class FrameFile {
 public:
  virtual ~FrameFile() = default;
  FrameFile(const FrameFile&) = delete;
  FrameFile& operator=(const FrameFile&) = delete;

  /// How many frames the file holds, where that is known without reading them.
  virtual std::optional<std::int64_t> count() const = 0;
  /// What the next frame is like, within the limits of requireFrame(); nothing behind the last one.
  virtual std::optional<ImageShape> next() = 0;
  /// Whether something of the next frame is there without waiting for who makes it.
  virtual bool isReady() const { return true; }
  /// Reads the frame that next() told of.
  virtual void read(void* frame) = 0;
  /// @return how many frames were passed over; less where the end comes first
  virtual std::int64_t skip(std::int64_t frames) = 0;

 protected:
  FrameFile() = default;
};

/// Refuses what no camera delivers: more columns than images may have, more than 32767 rows, or
/// more than 1 GiB.
void requireFrame(const std::string& path, std::uint64_t width, std::uint64_t height,
                  std::size_t bytesPerPixel);

/// @{
/// Open a file of that kind.
std::unique_ptr<FrameFile> openImageFrame(const std::string& path);
std::unique_ptr<FrameFile> openTiffFrames(const std::string& path);
/// "-" is standard input, which is read once, as it comes.
std::unique_ptr<FrameFile> openPgmFrames(const std::string& path);
std::unique_ptr<FrameFile> openRawFrames(const std::string& path, const RawFrames& layout);
/// @}

}  // namespace planex::io
