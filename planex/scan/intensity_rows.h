#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "planex/foundation/image_of.h"
#include "planex/infra/export.h"
#include "planex/io/image_reader.h"

namespace planex::scan {

/// An intensity image as 8 bits, some rows at a time.
///
/// 16-bit values v become round((v - m) 255 / (M - m)), half away from zero, with m and M the
/// smallest and largest value of the whole image, whatever rows are asked for; all 0 where M = m.
/// A pass of its own finds m and M.
class PLANEX_EXPORT IntensityRows {
 public:
  /// A Failure for an image of another size than the range image has.
  IntensityRows(const std::string& path, const io::ImageReader& range);

  /// Finds the limits of 16-bit values; before the first load. `advance` hears of pixels read.
  void findLimits(int block, const std::function<void(std::int64_t pixels)>& advance);

  /// Reads rows first ... first + count - 1.
  void load(int first, int count);

  /// The rows loaded last.
  const cmnalg::ImageOf<std::uint8_t>& image() const { return image_; }
  const io::ImageReader& reader() const { return *reader_; }

 private:
  std::unique_ptr<io::ImageReader> reader_;
  std::vector<std::uint16_t> values_;
  cmnalg::ImageOf<std::uint8_t> image_;
  int min_ = 65535, max_ = 0;
};

}  // namespace planex::scan
