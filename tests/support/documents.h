#pragma once

#include <string>

#include "planex/infra/json_deserializer.h"
#include "planex/infra/json_serializer.h"
#include "planex/infra/out_stream.h"

namespace test {

/// The document of an object, without spaces, or what keeps it from being written.
inline std::string toJson(etl::IVisitable& object) {
  etl::MemoryOutStream stream;
  base::JsonVisitingSerializer serializer(stream, false);
  if (!serializer.Serialize(object)) return serializer.GetErrorDescription();
  return std::string(stream.GetText());
}

/// Fills the object. @return the error, empty on success
inline std::string readJson(const std::string& text, etl::IVisitable& object) {
  base::JsonVisitingDeSerializer document(text.c_str(), false);
  document.DeserializeIntoExistingObject(object);
  return document.GetErrorDescription();
}

}  // namespace test
