#include "planex/foundation/image_data.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "planex/foundation/image.h"
#include "tests/foundation/counting_allocator.h"
#include "tests/support/warning_capture.h"

namespace cmnalg {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kInvalidType[] = "Cannot create image of type IMAGE_TYPE_INVALID.";
constexpr char kNegative[] = "Cannot create image with negative width or height.";
constexpr char kPitch[] = "Line pitch cannot be smaller than the image width.";
constexpr char kMemory[] = "Failed to allocate.";
constexpr char kPointer[] = "Invalid pointer in image creation.";
constexpr char kFlags[] =
    "Invalid combination of flags, cannot clone the data and transfer ownership.";
constexpr char kProgramming[] = "Unexpected programming error.";
constexpr auto kNoType = static_cast<ImageType>(12);

void expectInvalidated(const ImageData& image) {
  EXPECT_FALSE(image.IsValid() || image.OwnsData());
  EXPECT_EQ(image.GetType(), IMAGE_TYPE_INVALID);
  EXPECT_THAT((std::vector<int>{image.GetWidth(), image.GetHeight(), image.GetPitch()}),
              testing::Each(0));
  EXPECT_EQ(image.GetData(), nullptr);
}

// ------------------------------------------------------------------------------- allocating

struct AllocateCase {
  const char* name;
  ImageType type;
  int width, height, pitch;
  const char* warning;  ///< null: created
};
const AllocateCase kAllocations[] = {
    {"PitchFromWidth", IMAGE_TYPE_UINT16, 5, 3, 0, nullptr},
    {"PitchAboveWidth", IMAGE_TYPE_RGB24, 5, 3, 8, nullptr},
    {"NoRows", IMAGE_TYPE_FLOAT32, 5, 0, 0, nullptr},
    {"NoColumns", IMAGE_TYPE_FLOAT32, 0, 5, 0, nullptr},
    {"InvalidTypeFirst", IMAGE_TYPE_INVALID, -1, 3, 0, kInvalidType},
    {"TypeBeyond", kNoType, 5, 3, 0, kInvalidType},
    {"NegativeWidthBeforePitch", IMAGE_TYPE_UINT8, -1, 3, -2, kNegative},
    {"PitchBelowWidth", IMAGE_TYPE_UINT8, 5, 3, 4, kPitch},
    {"CountBeyondInt", IMAGE_TYPE_UINT8, 65536, 32768, 0, kMemory},
    {"PitchCountBeyondInt", IMAGE_TYPE_UINT8, 0, 65536, 32768, kMemory},
    {"LargestSizes", IMAGE_TYPE_FLOAT64, INT_MAX, INT_MAX, 0, kMemory},
};

TEST(ImageData, AllocatesOrInvalidatesWithOneWarning) {
  for (const AllocateCase& c : kAllocations) {
    SCOPED_TRACE(c.name);
    CountingAllocator allocator;
    {
      ImageData image;
      ASSERT_TRUE(image.Create(IMAGE_TYPE_UINT8, 7, 7, 0, allocator));
      const WarningCapture log;
      EXPECT_EQ(image.Create(c.type, c.width, c.height, c.pitch, allocator), c.warning == nullptr);
      if (c.warning == nullptr) {
        EXPECT_TRUE(image.IsConsistent());
        EXPECT_EQ(image.GetType(), c.type);
        EXPECT_EQ(image.GetPitch(), c.pitch == 0 ? c.width : c.pitch);
        EXPECT_EQ(image.GetBufferSize(),
                  bytesPerPixel(c.type) * static_cast<std::size_t>(c.height * image.GetPitch()));
      } else {
        EXPECT_THAT(log.Messages(), ElementsAre(c.warning));
        EXPECT_THAT(log.Loggers(), ElementsAre("Image"));
        expectInvalidated(image);
        EXPECT_TRUE(image.Create(IMAGE_TYPE_UINT8, 1, 1, 0, allocator));
        EXPECT_TRUE(image.IsConsistent()) << "valid again";
      }
    }
    EXPECT_EQ(allocator.live, 0);
  }
}

TEST(ImageData, KeepsABufferOfTheSameByteSize) {
  CountingAllocator allocator;
  ImageData image;
  ASSERT_TRUE(image.Create(IMAGE_TYPE_FLOAT32, 100, 10, 0, allocator));
  const void* buffer = image.GetData();
  image.SetPixel(3, 0, 5);
  ASSERT_TRUE(image.Create(IMAGE_TYPE_FLOAT32, 10, 100, 0, allocator));
  EXPECT_EQ(image.GetPixel(3, 0), 5) << "nothing is cleared";
  ASSERT_TRUE(image.Create(IMAGE_TYPE_UINT16, 150, 10, 200, allocator));
  EXPECT_EQ(image.GetData(), buffer);
  EXPECT_EQ(image.GetWidth(), 150);
  EXPECT_EQ(allocator.requests, 1);
  ASSERT_TRUE(image.Create(IMAGE_TYPE_UINT16, 100, 10, 0, allocator));
  EXPECT_EQ(allocator.requests, 2);
  EXPECT_EQ(allocator.live, 1);

  std::uint16_t borrowed[6] = {};
  ASSERT_TRUE(image.Create(borrowed, IMAGE_TYPE_UINT16, 3, 2, 0, false, allocator, false));
  ASSERT_TRUE(image.Create(IMAGE_TYPE_FLOAT32, 3, 1, 0, allocator));
  EXPECT_EQ(image.GetData(), borrowed) << "a borrowed buffer is kept, too";
  EXPECT_FALSE(image.OwnsData());
}

TEST(ImageData, InvalidatesWhenMemoryIsShort) {
  CountingAllocator allocator;
  ImageData image;
  ASSERT_TRUE(image.Create(IMAGE_TYPE_UINT8, 2, 2, 0, allocator));
  const ImageData kept = image;
  ImageData target = image;
  allocator.fails = true;
  const WarningCapture log;
  EXPECT_FALSE(image.Create(IMAGE_TYPE_UINT8, 3, 3, 0, allocator));
  expectInvalidated(image);
  EXPECT_FALSE(image.Copy(kept));
  expectInvalidated(image);
  EXPECT_THAT(log.Messages(), ElementsAre(kMemory, kMemory));
  EXPECT_THROW(target = kept, std::bad_alloc);
  EXPECT_EQ(target.GetWidth(), 2) << "assignment leaves the target";
}

// --------------------------------------------------------------------------------- wrapping

struct WrapCase {
  const char* name;
  bool pixels, own;  ///< null, the caller's or the image's own pixels (2 x 2, pitch 3)
  ImageType type;
  int width, height, pitch;
  bool clone, transfer;
  const char* warning;  ///< null: nothing happens
};
constexpr ImageType kU8 = IMAGE_TYPE_UINT8;
const WrapCase kWraps[] = {
    {"NullFirst", false, false, IMAGE_TYPE_INVALID, -1, 2, 0, true, true, kPointer},
    {"NegativeBeforePitch", true, false, kU8, 2, -1, 1, true, true, kNegative},
    {"PitchBeforeFlags", true, false, kU8, 2, 2, 1, true, true, kPitch},
    {"FlagsBeforeOwnPixels", true, true, kU8, 2, 2, 3, true, true, kFlags},
    {"OwnPixelsSameShape", true, true, kU8, 2, 2, 3, false, true, nullptr},
    {"OwnPixelsOtherPitch", true, true, kU8, 2, 2, 2, false, false, kProgramming},
    {"OwnPixelsOtherHeight", true, true, kU8, 2, 1, 3, true, false, kProgramming},
    {"InvalidTypeCloned", true, false, kNoType, 2, 2, 0, true, false, kInvalidType},
    {"CountBeyondInt", true, false, kU8, 65536, 32768, 0, false, false, kMemory},
};

TEST(ImageData, RefusesToWrapInOrder) {
  for (const WrapCase& c : kWraps) {
    SCOPED_TRACE(c.name);
    CountingAllocator allocator;
    std::uint8_t callers[4] = {1, 2, 3, 4};
    ImageData image;
    ASSERT_TRUE(image.Create(kU8, 2, 2, 3, allocator));
    image.SetPixel(1, 1, 77);
    void* own = image.GetData();
    const WarningCapture log;
    void* data = !c.pixels ? nullptr : c.own ? own : callers;
    EXPECT_EQ(
        image.Create(data, c.type, c.width, c.height, c.pitch, c.clone, allocator, c.transfer),
        c.warning == nullptr);
    if (c.warning == nullptr) {
      EXPECT_EQ(image.GetPixel(1, 1), 77);
      EXPECT_TRUE(image.OwnsData());
    } else {
      EXPECT_THAT(log.Messages(), ElementsAre(c.warning));
      expectInvalidated(image);
      EXPECT_EQ(allocator.live, 0);
    }
  }
}

TEST(ImageData, BorrowsAdoptsOrClonesAPart) {
  CountingAllocator allocator;
  std::uint8_t callers[6] = {1, 2, 0, 3, 4, 0};
  {
    ImageData image;
    ASSERT_TRUE(image.Create(callers, kU8, 2, 2, 3, false, allocator, false));
    image.SetPixel(0, 1, 9);
    EXPECT_EQ(callers[3], 9);
    ASSERT_TRUE(image.Create(allocator.Allocate(4), kU8, 2, 2, 0, false, allocator, true));
    EXPECT_TRUE(image.OwnsData());
    const WarningCapture log;
    auto* inside = static_cast<std::uint8_t*>(image.GetData()) + 2;
    EXPECT_FALSE(image.Create(inside, kU8, 2, 1, 0, false, allocator, false))
        << "a view of memory about to be released";
    EXPECT_THAT(log.Messages(), ElementsAre(kProgramming));

    ASSERT_TRUE(image.Create(callers, kU8, 2, 2, 3, true, allocator, false));
    auto* part = static_cast<std::uint8_t*>(image.GetData()) + 3;
    ASSERT_TRUE(image.Create(part, kU8, 2, 1, 0, true, allocator, false)) << "a part of itself";
    EXPECT_EQ(image.GetPixel(0, 0), 9);
    EXPECT_EQ(allocator.live, 1);
  }
  EXPECT_EQ(allocator.live, 0);
}

struct CloneCase {
  const char* name;
  ImageType type;            ///< of the target before; the source is UINT8
  int width, height, pitch;  ///< likewise; the source is 2 x 3, its pitch the next entry
  int sourcePitch, wantPitch;
  bool reuses;
};
const CloneCase kClones[] = {
    {"OneBlock", kU8, 2, 3, 2, 2, 2, true},
    {"RowsIntoWiderPitch", kU8, 2, 3, 5, 4, 5, true},
    {"NarrowerPitch", kU8, 2, 3, 3, 4, 4, false},
    {"OtherTypeOfTheSameSize", IMAGE_TYPE_INT8, 2, 3, 2, 2, 2, false},
    {"OtherShapeOfTheSameSize", kU8, 3, 2, 3, 2, 2, false},
};

TEST(ImageData, ClonesRows) {
  for (const CloneCase& c : kClones) {
    SCOPED_TRACE(c.name);
    CountingAllocator allocator;
    ImageData image;
    ASSERT_TRUE(image.Create(c.type, c.width, c.height, c.pitch, allocator));
    std::memset(image.GetData(), 99, image.GetBufferSize());
    // No element beyond the last row's last pixel: reading whole pitches would over-read.
    const auto stride = static_cast<std::size_t>(c.sourcePitch);
    std::vector<std::uint8_t> source(2 * stride + 2, 50);
    for (std::size_t i = 0; i < 6; ++i) {
      source[i / 2 * stride + i % 2] = static_cast<std::uint8_t>(10 * (i / 2) + i % 2);
    }
    ASSERT_TRUE(image.Create(source.data(), kU8, 2, 3, c.sourcePitch, true, allocator, false));
    EXPECT_EQ(image.GetPitch(), c.wantPitch);
    EXPECT_EQ(allocator.requests, c.reuses ? 1 : 2);
    EXPECT_TRUE(image.OwnsData());
    for (int y = 0; y < 3; ++y) {
      for (int x = 0; x < 2; ++x) EXPECT_EQ(image.GetPixel(x, y), 10 * y + x);
    }
    if (c.reuses && c.wantPitch > 2) {
      EXPECT_EQ(image.GetPixel(2, 0), 99) << "padding is not written";
    }
  }
}

TEST(ImageData, CopiesDeeplyAndMovesEmpty) {
  CountingAllocator allocator;
  std::uint8_t callers[6] = {1, 2, 0, 3, 4, 0};
  ImageData view;
  ASSERT_TRUE(view.Create(callers, kU8, 2, 2, 3, false, allocator, false));
  ImageData copy = view;
  copy.SetPixel(0, 0, 8);
  EXPECT_EQ(callers[0], 1);
  EXPECT_EQ(copy.GetPitch(), 3);
  EXPECT_TRUE(copy.OwnsData());
  EXPECT_TRUE(copy.Copy(copy));
  ImageData& same = copy;
  copy = same;
  copy = std::move(same);
  EXPECT_EQ(copy.GetPixel(0, 0), 8);
  const ImageData moved = std::move(copy);
  EXPECT_EQ(moved.GetPixel(0, 0), 8);
  EXPECT_EQ(copy.GetData(), nullptr);  // NOLINT(*-use-after-move,*Move): the state promised
  EXPECT_EQ(copy.GetWidth(), 0);

  const WarningCapture log;
  EXPECT_TRUE(view.Copy(ImageData())) << "an empty image is copied like any other";
  EXPECT_THAT(log.Messages(), IsEmpty());
  EXPECT_EQ(view.GetData(), nullptr);
}

}  // namespace
}  // namespace cmnalg
