// Sequences of C calls with arbitrary arguments, against a plain record of which handles live.
// Buffers have just the size that the arguments ask for; sizes that no image can have come with
// buffers of one byte.

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "planex/api/planex.h"
#include "tests/support/byte_source.h"
#include "tests/support/model_documents.h"
#include "tests/support/property.h"

namespace {

constexpr std::uint64_t kMaxPixels = 2048;
constexpr std::uint64_t kLargestImage = std::numeric_limits<std::int32_t>::max();
constexpr double kMaxRangeCount = 2048;
constexpr int kMaxCalls = 48;
constexpr std::uint32_t kFormats[] = {PLANEX_PIXEL_FORMAT_MONO8, PLANEX_PIXEL_FORMAT_MONO16,
                                      PLANEX_PIXEL_FORMAT_COORD3D_C16, 0, 0xffffffff};

const std::string kDocuments[] = {
    test::with(test::plainModelDocument(), R"("x": 640, "y": 480)", R"("x": 65535, "y": 65535)"),
    test::kModelDocument,
    // Read as far as its sensor size; without focal length it cannot calibrate.
    test::with(test::with(test::kModelDocument, "1000.0", "0"), "LensCenter", "Other"),
    "SensorSize 0 0", "{}", ""};

/// The objects of one kind as the interface must know them, each with what a test needs to use it.
template <typename Info>
class Handles {
 public:
  void Add(std::uint32_t handle, Info info) {
    CHECK_ALWAYS(last_ == 0 || handle == last_ + 1);
    CHECK_ALWAYS(!IsFull());
    last_ = handle;
    live_.emplace(handle, std::move(info));
  }
  /// Null when no such object lives.
  const Info* Find(std::uint32_t handle) const {
    const auto found = live_.find(handle);
    return found == live_.end() ? nullptr : &found->second;
  }
  bool IsFull() const { return live_.size() == 256; }
  void Remove(std::uint32_t handle) { CHECK_ALWAYS(live_.erase(handle) == 1); }
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
  std::uint64_t inputPixels = 0, cells = 0;
  std::shared_ptr<std::vector<std::uint32_t>> formats =
      std::make_shared<std::vector<std::uint32_t>>();  // one for each image
};

using Bytes = std::vector<unsigned char>;
constexpr unsigned char kUntouched = 0x5a;

/// A buffer without a byte to spare for so many pixels; one byte for a size that no image can have.
Bytes pixelBuffer(std::uint64_t pixels, std::size_t bytesPerPixel) {
  const std::size_t size = pixels > kMaxPixels ? 1 : pixels * bytesPerPixel;
  Bytes bytes;
  bytes.reserve(std::max<std::size_t>(size, 1));  // never null
  bytes.resize(size, kUntouched);
  return bytes;
}

bool isUntouched(const Bytes& bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](auto b) { return b == kUntouched; });
}

float* floats(Bytes& bytes) { return reinterpret_cast<float*>(bytes.data()); }

/// Whether it is a possible size, for which there must be memory, and more than a test has.
bool isTooLarge(std::uint64_t pixels) { return pixels > kMaxPixels && pixels <= kLargestImage; }

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

  /// What a call may do when memory fails, which it does in calls alone.
  enum class WithoutMemory { MayThrow, Refuses };

  template <typename Call>
  bool Do(WithoutMemory way, Call call) {
    bool done = false;
    try {
      const test::MayFail yes(true);
      done = call();
    } catch (const std::bad_alloc&) {
      CHECK_ALWAYS(test::MemoryFaults::struck && way == WithoutMemory::MayThrow);
    }
    log_.CheckCall(done);
    return done;
  }

  /// One argument in sixteen is left out.
  template <typename T>
  T* OrNull(T* pointer) {
    return source_.Between(0, 15) == 0 ? nullptr : pointer;
  }

  void FillBytes(Bytes& bytes) {
    const std::string text = source_.Text(std::min<std::size_t>(bytes.size(), 32));
    for (std::size_t i = 0; i < bytes.size() && !text.empty(); ++i) {
      bytes[i] = static_cast<unsigned char>(text[i % text.size()]);
    }
  }
  /// Two values of any kind among those of the grid.
  void FillFloats(Bytes& bytes) {
    float* const values = floats(bytes);
    const std::size_t count = bytes.size() / sizeof(float);
    for (std::size_t i = 0; i < count; ++i) values[i] = static_cast<float>(i % 10);
    for (const std::size_t i : {count / 3, count / 2}) {
      if (i < count) values[i] = source_.Raw<float>();
    }
  }

  void CreateModel(const std::string& document) {
    uint32_t handle = 77;
    uint32_t* const out = OrNull(&handle);
    const char* const text = OrNull(document.c_str());
    if (Do(WithoutMemory::MayThrow, [&] { return createModelFromJson(text, out); })) {
      models_.Add(handle, {});
    } else {
      CHECK_ALWAYS(handle == (out == nullptr ? 77u : 0u));
    }
  }

  void Export() {
    const uint32_t handle = models_.Choose(source_);
    Bytes text(static_cast<std::size_t>(source_.Between(0, 15)) * 256, kUntouched);
    char* const out = OrNull(reinterpret_cast<char*>(text.data()));
    const bool done =
        Do(WithoutMemory::MayThrow, [&] { return createJsonFromModel(handle, out, text.size()); });
    CHECK_ALWAYS(!done || (out != nullptr && models_.Find(handle) != nullptr));
    CHECK_ALWAYS(done || isUntouched(text));
  }

  template <typename Info>
  void Destroy(bool (*destroy)(uint32_t*), Handles<Info>& handles) {
    const uint32_t handle = handles.Choose(source_);
    uint32_t variable = handle;
    uint32_t* const out = OrNull(&variable);
    const bool done = Do(WithoutMemory::Refuses, [&] { return destroy(out); });
    CHECK_ALWAYS(done == (out == nullptr || handles.Find(handle) != nullptr));
    CHECK_ALWAYS(variable == (done && out != nullptr ? 0 : handle));
    if (done && out != nullptr) handles.Remove(handle);
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
    if (Do(WithoutMemory::MayThrow,
           [&] { return createCalibrationFilter(model, traits, size, format, out); })) {
      CHECK_ALWAYS(models_.Find(model) != nullptr);
      calibrations_.Add(handle, pixelsOf(size));
    } else {
      CHECK_HOLDS(handle == 77 || (handle == 0 && calibrations_.IsFull()));
    }
  }

  void Calibrate() {
    const uint32_t filter = calibrations_.Choose(source_);
    const std::uint64_t* const pixels = calibrations_.Find(filter);
    Bytes range = pixelBuffer(pixels == nullptr ? 0 : *pixels, 2);
    Bytes x = pixelBuffer(pixels == nullptr ? 0 : *pixels, 4);
    Bytes z = x;
    FillBytes(range);
    const void* const in = OrNull(static_cast<void*>(range.data()));
    float* const outX = OrNull(floats(x));
    float* const outZ = source_.Between(0, 15) == 0 ? outX : OrNull(floats(z));
    const bool done =
        Do(WithoutMemory::MayThrow, [&] { return applyCalibration(filter, in, outX, outZ); });
    const bool complete = in != nullptr && outX != nullptr && outZ != nullptr;
    CHECK_ALWAYS(!done || (complete && pixels != nullptr && *pixels <= kMaxPixels));
    CHECK_ALWAYS(done || (isUntouched(x) && isUntouched(z)));
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
    const ImageSize size = Size();
    WorldRangeTraits* const outBox = OrNull(&box);
    SplatSettings* const outSplat = OrNull(&splat);
    const bool done = Do(WithoutMemory::MayThrow, [&] {
      return calculateCalibrationBounds(model, traits, size, outBox, outSplat);
    });
    CHECK_ALWAYS(!done || models_.Find(model) != nullptr);
    CHECK_ALWAYS(done || test::bytesOf(box) + test::bytesOf(splat) == before);
    if (!done) return;
    CHECK_ALWAYS(box.xCount == size.width && box.yCount == size.height && box.zLevels == 65536);
    CHECK_ALWAYS(splat.splatC == 1);
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
    CHECK_ALWAYS(test::sameBits(rangeTraitsToTransform(grid).originX, grid.xMin));
    Rectification filter = {pixelsOf(size), std::uint64_t{grid.xCount} * grid.yCount};
    for (int i = source_.Between(0, 3); i > 0; --i) {
      filter.formats->push_back(source_.OneOf(kFormats));
    }
    const std::uint32_t* const formats = OrNull(filter.formats->data());
    const SplatSettings splat = {source_.Real(), source_.Real(), source_.Real()};
    const std::uint64_t countBits = source_.Flip() ? std::uint64_t{1} << 32 : 0;
    uint32_t handle = 77;
    uint32_t* const out = OrNull(&handle);
    const auto mode =
        source_.Between(0, 6) == 6 ? source_.Count() : static_cast<uint32_t>(source_.Between(0, 4));
    const auto missing = source_.Raw<float>();
    const bool done = Do(WithoutMemory::MayThrow, [&] {
      return createRectificationFilter(mode, grid, size, countBits + filter.formats->size(),
                                       formats, splat, missing, out);
    });
    CHECK_HOLDS(done == (out != nullptr && !rectifications_.IsFull()));
    CHECK_ALWAYS(done || handle == (out == nullptr ? 77u : 0u));
    if (done) rectifications_.Add(handle, std::move(filter));
  }

  void Rectify() {
    const uint32_t handle = rectifications_.Choose(source_);
    const Rectification* const found = rectifications_.Find(handle);
    const Rectification filter = found != nullptr ? *found : Rectification();
    Bytes x = pixelBuffer(filter.inputPixels, 4);
    Bytes z = x;
    FillFloats(x);
    FillFloats(z);
    std::vector<Bytes> images;
    std::vector<const void*> inputs;
    for (const std::uint32_t format : *filter.formats) {
      images.push_back(
          pixelBuffer(filter.inputPixels, format == PLANEX_PIXEL_FORMAT_MONO16 ? 2 : 1));
      FillBytes(images.back());
      inputs.push_back(OrNull(static_cast<void*>(images.back().data())));
    }
    const float* const inX = OrNull(floats(x));
    const float* const inZ = source_.Between(0, 15) == 0 ? inX : OrNull(floats(z));
    const void* const* const in = OrNull(inputs.data());
    const bool overlap = filter.cells == filter.inputPixels && source_.Between(0, 7) == 0;
    Bytes range = pixelBuffer(filter.cells, 4);
    std::vector<Bytes> outputs(images.size(), pixelBuffer(filter.cells, 1));
    std::vector<void*> pointers;
    for (Bytes& output : outputs) pointers.push_back(output.data());
    if (overlap && !pointers.empty()) pointers[0] = x.data();
    const Bytes zBefore = z;
    float* const outRange = overlap ? floats(z) : OrNull(floats(range));
    void* const* const out = OrNull(pointers.data());
    const bool done =
        Do(WithoutMemory::Refuses, [&] { return rectify(handle, inX, inZ, in, outRange, out); });
    CHECK_ALWAYS(!done || (found != nullptr && outRange != nullptr && filter.cells <= kMaxPixels));
    CHECK_ALWAYS(done || (isUntouched(range) && z == zBefore));
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
        const char* const path = source_.OneOf(paths);
        uint32_t handle = 77;
        uint32_t* const out = OrNull(&handle);
        CHECK_ALWAYS(
            !Do(WithoutMemory::MayThrow, [&] { return createModelFromFilePath(path, out); }));
        CHECK_ALWAYS(handle == 77);
        return;
      }
      default:
        if (filled_) return;  // once is slow enough
        filled_ = true;
        for (int i = 0; i < 260; ++i) CreateModel("SensorSize 0 0");
    }
  }

  const test::MayFail enough_{false};
  test::ByteSource source_;
  test::CheckedLog log_;
  bool filled_ = false;
  Handles<Model> models_;
  Handles<std::uint64_t> calibrations_;  // pixels of an image
  Handles<Rectification> rectifications_;
};

}  // namespace

PLANEX_PROPERTY(c_calls) { Caller(source).Run(); }
