// Sequences of operations on images, against a plain record of what each must look like. Pixels
// come from buffers without a byte to spare.

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <tuple>
#include <typeinfo>
#include <utility>
#include <vector>

#include "planex/foundation/image_of.h"
#include "planex/foundation/pixel_dispatch.h"
#include "tests/support/counting_allocator.h"
#include "tests/support/documents.h"
#include "tests/support/property.h"

namespace {

using cmnalg::Image;
using cmnalg::ImageOf;
using cmnalg::ImageType;

constexpr std::int64_t kLargestImage = 2147483647;

/// A size that a test has memory for, or that no image can have.
struct Shape {
  int width, height, pitch;

  explicit Shape(test::ByteSource& source)
      : width(Length(source)), height(Length(source)), pitch(source.Flip() ? 0 : Length(source)) {
    if (source.Flip()) pitch = static_cast<int>(std::int64_t{width} % 4096 + 3);
    Shrink();
  }

  void Shrink() {
    if (Pixels() > 4096 && Pixels() <= kLargestImage) height = width = pitch = 2;
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
};

/// What an image must look like.
struct State {
  ImageType type = cmnalg::IMAGE_TYPE_INVALID;
  int width = 0, height = 0, pitch = 0;
  const void* data = nullptr;
  bool owns = false, valid = false;

  auto All() const { return std::tie(type, width, height, pitch, data, owns, valid); }
  friend bool operator==(const State& a, const State& b) { return a.All() == b.All(); }
  std::size_t PixelBytes() const { return cmnalg::bytesPerPixel(type); }
  std::size_t Bytes() const {
    return static_cast<std::size_t>(height) * static_cast<std::size_t>(pitch) * PixelBytes();
  }
  const char* Row(int y) const {
    return static_cast<const char*>(data) +
           static_cast<std::ptrdiff_t>(y) * pitch * static_cast<std::ptrdiff_t>(PixelBytes());
  }
  /// All rows without padding.
  std::string Pixels() const {
    std::string pixels;
    for (int y = 0; y < height && width > 0 && data != nullptr; ++y) {
      pixels.append(Row(y), static_cast<std::size_t>(width) * PixelBytes());
    }
    return pixels;
  }
};

State stateOf(const cmnalg::ImageData& data) {
  return {data.GetType(), data.GetWidth(), data.GetHeight(), data.GetPitch(),
          data.GetData(), data.OwnsData(), data.IsValid()};
}
State stateOf(const Image& image) { return stateOf(image.GetImageData()); }

bool sameMetadata(const Image& a, const Image& b) {
  return a.PixelSize == b.PixelSize && a.Origin == b.Origin &&
         a.HandleZeroPixels == b.HandleZeroPixels;
}

struct GiveBack {
  const etl::Allocator* allocator;
  void operator()(void* memory) const { allocator->Deallocate(memory); }
};
using Memory = std::unique_ptr<void, GiveBack>;

template <typename T>
class ImagePlay {
 public:
  /// The allocator must outlive the images.
  ImagePlay(test::ByteSource& source, CountingAllocator& allocator)
      : source_(source), allocator_(allocator) {}

  void Run() {
    constexpr void (ImagePlay::*kOperations[])(Image&) = {
        &ImagePlay::Create,      &ImagePlay::Create,      &ImagePlay::Create,
        &ImagePlay::FromImage,   &ImagePlay::FromRows,    &ImagePlay::Assign,
        &ImagePlay::Move,        &ImagePlay::Clear,       &ImagePlay::SetPixel,
        &ImagePlay::CopyByClass, &ImagePlay::CopyByClass, &ImagePlay::Create};
    for (int i = 0; i < 64 && !source_.IsEmpty(); ++i) {
      Image& image = Choose();
      image.PixelSize = {static_cast<double>(source_.Raw<std::uint8_t>()), 1, 2};
      image.Origin = {0, static_cast<double>(i), -1};
      image.HandleZeroPixels = static_cast<cmnalg::ZeroPixels>(i % 2);
      (this->*source_.OneOf(kOperations))(image);
      log_.Clear();
      const State state = stateOf(image);
      CHECK_HOLDS(image.GetRawBufferSize() == state.Bytes());
      CHECK_HOLDS(image.IsConsistent() == (state.valid && state.PixelBytes() > 0));
      CHECK_HOLDS(typed_.GetType() == kType);
    }
  }

 private:
  static constexpr ImageType kType = cmnalg::PixelTypeOf<T>::value;

  Image& Choose() {
    const int number = source_.Between(0, 3);
    return number == 3 ? static_cast<Image&>(typed_) : images_[number];
  }

  bool Accepts(const Image& image, ImageType type) const {
    return cmnalg::bytesPerPixel(type) > 0 && (&image != &typed_ || type == kType);
  }
  /// As Accepts, or of no type, which every image may have.
  bool CanBecome(const Image& image, const State& other) const {
    return other.PixelBytes() == 0 || Accepts(image, other.type);
  }

  /// Allocates, shows, adopts or clones pixels.
  void Create(Image& image) {
    const State before = stateOf(image);
    Shape shape(source_);
    auto type = source_.Flip() ? kType : static_cast<ImageType>(source_.Between(-1, 12));
    if (source_.Flip() && before.PixelBytes() > 0) {
      type = before.type;
      shape.width = before.width;
      shape.height = before.height;
      shape.Shrink();
    }
    const bool possible = Accepts(image, type) && shape.IsPossible();
    State after{type, shape.width, shape.height, shape.RealPitch(), nullptr, false, true};
    const std::size_t bytes = std::max<std::size_t>(possible ? after.Bytes() : 0, 1);
    Memory given(allocator_.Allocate(bytes), GiveBack{&allocator_});
    if (given == nullptr) return;
    std::memset(given.get(), source_.Raw<std::uint8_t>(), bytes);
    std::memset(given.get(), source_.Raw<std::uint8_t>(), bytes / 2);
    const bool isNew = source_.Flip(), clone = source_.Flip(), adopt = !clone && source_.Flip();
    const int requests = allocator_.requests;
    const bool done = isNew ? image.Create(type, shape.width, shape.height, shape.pitch, allocator_)
                            : image.Create(given.get(), type, shape.width, shape.height,
                                           shape.pitch, clone, allocator_, adopt);
    log_.CheckRefusal(done);
    if (!done) CHECK_ALWAYS(stateOf(image) == State());
    CHECK_HOLDS(done == possible);
    if (!done) return;
    State expected = after;
    expected.data = given.get();
    expected.owns = adopt;
    if (isNew || clone) {
      const bool sameShape = type == before.type && shape.width == before.width &&
                             shape.height == before.height && before.pitch >= after.pitch;
      const bool reuses =
          before.data != nullptr && (isNew ? after.Bytes() == before.Bytes() : sameShape);
      const bool hasMemory = shape.width != 0 || shape.height != 0 || shape.pitch != 0;
      expected.data = reuses ? before.data : image.GetData();
      expected.owns = reuses ? before.owns : hasMemory;
      if (reuses && clone && !isNew) expected.pitch = before.pitch;
      CHECK_HOLDS(allocator_.requests == requests + (hasMemory && !reuses ? 1 : 0));
      CHECK_HOLDS((image.GetData() != nullptr) == (hasMemory || reuses));
    }
    after.data = given.get();
    CHECK_HOLDS(stateOf(image) == expected);
    CHECK_HOLDS(isNew || expected.Pixels() == after.Pixels());
    if (isNew && expected.Bytes() > 0) std::memset(image.GetData(), 1, expected.Bytes());
    if (expected.owns && expected.data == given.get()) static_cast<void>(given.release());
    if (given != nullptr) shown_.push_back(std::move(given));
  }

  void FromImage(Image& image) {
    const Image& other = Choose();
    const State from = stateOf(other);
    const bool isSame = &image == &other;
    const std::string pixels = from.Pixels();
    const bool done = image.Create(other, true);
    log_.CheckRefusal(done);
    CHECK_HOLDS(done == (isSame || (from.data != nullptr && Accepts(image, other.GetType()))));
    CHECK_HOLDS(!isSame || stateOf(image) == from);
    CHECK_HOLDS(done ? stateOf(image).Pixels() == pixels && sameMetadata(image, other)
                     : stateOf(image) == State());
  }

  /// All rows but the first of an image become the image.
  void FromRows(Image& image) {
    State rows = stateOf(image);
    if (rows.data == nullptr || rows.height < 2 || rows.width == 0) return;
    auto* const second = const_cast<char*>(rows.Row(1));
    rows.data = second;
    --rows.height;
    const bool clone = source_.Flip();
    const std::string pixels = rows.Pixels();
    const bool done = image.Create(second, rows.type, rows.width, rows.height, rows.pitch, clone,
                                   allocator_, false);
    log_.CheckRefusal(done);
    CHECK_HOLDS(done == (clone || !rows.owns));
    CHECK_HOLDS(!done || stateOf(image).Pixels() == pixels);
  }

  void Assign(Image& image) {
    const Image& other = Choose();
    const State before = stateOf(image);
    State after = stateOf(other);
    const std::string pixels = after.Pixels();
    if (!test::succeeds([&] { return &(image = other) != nullptr; })) {
      CHECK_ALWAYS(stateOf(image) == before);
      return;
    }
    CHECK_HOLDS(sameMetadata(image, other));
    if (!CanBecome(image, after)) after = State();
    const State copy = stateOf(image);
    const bool isSame = &image == &other;
    CHECK_HOLDS(after.data == nullptr || (copy.data == after.data) == isSame);
    if (after.data != nullptr && !isSame) after.data = copy.data;
    if (!isSame) after.owns = after.data != nullptr;
    CHECK_HOLDS(copy == after && (after.data == nullptr || copy.Pixels() == pixels));
  }

  void Move(Image& image) {
    Image& other = Choose();
    const State after = stateOf(other);
    const bool fits = CanBecome(image, after);
    image = std::move(other);
    // NOLINTBEGIN(bugprone-use-after-move): a state of its own
    CHECK_HOLDS(stateOf(image) == (fits ? after : State()) && sameMetadata(image, other));
    const State empty{cmnalg::IMAGE_TYPE_INVALID, 0, 0, 0, nullptr, false, true};
    CHECK_HOLDS(&image == &other || stateOf(other) == (fits ? empty : after));
    // NOLINTEND(bugprone-use-after-move)
  }

  /// Writes to one pixel, as in an image of that one alone, and then to all that are shown.
  void SetPixel(Image& image) {
    const State state = stateOf(image);
    const double value = source_.Real();
    if (state.data == nullptr || state.width == 0 || state.height == 0) return;
    const int x = source_.Between(0, std::min(state.width, 256) - 1);
    const int y = source_.Between(0, std::min(state.height, 256) - 1);
    image.SetPixel(x, y, value);
    const auto pixelBytes = static_cast<std::ptrdiff_t>(state.PixelBytes());
    const char* const place = state.Row(y) + x * pixelBytes;
    Image one;
    CHECK_HOLDS(
        one.Create(const_cast<char*>(place), state.type, 1, 1, 0, false, allocator_, false));
    CHECK_HOLDS(test::sameBits(image.GetPixel(x, y), one.GetPixel(0, 0)));
    const std::string wanted = stateOf(one).Pixels();
    one.SetPixel(0, 0, value);
    CHECK_HOLDS(stateOf(one).Pixels() == wanted);
    if (&image != &typed_) return;
    CHECK_HOLDS(reinterpret_cast<char*>(&typed_.Pix(x, y)) == place);
    typed_.SetAll(typed_.Pix(x, y));
    std::string all;
    for (int i = 0; i < state.width * state.height; ++i) all += wanted;
    CHECK_HOLDS(stateOf(typed_).Pixels() == all);
  }

  void Clear(Image& image) {
    const State before = stateOf(image);
    image.Deallocate();
    CHECK_HOLDS(stateOf(image) == (State{before.type, 0, 0, 0, nullptr, false, before.valid}));
    if (source_.Flip()) image.InvalidateImage();
    CHECK_HOLDS(image.GetImageData().IsValid() || stateOf(image) == State());
  }

  /// From a document, and moved out of a clone of unknown class.
  void CopyByClass(Image& image) {
    Image read;
    CHECK_HOLDS(test::readJson(test::toJson(image), read).empty());
    const std::unique_ptr<etl::IVisitable> cloned = image.CloneVisitable();
    CHECK_HOLDS(typeid(*cloned) == typeid(image));
    cmnalg::ImageData data;
    CHECK_HOLDS(data.Copy(image.GetImageData()));
    CHECK_HOLDS(stateOf(data).Pixels() == stateOf(image).Pixels());
    const Image moved(std::move(dynamic_cast<Image&>(*cloned)));
    for (const Image* const copy : std::initializer_list<const Image*>{&read, &moved}) {
      CHECK_HOLDS(stateOf(*copy).Pixels() == stateOf(image).Pixels());
      CHECK_HOLDS(sameMetadata(*copy, image));
    }
  }

  test::ByteSource& source_;
  CountingAllocator& allocator_;
  test::CheckedLog log_;
  std::vector<Memory> shown_;  // what images may still show
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
