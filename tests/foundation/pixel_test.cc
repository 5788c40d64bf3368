#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "planex/foundation/image_data.h"
#include "planex/foundation/pixel_type.h"

namespace cmnalg {
namespace {

struct StoreCase {
  double v;
  double u8, u16, u32, u64, i8, i16, i32, i64;  ///< as GetPixel reads them back
};
constexpr double kTwo31 = 2147483648.0;
constexpr double kTwo32 = 4294967296.0;
constexpr double kTwo63 = 9223372036854775808.0;
const double kNaN = std::nan("");
constexpr double kInf = std::numeric_limits<double>::infinity();
const StoreCase kStores[] = {
    {300.7, 44, 300, 300, 300, 44, 300, 300, 300},
    {-1.9, 0, 0, 0, 0, -1, -1, -1, -1},
    {-0.9, 0, 0, 0, 0, 0, 0, 0, 0},
    {200, 200, 200, 200, 200, -56, 200, 200, 200},
    {70000, 112, 4464, 70000, 70000, 112, 4464, 70000, 70000},
    {kTwo31, 0, 0, kTwo31, kTwo31, -1, -1, kTwo31 - 1, kTwo31},
    {-3e9, 0, 0, 0, 0, 0, 0, -kTwo31, -3e9},
    {kTwo32 + 5, 255, 65535, kTwo32 - 1, kTwo32 + 5, -1, -1, kTwo31 - 1, kTwo32 + 5},
    {1e30, 255, 65535, kTwo32 - 1, 2 * kTwo63, -1, -1, kTwo31 - 1, kTwo63},
    {-1e30, 0, 0, 0, 0, 0, 0, -kTwo31, -kTwo63},
    {kInf, 255, 65535, kTwo32 - 1, 2 * kTwo63, -1, -1, kTwo31 - 1, kTwo63},
    {kNaN, 0, 0, 0, 0, 0, 0, 0, 0},
};

double stored(ImageType type, double v) {
  ImageData image;
  // An odd pitch and the last pixel: the type's size must reach the address.
  EXPECT_TRUE(image.Create(type, 2, 2, 3, etl::StandardMemAllocator::Default()));
  std::memset(image.GetData(), 0x5A, image.GetBufferSize());
  const double neighbour = image.GetPixel(0, 1);
  image.SetPixel(1, 1, v);
  EXPECT_EQ(image.GetPixel(0, 1), neighbour);
  return image.GetPixel(1, 1);
}

TEST(ImageData, StoresDoublesInEveryIntegerType) {
  for (const StoreCase& c : kStores) {
    SCOPED_TRACE(c.v);
    EXPECT_EQ(stored(IMAGE_TYPE_UINT8, c.v), c.u8);
    EXPECT_EQ(stored(IMAGE_TYPE_UINT16, c.v), c.u16);
    EXPECT_EQ(stored(IMAGE_TYPE_UINT32, c.v), c.u32);
    EXPECT_EQ(stored(IMAGE_TYPE_UINT64, c.v), c.u64);
    EXPECT_EQ(stored(IMAGE_TYPE_INT8, c.v), c.i8);
    EXPECT_EQ(stored(IMAGE_TYPE_INT16, c.v), c.i16);
    EXPECT_EQ(stored(IMAGE_TYPE_INT32, c.v), c.i32);
    EXPECT_EQ(stored(IMAGE_TYPE_INT64, c.v), c.i64);
    EXPECT_EQ(stored(IMAGE_TYPE_RGB24, c.v), c.u8);
  }
  EXPECT_EQ(stored(IMAGE_TYPE_FLOAT32, 0.1), double{0.1F});
  EXPECT_EQ(stored(IMAGE_TYPE_FLOAT64, 0.1), 0.1);
  EXPECT_TRUE(std::isnan(stored(IMAGE_TYPE_FLOAT32, kNaN)));
}

TEST(ImageData, ReadsChannelsAndInvalidTypes) {
  PixelRGB pixel{10, 20, 31};
  ImageData image;
  ASSERT_TRUE(image.Create(&pixel, IMAGE_TYPE_RGB24, 1, 1, 0, false,
                           etl::StandardMemAllocator::Default(), false));
  EXPECT_DOUBLE_EQ(image.GetPixel(0, 0), 61 / 3.0);
  image.InvalidateImage();
  image.SetPixel(0, 0, 1);
  EXPECT_EQ(image.GetPixel(0, 0), 0.0);
}

TEST(PixelType, CountsFloatingTypesAsSignedAndAllButRgbAsScalar) {
  for (int i = -1; i <= 12; ++i) {
    SCOPED_TRACE(i);
    const auto type = static_cast<ImageType>(i);
    EXPECT_EQ(isIntegerType(type), i >= 0 && i < 8);
    EXPECT_EQ(isUnsignedType(type), i >= 0 && i < 4);
    EXPECT_EQ(isSignedType(type), i >= 4 && i < 10);
    EXPECT_EQ(isFloatingType(type), i == 8 || i == 9);
    EXPECT_EQ(isScalarType(type), i != 10);
    EXPECT_EQ(typeFromSerialisedName(serialisedTypeName(type)), i >= 0 && i < 11 ? i : 11);
  }
}

TEST(PixelType, HasNames) {
  EXPECT_STREQ(impro::ImageTypeString(10), "RGB24");
  EXPECT_STREQ(impro::ImageTypeString(11), "INVALID");
  EXPECT_STREQ(impro::ImageTypeString(-1), "INVALID");
  EXPECT_EQ(typeFromSerialisedName("int16"), IMAGE_TYPE_INT16);
  EXPECT_EQ(typeFromSerialisedName("UINT8"), IMAGE_TYPE_INVALID);
  EXPECT_EQ(impro::typeStringToEnum("FLOAT32"), IMAGE_TYPE_FLOAT32);
  EXPECT_EQ(impro::typeStringToEnum("a INT16 image"), IMAGE_TYPE_INT16);
  EXPECT_EQ(impro::typeStringToEnum("RGB24 or UINT16"), IMAGE_TYPE_UINT16) << "in type order";
  EXPECT_EQ(impro::typeStringToEnum("xyz"), IMAGE_TYPE_INVALID);
}

}  // namespace
}  // namespace cmnalg
