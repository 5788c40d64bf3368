#include <sys/resource.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "planex/processing/intensity_reduction.h"
#include "tests/api/api_test.h"
#include "tests/support/reference.h"

namespace test {
namespace {

constexpr uint16_t kWidth = 150;
constexpr uint16_t kHeight = 5;
constexpr std::size_t kPoints = std::size_t{kWidth} * kHeight;
constexpr std::size_t kColumns = 61;
constexpr std::size_t kCells = kColumns * kHeight;
constexpr float kMissing = -999;
constexpr WorldRangeTraits kGrid = {-10, 20, kColumns, 0, kHeight - 1, kHeight, 3, 70, 65536};
constexpr SplatSettings kSplat = {0.02, 0.1, 1.0};

template <typename T>
std::vector<T> randomImage(unsigned seed, unsigned low, unsigned high) {
  std::mt19937 random(seed);
  std::vector<T> image(kPoints);
  for (T& value : image) value = static_cast<T>(low + random() % (high - low + 1));
  return image;
}

/// X and Z of a scan that reaches over the grid on all sides, with missing points.
struct Scan {
  std::vector<float> x, z;

  Scan() : x(kPoints), z(kPoints) {
    std::mt19937 random(3);
    const auto uniform = [&](double a, double b) {
      return static_cast<float>(a + (b - a) * (static_cast<double>(random()) / 4294967296.0));
    };
    for (std::size_t i = 0; i < kPoints; ++i) {
      x[i] = uniform(-14, 24);
      z[i] = random() % 8 == 0 ? std::numeric_limits<float>::quiet_NaN() : uniform(2.5, 70.5);
    }
  }
};

std::vector<uint8_t> plainReduction(const std::vector<uint16_t>& values) {
  const auto [m, M] = std::minmax_element(values.begin(), values.end());
  const double span = *M == *m ? 1.0 : *M - *m;
  std::vector<uint8_t> reduced;
  reduced.reserve(values.size());
  for (const uint16_t v : values) {
    reduced.push_back(static_cast<uint8_t>(std::round((v - *m) * 255.0 / span)));
  }
  return reduced;
}

/// What rectify() should write: point by point, mode in the numbers of the algorithm.
void plainRectify(const Scan& scan, int mode, const uint8_t* intensity, std::vector<float>& range,
                  std::vector<uint8_t>& coRectified) {
  const RangeTransform t = rangeTraitsToTransform(kGrid);
  const double a = kSplat.splatA * kSplat.splatC;
  const double b = kSplat.splatB * kSplat.splatC;
  const reference::Rectification k = {1.0 / t.scaleX,
                                      (0.0 - t.originX) / t.scaleX,
                                      1.0 / t.scaleZ,
                                      (0.0 - t.originZ) / t.scaleZ,
                                      0.55 * t.scaleZ * a / t.scaleX,
                                      0.55 * (t.originZ * a + b) / t.scaleX,
                                      mode,
                                      true};
  range.clear();
  coRectified.assign(kCells, 0);
  for (std::size_t row = 0; row < kHeight; ++row) {
    std::vector<uint16_t> heights(kColumns);
    const std::size_t first = row * kWidth;
    reference::rectifyRow(k, &scan.x[first], &scan.z[first],
                          intensity == nullptr ? nullptr : intensity + first, kWidth,
                          heights.data(),
                          intensity == nullptr ? nullptr : &coRectified[row * kColumns], kColumns);
    for (const uint16_t v : heights) {
      range.push_back(v == 0 ? kMissing
                             : std::fma(static_cast<float>(v), static_cast<float>(t.scaleZ),
                                        static_cast<float>(t.originZ)));
    }
  }
}

class RectificationApi : public ApiTest {
 protected:
  static uint32_t makeFilter(uint32_t mode, const std::vector<uint32_t>& formats,
                             WorldRangeTraits grid = kGrid) {
    uint32_t filter = 0;
    EXPECT_TRUE(createRectificationFilter(mode, grid, {kWidth, kHeight}, formats.size(),
                                          formats.data(), kSplat, kMissing, &filter));
    return filter;
  }

  const Scan scan;
};

constexpr int kAlgorithmMode[] = {0, 2, 1, 3, 4};

TEST_F(RectificationApi, HeightsPointByPoint) {
  for (const uint32_t mode : {0u, 1u, 2u}) {
    SCOPED_TRACE(mode);
    std::vector<float> got(kCells);
    ASSERT_TRUE(
        rectify(makeFilter(mode, {}), scan.x.data(), scan.z.data(), nullptr, got.data(), nullptr));
    std::vector<float> want;
    std::vector<uint8_t> none;
    plainRectify(scan, kAlgorithmMode[mode], nullptr, want, none);
    EXPECT_EQ(got, want);
    EXPECT_NE(std::count(want.begin(), want.end(), kMissing), 0);
  }
}

TEST_F(RectificationApi, ImagesOfBothFormatsPointByPoint) {
  const auto narrow = randomImage<uint8_t>(5, 0, 255);
  const auto wide = randomImage<uint16_t>(6, 1000, 1600);
  const auto flat = std::vector<uint16_t>(kPoints, 1234);
  const std::vector<uint32_t> formats = {PLANEX_PIXEL_FORMAT_MONO16, PLANEX_PIXEL_FORMAT_MONO8,
                                         PLANEX_PIXEL_FORMAT_MONO16};
  const void* const inputs[] = {flat.data(), narrow.data(), wide.data()};
  const std::vector<uint8_t> reduced[] = {std::vector<uint8_t>(kPoints, 0), narrow,
                                          plainReduction(wide)};
  for (const uint32_t mode : {0u, 1u, 2u, 3u, 4u}) {
    SCOPED_TRACE(mode);
    std::vector<std::vector<uint8_t>> images(3, std::vector<uint8_t>(kCells, 77));
    void* const outputs[] = {images[0].data(), images[1].data(), images[2].data()};
    std::vector<float> range(kCells);
    ASSERT_TRUE(rectify(makeFilter(mode, formats), scan.x.data(), scan.z.data(), inputs,
                        range.data(), outputs));
    std::vector<float> want;
    std::vector<uint8_t> wantImage;
    for (std::size_t i = 0; i < images.size(); ++i) {
      plainRectify(scan, kAlgorithmMode[mode], reduced[i].data(), want, wantImage);
      EXPECT_EQ(images[i], wantImage) << i;
    }
    EXPECT_EQ(range, want) << "the last image decides";
  }
}

TEST_F(RectificationApi, RangeMayBeWrittenOverTheInputs) {
  const uint32_t filter = makeFilter(1, {});
  std::vector<float> want(kCells);
  ASSERT_TRUE(rectify(filter, scan.x.data(), scan.z.data(), nullptr, want.data(), nullptr));
  constexpr std::size_t kAhead = 200;  // the first output row would overwrite the second input row
  Scan copy;
  float* range = copy.z.data() + kAhead;
  ASSERT_TRUE(rectify(filter, copy.x.data(), copy.z.data(), nullptr, range, nullptr));
  EXPECT_EQ(std::vector<float>(range, range + kCells), want);

  const auto intensity = randomImage<uint8_t>(5, 0, 255);
  std::vector<uint8_t> image(kCells);
  plainRectify(scan, kAlgorithmMode[3], intensity.data(), want, image);
  std::vector<float> shared(kCells);
  uint8_t* const input = reinterpret_cast<uint8_t*>(shared.data()) + 100;
  std::copy(intensity.begin(), intensity.end(), input);
  const void* const inputs[] = {input};
  void* const outputs[] = {image.data()};
  const std::vector<uint32_t> formats = {PLANEX_PIXEL_FORMAT_MONO8};
  ASSERT_TRUE(rectify(makeFilter(3, formats), scan.x.data(), scan.z.data(), inputs, shared.data(),
                      outputs));
  EXPECT_EQ(shared, want);
}

TEST_F(RectificationApi, RefusesOutputsThatAnotherImageNeeds) {
  const auto intensity = randomImage<uint8_t>(5, 1, 255);
  std::vector<uint8_t> later(kPoints, 9);
  std::vector<uint8_t> outputs(3 * kCells, 77);
  std::vector<float> range(kCells, 7);
  const struct {
    const char* name;
    void* first;
    void* second;
  } cases[] = {
      {"outputs of one buffer", &outputs[0], &outputs[kCells - 1]},
      {"the next input", &later[kPoints - 1], &outputs[0]},
      {"the range", &range[kCells - 1], &outputs[0]},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::vector<uint32_t> formats(2, PLANEX_PIXEL_FORMAT_MONO8);
    const void* const inputs[] = {intensity.data(), later.data()};
    void* const targets[] = {c.first, c.second};
    EXPECT_FALSE(rectify(makeFilter(1, formats), scan.x.data(), scan.z.data(), inputs, range.data(),
                         targets));
    EXPECT_EQ(log.TakeOne(), "WARNING: Cannot reuse source image as target image.");
    EXPECT_EQ(range, std::vector<float>(kCells, 7));
  }
}

TEST_F(RectificationApi, RefusesUnusableGrids) {
  const struct {
    const char* name;
    WorldRangeTraits grid;
  } cases[] = {
      {"single column", {-10, 20, 1, 0, 4, kHeight, 3, 70, 65536}},
      {"no column", {5, 5, 0, 0, 4, kHeight, 3, 70, 65536}},
      {"no row", {-10, 20, 61, 0, 4, 0, 3, 70, 65536}},
      {"negative X step", {20, -10, 61, 0, 4, kHeight, 3, 70, 65536}},
      {"negative Z step", {-10, 20, 61, 0, 4, kHeight, 70, 3, 65536}},
      {"infinite Z step", {-10, 20, 61, 0, 4, kHeight, 3, 70, 2}},
      {"NaN limit", {-10, 20, 61, 0, 4, kHeight, NAN, 70, 65536}},
      {"count above int", {20, -10, 0x80000001, 0, 4, kHeight, 3, 70, 65536}},
      {"no memory for it", {-10, 20, 0x7fffffff, 0, 4, 0x7fffffff, 3, 70, 65536}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<float> range(kCells, 7);
    EXPECT_FALSE(rectify(makeFilter(99, {}, c.grid), scan.x.data(), scan.z.data(), nullptr,
                         range.data(), nullptr));
    EXPECT_EQ(log.Messages().back(), "Invalid data in sensor traits scale X / Z");
    EXPECT_EQ(range, std::vector<float>(kCells, 7));
  }
}

TEST_F(RectificationApi, RefusesAnotherNumberOfRowsBeforeAskingForMemory) {
  // A range of that many columns would overlap the inputs behind it, and need a copy of 8 GiB.
  std::vector<float> buffers(3 * kPoints, 7);
  const WorldRangeTraits grid = {-10, 20, 0x7fffffff, 0, 1, 1, 3, 70, 65536};
  rusage before{};
  getrusage(RUSAGE_SELF, &before);
  EXPECT_FALSE(rectify(makeFilter(1, {}, grid), &buffers[kPoints], &buffers[2 * kPoints], nullptr,
                       buffers.data(), nullptr));
  rusage after{};
  getrusage(RUSAGE_SELF, &after);
  EXPECT_EQ(log.TakeOne(), "WARNING: Target image must have the same height as the source image.");
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 1 << 20) << "KiB";
  EXPECT_EQ(buffers, std::vector<float>(3 * kPoints, 7));
}

TEST_F(RectificationApi, ImagesBeforeTheFailingOneAreWritten) {
  const auto intensity = randomImage<uint8_t>(5, 1, 255);
  std::vector<uint8_t> image(kCells, 77);
  std::vector<float> range(kCells, 7);
  const char* const format = "SEVERE: Image format of the corectified image id not supported";
  const struct {
    const char* name;
    uint32_t mode, secondFormat;
    const void* secondInput;
    void* secondOutput;
    const char* message;
    bool firstWritten;
  } cases[] = {
      {"no input", 1, 0, nullptr, nullptr,
       "SEVERE: The data pointer of inputCoRectified number 1 is null", true},
      {"no output", 1, 0, intensity.data(), nullptr,
       "SEVERE: The data pointer of outputCoRectified number 1 is null", true},
      {"no format", 1, 0, intensity.data(), image.data(), format, true},
      {"range format", 1, PLANEX_PIXEL_FORMAT_COORD3D_C16, intensity.data(), image.data(), format,
       true},
      {"mode", 5, 0, intensity.data(), image.data(), "SEVERE: Unknown rectification mode", false},
      {"output over X", 1, PLANEX_PIXEL_FORMAT_MONO8, intensity.data(),
       const_cast<float*>(scan.x.data()), "WARNING: Cannot reuse source image as target image.",
       true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::fill(image.begin(), image.end(), uint8_t{77});
    const std::vector<uint32_t> formats = {PLANEX_PIXEL_FORMAT_MONO8, c.secondFormat};
    const void* const inputs[] = {intensity.data(), c.secondInput};
    void* const outputs[] = {image.data(), c.secondOutput};
    EXPECT_FALSE(rectify(makeFilter(c.mode, formats), scan.x.data(), scan.z.data(), inputs,
                         range.data(), outputs));
    EXPECT_EQ(log.TakeOne(), c.message);
    EXPECT_EQ(image != std::vector<uint8_t>(kCells, 77), c.firstWritten);
    EXPECT_EQ(range, std::vector<float>(kCells, 7));
  }
}

TEST(IntensityReduction, RoundsHalfAwayFromZeroOverAllSpans) {
  for (const unsigned span : {0u, 1u, 2u, 170u, 255u, 510u, 511u, 1020u, 32767u, 65535u}) {
    for (const unsigned low : {0u, 65535u - span}) {
      std::vector<uint16_t> values;
      for (unsigned v = 0; v <= span; ++v) values.push_back(static_cast<uint16_t>(low + v));
      std::vector<uint8_t> reduced(values.size());
      datafusion::planex::reduceIntensities(
          values.data(), values.size(),
          datafusion::planex::findIntensityLimits(values.data(), values.size()), reduced.data());
      ASSERT_EQ(reduced, plainReduction(values)) << span;
    }
  }
}

}  // namespace
}  // namespace test
