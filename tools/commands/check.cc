#include <fmt/format.h>
#include <planex/api/planex.h>
#include <planex/infra/json_deserializer.h>
#include <planex/io/document_check.h>
#include <planex/io/failure.h>
#include <planex/io/model_check.h>
#include <planex/io/model_file.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "tools/commands/commands.h"
#include "tools/commands/stated_uncertainty.h"

namespace planex::tools {
namespace {

struct CheckOptions {
  std::string model;
};

/// What is wrong, the form of the document first: what its numbers mean is only asked of a sound
/// one.
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

void runCheck(const CheckOptions& options, const Context& context) {
  const std::string text = io::readTextFile(options.model);
  std::string readingError;
  const std::vector<io::Fault> faults = faultsOf(text, readingError);
  const std::string name = io::Failure::nameOf(options.model);
  for (const io::Fault& fault : faults) {
    std::puts(io::inOneLine(fmt::format("{}: {}: {}", name, fault.path, fault.text)).c_str());
  }
  if (!readingError.empty() && isRecovered(text)) {
    std::puts(
        io::inOneLine(
            fmt::format("{}: readable only through the recovery check of the C interface: members "
                        "behind the error have the values of a new model ({})",
                        name, readingError))
            .c_str());
  }
  if (faults.empty()) {
    if (!context.quiet) std::puts(io::inOneLine(name + ": no faults").c_str());
    return;
  }
  throw io::Failure(options.model,
                    faults.size() == 1
                        ? "has a fault; correct the document"
                        : fmt::format("has {} faults; correct the document", faults.size()));
}

}  // namespace

void addCheckCommand(CLI::App& app, Context& context) {
  const auto options = std::make_shared<CheckOptions>();
  CLI::App* command = app.add_subcommand(
      "check", "Look for faults in a model document, also such that reading forgives");
  command->add_option("MODEL", options->model, "Model document; - is standard input")->required();
  addQuietOption(*command, context);
  command->footer(
      "Every fault is a line: the file, the path of the member, what is wrong.\n"
      "Exit status: 0 no faults, 1 faults or no readable file.\n\n"
      "Examples:\n"
      "  planex check model.json\n"
      "  planex check model.json --quiet && start_measuring");
  command->callback([options, &context] { runCheck(*options, context); });
}

}  // namespace planex::tools
