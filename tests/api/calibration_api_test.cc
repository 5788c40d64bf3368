#include <gmock/gmock.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "planex/foundation/image_of.h"
#include "planex/model/point_mapping.h"
#include "planex/processing/image_calibration.h"
#include "tests/api/api_test.h"
#include "tests/support/model_builders.h"

namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::NanSensitiveDoubleEq;

constexpr double kInf = std::numeric_limits<double>::infinity();

CalibrationModel modelOf(const std::string& document) {
  CalibrationModel model;
  EXPECT_EQ(readJson(document, model), "");
  return model;
}

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
  ASSERT_TRUE(datafusion::planex::applyCalibration(modelOf(kModelDocument), false, image, imageX,
                                                   imageZ, datafusion::planex::RunMode::Default));
  EXPECT_THAT(x, ::testing::Pointwise(::testing::NanSensitiveFloatEq(), wantX));
  EXPECT_THAT(z, ::testing::Pointwise(::testing::NanSensitiveFloatEq(), wantZ));
}

TEST_F(ApiTest, CalibratesLikeTheClassLevel) {
  expectClassLevelCalibration<uint8_t>(PLANEX_PIXEL_FORMAT_MONO8);
  expectClassLevelCalibration<uint16_t>(PLANEX_PIXEL_FORMAT_MONO16);
  expectClassLevelCalibration<uint16_t>(PLANEX_PIXEL_FORMAT_COORD3D_C16);
}

/// The six limits, then both splat coefficients, from one list of all samples.
std::vector<double> plainBounds(const CalibrationModel& model, SensorTraits t, ImageSize size) {
  const double lastColumn = size.width - 1;
  const double lastRow = size.height - 1;
  const double rMax = t.height / std::abs(t.scaleZ) - 1;
  etl::Vector<cmnalg::Vec<3, double>> points;
  const auto add = [&](double c, double y, double r) {
    points.push_back({t.scaleX * c + t.originX, y, t.scaleZ * r + t.originZ});
  };
  const double columns[][2] = {
      {0, 0}, {lastColumn, 0}, {lastColumn * 0.5, 0}, {0, lastRow}, {lastColumn, lastRow}};
  for (const auto& [c, y] : columns) {
    for (int r = 1; r <= rMax; ++r) add(c, y, r);
  }
  const std::size_t n = points.size() / 5;
  for (const double y : {0.0, lastRow}) {
    for (int c = 0; c < size.width; ++c) {
      add(c, y, 1);
      add(c, y, rMax);
    }
  }
  EXPECT_TRUE(datafusion::planex::mapPoints<double>(
      model, points, points, datafusion::planex::CoordinateSystem::Pixel,
      datafusion::planex::CoordinateSystem::Calibrated, 0, 1));
  std::vector<double> box = {kInf, -kInf, kInf, -kInf, kInf, -kInf};
  for (const auto& p : points) {
    const double values[] = {p.x, p.y, p.z};
    for (std::size_t i = 0; i < 3; ++i) {
      if (values[i] < box[2 * i]) box[2 * i] = values[i];
      if (values[i] > box[2 * i + 1]) box[2 * i + 1] = values[i];
    }
  }
  double sz = 0, szz = 0, sd = 0, sdz = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const double d = std::hypot(points[n + i].x - points[i].x, points[n + i].z - points[i].z);
    const double z = points[2 * n + i].z;
    sz += z;
    szz += z * z;
    sd += d / lastColumn;
    sdz += d / lastColumn * z;
  }
  const double count = static_cast<double>(n);
  const double det = count * szz - sz * sz;
  const bool fits = std::abs(det) > 0.001;
  box.push_back(fits ? (count * sdz - sz * sd) / det : 2);
  box.push_back(fits ? (szz * sd - sz * sdz) / det : (box[1] - box[0]) / lastColumn);
  return box;
}

TEST_F(ApiTest, BoundsAreThoseOfOneListOfSamples) {
  const std::string curved = kModelDocument;
  const std::string plain = plainModelDocument();
  const struct {
    const char* name;
    std::string document;
    SensorTraits traits;
    ImageSize size;
    bool fits;
  } rows[] = {
      {"many blocks of samples", curved, {1.25, 3, 1.0 / 64, 5, 600, 450}, {480, 1000}, true},
      {"backwards", curved, {-1, 500, -0.25, 400, 480, 300}, {480, 3}, true},
      {"fraction of a range value", curved, {1, 0, 0.7, 0, 640, 480}, {640, 2}, true},
      {"whole block", curved, {1, 0, 480.0 / 4097, 0, 640, 480}, {640, 2}, true},
      {"no range values", curved, {1, 0, 300, 0, 640, 300}, {640, 2}, false},
      {"no rows of the sensor", curved, {1, 0, 1, 0, 640, 0}, {640, 2}, false},
      {"nothing at all", curved, {1, 0, 1, 0, 0, 0}, {0, 0}, false},
      {"single range value", plain, {1, 0, 1, 0, 640, 2}, {640, 2}, false},
      {"steps along Z only", plain, {0, 8, 1, 0, 640, 480}, {640, 2}, true},
      {"NaN column scale", plain, {NAN, 8, 1, 0, 640, 480}, {640, 2}, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    WorldRangeTraits got;
    SplatSettings splat;
    ASSERT_TRUE(
        calculateCalibrationBounds(makeModel(row.document), row.traits, row.size, &got, &splat));
    std::vector<::testing::Matcher<double>> want;
    for (const double value : plainBounds(modelOf(row.document), row.traits, row.size)) {
      want.push_back(::testing::AnyOf(NanSensitiveDoubleEq(value),
                                      ::testing::DoubleNear(value, 1e-13)));  // the sums round
    }
    EXPECT_THAT((std::vector<double>{got.xMin, got.xMax, got.yMin, got.yMax, got.zMin, got.zMax,
                                     splat.splatA, splat.splatB}),
                ::testing::ElementsAreArray(want));
    EXPECT_EQ(splat.splatA != 2.0, row.fits);
    EXPECT_THAT((std::vector<double>{splat.splatC, static_cast<double>(got.zLevels)}),
                ElementsAre(1, 65536));
    EXPECT_TRUE(got.xCount == row.size.width && got.yCount == row.size.height);
  }
}

TEST_F(ApiTest, BoundsByHand) {
  // X = u - 1 = 2 c + 9, Z = v - 1 = r / 2 + 19 over 100 columns and range values 1 to 79.
  WorldRangeTraits box;
  SplatSettings splat;
  ASSERT_TRUE(calculateCalibrationBounds(makeModel(plainModelDocument()), {2, 10, 0.5, 20, 200, 40},
                                         {100, 30}, &box, &splat));
  EXPECT_THAT((std::vector<double>{box.xMin, box.xMax, box.yMin, box.yMax, box.zMin, box.zMax}),
              ElementsAre(9, 207, 0, 29, 19.5, 58.5));
  EXPECT_NEAR(splat.splatA, 0, 1e-9);  // equal distances; the sums round
  EXPECT_NEAR(splat.splatB, 2, 1e-9);
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
