#include <gmock/gmock.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "planex/api/points.h"
#include "tests/api/api_test.h"

namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsNan;

constexpr double kInf = std::numeric_limits<double>::infinity();

TEST_F(ApiTest, SensorRegionMustLieWithinTheSensor) {
  const struct {
    const char* name;
    SensorTraits traits;
    bool inside = false;
  } rows[] = {
      {"whole sensor", {1, 0, 1, 0, 640, 480}, true},
      {"a column too many", {1, 1, 1, 0, 640, 480}},
      {"a row too many", {1, 0, 0.1, 0.5, 640, 480}},
      {"backwards", {-1, 100, -1, 480, 100, 480}, true},
      {"backwards below the first column", {-1, 99, 1, 0, 100, 1}},
      {"backwards below the first row", {1, 0, -1, 479, 1, 480}},
      {"origin right of the sensor", {-1, 641, 1, 0, 100, 1}},
      {"origin below the sensor", {1, 0, -1, 481, 1, 100}},
      {"zero scales test the origins", {0, 640, 0, 480, 1000, 1000}, true},
      {"NaN scales count as zero", {NAN, 640, NAN, 480, 1000, 1000}, true},
      {"NaN origin", {1, NAN, 1, 0, 1, 1}},
  };
  const uint32_t model = makeModel();
  for (const auto& row : rows) {
    uint32_t filter = 0;
    EXPECT_EQ(createCalibrationFilter(model, row.traits, {10, 10}, 0, &filter), row.inside)
        << row.name;
  }
}

TEST_F(ApiTest, CalibratesByHand) {
  // X = u - 1 and Z = v - 1, with u = 1.5 c + 100 and v = r / 16 + 50; nothing where r is 0.
  const uint8_t narrow[] = {0, 16, 32, 255};
  const uint16_t wide[] = {0, 16, 4096, 65535};
  const SensorTraits traits = {1.5, 100, 1.0 / 16, 50, 400, 300};
  const uint32_t model = makeModel(plainModelDocument());
  for (const uint32_t format :
       {PLANEX_PIXEL_FORMAT_MONO8, PLANEX_PIXEL_FORMAT_MONO16, PLANEX_PIXEL_FORMAT_COORD3D_C16}) {
    const bool isNarrow = format == PLANEX_PIXEL_FORMAT_MONO8;
    uint32_t filter = 0;
    ASSERT_TRUE(createCalibrationFilter(model, traits, {2, 2}, format, &filter));
    float x[4], z[4];
    const void* const range = isNarrow ? static_cast<const void*>(narrow) : wide;
    ASSERT_TRUE(applyCalibration(filter, range, x, z));
    EXPECT_THAT(x, ElementsAre(IsNan(), 100.5F, 99, 100.5F));
    EXPECT_THAT(z, isNarrow ? ElementsAre(IsNan(), 50, 51, 64.9375F)
                            : ElementsAre(IsNan(), 50, 305, 4144.9375F));
  }
}

TEST_F(ApiTest, AlignsAndMapsByHand) {
  // X = u - 1, Y = 2 p + 10, Z = v - 1; behind the pose (Z + 5, 3 Y, -X).
  const uint32_t model = makeModel(with(plainModelDocument(),
                                        "[[1, 0, 0, 0], [0, 1, 0, 0], [0, 0, 1, 0], [0, 0, 0, 1]]",
                                        "[[0,0,1,5], [0,3,0,0], [-1,0,0,0]]"));
  uint32_t filter = 0;
  ASSERT_TRUE(createAlignmentFilter(model, {2, 2}, &filter));
  const float x[] = {1, 2, 3, 4}, z[] = {7, NAN, 8, 9};
  const double y[] = {10, 12};
  std::vector<float> out[3] = {{0, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 0}};
  ASSERT_TRUE(applyAlignment(filter, x, y, z, out[0].data(), out[1].data(), out[2].data()));
  EXPECT_THAT(out[0], ElementsAre(12, ::testing::IsNan(), 13, 14));
  EXPECT_THAT(out[1], ElementsAre(30, ::testing::IsNan(), 36, 36));
  EXPECT_THAT(out[2], ElementsAre(-1, ::testing::IsNan(), -3, -4));

  std::vector<double> space = {12, 30, -1, 14, 36, -4}, plane = {2, 8, 5, 10};
  ASSERT_TRUE(mapSpacePoints(model, PLANEX_COORDINATES_ALIGNED, PLANEX_COORDINATES_PIXEL, 2, 10, 2,
                             space.data(), space.data()));
  EXPECT_THAT(space, ElementsAre(2, 0, 8, 5, 1, 10));
  ASSERT_TRUE(mapPlanePoints(model, PLANEX_COORDINATES_PIXEL, PLANEX_COORDINATES_CALIBRATED, 2,
                             plane.data(), plane.data()));
  EXPECT_THAT(plane, ElementsAre(1, 7, 4, 9));
  ASSERT_TRUE(mapPlanePoints(model, PLANEX_COORDINATES_ALIGNED, PLANEX_COORDINATES_ALIGNED, 1,
                             plane.data() + 2, plane.data()));
  EXPECT_THAT(plane, ElementsAre(4, 9, 4, 9)) << "copied";
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
