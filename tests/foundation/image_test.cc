#include "planex/foundation/image.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "planex/foundation/image_of.h"
#include "tests/support/counting_allocator.h"
#include "tests/support/documents.h"
#include "tests/support/model_documents.h"
#include "tests/support/refusals.h"

namespace cmnalg {
namespace {

constexpr ImageType kU8 = IMAGE_TYPE_UINT8;
constexpr auto kNoType = static_cast<ImageType>(12);

// ---- Refusals: one warning each, in this order ----

enum Pixels { kNone, kNull, kCallers, kOwn, kInside };

TEST(Image, IsCreatedOrInvalidatedWithOneWarning) {
  const char* const type = "Cannot create image of type IMAGE_TYPE_INVALID.";
  const char* const negative = "Cannot create image with negative width or height.";
  const char* const narrow = "Line pitch cannot be smaller than the image width.";
  const char* const memory = "Failed to allocate.";
  const char* const pointer = "Invalid pointer in image creation.";
  const char* const flags =
      "Invalid combination of flags, cannot clone the data and transfer ownership.";
  const char* const other = "Unexpected programming error.";
  const struct {
    Pixels pixels;  ///< kNone: allocated; the image's own are 2 x 2 with a pitch of 3
    ImageType type;
    int width, height, pitch;
    bool clone, transfer;
    const char* warning;  ///< null: nothing happens
  } kCases[] = {
      {kNone, IMAGE_TYPE_INVALID, -1, 3, 0, false, false, type},
      {kNone, kU8, -1, 3, -2, false, false, negative},
      {kNone, kU8, 5, 3, 4, false, false, narrow},
      {kNone, kU8, 65536, 32768, 0, false, false, memory},
      {kNone, IMAGE_TYPE_RGB24, 2, 2, 3, false, false, memory},
      {kNull, IMAGE_TYPE_INVALID, -1, 2, 0, true, true, pointer},
      {kCallers, kU8, 2, -1, 1, true, true, negative},
      {kOwn, kU8, 2, 2, 3, true, true, flags},
      {kOwn, kNoType, 2, 2, 2, false, false, other},
      {kOwn, kNoType, 2, 2, 3, false, true, nullptr},
      {kInside, kU8, 2, 1, 3, false, false, other},
      {kCallers, IMAGE_TYPE_RGB24, 2, 2, 3, true, false, memory},
  };
  CountingAllocator none;
  none.fails = true;
  for (const auto& c : kCases) {
    SCOPED_TRACE(&c - kCases);
    unsigned char callers[18] = {};
    Image image(kU8, 0, 0, none);
    ASSERT_TRUE(image.Create(kU8, 2, 2, 3, Image::s_defaultImageAllocator));
    auto* const own = static_cast<unsigned char*>(image.GetData());
    void* const pixels[] = {nullptr, nullptr, callers, own, own + 3};
    test::LogCapture log;
    const bool done = c.pixels == kNone ? image.Create(c.type, c.width, c.height, c.pitch, none)
                                        : image.Create(pixels[c.pixels], c.type, c.width, c.height,
                                                       c.pitch, c.clone, none, c.transfer);
    EXPECT_EQ(done, c.warning == nullptr);
    EXPECT_EQ(image.GetData() == own && image.GetType() == kU8, done);
    EXPECT_EQ(image.GetImageData().IsValid(), done);
    EXPECT_EQ(log.TakeOne("Image"), test::warning(c.warning));
  }
}

TEST(Image, IsConsistentOnlyWithSoundMetadata) {
  Image image(kU8, 1, 1, Image::s_defaultImageAllocator);
  for (Vec<3, double>* vec : {&image.PixelSize, &image.Origin}) {
    for (double* part : {&vec->x, &vec->y, &vec->z}) {
      for (const double value : {0.0, -1e-300, HUGE_VAL}) {
        *part = value;
        EXPECT_EQ(image.IsConsistent(), value == 0 || (value < 0 && vec == &image.Origin));
      }
      *part = 1;
    }
  }
  image.HandleZeroPixels = static_cast<ZeroPixels>(2);
  EXPECT_FALSE(image.IsConsistent());
}

// ---- Pixels ----

TEST(Image, StoresDoublesInEveryType) {
  const struct {
    ImageType type;
    double value, stored;
  } kCases[] = {
      {kU8, 300.7, 44},
      {IMAGE_TYPE_RGB24, 4294967301.0, 255},  // clamped to 32 bits before it is cut to 8
      {IMAGE_TYPE_INT16, 70000, 4464},
      {IMAGE_TYPE_UINT64, 1e30, 18446744073709551616.0},
      {IMAGE_TYPE_INT64, NAN, 0},
      {IMAGE_TYPE_FLOAT32, 0.1, double{0.1F}},
      {IMAGE_TYPE_INVALID, 1, 0},
  };
  for (const auto& c : kCases) {
    Image image(c.type, 1, 1, Image::s_defaultImageAllocator);
    image.SetPixel(0, 0, c.value);
    EXPECT_EQ(image.GetPixel(0, 0), c.stored) << impro::GetType(image) << " " << c.value;
  }
  ImageOf<PixelRGB> mean(1, 1, Image::s_defaultImageAllocator);
  mean.SetAll({10, 20, 31});
  EXPECT_DOUBLE_EQ(mean.GetPixel(0, 0), 61 / 3.0);
}

TEST(PixelType, HasItsClassesAndNames) {
  const char* const kNames[] = {"UINT8", "UINT16", "UINT32",  "UINT64",  "INT8", "INT16",
                                "INT32", "INT64",  "FLOAT32", "FLOAT64", "RGB24"};
  for (int i = -1; i <= 12; ++i) {
    SCOPED_TRACE(i);
    const auto type = static_cast<ImageType>(i);
    EXPECT_EQ(isIntegerType(type), i >= 0 && i < 8);
    EXPECT_EQ(isUnsignedType(type), i >= 0 && i < 4);
    EXPECT_EQ(isSignedType(type), i >= 4 && i < 10);
    EXPECT_EQ(isFloatingType(type), i == 8 || i == 9);
    EXPECT_EQ(isScalarType(type), i != 10);
    const bool isKnown = i >= 0 && i < 11;
    EXPECT_EQ(typeFromSerialisedName(serialisedTypeName(type)), isKnown ? i : 11);
    EXPECT_STREQ(impro::ImageTypeString(i), isKnown ? kNames[i] : "INVALID");
  }
  EXPECT_EQ(impro::typeStringToEnum("RGB24 or UINT16"), IMAGE_TYPE_UINT16) << "in type order";
  EXPECT_EQ(impro::typeStringToEnum("xyz"), IMAGE_TYPE_INVALID);
}

// ---- Documents ----

constexpr char kDocument[] =
    R"({"class":"Image","data":{"PixelSize":{"x":0.5,"y":2,"z":0.0625},)"
    R"("Origin":{"x":-3,"y":0.10000000000000001,"z":7},"HandleZeroPixels":"MissingData",)"
    R"("Data":{"ImageType":"uint16","Width":3,"Height":2,"Pixels":{"numOfElems":6,)"
    R"("elemSz":2,"endian":"little","elemTypes":"uint16","data":"AAABAAIACgALAAwA"}}}})";

TEST(ImageDocument, IsReadOrRefusedAsAWhole) {
  const std::string size = "Serialized array size mismatch while de-serializing class 'Image'";
  const auto field = [](const std::string& name) {
    return "Data field '" + name + "' of class 'Image' not found or out or range";
  };
  const struct {
    const char *piece, *replacement;
    std::string error;
  } kCases[] = {
      {"\"Origin\"", "\"Urigin\"", field("Origin")},
      {"\"uint16\",\"W", "\"invalid\",\"W", field("ImageType")},
      {"\"uint16\",\"W", "\"float32\",\"W", field("ImageType")},  // not what the image holds
      {"\"Width\":3", "\"Width\":-3", field("Width")},
      {"\"Height\":2", "\"Height\":4294967298", field("Height")},
      {"3,\"Height\":2", "65536,\"Height\":65537", field("Height")},
      {"3,\"Height\":2,\"Pixels\":{\"numOfElems\":6",
       "40000,\"Height\":40000,\"Pixels\":{\"numOfElems\":1600000000", size},
      {"MissingData", "missingdata", ""},  // an unknown word
  };
  for (const auto& c : kCases) {
    const std::string text = test::with(kDocument, c.piece, c.replacement);
    ImageOf<std::uint16_t> image(1, 1, Image::s_defaultImageAllocator);
    image.SetAll(7);
    const std::string before = test::toJson(image);
    EXPECT_EQ(test::readJson(text, image), c.error) << text;
    const std::string read = test::with(kDocument, "MissingData", "Unknown");
    EXPECT_EQ(test::toJson(image), c.error.empty() ? read : before) << text;
  }
}

}  // namespace
}  // namespace cmnalg
