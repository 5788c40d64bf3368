#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "planex/processing/intensity_reduction.h"
#include "tests/api/api_test.h"

namespace test {
namespace {

constexpr uint16_t kWidth = 150, kHeight = 5, kColumns = 61;
constexpr std::size_t kPoints = kWidth * kHeight, kCells = kColumns * kHeight;
constexpr WorldRangeTraits kGrid = {-10, 20, kColumns, 0, kHeight - 1, kHeight, 3, 70, 65536};
const std::vector<uint32_t> kMono8 = {PLANEX_PIXEL_FORMAT_MONO8};

std::vector<uint8_t> plainReduction(const std::vector<uint16_t>& values) {
  const auto [min, max] = std::minmax_element(values.begin(), values.end());
  const double span = *max == *min ? 1.0 : *max - *min;
  std::vector<uint8_t> reduced;
  for (const uint16_t v : values) {
    reduced.push_back(static_cast<uint8_t>(std::round((v - *min) * 255.0 / span)));
  }
  return reduced;
}

/// One call of rectify(), with its results.
struct Rectified {
  Rectified(uint32_t mode, const std::vector<uint32_t>& formats, const float* x, const float* z,
            const void* const* inputs, float* target = nullptr)
      : range(kCells), images(formats.size(), std::vector<uint8_t>(kCells, 77)) {
    std::vector<void*> outputs;
    for (auto& image : images) outputs.push_back(image.data());
    uint32_t filter = 0;
    float* const out = target == nullptr ? range.data() : target;
    EXPECT_TRUE(createRectificationFilter(mode, kGrid, {kWidth, kHeight}, formats.size(),
                                          formats.data(), {0.02, 0.1, 1.5}, -999, &filter));
    EXPECT_TRUE(rectify(filter, x, z, inputs, out, outputs.data()));
    if (target != nullptr) range.assign(out, out + kCells);
  }

  std::vector<float> range;
  std::vector<std::vector<uint8_t>> images;
};

class RectificationApi : public ApiTest {
 protected:
  /// A scan that reaches over the grid on all sides, with missing points.
  RectificationApi() {
    std::mt19937 random(3);
    for (std::size_t i = 0; i < kPoints; ++i) {
      x_.push_back(static_cast<float>(random() % 38000) / 1000 - 14);
      z_.push_back(random() % 8 == 0 ? NAN : static_cast<float>(random() % 68000) / 1000 + 2.5F);
      narrow_.push_back(static_cast<uint8_t>(random()));
      wide_.push_back(static_cast<uint16_t>(1000 + random() % 511));
    }
    wide_[0] = 1000;
    wide_[1] = 1510;  // a span of 510: halves are rounded
  }

  std::vector<float> x_, z_;
  std::vector<uint8_t> narrow_;
  std::vector<uint16_t> wide_;
};

TEST_F(RectificationApi, EachImageIsRectifiedByItself) {
  const std::vector<uint16_t> flat(kPoints, 1234);
  const void* const inputs[] = {flat.data(), narrow_.data(), wide_.data()};
  const std::vector<uint8_t> reduced[] = {plainReduction(flat), narrow_, plainReduction(wide_)};
  for (uint32_t mode = 0; mode < 5; ++mode) {
    SCOPED_TRACE(mode);
    const Rectified got(
        mode, {PLANEX_PIXEL_FORMAT_MONO16, PLANEX_PIXEL_FORMAT_MONO8, PLANEX_PIXEL_FORMAT_MONO16},
        x_.data(), z_.data(), inputs);
    for (std::size_t i = 0; i < 3; ++i) {
      const void* const input[] = {reduced[i].data()};
      const Rectified want(mode, kMono8, x_.data(), z_.data(), input);
      EXPECT_EQ(got.images[i], want.images[0]) << i;
      EXPECT_EQ(got.range == want.range, i == 2 || mode < 3) << "the last image decides";
    }
  }
}

TEST_F(RectificationApi, RangeMayBeWrittenOverTheInputs) {
  const Rectified want(1, {}, x_.data(), z_.data(), nullptr);
  std::vector<float> z = z_;
  // The first row out would overwrite the second row in.
  EXPECT_EQ(Rectified(1, {}, x_.data(), z.data(), nullptr, &z[200]).range, want.range);

  std::vector<float> shared(kCells);
  uint8_t* const input = reinterpret_cast<uint8_t*>(shared.data()) + 100;
  std::copy(narrow_.begin(), narrow_.end(), input);
  const void* const inputs[] = {input};
  const void* const apart[] = {narrow_.data()};
  EXPECT_EQ(Rectified(3, kMono8, x_.data(), z_.data(), inputs, shared.data()).range,
            Rectified(3, kMono8, x_.data(), z_.data(), apart).range);
}

TEST(IntensityReduction, TakesTheNearestLimits) {
  const uint16_t values[] = {5, 15, 30};
  uint8_t reduced[3];
  datafusion::planex::reduceIntensities(values, 3, {10, 20}, reduced);
  EXPECT_TRUE(reduced[0] == 0 && reduced[1] == 128 && reduced[2] == 255);
}

}  // namespace
}  // namespace test
