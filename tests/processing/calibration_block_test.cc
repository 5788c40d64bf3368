#include "planex/processing/calibration_block.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "tests/support/instruction_sets.h"
#include "tests/support/reference.h"

namespace datafusion::planex::basic {
namespace {

using cmnalg::Image;
using cmnalg::ImageOf;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
const auto& kAllocator = Image::s_defaultImageAllocator;

reference::Calibration camera(int variant, bool sheet) {
  reference::Calibration k{1.0 / 4100,
                           1.0 / (16 * 4100.0),
                           -0.31,
                           -0.12,
                           {-0.11, 0.04, 0, 0, 0, 0, 0},
                           {110, -3, 12, 2, 140, 300, -0.02, 0.31, 1.01},
                           {1.5, 1e-4, 0.02, 1e-4, -2e-5, 3e-7},
                           sheet};
  if (variant == 1) k.lens[6] = 0.03;
  if (variant == 2) {
    const double general[7] = {-0.11, 0.04, 0.013, 0.002, -0.0017, 0.02, -0.04};
    std::copy(general, general + 7, k.lens);
  }
  return k;
}

/// Random samples with missing ones, and the values at which conversions and tests go wrong.
template <typename Pixel>
std::vector<Pixel> rangeSamples(std::size_t count) {
  using Limits = std::numeric_limits<Pixel>;
  std::mt19937 random(7);
  std::vector<Pixel> samples(count);
  for (Pixel& sample : samples) {
    const auto draw = random() % 16000;
    sample = random() % 8 == 0 ? Pixel{0} : static_cast<Pixel>(draw);
    if (random() % 16 == 0) sample = static_cast<Pixel>(Limits::max() - static_cast<Pixel>(draw));
  }
  std::vector<Pixel> edges = {Pixel{0}, Pixel{1}, Limits::max(), Limits::min()};
  if constexpr (std::is_floating_point_v<Pixel>) {
    for (const Pixel edge : {Limits::quiet_NaN(), Limits::infinity(), -Limits::infinity(),
                             Limits::denorm_min(), Pixel{-0.0f}, Pixel{-3}, Limits::lowest()}) {
      edges.push_back(edge);
    }
  }
  std::copy(edges.begin(), edges.end(), samples.begin() + 5);
  return samples;
}

template <typename Pixel>
class CalibrationBlock : public testing::Test {};
using MeasuredTypes =
    testing::Types<std::uint8_t, std::uint16_t, std::uint32_t, std::uint64_t, float, double>;
TYPED_TEST_SUITE(CalibrationBlock, MeasuredTypes);

template <typename Pixel, typename Real>
void expectReferenceBits(const reference::Calibration& k) {
  constexpr int kWidth = 523;  // no multiple of any vector
  constexpr int kHeight = 41;
  constexpr int kPitch = kWidth + 6;
  auto samples = rangeSamples<Pixel>(kPitch * kHeight);
  const ImageOf<Pixel> range(samples.data(), kWidth, kHeight, kPitch, false, kAllocator, false);
  ImageOf<float> x(kWidth, kHeight, kWidth + 3, kAllocator);
  ImageOf<float> z(kWidth, kHeight, kAllocator);
  ASSERT_TRUE(applyCalibration(range, k.a, k.b, k.c, k.d, kNaN, k.lens, k.transform, x, z,
                               sizeof(Real) == sizeof(double)));
  if (k.hasSheet) {
    ASSERT_TRUE(applyCalibrationSheetCurve(k.sheet, x, z));
  }
  for (int v = 0; v < kHeight; ++v) {
    for (int u = 0; u < kWidth; ++u) {
      float wantX;
      float wantZ;
      reference::calibratePixel<Real>(k, range.Pix(u, v), u, wantX, wantZ);
      if (k.hasSheet) reference::correctSheet(k.sheet, wantX, wantZ);
      ASSERT_TRUE(reference::sameBits(x.Pix(u, v), wantX) &&
                  reference::sameBits(z.Pix(u, v), wantZ))
          << "column " << u << " row " << v << " sample " << +range.Pix(u, v) << ": " << x.Pix(u, v)
          << " " << z.Pix(u, v) << ", want " << wantX << " " << wantZ;
    }
  }
}

TYPED_TEST(CalibrationBlock, GivesTheBitsOfTheScalarLoop) {
  const SmallTeams teams;
  forEachInstructionSet([](cmnalg::InstructionSet set) {
    for (int variant = 0; variant < 3; ++variant) {
      SCOPED_TRACE(testing::Message() << "set " << static_cast<int>(set) << " lens " << variant);
      expectReferenceBits<TypeParam, float>(camera(variant, variant == 1));
      expectReferenceBits<TypeParam, double>(camera(variant, variant != 1));
    }
  });
}

TEST(CalibrationBlock, FillsItsBlockOnly) {
  const reference::Calibration k = camera(2, true);
  auto samples = rangeSamples<std::uint16_t>(std::size_t{64} * 10);
  const ImageOf<std::uint16_t> range(samples.data(), 64, 10, 0, false, kAllocator, false);
  ImageOf<float> x(64, 10, kAllocator);
  ImageOf<float> z(64, 10, kAllocator);
  x.SetAll(-7);
  z.SetAll(-7);
  ASSERT_TRUE(applyCalibrationBlock<float>(20, 33, 3, 7, range, k.a, k.b, k.c, k.d, -5.0, k.lens,
                                           k.transform, x, z));
  for (int v = 0; v < 10; ++v) {
    for (int u = 0; u < 64; ++u) {
      float wantX = -7;
      float wantZ = -7;
      if (u >= 20 && u < 33 && v >= 3 && v < 7) {
        reference::calibratePixel<float>(k, range.Pix(u, v), u, wantX, wantZ);
        if (range.Pix(u, v) == 0) wantX = wantZ = -5;  // the missing value need not be NaN
      }
      ASSERT_EQ(x.Pix(u, v), wantX) << u << " " << v;
      ASSERT_EQ(z.Pix(u, v), wantZ) << u << " " << v;
    }
  }
  const float before = z.Pix(25, 2);
  ASSERT_TRUE(applyCalibrationBlockSheetCurve(20, 33, 3, 7, k.sheet, x, z));
  EXPECT_EQ(z.Pix(25, 2), before);
}

TEST(CalibrationBlock, RefusesWhatItCannotReadOrWrite) {
  const reference::Calibration k = camera(0, false);
  ImageOf<float> x(8, 4, kAllocator);
  ImageOf<float> z(8, 4, kAllocator);
  const auto run = [&](const Image& range, int columnEnd, int rowBegin, const double* lens) {
    return applyCalibrationBlock<float>(0, columnEnd, rowBegin, 4, range, k.a, k.b, k.c, k.d, kNaN,
                                        lens, k.transform, x, z);
  };
  const Image good(cmnalg::IMAGE_TYPE_UINT16, 9, 4, kAllocator);
  const Image narrow(cmnalg::IMAGE_TYPE_UINT16, 7, 4, kAllocator);
  EXPECT_TRUE(run(good, 8, 4, k.lens)) << "an empty block is nothing to do";
  EXPECT_FALSE(run(good, 9, 0, k.lens));
  EXPECT_FALSE(run(good, 8, -1, k.lens));
  EXPECT_FALSE(run(narrow, 8, 0, k.lens));
  EXPECT_FALSE(run(good, 8, 0, nullptr));
  for (const auto type : {cmnalg::IMAGE_TYPE_INT16, cmnalg::IMAGE_TYPE_RGB24}) {
    EXPECT_FALSE(run(Image(type, 8, 4, kAllocator), 8, 0, k.lens));
  }
  EXPECT_FALSE(applyCalibrationSheetCurve(nullptr, x, z));
}

}  // namespace
}  // namespace datafusion::planex::basic
