#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "planex/api/boundary.h"
#include "planex/api/planex.h"
#include "planex/api/registries.h"
#include "planex/infra/json_deserializer.h"
#include "planex/infra/json_serializer.h"
#include "planex/infra/out_stream.h"
#include "planex/infra/text_file.h"
#include "planex/model/model_file.h"

namespace tavik::planex {
namespace {

using datafusion::planex::CalibrationModel;

/// Throws for a text that neither reads without error nor passes as a damaged document.
CalibrationModel modelFrom(const char* json) {
  CalibrationModel model;
  base::JsonVisitingDeSerializer reader(json, false);
  reader.DeserializeIntoExistingObject(model);
  CalibrationException::throwUnless(
      !reader.HasError() || datafusion::planex::sensorSizeConfirms(json, model),
      "The json buffer does not contain valid json");
  CalibrationException::throwUnless(model.IsConsistent(),
                                    "The json data does not describe a valid model");
  return model;
}

void writeModel(CalibrationModel& model, etl::MemoryOutStream& stream) {
  base::JsonVisitingSerializer writer(stream, true);
  writer.Serialize(model);
  CalibrationException::throwUnless(!writer.HasError(), "Failed to create json from model");
}

}  // namespace
}  // namespace tavik::planex

using namespace tavik::planex;  // NOLINT(google-build-using-namespace): the bodies of this file

bool createModelFromJson(const char* jsonData, uint32_t* modelHandle) {
  return guarded([&] {
    CalibrationException::throwUnless(modelHandle != nullptr, "Handle is NULL");
    *modelHandle = 0;
    CalibrationException::throwUnless(jsonData != nullptr, "Argument jsonData is NULL");
    models().throwIfFull();
    *modelHandle = models().insert(modelFrom(jsonData));
    return true;
  });
}

bool createModelFromFilePath(const char* filePath, uint32_t* modelHandle) {
  const std::optional<std::string> text = base::readTextFile(filePath);
  if (!text) {
    interfaceLogger().Severe("Not able to open calibration file");
    return false;
  }
  return createModelFromJson(text->c_str(), modelHandle);
}

bool createJsonFromModel(uint32_t modelHandle, char* jsonData, size_t jsonDataSize) {
  return guarded([&] {
    CalibrationException::throwUnless(jsonData != nullptr, "Argument jsonData is NULL");
    auto model = models().copyOf(modelHandle);
    etl::MemoryOutStream stream;
    writeModel(model, stream);
    const std::string_view text = stream.GetText();
    CalibrationException::throwUnless(text.size() < jsonDataSize,
                                      "The provided json buffer is to small for the model");
    std::memcpy(jsonData, text.data(), text.size());
    jsonData[text.size()] = '\0';
    return true;
  });
}

bool destroyModel(uint32_t* modelHandle) {
  return guarded([&] { return destroyByHandle(models(), modelHandle); });
}

void destroyAllModels() { models().clear(); }
