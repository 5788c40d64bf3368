// Sequences of operations on images, against a plain record of what each must look like. Pixels
// come from buffers without a byte to spare, memory from an allocator that counts and can fail.

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "planex/foundation/image.h"
#include "planex/foundation/image_of.h"
#include "planex/foundation/pixel_dispatch.h"
#include "planex/infra/json_deserializer.h"
#include "planex/infra/json_serializer.h"
#include "planex/infra/out_stream.h"
#include "tests/support/byte_source.h"
#include "tests/support/counting_allocator.h"
#include "tests/support/property.h"

namespace {

using cmnalg::Image;
using cmnalg::ImageOf;
using cmnalg::ImageType;
using Bytes = std::vector<unsigned char>;

constexpr int kMaxOperations = 64;
constexpr std::int64_t kMaxPixels = 4096;
constexpr std::int64_t kLargestImage = 2147483647;

/// A size that a test has memory for, or that no image can have.
struct Shape {
  int width, height, pitch;

  explicit Shape(test::ByteSource& source) {
    width = Length(source);
    height = Length(source);
    pitch = source.Flip() ? 0 : Length(source);
    if (source.Flip()) pitch = static_cast<int>(std::int64_t{width} % 4096 + 3);
    if (Pixels() > kMaxPixels && Pixels() <= kLargestImage) height = 2147483647;
    if (Pixels() > kMaxPixels && Pixels() <= kLargestImage) height = width = pitch = 2;
  }

  static int Length(test::ByteSource& source) {
    const auto kind = source.Raw<std::uint8_t>();
    return kind < 224 ? kind % 7 : static_cast<int>(source.Count());
  }
  int RealPitch() const { return pitch == 0 ? width : pitch; }
  std::int64_t Pixels() const { return std::int64_t{RealPitch()} * height; }
  bool IsPossible() const {
    return width >= 0 && height >= 0 && RealPitch() >= width && Pixels() <= kLargestImage;
  }
  bool HasMemory() const { return width != 0 || height != 0 || pitch != 0; }
};

/// What an image must look like.
struct State {
  ImageType type = cmnalg::IMAGE_TYPE_INVALID;
  int width = 0, height = 0, pitch = 0;
  const void* data = nullptr;
  bool owns = false, valid = false;

  friend bool operator==(const State& a, const State& b) {
    const auto all = [](const State& s) {
      return std::tie(s.type, s.width, s.height, s.pitch, s.data, s.owns, s.valid);
    };
    return all(a) == all(b);
  }
};

State stateOf(const cmnalg::ImageData& data) {
  return {data.GetType(), data.GetWidth(), data.GetHeight(), data.GetPitch(),
          data.GetData(), data.OwnsData(), data.IsValid()};
}
State stateOf(const Image& image) { return stateOf(image.GetImageData()); }

/// Rows without padding.
Bytes pixelsOf(const void* data, std::size_t rowBytes, std::size_t stride, int height) {
  Bytes pixels;
  for (int y = 0; y < height && rowBytes > 0 && data != nullptr; ++y) {
    const auto* const row =
        static_cast<const unsigned char*>(data) + static_cast<std::size_t>(y) * stride;
    pixels.insert(pixels.end(), row, row + rowBytes);
  }
  return pixels;
}
Bytes pixelsOf(const State& image) {
  const std::size_t bytes = cmnalg::bytesPerPixel(image.type);
  return pixelsOf(image.data, static_cast<std::size_t>(image.width) * bytes,
                  static_cast<std::size_t>(image.pitch) * bytes, image.height);
}
Bytes pixelsOf(const Image& image) { return pixelsOf(stateOf(image)); }

/// What a pixel gives back: integers of up to 32 bits keep the low bits of the 32-bit integer of
/// their signedness that is nearest to the truncated value.
template <typename T>
double storedAs(double value) {
  if constexpr (std::is_floating_point_v<T>) return static_cast<double>(static_cast<T>(value));
  if constexpr (std::is_same_v<T, cmnalg::PixelRGB>) return storedAs<std::uint8_t>(value);
  if constexpr (std::is_integral_v<T>) {
    using Narrow = std::conditional_t<std::is_signed_v<T>, std::int32_t, std::uint32_t>;
    using Limits = std::numeric_limits<std::conditional_t<sizeof(T) == 8, T, Narrow>>;
    const long double exact = std::isnan(value) ? 0 : value;  // has all bits of 64-bit integers
    const auto clamped = std::clamp<long double>(exact, Limits::min(), Limits::max());
    return static_cast<double>(static_cast<T>(static_cast<decltype(Limits::max())>(clamped)));
  }
  return 0;
}

bool sameMetadata(const Image& a, const Image& b) {
  return a.PixelSize == b.PixelSize && a.Origin == b.Origin &&
         a.HandleZeroPixels == b.HandleZeroPixels;
}

struct GiveBack {
  const etl::Allocator& allocator;
  void operator()(void* memory) const { allocator.Deallocate(memory); }
};

template <typename T>
class ImagePlay {
 public:
  /// The allocator must outlive the images.
  ImagePlay(test::ByteSource& source, CountingAllocator& allocator)
      : source_(source), allocator_(allocator) {}

  void Run() {
    constexpr void (ImagePlay::*kOperations[])(Image&) = {
        &ImagePlay::Create,    &ImagePlay::Create,      &ImagePlay::Create,   &ImagePlay::Create,
        &ImagePlay::FromImage, &ImagePlay::FromOwnRows, &ImagePlay::Assign,   &ImagePlay::Move,
        &ImagePlay::SetPixel,  &ImagePlay::Clear,       &ImagePlay::CopyData, &ImagePlay::ReadBack};
    for (int i = 0; i < kMaxOperations && !source_.IsEmpty(); ++i) {
      Image& image = Choose();
      image.PixelSize = {static_cast<double>(source_.Raw<std::uint8_t>()), 1, 2};
      image.Origin = {0, static_cast<double>(i), -1};
      image.HandleZeroPixels = static_cast<cmnalg::ZeroPixels>(i % 2);
      (this->*source_.OneOf(kOperations))(image);
      allocator_.fails = false;
      log_.Clear();
      const State state = stateOf(image);
      CHECK_HOLDS(image.GetRawBufferSize() == static_cast<std::size_t>(state.height) *
                                                  static_cast<std::size_t>(state.pitch) *
                                                  cmnalg::bytesPerPixel(state.type));
      CHECK_HOLDS(image.IsConsistent() == (state.valid && cmnalg::bytesPerPixel(state.type) > 0));
      CHECK_HOLDS(typed_.GetType() == kType);
    }
  }

 private:
  static constexpr ImageType kType = cmnalg::PixelTypeOf<T>::value;

  Image& Choose() {
    const int number = source_.Between(0, 3);
    return number == 3 ? static_cast<Image&>(typed_) : images_[number];
  }

  ImageType AnyType() {
    const int kind = source_.Between(0, 15);
    return kind == 0  ? static_cast<ImageType>(source_.Between(-1, 12))
           : kind < 8 ? kType
                      : static_cast<ImageType>(source_.Between(0, 10));
  }

  bool Accepts(const Image& image, ImageType type) const {
    return cmnalg::bytesPerPixel(type) > 0 && (&image != &typed_ || type == kType);
  }

  /// As Accepts, or of no type, which every image may have.
  bool CanBecome(const Image& image, const Image& other) const {
    const ImageType type = stateOf(other).type;
    return cmnalg::bytesPerPixel(type) == 0 || Accepts(image, type);
  }

  /// Allocates, wraps, adopts or copies.
  void Create(Image& image) {
    const State before = stateOf(image);
    const bool repeats = source_.Flip() && cmnalg::bytesPerPixel(before.type) > 0;
    const ImageType type = repeats ? before.type : AnyType();
    Shape shape(source_);
    if (repeats) shape.width = before.width;
    if (repeats) shape.height = before.height;
    const bool isNew = source_.Between(0, 2) == 0;
    const bool clone = !isNew && source_.Flip();
    const bool adopt = !isNew && source_.Between(0, 3) == 0;
    const bool null = !isNew && source_.Between(0, 15) == 0;
    const bool possible = Accepts(image, type) && shape.IsPossible() && !null && !(clone && adopt);
    const std::size_t pixelBytes = cmnalg::bytesPerPixel(type);
    const auto pitch = static_cast<std::size_t>(shape.RealPitch());
    const std::size_t bytes =
        shape.IsPossible() ? static_cast<std::size_t>(shape.height) * pitch * pixelBytes : 0;
    // Given back unless an image takes it over.
    std::unique_ptr<void, GiveBack> given(
        adopt ? allocator_.Allocate(std::max<std::size_t>(bytes, 1)) : nullptr, {allocator_});
    if (adopt && given == nullptr) return;
    void* const memory =
        adopt ? given.get() : buffers_.emplace_back(std::make_unique<unsigned char[]>(bytes)).get();
    const auto seed = source_.Raw<std::uint8_t>();
    for (std::size_t i = 0; i < bytes; ++i) {
      static_cast<unsigned char*>(memory)[i] = static_cast<unsigned char>(seed + 7 * i);
    }
    const bool sameShape = type == before.type && shape.width == before.width &&
                           shape.height == before.height && before.pitch >= shape.RealPitch();
    const bool reuses = possible && before.data != nullptr &&
                        (isNew ? bytes == image.GetRawBufferSize() : clone && sameShape);
    const bool allocates = possible && !reuses && (isNew || clone) && shape.HasMemory();
    allocator_.fails = source_.Between(0, 15) == 0;
    const int requests = allocator_.requests;
    const bool done = isNew ? image.Create(type, shape.width, shape.height, shape.pitch, allocator_)
                            : image.Create(null ? nullptr : memory, type, shape.width, shape.height,
                                           shape.pitch, clone, allocator_, adopt);
    if (done) static_cast<void>(given.release());
    log_.CheckRefusal(done);
    CHECK_HOLDS(done == (possible && !(allocates && allocator_.fails)));
    CHECK_HOLDS(allocator_.requests == requests + (allocates ? 1 : 0));
    State after{type, shape.width, shape.height, shape.RealPitch(), memory, adopt, true};
    if (isNew || clone) after.data = reuses ? before.data : allocates ? image.GetData() : nullptr;
    if (isNew || clone) after.owns = reuses ? before.owns : allocates;
    if (clone && reuses) after.pitch = before.pitch;
    CHECK_HOLDS(stateOf(image) == (done ? after : State()));
    CHECK_HOLDS(!allocates || !done || (image.GetData() != nullptr && image.GetData() != memory));
    if (done && clone) {
      CHECK_HOLDS(pixelsOf(image) == pixelsOf(memory,
                                              static_cast<std::size_t>(shape.width) * pixelBytes,
                                              pitch * pixelBytes, shape.height));
    }
    if (done && isNew && allocates) std::memset(image.GetData(), 1, image.GetRawBufferSize());
  }

  void FromImage(Image& image) {
    const Image& other = Choose();
    const Image view(other, false);
    const bool hasData = other.GetData() != nullptr;
    log_.Clear();
    CHECK_HOLDS(view.GetData() == other.GetData() && !view.GetImageData().OwnsData());
    CHECK_HOLDS(!hasData || sameMetadata(view, other));
    const bool isSame = &image == &other;
    const State before = stateOf(image);
    const Bytes pixels = pixelsOf(other);
    const bool done = image.Create(other, true);
    log_.CheckRefusal(done);
    CHECK_HOLDS(done == (isSame || (hasData && Accepts(image, other.GetType()))));
    if (isSame) CHECK_HOLDS(stateOf(image) == before);
    if (!done) CHECK_HOLDS(stateOf(image) == State());
    if (done) CHECK_HOLDS(pixelsOf(image) == pixels && sameMetadata(image, other));
    ImageOf<T> taken(2, 2, 3, allocator_);
    const State kept = stateOf(taken);
    const bool isTaken = taken.Create(other, true);
    log_.CheckRefusal(isTaken || other.GetType() != kType || log_.Warnings() == 0);
    CHECK_HOLDS(isTaken == (hasData && other.GetType() == kType));
    CHECK_HOLDS(other.GetType() == kType || (stateOf(taken) == kept && kept.pitch == 3));
    const ImageOf<T> shown(other, false);
    CHECK_HOLDS(shown.GetData() == (isTaken ? other.GetData() : nullptr));
  }

  /// All rows but the first of an image become the image.
  void FromOwnRows(Image& image) {
    const State before = stateOf(image);
    if (before.data == nullptr || before.height < 2 || before.width == 0) return;
    auto* const second =
        static_cast<unsigned char*>(image.GetData()) +
        static_cast<std::size_t>(before.pitch) * cmnalg::bytesPerPixel(before.type);
    const bool clone = source_.Flip();
    State rows = before;
    --rows.height;
    rows.data = second;
    const Bytes pixels = pixelsOf(rows);
    const bool done = image.Create(second, rows.type, rows.width, rows.height, rows.pitch, clone,
                                   allocator_, false);
    log_.CheckRefusal(done);
    CHECK_HOLDS(done == (clone || !before.owns));
    if (done) CHECK_HOLDS(pixelsOf(image) == pixels);
  }

  void Assign(Image& image) {
    const Image& other = Choose();
    const State before = stateOf(image);
    State after = stateOf(other);
    const Bytes pixels = pixelsOf(other);
    allocator_.fails = source_.Between(0, 3) == 0;
    try {
      image = other;
      if (&image != &other) after.data = after.data == nullptr ? nullptr : image.GetData();
      if (&image != &other) after.owns = after.data != nullptr;
      CHECK_HOLDS(stateOf(image) == (CanBecome(image, other) ? after : State()));
      if (CanBecome(image, other)) CHECK_HOLDS(pixelsOf(image) == pixels);
      CHECK_HOLDS(&image == &other || after.data == nullptr || image.GetData() != other.GetData());
      CHECK_HOLDS(sameMetadata(image, other));
    } catch (const std::bad_alloc&) {
      CHECK_HOLDS(allocator_.fails && stateOf(image) == before);
    }
  }

  void Move(Image& image) {
    Image& other = Choose();
    const bool fits = CanBecome(image, other);
    const State after = stateOf(other);
    image = std::move(other);
    CHECK_HOLDS(stateOf(image) == (fits ? after : State()));
    State empty;
    empty.valid = true;
    // NOLINTNEXTLINE(bugprone-use-after-move): a state of its own
    CHECK_HOLDS(&image == &other || stateOf(other) == (fits ? empty : after));
    CHECK_HOLDS(sameMetadata(image, other));
  }

  void SetPixel(Image& image) {
    const State state = stateOf(image);
    const double value = source_.Real();
    if (state.data == nullptr || state.width == 0 || state.height == 0) return;
    const int x = source_.Between(0, std::min(state.width, 256) - 1);
    const int y = source_.Between(0, std::min(state.height, 256) - 1);
    auto* const bytes = static_cast<unsigned char*>(image.GetData());
    const auto pixelBytes = static_cast<std::ptrdiff_t>(cmnalg::bytesPerPixel(state.type));
    const std::ptrdiff_t place = (std::ptrdiff_t{y} * state.pitch + x) * pixelBytes;
    Bytes before(bytes, bytes + image.GetRawBufferSize());
    image.SetPixel(x, y, value);
    cmnalg::dispatchPixelType(state.type, [&](auto tag) {
      const double stored = storedAs<typename decltype(tag)::type>(value);
      CHECK_HOLDS(test::sameBits(image.GetPixel(x, y), stored));
    });
    std::copy_n(bytes + place, pixelBytes, before.begin() + place);
    CHECK_HOLDS(std::equal(before.begin(), before.end(), bytes));
    if (&image != &typed_) return;
    const auto* const address = reinterpret_cast<T*>(bytes + place);
    CHECK_HOLDS(&typed_.Pix(x, y) == address && typed_.GetRowPtr(y) + x == address);
    typed_.SetAll(*address);
    for (int i = 0; i < state.width * state.height; ++i) {
      T& pixel = typed_.Pix(i % state.width, i / state.width);
      CHECK_HOLDS(std::memcmp(&pixel, address, sizeof pixel) == 0);
      std::memcpy(before.data() + (reinterpret_cast<unsigned char*>(&pixel) - bytes), &pixel,
                  sizeof pixel);
    }
    CHECK_HOLDS(std::equal(before.begin(), before.end(), bytes));
  }

  void Clear(Image& image) {
    State after;
    if (source_.Flip()) {
      after.type = stateOf(image).type;
      after.valid = image.GetImageData().IsValid();
      image.Deallocate();
    } else {
      image.InvalidateImage();
    }
    CHECK_HOLDS(stateOf(image) == after);
  }

  void CopyData(Image& image) {
    cmnalg::ImageData copy;
    copy.Create(cmnalg::IMAGE_TYPE_UINT8, 1, 1, 0, allocator_);
    State after = stateOf(image);
    allocator_.fails = source_.Between(0, 7) == 0;
    const bool done = copy.Copy(image.GetImageData());
    log_.CheckRefusal(done);
    CHECK_HOLDS(done || (allocator_.fails && stateOf(copy) == State()));
    if (!done) return;
    CHECK_HOLDS(after.data == nullptr || copy.GetData() != after.data);
    after.data = after.data == nullptr ? nullptr : copy.GetData();
    after.owns = after.data != nullptr;
    CHECK_HOLDS(stateOf(copy) == after && pixelsOf(after) == pixelsOf(image));
  }

  /// From a document, and as a clone of unknown class.
  void ReadBack(Image& image) {
    etl::MemoryOutStream stream;
    CHECK_HOLDS(base::JsonVisitingSerializer(stream, source_.Flip()).Serialize(image));
    base::JsonVisitingDeSerializer reader(stream.GetBuffer(), true);
    const std::unique_ptr<etl::IVisitable> read = reader.DeserializeObject();
    const std::unique_ptr<etl::IVisitable> cloned = image.CloneVisitable();
    for (auto* object : {read.get(), cloned.get()}) {
      auto* const copy = dynamic_cast<Image*>(object);
      CHECK_HOLDS(copy != nullptr && copy->GetType() == image.GetType());
      CHECK_HOLDS(copy->GetWidth() == image.GetWidth() && copy->GetHeight() == image.GetHeight());
      CHECK_HOLDS(object != read.get() || copy->GetPitch() == copy->GetWidth());
      const void* const data = copy->GetData();
      const Image moved(std::move(*copy));
      CHECK_HOLDS(copy->GetData() == nullptr && moved.GetData() == data);
      CHECK_HOLDS(sameMetadata(moved, image) && pixelsOf(moved) == pixelsOf(image));
    }
    const bool isTyped = dynamic_cast<const ImageOf<T>*>(cloned.get()) != nullptr;
    CHECK_HOLDS(isTyped == (&image == &typed_));
  }

  test::ByteSource& source_;
  CountingAllocator& allocator_;
  test::CheckedLog log_;
  std::vector<std::unique_ptr<unsigned char[]>> buffers_;  // which images may still show
  Image images_[3];
  ImageOf<T> typed_;
};

}  // namespace

PLANEX_PROPERTY(image) {
  CountingAllocator allocator;
  const auto type = static_cast<ImageType>(source.Between(0, 10));
  cmnalg::dispatchPixelType(
      type, [&](auto tag) { ImagePlay<typename decltype(tag)::type>(source, allocator).Run(); });
  CHECK_HOLDS(allocator.live == 0);
}
