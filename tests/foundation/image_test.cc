#include "planex/foundation/image.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "planex/foundation/image_of.h"
#include "planex/infra/json_deserializer.h"
#include "planex/infra/json_serializer.h"
#include "tests/foundation/counting_allocator.h"
#include "tests/support/warning_capture.h"

namespace cmnalg {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const etl::Allocator& heap() { return Image::s_defaultImageAllocator; }

void giveMetadata(Image& image) {
  image.PixelSize = {0.5, 2, 0.0625};
  image.Origin = {-3, 0.1, 7};
  image.HandleZeroPixels = ZeroPixels::MissingData;
}

void expectMetadata(const Image& image) {
  EXPECT_EQ(image.PixelSize, (Vec<3, double>{0.5, 2, 0.0625}));
  EXPECT_EQ(image.Origin, (Vec<3, double>{-3, 0.1, 7}));
  EXPECT_EQ(image.HandleZeroPixels, ZeroPixels::MissingData);
}

template <typename T>
class TypedImage : public testing::Test {};
using PixelTypes =
    testing::Types<std::uint8_t, std::uint16_t, std::uint32_t, std::uint64_t, std::int8_t,
                   std::int16_t, std::int32_t, std::int64_t, float, double, PixelRGB>;
TYPED_TEST_SUITE(TypedImage, PixelTypes);

/// A 3 x 2 image of pitch 5 whose pixels differ.
template <typename T>
ImageOf<T> makeImage() {
  ImageOf<T> image(3, 2, 5, heap());
  for (int y = 0; y < 2; ++y) {
    for (int x = 0; x < 5; ++x) image.SetPixel(x, y, 10 * y + x);
  }
  giveMetadata(image);
  return image;
}

TYPED_TEST(TypedImage, ReachesPixelsThroughThePitch) {
  ImageOf<TypeParam> image = makeImage<TypeParam>();
  EXPECT_EQ(image.GetRawBufferSize(), 10 * sizeof(TypeParam));
  EXPECT_EQ(image.GetRowPtr(1), static_cast<TypeParam*>(image.GetData()) + 5);
  EXPECT_EQ(image.GetPixel(2, 1), 12);
  const TypeParam corner = image.Pix(2, 1);
  image.Pix(0, 0) = corner;
  EXPECT_EQ(image.GetPixel(0, 0), 12);
  image.SetAll(corner);
  for (int y = 0; y < 2; ++y) {
    for (int x = 0; x < 3; ++x) EXPECT_EQ(image.GetPixel(x, y), 12);
  }
}

TYPED_TEST(TypedImage, TakesOverItsOwnTypeOnly) {
  ImageOf<TypeParam> source = makeImage<TypeParam>();
  ImageOf<TypeParam> target;
  EXPECT_EQ(target.GetType(), source.GetType()) << "also while empty";
  ASSERT_TRUE(target.Create(source, false));
  EXPECT_EQ(target.GetData(), source.GetData());
  ASSERT_TRUE(target.Create(makeImage<TypeParam>(), true));
  EXPECT_EQ(target.GetPixel(1, 1), 11);
  expectMetadata(target);

  const bool isFloat = source.GetType() == IMAGE_TYPE_FLOAT32;
  const Image other(isFloat ? IMAGE_TYPE_INT8 : IMAGE_TYPE_FLOAT32, 1, 1, heap());
  WarningCapture log;
  EXPECT_FALSE(target.Create(other, true));
  EXPECT_THAT(log.Messages(), IsEmpty());
  EXPECT_EQ(target.GetPixel(1, 1), 11) << "a type mismatch changes nothing";

  Image& base = target;
  EXPECT_FALSE(base.Create(other.GetType(), 3, 2, 0, heap()));
  EXPECT_THAT(log.Messages(), ElementsAre("Unexpected programming error."));
  EXPECT_EQ(target.GetData(), nullptr);
  base = other;
  EXPECT_EQ(target.GetData(), nullptr) << "no pixels of another type through the base class";
  ASSERT_TRUE(target.Create(source, true));
  base = Image(other);
  EXPECT_EQ(target.GetData(), nullptr) << "nor by moving them";
  EXPECT_EQ(target.GetType(), source.GetType());
}

TYPED_TEST(TypedImage, DocumentRoundTripDropsThePadding) {
  ImageOf<TypeParam> image = makeImage<TypeParam>();
  etl::MemoryOutStream stream;
  ASSERT_TRUE(base::JsonVisitingSerializer(stream, true).Serialize(image));
  base::JsonVisitingDeSerializer document(std::string(stream.GetText()).c_str(), false);
  const auto object = document.DeserializeObject();
  ASSERT_NE(object, nullptr) << document.GetErrorDescription();
  const auto& copy = dynamic_cast<const Image&>(*object);
  EXPECT_TRUE(copy.IsConsistent());
  EXPECT_EQ(copy.GetType(), image.GetType());
  EXPECT_EQ(copy.GetWidth(), 3);
  EXPECT_EQ(copy.GetHeight(), 2);
  EXPECT_EQ(copy.GetPitch(), 3);
  for (int y = 0; y < 2; ++y) {
    for (int x = 0; x < 3; ++x) EXPECT_EQ(copy.GetPixel(x, y), 10 * y + x);
  }
  expectMetadata(copy);
}

TEST(Image, TakesOverFromAnotherImage) {
  ImageOf<float> source = makeImage<float>();
  Image view(source, false);
  EXPECT_EQ(view.GetData(), source.GetData());
  EXPECT_FALSE(view.GetImageData().OwnsData());
  expectMetadata(view);
  EXPECT_TRUE(source.Create(source, true)) << "an image from itself does nothing";

  Image target(IMAGE_TYPE_UINT8, 1, 1, heap());
  giveMetadata(target);
  const WarningCapture log;
  EXPECT_FALSE(target.Create(Image(), true));
  EXPECT_THAT(log.Messages(), ElementsAre("Invalid pointer in image creation."));
  EXPECT_FALSE(target.GetImageData().IsValid());
  expectMetadata(target);
}

TEST(Image, CopiesAndMovesWithMetadata) {
  ImageOf<float> image = makeImage<float>();
  const std::unique_ptr<etl::IVisitable> clone = image.CloneVisitable();
  auto& copy = dynamic_cast<ImageOf<float>&>(*clone);
  expectMetadata(copy);
  EXPECT_NE(copy.GetData(), image.GetData());
  const ImageOf<float> moved = std::move(copy);
  expectMetadata(moved);
  EXPECT_EQ(moved.Pix(2, 1), 12);
  EXPECT_EQ(copy.GetData(), nullptr);  // NOLINT(*-use-after-move): the state promised
  EXPECT_EQ(copy.GetType(), IMAGE_TYPE_FLOAT32);

  const std::unique_ptr<etl::IVisitable> untyped = Image(image).CloneVisitable();
  EXPECT_EQ(dynamic_cast<ImageOf<float>*>(untyped.get()), nullptr);
  expectMetadata(dynamic_cast<Image&>(*untyped));
  EXPECT_STREQ(impro::GetType(dynamic_cast<Image&>(*untyped)), "FLOAT32");
}

TEST(Image, IsConsistentOnlyWithSoundMetadata) {
  EXPECT_FALSE(Image().IsConsistent());
  EXPECT_TRUE(Image(IMAGE_TYPE_UINT8, 0, 0, heap()).IsConsistent());
  const double bad[] = {std::nan(""), HUGE_VAL, -HUGE_VAL};
  for (double Vec<3, double>::*part :
       {&Vec<3, double>::x, &Vec<3, double>::y, &Vec<3, double>::z}) {
    ImageOf<float> image = makeImage<float>();
    image.PixelSize.*part = 0;
    image.Origin.*part = -1;
    EXPECT_TRUE(image.IsConsistent());
    image.PixelSize.*part = -1e-300;
    EXPECT_FALSE(image.IsConsistent());
    for (const double value : bad) {
      image.PixelSize.*part = value;
      EXPECT_FALSE(image.IsConsistent());
      image.PixelSize.*part = 1;
      image.Origin.*part = value;
      EXPECT_FALSE(image.IsConsistent());
      image.Origin.*part = 0;
    }
  }
}

// -------------------------------------------------------------------------------- documents

TEST(ImageDocument, HasThisForm) {
  ImageOf<std::uint16_t> image = makeImage<std::uint16_t>();
  etl::MemoryOutStream stream;
  ASSERT_TRUE(base::JsonVisitingSerializer(stream, false).Serialize(image));
  // Pixels 0, 1, 2, 10, 11, 12, little-endian.
  EXPECT_EQ(stream.GetText(),
            R"({"class":"Image","data":{"PixelSize":{"x":0.5,"y":2,"z":0.0625},)"
            R"("Origin":{"x":-3,"y":0.10000000000000001,"z":7},"HandleZeroPixels":"MissingData",)"
            R"("Data":{"ImageType":"uint16","Width":3,"Height":2,"Pixels":{"numOfElems":6,)"
            R"("elemSz":2,"endian":"little","elemTypes":"uint16","data":"AAABAAIACgALAAwA"}}}})");
}

/// The document of a UINT8 image, 2 x 2, with one piece of it replaced.
std::string documentWith(const std::string& piece = "", const std::string& replacement = "") {
  std::string text =
      R"({"class":"Image","data":{"PixelSize":{"x":3,"y":3,"z":3},"Origin":{"x":0,"y":0,"z":0},)"
      R"("HandleZeroPixels":"Default","Data":{"ImageType":"uint8","Width":2,"Height":2,)"
      R"("Pixels":{"numOfElems":4,"elemSz":1,"endian":"neutral","elemTypes":"uint8",)"
      R"("data":"AQIDBA=="}}}})";
  const std::size_t at = text.find(piece);
  EXPECT_NE(at, std::string::npos) << piece;
  return text.replace(at, piece.size(), replacement);
}

constexpr char kMismatch[] = "Serialized array size mismatch while de-serializing class 'Image'";

struct HostileCase {
  const char* name;
  const char *piece, *replacement;
  const char* error;  ///< a part of it
};
const HostileCase kHostile[] = {
    {"NoOrigin", "\"Origin\"", "\"Urigin\"", "'Origin' of class 'Image'"},
    {"UnknownType", "\"uint8\",\"W", "\"uint9\",\"W", "'ImageType' of class 'Image'"},
    {"InvalidTypeWithPixels", "\"uint8\",\"W", "\"invalid\",\"W", "'ImageType' of class 'Image'"},
    {"NegativeWidth", "\"Width\":2", "\"Width\":-2", "'Width' of class 'Image'"},
    {"NegativeHeight", "\"Height\":2", "\"Height\":-2", "'Height' of class 'Image'"},
    {"HeightBeyondInt", "\"Height\":2", "\"Height\":4294967298", "'Height' of class 'Image'"},
    {"ProductBeyondInt", "\"Width\":2,\"Height\":2", "\"Width\":65536,\"Height\":65537",
     "'Height' of class 'Image'"},
    {"MorePixelsThanData", "\"Height\":2", "\"Height\":3", kMismatch},
    {"LyingSizesAndCount", "\"Width\":2,\"Height\":2,\"Pixels\":{\"numOfElems\":4",
     "\"Width\":40000,\"Height\":40000,\"Pixels\":{\"numOfElems\":1600000000", kMismatch},
};

TEST(ImageDocument, IsRefusedAndLeavesTheImage) {
  for (const HostileCase& c : kHostile) {
    SCOPED_TRACE(c.name);
    CountingAllocator allocator;
    ImageOf<std::uint8_t> image(1, 1, allocator);
    image.SetAll(7);
    giveMetadata(image);
    const std::string text = documentWith(c.piece, c.replacement);
    base::JsonVisitingDeSerializer document(text.c_str(), false);
    EXPECT_FALSE(document.DeserializeIntoExistingObject(image));
    EXPECT_THAT(document.GetErrorDescription(), testing::HasSubstr(c.error));
    EXPECT_EQ(image.GetWidth(), 1);
    EXPECT_EQ(image.GetPixel(0, 0), 7);
    EXPECT_EQ(allocator.live, 1);
    expectMetadata(image);
  }
}

TEST(ImageDocument, IsRefusedByImagesOfAnotherType) {
  const std::string text = documentWith();
  ImageOf<float> image = makeImage<float>();
  base::JsonVisitingDeSerializer document(text.c_str(), false);
  EXPECT_FALSE(document.DeserializeIntoExistingObject(image));
  EXPECT_EQ(document.GetErrorDescription(),
            "Data field 'ImageType' of class 'Image' not found or out or range");
  EXPECT_EQ(image.Pix(2, 1), 12);
}

TEST(ImageDocument, ReadsUnknownZeroPixelsAsTwo) {
  Image image;
  base::JsonVisitingDeSerializer document(documentWith("Default", "missingdata").c_str(), false);
  ASSERT_TRUE(document.DeserializeIntoExistingObject(image));
  EXPECT_EQ(static_cast<int>(image.HandleZeroPixels), 2);
  EXPECT_FALSE(image.IsConsistent());
  etl::MemoryOutStream stream;
  ASSERT_TRUE(base::JsonVisitingSerializer(stream, false).Serialize(image));
  EXPECT_NE(stream.GetText().find(R"("HandleZeroPixels":"Unknown")"), std::string::npos);
}

TEST(ImageDocument, RoundTripsImagesWithoutPixels) {
  std::vector<std::unique_ptr<Image>> images;
  images.push_back(std::make_unique<Image>());
  images.push_back(std::make_unique<ImageOf<float>>());
  images.push_back(std::make_unique<ImageOf<double>>(0, 4, heap()));
  for (const auto& image : images) {
    etl::MemoryOutStream stream;
    ASSERT_TRUE(base::JsonVisitingSerializer(stream, false).Serialize(*image));
    base::JsonVisitingDeSerializer document(std::string(stream.GetText()).c_str(), false);
    const auto object = document.DeserializeObject();
    ASSERT_NE(object, nullptr) << document.GetErrorDescription();
    const auto& copy = dynamic_cast<const Image&>(*object);
    EXPECT_EQ(copy.GetType(), image->GetType());
    EXPECT_EQ(copy.GetWidth(), image->GetWidth());
    EXPECT_EQ(copy.GetHeight(), image->GetHeight());
    EXPECT_EQ(copy.IsConsistent(), copy.GetType() != IMAGE_TYPE_INVALID);
  }
}

}  // namespace
}  // namespace cmnalg
