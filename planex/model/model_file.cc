#include "planex/model/model_file.h"

#include <algorithm>
#include <optional>

#include "planex/infra/json_deserializer.h"
#include "planex/infra/json_serializer.h"
#include "planex/infra/out_stream.h"
#include "planex/infra/text_file.h"
#include "planex/model/model_checks.h"

namespace datafusion::planex {
namespace {

/// No name of the system where a NUL byte would end it early.
const char* systemNameOf(const std::string& path) {
  return path.find('\0') == std::string::npos ? path.c_str() : "";
}

/// @param path in the text without control characters
bool refuseFile(std::string path, const std::string& reason) {
  const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; };
  std::replace_if(path.begin(), path.end(), isControl, '?');
  return refuseToChange((path + ": " + reason).c_str());
}

}  // namespace

bool readModel(const std::string& path, CalibrationModel& model) {
  const std::optional<std::string> text = base::readTextFile(systemNameOf(path));
  if (!text) return refuseFile(path, "cannot be read.");
  base::JsonVisitingDeSerializer reader(text->c_str(), false);
  CalibrationModel read;
  if (!reader.DeserializeIntoExistingObject(read)) {
    return refuseFile(path, "is no model document. " + reader.GetErrorDescription());
  }
  if (!read.IsConsistent()) {
    return refuseFile(path, "has a negative error figure or focal length.");
  }
  model = std::move(read);
  return true;
}

bool writeModel(const std::string& path, const CalibrationModel& model) {
  CalibrationModel copy = model;  // visiting is not const
  etl::MemoryOutStream stream;
  base::JsonVisitingSerializer writer(stream, true);
  writer.Serialize(copy);
  const std::string text(stream.GetText());
  // Numbers without a form in JSON are written as words that no reader takes.
  base::JsonVisitingDeSerializer reader(text.c_str(), true);
  if (writer.HasError() || !reader.DeserializeIntoExistingObject(copy)) {
    return refuseFile(path, "not written: the model holds what no document can.");
  }
  return base::replaceTextFile(systemNameOf(path), text) || refuseFile(path, "cannot be written.");
}

}  // namespace datafusion::planex
