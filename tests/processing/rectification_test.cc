#include "planex/processing/rectification.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "planex/processing/rectification_target.h"
#include "tests/support/instruction_sets.h"
#include "tests/support/reference.h"
#include "tests/support/warning_capture.h"

namespace datafusion::planex {
namespace {

using cmnalg::Image;
using cmnalg::ImageOf;
using cmnalg::Vec;

const auto& kAllocator = Image::s_defaultImageAllocator;

/// A scene of random points over a grid that they overrun on every side.
template <typename X, typename Z>
struct Scene {
  static constexpr int kPoints = 301;
  static constexpr int kRows = 9;
  static constexpr int kColumns = 187;

  explicit Scene(double spacingSlope, double spacing)
      : x(kPoints, kRows, kPoints + 5, kAllocator),
        z(kPoints, kRows, kAllocator),
        intensity(kPoints, kRows, kPoints + 1, kAllocator),
        lateralSpacing{spacingSlope, spacing} {
    std::mt19937 random(11);
    const auto draw = [&](unsigned limit) { return random() % limit; };
    for (int v = 0; v < kRows; ++v) {
      for (int u = 0; u < kPoints; ++u) {
        x.Pix(u, v) = static_cast<X>(draw(256));
        z.Pix(u, v) = static_cast<Z>(draw(3) == 0 ? draw(250) : 100 + draw(6));
        intensity.Pix(u, v) = static_cast<std::uint8_t>(draw(4) == 0 ? draw(256) : 60 + draw(3));
      }
    }
    if constexpr (std::is_floating_point_v<X>) {
      x.Pix(3, 1) = std::numeric_limits<X>::quiet_NaN();
      x.Pix(4, 1) = std::numeric_limits<X>::infinity();
      x.Pix(5, 1) = static_cast<X>(-3e30);
      x.Pix(6, 1) = static_cast<X>(4294967296.0 / kColumnsPerUnit + 50);
    }
    if constexpr (std::is_floating_point_v<Z>) {
      const Z edges[] = {std::numeric_limits<Z>::quiet_NaN(),
                         std::numeric_limits<Z>::infinity(),
                         Z{0},
                         Z{-4},
                         static_cast<Z>(0.001),
                         static_cast<Z>(1e30)};
      for (int i = 0; i < 6; ++i) z.Pix(20 + i, 2) = edges[i];
    }
    x.PixelSize.z = 0.7;
    x.Origin.z = -20;
    z.PixelSize.z = 0.25;
    z.Origin.z = 3;
  }

  static constexpr double kColumnsPerUnit = 2.0;

  ImageOf<std::uint16_t> Target() const {
    ImageOf<std::uint16_t> target;
    EXPECT_TRUE(createRectificationTarget(kColumns, -10.0, -10.0 + 186 / kColumnsPerUnit, kRows,
                                          0.0, 1.0, 401, 5.0, 45.0, target,
                                          cmnalg::IMAGE_TYPE_UINT16, 1));
    std::mt19937 random(13);
    for (int v = 0; v < kRows; ++v) {
      for (int k = 0; k < kColumns; ++k) {
        target.Pix(k, v) = static_cast<std::uint16_t>(random() % 2 == 0 ? 0 : random() % 400);
      }
    }
    return target;
  }

  reference::Rectification Coefficients(const Image& target, int mode, bool clear) const {
    const double a = lateralSpacing.x * kSplat;
    const double b = lateralSpacing.y * kSplat;
    const Vec<3, double>& size = target.PixelSize;
    const Vec<3, double>& origin = target.Origin;
    return {x.PixelSize.z / size.x,
            (x.Origin.z - origin.x) / size.x,
            z.PixelSize.z / size.z,
            (z.Origin.z - origin.z) / size.z,
            0.55 * size.z * a / size.x,
            0.55 * (origin.z * a + b) / size.x,
            mode,
            clear};
  }

  static constexpr double kSplat = 1.25;
  ImageOf<X> x;
  ImageOf<Z> z;
  ImageOf<std::uint8_t> intensity;
  Vec<2, double> lateralSpacing;
};

template <typename X, typename Z>
void expectPointByPoint(const Scene<X, Z>& scene, int mode, bool withIntensity, bool clear) {
  using S = Scene<X, Z>;
  SCOPED_TRACE(testing::Message() << "mode " << mode << " intensity " << withIntensity << " clear "
                                  << clear << " spacing " << scene.lateralSpacing.y);
  ImageOf<std::uint16_t> target = scene.Target();
  ImageOf<std::uint8_t> targetIntensity(S::kColumns + 2, S::kRows, kAllocator);
  targetIntensity.SetAll(60);
  ImageOf<std::uint16_t> want = target;
  ImageOf<std::uint8_t> wantIntensity = targetIntensity;
  const auto rectificationMode = static_cast<RectificationMode>(mode);
  const bool done = withIntensity
                        ? toRectified(scene.x, scene.z, scene.intensity, scene.lateralSpacing,
                                      S::kSplat, rectificationMode, target, targetIntensity, clear)
                        : toRectified(scene.x, scene.z, scene.lateralSpacing, S::kSplat,
                                      rectificationMode, target, clear);
  ASSERT_TRUE(done);
  if (clear) {
    want.SetAll(0);
    if (withIntensity) wantIntensity.SetAll(0);
  }
  const reference::Rectification k = scene.Coefficients(want, mode, clear);
  for (int v = 0; v < S::kRows; ++v) {
    reference::rectifyRow(k, scene.x.GetRowPtr(v), scene.z.GetRowPtr(v),
                          withIntensity ? scene.intensity.GetRowPtr(v) : nullptr, S::kPoints,
                          want.GetRowPtr(v), withIntensity ? wantIntensity.GetRowPtr(v) : nullptr,
                          S::kColumns);
    for (int c = 0; c < S::kColumns; ++c) {
      ASSERT_EQ(target.Pix(c, v), want.Pix(c, v)) << "column " << c << " row " << v;
      ASSERT_EQ(targetIntensity.Pix(c, v), wantIntensity.Pix(c, v)) << "column " << c;
    }
  }
}

template <typename X, typename Z>
void expectAllModes() {
  const SmallTeams teams;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  // Half-widths of 0, 1, growing from 0 beyond 15 over height, 15 throughout, and NaN.
  const Vec<2, double> spacings[] = {{0, 0}, {0, 0.8}, {0.5, -4}, {0, 1e12}, {0, nan}};
  forEachInstructionSet([&](cmnalg::InstructionSet set) {
    SCOPED_TRACE(static_cast<int>(set));
    for (const Vec<2, double>& spacing : spacings) {
      const Scene<X, Z> scene(spacing.x, spacing.y);
      for (int mode = 0; mode < 5; ++mode) {
        for (const bool clear : {true, false}) {
          if (mode < 3) expectPointByPoint(scene, mode, false, clear);
          expectPointByPoint(scene, mode, true, clear);
        }
      }
    }
  });
}

// Every type as X and every type as Z; the loops are one template.
TEST(Rectification, EqualsPointByPointRules) {
  expectAllModes<float, float>();
  expectAllModes<double, std::uint8_t>();
  expectAllModes<std::uint8_t, double>();
  expectAllModes<std::uint16_t, std::uint32_t>();
  expectAllModes<std::uint32_t, std::uint16_t>();
  expectAllModes<std::uint64_t, std::uint64_t>();
}

TEST(Rectification, KeepsTheOrderOfTiesInRowsBeyond65536Points) {
  constexpr int kPoints = 70000;
  ImageOf<float> x(kPoints, 1, kAllocator);
  ImageOf<float> z(kPoints, 1, kAllocator);
  ImageOf<std::uint8_t> intensity(kPoints, 1, kAllocator);
  x.SetAll(2);
  z.SetAll(std::numeric_limits<float>::quiet_NaN());
  intensity.SetAll(9);
  for (const int i : {65537, 69000}) {
    z.Pix(i, 0) = i == 65537 ? 4.0f : 5.0f;
    intensity.Pix(i, 0) = static_cast<std::uint8_t>(i == 65537 ? 8 : 7);
  }
  z.Pix(69001, 0) = 4.0f;
  ImageOf<std::uint16_t> target(5, 1, kAllocator);
  target.HandleZeroPixels = cmnalg::ZeroPixels::MissingData;
  ImageOf<std::uint8_t> targetIntensity(5, 1, kAllocator);
  ASSERT_TRUE(toRectified(x, z, intensity, {0, 0}, 1, RectificationMode::LOWEST, target,
                          targetIntensity, true));
  EXPECT_EQ(target.Pix(2, 0), 4);
  EXPECT_EQ(targetIntensity.Pix(2, 0), 8);
}

/// The images of one call; a row of the table spoils one of them.
struct Arguments {
  ImageOf<float> x{4, 2, kAllocator};
  ImageOf<float> z{4, 2, kAllocator};
  Image intensity{cmnalg::IMAGE_TYPE_UINT8, 4, 2, kAllocator};
  ImageOf<std::uint16_t> target{6, 2, kAllocator};
  ImageOf<std::uint8_t> targetIntensity{6, 2, kAllocator};
  double splatSize = 1;
  RectificationMode mode = RectificationMode::LOWEST;
};

struct Refusal {
  const char* name;
  void (*spoil)(Arguments&);
  const char* heightText;  // null: accepted
  const char* intensityText;
};

const char* const kReuse = "Cannot reuse source image as target image.";
const char* const kInvalid = "One or more input images are invalid. Please check your input.";
const Refusal kRefusals[] = {
    {"EmptyX", [](Arguments& a) { a.x.Deallocate(); }, kInvalid, kInvalid},
    {"NaNPixelSize", [](Arguments& a) { a.z.PixelSize.y = std::nan(""); }, kInvalid, kInvalid},
    {"EmptyIntensity", [](Arguments& a) { a.intensity.Deallocate(); }, nullptr, kInvalid},
    {"EmptyTarget", [](Arguments& a) { a.target.Deallocate(); },
     "Target image must be a valid image.", "Target images must be valid."},
    {"SourceWidth", [](Arguments& a) { a.x.Create(5, 2, kAllocator); },
     "X and Z inputs must be of the same size.", "X, Z and I inputs must be of the same size."},
    {"IntensityHeight",
     [](Arguments& a) { a.intensity.Create(cmnalg::IMAGE_TYPE_UINT8, 4, 3, 0, kAllocator); },
     nullptr, "X, Z and I inputs must be of the same size."},
    {"TargetHeight", [](Arguments& a) { a.target.Create(6, 3, kAllocator); },
     "Target image must have the same height as the source image.",
     "Target images must have the same height as the source images."},
    {"IntensityType",
     [](Arguments& a) { a.intensity.Create(cmnalg::IMAGE_TYPE_UINT16, 4, 2, 0, kAllocator); },
     nullptr, "Intensity image must be of UINT8 type."},
    {"NegativeSplat", [](Arguments& a) { a.splatSize = -1e-300; },
     "Splat size should be larger than 0.0.", "Splat size should be larger than 0."},
    {"NaNSplat", [](Arguments& a) { a.splatSize = std::nan(""); }, nullptr, nullptr},
    {"NoMissingData", [](Arguments& a) { a.target.HandleZeroPixels = cmnalg::ZeroPixels::Default; },
     "Target image must allow missing data.", "Target image must allow missing data."},
    {"TargetOverlapsX",
     [](Arguments& a) {
       auto* bytes = static_cast<unsigned char*>(a.x.GetData());
       a.target.Create(reinterpret_cast<std::uint16_t*>(bytes + 8), 6, 2, 0, false, kAllocator,
                       false);
     },
     kReuse, kReuse},
    {"TargetsOverlap",
     [](Arguments& a) {
       a.targetIntensity.Create(static_cast<std::uint8_t*>(a.target.GetData()) + 3, 6, 2, 0, false,
                                kAllocator, false);
     },
     nullptr, kReuse},
    {"NarrowIntensityTarget", [](Arguments& a) { a.targetIntensity.Create(5, 2, kAllocator); },
     nullptr, "The intensity target must be at least as wide as the target image."},
    {"IntensityMode", [](Arguments& a) { a.mode = RectificationMode::DARKEST; },
     "Intensity must be provided to use rectification modes BRIGHTEST or DARKEST.", nullptr},
    {"UnknownMode", [](Arguments& a) { a.mode = static_cast<RectificationMode>(5); },
     "Intensity must be provided to use rectification modes BRIGHTEST or DARKEST.",
     "Unsupported rectification mode."},
};

TEST(Rectification, RefusesWithOneWarning) {
  for (const Refusal& refusal : kRefusals) {
    SCOPED_TRACE(refusal.name);
    for (const bool withIntensity : {false, true}) {
      Arguments a;
      a.x.SetAll(1);
      a.z.SetAll(1);
      a.target.HandleZeroPixels = cmnalg::ZeroPixels::MissingData;
      refusal.spoil(a);
      WarningCapture log;
      const bool done = withIntensity
                            ? toRectified(a.x, a.z, a.intensity, {0, 0}, a.splatSize, a.mode,
                                          a.target, a.targetIntensity, true)
                            : toRectified(a.x, a.z, {0, 0}, a.splatSize, a.mode, a.target, true);
      const char* text = withIntensity ? refusal.intensityText : refusal.heightText;
      EXPECT_EQ(done, text == nullptr);
      EXPECT_EQ(log.Messages(),
                text == nullptr ? std::vector<std::string>{} : std::vector<std::string>{text});
    }
  }
}

TEST(Rectification, RefusesSignedSourcesSilently) {
  Arguments a;
  a.target.HandleZeroPixels = cmnalg::ZeroPixels::MissingData;
  const Image z(cmnalg::IMAGE_TYPE_INT16, 4, 2, kAllocator);
  WarningCapture log;
  EXPECT_FALSE(toRectified(a.x, z, {0, 0}, 1, RectificationMode::LOWEST, a.target, true));
  EXPECT_TRUE(log.Messages().empty());
}

}  // namespace
}  // namespace datafusion::planex
