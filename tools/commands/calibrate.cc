#include <fmt/format.h>
#include <planex/io/failure.h>
#include <planex/io/json.h>
#include <planex/io/library_warnings.h>
#include <planex/io/model_file.h>
#include <planex/io/output_file.h>
#include <planex/io/point_writer.h>
#include <planex/model/model_state.h>
#include <planex/processing/image_alignment.h>
#include <planex/scan/calibrated_rows.h>
#include <planex/version.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/cli/progress.h"
#include "tools/cli/scan_options.h"
#include "tools/commands/commands.h"

namespace planex::tools {
namespace {

using datafusion::planex::CalibrationModel;
using datafusion::planex::ModelState;
using FloatImage = cmnalg::ImageOf<float>;

struct CalibrateOptions {
  std::string model, range, output, intensity;
  bool aligned = false;
  scan::SensorSettings sensor;
  YOptions y;
  RowOptions rows;
};

/// The points of blocks of rows, with the Y that goes with them.
class PointSource {
 public:
  PointSource(const CalibrationModel& model, const CalibrateOptions& options,
              io::ImageReader& range)
      : model_(model),
        options_(options),
        calibrated_(model, options.model, range,
                    scan::resolveSensor(options.sensor, options.range, model, options.model)),
        y_(resolveY(options.y, range.shape().height)) {}

  const scan::CalibratedRows& calibrated() const { return calibrated_; }
  const scan::YPositions& y() const { return y_; }

  io::PointRows load(int first, int count) {
    calibrated_.load(first, count);
    return options_.aligned ? align(first, count) : addY(first, count);
  }

 private:
  io::PointRows align(int first, int count) {
    etl::Vector<double> y;
    for (int row = first; row < first + count; ++row) y.push_back(y_.at(row));
    if (!applyAlignment(model_, false, calibrated_.x(), y, calibrated_.z(), xAligned_, yAligned_,
                        zAligned_, datafusion::planex::RunMode::Default)) {
      io::failWithLibraryWarnings(options_.model, "cannot align points", "see planex check");
    }
    return {count, xAligned_.GetRowPtr(0), yAligned_.GetRowPtr(0), zAligned_.GetRowPtr(0), nullptr};
  }

  io::PointRows addY(int first, int count) {
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
  scan::CalibratedRows calibrated_;
  const scan::YPositions y_;
  std::vector<float> yValues_;
  FloatImage xAligned_, yAligned_, zAligned_;
};

io::PointFormat checkedFormat(const CalibrateOptions& options) {
  const std::optional<io::PointFormat> format = io::pointFormatOf(options.output);
  if (!format) {
    throw CLI::ValidationError(
        "--output", "'" + options.output + "' ends neither in .ply, .pcd, .tif nor .npy");
  }
  if (!options.intensity.empty() && *format != io::PointFormat::kPly &&
      *format != io::PointFormat::kPcd) {
    throw CLI::ValidationError("--intensity", "goes into .ply and .pcd files only");
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

std::unique_ptr<io::ImageReader> openIntensity(const std::string& path,
                                               const io::ImageReader& range) {
  if (path.empty()) return nullptr;
  std::unique_ptr<io::ImageReader> intensity = io::ImageReader::open(path);
  if (intensity->shape().width != range.shape().width ||
      intensity->shape().height != range.shape().height) {
    throw io::Failure(path,
                      "is not as large as " + range.path() + "; give the image that belongs to it");
  }
  return intensity;
}

io::PointDescription describe(const CalibrateOptions& options, const Context& context,
                              const io::ImageReader& range, const io::ImageReader* intensity,
                              int rows) {
  io::PointDescription points;
  points.columns = range.shape().width;
  points.rows = rows;
  points.aligned = options.aligned;
  points.unit = context.unit;
  if (intensity != nullptr) {
    points.intensity = intensity->shape().type == cmnalg::IMAGE_TYPE_UINT8
                           ? io::SampleType::kUint8
                           : io::SampleType::kUint16;
  }
  return points;
}

/// What the points are, for programs and people; the file itself has place for little of it.
std::string describeInJson(const CalibrateOptions& options, const io::PointDescription& points,
                           const scan::RowBlocks& rows, const scan::YPositions& y) {
  io::JsonText json;
  json.add("generator", "planex " PLANEX_VERSION_STRING);
  json.add("content", options.aligned ? "aligned points" : "calibrated points");
  json.add("unit", points.unit);
  json.add("missing", "NaN");
  json.add("columns", points.columns);
  json.add("rows", points.rows);
  json.add("firstRow", rows.first);
  if (y.line()) {
    const io::JsonObject line = json.addObject("y");
    line.add("scale", y.line()->scale);
    line.add("offset", y.line()->origin);
  }
  json.add("model", options.model);
  json.add("range", options.range);
  return json.print();
}

void runCalibrate(const CalibrateOptions& options, const Context& context) {
  const io::PointFormat format = checkedFormat(options);
  applyThreads(context);
  const CalibrationModel model = io::loadModel(options.model);
  checkAligned(model, options);
  const auto range = io::ImageReader::open(options.range);
  const auto intensity = openIntensity(options.intensity, *range);
  const scan::RowBlocks rows = resolveRows(options.rows, range->shape());
  PointSource source(model, options, *range);

  io::OutputFile file(options.output, context.force);
  io::OutputFile sidecar(options.output + ".json", context.force);
  const io::PointDescription points =
      describe(options, context, *range, intensity.get(), rows.count());
  const auto writer = io::PointWriter::create(format, file, points);
  std::vector<char> intensities;
  Progress progress(context, "calibrating", std::int64_t{rows.count()} * points.columns, "points");
  rows.forEach([&](int first, int count) {
    io::PointRows block = source.load(first, count);
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

  warnOfValuesOutside(source.calibrated().outside(), options.range);
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

}  // namespace planex::tools
