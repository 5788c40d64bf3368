#include "planex/foundation/image_data.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <limits>
#include <new>
#include <utility>

#include "planex/foundation/pixel_dispatch.h"
#include "planex/foundation/pixel_value.h"
#include "planex/infra/refusal.h"

namespace cmnalg {
namespace {

constexpr std::int64_t kMaxElements = std::numeric_limits<std::int32_t>::max();

/// The checks that both forms of creation share, in their order. Turns a pitch of 0 into the
/// width. @return null, or the text of the refusal
const char* shapeFault(int width, int height, int& pitch) {
  if (width < 0 || height < 0) return "Cannot create image with negative width or height.";
  if (pitch == 0) pitch = width;
  if (pitch < width) return "Line pitch cannot be smaller than the image width.";
  return nullptr;
}

std::size_t bufferBytes(ImageType type, int height, int pitch) {
  return static_cast<std::size_t>(height) * static_cast<std::size_t>(pitch) * bytesPerPixel(type);
}

/// What Allocate is asked for. Images of some size without a pixel (10 x 0) get an address, too:
/// only 0 x 0 goes without a buffer.
std::size_t allocationBytes(std::size_t buffer, int width, int height, int pitch) {
  const bool needsAddress = width != 0 || height != 0 || pitch != 0;
  return std::max<std::size_t>(buffer, needsAddress ? 1 : 0);
}

/// Rows of pixels: where row 0 starts, and the bytes between the starts of two rows.
template <typename Byte>
struct Rows {
  Byte* first;
  std::size_t stride;
};

/// Copies rows that may lie in one buffer.
void copyRows(Rows<const unsigned char> from, Rows<unsigned char> to, std::size_t rowBytes,
              int height) {
  if (rowBytes == 0 || height == 0) return;
  const auto rows = static_cast<std::size_t>(height);
  if (from.stride == rowBytes && to.stride == rowBytes) {
    std::memmove(to.first, from.first, rowBytes * rows);
    return;
  }
  for (std::size_t y = 0; y < rows; ++y) {
    std::memmove(to.first + y * to.stride, from.first + y * from.stride, rowBytes);
  }
}

}  // namespace

ImageData::ImageData(const ImageData& other) {
  if (!Duplicate(other)) throw std::bad_alloc();
}

ImageData::ImageData(ImageData&& other) noexcept { *this = std::move(other); }

ImageData& ImageData::operator=(const ImageData& other) {
  if (this != &other) *this = ImageData(other);
  return *this;
}

ImageData& ImageData::operator=(ImageData&& other) noexcept {
  if (this == &other) return *this;
  Release();
  data_ = std::exchange(other.data_, nullptr);
  type_ = std::exchange(other.type_, IMAGE_TYPE_INVALID);
  pitch_ = std::exchange(other.pitch_, 0);
  width_ = std::exchange(other.width_, 0);
  height_ = std::exchange(other.height_, 0);
  owns_ = std::exchange(other.owns_, false);
  valid_ = std::exchange(other.valid_, true);
  allocator_ = std::exchange(other.allocator_, nullptr);
  return *this;
}

ImageData::~ImageData() { Release(); }

bool ImageData::Create(ImageType type, int width, int height, int pitch,
                       const etl::Allocator& allocator) {
  if (bytesPerPixel(type) == 0) return Refuse("Cannot create image of type IMAGE_TYPE_INVALID.");
  if (const char* fault = shapeFault(width, height, pitch)) return Refuse(fault);
  if (std::int64_t{height} * pitch > kMaxElements) return Refuse("Failed to allocate.");
  if (data_ != nullptr && bufferBytes(type, height, pitch) == GetBufferSize()) {
    Describe(type, width, height, pitch);
    return true;
  }
  // Released first: old and new buffer together may be more than there is memory for.
  Release();
  return Allocate(type, width, height, pitch, allocator) || Refuse("Failed to allocate.");
}

bool ImageData::Create(void* data, ImageType type, int width, int height, int pitch, bool clone,
                       const etl::Allocator& allocator, bool transferOwnership) {
  if (data == nullptr) return Refuse("Invalid pointer in image creation.");
  if (const char* fault = shapeFault(width, height, pitch)) return Refuse(fault);
  if (clone && transferOwnership) {
    return Refuse("Invalid combination of flags, cannot clone the data and transfer ownership.");
  }
  if (data == data_) {
    if (width == width_ && height == height_ && pitch == pitch_) return true;
    return Refuse("Unexpected programming error.");
  }
  if (bytesPerPixel(type) == 0) return Refuse("Cannot create image of type IMAGE_TYPE_INVALID.");
  if (std::int64_t{height} * pitch > kMaxElements) return Refuse("Failed to allocate.");
  if (clone) {
    return Clone(data, type, width, height, pitch, allocator) || Refuse("Failed to allocate.");
  }
  if (LiesInOwnBuffer(data)) return Refuse("Unexpected programming error.");
  Release();
  Describe(type, width, height, pitch);
  data_ = data;
  owns_ = transferOwnership;
  allocator_ = transferOwnership ? &allocator : nullptr;
  return true;
}

bool ImageData::Copy(const ImageData& other) {
  if (this == &other) return true;
  ImageData copy;
  if (!copy.Duplicate(other)) return Refuse("Failed to allocate.");
  *this = std::move(copy);
  return true;
}

bool ImageData::Clone(const void* data, ImageType type, int width, int height, int pitch,
                      const etl::Allocator& allocator) {
  const bool reuse =
      data_ != nullptr && type == type_ && width == width_ && height == height_ && pitch_ >= pitch;
  if (!reuse) {
    // Copied before the old buffer is released: the source may be a part of it.
    ImageData copy;
    if (!copy.Allocate(type, width, height, pitch, allocator)) return false;
    copy.FillFrom(data, pitch);
    *this = std::move(copy);
    return true;
  }
  FillFrom(data, pitch);
  return true;
}

void ImageData::FillFrom(const void* data, int pitch) {
  const std::size_t pixelBytes = bytesPerPixel(type_);
  copyRows({static_cast<const unsigned char*>(data), static_cast<std::size_t>(pitch) * pixelBytes},
           {static_cast<unsigned char*>(data_), static_cast<std::size_t>(pitch_) * pixelBytes},
           static_cast<std::size_t>(width_) * pixelBytes, height_);
}

bool ImageData::Duplicate(const ImageData& other) {
  if (other.data_ == nullptr) {
    Describe(other.type_, other.width_, other.height_, other.pitch_);
    allocator_ = other.allocator_;
  } else if (!Clone(other.data_, other.type_, other.width_, other.height_, other.pitch_,
                    other.GetAllocator())) {
    return false;
  }
  valid_ = other.valid_;
  return true;
}

bool ImageData::Allocate(ImageType type, int width, int height, int pitch,
                         const etl::Allocator& allocator) {
  const std::size_t bytes = allocationBytes(bufferBytes(type, height, pitch), width, height, pitch);
  void* memory = bytes > 0 ? allocator.Allocate(bytes) : nullptr;
  if (bytes > 0 && memory == nullptr) return false;
  Describe(type, width, height, pitch);
  data_ = memory;
  owns_ = memory != nullptr;
  allocator_ = &allocator;
  return true;
}

void ImageData::Describe(ImageType type, int width, int height, int pitch) noexcept {
  type_ = type;
  width_ = width;
  height_ = height;
  pitch_ = pitch;
  valid_ = true;
}

bool ImageData::LiesInOwnBuffer(const void* data) const {
  const std::less<const void*> before;
  return owns_ && !before(data, data_) &&
         before(data, static_cast<const unsigned char*>(data_) + GetBufferSize());
}

bool ImageData::Refuse(const char* text) {
  InvalidateImage();
  return base::refuse("Image", text);
}

void ImageData::Release() noexcept {
  if (owns_) allocator_->Deallocate(data_);
  data_ = nullptr;
  owns_ = false;
}

void ImageData::Deallocate() noexcept {
  Release();
  width_ = 0;
  height_ = 0;
  pitch_ = 0;
}

void ImageData::InvalidateImage() noexcept {
  Deallocate();
  type_ = IMAGE_TYPE_INVALID;
  valid_ = false;
  allocator_ = nullptr;
}

bool ImageData::IsConsistent() const {
  if (!valid_ || bytesPerPixel(type_) == 0) return false;
  if (data_ == nullptr) return width_ == 0 && pitch_ == 0 && height_ == 0;
  return width_ >= 0 && width_ <= pitch_ && height_ >= 0;
}

double ImageData::GetPixel(int x, int y) const {
  double result = 0;
  dispatchPixelType(type_, [&](auto tag) {
    typename decltype(tag)::type pixel;
    std::memcpy(&pixel, PixelAddress(x, y), sizeof(pixel));
    result = pixelToDouble(pixel);
  });
  return result;
}

void ImageData::SetPixel(int x, int y, double v) {
  dispatchPixelType(type_, [&](auto tag) {
    const auto pixel = pixelFromDouble<typename decltype(tag)::type>(v);
    std::memcpy(PixelAddress(x, y), &pixel, sizeof(pixel));
  });
}

unsigned char* ImageData::PixelAddress(int x, int y) const {
  const std::ptrdiff_t element = x + static_cast<std::ptrdiff_t>(y) * pitch_;
  return static_cast<unsigned char*>(data_) +
         element * static_cast<std::ptrdiff_t>(bytesPerPixel(type_));
}

std::size_t ImageData::GetBufferSize() const { return bufferBytes(type_, height_, pitch_); }

const etl::Allocator& ImageData::GetAllocator() const {
  return allocator_ != nullptr ? *allocator_ : etl::StandardMemAllocator::Default();
}

}  // namespace cmnalg
