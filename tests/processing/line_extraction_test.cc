#include "planex/processing/line_extraction.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <ostream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "planex/processing/frame_preparation.h"
#include "tests/processing/line_reference.h"
#include "tests/support/instruction_sets.h"
#include "tests/support/log_capture.h"
#include "tests/support/simulated_frames.h"

namespace datafusion::planex {
namespace {

using cmnalg::Image;
using cmnalg::ImageOf;
using test::FrameRandom;
using test::LineScene;

const auto& kAllocator = Image::s_defaultImageAllocator;
constexpr double kWidthOfSigma = reference::kWidthOfSigma;

/// Simulated frames of a row: few here, more where PLANEX_TEST_TRIALS says so.
int trialCount() {
  const char* asked = std::getenv("PLANEX_TEST_TRIALS");
  return asked == nullptr ? 6 : std::atoi(asked);
}

/// A figure for people.
void say(const char* name, double value) {
  ::testing::Test::RecordProperty(name, std::to_string(value));
}

/// The targets of some frames.
struct Profiles {
  ImageOf<std::uint16_t> range, width, deviation;
  ImageOf<std::uint8_t> quality;
  Image intensity;

  Profiles(const Image& frame, int count) {
    EXPECT_TRUE(createLineTarget(frame, count, range));
    const int columns = frame.GetWidth();
    // What is there already must not count.
    width.Create(columns, count, columns + 3, kAllocator);
    deviation.Create(columns, count, kAllocator);
    quality.Create(columns, count, columns + 1, kAllocator);
    intensity.Create(frame.GetType(), columns, count, columns + 5, kAllocator);
    for (Image* image : std::initializer_list<Image*>{&width, &deviation, &quality, &intensity}) {
      std::memset(image->GetData(), 0xA5, image->GetRawBufferSize());
    }
  }
  LineLayers Layers() { return {&intensity, &width, &quality, &deviation}; }
  /// All values of a column of a profile, in the order of the members.
  std::vector<double> At(int u, int k) const {
    return {double(range.Pix(u, k)), double(width.Pix(u, k)), double(deviation.Pix(u, k)),
            double(quality.Pix(u, k)), intensity.GetPixel(u, k)};
  }
};

Profiles extracted(const Image& frame, const LineSettings& settings) {
  Profiles profiles(frame, 1);
  EXPECT_TRUE(extractLines(&frame, 1, settings, 0, profiles.range, profiles.Layers()));
  return profiles;
}

/// Textures with lines of all kinds: many in a column, clipped, cut by the border, equal ones.
template <typename Pixel>
ImageOf<Pixel> texture(int columns, int rows, std::uint64_t seed, int levels) {
  FrameRandom random(seed);
  ImageOf<Pixel> frame(columns, rows, columns + static_cast<int>(seed % 3) * 5, kAllocator);
  const double scale = levels / 255.;
  for (int u = 0; u < columns; ++u) {
    std::vector<double> column(static_cast<std::size_t>(rows), random.Between(0, 60));
    const int lines = random.Below(4), noise = random.Below(4) * 3;
    for (int line = 0; line < lines; ++line) {
      LineScene scene;
      scene.sigma = random.Between(0.4, 6);
      scene.height = random.Between(10, 400);
      const double place = random.Between(-2, rows + 2);
      for (int i = 0; i < rows; ++i) {
        column[static_cast<std::size_t>(i)] += scene.height * scene.Profile(i - place);
      }
    }
    if (u % 7 == 0) column[static_cast<std::size_t>(random.Below(rows))] = 250;  // a hot pixel
    for (int i = 0; i < rows; ++i) {
      const double level = column[static_cast<std::size_t>(i)] + noise * random.Normal();
      frame.Pix(u, i) = static_cast<Pixel>(std::clamp(level, 0., 255.) * scale);
    }
  }
  return frame;
}

reference::Column columnOf(const Image& frame, int u) {
  reference::Column column;
  for (int i = 0; i < frame.GetHeight(); ++i) {
    column.push_back(static_cast<std::int64_t>(frame.GetPixel(u, i)));
  }
  return column;
}

/// Compares one column with the formulas.
void expectColumn(const Image& frame, const LineSettings& settings, const Profiles& got, int u) {
  const double perRow = linePlacesPerRow(frame.GetHeight());
  const reference::Column f = columnOf(frame, u);
  const int rows = frame.GetHeight(), end = settings.endRow == 0 ? rows : settings.endRow;
  const int a = reference::rounded(0.64 * settings.lineWidth), w = 2 * a + 1;
  const bool bytes = frame.GetType() == cmnalg::IMAGE_TYPE_UINT8;
  const double full = settings.fullScale > 0 ? settings.fullScale : bytes ? 255 : 65535;
  const double threshold = settings.threshold > 0 ? settings.threshold : 0.04 * full;
  auto lines = reference::runs(reference::strengths(f, a), w * threshold, settings.firstRow, end);
  const int place = got.range.Pix(u, 0), quality = got.quality.Pix(u, 0);
  ASSERT_EQ(place != 0, quality >= kLeastConfidence);
  if (lines.empty()) {
    EXPECT_EQ(quality, int(LineReason::NOTHING));
    return;
  }
  const auto before = [&](const reference::Run& one, const reference::Run& other) {
    switch (settings.choice) {
      case LineChoice::FIRST:
        return one.row < other.row;
      case LineChoice::LAST:
        return one.row > other.row;
      case LineChoice::NEAREST:
        return std::abs(one.row - settings.nearestRow) < std::abs(other.row - settings.nearestRow);
      default:
        return one.strength > other.strength;
    }
  };
  std::stable_sort(lines.begin(), lines.end(), before);
  const reference::Run line = lines[0];
  std::int64_t second = 0;
  for (std::size_t i = 1; i < lines.size(); ++i) second = std::max(second, lines[i].strength);
  auto taps = reference::taps(settings.lineWidth);
  reference::Crossing crossing;
  const bool lost = !reference::crossesNear(f, taps, settings.lineWidth, line.row, a + 1, crossing);
  double row = crossing.row;
  if (!lost && settings.method == LineMethod::CENTRE_OF_GRAVITY) {
    row = reference::centreOfGravity(f, settings.lineWidth, row);
  }
  if (quality == int(LineReason::NO_CROSSING)) {
    EXPECT_TRUE(lost || std::isnan(row));
    return;
  }
  ASSERT_FALSE(lost || std::isnan(row));
  const auto space = [&] { return std::min(row - settings.firstRow, end - 1 - row); };
  if (quality == int(LineReason::CUT)) {
    EXPECT_LT(space(), 5 * settings.lineWidth + 8);
    return;
  }
  if (place == 0) {
    EXPECT_TRUE(quality == int(LineReason::TOO_WIDE) || quality == int(LineReason::TOO_NARROW));
    return;
  }
  const double fitting = reference::fittingWidth(settings.lineWidth, got.width.Pix(u, 0) / 64.);
  const bool clipped = reference::isClipped(f, crossing.nearest, full);
  reference::Column located = f;
  if (settings.method == LineMethod::DERIVATIVE && (fitting != settings.lineWidth || clipped)) {
    const auto levels = clipped ? reference::bent(f, full) : f;
    const auto others = reference::taps(fitting);
    reference::Crossing again;
    if (reference::crossesNear(levels, others, fitting, crossing.nearest, a + 1, again) &&
        (fitting >= settings.lineWidth || std::abs(again.row - row) <= settings.lineWidth / 25)) {
      taps = others;
      crossing = again;
      row = again.row;
      located = levels;
    }
  }
  EXPECT_GE(space(), -0.5);
  EXPECT_EQ(place, std::floor(row * perRow + 0.5));
  const double confidence = 255. - 255. * double(second) / double(line.strength);
  EXPECT_EQ(quality, std::max<int>(kLeastConfidence, int(std::max(0., confidence + 0.5))));
  double sum = 0;
  for (int k = -a; k <= a; ++k) sum += double(reference::levelAt(f, line.row + k));
  EXPECT_EQ(got.intensity.GetPixel(u, 0), std::floor(sum / w + 0.5));
  EXPECT_GE(got.width.Pix(u, 0), settings.minimumWidth * 64 - 0.5);
  EXPECT_LE(got.width.Pix(u, 0), 4 * settings.lineWidth * 64 + 0.5);
  if (settings.method == LineMethod::DERIVATIVE) {
    const double deviation = reference::deviation(f, located, full, taps, crossing, settings.gain,
                                                  settings.readNoise * settings.readNoise, perRow);
    // The kernel takes the noise of bent levels from what rounding left of them.
    const double rounding = located == f ? 1 : 1 + 0.05 * 1024 * deviation;
    EXPECT_NEAR(got.deviation.Pix(u, 0), std::min(65535., 1024 * deviation), rounding);
  }
}

/// @return how many lines there are
int expectFormulas(const Image& frame, const LineSettings& settings) {
  test::useThreads(1);
  const Profiles first = extracted(frame, settings);
  int points = 0;
  for (int u = 0; u < frame.GetWidth() && !::testing::Test::HasFailure(); ++u) {
    SCOPED_TRACE(::testing::Message()
                 << frame.GetWidth() << " x " << frame.GetHeight() << " column " << u << " width "
                 << settings.lineWidth << " method " << int(settings.method) << " choice "
                 << int(settings.choice));
    expectColumn(frame, settings, first, u);
    points += first.range.Pix(u, 0) != 0;
  }
  test::forEachInstructionSet([&](cmnalg::InstructionSet set) {
    const Profiles other = extracted(frame, settings);
    for (int u = 0; u < frame.GetWidth(); ++u) {
      ASSERT_EQ(first.At(u, 0), other.At(u, 0)) << "set " << int(set) << " column " << u;
    }
  });
  return points;
}

template <typename Pixel>
class LineExtractionOf : public ::testing::Test {};
using PixelTypes = ::testing::Types<std::uint8_t, std::uint16_t>;
TYPED_TEST_SUITE(LineExtractionOf, PixelTypes);

TYPED_TEST(LineExtractionOf, FollowsTheFormulas) {
  const std::pair<int, int> kSizes[] = {{1, 1}, {31, 40}, {637, 97}, {40, 5}, {33, 1100}};
  const int levels = std::numeric_limits<TypeParam>::max();
  int points = 0;
  for (int trial = 0; trial < 8 * trialCount() && !this->HasFailure(); ++trial) {
    const auto [columns, rows] = kSizes[trial % 5];
    LineSettings settings;
    settings.method = static_cast<LineMethod>(trial % 2);
    settings.choice = static_cast<LineChoice>(trial / 2 % 4);
    settings.nearestRow = rows / 3;
    settings.lineWidth = std::vector<double>{5, 1, 2.5, 12, 60, 7.3, 3.1}[trial % 7];
    settings.fullScale = trial % 4 == 1 ? levels / 5 : 0;
    settings.threshold = trial % 11 == 0 ? 0.5 : 0;
    settings.gain = 0.03;
    settings.readNoise = 1.5;
    if (trial % 3 == 0 && rows > 30) {
      settings.firstRow = rows / 5;
      settings.endRow = rows - rows / 4;
    }
    const auto seed = static_cast<std::uint64_t>(trial);
    points += expectFormulas(texture<TypeParam>(columns, rows, seed, levels), settings);
  }
  EXPECT_GT(points, 200 * trialCount());
}

/// Lines of equal rows between rows that are 100 levels darker.
TEST(LineExtraction, JudgesLinesByTheirWidth) {
  struct Stripe {
    int from, rows;
    LineReason reason;
  };
  constexpr LineReason kFound{};
  const Stripe kStripes[] = {{50, 1, LineReason::TOO_NARROW},
                             {50, 2, kFound},
                             {50, 5, kFound},
                             {50, 18, kFound},
                             {50, 19, LineReason::TOO_WIDE},
                             {3, 4, kFound},
                             {2, 4, LineReason::CUT},
                             {93, 4, kFound},
                             {94, 4, LineReason::CUT},
                             {50, 0, LineReason::NOTHING}};
  constexpr int kStripeCount = std::extent_v<decltype(kStripes)>;
  ImageOf<std::uint8_t> frame(kStripeCount, 100, kAllocator);
  frame.SetAll(20);
  LineSettings settings;
  settings.minimumWidth = 2;
  settings.maximumWidth = 18;
  for (int u = 0; u < kStripeCount; ++u) {
    for (int i = 0; i < kStripes[u].rows; ++i) frame.Pix(u, kStripes[u].from + i) = 120;
  }
  const Profiles got = extracted(frame, settings);
  for (int u = 0; u < kStripeCount; ++u) {
    const Stripe& stripe = kStripes[u];
    const bool found = stripe.reason == kFound;
    EXPECT_EQ(got.quality.Pix(u, 0), found ? 255 : int(stripe.reason)) << u;
    EXPECT_EQ(got.width.Pix(u, 0), found ? 64 * stripe.rows : 0) << u;
    EXPECT_EQ(got.range.Pix(u, 0), found ? 64 * stripe.from + 32 * (stripe.rows - 1) : 0) << u;
  }
  // Dark grains do not end a line, the brighter side is its background, and the first of two equal
  // lines counts.
  for (int u = 0; u < 3; ++u) {
    for (int i = 0; i < 100; ++i) {
      const bool inside = (i >= 50 && i < 59) || (u == 2 && i >= 80 && i < 89);
      const bool grain = u == 0 && (i == 52 || i == 56);
      frame.Pix(u, i) = inside && !grain ? 120 : u == 1 && i >= 59 ? 60 : 20;
    }
  }
  const Profiles others = extracted(frame, settings);
  EXPECT_EQ(others.width.Pix(0, 0), 64 * 9);
  EXPECT_EQ(others.range.Pix(0, 0), 64 * 54);
  EXPECT_EQ(others.width.Pix(1, 0), 64 * 10 - 45 - 32);  // half height at 90: 0.7 and 0.5 rows
  EXPECT_EQ(others.range.Pix(2, 0), 64 * 54);
  EXPECT_EQ(others.quality.Pix(2, 0), kLeastConfidence);
  Profiles alone(frame, 1);
  EXPECT_TRUE(extractLines(&frame, 1, settings, 0, alone.range));
  EXPECT_EQ(alone.range.Pix(2, 0), 64 * 54);
  // The row of a line's middle counts, not where its strength is largest.
  settings.firstRow = 6;
  settings.endRow = 54;
  const Profiles band = extracted(frame, settings);
  EXPECT_EQ(band.quality.Pix(5, 0), int(LineReason::CUT));
  EXPECT_EQ(band.quality.Pix(7, 0), int(LineReason::NOTHING));
}

TEST(LineExtraction, TellsWhereFramesLie) {
  const SensorRegion covered = lineRegion({-2, 639, 0.5, 10, 0, 0}, 320, 1021);
  EXPECT_EQ(covered.width, 640);
  EXPECT_EQ(covered.height, 511);
  EXPECT_EQ(covered.scaleZ, 0.5 / 64);
  EXPECT_EQ(covered.originZ, 10);
  const SensorRegion given = lineRegion({1, 0, 1, 0, 7, 9}, 320, 2000);
  EXPECT_EQ(given.width, 7);
  EXPECT_EQ(given.height, 9);
  EXPECT_EQ(given.scaleZ, 1. / 32);
}

/// Frames of which everything but the wanted difference is equal.
TYPED_TEST(LineExtractionOf, MovesWithTheFrame) {
  const int columns = 211, rows = 120, levels = std::numeric_limits<TypeParam>::max();
  const int lift = levels / 5;
  const ImageOf<TypeParam> narrow = texture<TypeParam>(columns, rows - 80, 5, levels * 7 / 10);
  const auto drawn = [&](int down, int up, int turn) {
    ImageOf<TypeParam> frame(columns, rows, kAllocator);
    for (int i = 0; i < rows; ++i) {
      const int from = std::clamp(i - 40 - down, 0, rows - 81);
      for (int u = 0; u < columns; ++u) {
        frame.Pix((u + turn) % columns, i) = static_cast<TypeParam>(narrow.Pix(u, from) + up);
      }
    }
    return frame;
  };
  for (const LineMethod method : {LineMethod::DERIVATIVE, LineMethod::CENTRE_OF_GRAVITY}) {
    LineSettings settings;
    settings.method = method;
    settings.choice = LineChoice::LAST;
    const Profiles plain = extracted(drawn(0, 0, 0), settings);
    const Profiles moved = extracted(drawn(1, 0, 0), settings);
    const Profiles lighter = extracted(drawn(0, lift, 0), settings);
    const Profiles turned = extracted(drawn(0, 0, 97), settings);
    int found = 0;
    for (int u = 0; u < columns; ++u) {
      std::vector<double> want = plain.At(u, 0);
      EXPECT_EQ(turned.At((u + 97) % columns, 0), want) << u;
      if (want[0] == 0) {
        EXPECT_EQ(moved.At(u, 0), want) << u;
        EXPECT_EQ(lighter.At(u, 0), want) << u;
        continue;
      }
      ++found;
      want[4] += lift;
      EXPECT_EQ(lighter.At(u, 0), want) << u;
      want[4] -= lift;
      want[0] += 64;
      EXPECT_EQ(moved.At(u, 0), want) << u;
    }
    EXPECT_GT(found, columns / 3);
  }
}

TEST(LineExtraction, DoesNotDependOnThreadsAndPieces) {
  constexpr int kFrames = 9;
  std::vector<Image> frames;
  for (std::uint64_t k = 0; k < kFrames; ++k) {
    frames.emplace_back(texture<std::uint8_t>(45, 60, 3 * k, 255));
  }
  Profiles alone(frames[0], kFrames);
  test::useThreads(1);
  for (int k = 0; k < kFrames; ++k) {
    ASSERT_TRUE(
        extractLines(&frames[static_cast<std::size_t>(k)], 1, {}, k, alone.range, alone.Layers()));
  }
  for (const int threads : {1, 2, 7}) {
    test::useThreads(threads);
    Profiles whole(frames[0], kFrames);
    ASSERT_TRUE(extractLines(frames.data(), 4, {}, 0, whole.range, whole.Layers()));
    ASSERT_TRUE(extractLines(frames.data() + 4, 5, {}, 4, whole.range, whole.Layers()));
    Profiles rangeOnly(frames[0], kFrames);
    ASSERT_TRUE(extractLines(frames.data(), kFrames, {}, 0, rangeOnly.range));
    for (int k = 0; k < kFrames; ++k) {
      for (int u = 0; u < 45; ++u) {
        ASSERT_EQ(whole.At(u, k), alone.At(u, k)) << threads << " " << u << " " << k;
        ASSERT_EQ(rangeOnly.range.Pix(u, k), alone.range.Pix(u, k));
      }
    }
  }
}

/// How well lines are found.
struct Precision {
  const char* name;
  LineMethod method;
  LineScene scene;
  double told;         ///< line width over the true one
  double mostSpread;   ///< std over bound and rounding; under speckle over a window at the place
  double mostPhase;    ///< rows: the mean error of the worst of 16 sub-pixel phases
  bool toldDeviation;  ///< whether the predicted deviation is that of the scene
  double mostBias = 0.01;  ///< rows
};

void PrintTo(const Precision& row, std::ostream* out) { *out << row.name; }

LineScene scene(double sigma, double height, double speckle = 0, double light = 5) {
  LineScene made;
  made.sigma = sigma;
  made.height = height;
  made.speckle = speckle;
  made.light = light;
  return made;
}

LineScene withNeighbour(LineScene made) {
  made.second = made.height / 2;
  made.secondOffset = 8 * made.sigma;
  return made;
}

LineScene onRamp(LineScene made) {
  made.ramp = 0.5;
  return made;
}

constexpr LineMethod kFir = LineMethod::DERIVATIVE, kCog = LineMethod::CENTRE_OF_GRAVITY;
const Precision kPrecisions[] = {
    // clang-format off
    {"Fir1x20", kFir, scene(1, 20), 1, 1.2, 0.02, true},
    {"Fir1x180", kFir, scene(1, 180), 1, 1.2, 0.02, true},
    {"Fir2x60", kFir, scene(2, 60), 1, 1.2, 0.02, true},
    {"Fir3x100", kFir, scene(3, 100), 1, 1.2, 0.02, true},
    {"Fir5x20", kFir, scene(5, 20), 1, 1.2, 0.02, true},
    {"Fir5x180", kFir, scene(5, 180), 1, 1.2, 0.02, true},
    {"Cog1x20", kCog, scene(1, 20), 1, 1.5, 0.02, true},
    {"Cog2x60", kCog, scene(2, 60), 1, 1.5, 0.02, true},
    {"Cog5x180", kCog, scene(5, 180), 1, 1.5, 0.02, true},
    {"FirToldHalf", kFir, scene(1, 180), 0.5, 1.2, 0.02, true},
    {"FirToldThinner", kFir, scene(1, 20), 0.7, 1.5, 0.02, true},
    {"CogToldHalf", kCog, scene(4.25, 100), 0.5, 1.6, 0.02, true},
    {"FirToldTwice", kFir, scene(2, 20), 2, 1.2, 0.02, true},
    {"FirClipped", kFir, scene(1, 300), 1, 0, 0.02, false},
    {"FirClippedTwice", kFir, scene(1, 510), 1, 0, 0.02, true},
    {"FirClippedEightfold", kFir, scene(1, 2040), 1, 0, 0.07, false},
    {"CogClippedTwice", kCog, scene(2, 510), 1, 0, 0.03, false},
    {"FirSpeckle", kFir, scene(2, 100, 0.2), 1, 1.3, 0, false},
    {"FirStrongSpeckle", kFir, scene(3.2, 100, 0.4), 1, 1.3, 0, false},
    {"CogSpeckle", kCog, scene(2, 100, 0.2), 1, 1.12, 0, false},
    {"CogStrongSpeckle", kCog, scene(3.2, 100, 0.4), 1, 1.12, 0, false},
    {"FirLight", kFir, scene(2, 60, 0, 80), 1, 1.2, 0.02, true},
    {"FirRamp", kFir, onRamp(scene(2, 60)), 1, 0, 0.3, true, 0.3},
    {"FirNeighbour", kFir, withNeighbour(scene(2, 100)), 1, 1.2, 0.02, true},
    {"FirNeighbourToldTwice", kFir, withNeighbour(scene(2, 100)), 2, 1.2, 0.02, true},
    // clang-format on
};

class LinePrecision : public ::testing::TestWithParam<Precision> {};

TEST_P(LinePrecision, IsNearTheBound) {
  const Precision& row = GetParam();
  constexpr int kColumns = 640, kRows = 128, kPhases = 16;
  LineSettings settings;
  settings.method = row.method;
  settings.lineWidth = kWidthOfSigma * row.scene.sigma * row.told;
  settings.threshold = 4;
  settings.gain = row.scene.gain;
  settings.readNoise = row.scene.readNoise;
  FrameRandom random(1);
  double sum = 0, squares = 0, oracle = 0, predicted = 0, found = 0, all = 0, widths = 0;
  double phases[kPhases] = {}, counts[kPhases] = {};
  const int trials = 2 * trialCount();
  for (int trial = 0; trial < trials; ++trial) {
    const auto frame = test::simulateFrame(row.scene, kColumns, kRows, 50, 76, random);
    const Profiles got = extracted(frame.image, settings);
    for (int u = 0; u < kColumns; ++u) {
      ++all;
      if (got.range.Pix(u, 0) == 0) continue;
      const double place = frame.places[static_cast<std::size_t>(u)];
      const double error = got.range.Pix(u, 0) / 64. - place;
      if (std::abs(error) > 4 * row.scene.sigma) continue;
      ++found;
      sum += error;
      squares += error * error;
      const auto phase = static_cast<std::size_t>((place - std::floor(place)) * kPhases);
      phases[phase] += error;
      ++counts[phase];
      predicted += std::pow(got.deviation.Pix(u, 0) / 1024., 2);
      widths += got.width.Pix(u, 0) / 64.;
      if (row.scene.speckle == 0) continue;
      double level = 0, moment = 0;
      const double reach = 2.5 * row.scene.sigma;
      for (int i = int(place - reach); i <= int(place + reach) + 1; ++i) {
        const double covered = std::min(place + reach, i + .5) - std::max(place - reach, i - .5);
        const double f = std::max(0., covered) * (frame.image.Pix(u, i) - row.scene.light);
        level += f;
        moment += f * (i - place);
      }
      oracle += std::pow(moment / level, 2);
    }
  }
  const double bias = sum / found, deviation = std::sqrt(squares / found - bias * bias);
  const double bound = row.scene.speckle > 0
                           ? std::sqrt(oracle / found)
                           : std::sqrt(row.scene.LeastVariance() + 1. / (12 * 64 * 64));
  double worst = 0;
  for (int k = 0; k < kPhases; ++k) worst = std::max(worst, std::abs(phases[k] / counts[k]));
  const double told = std::sqrt(predicted / found) / deviation;
  EXPECT_GE(found, 0.999 * all);
  const double chance = row.scene.speckle > 0 ? 3 * deviation / std::sqrt(found) : 0;
  EXPECT_LT(std::abs(bias), row.mostBias + chance);
  if (row.mostSpread > 0) {
    EXPECT_LT(deviation / bound, row.mostSpread);
  }
  if (row.mostPhase > 0) {
    EXPECT_LT(worst, row.mostPhase);
  }
  if (row.toldDeviation) {
    EXPECT_GT(told, 0.9);
    EXPECT_LT(told, 1.15);
  }
  if (row.scene.height <= 250 && row.scene.speckle == 0) {
    EXPECT_NEAR(widths / found / row.scene.sigma, kWidthOfSigma, 0.35);
  }
  say("rows", deviation);
  say("ratio", deviation / bound);
  say("bias", bias);
  say("worst_phase", worst);
  say("predicted", told);
  say("width", widths / found);
}

INSTANTIATE_TEST_SUITE_P(, LinePrecision, ::testing::ValuesIn(kPrecisions),
                         [](const auto& row) { return row.param.name; });

/// What lies where no line does.
struct Emptiness {
  const char* name;
  double light, ramp, edge;  ///< levels; a row; above a step in the middle of the frame
  int hotPixels;             ///< in a frame
};
void PrintTo(const Emptiness& row, std::ostream* out) { *out << row.name; }

class EmptyFrames : public ::testing::TestWithParam<Emptiness> {};

TEST_P(EmptyFrames, HaveNoPoints) {
  const Emptiness& row = GetParam();
  constexpr int kColumns = 640, kRows = 256;
  FrameRandom random(2);
  int points = 0;
  const int trials = trialCount();
  for (int trial = 0; trial < trials; ++trial) {
    LineScene scene;
    scene.height = 0;
    scene.light = row.light;
    scene.ramp = row.ramp;
    auto frame = test::simulateFrame(scene, kColumns, kRows, 90, 91, random);
    for (int u = 0; u < kColumns; ++u) {
      const int middle = 60 + u / 5;
      for (int i = 0; i < kRows; ++i) {
        auto& pixel = frame.image.Pix(u, i);
        if (i > middle) pixel = static_cast<std::uint8_t>(std::min(255., pixel + row.edge));
      }
    }
    for (int k = 0; k < row.hotPixels; ++k) {
      frame.image.Pix(random.Below(kColumns), random.Below(kRows)) =
          static_cast<std::uint8_t>(120 + random.Below(136));
    }
    for (const LineMethod method : {kFir, kCog}) {
      LineSettings settings;
      settings.method = method;
      const Profiles got = extracted(frame.image, settings);
      for (int u = 0; u < kColumns; ++u) points += got.range.Pix(u, 0) != 0;
    }
  }
  say("per_million_pixels", points * 1e6 / (2. * trials * kColumns * kRows));
  // Two hot pixels that lie within a few rows of a column may look like one line.
  EXPECT_LE(points, row.hotPixels > 0 ? 0.5e-6 * 2 * trials * kColumns * kRows : 0);
}

INSTANTIATE_TEST_SUITE_P(, EmptyFrames,
                         ::testing::Values(Emptiness{"Dark", 0, 0, 0, 0},
                                           Emptiness{"Bright", 200, 0, 0, 0},
                                           Emptiness{"Ramp", 5, 0.9, 0, 0},
                                           Emptiness{"Edge", 10, 0, 200, 0},
                                           Emptiness{"HotPixels", 5, 0, 0, 16}),
                         [](const auto& row) { return row.param.name; });

TEST(LineExtraction, ChoosesTheLineOfTheRule) {
  constexpr int kColumns = 640, kRows = 160;
  LineScene scene;
  FrameRandom random(3);
  int columns = 0, right[4] = {};
  for (int trial = 0; trial < trialCount(); ++trial, columns += kColumns) {
    scene.second = trial % 2 == 0 ? 60 : 150;  // the first one is 100 high
    scene.secondOffset = 20 + 6 * (trial % 5);
    const auto frame = test::simulateFrame(scene, kColumns, kRows, 30, 60, random);
    LineSettings settings;
    settings.nearestRow = trial % 3 == 0 ? 25 : 120;
    for (int choice = 0; choice < 4; ++choice) {
      settings.choice = static_cast<LineChoice>(choice);
      const Profiles got = extracted(frame.image, settings);
      const bool wantsSecond[] = {scene.second > scene.height, false, true, trial % 3 != 0};
      for (int u = 0; u < kColumns; ++u) {
        const double place = frame.places[static_cast<std::size_t>(u)] +
                             (wantsSecond[choice] ? scene.secondOffset : 0);
        right[choice] += std::abs(got.range.Pix(u, 0) / 64. - place) < 0.3;
      }
    }
  }
  for (const int count : right) EXPECT_GE(count, 0.999 * columns);
}

TEST(LineExtraction, MakesTargetsForItsFrames) {
  const std::pair<int, int> kPlaces[] = {{1, 64},    {1024, 64}, {1025, 32}, {2048, 32},
                                         {2049, 16}, {4097, 8},  {32767, 2}};
  for (const auto& [height, places] : kPlaces) EXPECT_EQ(linePlacesPerRow(height), places);
  ImageOf<std::uint16_t> frame(7, 1200, kAllocator), range(7, 3, kAllocator);
  frame.PixelSize = {2, 4, 1};
  frame.Origin = {30, 50, 9};
  range.SetAll(77);
  ASSERT_TRUE(createLineTarget(frame, 3, range));
  EXPECT_EQ(range.PixelSize, (cmnalg::Vec<3, double>{2, 1, 4. / 32}));
  EXPECT_EQ(range.Origin, (cmnalg::Vec<3, double>{30, 0, 50}));
  EXPECT_EQ(range.HandleZeroPixels, cmnalg::ZeroPixels::MissingData);
  EXPECT_EQ(range.GetPixel(6, 2), 0);
}

struct Arguments {
  std::vector<Image> frames{2, ImageOf<std::uint8_t>(8, 30, kAllocator)};
  int count = 2, first = 1;
  LineSettings settings;
  ImageOf<std::uint16_t> range{8, 3, kAllocator}, width{8, 3, kAllocator},
      deviation{8, 3, kAllocator};
  ImageOf<std::uint8_t> quality{8, 3, kAllocator};
  Image intensity{cmnalg::IMAGE_TYPE_UINT8, 8, 3, kAllocator};

  std::vector<Image*> Targets() { return {&range, &width, &deviation, &quality, &intensity}; }
};

Image imageOf(cmnalg::ImageType type, int width, int height) {
  return Image(type, width, height, kAllocator);
}

const double kNaN = std::nan(""), kInfinity = std::numeric_limits<double>::infinity();

TEST(LineExtraction, RefusesWhatItCannotDo) {
  using Spoil = void (*)(Arguments&);
  const Spoil kSpoils[] = {
      // clang-format off
      [](auto& a) { a.settings.lineWidth = 0.99; },
      [](auto& a) { a.settings.lineWidth = 60.1; },
      [](auto& a) { a.settings.lineWidth = kNaN; },
      [](auto& a) { a.settings.threshold = -1; },
      [](auto& a) { a.settings.threshold = kNaN; },
      [](auto& a) { a.settings.fullScale = -1; },
      [](auto& a) { a.settings.fullScale = kInfinity; },
      [](auto& a) { a.settings.firstRow = -1; },
      [](auto& a) { a.settings.firstRow = 30; },
      [](auto& a) { a.settings.endRow = 31; },
      [](auto& a) { a.settings.endRow = -1; },
      [](auto& a) { a.settings.firstRow = a.settings.endRow = 9; },
      [](auto& a) { a.settings.minimumWidth = -0.1; },
      [](auto& a) { a.settings.minimumWidth = kNaN; },
      [](auto& a) { a.settings.minimumWidth = 30, a.settings.maximumWidth = 20; },
      [](auto& a) { a.settings.maximumWidth = 241; },
      [](auto& a) { a.settings.maximumWidth = kNaN; },
      [](auto& a) { a.settings.gain = -1; },
      [](auto& a) { a.settings.gain = kNaN; },
      [](auto& a) { a.settings.readNoise = -1; },
      [](auto& a) { a.settings.readNoise = kInfinity; },
      [](auto& a) { a.settings.method = static_cast<LineMethod>(2); },
      [](auto& a) { a.settings.choice = static_cast<LineChoice>(-1); },
      [](auto& a) { a.frames[1] = imageOf(cmnalg::IMAGE_TYPE_UINT16, 8, 30); },
      [](auto& a) { a.frames[1] = imageOf(cmnalg::IMAGE_TYPE_UINT8, 8, 29); },
      [](auto& a) { a.frames[1] = imageOf(cmnalg::IMAGE_TYPE_UINT8, 9, 30); },
      [](auto& a) { a.frames[1] = Image(); },
      [](auto& a) { a.frames.assign(2, imageOf(cmnalg::IMAGE_TYPE_UINT8, 9, 30)); },
      [](auto& a) { a.frames.assign(2, imageOf(cmnalg::IMAGE_TYPE_INT16, 8, 30)); },
      [](auto& a) { a.frames.assign(2, imageOf(cmnalg::IMAGE_TYPE_FLOAT32, 8, 30)); },
      [](auto& a) { a.frames.assign(2, imageOf(cmnalg::IMAGE_TYPE_RGB24, 8, 30)); },
      [](auto& a) { a.frames.assign(2, imageOf(cmnalg::IMAGE_TYPE_UINT8, 8, 0)); },
      [](auto& a) { a.frames.assign(2, imageOf(cmnalg::IMAGE_TYPE_UINT8, 8, 32768)); },
      [](auto& a) { a.count = -1; },
      [](auto& a) { a.first = -1; },
      [](auto& a) { a.first = 2; },
      [](auto& a) { a.first = std::numeric_limits<int>::max(); },
      [](auto& a) { a.range.Create(9, 3, kAllocator); },
      [](auto& a) { a.range.Create(8, 2, kAllocator); },
      [](auto& a) { a.width.Create(7, 3, kAllocator); },
      [](auto& a) { a.deviation.Create(9, 3, kAllocator); },
      [](auto& a) { a.quality.Create(8, 2, kAllocator); },
      [](auto& a) { a.intensity = imageOf(cmnalg::IMAGE_TYPE_UINT16, 8, 3); },
      [](auto& a) { a.intensity = imageOf(cmnalg::IMAGE_TYPE_UINT8, 8, 2); },
      [](auto& a) { a.width.Create(a.range, false); },
      [](auto& a) { a.quality.Create(static_cast<std::uint8_t*>(a.frames[1].GetData()), 8, 3, 8,
                                     false, kAllocator, false); },
      // clang-format on
  };
  int number = 0;
  for (const Spoil spoil : kSpoils) {
    SCOPED_TRACE(number++);
    Arguments a;
    spoil(a);
    for (Image* target : a.Targets()) {
      std::memset(target->GetData(), 0x5A, target->GetRawBufferSize());
    }
    const std::vector<std::uint8_t> untouched(10000, 0x5A);
    test::LogCapture log;
    EXPECT_FALSE(extractLines(a.frames.data(), a.count, a.settings, a.first, a.range,
                              {&a.intensity, &a.width, &a.quality, &a.deviation}));
    const std::string text = log.TakeOne("Image.Extraction.Planex");
    EXPECT_EQ(text.substr(0, 9), "WARNING: ");
    EXPECT_GT(text.size(), 20U);
    EXPECT_EQ(text.find('|'), std::string::npos) << text;
    for (Image* target : a.Targets()) {
      EXPECT_EQ(std::memcmp(target->GetData(), untouched.data(), target->GetRawBufferSize()), 0);
    }
  }
  Arguments good;
  good.settings.nearestRow = -5;
  EXPECT_TRUE(extractLines(good.frames.data(), 2, good.settings, 1, good.range,
                           {&good.intensity, &good.width, &good.quality, &good.deviation}));
  test::LogCapture log;
  good.range.SetAll(9);
  EXPECT_FALSE(createLineTarget(ImageOf<float>(8, 30, kAllocator), 3, good.range));
  EXPECT_EQ(log.Warnings(), 1);
  EXPECT_FALSE(createLineTarget(good.frames[0], 0, good.range));
  EXPECT_EQ(log.Warnings(), 2);
  EXPECT_EQ(good.range.Pix(0, 2), 9);
}

TEST(FramePreparation, TakesOffTheDarkAndExchangesAxes) {
  ImageOf<std::uint16_t> frame(40, 33, 48, kAllocator), dark(40, 33, kAllocator);
  ImageOf<std::uint16_t> turned(33, 7, kAllocator);
  for (int v = 0; v < 33; ++v) {
    for (int u = 0; u < 40; ++u) {
      frame.Pix(u, v) = static_cast<std::uint16_t>(1000 * v + u);
      dark.Pix(u, v) = static_cast<std::uint16_t>(20 * u);
    }
  }
  frame.PixelSize = {2, 3, 4};
  frame.Origin = {5, 6, 7};
  EXPECT_TRUE(subtractDark(dark, frame));
  EXPECT_TRUE(transpose(frame, turned));
  ASSERT_EQ(turned.GetHeight(), 40);
  for (int v = 0; v < 33; ++v) {
    for (int u = 0; u < 40; ++u) ASSERT_EQ(turned.Pix(v, u), std::max(1000 * v - 19 * u, 0));
  }
  EXPECT_EQ(turned.PixelSize.x * 100 + turned.PixelSize.y * 10 + turned.Origin.x, 326);

  const ImageOf<std::uint8_t> narrow(40, 33, kAllocator);
  ImageOf<float> floats(40, 33, kAllocator), none;
  test::LogCapture log;
  EXPECT_FALSE(subtractDark(narrow, frame));
  EXPECT_FALSE(subtractDark(turned, frame));
  EXPECT_FALSE(subtractDark(floats, floats));
  EXPECT_FALSE(transpose(floats, none));
  ImageOf<std::uint16_t> over(frame.GetRowPtr(0), 33, 40, 33, false, kAllocator, false);
  EXPECT_FALSE(transpose(frame, over));
  EXPECT_EQ(log.Warnings(), 5);
  Image bytes = narrow;
  EXPECT_TRUE(subtractDark(narrow, bytes) && transpose(narrow, bytes));
  EXPECT_EQ(bytes.GetWidth(), 33);
}

}  // namespace
}  // namespace datafusion::planex
