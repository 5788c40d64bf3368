#include <fmt/format.h>
#include <planex/model/model_state.h>
#include <planex/processing/image_alignment.h>
#include <planex/version.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/commands/commands.h"
#include "tools/images/calibrated_rows.h"
#include "tools/images/point_writer.h"
#include "tools/support/failure.h"
#include "tools/support/json.h"
#include "tools/support/library_warnings.h"
#include "tools/support/model_file.h"
#include "tools/support/output_file.h"
#include "tools/support/progress.h"
#include "tools/support/row_options.h"
#include "tools/support/y_positions.h"

namespace planex_tools {
namespace {

using datafusion::planex::CalibrationModel;
using datafusion::planex::ModelState;
using FloatImage = cmnalg::ImageOf<float>;

struct CalibrateOptions {
  std::string model, range, output, intensity;
  bool aligned = false;
  SensorOptions sensor;
  YOptions y;
  RowOptions rows;
};

/// The points of blocks of rows, with the Y that goes with them.
class PointSource {
 public:
  PointSource(const CalibrationModel& model, const CalibrateOptions& options, ImageReader& range)
      : model_(model),
        options_(options),
        calibrated_(model, options.model, range,
                    resolveSensor(options.sensor, options.range, model, options.model)),
        y_(options.y, range.shape().height) {}

  const CalibratedRows& calibrated() const { return calibrated_; }
  const YPositions& y() const { return y_; }

  PointRows load(int first, int count) {
    calibrated_.load(first, count);
    return options_.aligned ? align(first, count) : addY(first, count);
  }

 private:
  PointRows align(int first, int count) {
    etl::Vector<double> y;
    for (int row = first; row < first + count; ++row) y.push_back(y_.at(row));
    if (!applyAlignment(model_, false, calibrated_.x(), y, calibrated_.z(), xAligned_, yAligned_,
                        zAligned_, datafusion::planex::RunMode::Default)) {
      failWithLibraryWarnings(options_.model, "cannot align points", "see planex check");
    }
    return {count, xAligned_.GetRowPtr(0), yAligned_.GetRowPtr(0), zAligned_.GetRowPtr(0), nullptr};
  }

  PointRows addY(int first, int count) {
    const float* z = calibrated_.z().GetRowPtr(0);
    const auto width = static_cast<std::size_t>(calibrated_.z().GetWidth());
    yValues_.resize(width * static_cast<std::size_t>(count));
    for (std::size_t i = 0; i < yValues_.size(); ++i) {
      const double y = y_.at(first + static_cast<int>(i / width));
      yValues_[i] =
          std::isnan(z[i]) ? std::numeric_limits<float>::quiet_NaN() : static_cast<float>(y);
    }
    return {count, calibrated_.x().GetRowPtr(0), yValues_.data(), z, nullptr};
  }

  const CalibrationModel& model_;
  const CalibrateOptions& options_;
  CalibratedRows calibrated_;
  const YPositions y_;
  std::vector<float> yValues_;
  FloatImage xAligned_, yAligned_, zAligned_;
};

PointFormat checkedFormat(const CalibrateOptions& options) {
  const std::optional<PointFormat> format = pointFormatOf(options.output);
  if (!format) {
    throw CLI::ValidationError(
        "--output", "'" + options.output + "' ends neither in .ply, .pcd, .tif nor .npy");
  }
  if (!options.intensity.empty() && *format != PointFormat::kPly && *format != PointFormat::kPcd) {
    throw CLI::ValidationError("--intensity", "goes into .ply and .pcd files only");
  }
  return *format;
}

void checkAligned(const CalibrationModel& model, const CalibrateOptions& options) {
  if (!options.aligned || model.CurrentState == ModelState::CALIBRATED_ALIGNED_2D ||
      model.CurrentState == ModelState::CALIBRATED_ALIGNED_3D) {
    return;
  }
  throw Failure(options.model, "the model has no alignment; use one that has, or omit --aligned");
}

std::unique_ptr<ImageReader> openIntensity(const std::string& path, const ImageReader& range) {
  if (path.empty()) return nullptr;
  std::unique_ptr<ImageReader> intensity = ImageReader::open(path);
  if (intensity->shape().width != range.shape().width ||
      intensity->shape().height != range.shape().height) {
    throw Failure(path,
                  "is not as large as " + range.path() + "; give the image that belongs to it");
  }
  return intensity;
}

PointDescription describe(const CalibrateOptions& options, const Context& context,
                          const ImageReader& range, const ImageReader* intensity, int rows) {
  PointDescription points;
  points.columns = range.shape().width;
  points.rows = rows;
  points.aligned = options.aligned;
  points.unit = context.unit;
  if (intensity != nullptr) {
    points.intensity = intensity->shape().type == cmnalg::IMAGE_TYPE_UINT8 ? SampleType::kUint8
                                                                           : SampleType::kUint16;
  }
  return points;
}

/// What the points are, for programs and people; the file itself has place for little of it.
std::string describeInJson(const CalibrateOptions& options, const PointDescription& points,
                           const RowBlocks& rows, const YPositions& y) {
  const Json json(cJSON_CreateObject());
  add(json.get(), "generator", "planex " PLANEX_VERSION_STRING);
  add(json.get(), "content", options.aligned ? "aligned points" : "calibrated points");
  add(json.get(), "unit", points.unit);
  add(json.get(), "missing", "NaN");
  add(json.get(), "columns", static_cast<double>(points.columns));
  add(json.get(), "rows", static_cast<double>(points.rows));
  add(json.get(), "firstRow", static_cast<double>(rows.first));
  if (y.line()) {
    cJSON* line = addObject(json.get(), "y");
    add(line, "scale", y.line()->scale);
    add(line, "offset", y.line()->origin);
  }
  add(json.get(), "model", options.model);
  add(json.get(), "range", options.range);
  return printJson(*json);
}

void runCalibrate(const CalibrateOptions& options, const Context& context) {
  const PointFormat format = checkedFormat(options);
  applyThreads(context);
  const CalibrationModel model = loadModel(options.model);
  checkAligned(model, options);
  const auto range = ImageReader::open(options.range);
  const auto intensity = openIntensity(options.intensity, *range);
  const RowBlocks rows = resolveRows(options.rows, range->shape());
  PointSource source(model, options, *range);

  OutputFile file(options.output, context.force);
  OutputFile sidecar(options.output + ".json", context.force);
  const PointDescription points = describe(options, context, *range, intensity.get(), rows.count());
  const auto writer = PointWriter::create(format, file, points);
  std::vector<char> intensities;
  Progress progress(context, "calibrating", std::int64_t{rows.count()} * points.columns, "points");
  rows.forEach([&](int first, int count) {
    PointRows block = source.load(first, count);
    if (intensity != nullptr) {
      intensities.resize(static_cast<std::size_t>(count) * intensity->shape().rowBytes());
      intensity->readRows(first, count, intensities.data());
      block.intensity = intensities.data();
    }
    writer->writeRows(block);
    progress.advance(std::int64_t{count} * points.columns);
  });
  writer->finish();
  sidecar.write(describeInJson(options, points, rows, source.y()));
  file.commit();
  sidecar.commit();

  warnOfValuesOutside(source.calibrated(), options.range);
  if (context.quiet) return;
  std::fputs(fmt::format("{}: {} rows of {} points, {} measured, in {}\n", options.output,
                         points.rows, points.columns, source.calibrated().measured(), points.unit)
                 .c_str(),
             stdout);
}

}  // namespace

void addCalibrateCommand(CLI::App& app, Context& context) {
  const auto options = std::make_shared<CalibrateOptions>();
  CLI::App* command =
      app.add_subcommand("calibrate", "Turn a range image into calibrated or aligned points");
  command->add_option("MODEL", options->model, "Model document")->required();
  command->add_option("RANGE", options->range, "Range image: PNG, TIFF or PGM of 8 or 16 bits")
      ->required();
  command
      ->add_option("-o,--output", options->output,
                   "Points: .ply, .pcd, .tif (float32 layers) or .npy; OUT.json describes them")
      ->required()
      ->type_name("OUT");
  command->add_option("--intensity", options->intensity, "Image with the intensity of every point")
      ->type_name("IMAGE");
  command->add_flag("--aligned", options->aligned, "Map through the pose of the model");
  addYOptions(*command, options->y, true);
  addRowOptions(*command, options->rows);
  addSensorOptions(*command, options->sensor);
  addUnitOption(*command, context);
  addThreadsOption(*command, context);
  addForceOption(*command, context);
  addQuietOption(*command, context);
  command->footer(
      "Without options the image shows the full sensor, in sixteenths of a pixel.\n\n"
      "Examples:\n"
      "  planex calibrate model.json range.png -o points.ply --intensity intensity.png\n"
      "  planex calibrate model.json range.tif -o points.pcd --aligned --y-scale 0.1\n"
      "  planex calibrate model.json range.pgm -o layers.tif --rows 1000:2000 --origin-z 160");
  command->callback([options, &context] { runCalibrate(*options, context); });
}

}  // namespace planex_tools
