// Sequences of C calls with arbitrary arguments, against a plain record of which handles live, and
// rectify() against the class level. Buffers have just the size that the arguments ask for; sizes
// that no image can have come with buffers of one byte.

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "planex/processing/rectification.h"
#include "tests/support/handles.h"
#include "tests/support/model_documents.h"
#include "tests/support/property.h"
#include "tests/support/samples.h"

namespace {

using cmnalg::ImageOf;
using Mode = datafusion::planex::RectificationMode;

const auto& kAllocator = cmnalg::Image::s_defaultImageAllocator;

constexpr int kMaxWidth = 63, kMaxHeight = 31;
constexpr std::uint64_t kMaxPixels = std::uint64_t{kMaxWidth} * kMaxHeight;
constexpr int kMaxCalls = 48;
constexpr std::uint32_t kMono8 = PLANEX_PIXEL_FORMAT_MONO8, kMono16 = PLANEX_PIXEL_FORMAT_MONO16;
/// Filters refer to up to three that follow each other.
constexpr std::uint32_t kFormats[] = {
    kMono8, kMono16, kMono8, kMono8, kMono16, kMono16, PLANEX_PIXEL_FORMAT_COORD3D_C16, 0};

const std::string kDocuments[] = {
    test::with(test::plainModelDocument(), R"("x": 640, "y": 480)", R"("x": 65535, "y": 65535)"),
    test::kModelDocument,
    // Read as far as its sensor size; without focal length it cannot calibrate.
    test::with(test::with(test::kModelDocument, "1000.0", "0"), "LensCenter", "Other"),
    "SensorSize 0 0", "{}", ""};

/// The modes in the order of the interface.
constexpr Mode kModes[] = {Mode::MEAN,    Mode::HIGHEST,   Mode::LOWEST,
                           Mode::DARKEST, Mode::BRIGHTEST, Mode{5}};

/// What a test needs to use a filter.
struct Object {
  ImageSize size{};  // of an input
  WorldRangeTraits grid{};
  SplatSettings splat{};
  std::uint32_t mode = 0;
  int firstFormat = 0, images = 0;

  std::uint64_t Pixels() const { return std::uint64_t{size.width} * size.height; }
  std::uint64_t Cells() const { return std::uint64_t{grid.xCount} * grid.yCount; }
  std::uint32_t Format(int image) const { return kFormats[firstFormat + image]; }
};

/// The objects of one kind as the interface must know them.
struct Handles {
  std::map<std::uint32_t, Object> live;
  std::uint32_t last = 0;
};

using Bytes = std::vector<unsigned char>;
constexpr unsigned char kUntouched = 0x5a;

/// A buffer without a byte to spare for so many pixels; one byte for a size that no image can have.
Bytes pixelBuffer(std::uint64_t pixels, std::size_t bytesPerPixel) {
  const std::size_t size = pixels > kMaxPixels ? 1 : pixels * bytesPerPixel;
  return Bytes(std::max<std::size_t>(size, 1), kUntouched);  // never null
}

float* floats(Bytes& bytes) { return reinterpret_cast<float*>(bytes.data()); }

/// The results of rectify(): what the class level gives in 16 bits, with each image by itself, and
/// the heights of the last one in world units.
struct Rectified {
  Rectified(const Object& filter, const Bytes& x, const Bytes& z, const Bytes* inputs)
      : size(filter.size) {
    const RangeTransform t = rangeTraitsToTransform(filter.grid);
    const int columns = static_cast<int>(filter.grid.xCount);
    const datafusion::planex::HeightGrid grid{
        columns, size.height, {t.scaleX, t.originX}, {t.scaleZ, t.originZ}};
    isDone = grid.IsConsistent() && filter.Pixels() <= kMaxPixels;
    if (!isDone) return;
    ImageOf<std::uint16_t> levels(columns, size.height, kAllocator);
    ImageOf<std::uint8_t> image(columns, size.height, kAllocator);
    levels.PixelSize = {t.scaleX, 1, t.scaleZ};
    levels.Origin = {t.originX, 0, t.originZ};
    levels.HandleZeroPixels = cmnalg::ZeroPixels::MissingData;
    const auto xs = Shown<float>(x), zs = Shown<float>(z);
    const cmnalg::Vec<2, double> spacing{filter.splat.splatA, filter.splat.splatB};
    const double splatSize = filter.splat.splatC;
    const Mode mode = kModes[filter.mode];
    if (filter.images == 0) isDone = toRectified(xs, zs, spacing, splatSize, mode, levels, true);
    for (int i = 0; isDone && i < filter.images; ++i) {
      const std::uint32_t format = filter.Format(i);
      const Bytes reduced = format == kMono16 ? InEightBits(inputs[i]) : inputs[i];
      isDone = (format == kMono8 || format == kMono16) &&
               toRectified(xs, zs, Shown<std::uint8_t>(reduced), spacing, splatSize, mode, levels,
                           image, true);
      images[i].assign(image.GetRowPtr(0), image.GetRowPtr(0) + filter.Cells());
    }
    for (std::size_t i = 0; i < filter.Cells(); ++i) {
      const std::uint16_t level = levels.GetRowPtr(0)[i];
      const float height = std::fma(static_cast<float>(level), static_cast<float>(t.scaleZ),
                                    static_cast<float>(t.originZ));
      range.push_back(level == 0 ? kMissing : height);
    }
  }

  template <typename Pixel>
  ImageOf<Pixel> Shown(const Bytes& pixels) const {
    auto* const data = reinterpret_cast<Pixel*>(const_cast<unsigned char*>(pixels.data()));
    return {data, size.width, size.height, 0, false, kAllocator, false};
  }

  /// 16-bit intensities in 8 bits.
  Bytes InEightBits(const Bytes& wide) const {
    std::vector<std::uint16_t> values(std::size_t{size.width} * size.height + 1);
    std::memcpy(values.data(), wide.data(), values.size() * 2 - 2);
    values.back() = values.front();
    const auto limits = std::minmax_element(values.begin(), values.end());
    const double span = std::max(*limits.second - *limits.first, 1);
    Bytes bytes;
    for (const int value : values) {
      bytes.push_back(
          static_cast<unsigned char>(std::round((value - *limits.first) * 255.0 / span)));
    }
    return bytes;
  }

  static constexpr float kMissing = -1.5F;
  ImageSize size;
  bool isDone;
  std::vector<float> range;
  Bytes images[3];
};

/// One input's worth of calls. Handles count on from one input to the next, objects do not survive.
class Caller {
 public:
  explicit Caller(test::ByteSource source) : source_(source) { test::destroyAll(); }

  void Run() {
    constexpr void (Caller::*kCalls[])() = {
        &Caller::CreateModel,
        &Caller::Bounds,
        &Caller::Destroy<destroyModel, &Caller::models_>,
        &Caller::CreateCalibrationFilter,
        &Caller::Destroy<destroyCalibrationFilter, &Caller::calibrations_>,
        &Caller::Calibrate,
        &Caller::CreateRectificationFilter,
        &Caller::Destroy<destroyRectificationFilter, &Caller::rectifications_>,
        &Caller::Rectify,
    };
    for (int i = 0; i < kMaxCalls && !source_.IsEmpty(); ++i) (this->*source_.OneOf(kCalls))();
  }

 private:
  /// A call of the library, which alone may run out of memory; one that must not throw even then
  /// is noexcept.
  template <typename Call>
  bool Do(Call call) {
    const bool done = test::tries(call);
    log_.CheckCall(done);
    return done;
  }

  static Object Known(const Handles& handles, std::uint32_t handle) {
    const auto found = handles.live.find(handle);
    return found == handles.live.end() ? Object() : found->second;
  }

  /// Mostly the last one, or one before it, or the one that comes next.
  std::uint32_t Choose(const Handles& handles) {
    const int kind = source_.Between(0, 15);
    if (kind == 0) return source_.Count();
    return handles.last + 1 - static_cast<std::uint32_t>(kind < 8 ? 1 : kind % 4);
  }

  template <typename Call>
  void Create(Handles& handles, const Object& object, Call call) {
    uint32_t handle = 77;
    if (Do([&] { return call(&handle); })) {
      CHECK_ALWAYS(handles.last == 0 || handle == handles.last + 1);
      handles.last = handle;
      handles.live[handle] = object;
    } else {
      CHECK_ALWAYS(handle == 77 || handle == 0);
    }
  }

  template <bool (*kDestroy)(uint32_t*), Handles Caller::*kHandles>
  void Destroy() {
    const uint32_t handle = Choose(this->*kHandles);
    uint32_t variable = handle;
    const bool done = Do([&]() noexcept { return kDestroy(&variable); });
    CHECK_ALWAYS(done == ((this->*kHandles).live.erase(handle) == 1));
    CHECK_ALWAYS(variable == (done ? 0 : handle));
  }

  void CreateModel() {
    const char* const text = source_.OneOf(kDocuments).c_str();
    Create(models_, {}, [&](uint32_t* out) { return createModelFromJson(text, out); });
  }

  /// With few enough values to work through the highest sensor.
  SensorTraits Traits() {
    const double origin = source_.Flip() ? source_.Real() : 0;
    return {1,
            0,
            32,
            origin,
            static_cast<uint16_t>(source_.Count()),
            static_cast<uint16_t>(source_.Count())};
  }

  /// The size of a small image, or of one that there cannot be.
  ImageSize Size() {
    if (source_.Between(0, 15) == 15) return {65535, 65535};
    return {static_cast<uint16_t>(source_.Between(0, kMaxWidth)),
            static_cast<uint16_t>(source_.Between(0, kMaxHeight))};
  }

  void CreateCalibrationFilter() {
    const uint32_t model = Choose(models_);
    const SensorTraits traits = Traits();
    const ImageSize size = Size();
    const uint32_t format = source_.OneOf(kFormats);
    Create(calibrations_, {size}, [&](uint32_t* out) {
      return createCalibrationFilter(model, traits, size, format, out);
    });
  }

  template <typename Pixel>
  Bytes Filled(std::uint64_t pixels) {
    Bytes bytes = pixelBuffer(pixels, sizeof(Pixel));
    test::Samples samples(source_);
    for (std::size_t i = 0; i + sizeof(Pixel) <= bytes.size(); i += sizeof(Pixel)) {
      const auto pixel = samples.Next<Pixel>();
      std::memcpy(&bytes[i], &pixel, sizeof pixel);
    }
    return bytes;
  }

  void Calibrate() {
    const uint32_t filter = Choose(calibrations_);
    const std::uint64_t pixels = Known(calibrations_, filter).Pixels();
    Bytes range = Filled<std::uint16_t>(pixels);
    Bytes x = pixelBuffer(pixels, 4);
    Bytes z = x;
    const Bytes before = x;
    const bool done =
        Do([&] { return applyCalibration(filter, range.data(), floats(x), floats(z)); });
    CHECK_ALWAYS(done ? calibrations_.live.count(filter) == 1 && pixels <= kMaxPixels
                      : x == before && z == before);
  }

  void Bounds() {
    const uint32_t model = Choose(models_);
    const SensorTraits traits = Traits();
    WorldRangeTraits box = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    SplatSettings splat = {1, 2, 3};
    const std::string before = test::bytesOf(box) + test::bytesOf(splat);
    const ImageSize size = Size();
    const bool done =
        Do([&] { return calculateCalibrationBounds(model, traits, size, &box, &splat); });
    CHECK_ALWAYS(done ? models_.live.count(model) == 1
                      : test::bytesOf(box) + test::bytesOf(splat) == before);
  }

  WorldRangeTraits Grid(int height) {
    const auto rows = static_cast<std::uint32_t>(height);
    if (source_.Flip()) return {0, 59, 60, 0, 1, rows, 0, 8, 65536};
    const auto number = [this] { return test::drawNumber(source_); };
    const auto columns = static_cast<std::uint32_t>(source_.Between(0, kMaxWidth));
    const double x = number() - 20;
    const double z = number() - 20;
    const double xMax = source_.Flip() ? x + 30 : number();
    const double zMax = source_.Flip() ? z + 50 : number();
    return {x, xMax, columns, 0, 1, rows, z, zMax, source_.Flip() ? 100 : source_.Count()};
  }

  void CreateRectificationFilter() {
    const ImageSize size = Size();
    const double slope = source_.Flip() ? source_.Between(-9, 9) / 1000.0 : source_.Real();
    const Object filter = {size,
                           Grid(size.height),
                           {slope, test::drawNumber(source_) - 1, test::drawScale(source_)},
                           static_cast<std::uint32_t>(source_.Between(0, 5)),
                           source_.Between(0, 5),
                           source_.Between(0, 3)};
    const std::uint32_t* const formats = &kFormats[filter.firstFormat];
    Create(rectifications_, filter, [&](uint32_t* out) {
      return createRectificationFilter(filter.mode, filter.grid, size,
                                       static_cast<uint64_t>(filter.images), formats, filter.splat,
                                       Rectified::kMissing, out);
    });
  }

  void Rectify() {
    if (rectifications_.live.empty()) CreateRectificationFilter();
    const uint32_t handle = Choose(rectifications_);
    const Object filter = Known(rectifications_, handle);
    Bytes x = Filled<float>(filter.Pixels()), z = Filled<float>(filter.Pixels());
    Bytes images[3], outputs[3];
    for (int i = 0; i < filter.images; ++i) {
      images[i] = filter.Format(i) == kMono16 ? Filled<std::uint16_t>(filter.Pixels())
                                              : Filled<std::uint8_t>(filter.Pixels());
      outputs[i] = pixelBuffer(filter.Cells(), 1);
    }
    // The range may be written over an input.
    Bytes apart = pixelBuffer(filter.Cells(), 4);
    Bytes* const places[] = {&apart, &apart, &apart, &x, &z, &images[0]};
    Bytes& place = *source_.OneOf(places);
    const auto at = static_cast<std::size_t>(&place == &apart ? 0 : source_.Between(0, 50) * 4);
    place.resize(std::max(place.size(), at + apart.size()));
    const void* const inputs[] = {images[0].data(), images[1].data(), images[2].data()};
    void* const targets[] = {outputs[0].data(), outputs[1].data(), outputs[2].data()};
    const Rectified want(filter, x, z, images);
    const Bytes before = place;
    log_.Clear();
    const bool done = Do([&]() noexcept {
      return rectify(handle, floats(x), floats(z), inputs, floats(place) + at / 4, targets);
    });
    CHECK_ALWAYS(done || place == before);
    CHECK_HOLDS(done == (rectifications_.live.count(handle) == 1 && want.isDone));
    for (std::size_t i = 0; done && i < filter.Cells(); ++i) {
      CHECK_HOLDS(test::sameBits(floats(place)[at / 4 + i], want.range[i]));
    }
    for (int i = 0; done && i < filter.images; ++i) CHECK_HOLDS(outputs[i] == want.images[i]);
  }

  const test::MayFail enough_{false};
  test::ByteSource source_;
  test::CheckedLog log_;
  Handles models_, calibrations_, rectifications_;
};

}  // namespace

PLANEX_PROPERTY(c_calls) { Caller(source).Run(); }
