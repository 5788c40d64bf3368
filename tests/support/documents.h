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

/// `text` with its first `what` replaced; without one it comes back empty, which no test accepts.
inline std::string replaced(std::string text, const std::string& what, const std::string& with) {
  const std::size_t at = text.find(what);
  return at == std::string::npos ? std::string() : text.replace(at, what.size(), with);
}

}  // namespace test
