#include "planex/scan/intensity_rows.h"

#include <algorithm>
#include <cstddef>
#include <new>

#include "planex/io/failure.h"
#include "planex/scan/row_blocks.h"

namespace planex::scan {

IntensityImage::IntensityImage(const std::string& path, const io::ImageReader& range)
    : reader_(io::ImageReader::open(path)) {
  const io::ImageShape& shape = reader_->shape();
  if (shape.width == range.shape().width && shape.height == range.shape().height) return;
  throw io::Failure(path,
                    "is not as large as " + range.path() + "; give the image that belongs to it");
}

void IntensityImage::findLimits(int block,
                                const std::function<void(std::int64_t pixels)>& advance) {
  const io::ImageShape& shape = reader_->shape();
  if (isBytes()) return;
  std::vector<std::uint16_t> values;
  RowBlocks{0, shape.height, block}.forEach([&](int first, int count) {
    values.resize(static_cast<std::size_t>(count) * static_cast<std::size_t>(shape.width));
    reader_->readRows(first, count, values.data());
    limits_.Include(datafusion::planex::findIntensityLimits(values.data(), values.size()));
    advance(std::int64_t{count} * shape.width);
  });
}

void IntensityRows::read(int first, int count) {
  const io::ImageShape& shape = source_->reader().shape();
  count_ = count;
  values_.resize(static_cast<std::size_t>(count) * static_cast<std::size_t>(shape.width));
  source_->reader().readRows(first, count, values_.data());
}

void IntensityRows::reduce() {
  const int width = source_->reader().shape().width;
  if (!image_.Create(width, count_, cmnalg::Image::s_defaultImageAllocator)) throw std::bad_alloc();
  std::uint8_t* out = image_.GetRowPtr(0);
  if (source_->isBytes()) {
    std::copy_n(reinterpret_cast<const std::uint8_t*>(values_.data()), values_.size(), out);
  } else {
    datafusion::planex::reduceIntensities(values_.data(), values_.size(), source_->limits(), out);
  }
}

}  // namespace planex::scan
