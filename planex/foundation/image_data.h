#pragma once

#include <cstddef>
#include <cstdint>

#include "planex/foundation/pixel_type.h"
#include "planex/infra/allocator.h"
#include "planex/infra/export.h"

namespace cmnalg {

/// A pitched pixel buffer, owned or borrowed.
///
/// Pixel (x, y) lives at element x + y * pitch; the buffer holds pitch * height elements. A buffer
/// is empty (no memory), valid with memory, or invalidated by a failed creation; a successful
/// creation makes it valid again. An image of some size but without a pixel (10 x 0) has a buffer
/// of no use, 0 x 0 has none. One that was moved from is empty, of invalid type. Refusals are
/// warnings on the logger "Image" and false; only copying throws (std::bad_alloc), and then leaves
/// the target as it was.
class PLANEX_EXPORT ImageData {
 public:
  ImageData() = default;
  /// @{
  /// Copies are deep, as by Copy, but throw for lack of memory.
  ImageData(const ImageData& other);
  ImageData(ImageData&& other) noexcept;
  ImageData& operator=(const ImageData& other);
  ImageData& operator=(ImageData&& other) noexcept;
  /// @}
  ~ImageData();

  /// Allocates. A present buffer, owned or borrowed, of exactly the needed byte size is kept with
  /// its contents; nothing is cleared.
  /// @param pitch     pixels between the starts of two rows; 0 means width
  /// @param allocator must outlive the buffer
  /// @return false, the image invalidated, with "Cannot create image of type
  ///         IMAGE_TYPE_INVALID.", "Cannot create image with negative width or height.", "Line
  ///         pitch cannot be smaller than the image width." or "Failed to allocate." (also where
  ///         pitch * height has no 32-bit integer)
  bool Create(ImageType type, int width, int height, int pitch, const etl::Allocator& allocator);

  /// Wraps, adopts or copies the caller's pixels.
  ///
  /// @param data   height rows of pitch pixels
  /// @param clone  copy the pixels into memory of this image (from `allocator`); otherwise the
  ///               pixels stay where they are and must outlive the image. A present buffer of
  ///               the same type, width and height and at least that pitch takes the copy and
  ///               keeps its pitch, owned or borrowed
  /// @param transferOwnership  the memory is given back through `allocator` by this image
  /// @return false, the image invalidated, with "Invalid pointer in image creation.", "Cannot
  ///         create image with negative width or height.", "Line pitch cannot be smaller than
  ///         the image width.", "Invalid combination of flags, cannot clone the data and transfer
  ///         ownership.", "Unexpected programming error." (the image's own buffer in another
  ///         shape, or a view that starts inside the memory it owns; its buffer in the present
  ///         shape: nothing happens, true), "Cannot create image of type IMAGE_TYPE_INVALID." or
  ///         "Failed to allocate." (without cloning, too, where pitch * height has no 32-bit
  ///         integer)
  bool Create(void* data, ImageType type, int width, int height, int pitch, bool clone,
              const etl::Allocator& allocator, bool transferOwnership);

  /// Deep copy with the source's pitch and allocator, always into memory of its own.
  /// @return false, the image invalidated, with "Failed to allocate."
  bool Copy(const ImageData& other);

  /// Releases the buffer; type, sizes and pitch become those of an empty image of that type.
  void Deallocate() noexcept;
  /// Releases the buffer; type invalid, sizes 0, not valid, no allocator.
  void InvalidateImage() noexcept;

  /// Whether it is valid, of a type below 11, and has sizes that go with its buffer: all 0
  /// without one, 0 <= width <= pitch and 0 <= height with one.
  bool IsConsistent() const;

  /// The pixel as a double; RGB gives (R + G + B) / 3, an invalid type 0. No bounds check.
  double GetPixel(int x, int y) const;
  /// Stores v in the pixel's type. Integer types take v truncated toward zero and clamped to the
  /// range of the 32-bit (64-bit types: 64-bit) integer of their signedness, and keep the low
  /// bits that fit; NaN is stored as 0. RGB sets all channels to the low byte; an invalid type
  /// does nothing. No bounds check.
  void SetPixel(int x, int y, double v);

  /// The type of the pixels.
  ImageType GetType() const { return type_; }
  /// @{
  /// In pixels; the pitch is the distance between the starts of two rows.
  int GetWidth() const { return width_; }
  int GetHeight() const { return height_; }
  int GetPitch() const { return pitch_; }
  /// @}
  /// @{
  /// First pixel of row 0; null for an empty buffer.
  void* GetData() { return data_; }
  const void* GetData() const { return data_; }
  /// @}
  /// Whether the pixels are given back by this object.
  bool OwnsData() const { return owns_; }
  /// False after a failed creation.
  bool IsValid() const { return valid_; }
  /// Bytes of the buffer: height * pitch * bytes per pixel.
  std::size_t GetBufferSize() const;
  /// The allocator of the buffer, the standard one where there is none.
  const etl::Allocator& GetAllocator() const;

 private:
  bool Clone(const void* data, ImageType type, int width, int height, int pitch,
             const etl::Allocator& allocator);
  bool Duplicate(const ImageData& other);
  void FillFrom(const void* data, int pitch);
  bool Allocate(ImageType type, int width, int height, int pitch, const etl::Allocator& allocator);
  void Describe(ImageType type, int width, int height, int pitch) noexcept;
  void Release() noexcept;
  bool Refuse(const char* text);
  bool LiesInOwnBuffer(const void* data) const;
  unsigned char* PixelAddress(int x, int y) const;

  void* data_ = nullptr;
  ImageType type_ = IMAGE_TYPE_INVALID;
  std::int32_t pitch_ = 0;
  std::int32_t width_ = 0;
  std::int32_t height_ = 0;
  bool owns_ = false;
  bool valid_ = true;
  const etl::Allocator* allocator_ = nullptr;
};

}  // namespace cmnalg
