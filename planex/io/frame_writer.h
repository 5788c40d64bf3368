#pragma once

#include <memory>
#include <optional>
#include <string>

#include "planex/infra/export.h"
#include "planex/io/image_reader.h"
#include "planex/io/output_file.h"

namespace planex::io {

/// The kinds of files with frames: TIFF with a page a frame, PGM images one behind the other,
/// pixels alone.
enum class FrameFormat { kTiffPages, kPgm, kRaw };

/// @return the format that the ending of a file name stands for (.tif, .tiff, .pgm, .raw, in any
///         case), or nothing
PLANEX_EXPORT std::optional<FrameFormat> frameFormatOf(const std::string& path);

/// Writes frames, one after the other, uncompressed. What openFrames() reads from the file are the
/// same frames. A TIFF is a BigTIFF. Failures name the file.
class PLANEX_EXPORT FrameWriter {
 public:
  /// @param file  empty; stays open while the writer is used, and is committed afterwards
  /// @param shape of every frame: UINT8 or UINT16
  static std::unique_ptr<FrameWriter> create(FrameFormat format, OutputFile& file,
                                             const ImageShape& shape);

  virtual ~FrameWriter() = default;
  FrameWriter(const FrameWriter&) = delete;
  FrameWriter& operator=(const FrameWriter&) = delete;

  /// Appends `count` frames without padding.
  virtual void write(int count, const void* frames) = 0;
  /// Completes the file.
  virtual void finish() = 0;

 protected:
  FrameWriter() = default;
};

}  // namespace planex::io
