#include "planex/foundation/image.h"

#include <cmath>
#include <utility>

#include "planex/foundation/image_of.h"
#include "planex/infra/class_repository.h"
#include "planex/infra/float_environment.h"
#include "planex/infra/refusal.h"

namespace cmnalg {
namespace {

[[maybe_unused]] const bool kRegistered = etl::registerClass<Image>("Image");

bool isFinite(const Vec<3, double>& v) {
  return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

}  // namespace

const etl::StandardMemAllocator Image::s_defaultImageAllocator;

Image::Image() = default;

Image::Image(ImageType type, int width, int height, const etl::Allocator& allocator) {
  data_.Create(type, width, height, 0, allocator);
}

Image::Image(const Image& other, bool clone) { TakeOver(other, clone); }

Image::Image(const Image& other) = default;

Image::Image(Image&& other) noexcept
    : IVisitable(other),
      PixelSize(other.PixelSize),
      Origin(other.Origin),
      HandleZeroPixels(other.HandleZeroPixels),
      data_(std::move(other.data_)) {}

Image& Image::operator=(const Image& other) {
  if (this == &other) return *this;
  if (CanHold(other.data_.GetType())) {
    data_ = other.data_;  // first: it may throw
  } else {
    data_.InvalidateImage();
  }
  impro::CopyImageMetadata(other, *this);
  return *this;
}

Image& Image::operator=(Image&& other) noexcept {
  if (this == &other) return *this;
  if (CanHold(other.data_.GetType())) {
    data_ = std::move(other.data_);
  } else {
    data_.InvalidateImage();
  }
  impro::CopyImageMetadata(other, *this);
  return *this;
}

Image::~Image() = default;

bool Image::Create(const Image& other, bool clone) {
  if (this == &other) return true;
  if (other.GetData() != nullptr && !CanHold(other.GetType())) return RefuseType();
  return TakeOver(other, clone);
}

bool Image::TakeOver(const Image& other, bool clone) {
  // A view shares the pixels of a const image; the class leaves it to its users not to write.
  if (!data_.Create(const_cast<void*>(other.GetData()), other.GetType(), other.GetWidth(),
                    other.GetHeight(), other.GetPitch(), clone, s_defaultImageAllocator, false)) {
    return false;
  }
  impro::CopyImageMetadata(other, *this);
  return true;
}

bool Image::Create(ImageType type, int width, int height, int pitch,
                   const etl::Allocator& allocator) {
  if (!CanHold(type)) return RefuseType();
  return data_.Create(type, width, height, pitch, allocator);
}

bool Image::Create(void* data, ImageType type, int width, int height, int pitch, bool clone,
                   const etl::Allocator& allocator, bool transferOwnership) {
  if (!CanHold(type)) return RefuseType();
  return data_.Create(data, type, width, height, pitch, clone, allocator, transferOwnership);
}

bool Image::RefuseType() {
  data_.InvalidateImage();
  return base::refuse("Image", "Unexpected programming error.");
}

ImageType Image::GetType() const { return data_.GetType(); }

bool Image::CanHold(ImageType /*type*/) const { return true; }

bool Image::IsConsistent() const {
  const base::DefaultFloatEnvironment environment;
  const bool sizesAreFine =
      isFinite(PixelSize) && PixelSize.x >= 0 && PixelSize.y >= 0 && PixelSize.z >= 0;
  const bool zerosAreFine =
      HandleZeroPixels == ZeroPixels::Default || HandleZeroPixels == ZeroPixels::MissingData;
  return sizesAreFine && isFinite(Origin) && zerosAreFine && data_.IsConsistent();
}

const char* Image::GetClassName() const { return "Image"; }

std::unique_ptr<etl::IVisitable> Image::CloneVisitable() const {
  return std::make_unique<Image>(*this);
}

namespace impro {

const char* GetType(const Image& image) { return ImageTypeString(image.GetType()); }

void CopyImageMetadata(const Image& from, Image& to) {
  to.PixelSize = from.PixelSize;
  to.Origin = from.Origin;
  to.HandleZeroPixels = from.HandleZeroPixels;
}

}  // namespace impro

template class ImageOf<std::uint8_t>;
template class ImageOf<std::uint16_t>;
template class ImageOf<std::uint32_t>;
template class ImageOf<std::uint64_t>;
template class ImageOf<std::int8_t>;
template class ImageOf<std::int16_t>;
template class ImageOf<std::int32_t>;
template class ImageOf<std::int64_t>;
template class ImageOf<float>;
template class ImageOf<double>;
template class ImageOf<PixelRGB>;

}  // namespace cmnalg
