#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "planex/api/registries.h"
#include "planex/model/point_mapping.h"
#include "tests/api/api_test.h"
#include "tests/support/reference.h"

namespace test {
namespace {

using datafusion::planex::CalibrationModel;
using datafusion::planex::CoordinateSystem;

constexpr double kInf = std::numeric_limits<double>::infinity();
const double kNan = std::numeric_limits<double>::quiet_NaN();
const char* const kMismatch = "SEVERE: Sensor traits does not match the model";

/// The region of interest of most tests: sixteenths of a pixel in the middle of the sensor.
constexpr SensorTraits kTraits = {1, 100, 1.0 / 16, 50, 400, 300};

class CalibrationApi : public ApiTest {
 protected:
  static CalibrationModel model(const std::string& document = kModelDocument) {
    return tavik::planex::models().copyOf(makeModel(document));
  }
};

TEST_F(CalibrationApi, SensorRegionMustLieWithinTheSensor) {
  const struct {
    const char* name;
    SensorTraits traits;
    bool inside;
  } cases[] = {
      {"whole sensor", {1, 0, 1, 0, 640, 480}, true},
      {"a column too many", {1, 1, 1, 0, 640, 480}, false},
      {"a row too many", {1, 0, 0.1, 0.5, 640, 480}, false},
      {"backwards", {-1, 100, -1, 480, 100, 480}, true},
      {"backwards below the first column", {-1, 99, 1, 0, 100, 1}, false},
      {"backwards below the first row", {1, 0, -1, 479, 1, 480}, false},
      {"origin right of the sensor", {-1, 641, 1, 0, 100, 1}, false},
      {"origin below the sensor", {1, 0, -1, 481, 1, 100}, false},
      {"zero scales test the origins", {0, 640, 0, 480, 1000, 1000}, true},
      {"NaN scales count as zero", {kNan, 640, kNan, 480, 1000, 1000}, true},
      {"NaN origin", {1, kNan, 1, 0, 1, 1}, false},
  };
  const uint32_t handle = makeModel();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    uint32_t filter = 77;
    EXPECT_EQ(createCalibrationFilter(handle, c.traits, {10, 10}, 0, &filter), c.inside);
    EXPECT_EQ(log.TakeOne(), c.inside ? "" : kMismatch);
    EXPECT_EQ(filter == 77u, !c.inside);
  }
}

template <typename Pixel>
void expectReferenceCalibration(uint32_t modelHandle, uint32_t pixelFormat) {
  constexpr uint16_t kWidth = 333;
  constexpr uint16_t kHeight = 7;
  uint32_t filter = 0;
  ASSERT_TRUE(
      createCalibrationFilter(modelHandle, kTraits, {kWidth, kHeight}, pixelFormat, &filter));
  std::vector<Pixel> range(kWidth * kHeight);
  std::mt19937 random(7);
  for (Pixel& r : range) r = static_cast<Pixel>(random() % 8 == 0 ? 0 : random());
  std::vector<float> x(range.size());
  std::vector<float> z(range.size());
  ASSERT_TRUE(applyCalibration(filter, range.data(), x.data(), z.data()));

  reference::Calibration k = {kTraits.scaleX / 1000.0,
                              kTraits.scaleZ / 1000.0,
                              (kTraits.originX - 321.5) / 1000.0,
                              (kTraits.originZ - 238.25) / 1000.0,
                              {-0.12, 0.03, -0.002, 0.001, -0.0015, 0.002, -0.003},
                              {100, 2, 1, -3, 120, 50, 0.01, 0.3, 1},
                              {0.5, 0.001, 0.01, 0.002, -0.0003, 0.00001},
                              true};
  std::vector<float> wantX(range.size());
  std::vector<float> wantZ(range.size());
  reference::calibrate<float>(k, range.data(), kWidth, kHeight, wantX.data(), wantZ.data());
  for (std::size_t i = 0; i < range.size(); ++i) {
    ASSERT_TRUE(reference::sameBits(x[i], wantX[i])) << i << ": " << x[i] << " != " << wantX[i];
    ASSERT_TRUE(reference::sameBits(z[i], wantZ[i])) << i << ": " << z[i] << " != " << wantZ[i];
  }
}

TEST_F(CalibrationApi, CalibratesLikeTheFormulas) {
  const uint32_t handle = makeModel();
  expectReferenceCalibration<uint8_t>(handle, PLANEX_PIXEL_FORMAT_MONO8);
  expectReferenceCalibration<uint16_t>(handle, PLANEX_PIXEL_FORMAT_MONO16);
  expectReferenceCalibration<uint16_t>(handle, PLANEX_PIXEL_FORMAT_COORD3D_C16);
}

/// The bounds from one list of all samples.
void plainBounds(const CalibrationModel& model, SensorTraits t, ImageSize size, double* box,
                 SplatSettings& splat) {
  const int w = size.width;
  const int h = size.height;
  const double rMax = t.height / std::abs(t.scaleZ) - 1;
  etl::Vector<cmnalg::Vec<3, double>> points;
  const auto add = [&](double c, double y, double r) {
    points.push_back({t.scaleX * c + t.originX, y, t.scaleZ * r + t.originZ});
  };
  for (const double y : {0.0, h - 1.0}) {
    for (const double r : {1.0, rMax}) {
      for (int c = 0; c <= w - 1; ++c) add(c, y, r);
    }
  }
  const double columns[][2] = {
      {0, 0}, {0, h - 1.0}, {w - 1.0, 0}, {w - 1.0, h - 1.0}, {(w - 1) * 0.5, 0}};
  for (const auto& [c, y] : columns) {
    for (int r = 1; r <= rMax; ++r) add(c, y, r);
  }
  ASSERT_TRUE(datafusion::planex::mapPoints<double>(model, points, points, CoordinateSystem::Pixel,
                                                    CoordinateSystem::Calibrated, 0, 1));
  const auto include = [](double value, double* interval) {
    interval[0] = value < interval[0] ? value : interval[0];
    interval[1] = value > interval[1] ? value : interval[1];
  };
  const double empty[] = {kInf, -kInf, kInf, -kInf, kInf, -kInf};
  std::copy(std::begin(empty), std::end(empty), box);
  for (const auto& p : points) {
    include(p.x, box);
    include(p.y, box + 2);
    include(p.z, box + 4);
  }
  const auto n = static_cast<std::size_t>(rMax > 0 ? rMax : 0);
  const auto* runs = points.data() + std::size_t{4} * size.width;
  double sz = 0, szz = 0, sd = 0, sdz = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const double dx = runs[2 * n + i].x - runs[i].x;
    const double dz = runs[2 * n + i].z - runs[i].z;
    const double d = std::sqrt(dx * dx + dz * dz) / (w - 1);
    const double z = runs[4 * n + i].z;
    sz += z;
    szz += z * z;
    sd += d;
    sdz += d * z;
  }
  const auto count = static_cast<double>(n);
  const double det = count * szz - sz * sz;
  splat = {2.0, (box[1] - box[0]) / (w - 1), 1.0};
  if (std::abs(det) > 0.001) {
    splat.splatA = (count * sdz - sz * sd) / det;
    splat.splatB = (szz * sd - sz * sdz) / det;
  }
}

TEST_F(CalibrationApi, BoundsAreThoseOfOneListOfSamples) {
  const std::string curved = kModelDocument;
  const std::string plain = plainModelDocument();
  const struct {
    const char* name;
    std::string document;
    SensorTraits traits;
    ImageSize size;
    bool fits;
  } cases[] = {
      {"many blocks of samples", curved, {1.25, 3, 1.0 / 64, 5, 600, 450}, {480, 1000}, true},
      {"backwards", curved, {-1, 500, -0.25, 400, 480, 300}, {480, 3}, true},
      {"fraction of a range value", curved, {1, 0, 0.7, 0, 640, 480}, {640, 2}, true},
      {"whole block", curved, {1, 0, 480.0 / 4097, 0, 640, 480}, {640, 2}, true},
      {"no range values", curved, {1, 0, 300, 0, 640, 300}, {640, 2}, false},
      {"no rows of the sensor", curved, {1, 0, 1, 0, 640, 0}, {640, 2}, false},
      {"nothing at all", curved, {1, 0, 1, 0, 0, 0}, {0, 0}, false},
      {"single range value", plain, {1, 0, 1, 0, 640, 2}, {640, 2}, false},
      {"steps along Z only", plain, {0, 8, 1, 0, 640, 480}, {640, 2}, true},
      {"NaN column scale", plain, {kNan, 8, 1, 0, 640, 480}, {640, 2}, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    WorldRangeTraits got;
    SplatSettings splat;
    const uint32_t handle = makeModel(c.document);
    ASSERT_TRUE(calculateCalibrationBounds(handle, c.traits, c.size, &got, &splat));
    double want[6];
    SplatSettings wantSplat = {};
    plainBounds(model(c.document), c.traits, c.size, want, wantSplat);
    EXPECT_THAT((std::vector<double>{got.xMin, got.xMax, got.yMin, got.yMax, got.zMin, got.zMax}),
                ::testing::ElementsAreArray(want));
    EXPECT_THAT((std::vector<double>{splat.splatA, splat.splatB, splat.splatC}),
                ::testing::Pointwise(::testing::NanSensitiveDoubleEq(),
                                     {wantSplat.splatA, wantSplat.splatB, wantSplat.splatC}));
    EXPECT_EQ(splat.splatA != 2.0, c.fits);
    EXPECT_EQ(got.xCount, c.size.width);
    EXPECT_EQ(got.yCount, c.size.height);
    EXPECT_EQ(got.zLevels, 65536u);
  }
}

TEST_F(CalibrationApi, BoundsByHand) {
  // X = u - 1 = 2 c + 9, Z = v - 1 = r / 2 + 19 over 100 columns and range values 1 to 79.
  const uint32_t handle = makeModel(plainModelDocument());
  WorldRangeTraits box;
  SplatSettings splat;
  ASSERT_TRUE(
      calculateCalibrationBounds(handle, {2, 10, 0.5, 20, 200, 40}, {100, 30}, &box, &splat));
  EXPECT_EQ(box.xMin, 9);
  EXPECT_EQ(box.xMax, 207);
  EXPECT_EQ(box.yMin, 0);
  EXPECT_EQ(box.yMax, 29);
  EXPECT_EQ(box.zMin, 19.5);
  EXPECT_EQ(box.zMax, 58.5);
  EXPECT_NEAR(splat.splatA, 0, 1e-9);  // equal distances; the sums round
  EXPECT_NEAR(splat.splatB, 2, 1e-9);
}

TEST_F(CalibrationApi, RefusedBoundsLeaveTheRecordsAlone) {
  const std::string uncalibrated = with(kModelDocument, "\"CALIBRATED\"", "\"UNCALIBRATED\"");
  const char* const scale = "SEVERE: Invalid data in sensor traits scale X / Z";
  const char* const unmapped =
      "WARNING: Operation failed because it was called with uncalibrated model. | SEVERE: The "
      "sensor region could not be mapped to world coordinates";
  const struct {
    const char* name;
    std::string document;
    SensorTraits traits;
    ImageSize size;
    const char* message;
  } cases[] = {
      {"outside", kModelDocument, {1, 600, 1, 0, 300, 100}, {9, 9}, kMismatch},
      {"zero scale", kModelDocument, {1, 0, 0, 0, 640, 480}, {9, 9}, scale},
      {"zero by zero", kModelDocument, {1, 0, 0, 0, 640, 0}, {9, 9}, scale},
      {"NaN scale", kModelDocument, {1, 0, kNan, 0, 640, 480}, {9, 9}, scale},
      {"denormal scale", kModelDocument, {1, 0, 5e-324, 0, 640, 480}, {9, 9}, scale},
      {"too many values", kModelDocument, {1, 0, 480.0 / 16777218.5, 0, 640, 480}, {9, 9}, scale},
      {"uncalibrated", uncalibrated, kTraits, {9, 9}, unmapped},
      {"uncalibrated without samples", uncalibrated, {1, 0, 1, 0, 0, 0}, {0, 9}, unmapped},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    WorldRangeTraits box = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    SplatSettings splat = {1, 2, 3};
    const uint32_t handle = makeModel(c.document);
    EXPECT_FALSE(calculateCalibrationBounds(handle, c.traits, c.size, &box, &splat));
    EXPECT_EQ(log.TakeOne(), c.message);
    EXPECT_EQ(box.xMin + box.zLevels, 10);
    EXPECT_EQ(splat.splatA + splat.splatC, 4);
  }
}

TEST_F(CalibrationApi, RangeTransformKeepsZeroForMissingData) {
  const RangeTransform t = rangeTraitsToTransform({1, 5, 5, 2, 8, 4, 0, 65534, 65536});
  EXPECT_EQ(t.scaleX, 1);
  EXPECT_EQ(t.originX, 1);
  EXPECT_EQ(t.scaleY, 2);
  EXPECT_EQ(t.originY, 2);
  EXPECT_EQ(t.scaleZ, 1);
  EXPECT_EQ(t.originZ, -1);

  const RangeTransform odd = rangeTraitsToTransform({0, 1, 1, 0, 4, 0xffffffff, 0, 1, 0x80000000});
  EXPECT_EQ(odd.scaleX, kInf);
  EXPECT_EQ(odd.scaleY, -2);                 // the count is -1
  EXPECT_EQ(odd.scaleZ, 1 / -2147483650.0);  // and here -2^31
}

TEST_F(CalibrationApi, MorePixelsThanAnImageCanHaveAreRefused) {
  uint32_t filter = 0;
  ASSERT_TRUE(createCalibrationFilter(makeModel(), kTraits, {65535, 65535},
                                      PLANEX_PIXEL_FORMAT_MONO16, &filter));
  const uint16_t range = 1;
  float x = 5;
  float z = 6;
  EXPECT_FALSE(applyCalibration(filter, &range, &x, &z));
  EXPECT_EQ(log.TakeOne(), "WARNING: Failed to allocate.");
  EXPECT_EQ(x, 5);
  EXPECT_EQ(z, 6);
}

}  // namespace
}  // namespace test
