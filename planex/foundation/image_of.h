#pragma once

#include <cstddef>

#include "planex/foundation/image.h"

namespace cmnalg {

/// An image whose pixels are of type T.
///
/// Instances exist for the eleven pixel types. Its documents are those of Image; reading accepts
/// pixels of type T only.
template <typename T>
class ImageOf final : public Image {
 public:
  /// An empty image; its type is that of T nevertheless.
  ImageOf() = default;
  /// @{
  /// As Create with the same arguments.
  ImageOf(int width, int height, const etl::Allocator& allocator) {
    Create(width, height, 0, allocator);
  }
  ImageOf(int width, int height, int pitch, const etl::Allocator& allocator) {
    Create(width, height, pitch, allocator);
  }
  ImageOf(T* data, int width, int height, int pitch, bool clone, const etl::Allocator& allocator,
          bool transferOwnership) {
    Create(data, width, height, pitch, clone, allocator, transferOwnership);
  }
  ImageOf(const Image& other, bool clone) { Create(other, clone); }
  /// @}

  /// @{
  /// As Image::Create with the type of T; without a pitch rows have no padding.
  bool Create(int width, int height, const etl::Allocator& allocator) {
    return Create(width, height, 0, allocator);
  }
  bool Create(int width, int height, int pitch, const etl::Allocator& allocator) {
    return Image::Create(kType, width, height, pitch, allocator);
  }
  bool Create(T* data, int width, int height, int pitch, bool clone,
              const etl::Allocator& allocator, bool transferOwnership) {
    return Image::Create(data, kType, width, height, pitch, clone, allocator, transferOwnership);
  }
  /// @}
  /// As Image::Create(other, clone); false without a message when the types differ.
  bool Create(const Image& other, bool clone) {
    return other.GetType() == kType && Image::Create(other, clone);
  }

  ImageType GetType() const override { return kType; }
  std::unique_ptr<etl::IVisitable> CloneVisitable() const override {
    return std::make_unique<ImageOf>(*this);
  }

  /// @{
  /// First pixel of row y; y is not checked.
  T* GetRowPtr(int y) { return static_cast<T*>(GetData()) + RowOffset(y); }
  const T* GetRowPtr(int y) const { return static_cast<const T*>(GetData()) + RowOffset(y); }
  /// @}
  /// @{
  /// Pixel (x, y); indices are not checked.
  T& Pix(int x, int y) { return GetRowPtr(y)[x]; }
  T Pix(int x, int y) const { return GetRowPtr(y)[x]; }
  /// @}

  /// Sets every pixel of every row.
  void SetAll(T value) {
    for (int y = 0; y < GetHeight(); ++y) {
      T* row = GetRowPtr(y);
      for (int x = 0; x < GetWidth(); ++x) row[x] = value;
    }
  }

 protected:
  bool CanHold(ImageType type) const override { return type == kType || bytesPerPixel(type) == 0; }

 private:
  static constexpr ImageType kType = PixelTypeOf<T>::value;

  std::ptrdiff_t RowOffset(int y) const { return static_cast<std::ptrdiff_t>(y) * GetPitch(); }
};

extern template class PLANEX_EXPORT ImageOf<std::uint8_t>;
extern template class PLANEX_EXPORT ImageOf<std::uint16_t>;
extern template class PLANEX_EXPORT ImageOf<std::uint32_t>;
extern template class PLANEX_EXPORT ImageOf<std::uint64_t>;
extern template class PLANEX_EXPORT ImageOf<std::int8_t>;
extern template class PLANEX_EXPORT ImageOf<std::int16_t>;
extern template class PLANEX_EXPORT ImageOf<std::int32_t>;
extern template class PLANEX_EXPORT ImageOf<std::int64_t>;
extern template class PLANEX_EXPORT ImageOf<float>;
extern template class PLANEX_EXPORT ImageOf<double>;
extern template class PLANEX_EXPORT ImageOf<PixelRGB>;

}  // namespace cmnalg
