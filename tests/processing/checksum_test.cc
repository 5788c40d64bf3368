#include <gtest/gtest.h>
#include <omp.h>

#include <cstdint>
#include <cstring>
#include <random>

#include "planex/model/point_mapping.h"
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
  void Add(T value) {
    unsigned char bytes[sizeof(T)] = {0xFF};
    if (value == value) std::memcpy(bytes, &value, sizeof(T));
    for (const unsigned char byte : bytes) sum_ = (sum_ ^ byte) * 1099511628211u;
  }
  template <typename T>
  void AddImage(const ImageOf<T>& image) {
    for (int y = 0; y < image.GetHeight(); ++y) {
      for (int x = 0; x < image.GetWidth(); ++x) Add(image.Pix(x, y));
    }
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
  }

  CalibrationModel model;
  ImageOf<std::uint16_t> range;
  ImageOf<std::uint8_t> intensity;
};

std::uint64_t calibration(const Scene& scene, RunMode mode, ImageOf<float>& x, ImageOf<float>& z) {
  Checksum sum;
  EXPECT_TRUE(applyCalibration(scene.model, false, scene.range, x, z, mode));
  sum.AddImage(x);
  sum.AddImage(z);
  return sum.Value();
}

std::uint64_t alignment(const Scene& scene, const ImageOf<float>& x, const ImageOf<float>& z) {
  Checksum sum;
  ImageOf<float> out[3];
  const etl::Vector<double> y(Scene::kHeight, 0.1);
  EXPECT_TRUE(
      applyAlignment(scene.model, false, x, y, z, out[0], out[1], out[2], RunMode::Default));
  for (const ImageOf<float>& image : out) sum.AddImage(image);
  return sum.Value();
}

std::uint64_t rectification(const Scene& scene, const ImageOf<float>& x, const ImageOf<float>& z) {
  Checksum sum;
  for (std::uint32_t mode = 0; mode < 5; ++mode) {
    ImageOf<std::uint16_t> heights(300, Scene::kHeight, kAllocator);
    ImageOf<std::uint8_t> intensities(300, Scene::kHeight, kAllocator);
    heights.PixelSize = {0.25, 1, 0.001};
    heights.Origin = {-20, 0, 250};
    heights.HandleZeroPixels = cmnalg::ZeroPixels::MissingData;
    EXPECT_TRUE(toRectified(x, z, scene.intensity, {0.001, 0.5}, 1.0,
                            static_cast<RectificationMode>(mode), heights, intensities, true));
    sum.AddImage(heights);
    sum.AddImage(intensities);
  }
  return sum.Value();
}

std::uint64_t mapping(const Scene& scene) {
  Checksum sum;
  etl::Vector<cmnalg::Vec<3, double>> points;
  for (int i = 0; i < 1000; ++i) {
    points.push_back({0.64 * i, 0.5 * i, static_cast<double>((i * 37) % 480)});
  }
  for (const auto& [from, to] : {std::pair{CoordinateSystem::Pixel, CoordinateSystem::Aligned},
                                 std::pair{CoordinateSystem::Aligned, CoordinateSystem::Pixel}}) {
    EXPECT_TRUE(mapPoints(scene.model, points, points, from, to, 2.0, 0.25));
    for (const auto& point : points) {
      sum.Add(point.x);
      sum.Add(point.y);
      sum.Add(point.z);
    }
  }
  return sum.Value();
}

// The bits of whole results, the same for every compiler, instruction set and number of threads. A
// change here is a change of the library's numbers, which callers are promised not to see.
void expectTheChecksums() {
  const Scene scene;
  ImageOf<float> x;
  ImageOf<float> z;
  EXPECT_EQ(calibration(scene, RunMode::DoublePrecision, x, z), 13374197384605276703u);
  EXPECT_EQ(calibration(scene, RunMode::SinglePrecision, x, z), 5945653673975553277u);
  EXPECT_EQ(alignment(scene, x, z), 9331193481912222007u);
  EXPECT_EQ(rectification(scene, x, z), 8398394795688152708u);
  EXPECT_EQ(mapping(scene), 7374550179008809995u);
}

TEST(Checksums, OfEveryInstructionSet) {
  forEachInstructionSet([](cmnalg::InstructionSet set) {
    SCOPED_TRACE(static_cast<int>(set));
    expectTheChecksums();
  });
}

TEST(Checksums, OfEveryNumberOfThreads) {
  const SmallTeams teams;
  for (const int threads : {1, 2, 3, 7, 16}) {
    SCOPED_TRACE(threads);
    omp_set_num_threads(threads);
    expectTheChecksums();
  }
  omp_set_num_threads(omp_get_num_procs());
}

}  // namespace
}  // namespace datafusion::planex
