// Rectification with any images, grids and settings: at class level against a plain scalar loop and
// on one and three threads, and rectify() against the class level. Buffers may overlap.

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "planex/api/planex.h"
#include "planex/processing/rectification.h"
#include "planex/processing/rectification_target.h"
#include "tests/support/byte_source.h"
#include "tests/support/property.h"
#include "tests/support/reference.h"

namespace {

using cmnalg::Image;
using cmnalg::ImageOf;
using cmnalg::ImageType;
using cmnalg::Vec;
using datafusion::planex::RectificationMode;
using datafusion::planex::toRectified;

constexpr std::int64_t kMaxCells = 1 << 14;

/// The memory that the images of one call lie in.
class Arena {
 public:
  explicit Arena(test::ByteSource& source) : bytes_(kSize) {
    const std::string text = source.Text(64);
    for (std::size_t i = 0; i < kSize && !text.empty(); ++i) {
      bytes_[i] = static_cast<unsigned char>(text[i % text.size()]);
    }
  }
  /// The part with that number. Parts do not overlap, and the last ends where the memory ends.
  unsigned char* Part(int number) {
    return bytes_.data() + static_cast<std::size_t>(number) * kPart;
  }

  static constexpr std::size_t kPart = 4096;

  std::vector<unsigned char> bytes_;

 private:
  static constexpr std::size_t kSize = 5 * kPart;
};

/// Floats among the bytes of a part: a few numbers, repeated and moved on.
template <typename T>
void fillReals(test::ByteSource& source, unsigned char* part) {
  constexpr std::size_t kDrawn = 8;
  T values[Arena::kPart / sizeof(T)];
  for (std::size_t i = 0; i < std::size(values); ++i) {
    const double real = i < kDrawn ? source.Real() : 0.0;
    const bool fits = !(std::abs(real) > 3e38);
    values[i] = i < kDrawn ? static_cast<T>(fits ? real : std::copysign(INFINITY, real))
                           : values[i % kDrawn] + static_cast<T>(i / kDrawn % 16);
  }
  std::memcpy(part, values, sizeof values);
}

void place(test::ByteSource& source, unsigned char* part, Image& image) {
  image.PixelSize = {1, 1, 1};
  image.Origin = {0, 0, 0};
  if (source.Flip()) {
    image.PixelSize = {source.Real(), source.Real(), source.Real()};
    image.Origin = {source.Real(), source.Real(), source.Real()};
  }
  image.HandleZeroPixels =
      source.Between(0, 7) == 0 ? cmnalg::ZeroPixels::Default : cmnalg::ZeroPixels::MissingData;
  if (image.GetType() == cmnalg::IMAGE_TYPE_FLOAT32) fillReals<float>(source, part);
  if (image.GetType() == cmnalg::IMAGE_TYPE_FLOAT64) fillReals<double>(source, part);
}

/// Where a picture starts: in its own part, or, once in so many times, in that of another.
unsigned char* start(test::ByteSource& source, Arena& arena, int part, int times = 16) {
  if (source.Between(1, times) != 1) return arena.Part(part);
  return arena.Part(source.Between(0, 3)) + std::ptrdiff_t{8} * source.Between(0, 255);
}

/// A size that fits a part from any start in it.
struct Shape {
  int width, height, pitch;
};

Shape shape(test::ByteSource& source, int commonHeight) {
  Shape shape{};
  shape.width = source.Between(0, 60);
  shape.height = source.Between(0, 7) == 0 ? source.Between(0, 4) : commonHeight;
  shape.pitch = shape.width + source.Between(0, 2);
  return shape;
}

bool wrap(Image& image, ImageType type, unsigned char* memory, const Shape& shape) {
  return image.Create(memory, type, shape.width, shape.height, shape.pitch, false,
                      Image::s_defaultImageAllocator, false);
}

constexpr ImageType kMeasurements[] = {cmnalg::IMAGE_TYPE_FLOAT32, cmnalg::IMAGE_TYPE_UINT16,
                                       cmnalg::IMAGE_TYPE_UINT8,   cmnalg::IMAGE_TYPE_UINT32,
                                       cmnalg::IMAGE_TYPE_UINT64,  cmnalg::IMAGE_TYPE_FLOAT64};

bool holdsMeasurements(ImageType type) {
  return std::find(std::begin(kMeasurements), std::end(kMeasurements), type) !=
         std::end(kMeasurements);
}

ImageType anyType(test::ByteSource& source) {
  if (source.Between(0, 15) != 0) return source.OneOf(kMeasurements);
  return static_cast<ImageType>(source.Between(-1, 12));
}

/// Calls body with the rows' element type; the type is one of kMeasurements.
template <typename Body>
void withType(ImageType type, Body&& body) {
  switch (type) {
    case cmnalg::IMAGE_TYPE_UINT8:
      return body(std::uint8_t{});
    case cmnalg::IMAGE_TYPE_UINT16:
      return body(std::uint16_t{});
    case cmnalg::IMAGE_TYPE_UINT32:
      return body(std::uint32_t{});
    case cmnalg::IMAGE_TYPE_UINT64:
      return body(std::uint64_t{});
    case cmnalg::IMAGE_TYPE_FLOAT32:
      return body(float{});
    default:
      return body(double{});
  }
}

template <typename T>
const T* rowOf(const Image& image, int row) {
  return static_cast<const T*>(image.GetData()) + std::ptrdiff_t{row} * image.GetPitch();
}

/// One call at class level.
struct Call {
  Image x, z, intensity;
  ImageOf<std::uint16_t> target;
  ImageOf<std::uint8_t> targetIntensity;
  Vec<2, double> spacing;
  double splat = 1;
  int mode = 0;
  bool withIntensity = false, clear = true;

  bool Run() {
    const auto rectificationMode = static_cast<RectificationMode>(mode);
    return withIntensity ? toRectified(x, z, intensity, spacing, splat, rectificationMode, target,
                                       targetIntensity, clear)
                         : toRectified(x, z, spacing, splat, rectificationMode, target, clear);
  }

  reference::Rectification Coefficients() const {
    const double a = spacing.x * splat;
    const double b = spacing.y * splat;
    const Vec<3, double>& size = target.PixelSize;
    const Vec<3, double>& origin = target.Origin;
    return {x.PixelSize.z / size.x,
            (x.Origin.z - origin.x) / size.x,
            z.PixelSize.z / size.z,
            (z.Origin.z - origin.z) / size.z,
            0.55 * size.z * a / size.x,
            0.55 * (origin.z * a + b) / size.x,
            mode,
            clear};
  }

  /// Applies the scalar loop to what the targets hold.
  void RunReference() {
    if (clear) {
      std::memset(target.GetData(), 0, target.GetRawBufferSize());
      if (withIntensity)
        std::memset(targetIntensity.GetData(), 0, targetIntensity.GetRawBufferSize());
    }
    const reference::Rectification k = Coefficients();
    withType(x.GetType(), [&](auto xTag) {
      withType(z.GetType(), [&](auto zTag) {
        for (int row = 0; row < x.GetHeight(); ++row) {
          reference::rectifyRow(k, rowOf<decltype(xTag)>(x, row), rowOf<decltype(zTag)>(z, row),
                                withIntensity ? rowOf<std::uint8_t>(intensity, row) : nullptr,
                                x.GetWidth(), target.GetRowPtr(row),
                                withIntensity ? targetIntensity.GetRowPtr(row) : nullptr,
                                target.GetWidth());
        }
      });
    });
  }
};

void draw(test::ByteSource& source, Arena& arena, Call& call) {
  const int height = source.Between(0, 4);
  const Shape points = shape(source, height);
  const auto sourceShape = [&] {
    return source.Between(0, 15) == 0 ? shape(source, height) : points;
  };
  wrap(call.x, anyType(source), start(source, arena, 0), points);
  wrap(call.z, anyType(source), start(source, arena, 1), sourceShape());
  wrap(call.intensity, source.Between(0, 15) == 0 ? anyType(source) : cmnalg::IMAGE_TYPE_UINT8,
       start(source, arena, 2), sourceShape());
  const Shape cells = shape(source, height);
  wrap(call.target, cmnalg::IMAGE_TYPE_UINT16, start(source, arena, 3), cells);
  wrap(call.targetIntensity, cmnalg::IMAGE_TYPE_UINT8, arena.Part(4) - (source.Flip() ? 8 : 0),
       source.Between(0, 7) == 0 ? shape(source, height) : cells);
  place(source, arena.Part(0), call.x);
  place(source, arena.Part(1), call.z);
  place(source, arena.Part(2), call.intensity);
  place(source, arena.Part(3), call.target);
  call.spacing = {source.Real(), source.Real()};
  call.splat = source.Real();
  call.mode = source.Between(0, 5);
  call.withIntensity = source.Flip();
  call.clear = source.Flip();
}

void checkClassLevel(test::ByteSource& source) {
  test::CheckedLog log;
  Arena arena(source);
  Call call;
  draw(source, arena, call);
  log.Clear();
  const std::vector<unsigned char> before = arena.bytes_;
  const bool done = call.Run();
  const bool typesAreFine =
      holdsMeasurements(call.x.GetType()) && holdsMeasurements(call.z.GetType());
  log.CheckRefusal(done || !typesAreFine);
  const std::vector<unsigned char> after = arena.bytes_;
  if (!done) {
    // Refused by the choice of kernel, behind the checks, the targets have been cleared already.
    CHECK_HOLDS(after == before || (call.clear && (!typesAreFine || call.mode > 2)));
    return;
  }
  arena.bytes_ = before;
  call.RunReference();
  CHECK_HOLDS(arena.bytes_ == after);
  arena.bytes_ = before;
  test::useThreads(3);
  CHECK_HOLDS(call.Run());
  test::useThreads(1);
  CHECK_HOLDS(arena.bytes_ == after);
}

/// Sizes between what a test has memory for and what no image can have become the latter.
int saneCount(test::ByteSource& source) {
  const auto count = static_cast<int>(source.Count());
  return count > 128 && count < 65536 ? 128 : count;
}

void checkTargets(test::ByteSource& source) {
  test::CheckedLog log;
  double limits[6];
  for (double& limit : limits) limit = source.Real();
  const double sizes[3] = {source.Real(), source.Real(), source.Real()};
  const int width = saneCount(source);
  const int height = saneCount(source);
  const int steps = static_cast<int>(source.Count());
  const bool byCount = source.Flip();
  const auto type = static_cast<ImageType>(source.Between(-1, 12));
  const double columns = byCount ? width : std::ceil((limits[1] - limits[0]) / sizes[0]);
  const double rows = byCount ? height : std::ceil((limits[3] - limits[2]) / sizes[1]);
  const double limit = byCount ? 2147483647.0 : 1e8;
  if (columns * rows > kMaxCells && columns * rows <= limit) return;
  Image target;
  const bool done = byCount ? datafusion::planex::createRectificationTarget(
                                  width, limits[0], limits[1], height, limits[2], limits[3], steps,
                                  limits[4], limits[5], target, type, 1)
                            : datafusion::planex::createRectificationTarget(
                                  sizes[0], limits[0], limits[1], sizes[1], limits[2], limits[3],
                                  sizes[2], limits[4], limits[5], target, type, 1);
  log.CheckRefusal(done);
  if (!done) return;
  CHECK_HOLDS(target.GetType() == type && target.GetImageData().IsConsistent());
  CHECK_HOLDS(target.GetWidth() == columns && target.GetHeight() == rows);
  const auto* const bytes = static_cast<const unsigned char*>(target.GetData());
  CHECK_HOLDS(std::count(bytes, bytes + target.GetRawBufferSize(), 0) ==
              static_cast<std::ptrdiff_t>(target.GetRawBufferSize()));
}

/// rectify() without co-rectified images, or with one, gives what the class level gives.
void checkInterface(test::ByteSource& source) {
  test::CheckedLog log;
  Arena arena(source);
  const ImageSize size = {static_cast<std::uint16_t>(source.Between(0, 60)),
                          static_cast<std::uint16_t>(source.Between(0, 4))};
  WorldRangeTraits grid = {0, 59, 60, 0, 1, size.height, 0, 8, 65536};
  if (source.Flip()) {
    grid = {source.Real(), source.Real(), static_cast<std::uint32_t>(source.Between(0, 60)),
            source.Real(), source.Real(), size.height,
            source.Real(), source.Real(), source.Count()};
  }
  const SplatSettings splat = {source.Real(), source.Real(), source.Real()};
  const std::uint32_t format = PLANEX_PIXEL_FORMAT_MONO8;
  const bool withImage = source.Flip();
  const auto mode = static_cast<std::uint32_t>(source.Between(0, 5));
  std::uint32_t filter = 0;
  CHECK_HOLDS(createRectificationFilter(mode, grid, size, withImage ? 1 : 0, &format, splat, -1.5F,
                                        &filter));
  fillReals<float>(source, arena.Part(0));
  fillReals<float>(source, arena.Part(1));
  auto* const x = reinterpret_cast<float*>(arena.Part(0));
  auto* const z = reinterpret_cast<float*>(start(source, arena, 1));
  auto* const range = reinterpret_cast<float*>(start(source, arena, 3, 2));
  const void* const in[] = {start(source, arena, 2)};
  void* const out[] = {start(source, arena, 4)};

  const std::vector<unsigned char> before = arena.bytes_;
  const bool done = rectify(filter, x, z, in, range, out);
  log.CheckCall(done);
  CHECK_HOLDS(destroyRectificationFilter(&filter));
  std::vector<float> got(std::size_t{grid.xCount} * grid.yCount);
  if (!got.empty()) std::memcpy(got.data(), range, got.size() * sizeof(float));
  if (!done) {
    if (!withImage) CHECK_HOLDS(arena.bytes_ == before);
    return;
  }

  arena.bytes_ = before;
  constexpr int kModes[] = {0, 2, 1, 3, 4};
  Call call;
  wrap(call.x, cmnalg::IMAGE_TYPE_FLOAT32, arena.Part(0), {size.width, size.height, 0});
  wrap(call.z, cmnalg::IMAGE_TYPE_FLOAT32, reinterpret_cast<unsigned char*>(z),
       {size.width, size.height, 0});
  const auto columns = static_cast<int>(grid.xCount);
  CHECK_HOLDS(call.target.Create(columns, size.height, Image::s_defaultImageAllocator));
  CHECK_HOLDS(call.targetIntensity.Create(columns, size.height, Image::s_defaultImageAllocator));
  const RangeTransform transform = rangeTraitsToTransform(grid);
  call.target.PixelSize = {transform.scaleX, 1, transform.scaleZ};
  call.target.Origin = {transform.originX, 0, transform.originZ};
  call.target.HandleZeroPixels = cmnalg::ZeroPixels::MissingData;
  call.spacing = {splat.splatA, splat.splatB};
  call.splat = splat.splatC;
  call.mode = kModes[mode];
  call.withIntensity = withImage;
  if (withImage) {
    wrap(call.intensity, cmnalg::IMAGE_TYPE_UINT8,
         const_cast<unsigned char*>(static_cast<const unsigned char*>(in[0])),
         {size.width, size.height, 0});
  }
  CHECK_HOLDS(call.Run());
  for (std::size_t i = 0; i < got.size(); ++i) {
    const std::uint16_t value = call.target.GetRowPtr(0)[i];
    const float want =
        value == 0 ? -1.5F
                   : std::fma(static_cast<float>(value), static_cast<float>(transform.scaleZ),
                              static_cast<float>(transform.originZ));
    CHECK_HOLDS(test::sameBits(got[i], want));
  }
}

}  // namespace

PLANEX_PROPERTY(rectification) {
  switch (source.Between(0, 3)) {
    case 0:
      checkTargets(source);
      break;
    case 1:
      checkInterface(source);
      break;
    default:
      checkClassLevel(source);
  }
}
