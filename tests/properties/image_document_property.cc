// Any bytes as a document for the visiting reader: as an object of the class it names, and into
// images that exist. What was read is written and read again.

#include <memory>
#include <string>

#include "planex/foundation/image_of.h"
#include "planex/infra/json_deserializer.h"
#include "planex/infra/json_serializer.h"
#include "planex/infra/out_stream.h"
#include "tests/support/property.h"

namespace {

using cmnalg::Image;
using cmnalg::ImageOf;

std::size_t allowedBytes(std::size_t textSize) { return 128 * textSize + 65536; }

std::string written(etl::IVisitable& object) {
  etl::MemoryOutStream stream;
  base::JsonVisitingSerializer writer(stream, false);
  CHECK_HOLDS(writer.Serialize(object));
  return std::string(stream.GetText());
}

/// Whether pixels of all sizes can be reached; that they can be read is the sanitizer's concern.
void checkImage(const Image& image) {
  const std::size_t pixels =
      static_cast<std::size_t>(image.GetWidth()) * static_cast<std::size_t>(image.GetHeight());
  CHECK_HOLDS(image.GetPitch() == image.GetWidth());
  CHECK_HOLDS(image.GetRawBufferSize() == pixels * cmnalg::bytesPerPixel(image.GetType()));
  if (pixels == 0) return;
  const double last = image.GetPixel(image.GetWidth() - 1, image.GetHeight() - 1);
  CHECK_HOLDS(test::sameBits(last, image.GetPixel(image.GetWidth() - 1, image.GetHeight() - 1)));
}

void checkObject(const etl::Buffer& bytes, bool exactNames) {
  const test::MemoryPeak peak;
  base::JsonVisitingDeSerializer reader(bytes, exactNames);
  const std::unique_ptr<etl::IVisitable> object = reader.DeserializeObject();
  CHECK_HOLDS(peak.Bytes() <= allowedBytes(bytes.size()));
  CHECK_HOLDS((object != nullptr) == !reader.HasError());

  // The same bytes as a text that ends at the first NUL.
  const std::string text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  base::JsonVisitingDeSerializer textReader(text.c_str(), exactNames);
  CHECK_HOLDS((textReader.DeserializeObject() != nullptr) == (object != nullptr));
  CHECK_HOLDS(textReader.GetErrorDescription() == reader.GetErrorDescription());
  if (object == nullptr) return;

  if (const auto* image = dynamic_cast<const Image*>(object.get())) checkImage(*image);
  const std::string first = written(*object);
  base::JsonVisitingDeSerializer again(first.c_str(), true);
  const std::unique_ptr<etl::IVisitable> reread = again.DeserializeObject();
  CHECK_HOLDS(reread != nullptr);
  CHECK_HOLDS(written(*reread) == first);
  CHECK_HOLDS(written(*object->CloneVisitable()) == first);
}

template <typename T>
void checkExisting(const etl::Buffer& bytes) {
  ImageOf<T> image(3, 2, Image::s_defaultImageAllocator);
  image.SetAll(T{});
  const std::string before = written(image);
  base::JsonVisitingDeSerializer reader(bytes, false);
  if (reader.DeserializeIntoExistingObject(image)) {
    checkImage(image);
  } else {
    CHECK_HOLDS(written(image) == before);
  }
}

}  // namespace

PLANEX_PROPERTY(image_document) {
  const std::string input = source.Rest();
  const etl::Buffer bytes(input.begin(), input.end());
  checkObject(bytes, false);
  checkObject(bytes, true);
  checkExisting<float>(bytes);
  checkExisting<std::uint8_t>(bytes);
  checkExisting<cmnalg::PixelRGB>(bytes);
}
