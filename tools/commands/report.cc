#include <fmt/format.h>
#include <planex/io/failure.h>
#include <planex/io/file_identity.h>
#include <planex/io/model_file.h>
#include <planex/io/output_file.h>
#include <planex/io/provenance.h>
#include <planex/scan/model_summary.h>
#include <planex/scan/scan_coverage.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "planex/report/model_page.h"
#include "tools/cli/picture_options.h"
#include "tools/cli/progress.h"
#include "tools/cli/scan_options.h"
#include "tools/cli/warnings.h"
#include "tools/commands/commands.h"
#include "tools/commands/model_findings.h"
#include "tools/commands/stated_uncertainty.h"

namespace planex::tools {
namespace {

using datafusion::planex::CalibrationModel;
using report::FileRecord;

struct ReportOptions {
  std::string model, range, output;
  scan::SensorSettings sensor;
  scan::RowSettings y;
};

/// The verdict of `planex check`, in its words.
report::Verdict verdictOf(const std::string& document, const std::string& name) {
  const ModelFindings findings = findingsOf(document);
  using Level = report::Verdict::Level;
  report::Verdict verdict{findings.faults.empty() ? Level::kGood : Level::kBad,
                          name + ": " + findings.sentence(),
                          {},
                          {}};
  for (const io::Fault& fault : findings.faults) {
    verdict.reasons.emplace_back(fault.path, fault.text);
  }
  return verdict;
}

/// What the sidecar of an output tells; that it tells nothing is no matter here.
std::optional<io::Provenance> provenanceOf(const std::string& path) {
  if (!std::filesystem::exists(path + ".json")) return std::nullopt;
  try {
    return io::readProvenance(path);
  } catch (const io::Failure&) {
    return std::nullopt;
  }
}

FileRecord recordOf(const char* role, const std::string& path) {
  FileRecord record{role, path, io::identityOf(path), {}};
  const auto provenance = provenanceOf(path);
  if (!provenance) return record;
  record.lines = provenance->lines;
  if (!provenance->fault.empty()) {
    record.lines.emplace_back("warning", provenance->sidecar + " " + provenance->fault);
  }
  return record;
}

report::ScanPart scanOf(const ReportOptions& options, const Context& context,
                        const CalibrationModel& model,
                        const std::optional<scan::RegionSummary>& region,
                        std::vector<FileRecord>& files) {
  const auto range = io::ImageReader::open(options.range, io::Samples::kRanges);
  const scan::ScanSidecar beside = scan::readScanSidecar(options.sensor.sidecar, options.range);
  const scan::ResolvedSensor sensor =
      scan::resolveSensor(options.sensor, beside, model, options.model, range->shape().type);
  const scan::RangeScan source(model, options.model, *range, sensor);
  const scan::YPositions y = scan::resolveY(options.y, beside, range->shape().height);
  report::ScanPart part;
  part.name = options.range;
  part.columns = range->shape().width;
  part.rows = range->shape().height;
  part.firstY = y.at(0);
  part.lastY = y.at(part.rows - 1);
  part.isYLength = y.isKnown();
  io::WorkerPool pool(workerCount(context));
  {
    Progress progress(context, "reading", std::int64_t{part.columns} * part.rows, "points");
    part.coverage = calculateCoverage(source, region, pool,
                                      [&](std::int64_t count) { progress.advance(count); });
  }
  files.push_back(recordOf("Scan", options.range));
  if (!beside.path.empty()) files.push_back(recordOf("Beside the scan", beside.path));
  if (!y.file().empty()) files.push_back(recordOf("Positions of rows", y.file()));
  tellOfReplacedMembers(options.sensor, options.y, beside);
  warnOfSensor(source, sensor);
  warnOfValues(part.coverage.measured, part.coverage.outside, options.range);
  return part;
}

void runReport(const ReportOptions& options, const Context& context) {
  const auto write = pageWriter("--output", options.output);
  if (options.model == "-" || options.range == "-") {
    throw CLI::ValidationError("-", "a report names its files; standard input has no name");
  }
  applyThreads(context);
  std::string sha256, document;
  const CalibrationModel model = io::loadModel(options.model, sha256, document);
  report::ModelPart part{model, context.unit, {}, {}, scan::summarizeRegion(model)};
  part.view = scan::fieldOfView(model, part.noView);
  std::vector<FileRecord> files = {recordOf("Model", options.model)};
  if (files.front().identity.sha256 != sha256) {
    throw io::Failure(options.model, "changed while it was read; keep it as it is, and try again");
  }
  const auto uncertainty = uncertaintyPart(document, context.unit);
  std::optional<report::ScanPart> scan;
  if (!options.range.empty()) scan = scanOf(options, context, model, part.region, files);
  std::vector<std::string> inputs;
  inputs.reserve(files.size());
  for (const FileRecord& file : files) inputs.push_back(file.path);
  io::requireNoInput(options.output, inputs);
  io::OutputFile file(options.output, context.force);
  file.write(write(modelPage(part, verdictOf(document, io::Failure::nameOf(options.model)),
                             uncertainty, scan, files)));
  file.commit();
}

}  // namespace

void addReportCommand(CLI::App& app, Context& context) {
  const auto options = std::make_shared<ReportOptions>();
  CLI::App* command = app.add_subcommand(
      "report", "Write a page to be signed: a model, what it is good for, and a scan");
  command->add_option("MODEL", options->model, "Model document")->required();
  command->add_option("SCAN", options->range, "Range image: PNG, TIFF, PGM or NPY");
  command->add_option("-o,--output", options->output, "Page to write: .html or .pdf")
      ->required()
      ->type_name("PAGE");
  addYOptions(*command, options->y);
  addSensorOptions(*command, options->sensor);
  addUnitOption(*command, context);
  addThreadsOption(*command, context);
  addForceOption(*command, context);
  addQuietOption(*command, context);
  command->footer(
      "The page has the verdict of planex check, what the sensor sees and what one of its rows and "
      "columns is worth at the near and the far end, maps of the residuals and of the uncertainty, "
      "where the document has them, which part of the scan was measured and lies where the model "
      "was calibrated, and size, SHA-256 and origin of every file. An HTML page needs no other "
      "file and loads nothing; a PDF has the same pictures as vectors. The same files give the "
      "same page, byte by byte.\n\n"
      "Exit status: 0 also for a page whose verdict is bad; planex check tells by its status.\n\n"
      "Examples:\n"
      "  planex report model.json -o report.pdf\n"
      "  planex report model.json range.png --y-scale 0.1 -o report.html");
  command->callback([options, &context] { runReport(*options, context); });
}

}  // namespace planex::tools
