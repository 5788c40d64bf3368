#include <gmock/gmock.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "planex/foundation/image_of.h"
#include "planex/processing/image_calibration.h"
#include "tests/api/api_test.h"
#include "tests/support/model_builders.h"

namespace test {
namespace {

using ::testing::ElementsAre;

constexpr double kInf = std::numeric_limits<double>::infinity();

TEST_F(ApiTest, SensorRegionMustLieWithinTheSensor) {
  const struct {
    const char* name;
    SensorTraits traits;
    bool inside;
  } rows[] = {
      {"whole sensor", {1, 0, 1, 0, 640, 480}, true},
      {"a column too many", {1, 1, 1, 0, 640, 480}, false},
      {"a row too many", {1, 0, 0.1, 0.5, 640, 480}, false},
      {"backwards", {-1, 100, -1, 480, 100, 480}, true},
      {"backwards below the first column", {-1, 99, 1, 0, 100, 1}, false},
      {"backwards below the first row", {1, 0, -1, 479, 1, 480}, false},
      {"origin right of the sensor", {-1, 641, 1, 0, 100, 1}, false},
      {"origin below the sensor", {1, 0, -1, 481, 1, 100}, false},
      {"zero scales test the origins", {0, 640, 0, 480, 1000, 1000}, true},
      {"NaN scales count as zero", {NAN, 640, NAN, 480, 1000, 1000}, true},
      {"NaN origin", {1, NAN, 1, 0, 1, 1}, false},
  };
  const uint32_t model = makeModel();
  for (const auto& row : rows) {
    uint32_t filter = 0;
    EXPECT_EQ(createCalibrationFilter(model, row.traits, {10, 10}, 0, &filter), row.inside)
        << row.name;
  }
}

template <typename Pixel>
void expectClassLevelCalibration(uint32_t format) {
  constexpr SensorTraits kTraits = {1.5, 100, 1.0 / 16, 50, 400, 300};
  constexpr uint16_t kWidth = 33, kHeight = 7;
  uint32_t filter = 0;
  ASSERT_TRUE(createCalibrationFilter(makeModel(), kTraits, {kWidth, kHeight}, format, &filter));
  std::vector<Pixel> range(kWidth * kHeight);
  std::mt19937 random(7);
  for (Pixel& r : range) r = static_cast<Pixel>(random() % 8 == 0 ? 0 : random());
  std::vector<float> x(range.size()), z = x, wantX = x, wantZ = x;
  ASSERT_TRUE(applyCalibration(filter, range.data(), x.data(), z.data()));

  const auto wrap = [](auto& pixels) {
    return cmnalg::ImageOf<std::decay_t<decltype(pixels[0])>>(
        pixels.data(), kWidth, kHeight, 0, false, cmnalg::Image::s_defaultImageAllocator, false);
  };
  auto image = wrap(range);
  image.PixelSize = {kTraits.scaleX, 1, kTraits.scaleZ};
  image.Origin = {kTraits.originX, 0, kTraits.originZ};
  auto imageX = wrap(wantX);
  auto imageZ = wrap(wantZ);
  CalibrationModel model;
  EXPECT_EQ(readJson(kModelDocument, model), "");
  ASSERT_TRUE(datafusion::planex::applyCalibration(model, false, image, imageX, imageZ,
                                                   datafusion::planex::RunMode::Default));
  EXPECT_EQ(std::memcmp(x.data(), wantX.data(), sizeof(float) * x.size()), 0);
  EXPECT_EQ(std::memcmp(z.data(), wantZ.data(), sizeof(float) * z.size()), 0);
}

TEST_F(ApiTest, CalibratesLikeTheClassLevel) {
  expectClassLevelCalibration<uint8_t>(PLANEX_PIXEL_FORMAT_MONO8);
  expectClassLevelCalibration<uint16_t>(PLANEX_PIXEL_FORMAT_MONO16);
  expectClassLevelCalibration<uint16_t>(PLANEX_PIXEL_FORMAT_COORD3D_C16);
}

TEST_F(ApiTest, BoundsByHand) {
  // X = u - 1 = 2 c + 9, Z = v - 1 = r / 2 + 19 over 100 columns and range values 1 to 79.
  WorldRangeTraits box;
  SplatSettings splat;
  const uint32_t model = makeModel(plainModelDocument());
  ASSERT_TRUE(
      calculateCalibrationBounds(model, {2, 10, 0.5, 20, 200, 40}, {100, 30}, &box, &splat));
  EXPECT_THAT((std::vector<double>{box.xMin, box.xMax, box.yMin, box.yMax, box.zMin, box.zMax}),
              ElementsAre(9, 207, 0, 29, 19.5, 58.5));
  EXPECT_NEAR(splat.splatA, 0, 1e-9);  // equal distances; the sums round
  EXPECT_NEAR(splat.splatB, 2, 1e-9);

  // Rows count where they have a sample: of a column, or of one range value at least.
  const struct {
    uint16_t width, sensorHeight;
    double yMax;
  } rows[] = {{100, 0, 29}, {0, 1, 29}, {0, 0, -kInf}};
  for (const auto& row : rows) {
    const SensorTraits traits = {2, 10, 0.5, 20, 200, row.sensorHeight};
    ASSERT_TRUE(calculateCalibrationBounds(model, traits, {row.width, 30}, &box, &splat));
    EXPECT_EQ(box.yMax, row.yMax) << row.width << " columns, " << row.sensorHeight << " values";
  }
}

TEST(RangeTransform, KeepsZeroForMissingData) {
  const auto transformOf = [](const WorldRangeTraits& traits) {
    const RangeTransform t = rangeTraitsToTransform(traits);
    return std::vector<double>{t.scaleX, t.originX, t.scaleY, t.originY, t.scaleZ, t.originZ};
  };
  EXPECT_THAT(transformOf({1, 5, 5, 2, 8, 4, 0, 65534, 65536}), ElementsAre(1, 1, 2, 2, 1, -1));
  // The counts are 0, -1 and -2^31.
  EXPECT_THAT(transformOf({0, 1, 1, 0, 4, 0xffffffff, 0, 1, 0x80000000}),
              ElementsAre(kInf, 0, -2, 0, 1 / -2147483650.0, -(1 / -2147483650.0)));
}

}  // namespace
}  // namespace test
