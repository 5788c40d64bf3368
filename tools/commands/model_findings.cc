#include "tools/commands/model_findings.h"

#include <fmt/format.h>
#include <planex/api/planex.h>
#include <planex/infra/json_deserializer.h>
#include <planex/io/document_check.h>

#include <cstdint>

#include "tools/commands/stated_uncertainty.h"

namespace planex::tools {
namespace {

std::vector<io::Fault> faultsOf(const std::string& text, std::string& readingError) {
  datafusion::planex::CalibrationModel model;
  base::JsonVisitingDeSerializer reader(text.c_str(), false);
  if (!reader.DeserializeIntoExistingObject(model)) readingError = reader.GetErrorDescription();
  std::vector<io::Fault> faults = io::checkDocument(text);
  if (faults.empty() && !readingError.empty()) faults.push_back({"document", readingError});
  if (!faults.empty()) return faults;
  const std::string fault = faultOfUncertainty(text);
  if (!fault.empty()) faults.push_back({"data.Estimation", fault});
  const std::vector<io::Fault> ofModel = io::checkModel(model);
  faults.insert(faults.end(), ofModel.begin(), ofModel.end());
  return faults;
}

void discardLog(const char*) {}

/// Whether the C interface takes the document all the same. From here on library warnings are lost.
bool isRecovered(const std::string& text) {
  registerLogHandler(discardLog);
  std::uint32_t handle = 0;
  const bool accepted = createModelFromJson(text.c_str(), &handle);
  destroyModel(&handle);
  return accepted;
}

}  // namespace

std::string ModelFindings::sentence() const {
  if (faults.empty()) return "no faults";
  return faults.size() == 1 ? "has a fault; correct the document"
                            : fmt::format("has {} faults; correct the document", faults.size());
}

ModelFindings findingsOf(const std::string& document) {
  std::string readingError;
  ModelFindings findings{faultsOf(document, readingError), {}};
  if (!readingError.empty() && isRecovered(document)) {
    findings.recovery = fmt::format(
        "readable only through the recovery check of the C interface: members behind the error "
        "have the values of a new model ({})",
        readingError);
  }
  return findings;
}

}  // namespace planex::tools
