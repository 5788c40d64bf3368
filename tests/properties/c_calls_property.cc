// Sequences of C calls with arbitrary arguments, against a plain record of which handles live.
// Buffers have just the size that the arguments ask for; sizes that no image can have come with
// buffers of one byte.

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "planex/api/planex.h"
#include "tests/support/byte_source.h"
#include "tests/support/property.h"

namespace {

constexpr std::uint64_t kMaxPixels = 2048;
constexpr std::uint64_t kLargestImage = std::numeric_limits<std::int32_t>::max();
constexpr double kMaxRangeCount = 2048;
constexpr int kMaxCalls = 48;
constexpr std::uint32_t kFormats[] = {PLANEX_PIXEL_FORMAT_MONO8, PLANEX_PIXEL_FORMAT_MONO16,
                                      PLANEX_PIXEL_FORMAT_COORD3D_C16, 0, 0xffffffff};

const char* const kDocuments[] = {
    // Nothing but the state and the sensor differs from a model that was never calibrated.
    R"({"class":"Image.Planex.Model","data":{"FileVersion":1,"CurrentState":"CALIBRATED",
"SkewMode":"XZ_IN_LIGHT_PLANE","CalibrationError":0,"CalibrationErrorMax":0,"AlignmentError":0,
"AlignmentErrorMax":0,"FocalLength":1,"SensorSize":{"x":65535,"y":65535},
"LensCenter":{"x":1,"y":1},"Skew":{"x":0,"y":1,"z":0},"Homography":[[1,0,0],[0,1,0],[0,0,1]],
"Pose":[[1,0,0,0],[0,1,0,0],[0,0,1,0],[0,0,0,1]],"LensCoefficients":[0,0,0,0,0,0,0]}})",
    // Every part is in use.
    R"({"class":"Image.Planex.Model","data":{"FileVersion":2,"CurrentState":"CALIBRATED_ALIGNED_3D",
"SkewMode":"Z_NOT_IN_LIGHT_PLANE","CalibrationError":0,"CalibrationErrorMax":0,"AlignmentError":0,
"AlignmentErrorMax":0,"FocalLength":1000,"SensorSize":{"x":640,"y":480},
"LensCenter":{"x":321.5,"y":238},"Skew":{"x":0.1,"y":1,"z":0.2},
"Homography":[[100,2,1],[-3,120,50],[0.01,0.3,1]],"Pose":[[1,0,0,5],[0,1,0,6],[0,0,1,7]],
"LensCoefficients":[-0.12,0.03,-0.002,0.001,-0.0015,0.002,-0.003],
"SheetCurve":[0.5,0.001,0.01,0.002,-0.0003,0.00001],"CalibratedRegion":{"PointCount":null,
"AverageResidualX":null,"AverageResidualZ":null,"MaximumResidualX":null,"MaximumResidualZ":null}}})",
    // Read as far as its sensor size; without focal length it cannot calibrate.
    R"({"class":"Image.Planex.Model","data":{"FileVersion":2,"CurrentState":"CALIBRATED",
"SkewMode":"XZ_IN_LIGHT_PLANE","CalibrationError":0,"CalibrationErrorMax":0,"AlignmentError":0,
"AlignmentErrorMax":0,"FocalLength":0,"SensorSize":{"x":64,"y":48}}})",
    "SensorSize 0 0", "{}", ""};

/// The objects of one kind as the interface must know them, each with what a test needs to use it.
template <typename Info>
class Handles {
 public:
  void Add(std::uint32_t handle, Info info) {
    CHECK_HOLDS(handle > last_);
    CHECK_HOLDS(!IsFull());
    last_ = handle;
    live_.emplace(handle, std::move(info));
  }
  /// Null when no such object lives.
  const Info* Find(std::uint32_t handle) const {
    const auto found = live_.find(handle);
    return found == live_.end() ? nullptr : &found->second;
  }
  bool IsFull() const { return live_.size() == 256; }
  void Remove(std::uint32_t handle) { CHECK_HOLDS(live_.erase(handle) == 1); }
  void Clear() { live_.clear(); }

  /// Mostly the last one, or one before it, or the one that comes next.
  std::uint32_t Choose(test::ByteSource& source) const {
    const int kind = source.Between(0, 15);
    if (kind == 0) return source.Count();
    return last_ + 1 - static_cast<std::uint32_t>(kind < 8 ? 1 : kind % 4);
  }

 private:
  std::map<std::uint32_t, Info> live_;
  std::uint32_t last_ = 0;
};

struct Model {};

struct Rectification {
  std::uint64_t inputPixels, cells;
  std::shared_ptr<std::vector<std::uint32_t>> formats;  // one for each image
};

/// Memory without a byte to spare.
class Buffer {
 public:
  Buffer(std::uint64_t bytes, unsigned char value)
      : size_(bytes), bytes_(new unsigned char[static_cast<std::size_t>(bytes)]) {
    std::memset(bytes_.get(), value, size_);
  }

  template <typename T>
  T* As() {
    return reinterpret_cast<T*>(bytes_.get());
  }
  std::size_t Size() const { return size_; }
  bool Holds(unsigned char value) const {
    return std::all_of(bytes_.get(), bytes_.get() + size_, [&](auto b) { return b == value; });
  }
  bool operator==(const Buffer& other) const {
    return size_ == other.size_ && std::memcmp(bytes_.get(), other.bytes_.get(), size_) == 0;
  }

  void FillBytes(test::ByteSource& source) {
    const std::string text = source.Text(std::min<std::size_t>(size_, 32));
    for (std::size_t i = 0; i < size_ && !text.empty(); ++i) {
      bytes_[i] = static_cast<unsigned char>(text[i % text.size()]);
    }
  }
  /// A few numbers, repeated and moved on.
  void FillFloats(test::ByteSource& source) {
    constexpr std::size_t kDrawn = 8;
    const std::size_t count = size_ / sizeof(float);
    float* const values = As<float>();
    for (std::size_t i = 0; i < count; ++i) {
      values[i] = i < kDrawn ? toFloat(source.Real())
                             : values[i % kDrawn] + static_cast<float>(i / kDrawn % 16);
    }
  }

  /// Numbers beyond float become infinite.
  static float toFloat(double value) {
    constexpr double kMax = std::numeric_limits<float>::max();
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    if (value > kMax) return kInfinity;
    return value < -kMax ? -kInfinity : static_cast<float>(value);
  }

 private:
  std::size_t size_;
  std::unique_ptr<unsigned char[]> bytes_;
};

constexpr unsigned char kUntouched = 0x5a;

/// A buffer for so many pixels; one byte for a size that no image can have.
Buffer pixelBuffer(std::uint64_t pixels, std::size_t bytesPerPixel) {
  return Buffer(pixels > kMaxPixels ? 1 : pixels * bytesPerPixel, kUntouched);
}

/// Whether it is a possible size, for which there must be memory, and more than a test has.
bool isTooLarge(std::uint64_t pixels) { return pixels > kMaxPixels && pixels <= kLargestImage; }

std::uint64_t pixelsOf(ImageSize size) { return std::uint64_t{size.width} * size.height; }

/// The outputs of one rectify().
struct Rectified {
  explicit Rectified(const Rectification& filter) : range(pixelBuffer(filter.cells, 4)) {
    for (std::size_t i = 0; i < filter.formats->size(); ++i) {
      images.push_back(pixelBuffer(filter.cells, 1));
      pointers.push_back(images.back().As<void>());
    }
  }
  bool operator==(const Rectified& other) const {
    return range == other.range && images == other.images;
  }

  Buffer range;
  std::vector<Buffer> images;
  std::vector<void*> pointers;
};

/// One input's worth of calls. Handles count on from one input to the next, objects do not survive.
class Caller {
 public:
  explicit Caller(test::ByteSource source) : source_(source) {
    destroyAllModels();
    destroyAllCalibrationFilters();
    destroyAllRectificationFilters();
  }

  void Run() {
    for (int i = 0; i < kMaxCalls && !source_.IsEmpty(); ++i) CallOne();
  }

 private:
  void CallOne() {
    switch (source_.Between(0, 15)) {
      case 0:
      case 1:
        return CreateModel(source_.OneOf(kDocuments));
      case 2:
        return Export();
      case 3:
        return Destroy(destroyModel, models_);
      case 4:
      case 5:
        return CreateCalibrationFilter();
      case 6:
        return Destroy(destroyCalibrationFilter, calibrations_);
      case 7:
      case 8:
        return Calibrate();
      case 9:
        return Bounds();
      case 10:
      case 11:
        return CreateRectificationFilter();
      case 12:
        return Destroy(destroyRectificationFilter, rectifications_);
      case 13:
      case 14:
        return Rectify();
      default:
        return Rare();
    }
  }

  /// One argument in sixteen is left out.
  template <typename T>
  T* OrNull(T* pointer) {
    return source_.Between(0, 15) == 0 ? nullptr : pointer;
  }

  void CreateModel(const char* document) {
    uint32_t handle = 77;
    uint32_t* const out = OrNull(&handle);
    const bool done = createModelFromJson(OrNull(document), out);
    log_.CheckCall(done);
    if (done) {
      models_.Add(handle, {});
    } else {
      CHECK_HOLDS(handle == (out == nullptr ? 77u : 0u));
    }
  }

  void Export() {
    const uint32_t handle = models_.Choose(source_);
    Buffer text(static_cast<std::uint64_t>(source_.Between(0, 15)) * 256, kUntouched);
    char* const out = OrNull(text.As<char>());
    const bool done = createJsonFromModel(handle, out, text.Size());
    log_.CheckCall(done);
    CHECK_HOLDS(!done || (out != nullptr && models_.Find(handle) != nullptr));
    CHECK_HOLDS(done || text.Holds(kUntouched));
  }

  template <typename Info>
  void Destroy(bool (*destroy)(uint32_t*), Handles<Info>& handles) {
    const uint32_t handle = handles.Choose(source_);
    uint32_t variable = handle;
    uint32_t* const out = OrNull(&variable);
    const bool done = destroy(out);
    log_.CheckCall(done);
    if (out == nullptr) {
      CHECK_HOLDS(done);
      return;
    }
    CHECK_HOLDS(done == (handles.Find(handle) != nullptr));
    CHECK_HOLDS(variable == (done ? 0 : handle));
    if (done) handles.Remove(handle);
  }

  SensorTraits Traits() {
    SensorTraits traits = {1, 0, 0.125, 0, 0, 0};
    if (source_.Flip()) {
      traits = {source_.Real(), source_.Real(), source_.Real(), source_.Real(), 0, 0};
    }
    traits.width = static_cast<uint16_t>(source_.Count());
    traits.height = static_cast<uint16_t>(source_.Count());
    return traits;
  }

  /// The size of an image that there is memory for, or of none at all.
  ImageSize Size() {
    const ImageSize size = {static_cast<uint16_t>(source_.Count()),
                            static_cast<uint16_t>(source_.Count())};
    return isTooLarge(pixelsOf(size)) ? ImageSize{65535, 65535} : size;
  }

  void CreateCalibrationFilter() {
    const uint32_t model = models_.Choose(source_);
    const SensorTraits traits = Traits();
    const ImageSize size = Size();
    const uint32_t format = source_.OneOf(kFormats);
    uint32_t handle = 77;
    uint32_t* const out = OrNull(&handle);
    const bool done = createCalibrationFilter(model, traits, size, format, out);
    log_.CheckCall(done);
    if (done) {
      CHECK_HOLDS(models_.Find(model) != nullptr);
      calibrations_.Add(handle, pixelsOf(size));
    } else {
      CHECK_HOLDS(handle == 77 || (handle == 0 && calibrations_.IsFull()));
    }
  }

  void Calibrate() {
    const uint32_t filter = calibrations_.Choose(source_);
    const std::uint64_t* const pixels = calibrations_.Find(filter);
    Buffer range = pixelBuffer(pixels == nullptr ? 0 : *pixels, 2);
    Buffer x = pixelBuffer(pixels == nullptr ? 0 : *pixels, 4);
    Buffer z = pixelBuffer(pixels == nullptr ? 0 : *pixels, 4);
    range.FillBytes(source_);
    const void* const in = OrNull(range.As<void>());
    auto* const outX = OrNull(x.As<float>());
    auto* const outZ = source_.Between(0, 15) == 0 ? outX : OrNull(z.As<float>());
    const bool done = applyCalibration(filter, in, outX, outZ);
    log_.CheckCall(done);
    const bool complete = in != nullptr && outX != nullptr && outZ != nullptr;
    CHECK_HOLDS(!done || (complete && pixels != nullptr && *pixels <= kMaxPixels));
    CHECK_HOLDS(done || (x.Holds(kUntouched) && z.Holds(kUntouched)));
  }

  void Bounds() {
    const uint32_t model = models_.Choose(source_);
    SensorTraits traits = Traits();
    // Millions of samples are worked through as asked; here that would only be slow.
    const double count = traits.height / std::abs(traits.scaleZ);
    if (count > kMaxRangeCount && count < 0x1p25) traits.scaleZ = 0;
    WorldRangeTraits box = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    SplatSettings splat = {1, 2, 3};
    const std::string before = test::bytesOf(box) + test::bytesOf(splat);
    const bool done =
        calculateCalibrationBounds(model, traits, Size(), OrNull(&box), OrNull(&splat));
    log_.CheckCall(done);
    CHECK_HOLDS(!done || models_.Find(model) != nullptr);
    CHECK_HOLDS(done || test::bytesOf(box) + test::bytesOf(splat) == before);
  }

  WorldRangeTraits Grid(ImageSize size) {
    if (source_.Flip()) return {0, 8, 9, 0, 1, size.height, 0, 8, 65536};
    WorldRangeTraits grid = {};
    for (double* limit : {&grid.xMin, &grid.xMax, &grid.yMin, &grid.yMax, &grid.zMin, &grid.zMax}) {
      *limit = source_.Real();
    }
    for (uint32_t* steps : {&grid.xCount, &grid.yCount, &grid.zLevels}) *steps = source_.Count();
    if (source_.Flip()) grid.yCount = size.height;
    // With the rows of the inputs it must fit into memory; with others nothing is to be touched.
    const bool used = grid.yCount == size.height;
    if (used && isTooLarge(std::uint64_t{grid.xCount} * grid.yCount)) grid.xCount = 0xffffffff;
    return grid;
  }

  void CreateRectificationFilter() {
    const ImageSize size = Size();
    const WorldRangeTraits grid = Grid(size);
    const RangeTransform transform = rangeTraitsToTransform(grid);
    CHECK_HOLDS(test::sameBits(transform.originX, grid.xMin));
    auto formats = std::make_shared<std::vector<std::uint32_t>>();
    for (int i = source_.Between(0, 3); i > 0; --i) formats->push_back(source_.OneOf(kFormats));
    const std::uint32_t* const formatPointer = OrNull(formats->data());
    const SplatSettings splat = {source_.Real(), source_.Real(), source_.Real()};
    const std::uint64_t countBits = source_.Flip() ? std::uint64_t{1} << 32 : 0;
    uint32_t handle = 77;
    uint32_t* const out = OrNull(&handle);
    const bool done = createRectificationFilter(
        source_.Between(0, 6) == 6 ? source_.Count() : static_cast<uint32_t>(source_.Between(0, 4)),
        grid, size, countBits + formats->size(), formatPointer, splat, source_.Raw<float>(), out);
    log_.CheckCall(done);
    CHECK_HOLDS(done == (out != nullptr && !rectifications_.IsFull()));
    if (done) {
      const std::uint64_t cells = std::uint64_t{grid.xCount} * grid.yCount;
      rectifications_.Add(handle, {pixelsOf(size), cells, std::move(formats)});
    } else {
      CHECK_HOLDS(handle == (out == nullptr ? 77u : 0u));
    }
  }

  void Rectify() {
    const uint32_t handle = rectifications_.Choose(source_);
    const Rectification* const found = rectifications_.Find(handle);
    const Rectification filter =
        found != nullptr ? *found
                         : Rectification{0, 0, std::make_shared<std::vector<std::uint32_t>>()};
    Buffer x = pixelBuffer(filter.inputPixels, 4);
    Buffer z = pixelBuffer(filter.inputPixels, 4);
    x.FillFloats(source_);
    z.FillFloats(source_);
    std::vector<Buffer> images;
    std::vector<const void*> inputs;
    for (const std::uint32_t format : *filter.formats) {
      images.push_back(
          pixelBuffer(filter.inputPixels, format == PLANEX_PIXEL_FORMAT_MONO16 ? 2 : 1));
      images.back().FillBytes(source_);
      inputs.push_back(OrNull(images.back().As<void>()));
    }
    Rectified one(filter);
    const auto* const inX = OrNull(x.As<float>());
    const auto* const inZ = source_.Between(0, 15) == 0 ? inX : OrNull(z.As<float>());
    const auto* const in = OrNull(inputs.data());
    const bool overlap = filter.cells == filter.inputPixels && source_.Between(0, 7) == 0;
    if (overlap && !one.pointers.empty()) one.pointers[0] = x.As<void>();
    auto* const out = OrNull(one.pointers.data());
    auto* const range = overlap ? z.As<float>() : OrNull(one.range.As<float>());
    const Buffer zBefore = copyOf(z);
    const bool done = rectify(handle, inX, inZ, in, range, out);
    log_.CheckCall(done);
    CHECK_HOLDS(!done || (found != nullptr && range != nullptr && filter.cells <= kMaxPixels));
    CHECK_HOLDS(done || (one.range.Holds(kUntouched) && z == zBefore));
    if (!done || overlap) return;
    Rectified three(filter);
    test::useThreads(3);
    CHECK_HOLDS(rectify(handle, inX, inZ, in, three.range.As<float>(),
                        out == nullptr ? nullptr : three.pointers.data()));
    test::useThreads(1);
    CHECK_HOLDS(three == one);
  }

  static Buffer copyOf(Buffer& original) {
    Buffer copy(original.Size(), 0);
    std::memcpy(copy.As<void>(), original.As<void>(), original.Size());
    return copy;
  }

  void Rare() {
    switch (source_.Between(0, 4)) {
      case 0:
        destroyAllModels();
        return models_.Clear();
      case 1:
        destroyAllCalibrationFilters();
        return calibrations_.Clear();
      case 2:
        destroyAllRectificationFilters();
        return rectifications_.Clear();
      case 3: {
        const char* const paths[] = {nullptr, "", "/", "/dev/null", "/nonexistent"};
        uint32_t handle = 77;
        CHECK_HOLDS(!createModelFromFilePath(source_.OneOf(paths), OrNull(&handle)));
        CHECK_HOLDS(handle == 77);
        return log_.CheckCall(false);
      }
      default:
        if (filled_) return;  // once is slow enough
        filled_ = true;
        for (int i = 0; i < 260; ++i) CreateModel("SensorSize 0 0");
    }
  }

  test::ByteSource source_;
  test::CheckedLog log_;
  bool filled_ = false;
  Handles<Model> models_;
  Handles<std::uint64_t> calibrations_;  // pixels of an image
  Handles<Rectification> rectifications_;
};

}  // namespace

PLANEX_PROPERTY(c_calls) { Caller(source).Run(); }
