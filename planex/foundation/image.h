#pragma once

#include <cstdint>
#include <memory>

#include "planex/foundation/image_data.h"
#include "planex/foundation/pixel_type.h"
#include "planex/foundation/vec.h"
#include "planex/infra/allocator.h"
#include "planex/infra/export.h"
#include "planex/infra/visitable.h"

namespace cmnalg {

/// What a pixel without measurement looks like.
enum class ZeroPixels : std::int32_t {
  Default = 0,      ///< every value is a measurement
  MissingData = 1,  ///< 0 in an integer image and NaN in a floating image mean no measurement
};

/// A typed pixel buffer with the numbers that tie pixels to physical units.
///
/// Component 0 belongs to the column index, 1 to the row index, 2 to the stored value:
///
///     physical = index * PixelSize + Origin
///
/// Creation reports refusals as ImageData does and never throws; copying an image is deep and
/// may throw std::bad_alloc. An image that was moved from has no buffer.
class PLANEX_EXPORT Image : public etl::IVisitable {
 public:
  Vec<3, double> PixelSize{1, 1, 1};                  ///< physical step per index, or per value
  Vec<3, double> Origin{0, 0, 0};                     ///< physical value at index or value 0
  ZeroPixels HandleZeroPixels = ZeroPixels::Default;  ///< whether there may be missing pixels

  /// Allocator of the images that the library itself creates.
  static const etl::StandardMemAllocator s_defaultImageAllocator;

  /// An empty image of invalid type.
  Image();
  /// @{
  /// As Create with the same arguments and, without a pitch, one as wide as the image.
  Image(ImageType type, int width, int height, const etl::Allocator& allocator);
  Image(const Image& other, bool clone);
  /// @}
  /// @{
  /// Copies are deep.
  Image(const Image& other);
  Image(Image&& other) noexcept;
  Image& operator=(const Image& other);
  Image& operator=(Image&& other) noexcept;
  /// @}
  ~Image() override;

  /// Takes over the other image's shape and pixels, as a view (clone false: the other's pixels
  /// must outlive this image) or as a copy, then PixelSize, Origin and HandleZeroPixels.
  /// An image from itself does nothing. @return false as ImageData::Create, metadata untouched
  bool Create(const Image& other, bool clone);
  /// Allocates: ImageData::Create.
  bool Create(ImageType type, int width, int height, int pitch, const etl::Allocator& allocator);
  /// Wraps, adopts or copies: ImageData::Create.
  bool Create(void* data, ImageType type, int width, int height, int pitch, bool clone,
              const etl::Allocator& allocator, bool transferOwnership);

  /// The type of the pixels; ImageOf<T> answers with its fixed type.
  /// Creating or assigning another type through a reference to Image leaves an ImageOf<T>
  /// invalidated; creation says "Unexpected programming error." and returns false.
  virtual ImageType GetType() const;
  /// @{
  /// The class that the type belongs to, see isIntegerType and its like.
  bool IsIntegerType() const { return isIntegerType(GetType()); }
  bool IsFloatingType() const { return isFloatingType(GetType()); }
  bool IsSignedType() const { return isSignedType(GetType()); }
  bool IsUnsignedType() const { return isUnsignedType(GetType()); }
  bool IsScalarType() const { return isScalarType(GetType()); }
  /// @}

  /// Whether PixelSize is finite and not negative, Origin finite, HandleZeroPixels 0 or 1, and
  /// the buffer consistent.
  bool IsConsistent() const;

  /// @{
  /// Forwarded to the buffer, see ImageData.
  int GetWidth() const { return data_.GetWidth(); }
  int GetHeight() const { return data_.GetHeight(); }
  int GetPitch() const { return data_.GetPitch(); }
  void* GetData() { return data_.GetData(); }
  const void* GetData() const { return data_.GetData(); }
  std::size_t GetRawBufferSize() const { return data_.GetBufferSize(); }
  double GetPixel(int x, int y) const { return data_.GetPixel(x, y); }
  void SetPixel(int x, int y, double v) { data_.SetPixel(x, y, v); }
  void Deallocate() { data_.Deallocate(); }
  void InvalidateImage() { data_.InvalidateImage(); }
  const ImageData& GetImageData() const { return data_; }
  /// @}

  const char* GetClassName() const override;  ///< "Image", for every pixel type
  /// Members "PixelSize", "Origin" (sub-objects x, y, z), "HandleZeroPixels" ("Default",
  /// "MissingData", "Unknown" for any other value, which reads back as 2) and "Data" with
  /// "ImageType" (the name in documents), "Width", "Height" and "Pixels" (rows without padding).
  ///
  /// When read, the decoded pixels must have exactly the announced size before anything is
  /// allocated; the buffer is a fresh one with pitch = width. Sizes that are negative or have too
  /// large a product, names of no type, "invalid" with other sizes than 0 x 0, and in an
  /// ImageOf<T> another type than T's are reading errors. On an error the image stays as it was.
  void Visit(etl::IVisitor& visitor) override;
  std::unique_ptr<etl::IVisitable> CloneVisitable() const override;

 protected:
  /// Whether pixels of that type may be stored; invalid types always may, as "no pixels".
  virtual bool CanHold(ImageType type) const;

 private:
  bool TakeOver(const Image& other, bool clone);
  bool RefuseType();
  void VisitData(etl::IVisitor& visitor, ImageData& data) const;

  ImageData data_;
};

namespace impro {

/// @return the upper-case name of the image's type
PLANEX_EXPORT const char* GetType(const Image& image);
/// Copies PixelSize, Origin and HandleZeroPixels.
PLANEX_EXPORT void CopyImageMetadata(const Image& from, Image& to);

/// Whether the image has pixels to work on: PixelSize not negative (a NaN fails), a type below 11
/// that is also the type of its buffer, a buffer of at least one byte, and a width of at least 1.
/// Unlike IsConsistent it accepts infinite PixelSize and any Origin.
inline bool HoldsPixels(const Image& image) {
  const Vec<3, double>& size = image.PixelSize;
  return size.x >= 0 && size.y >= 0 && size.z >= 0 && bytesPerPixel(image.GetType()) > 0 &&
         image.GetType() == image.GetImageData().GetType() && image.GetData() != nullptr &&
         image.GetRawBufferSize() > 0 && image.GetWidth() >= 1;
}

}  // namespace impro
}  // namespace cmnalg
