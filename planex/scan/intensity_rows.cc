#include "planex/scan/intensity_rows.h"

#include <algorithm>
#include <cstddef>
#include <new>

#include "planex/io/failure.h"

namespace planex::scan {

IntensityRows::IntensityRows(const std::string& path, const io::ImageReader& range)
    : reader_(io::ImageReader::open(path)) {
  const io::ImageShape& shape = reader_->shape();
  if (shape.width == range.shape().width && shape.height == range.shape().height) return;
  throw io::Failure(path,
                    "is not as large as " + range.path() + "; give the image that belongs to it");
}

void IntensityRows::findLimits(int block, const std::function<void(std::int64_t pixels)>& advance) {
  const io::ImageShape& shape = reader_->shape();
  if (shape.type == cmnalg::IMAGE_TYPE_UINT8) return;
  for (int row = 0; row < shape.height; row += block) {
    const int count = std::min(block, shape.height - row);
    values_.resize(static_cast<std::size_t>(count) * static_cast<std::size_t>(shape.width));
    reader_->readRows(row, count, values_.data());
    const auto limits = std::minmax_element(values_.begin(), values_.end());
    min_ = std::min<int>(min_, *limits.first);
    max_ = std::max<int>(max_, *limits.second);
    advance(std::int64_t{count} * shape.width);
  }
}

void IntensityRows::load(int first, int count) {
  const io::ImageShape& shape = reader_->shape();
  if (!image_.Create(shape.width, count, cmnalg::Image::s_defaultImageAllocator)) {
    throw std::bad_alloc();
  }
  std::uint8_t* out = image_.GetRowPtr(0);
  if (shape.type == cmnalg::IMAGE_TYPE_UINT8) {
    reader_->readRows(first, count, out);
    return;
  }
  values_.resize(static_cast<std::size_t>(count) * static_cast<std::size_t>(shape.width));
  reader_->readRows(first, count, values_.data());
  const double span = max_ > min_ ? max_ - min_ : 1.0;
  for (std::size_t i = 0; i < values_.size(); ++i) {
    const double scaled = (values_[i] - min_) * 255.0 / span;
    // No quotient lies within rounding of .5 but at it.
    // NOLINTNEXTLINE(bugprone-incorrect-roundings)
    const int rounded = static_cast<int>(scaled + 0.5);
    out[i] = static_cast<std::uint8_t>(rounded);
  }
}

}  // namespace planex::scan
