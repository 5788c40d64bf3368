#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "planex/foundation/pixel_type.h"
#include "planex/infra/export.h"

namespace planex::io {

/// What an image is read as, and so which samples a reader takes.
enum class Samples {
  kIntensities,  ///< 8 or 16 bits without sign
  kRanges,       ///< 32 bits without sign and float32, too
  kHeights,      ///< 8 or 16 bits, or float32; of several layers the first
};

/// What the header of a greyscale image file announces.
struct ImageShape {
  int width = 0;                                        ///< columns
  int height = 0;                                       ///< rows
  cmnalg::ImageType type = cmnalg::IMAGE_TYPE_INVALID;  ///< UINT8, UINT16, UINT32 or FLOAT32

  /// Bytes of one row without padding.
  std::size_t rowBytes() const {
    return static_cast<std::size_t>(width) * cmnalg::bytesPerPixel(type);
  }
};

/// Reads a greyscale image row by row: PNG, TIFF, PGM or NPY, told apart by the first
/// bytes of the file.
///
/// Nothing in the file is trusted. Opening refuses, with a Failure that names the file, what is no
/// regular file, no image of these kinds, or announces more pixels than a file of its size can
/// hold; reading refuses what turns out damaged or cut off. Memory holds some rows, and
/// the image of an interlaced PNG alone. Sizes are at most kMaximumColumns and the largest int.
class PLANEX_EXPORT ImageReader {
 public:
  /// What is wider is refused.
  static constexpr int kMaximumColumns = 1 << 20;

  /// Opens a file, and reads what it announces; "-" is standard input.
  static std::unique_ptr<ImageReader> open(const std::string& path,
                                           Samples samples = Samples::kIntensities);

  /// Opens one of the layers of a file of heights, counted from 0. A Failure where it has no such.
  static std::unique_ptr<ImageReader> openLayer(const std::string& path, std::size_t layer);

  virtual ~ImageReader() = default;
  ImageReader(const ImageReader&) = delete;
  ImageReader& operator=(const ImageReader&) = delete;

  /// The name of the file, as it was given.
  const std::string& path() const { return path_; }
  /// What the file announces.
  const ImageShape& shape() const { return shape_; }

  /// Reads rows first ... first + count - 1, in host byte order and without padding.
  /// Going back is allowed, and costs decoding anew from the first row where rows are compressed.
  /// @param rows count * shape().rowBytes() bytes
  void readRows(int first, int count, void* rows);

 protected:
  /// Announces nothing yet.
  explicit ImageReader(std::string path) : path_(std::move(path)) {}

  /// Checks and takes over the announced size.
  void announce(std::uint64_t width, std::uint64_t height, cmnalg::ImageType type);
  /// Throws a Failure "<path>: <problem>".
  [[noreturn]] void refuse(const std::string& problem) const;
  /// The refusal of a file that ends, or stops making sense, in row `row`.
  [[noreturn]] void refuseRow(std::int64_t row, const std::string& reason) const;
  /// Makes the row `count` rows further on the next one; here by decoding those before it.
  virtual void skipRows(int count);
  /// Decodes the `count` rows that follow the last decoded one, here one by one.
  virtual void readNextRows(int count, void* rows);

 private:
  /// Decodes the row that follows the last decoded one.
  virtual void readNextRow(void* row) = 0;
  /// Makes row 0 the next one.
  virtual void rewind() = 0;

  std::string path_;
  ImageShape shape_;
  int next_ = 0;
};

}  // namespace planex::io
