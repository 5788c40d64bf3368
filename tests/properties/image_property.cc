// Sequences of operations on images and matrices, against a plain record of what each must look
// like. Pixels come from buffers without a byte to spare, memory from an allocator that counts and
// can fail.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "planex/foundation/image.h"
#include "planex/foundation/image_of.h"
#include "planex/foundation/matrix.h"
#include "tests/support/byte_source.h"
#include "tests/support/property.h"

namespace {

using cmnalg::Image;
using cmnalg::ImageOf;
using cmnalg::ImageType;

constexpr int kMaxOperations = 64;
constexpr std::int64_t kMaxPixels = 4096;
constexpr std::int64_t kLargestImage = 2147483647;

class CountingAllocator final : public etl::Allocator {
 public:
  void* Allocate(std::size_t bytes) const noexcept override {
    if (fails) return nullptr;
    ++live;
    return std::malloc(bytes);
  }
  void Deallocate(void* memory) const noexcept override {
    CHECK_HOLDS(memory != nullptr);
    --live;
    std::free(memory);
  }
  mutable int live = 0;
  bool fails = false;
};

/// A size that a test has memory for, or that no image can have.
struct Shape {
  int width, height, pitch;

  explicit Shape(test::ByteSource& source) {
    width = Length(source);
    height = Length(source);
    pitch = source.Flip() ? 0 : Length(source);
    if (source.Flip()) pitch = static_cast<int>(std::int64_t{width} % 4096 + 3);
    const std::int64_t pixels = Pixels();
    if (pixels > kMaxPixels && pixels <= kLargestImage) height = 2147483647;
    if (Pixels() > kMaxPixels && Pixels() <= kLargestImage) height = width = pitch = 2;
  }

  static int Length(test::ByteSource& source) {
    const auto kind = source.Raw<std::uint8_t>();
    return kind < 192 ? kind % 24 : static_cast<int>(source.Count());
  }
  std::int64_t RealPitch() const { return pitch == 0 ? width : pitch; }
  std::int64_t Pixels() const { return RealPitch() * height; }
  bool IsPossible() const {
    return width >= 0 && height >= 0 && RealPitch() >= width && Pixels() <= kLargestImage;
  }
};

ImageType anyType(test::ByteSource& source) {
  return static_cast<ImageType>(source.Between(0, 15) == 0 ? source.Between(-1, 12)
                                                           : source.Between(0, 10));
}

/// Reads all pixels: the sanitizer tells whether they are there.
void checkImage(const Image& image) {
  const cmnalg::ImageData& data = image.GetImageData();
  if (!data.IsValid()) {
    CHECK_HOLDS(data.GetData() == nullptr && data.GetWidth() == 0 && data.GetHeight() == 0);
    CHECK_HOLDS(!image.IsConsistent());
    return;
  }
  CHECK_HOLDS(data.GetWidth() >= 0 && data.GetHeight() >= 0 && data.GetPitch() >= data.GetWidth());
  const std::size_t bytes = static_cast<std::size_t>(data.GetHeight()) *
                            static_cast<std::size_t>(data.GetPitch()) *
                            cmnalg::bytesPerPixel(data.GetType());
  CHECK_HOLDS(data.GetBufferSize() == bytes);
  if (data.GetData() == nullptr || data.GetWidth() == 0 || data.GetHeight() == 0) return;
  for (const int x : {0, data.GetWidth() - 1}) {
    for (const int y : {0, data.GetHeight() - 1}) {
      const double value = image.GetPixel(x, y);
      CHECK_HOLDS(test::sameBits(value, image.GetPixel(x, y)));
    }
  }
}

bool samePixels(const Image& a, const Image& b) {
  const ImageType type = a.GetImageData().GetType();
  if (type != b.GetImageData().GetType() || a.GetWidth() != b.GetWidth() ||
      a.GetHeight() != b.GetHeight()) {
    return false;
  }
  if (a.GetWidth() == 0 || a.GetHeight() == 0) return true;  // with or without an address
  if (a.GetData() == nullptr || b.GetData() == nullptr) return a.GetData() == b.GetData();
  const std::size_t pixel = cmnalg::bytesPerPixel(type);
  const auto* const rowsA = static_cast<const unsigned char*>(a.GetData());
  const auto* const rowsB = static_cast<const unsigned char*>(b.GetData());
  for (int y = 0; y < a.GetHeight(); ++y) {
    const auto row = static_cast<std::size_t>(y);
    if (std::memcmp(rowsA + row * static_cast<std::size_t>(a.GetPitch()) * pixel,
                    rowsB + row * static_cast<std::size_t>(b.GetPitch()) * pixel,
                    static_cast<std::size_t>(a.GetWidth()) * pixel) != 0) {
      return false;
    }
  }
  return true;
}

class ImagePlay {
 public:
  /// The allocator must outlive the images.
  ImagePlay(test::ByteSource& source, CountingAllocator& allocator)
      : source_(source), allocator_(allocator) {}

  void Run() {
    for (int i = 0; i < kMaxOperations && !source_.IsEmpty(); ++i) {
      Image& image = Choose();
      Operate(image);
      allocator_.fails = false;
      log_.Clear();
      checkImage(image);
      CHECK_HOLDS(typed_.GetType() == cmnalg::IMAGE_TYPE_UINT16);
    }
  }

 private:
  Image& Choose() {
    const int number = source_.Between(0, 3);
    return number == 3 ? static_cast<Image&>(typed_) : images_[number];
  }

  bool Accepts(const Image& image, ImageType type) const {
    return cmnalg::bytesPerPixel(type) > 0 &&
           (&image != &typed_ || type == cmnalg::IMAGE_TYPE_UINT16);
  }

  void Operate(Image& image) {
    switch (source_.Between(0, 12)) {
      case 0:
      case 1:
        return Create(image);
      case 2:
      case 3:
      case 4:
        return FromPixels(image);
      case 5:
        return FromImage(image);
      case 6:
        return Assign(image);
      case 7:
        return Move(image);
      case 8:
        image.Deallocate();
        CHECK_HOLDS(image.GetData() == nullptr && image.GetWidth() == 0);
        return;
      case 9:
        image.InvalidateImage();
        CHECK_HOLDS(!image.GetImageData().IsValid());
        return;
      case 10:
        return SetPixels(image);
      case 11:
        return FromOwnRows(image);
      default:
        return CopyData(image);
    }
  }

  void Create(Image& image) {
    const ImageType type = anyType(source_);
    const Shape shape(source_);
    allocator_.fails = source_.Between(0, 15) == 0;
    const std::size_t before = image.GetRawBufferSize();
    const void* const buffer = image.GetData();
    const bool done = image.Create(type, shape.width, shape.height, shape.pitch, allocator_);
    log_.CheckRefusal(done);
    const bool possible = Accepts(image, type) && shape.IsPossible();
    CHECK_HOLDS(possible || !done);
    CHECK_HOLDS(!possible || done || allocator_.fails);
    if (done && buffer != nullptr && before == image.GetRawBufferSize()) {
      CHECK_HOLDS(image.GetData() == buffer);
    }
    if (done) Fill(image);
  }

  /// Wraps, adopts or copies.
  void FromPixels(Image& image) {
    const ImageType type = anyType(source_);
    const Shape shape(source_);
    const bool clone = source_.Flip();
    const bool adopt = source_.Between(0, 3) == 0;
    const bool null = source_.Between(0, 15) == 0;
    const bool possible = Accepts(image, type) && shape.IsPossible() && !null && !(clone && adopt);
    const std::size_t bytes =
        shape.IsPossible() ? static_cast<std::size_t>(shape.Pixels()) * cmnalg::bytesPerPixel(type)
                           : 0;
    void* memory = nullptr;
    if (adopt) {
      memory = allocator_.Allocate(std::max<std::size_t>(bytes, 1));
    } else {
      memory = buffers_.emplace_back(new unsigned char[bytes]).get();
    }
    if (bytes > 0) std::memset(memory, source_.Raw<std::uint8_t>(), bytes);
    allocator_.fails = source_.Between(0, 15) == 0;
    const bool done = image.Create(null ? nullptr : memory, type, shape.width, shape.height,
                                   shape.pitch, clone, allocator_, adopt);
    log_.CheckRefusal(done);
    CHECK_HOLDS(possible || !done);
    CHECK_HOLDS(!possible || done || (clone && allocator_.fails));
    if (done && !clone) CHECK_HOLDS(image.GetData() == memory);
    if (adopt && !done) allocator_.Deallocate(memory);
  }

  void FromImage(Image& image) {
    const Image& other = Choose();
    const bool clone = source_.Flip();
    Image copy;
    const bool copied = copy.Create(other, clone);
    log_.Clear();
    if (copied)
      CHECK_HOLDS(samePixels(copy, other) && (clone || copy.GetData() == other.GetData()));
    if (&image == &other || !clone) return;  // views would outlive what they show
    CHECK_HOLDS(image.Create(other, true) == (copied && Accepts(image, other.GetType())));
    if (image.GetImageData().IsValid() && copied) CHECK_HOLDS(samePixels(image, copy));
  }

  /// All rows but the first of an image become the image.
  void FromOwnRows(Image& image) {
    if (image.GetData() == nullptr || image.GetHeight() < 2 || image.GetWidth() == 0) return;
    const ImageType type = image.GetType();
    const int pitch = image.GetPitch();
    auto* const second = static_cast<unsigned char*>(image.GetData()) +
                         static_cast<std::size_t>(pitch) * cmnalg::bytesPerPixel(type);
    const int width = image.GetWidth();
    const int height = image.GetHeight() - 1;
    Image rows(type, 0, 0, allocator_);
    CHECK_HOLDS(rows.Create(second, type, width, height, pitch, true, allocator_, false));
    const bool clone = source_.Flip();
    const bool owned = image.GetImageData().OwnsData();
    const bool done = image.Create(second, type, width, height, pitch, clone, allocator_, false);
    log_.CheckRefusal(done);
    CHECK_HOLDS(done == (clone || !owned));
    if (done) CHECK_HOLDS(samePixels(image, rows));
  }

  void Assign(Image& image) {
    const Image& other = Choose();
    const bool fits = &image != &typed_ || other.GetType() == cmnalg::IMAGE_TYPE_UINT16 ||
                      cmnalg::bytesPerPixel(other.GetImageData().GetType()) == 0;
    allocator_.fails = source_.Between(0, 7) == 0;
    const Image before(image, true);
    log_.Clear();
    const bool hadPixels = image.GetData() != nullptr;
    try {
      image = other;
      allocator_.fails = false;
      if (fits) CHECK_HOLDS(samePixels(image, other));
    } catch (const std::bad_alloc&) {
      CHECK_HOLDS(allocator_.fails);
      CHECK_HOLDS(!hadPixels || samePixels(image, before));
    }
  }

  void Move(Image& image) {
    Image& other = Choose();
    if (&image == &other) return;
    const bool fits = &image != &typed_ || other.GetType() == cmnalg::IMAGE_TYPE_UINT16;
    const void* const pixels = other.GetData();
    image = std::move(other);
    if (fits && pixels != nullptr) CHECK_HOLDS(image.GetData() == pixels);
    checkImage(other);  // NOLINT(bugprone-use-after-move): a state of its own
  }

  void SetPixels(Image& image) {
    const double value = source_.Real();
    if (image.GetData() == nullptr || image.GetWidth() == 0 || image.GetHeight() == 0) return;
    image.SetPixel(image.GetWidth() - 1, image.GetHeight() - 1, value);
    const double stored = image.GetPixel(image.GetWidth() - 1, image.GetHeight() - 1);
    const bool isSmall = value >= 0 && value <= 127 && value == static_cast<int>(value);
    CHECK_HOLDS(!isSmall || stored == value);
    CHECK_HOLDS(image.IsFloatingType() || stored == stored);
  }

  void CopyData(Image& image) {
    cmnalg::ImageData copy;
    allocator_.fails = source_.Between(0, 7) == 0;
    const bool done = copy.Copy(image.GetImageData());
    log_.CheckRefusal(done);
    CHECK_HOLDS(done || allocator_.fails);
    if (done) CHECK_HOLDS(copy.GetBufferSize() == image.GetRawBufferSize());
    if (done) CHECK_HOLDS(copy.GetData() == nullptr || copy.GetData() != image.GetData());
  }

  static void Fill(Image& image) {
    if (image.GetRawBufferSize() > 0) std::memset(image.GetData(), 1, image.GetRawBufferSize());
  }

  test::ByteSource& source_;
  CountingAllocator& allocator_;
  test::CheckedLog log_;
  std::vector<std::unique_ptr<unsigned char[]>> buffers_;  // which images may still show
  Image images_[3];
  ImageOf<std::uint16_t> typed_;
};

/// Shapes, products and inverses of matrices.
void playMatrices(test::ByteSource& source) {
  test::CheckedLog log;
  cmnalg::Matrix<double> a;
  const Shape shape(source);
  const bool done = a.Create(shape.height, shape.width, shape.pitch);
  log.CheckRefusal(done);
  CHECK_HOLDS(done == shape.IsPossible());
  const int rows = source.Between(0, 5);
  const int cols = source.Between(0, 5);
  std::vector<double> values(25);
  for (double& value : values) value = source.Real();
  const auto b = cmnalg::Matrix<double>::FromRows(rows, cols, values.data());
  const auto c = cmnalg::Matrix<double>::FromRows(cols, source.Between(0, 5), values.data());
  const auto product = b * c;
  CHECK_HOLDS(product.Height() == rows && product.Width() == c.Width());
  CHECK_HOLDS((c * cmnalg::Matrix<double>::Identity(6, 6)).IsEmpty());
  cmnalg::Matrix<double> copy;
  copy = b;
  CHECK_HOLDS(copy.Height() == rows && copy.Width() == cols);
}

}  // namespace

PLANEX_PROPERTY(image) {
  if (source.Between(0, 7) == 0) {
    playMatrices(source);
    return;
  }
  CountingAllocator allocator;
  ImagePlay(source, allocator).Run();
  CHECK_HOLDS(allocator.live == 0);
}
