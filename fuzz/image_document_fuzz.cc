// Any bytes as a document for the visiting reader: as an object of the class it names, and into
// images that exist. What was read is written and read again.

#include <memory>
#include <string>

#include "fuzz/check.h"
#include "fuzz/harness.h"
#include "planex/foundation/image_of.h"
#include "planex/infra/json_deserializer.h"
#include "planex/infra/json_serializer.h"
#include "planex/infra/out_stream.h"

namespace {

using cmnalg::Image;
using cmnalg::ImageOf;

std::size_t allowedBytes(std::size_t textSize) { return 128 * textSize + 65536; }

std::string written(etl::IVisitable& object) {
  etl::MemoryOutStream stream;
  base::JsonVisitingSerializer writer(stream, false);
  FUZZ_CHECK(writer.Serialize(object));
  return std::string(stream.GetText());
}

/// Whether pixels of all sizes can be reached; that they can be read is the sanitizer's concern.
void checkImage(const Image& image) {
  const std::size_t pixels =
      static_cast<std::size_t>(image.GetWidth()) * static_cast<std::size_t>(image.GetHeight());
  FUZZ_CHECK(image.GetPitch() == image.GetWidth());
  FUZZ_CHECK(image.GetRawBufferSize() == pixels * cmnalg::bytesPerPixel(image.GetType()));
  if (pixels == 0) return;
  const double last = image.GetPixel(image.GetWidth() - 1, image.GetHeight() - 1);
  FUZZ_CHECK(fuzz::sameBits(last, image.GetPixel(image.GetWidth() - 1, image.GetHeight() - 1)));
}

void checkObject(const etl::Buffer& bytes, bool exactNames) {
  const fuzz::MemoryPeak peak;
  base::JsonVisitingDeSerializer reader(bytes, exactNames);
  const std::unique_ptr<etl::IVisitable> object = reader.DeserializeObject();
  FUZZ_CHECK(peak.Bytes() <= allowedBytes(bytes.size()));
  FUZZ_CHECK((object != nullptr) == !reader.HasError());

  // The same bytes as a text that ends at the first NUL.
  const std::string text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  base::JsonVisitingDeSerializer textReader(text.c_str(), exactNames);
  FUZZ_CHECK((textReader.DeserializeObject() != nullptr) == (object != nullptr));
  FUZZ_CHECK(textReader.GetErrorDescription() == reader.GetErrorDescription());
  if (object == nullptr) return;

  if (const auto* image = dynamic_cast<const Image*>(object.get())) checkImage(*image);
  const std::string first = written(*object);
  base::JsonVisitingDeSerializer again(first.c_str(), true);
  const std::unique_ptr<etl::IVisitable> reread = again.DeserializeObject();
  FUZZ_CHECK(reread != nullptr);
  FUZZ_CHECK(written(*reread) == first);
  FUZZ_CHECK(written(*object->CloneVisitable()) == first);
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
    FUZZ_CHECK(written(image) == before);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  etl::Buffer bytes(data, data + size);
  checkObject(bytes, false);
  checkObject(bytes, true);
  checkExisting<float>(bytes);
  checkExisting<std::uint8_t>(bytes);
  checkExisting<cmnalg::PixelRGB>(bytes);
  return 0;
}
