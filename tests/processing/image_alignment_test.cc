#include "planex/processing/image_alignment.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "planex/processing/alignment_block.h"
#include "planex/processing/image_calibration.h"
#include "tests/support/instruction_sets.h"
#include "tests/support/reference.h"
#include "tests/support/warning_capture.h"

namespace datafusion::planex {
namespace {

using cmnalg::Image;
using cmnalg::ImageOf;
using cmnalg::Matrix;
using Rows = etl::Vector<double>;

const auto& kAllocator = Image::s_defaultImageAllocator;
const double kTransform[12] = {0.9, 0.1, -0.4, 7, -0.2, 0.95, 0.1, -3, 0.4, 0.05, 0.9, 11};

/// What one point becomes, spelled out.
template <typename X, typename Z>
void alignPoint(const Image& xImage, const Image& zImage, X xRaw, double yRow, Z zRaw,
                bool physical, float (&out)[3]) {
  const bool floating = std::is_floating_point_v<Z>;
  if (floating ? !(zRaw == zRaw) : zRaw == Z{0}) {
    out[0] = out[1] = out[2] = std::numeric_limits<float>::quiet_NaN();
    return;
  }
  const double y = static_cast<float>(yRow);
  double x = static_cast<float>(static_cast<double>(xRaw) * xImage.PixelSize.z + xImage.Origin.z);
  double z = static_cast<float>(static_cast<double>(zRaw) * zImage.PixelSize.z + zImage.Origin.z);
  if (physical && floating) {
    x = static_cast<float>(xRaw);
    z = static_cast<double>(zRaw);
  }
  const double* t = kTransform;
  for (int i = 0; i < 3; ++i, t += 4) {
    out[i] = static_cast<float>(t[0] * x + t[1] * y + t[2] * z + t[3]);
  }
}

template <typename X, typename Z>
void expectPointByPoint(bool physical, int xRows) {
  constexpr int kWidth = 77;
  constexpr int kHeight = 5;
  std::mt19937 random(5);
  ImageOf<X> x(kWidth, xRows, kWidth + 3, kAllocator);
  ImageOf<Z> z(kWidth, kHeight, kWidth + 1, kAllocator);
  Rows y;
  for (int v = 0; v < kHeight; ++v) {
    y.push_back(0.1 * v - 1.0 / 3);
    for (int u = 0; u < kWidth; ++u) {
      if (v < xRows) x.Pix(u, v) = static_cast<X>(static_cast<double>(random() % 251) + 0.3);
      z.Pix(u, v) =
          random() % 5 == 0 ? Z{0} : static_cast<Z>(static_cast<double>(random() % 250) + 0.7);
    }
  }
  if (std::is_floating_point_v<Z>) {
    z.Pix(4, 2) = std::numeric_limits<Z>::quiet_NaN();
    z.Pix(5, 2) = static_cast<Z>(-5);
  }
  if (!physical) {
    x.PixelSize.z = 0.37;
    x.Origin.z = -4;
    z.PixelSize.z = 0.01;
    z.Origin.z = 9;
  }
  auto transform = Matrix<double>::FromRows(3, 4, kTransform);
  ImageOf<float> out[3] = {
      {kWidth, kHeight, kAllocator}, {kWidth, kHeight, kAllocator}, {kWidth, kHeight, kAllocator}};
  ASSERT_TRUE(basic::applyAlignment(x, y, z, transform, out[0], out[1], out[2]));
  for (int v = 0; v < kHeight; ++v) {
    for (int u = 0; u < kWidth; ++u) {
      float want[3];
      alignPoint(x, z, x.Pix(u, v % xRows), y[static_cast<std::size_t>(v)], z.Pix(u, v), physical,
                 want);
      for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(reference::sameBits(out[i].Pix(u, v), want[i]))
            << "coordinate " << i << " column " << u << " row " << v << ": " << out[i].Pix(u, v)
            << ", want " << want[i];
      }
    }
  }
}

TEST(ImageAlignment, EqualsThePointwiseFormula) {
  const SmallTeams teams;
  forEachInstructionSet([](cmnalg::InstructionSet set) {
    SCOPED_TRACE(static_cast<int>(set));
    for (const bool physical : {false, true}) {
      expectPointByPoint<float, float>(physical, 5);
      expectPointByPoint<double, std::uint8_t>(physical, 1);
      expectPointByPoint<std::uint8_t, double>(physical, 5);
      expectPointByPoint<std::uint16_t, std::uint32_t>(physical, 2);
      expectPointByPoint<std::uint32_t, std::uint16_t>(physical, 5);
      expectPointByPoint<std::uint64_t, std::uint64_t>(physical, 5);
    }
  });
}

TEST(ImageAlignment, DecidesThePhysicalBodyByScaleAndOffset) {
  ImageOf<double> x(1, 1, kAllocator);
  ImageOf<double> z(1, 1, kAllocator);
  x.Pix(0, 0) = 0;
  z.Pix(0, 0) = 1.0 + 1e-9;  // beyond float
  const double pick[12] = {1e9, 0, 1e9, -1e9, 0, 1, 0, 0, 0, 0, 1, 0};
  const auto transform = Matrix<double>::FromRows(3, 4, pick);
  ImageOf<float> out[3] = {{1, 1, kAllocator}, {1, 1, kAllocator}, {1, 1, kAllocator}};
  const auto keepsDigits = [&] {
    EXPECT_TRUE(basic::applyAlignment(x, {0.0}, z, transform, out[0], out[1], out[2]));
    return out[0].Pix(0, 0) > 0.5f;
  };
  EXPECT_TRUE(keepsDigits());
  x.PixelSize.z = 1 - 0.9e-13;
  EXPECT_TRUE(keepsDigits());
  x.PixelSize.z = 1 + 1.2e-13;
  EXPECT_FALSE(keepsDigits());
  x.PixelSize.z = 1;
  x.Origin.z = 1e-300;
  EXPECT_FALSE(keepsDigits());
}

CalibrationModel camera(std::mt19937& random) {
  const auto draw = [&](double size) {
    return size * (static_cast<double>(random() % 2001) / 1000.0 - 1.0);
  };
  CalibrationModel model;
  model.CurrentState = static_cast<ModelState>(2 + random() % 4);
  model.SkewMode = static_cast<SkewMode>(random() % 3);
  model.FocalLength = 1200;
  model.LensCenter = {320, 240};
  model.LensCoefficients = {draw(0.1), draw(0.05), 0, draw(0.01), draw(0.01), draw(0.05), 0};
  for (int i = 0; i < 3; ++i) {
    model.Homography[i][i] = 50 + draw(10);
    model.Homography[i][2] = i == 2 ? 1 : draw(100);
    for (int c = 0; c < 4; ++c) model.Pose[i][c] += draw(0.3);
  }
  model.Skew = {draw(0.4), 1 + draw(0.2), draw(0.4)};
  return model;
}

TEST(ImageAlignment, SplitsBetweenCalibrationAndAlignment) {
  std::mt19937 random(3);
  ImageOf<float> range(50, 4, kAllocator);
  for (int v = 0; v < 4; ++v) {
    for (int u = 0; u < 50; ++u) range.Pix(u, v) = static_cast<float>(random() % 480);
  }
  range.PixelSize.x = 12;
  const Rows y = {-2, 0, 3.5, 80};
  for (int round = 0; round < 50; ++round) {
    const CalibrationModel model = camera(random);
    ImageOf<float> x, z, whole[3], split[3];
    ASSERT_TRUE(applyCalibration(model, false, range, x, z, RunMode{1}));
    ASSERT_TRUE(applyAlignment(model, false, x, y, z, whole[0], whole[1], whole[2], RunMode{1}));
    ASSERT_TRUE(applyCalibration(model, true, range, x, z, RunMode{1}));
    ASSERT_TRUE(applyAlignment(model, true, x, y, z, split[0], split[1], split[2], RunMode{1}));
    for (int i = 0; i < 3; ++i) {
      for (int v = 0; v < 4; ++v) {
        for (int u = 0; u < 50; ++u) {
          const float want = whole[i].Pix(u, v);
          if (std::isnan(want)) continue;
          // X and Z are stored as float once more in between, some hundred units large.
          ASSERT_NEAR(split[i].Pix(u, v), want, 1e-6 * (300 + std::abs(want))) << "round " << round;
        }
      }
    }
  }
}

struct Arguments {
  CalibrationModel model;
  ImageOf<float> x{4, 3, kAllocator};
  ImageOf<float> z{4, 3, kAllocator};
  Rows y = {0, 1, 2};
  ImageOf<float> xOut, yOut, zOut;
  bool aligned = true;
};
struct Refusal {
  const char* name;
  void (*spoil)(Arguments&);
  const char* text;  ///< null: accepted
};
const char* const kReuse = "Cannot reuse source image as target image.";
const double kNaN = std::nan("");
const Refusal kRefusals[] = {
    {"PoseColumns", [](Arguments& a) { a.model.Pose = Matrix<double>::Identity(4, 5); },
     "Invalid pose matrix."},
    {"PoseRows", [](Arguments& a) { a.model.Pose = Matrix<double>::Identity(2, 4); },
     "Invalid pose matrix."},
    {"PoseOfThreeRows", [](Arguments& a) { a.model.Pose = Matrix<double>::Identity(3, 4); },
     nullptr},
    {"SingularPose", [](Arguments& a) { a.model.Pose[0][0] = 0; }, "Invalid pose matrix."},
    {"SingularPoseNotInverted",
     [](Arguments& a) {
       a.model.Pose[0][0] = 0;
       a.aligned = false;
     },
     nullptr},
    {"SkewWithoutY",
     [](Arguments& a) {
       a.model.Skew = {0.2, 1e-13, 1};
     },
     "Invalid skew vector."},
    {"SmallSkewY",
     [](Arguments& a) {
       a.model.Skew = {0.2, 1e-12, 1};
     },
     nullptr},
    {"NaNSkewX", [](Arguments& a) { a.model.Skew.x = kNaN; }, "Invalid skew vector."},
    {"NaNSkewZ", [](Arguments& a) { a.model.Skew.z = kNaN; }, "Invalid skew vector."},
    {"TargetIsX", [](Arguments& a) { a.yOut.Create(a.x, false); }, kReuse},
    {"TargetInZ",
     [](Arguments& a) { a.zOut.Create(a.z.GetRowPtr(2), 2, 1, 0, false, kAllocator, false); },
     kReuse},
    {"TargetsOverlap",
     [](Arguments& a) {
       a.xOut.Create(4, 4, kAllocator);
       a.yOut.Create(a.xOut, false);
     },
     kReuse},
    {"Width", [](Arguments& a) { a.x.Create(5, 3, kAllocator); },
     "X and Z input must be of the same size."},
    {"Height", [](Arguments& a) { a.x.Create(4, 2, kAllocator); },
     "X and Z input must be of the same size."},
    {"OneRowOfX", [](Arguments& a) { a.x.Create(4, 1, kAllocator); }, nullptr},
    {"ShortY", [](Arguments& a) { a.y.pop_back(); },
     "Y vector must be as long as X and Z are high."},
};

TEST(ImageAlignment, RefusesWithOneWarningAndUntouchedTargets) {
  for (const Refusal& refusal : kRefusals) {
    SCOPED_TRACE(refusal.name);
    Arguments a;
    a.x.SetAll(1);
    a.z.SetAll(1);
    refusal.spoil(a);
    const int widthBefore = a.xOut.GetWidth();
    const WarningCapture log;
    EXPECT_EQ(
        applyAlignment(a.model, a.aligned, a.x, a.y, a.z, a.xOut, a.yOut, a.zOut, RunMode::Default),
        refusal.text == nullptr);
    EXPECT_EQ(log.Messages(), refusal.text == nullptr ? std::vector<std::string>{}
                                                      : std::vector<std::string>{refusal.text});
    EXPECT_EQ(a.xOut.GetWidth(), refusal.text == nullptr ? 4 : widthBefore);
    EXPECT_EQ(a.xOut.HandleZeroPixels == cmnalg::ZeroPixels::MissingData, refusal.text == nullptr);
  }
}

TEST(ImageAlignment, LeavesThePlaneToTheCalibration) {
  CalibrationModel model;
  model.Pose[0][2] = 0.5;
  model.Pose[2][3] = 7;  // acts in the plane only
  const Matrix<double> transform = getAlignmentTransform(model, true);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(transform[i / 4][i % 4], i / 4 == i % 4 ? 1 : 0);
  EXPECT_EQ(getAlignmentTransform(model, false)[2][3], 7);
  const Image z(cmnalg::IMAGE_TYPE_INT32, 2, 1, kAllocator);
  const ImageOf<float> x(2, 1, kAllocator);
  ImageOf<float> out[3];
  EXPECT_FALSE(applyAlignment(model, false, x, {0.0}, z, out[0], out[1], out[2], RunMode::Default));
}

}  // namespace
}  // namespace datafusion::planex
