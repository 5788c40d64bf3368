// Any bytes as a document for the visiting reader: as an object of the class it names. What was
// read is written and read again.

#include <memory>
#include <string>

#include "tests/support/documents.h"
#include "tests/support/property.h"

namespace {

void checkObject(const etl::Buffer& bytes, bool exactNames) {
  const test::MemoryPeak peak;
  base::JsonVisitingDeSerializer reader(bytes, exactNames);
  const std::unique_ptr<etl::IVisitable> object = reader.DeserializeObject();
  CHECK_HOLDS(peak.Bytes() <= 128 * bytes.size() + 65536);
  CHECK_HOLDS((object != nullptr) == !reader.HasError());
  if (object == nullptr) return;

  const std::string first = test::toJson(*object);
  base::JsonVisitingDeSerializer again(first.c_str(), true);
  const std::unique_ptr<etl::IVisitable> reread = again.DeserializeObject();
  CHECK_HOLDS(reread != nullptr);
  CHECK_HOLDS(test::toJson(*reread) == first);
  CHECK_HOLDS(test::toJson(*object->CloneVisitable()) == first);
}

}  // namespace

PLANEX_PROPERTY(image_document) {
  const std::string input = source.Rest();
  const etl::Buffer bytes(input.begin(), input.end());
  checkObject(bytes, false);
  checkObject(bytes, true);
}
