#include "planex/acquisition/camera_frames.h"

#include <arv.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

#include "planex/acquisition/frame_numbers.h"

namespace planex::acquisition {
namespace {

constexpr std::int64_t kAnew = -1;
constexpr std::size_t kBytes = 256;  // of a frame

TEST(FrameNumbers, CountWhatIsMissing) {
  struct Case {
    const char* name;
    std::uint64_t from, to;
    std::int64_t lost;
  };
  const Case kCases[] = {
      {"Next", 7, 8, 0},
      {"Gap", 7, 11, 3},
      {"WrapPassesOverZero", 65535, 1, 0},
      {"GapAcrossTheWrap", 65533, 3, 4},
      {"LongNumbersDoNotWrap", 65535, 65536, 0},
      {"GapOfLongNumbers", 65535, 65538, 2},
      {"Same", 9, 9, kAnew},
      {"Back", 30000, 29999, kAnew},
      {"LongNumbersBack", 70000, 1, kAnew},
      {"Zero", 65535, 0, kAnew},
      {"Jump", 1, 40000, kAnew},
      {"FarJump", 1, std::numeric_limits<std::uint64_t>::max(), kAnew},
  };
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.name);
    FrameNumbers numbers;
    EXPECT_EQ(numbers.take(c.from), 0);
    EXPECT_EQ(numbers.take(c.to).value_or(kAnew), c.lost);
  }
}

CameraSettings fakeCamera() {
  arv_enable_interface("Fake");
  CameraSettings settings;
  settings.camera = "Fake_1";
  settings.region = FrameRegion{32, 8, 0, 0};
  settings.frameRate = 500;
  return settings;
}

/// Pixel (x, y) of a frame of the simulator is x + y + its number, modulo 255, so that frames go on
/// evenly over the wrap of numbers from 65535 to 1.
TEST(CameraFrames, NumbersWrap) {
  CameraSettings settings = fakeCamera();
  settings.frames = 200;  // from 65401 on
  const auto camera = CameraFrames::open(settings);
  ASSERT_EQ(camera->frameBytes(), kBytes);
  std::vector<std::uint8_t> frames(207 * kBytes);
  std::vector<io::FrameNote> notes(207);
  std::size_t count = 0;
  while (const int more = camera->read(7, &frames[count * kBytes], &notes[count])) {
    count += static_cast<std::size_t>(more);
    ASSERT_LE(count, 200U);
  }
  ASSERT_EQ(count, 200U);
  for (std::size_t i = 0; i < count * kBytes; ++i) {
    ASSERT_EQ(frames[i], (frames[0] + i / kBytes + i % 32 + i / 32 % 8) % 255) << "byte " << i;
  }
  EXPECT_EQ(camera->statistics().lost, 0);
}

TEST(CameraFrames, EndWhenTheyAreTold) {
  CameraSettings settings = fakeCamera();
  std::vector<std::uint8_t> frames(100 * kBytes);
  std::vector<io::FrameNote> notes(100);
  int asked = 0;
  settings.isStopped = [&] { return ++asked > 20; };
  const auto stopped = CameraFrames::open(settings);
  std::int64_t count = 0;
  while (const int more = stopped->read(100, frames.data(), notes.data())) count += more;
  EXPECT_EQ(stopped->statistics().frames, count);
  EXPECT_EQ(stopped->fault(), "");

  settings.isStopped = nullptr;
  settings.frames = 3;
  const auto three = CameraFrames::open(settings);
  three->skip(2);
  EXPECT_EQ(three->read(100, frames.data(), notes.data()), 1);
  EXPECT_EQ(three->read(100, frames.data(), notes.data()), 0);
}

}  // namespace
}  // namespace planex::acquisition
