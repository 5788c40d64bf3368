// Sequences of C calls with arbitrary arguments, against a plain record of which handles live.
// Buffers have just the size that the arguments ask for; sizes that no image can have come with
// buffers of one byte.

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "planex/api/planex.h"
#include "tests/support/model_documents.h"
#include "tests/support/property.h"

namespace {

constexpr int kMaxWidth = 63, kMaxHeight = 31;
constexpr std::uint64_t kMaxPixels = kMaxWidth * kMaxHeight;
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

/// What a test needs to use a filter.
struct Object {
  std::uint64_t pixels = 0, cells = 0;  // of an input, of the grid
  int firstFormat = 0, images = 0;
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

std::uint64_t pixelsOf(ImageSize size) { return std::uint64_t{size.width} * size.height; }

/// One input's worth of calls. Handles count on from one input to the next, objects do not survive.
class Caller {
 public:
  explicit Caller(test::ByteSource source) : source_(source) {
    destroyAllModels();
    destroyAllCalibrationFilters();
    destroyAllRectificationFilters();
  }

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
    Create(calibrations_, {pixelsOf(size)}, [&](uint32_t* out) {
      return createCalibrationFilter(model, traits, size, format, out);
    });
  }

  /// A buffer of few values, over and over.
  Bytes Filled(std::uint64_t pixels, std::size_t bytesPerPixel) {
    Bytes bytes = pixelBuffer(pixels, bytesPerPixel);
    const std::string text = source_.Text(std::min<std::size_t>(bytes.size(), 32));
    for (std::size_t i = 0; i < bytes.size() && !text.empty(); ++i) {
      bytes[i] = static_cast<unsigned char>(text[i % text.size()]);
    }
    return bytes;
  }

  void Calibrate() {
    const uint32_t filter = Choose(calibrations_);
    const std::uint64_t pixels = Known(calibrations_, filter).pixels;
    Bytes range = Filled(pixels, 2);
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

  void CreateRectificationFilter() {
    const ImageSize size = Size();
    const WorldRangeTraits grid = {0, 8, 9, 0, 1, size.height, source_.Real(), 8, 65536};
    const Object filter = {pixelsOf(size), std::uint64_t{grid.xCount} * grid.yCount,
                           source_.Between(0, 5), source_.Between(0, 3)};
    const std::uint32_t* const formats = &kFormats[filter.firstFormat];
    const SplatSettings splat = {source_.Real(), source_.Real(), source_.Real()};
    const auto mode = static_cast<uint32_t>(source_.Between(0, 5));
    Create(rectifications_, filter, [&](uint32_t* out) {
      return createRectificationFilter(mode, grid, size, static_cast<uint64_t>(filter.images),
                                       formats, splat, -1, out);
    });
  }

  void Rectify() {
    const uint32_t handle = Choose(rectifications_);
    const Object filter = Known(rectifications_, handle);
    Bytes x = Filled(filter.pixels, sizeof(float));
    Bytes images[3], outputs[3];
    const void* inputs[3];
    void* targets[3];
    for (int i = 0; i < filter.images; ++i) {
      images[i] = Filled(filter.pixels, kFormats[filter.firstFormat + i] == kMono16 ? 2 : 1);
      outputs[i] = pixelBuffer(filter.cells, 1);
      inputs[i] = images[i].data();
      targets[i] = outputs[i].data();
    }
    Bytes range = pixelBuffer(filter.cells, 4);
    const Bytes before = range;
    const bool done = Do([&]() noexcept {
      return rectify(handle, floats(x), floats(x), inputs, floats(range), targets);
    });
    CHECK_ALWAYS(done ? rectifications_.live.count(handle) == 1 && filter.cells <= kMaxPixels
                      : range == before);
  }

  const test::MayFail enough_{false};
  test::ByteSource source_;
  test::CheckedLog log_;
  Handles models_, calibrations_, rectifications_;
};

}  // namespace

PLANEX_PROPERTY(c_calls) { Caller(source).Run(); }
