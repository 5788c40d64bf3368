#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "planex/foundation/image_of.h"
#include "planex/infra/export.h"
#include "planex/io/image_reader.h"
#include "planex/processing/intensity_reduction.h"

namespace planex::scan {

/// An image with the intensity of every point of a range image.
class PLANEX_EXPORT IntensityImage {
 public:
  /// A Failure for an image of another size than the range image has.
  IntensityImage(const std::string& path, const io::ImageReader& range);

  /// Its file.
  io::ImageReader& reader() const { return *reader_; }
  /// Whether its values have 8 bits.
  bool isBytes() const { return reader_->shape().type == cmnalg::IMAGE_TYPE_UINT8; }

  /// Finds the limits of 16-bit values in a pass of its own, `block` rows at a time. `advance`
  /// hears of pixels read.
  void findLimits(int block, const std::function<void(std::int64_t pixels)>& advance);
  /// Those of the whole image, whatever rows are asked for.
  const datafusion::planex::IntensityLimits& limits() const { return limits_; }

 private:
  std::unique_ptr<io::ImageReader> reader_;
  datafusion::planex::IntensityLimits limits_;
};

/// Some rows of an intensity image as 8 bits: as they are, or 16-bit values spread between the
/// limits of the whole image.
class PLANEX_EXPORT IntensityRows {
 public:
  /// @param source outlives the object; its limits are found before the first reduce()
  explicit IntensityRows(const IntensityImage& source) : source_(&source) {}

  /// Reads rows first ... first + count - 1.
  void read(int first, int count);
  /// Makes 8 bits of the rows read last.
  void reduce();

  /// The values as they are in the file, of 8 or 16 bits.
  const void* values() const { return values_.data(); }
  /// What reduce() made of them.
  const cmnalg::ImageOf<std::uint8_t>& image() const { return image_; }

 private:
  const IntensityImage* source_;
  int count_ = 0;
  std::vector<std::uint16_t> values_;  // of 8 bits in the first half of it
  cmnalg::ImageOf<std::uint8_t> image_;
};

}  // namespace planex::scan
