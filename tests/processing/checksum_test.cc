#include <gtest/gtest.h>

#include <cfenv>
#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "planex/infra/byte_order.h"
#include "planex/infra/json_deserializer.h"
#include "planex/infra/json_serializer.h"
#include "planex/infra/out_stream.h"
#include "planex/model/point_mapping.h"
#include "planex/model/shape_mapping.h"
#include "planex/model/world_bounds.h"
#include "planex/processing/image_alignment.h"
#include "planex/processing/image_calibration.h"
#include "planex/processing/rectification.h"
#include "tests/support/instruction_sets.h"

namespace datafusion::planex {
namespace {

using cmnalg::Image;
using cmnalg::ImageOf;

const auto& kAllocator = Image::s_defaultImageAllocator;

/// FNV-1a over values; every NaN counts as one value.
class Checksum {
 public:
  template <typename T>
  Checksum& Add(T value) {
    unsigned char bytes[sizeof(T)] = {0xFF};
    if (value == value) base::storeLittle(value, bytes);
    for (const unsigned char byte : bytes) sum_ = (sum_ ^ byte) * 1099511628211u;
    return *this;
  }
  template <typename T>
  Checksum& Add(const ImageOf<T>& image) {
    for (int y = 0; y < image.GetHeight(); ++y) {
      for (int x = 0; x < image.GetWidth(); ++x) Add(image.Pix(x, y));
    }
    return *this;
  }
  std::uint64_t Value() const { return sum_; }

 private:
  std::uint64_t sum_ = 14695981039346656037u;
};

/// A scene that needs nothing of the C library: random samples around tilted lines.
struct Scene {
  static constexpr int kWidth = 640;
  static constexpr int kHeight = 24;

  Scene() : range(kWidth, kHeight, kAllocator), intensity(kWidth, kHeight, kAllocator) {
    std::mt19937 random(2024);
    for (int v = 0; v < kHeight; ++v) {
      for (int u = 0; u < kWidth; ++u) {
        const unsigned line =
            2000u + 5u * static_cast<unsigned>(u) + 40u * static_cast<unsigned>(v);
        range.Pix(u, v) = static_cast<std::uint16_t>(random() % 8 == 0 ? 0 : line + random() % 300);
        intensity.Pix(u, v) = static_cast<std::uint8_t>(random());
      }
    }
    range.PixelSize.z = 1.0 / 16;
    model.CurrentState = ModelState::CALIBRATED_ALIGNED_3D;
    model.CalibrationError = 5e-324;
    model.SensorSize = {640, 480};
    model.FocalLength = 1200;
    model.LensCenter = {320.5, 241};
    model.LensCoefficients = {-0.11, 0.04, 0.013, 0.002, -0.0017, 0.02, -0.04};
    const double homography[9] = {110, -3, 12, 2, 140, 300, -0.02, 0.31, 1.01};
    model.Homography = cmnalg::Matrix<double>::FromRows(3, 3, homography);
    const double pose[16] = {0.9, 0.1,  -0.4, 7,  -0.2, 0.95, 0.1, -3,
                             0.4, 0.05, 0.9,  11, 0,    0,    0,   1};
    model.Pose = cmnalg::Matrix<double>::FromRows(4, 4, pose);
    model.Skew = {0.1, 0.9, -0.2};
    model.setSheetCurve(1.5, 1e-4, 0.02, 1e-4, -2e-5, 3e-7);
    for (int i = 0; i < 1000; ++i) points.push_back({0.64 * i, 0.5 * i, (i * 37) % 480 * 1.0});
  }

  CalibrationModel model;
  ImageOf<std::uint16_t> range;
  ImageOf<std::uint8_t> intensity;
  etl::Vector<cmnalg::Vec<3, double>> points;
};

/// Calibration in double and in single precision, alignment, rectification in five modes, points; a
/// document, a box and bounds.
std::vector<std::uint64_t> checksums() {
  static const Scene scene;
  std::vector<std::uint64_t> sums;
  ImageOf<float> x, z, aligned[3];
  for (const RunMode mode : {RunMode::DoublePrecision, RunMode::SinglePrecision}) {
    EXPECT_TRUE(applyCalibration(scene.model, false, scene.range, x, z, mode));
    sums.push_back(Checksum().Add(x).Add(z).Value());
  }

  const etl::Vector<double> y(Scene::kHeight, 0.1);
  EXPECT_TRUE(applyAlignment(scene.model, false, x, y, z, aligned[0], aligned[1], aligned[2],
                             RunMode::Default));
  sums.push_back(Checksum().Add(aligned[0]).Add(aligned[1]).Add(aligned[2]).Value());

  Checksum rectified;
  for (std::uint32_t mode = 0; mode < 5; ++mode) {
    ImageOf<std::uint16_t> heights(300, Scene::kHeight, kAllocator);
    ImageOf<std::uint8_t> intensities(300, Scene::kHeight, kAllocator);
    heights.PixelSize = {0.25, 1, 0.001};
    heights.Origin = {-20, 0, 250};
    heights.HandleZeroPixels = cmnalg::ZeroPixels::MissingData;
    EXPECT_TRUE(toRectified(x, z, scene.intensity, {0.001, 0.5}, 1.0,
                            static_cast<RectificationMode>(mode), heights, intensities, true));
    rectified.Add(heights).Add(intensities);
  }
  sums.push_back(rectified.Value());

  Checksum mapped;
  etl::Vector<cmnalg::Vec<3, double>> points = scene.points;
  constexpr auto kPixel = CoordinateSystem::Pixel;
  constexpr auto kAligned = CoordinateSystem::Aligned;
  for (const auto& [from, to] : {std::pair{kPixel, kAligned}, std::pair{kAligned, kPixel}}) {
    EXPECT_TRUE(mapPoints(scene.model, points, points, from, to, 2.0, 0.25));
    for (const auto& point : points) mapped.Add(point.x).Add(point.y).Add(point.z);
  }
  sums.push_back(mapped.Value());

  CalibrationModel model(scene.model);
  etl::MemoryOutStream stream;
  base::JsonVisitingSerializer(stream, false).Serialize(model);
  const std::string text(stream.GetText());
  base::JsonVisitingDeSerializer(text.c_str(), true).DeserializeIntoExistingObject(model);
  auto box = cmnalg::shape3d::Box::FromCorners({0.1, 0, 0.3}, {637.7, 21.3, 470.9});
  EXPECT_TRUE(mapBox(model, box, box, kPixel, kAligned, 0.1, 0.3, 5));
  WorldBounds bounds;
  calculateWorldBounds(model, {1, 0, 1.0 / 16, 0, 640, 300}, 640, bounds);
  Checksum others;
  for (const char c : text + model.toString()) others.Add(c);
  sums.push_back(others.Add(box.Size.z).Add(bounds.lateralSpacing.x).Value());
  return sums;
}

// The bits of whole results, the same for every compiler, instruction set and number of threads. A
// change here is a change of the library's numbers, which callers are promised not to see.
const std::vector<std::uint64_t> kChecksums = {13374197384605276703U, 5945653673975553277U,
                                               9331193481912222007U,  8398394795688152708U,
                                               7374550179008809995U,  13876469391997981618U};

TEST(Checksums, OfEveryInstructionSetAndNumberOfThreads) {
  test::forEachInstructionSet([](cmnalg::InstructionSet set) {
    for (const int threads : {1, 2, 3, 7, 16}) {
      test::useThreads(threads);
      EXPECT_EQ(checksums(), kChecksums) << static_cast<int>(set) << ", " << threads;
    }
  });
}

// A thread of a team, too: it starts with the environment of the thread that makes it.
TEST(Checksums, InEveryFloatingPointEnvironment) {
  void (*const kEnvironments[])() = {
      [] { std::fesetround(FE_UPWARD); },
      [] { std::fesetround(FE_DOWNWARD); },
      [] { std::fesetround(FE_TOWARDZERO); },
      [] { feenableexcept(FE_ALL_EXCEPT); },
      [] { std::feraiseexcept(FE_OVERFLOW); },
#ifdef __x86_64__
      [] { __builtin_ia32_ldmxcsr(0x9F80); },  // flushes denormals to zero
      [] { __builtin_ia32_ldmxcsr(0x1FC0); },  // takes denormals for zero
#endif
      [] {}};
  const auto environmentNow = [] {
    unsigned sse = 0;
#ifdef __x86_64__
    sse = __builtin_ia32_stmxcsr();
#endif
    return std::vector{fegetexcept(), std::fegetround(), std::fetestexcept(FE_ALL_EXCEPT),
                       int(sse)};
  };
  checksums();  // makes the scene
  for (const auto& enter : kEnvironments) {
    for (const int threads : {4, 1}) {
      test::useThreads(threads);
      enter();
      const auto before = environmentNow();
      const auto found = checksums();
      const auto after = environmentNow();
      std::fesetenv(FE_DFL_ENV);
      EXPECT_EQ(found, kChecksums) << &enter - kEnvironments;
      EXPECT_EQ(after, before) << &enter - kEnvironments;
    }
  }
}

}  // namespace
}  // namespace datafusion::planex
