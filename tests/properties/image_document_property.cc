// Any bytes as a document for the visiting reader: as an object of the class it names, and into
// images that exist. What was read is written and read again.

#include <memory>
#include <string>

#include "planex/foundation/image_of.h"
#include "tests/support/documents.h"
#include "tests/support/property.h"

namespace {

using cmnalg::Image;

void checkObject(const etl::Buffer& bytes, bool exactNames) {
  const test::MemoryPeak peak;
  base::JsonVisitingDeSerializer reader(bytes, exactNames);
  const std::unique_ptr<etl::IVisitable> object = reader.DeserializeObject();
  CHECK_HOLDS(peak.Bytes() <= 128 * bytes.size() + 65536);
  CHECK_HOLDS((object != nullptr) == !reader.HasError());

  // The same bytes as a text that ends at the first NUL.
  const std::string text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  base::JsonVisitingDeSerializer textReader(text.c_str(), exactNames);
  CHECK_HOLDS((textReader.DeserializeObject() != nullptr) == (object != nullptr));
  CHECK_HOLDS(textReader.GetErrorDescription() == reader.GetErrorDescription());
  if (object == nullptr) return;

  const std::string first = test::toJson(*object);
  base::JsonVisitingDeSerializer again(first.c_str(), true);
  const std::unique_ptr<etl::IVisitable> reread = again.DeserializeObject();
  CHECK_HOLDS(reread != nullptr);
  CHECK_HOLDS(test::toJson(*reread) == first);
  CHECK_HOLDS(test::toJson(*object->CloneVisitable()) == first);
}

template <typename T>
void checkExisting(const std::string& text) {
  cmnalg::ImageOf<T> image(3, 2, Image::s_defaultImageAllocator);
  image.SetAll(T{});
  const std::string before = test::toJson(image);
  if (test::readJson(text, image).empty()) {
    CHECK_HOLDS(image.GetPitch() == image.GetWidth());
  } else {
    CHECK_HOLDS(test::toJson(image) == before);
  }
}

}  // namespace

PLANEX_PROPERTY(image_document) {
  const std::string input = source.Rest();
  const etl::Buffer bytes(input.begin(), input.end());
  checkObject(bytes, false);
  checkObject(bytes, true);
  checkExisting<std::uint8_t>(input);
  checkExisting<float>(input);
}
