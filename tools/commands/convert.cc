#include <planex/infra/json_serializer.h>
#include <planex/infra/out_stream.h>
#include <planex/io/failure.h>
#include <planex/io/model_file.h>
#include <planex/io/output_file.h>
#include <planex/io/text_output.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <memory>
#include <string>

#include "tools/commands/commands.h"
#include "tools/commands/stated_uncertainty.h"

namespace planex::tools {
namespace {

using datafusion::planex::CalibrationModel;

struct ConvertOptions {
  std::string model, output;
  std::int32_t fileVersion = 0;  // 0: that of the document
  bool compact = false, lossy = false;
};

/// Version 1 has neither sheet curve nor region; without the curve the model measures otherwise.
void setVersion(CalibrationModel& model, const ConvertOptions& options) {
  if (options.fileVersion == 0) return;
  model.FileVersion = options.fileVersion;
  const bool loses = !model.SheetCurve.empty() || model.CalibratedRegion.IsValid();
  if (options.fileVersion < 2 && loses && !options.lossy) {
    throw io::Failure(
        options.model,
        "has a sheet curve or calibrated region, for which version 1 has no place; drop "
        "them with --lossy");
  }
}

void runConvert(const ConvertOptions& options, const Context& context) {
  std::string sha256, original;
  CalibrationModel model = io::loadModel(options.model, sha256, original);
  setVersion(model, options);
  etl::MemoryOutStream stream;
  base::JsonVisitingSerializer writer(stream, !options.compact);
  if (!writer.Serialize(model)) {
    throw io::Failure(options.model, "cannot be written as a document (" +
                                         writer.GetErrorDescription() + "); see: planex check " +
                                         options.model);
  }
  io::requireNoInput(options.output.empty() ? "-" : options.output, {options.model});
  io::TextOutput output(options.output, context.force);
  const auto estimated = withStatedUncertainty(model, !options.compact, original, options.model);
  output.write(estimated ? *estimated : std::string(stream.GetText()));
  if (!options.compact) output.write("\r\n");
  output.commit();
}

}  // namespace

void addConvertCommand(CLI::App& app, Context& context) {
  const auto options = std::make_shared<ConvertOptions>();
  CLI::App* command = app.add_subcommand(
      "convert", "Rewrite a model document in another file version or indentation");
  command->add_option("MODEL", options->model, "Model document; - is standard input")->required();
  command
      ->add_option("-o,--output", options->output, "Document to write; by default standard output")
      ->type_name("FILE");
  command
      ->add_option("--file-version", options->fileVersion,
                   "File version to write; by default that of the document")
      ->check(CLI::Range(1, 2))
      ->type_name("VERSION");
  command->add_flag("--compact", options->compact, "Write one line without white space");
  command->add_flag("--lossy", options->lossy,
                    "Drop sheet curve and calibrated region where version 1 is written");
  addForceOption(*command, context);
  command->footer(
      "Numbers come back bit for bit. Members that a model document does not have are dropped; the "
      "uncertainty of an estimated model stays as long as the map does.\n\n"
      "Examples:\n"
      "  planex convert model.json -o indented.json\n"
      "  planex convert model.json --compact -o small.json\n"
      "  planex convert model.json --file-version 1 --lossy -o old.json");
  command->callback([options, &context] { runConvert(*options, context); });
}

}  // namespace planex::tools
