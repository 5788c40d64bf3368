#include <fmt/format.h>
#include <planex/io/failure.h>
#include <planex/io/json.h>
#include <planex/io/model_file.h>
#include <planex/io/output_file.h>
#include <planex/io/point_writer.h>
#include <planex/model/model_state.h>
#include <planex/scan/point_rows.h>
#include <planex/scan/row_stream.h>

#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/cli/made.h"
#include "tools/cli/progress.h"
#include "tools/cli/scan_options.h"
#include "tools/cli/warnings.h"
#include "tools/commands/commands.h"
#include "tools/commands/uncertain_points.h"

namespace planex::tools {
namespace {

using datafusion::planex::CalibrationModel;
using datafusion::planex::ModelState;

struct CalibrateOptions {
  std::string model, range, output, intensity, uncertainty;
  bool aligned = false, dropMissing = false;
  std::optional<double> meshEdge, rowNoise;
  scan::SensorSettings sensor;
  scan::RowSettings y;
  RowOptions rows;
  std::optional<io::Compression> compression;
};

io::PointFormat checkedFormat(const CalibrateOptions& options) {
  const std::optional<io::PointFormat> format = io::pointFormatOf(options.output);
  if (!format) {
    throw CLI::ValidationError("--output",
                               "'" + options.output +
                                   "' ends neither in .ply, .pcd, .las, .csv, .xyz, .txt, .tif nor "
                                   ".npy");
  }
  const bool isGrid = *format == io::PointFormat::kTiff || *format == io::PointFormat::kNpy;
  if (isGrid && !options.intensity.empty()) {
    throw CLI::ValidationError("--intensity", "has no place in a .tif or .npy file");
  }
  if (isGrid && options.dropMissing) {
    throw CLI::ValidationError("--drop-missing", "leaves holes in a .tif or .npy file, a grid");
  }
  if (options.meshEdge && *format != io::PointFormat::kPly) {
    throw CLI::ValidationError("--mesh", "needs an output .ply");
  }
  if (options.compression && *format != io::PointFormat::kTiff) {
    throw CLI::ValidationError("--compress", "needs an output .tif");
  }
  if (!options.uncertainty.empty()) {
    requireUncertaintyName(options.uncertainty);
    requireOtherName("--uncertainty", options.uncertainty, options.output);
  }
  return *format;
}

void checkAligned(const CalibrationModel& model, const CalibrateOptions& options) {
  if (!options.aligned || model.CurrentState == ModelState::CALIBRATED_ALIGNED_2D ||
      model.CurrentState == ModelState::CALIBRATED_ALIGNED_3D) {
    return;
  }
  throw io::Failure(options.model,
                    "the model has no alignment; use one that has, or omit --aligned");
}

/// Text and LAS have no place for missing points, and readers of meshes none for NaN.
bool isWithoutMissing(const CalibrateOptions& options, io::PointFormat format) {
  return options.dropMissing || options.meshEdge || format == io::PointFormat::kLas ||
         format == io::PointFormat::kCsv || format == io::PointFormat::kXyz;
}

io::PointDescription describe(const CalibrateOptions& options, const Context& context,
                              io::PointFormat format, const io::ImageReader& range,
                              const scan::IntensityImage* intensity, int rows, bool knownY) {
  io::PointDescription points;
  points.columns = range.shape().width;
  points.rows = rows;
  points.aligned = options.aligned;
  points.unit = context.unit;
  if (!knownY) points.rowUnit = "rows";
  points.withoutMissing = isWithoutMissing(options, format);
  points.meshEdge = options.meshEdge;
  if (intensity != nullptr) {
    points.intensity = intensity->isBytes() ? io::SampleType::kUint8 : io::SampleType::kUint16;
  }
  return points;
}

/// What the points are, for programs and people; the file itself has place for little of it.
std::string describeInJson(const CalibrateOptions& options, const Context& context,
                           const ModelSource& model, const io::PointDescription& points,
                           const io::PointCounts& written, const scan::RowBlocks& rows,
                           const scan::RangeScan& source, const scan::YPositions& y,
                           std::int64_t bytes) {
  const char* const content = options.aligned ? "aligned points" : "calibrated points";
  OutputSidecar sidecar(options.output + ".json", content, context);
  const io::JsonText& json = sidecar.root();
  json.add("unit", points.unit);
  json.add("missing", points.withoutMissing ? "left out" : "NaN");
  json.add("columns", points.columns);
  json.add("rows", points.rows);
  if (points.withoutMissing) json.add("points", static_cast<double>(written.points));
  if (points.meshEdge) {
    json.add("maxEdge", *points.meshEdge);
    json.add("triangles", static_cast<double>(written.triangles));
  }
  json.add("firstRow", rows.first);
  const io::JsonObject place = json.addObject("y");
  if (y.line()) {
    place.add("scale", y.line()->scale);
    place.add("offset", y.line()->origin);
  } else {
    place.add("positions", y.file());
  }
  place.add("unit", y.isKnown() ? points.unit : "rows");
  json.add("model", options.model);
  json.add("range", options.range);
  const io::JsonObject& made = sidecar.addMade(model);
  sidecar.addScan(source.region, y);
  if (!options.intensity.empty()) made.add("intensity", options.intensity);
  sidecar.addOutput(content, options.output, bytes);
  return sidecar.print();
}

/// The sidecar of the uncertainties.
void finish(UncertaintyFile& file, const CalibrateOptions& options, const Context& context,
            const ModelSource& model, const io::PointDescription& points,
            const scan::RowBlocks& rows, const scan::RangeScan& source, const scan::YPositions& y) {
  const char* const content =
      options.aligned ? "uncertainty of aligned points" : "uncertainty of calibrated points";
  OutputSidecar sidecar(file.sidecarPath(), content, context);
  file.describe(sidecar);
  const io::JsonText& json = sidecar.root();
  json.add("missing", "NaN");
  json.add("columns", points.columns);
  json.add("rows", points.rows);
  json.add("firstRow", rows.first);
  if (options.rowNoise) json.add("rowNoise", *options.rowNoise);
  json.add("model", options.model);
  json.add("range", options.range);
  sidecar.addMade(model);
  sidecar.addScan(source.region, y);
  file.finish(sidecar, content);
}

void runCalibrate(CalibrateOptions options, const Context& context) {
  const io::PointFormat format = checkedFormat(options);
  requireOneStandardInput(
      {options.model, options.range, options.sensor.sidecar, options.y.positions});
  applyThreads(context);
  ModelSource document{options.model, {}};
  std::string text;
  const CalibrationModel model = io::loadModel(options.model, document.sha256, text);
  checkAligned(model, options);
  const auto range = io::ImageReader::open(options.range, io::Samples::kRanges);
  std::optional<scan::IntensityImage> intensity;
  if (!options.intensity.empty()) intensity.emplace(options.intensity, *range);
  const scan::IntensityImage* const withIntensity = intensity ? &*intensity : nullptr;
  const scan::RowBlocks rows = resolveRows(options.rows, range->shape(), 0);
  const scan::ScanSidecar beside = scan::readScanSidecar(options.sensor.sidecar, options.range);
  std::unique_ptr<const PlaneUncertainty> uncertainty;
  PlaneTurn turn;
  if (!options.uncertainty.empty()) {
    if (!options.rowNoise) options.rowNoise = beside.rowNoise;
    uncertainty = requireUncertainty(text, options.model, options.rowNoise.value_or(0));
    turn = PlaneTurn::of(model, options.model, options.aligned);
  }
  const scan::ResolvedSensor region =
      scan::resolveSensor(options.sensor, beside, model, options.model, range->shape().type);
  const scan::RangeScan source(model, options.model, *range, region);
  const scan::YPositions y = scan::resolveY(options.y, beside, range->shape().height);

  std::vector<std::string> outputs = {options.output, options.output + ".json"};
  if (uncertainty) {
    outputs.insert(outputs.end(), {options.uncertainty, options.uncertainty + ".json"});
  }
  for (const std::string& output : outputs) {
    io::requireNoInput(output, {options.model, options.range, options.range + ".json",
                                options.sensor.sidecar, options.intensity, y.file()});
  }
  io::WorkerPool pool(workerCount(context));
  io::OutputFile file(options.output, context.force);
  io::OutputFile sidecar(options.output + ".json", context.force);
  const io::PointDescription points =
      describe(options, context, format, *range, withIntensity, rows.count(), y.isKnown());
  const auto writer = io::PointWriter::create(
      format, file, points, {options.compression.value_or(io::Compression::kNone), &pool});
  std::optional<UncertaintyFile> uncertainties;
  if (uncertainty) {
    uncertainties.emplace(options.uncertainty, context);
    uncertainties->begin(points.columns, points.rows, {io::Compression::kNone, &pool});
  }
  Progress progress(context, "calibrating", std::int64_t{rows.count()} * points.columns, "points");
  std::int64_t measured = 0, outside = 0;
  scan::streamRows<scan::PointBlock>(
      pool, rows,
      [&]() -> std::unique_ptr<scan::PointBlock> {
        if (uncertainty) {
          return std::make_unique<UncertainPoints>(source, y, options.aligned, withIntensity,
                                                   *writer, *uncertainty, turn);
        }
        return std::make_unique<scan::PointBlock>(source, y, options.aligned, withIntensity,
                                                  *writer);
      },
      [&](const scan::PointBlock& block) {
        block.writeTo(*writer);
        if (uncertainties) {
          const auto& uncertain = static_cast<const UncertainPoints&>(block);
          uncertainties->writeRows(block.count(), uncertain.uncertainties());
        }
        measured += block.measured();
        outside += block.outside();
        progress.advance(std::int64_t{block.count()} * points.columns);
      });
  writer->finish();
  sidecar.write(describeInJson(options, context, document, points, writer->written(), rows, source,
                               y, file.size()));
  if (uncertainties) finish(*uncertainties, options, context, document, points, rows, source, y);
  file.commit();
  sidecar.commit();
  if (uncertainties) uncertainties->commit();

  tellOfReplacedMembers(options.sensor, options.y, beside);
  warnOfCountedRows(y, options.aligned || options.meshEdge, options.range, context);
  warnOfSensor(source, region);
  warnOfValues(measured, outside, options.range);
  if (context.quiet) return;
  const std::string mesh =
      points.meshEdge ? fmt::format(", {} triangles", writer->written().triangles) : "";
  std::fputs(
      fmt::format("{}: {} rows of {} points, {} measured{}, in {}\n", io::inOneLine(options.output),
                  points.rows, points.columns, measured, mesh, points.unit)
          .c_str(),
      stdout);
}

}  // namespace

void addCalibrateCommand(CLI::App& app, Context& context) {
  const auto options = std::make_shared<CalibrateOptions>();
  CLI::App* command =
      app.add_subcommand("calibrate", "Turn a range image into calibrated or aligned points");
  command->add_option("MODEL", options->model, "Model document")->required();
  command
      ->add_option("RANGE", options->range,
                   "Range image: PNG, TIFF, PGM or NPY; - is standard input")
      ->required();
  command
      ->add_option("-o,--output", options->output,
                   "Points: .ply, .pcd, .las, .csv, .xyz, .txt, .tif (float32 layers) or .npy; "
                   "OUT.json describes them")
      ->required()
      ->type_name("OUT");
  command->add_option("--intensity", options->intensity, "Image with the intensity of every point")
      ->type_name("IMAGE");
  command->add_flag("--aligned", options->aligned, "Map through the pose of the model");
  command->add_flag("--drop-missing", options->dropMissing,
                    "Leave out points without measurement; .las and text always do");
  addNumberOption(*command, "--mesh", options->meshEdge,
                  "Join neighbours by triangles whose edges are no longer (.ply)",
                  {[](double edge) { return edge > 0; }, "must be above 0"})
      ->type_name("MAXEDGE");
  addUncertaintyOptions(*command, options->uncertainty, options->rowNoise,
                        "Standard uncertainties of X and of Z and their correlation, a value for "
                        "each sample of the image, of what the model states of itself (see planex "
                        "estimate); FILE.json describes it");
  addYOptions(*command, options->y);
  addCompressOption(*command, options->compression);
  addRowOptions(*command, options->rows);
  addSensorOptions(*command, options->sensor);
  addUnitOption(*command, context);
  addThreadsOption(*command, context);
  addForceOption(*command, context);
  addQuietOption(*command, context);
  command->footer(
      "Without options the image shows the full sensor, in sixteenths of a pixel; an image of 8 "
      "bits or of floats in rows.\n\n"
      "Examples:\n"
      "  planex calibrate model.json range.png -o points.ply --intensity intensity.png\n"
      "  planex calibrate model.json range.tif -o points.pcd --aligned --y-scale 0.1\n"
      "  planex calibrate model.json range.tif -o mesh.ply --mesh 0.5 --y-scale 0.1\n"
      "  planex calibrate model.json range.pgm -o layers.tif --rows 1000:2000 --origin-z 160");
  command->callback([options, &context] { runCalibrate(*options, context); });
}

}  // namespace planex::tools
