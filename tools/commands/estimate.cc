#include <fmt/format.h>
#include <planex/estimation/estimation.h>
#include <planex/estimation/pose_plan.h>
#include <planex/estimation/uncertainty_document.h>
#include <planex/io/failure.h>
#include <planex/io/json.h>
#include <planex/io/measured_points.h>
#include <planex/io/measured_target.h>
#include <planex/io/model_file.h>
#include <planex/io/output_file.h>
#include <planex/io/target_poses.h>
#include <planex/io/text_table.h>
#include <planex/scan/resting_profile.h>
#include <planex/scan/sensor.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/cli/made.h"
#include "tools/cli/picture_options.h"
#include "tools/cli/scan_options.h"
#include "tools/cli/warnings.h"
#include "tools/commands/commands.h"
#include "tools/commands/estimation_report.h"
#include "tools/commands/uncertainty_file.h"

namespace planex::tools {
namespace {

using estimation::Estimation;
using estimation::EstimationFailure;
using estimation::EstimationOptions;
using estimation::MapUncertainty;
using estimation::PlaceCovariance;
using estimation::ScanMeasurement;
using estimation::TargetProfile;
using estimation::Verdict;
using Pixel = cmnalg::Vec<2, double>;
using SensorSize = cmnalg::Vec<2, int>;

constexpr int kMostSensor = 65535;
// Of the uncertainty in the JSON text: places of the sensor, its corners among them.
constexpr int kJsonColumns = 33, kJsonRows = 9;
constexpr double kDegree = 0.017453292519943295;
const char* const kVerdicts[] = {"good", "doubtful", "bad"};

struct EstimateOptions {
  std::vector<std::string> points;
  std::string output, sensor, uncertainty, report;
  std::string target, poses, up, right, plan;
  int scans = 12;
  std::optional<double> focalLength, pointTolerance, noise, tolerance, turn;
  scan::SensorSettings range;
  bool isPlane = false, json = false, evenIfBad = false;
};

/// The measurements of all files, and where they stand in them.
struct Measurements {
  struct Source {
    std::string file;
    std::vector<std::int64_t> lines;  // none of an image
    const char* line = "line";        // or "row", of an array
  };

  std::vector<ScanMeasurement> scans;
  std::vector<Source> sources;  // of the scans
};

SensorSize sensorSizeOf(const std::string& text) {
  SensorSize size;
  const char* const end = text.data() + text.size();
  const auto width = std::from_chars(text.data(), end, size.x);
  const bool hasWidth = width.ec == std::errc() && width.ptr != end && *width.ptr == 'x';
  const auto height = std::from_chars(hasWidth ? width.ptr + 1 : end, end, size.y);
  if (!hasWidth || height.ec != std::errc() || height.ptr != end || size.x < 2 || size.y < 2 ||
      size.x > kMostSensor || size.y > kMostSensor) {
    throw CLI::ValidationError(
        "--sensor", "'" + text + "' is not COLUMNSxROWS, such as 2560x1024, of 2 to 65535 each");
  }
  return size;
}

bool isImage(const std::string& file) {
  const std::string ending = io::endingOf(file);
  return ending == ".png" || ending == ".tif" || ending == ".tiff" || ending == ".pgm" ||
         (ending == ".npy" && !io::holdsPointArray(file));
}

std::shared_ptr<const TargetProfile> readTarget(const std::string& file) {
  if (file.empty()) return nullptr;
  const io::MeasuredTarget target = io::readMeasuredTarget(file);
  auto profile = std::make_shared<TargetProfile>();
  profile->corners = target.profile;
  profile->tolerance = target.tolerance;
  profile->scaleTolerance = target.scaleTolerance;
  profile->margin = target.margin;
  try {
    requireTarget(*profile);
  } catch (const std::invalid_argument& refusal) {
    throw io::Failure(file, refusal.what());
  }
  return profile;
}

/// A range image, which is one scan of a target that stood still.
void addImage(const std::string& file, const EstimateOptions& options, const SensorSize& size,
              Measurements& all) {
  datafusion::planex::CalibrationModel sensor;
  sensor.SensorSize = {size.x, size.y};
  const auto image = io::ImageReader::open(file, io::Samples::kRanges);
  const auto region =
      scan::resolveSensor(options.range, file, sensor, "--sensor", image->shape().type);
  scan::RestingProfile profile = scan::readRestingProfile(*image, region, size);
  constexpr double kMostDrift = 0.25;  // sensor rows
  if (std::abs(profile.drift) > kMostDrift) {
    warn(file,
         fmt::format("its rows drift by {:.3g} sensor rows; did the target move?", profile.drift));
  }
  ScanMeasurement scan;
  scan.name = file;
  scan.pixels = std::move(profile.pixels);
  all.scans.push_back(std::move(scan));
  all.sources.push_back({file, {}});
}

void addList(const std::string& file, const std::shared_ptr<const TargetProfile>& target,
             Measurements& all) {
  const io::MeasuredPoints points = io::readMeasuredPoints(file);
  if (!points.havePlaces && !target) {
    throw io::Failure(file,
                      "names no columns x and z; give them, or what was measured with --target");
  }
  const std::size_t first = all.scans.size();
  for (const std::string& name : points.scans) {
    ScanMeasurement scan;
    scan.name = name;
    if (!points.havePlaces) scan.target = target;
    all.scans.push_back(std::move(scan));
    all.sources.push_back({file, {}, points.isArray ? "row" : "line"});
  }
  for (const io::MeasuredPoint& point : points.points) {
    const std::size_t place = first + static_cast<std::size_t>(point.scan);
    ScanMeasurement& scan = all.scans[place];
    scan.pixels.push_back({point.u, point.v});
    if (points.havePlaces) scan.points.push_back({point.x, point.z});
    if (!std::isnan(point.sigma)) scan.deviations.push_back(point.sigma);
    all.sources[place].lines.push_back(point.line);
  }
}

/// What is known of where targets stood.
void addPoses(const std::string& file, Measurements& all) {
  for (const io::TargetPoseLine& line : io::readTargetPoses(file)) {
    const auto isOf = [&line](const ScanMeasurement& scan) { return scan.name == line.scan; };
    const auto scan = std::find_if(all.scans.begin(), all.scans.end(), isOf);
    const auto refuse = [&](const char* problem) {
      throw io::Failure(file, fmt::format("line {} names the scan {}, {}", line.line,
                                          io::shown(line.scan), problem));
    };
    if (scan == all.scans.end()) refuse("which was not measured; an image is called by its file");
    if (!scan->target) refuse("which is one of points, not of a target");
    if (std::find_if(scan + 1, all.scans.end(), isOf) != all.scans.end()) {
      refuse("of which there are several; give them different names");
    }
    scan->pose = {line.x, line.z, line.angle * kDegree, line.sx, line.sz, line.sangle * kDegree};
  }
}

Measurements read(const EstimateOptions& options, const SensorSize& size) {
  const auto target = readTarget(options.target);
  Measurements all;
  for (const std::string& file : options.points) {
    if (!isImage(file)) {
      addList(file, target, all);
      continue;
    }
    if (!target) {
      throw io::Failure(file, io::endingOf(file) == ".npy"
                                  ? "is no array of u, v, x and z in four columns of floats; give "
                                    "one, or say with --target what a range image shows"
                                  : "is an image; say what was measured with --target");
    }
    addImage(file, options, size, all);
    all.scans.back().target = target;
  }
  if (!options.poses.empty()) addPoses(options.poses, all);
  return all;
}

/// 1 along the axis of the sensor, -1 against it, 0 where nobody says.
int directionOf(const std::string& text) {
  return text.empty() ? 0 : text.compare(0, 5, "with-") == 0 ? 1 : -1;
}

Estimation estimate(const EstimateOptions& options, const Measurements& measurements,
                    const SensorSize& size, const std::string& unit) {
  EstimationOptions how;
  how.sensorSize = size;
  how.focalLength = options.focalLength.value_or(0);
  how.pointTolerance = options.pointTolerance.value_or(0);
  how.noise = options.noise.value_or(0);
  how.neededUncertainty = options.tolerance.value_or(std::numeric_limits<double>::infinity());
  how.hasSheetCurve = !options.isPlane;
  how.unit = unit;
  how.up = directionOf(options.up);
  how.right = directionOf(options.right);
  if (options.turn) how.turn = *options.turn * kDegree;
  try {
    return estimateModel(measurements.scans, how);
  } catch (const EstimationFailure& failure) {
    if (failure.scan() == EstimationFailure::kNone) {
      throw io::Failure(options.points.front(), failure.what());
    }
    const Measurements::Source& source = measurements.sources[failure.scan()];
    if (failure.point() == EstimationFailure::kNone || source.lines.empty()) {
      throw io::Failure(source.file, failure.what());
    }
    throw io::Failure(source.file, fmt::format("{} {} {}", source.line,
                                               source.lines[failure.point()], failure.what()));
  }
}

/// The place of one of `count` on a line of the sensor that has `size` pixels.
double spread(int i, int count, int size) { return (size - 1.0) * i / (count - 1.0); }

void addUncertainty(const io::JsonObject& root, const MapUncertainty& uncertainty,
                    const SensorSize& size) {
  std::vector<double> columns, rows, supported;
  std::vector<double> parts[3];
  for (int row = 0; row < kJsonRows; ++row) rows.push_back(spread(row, kJsonRows, size.y));
  for (int i = 0; i < kJsonColumns; ++i) columns.push_back(spread(i, kJsonColumns, size.x));
  for (const double row : rows) {
    for (const double column : columns) {
      const PlaceCovariance covariance = uncertainty.at({column, row});
      parts[0].push_back(covariance.xx);
      parts[1].push_back(covariance.xz);
      parts[2].push_back(covariance.zz);
      supported.push_back(uncertainty.isMeasured({column, row}) ? 1 : 0);
    }
  }
  const io::JsonObject object = root.addObject("uncertainty");
  object.add("frame", uncertainty.frameName());
  object.addList("columns", columns);
  object.addList("rows", rows);
  const char* const names[] = {"xx", "xz", "zz"};
  for (std::size_t i = 0; i < 3; ++i) object.addList(names[i], parts[i]);
  object.addList("supported", supported);
}

std::string jsonText(const Estimation& result, const Measurements& measurements,
                     const SensorSize& size, const std::string& unit) {
  const io::JsonText root;
  root.add("verdict", kVerdicts[static_cast<int>(result.verdict())]);
  root.addList("reasons", nullptr, 0);
  for (const estimation::Finding& finding : result.findings) {
    const io::JsonObject reason = root.appendTo("reasons");
    reason.add("level", finding.level == Verdict::kBad ? "bad" : "warning");
    reason.add("code", finding.code);
    reason.add("text", finding.text);
  }
  root.add("unit", unit);
  root.add("noise", result.noise);
  const io::JsonObject residual = root.addObject("residual");
  residual.add("rms", result.rms);
  residual.add("max", result.largest);
  const io::JsonObject observations = root.addObject("observations");
  observations.add("given", static_cast<double>(result.given));
  observations.add("used", static_cast<double>(result.used));
  root.add("correlation", result.correlation);
  root.add("largest95", result.largest95);
  root.add("support", result.measured);
  root.addList("rejectedLines", nullptr, 0);
  root.addList("scans", nullptr, 0);
  for (std::size_t i = 0; i < result.scans.size(); ++i) {
    const estimation::ScanFit& fit = result.scans[i];
    const io::JsonObject scan = root.appendTo("scans");
    scan.add("name", fit.name);
    scan.add("used", static_cast<double>(fit.given - fit.leftOut - fit.rejected.size()));
    scan.add("rejected", static_cast<double>(fit.rejected.size()));
    scan.add("rms", fit.rms);
    if (measurements.scans[i].target) {
      scan.add("leftOut", static_cast<double>(fit.leftOut));
      scan.add("found", fit.isFound ? 1.0 : 0.0);
      scan.add("x", fit.x);
      scan.add("z", fit.z);
      scan.add("angle", fit.angle);
      scan.add("heldOut", fit.heldOut);
    }
    if (measurements.sources[i].lines.empty()) continue;
    for (const std::size_t point : fit.rejected) {
      const io::JsonObject line = root.appendTo("rejectedLines");
      line.add("file", measurements.sources[i].file);
      line.add("scan", fit.name);
      line.add(measurements.sources[i].line,
               static_cast<double>(measurements.sources[i].lines[point]));
    }
  }
  if (!result.stretches.empty()) root.addList("stretch", nullptr, 0);
  for (const estimation::TargetStretch& target : result.stretches) {
    const io::JsonObject stretch = root.appendTo("stretch");
    stretch.add("stretch", target.stretch);
    stretch.add("sigma", target.deviation);
  }
  if (result.next) {
    const io::JsonObject next = root.addObject("next");
    next.add("x", result.next->scan.x);
    next.add("z", result.next->scan.z);
    next.add("angle", result.next->scan.angle);
    next.add("largest95", result.next->scan.largest95);
    next.add("largest95Before", result.next->largest95Before);
  }
  const io::JsonObject heldOut = root.addObject("heldOut");
  heldOut.add("kind", result.stretches.empty() ? "patches" : "scans");
  heldOut.add("rms", result.heldOut);
  addUncertainty(root, result.uncertainty, size);
  return root.print();
}

/// Whether a finding says that too little was measured.
bool isOfUncertainty(const estimation::Finding& finding) {
  const std::string code = finding.code;
  return code == "tolerance" || code == "support" || code == "ambiguous";
}

std::string plainText(const Estimation& result, const std::string& unit) {
  std::string text = result.sentence(unit) + "\n";
  for (const estimation::Finding& finding : result.findings) {
    text +=
        fmt::format("  {}: {}\n", finding.level == Verdict::kBad ? "bad" : "warning", finding.text);
  }
  if (result.next && std::any_of(result.findings.begin(), result.findings.end(), isOfUncertainty)) {
    text += "  next: " + result.advice(unit) + "\n";
  }
  text += fmt::format(
      "{} {} used of {}\n"
      "noise      {:.3g} pixels\n"
      "residuals  {:.3g} {} rms, {:.3g} at most\n"
      "held out   {:.2f}, residuals predicted from elsewhere over their uncertainty\n",
      result.stretches.empty() ? "points    " : "columns   ", result.used, result.given,
      result.noise, result.rms, unit, result.largest, result.heldOut);
  return text;
}

/// A value for each pixel of the sensor.
void write(UncertaintyFile& file, const MapUncertainty& uncertainty, const SensorSize& size,
           const Context& context) {
  file.begin(size.x, size.y);
  UncertaintyLayers layers;
  layers.resize(static_cast<std::size_t>(size.x));
  for (int row = 0; row < size.y; ++row) {
    for (int column = 0; column < size.x; ++column) {
      const PlaceCovariance at =
          uncertainty.at({static_cast<double>(column), static_cast<double>(row)});
      layers.set(static_cast<std::size_t>(column), at.xx, at.xz, at.zz);
    }
    file.writeRows(1, layers);
  }
  const char* const content = "uncertainty of a model over its sensor";
  OutputSidecar sidecar(file.sidecarPath(), content, context);
  file.describe(sidecar);
  sidecar.addMade({});
  file.finish(sidecar, content);
}

/// The page for people.
class ReportFile {
 public:
  ReportFile(const std::string& path, const Context& context)
      : file_(path, context.force), write_(pageWriter("--report", path)) {}

  void write(const Estimation& result, const Measurements& measurements,
             const EstimateOptions& options, const Context& context) {
    ReportSource source;
    source.files = options.points;
    source.unit = context.unit;
    source.pointTolerance = options.pointTolerance.value_or(0);
    source.isNoiseGiven = options.noise.has_value();
    source.isPlane = options.isPlane;
    file_.write(
        write_(estimationReport(result, shownResiduals(result, measurements.scans), source)));
  }

  void commit() { file_.commit(); }

 private:
  io::OutputFile file_;
  std::string (*write_)(const report::Document& page);
};

/// What scans of the target would tell of a camera such as that of the model.
void runPlan(const EstimateOptions& options, const Context& context) {
  if (options.target.empty()) throw CLI::RequiredError("--target");
  const auto model = io::loadModel(options.plan);
  const auto target = readTarget(options.target);
  EstimationOptions how;
  how.noise = options.noise.value_or(0);
  if (options.turn) how.turn = *options.turn * kDegree;
  const estimation::PosePlan plan = [&] {
    try {
      return planScans(model, *target, how, options.scans);
    } catch (const EstimationFailure& failure) {
      throw io::Failure(options.target, failure.what());
    }
  }();
  if (options.json) {
    const io::JsonText root;
    root.add("unit", context.unit);
    root.addList("scans", nullptr, 0);
    for (const estimation::PlannedScan& planned : plan.scans) {
      const io::JsonObject scan = root.appendTo("scans");
      scan.add("x", planned.x);
      scan.add("z", planned.z);
      scan.add("angle", planned.angle);
      scan.add("largest95", planned.largest95);
    }
    addUncertainty(root, plan.uncertainty, plan.uncertainty.parts().sensorSize);
    std::fputs(root.print().c_str(), stdout);
    return;
  }
  std::string text = fmt::format(
      "{} {} of the target, the most useful first:\n  scan  {:>9}  {:>9}  {:>7}  {}\n",
      plan.scans.size(), plan.scans.size() == 1 ? "scan" : "scans", "X (" + context.unit + ")",
      "Z (" + context.unit + ")", "tilt (\u00b0)", "known to (" + context.unit + ", 95 %)");
  for (std::size_t i = 0; i < plan.scans.size(); ++i) {
    const estimation::PlannedScan& scan = plan.scans[i];
    text += fmt::format("  {:>4}  {:>9.2f}  {:>9.2f}  {:>7.0f}  {:.2g}\n", i + 1, scan.x, scan.z,
                        scan.angle / kDegree, scan.largest95);
  }
  std::fputs(text.c_str(), stdout);
}

void runEstimate(const EstimateOptions& options, const Context& context) {
  if (!options.plan.empty()) return runPlan(options, context);
  if (options.points.empty()) throw CLI::RequiredError("POINTS");
  if (options.output.empty()) throw CLI::RequiredError("--output");
  if (options.sensor.empty()) throw CLI::RequiredError("--sensor");
  const SensorSize size = sensorSizeOf(options.sensor);
  std::vector<std::string> inputs = options.points;
  for (const std::string& file : {options.target, options.poses}) {
    if (!file.empty()) inputs.push_back(file);
  }
  io::requireNoInput(options.output, inputs);
  if (!options.uncertainty.empty()) io::requireNoInput(options.uncertainty, inputs);
  if (!options.report.empty()) io::requireNoInput(options.report, inputs);
  io::OutputFile document(options.output, context.force);
  std::optional<UncertaintyFile> uncertainty;
  if (!options.uncertainty.empty()) uncertainty.emplace(options.uncertainty, context);
  std::optional<ReportFile> report;
  if (!options.report.empty()) report.emplace(options.report, context);

  const Measurements measurements = read(options, size);
  const Estimation result = estimate(options, measurements, size, context.unit);
  if (options.json || !context.quiet) {
    const std::string text = options.json ? jsonText(result, measurements, size, context.unit)
                                          : plainText(result, context.unit);
    std::fputs(text.c_str(), stdout);
  }
  if (report) report->write(result, measurements, options, context);
  if (result.verdict() == Verdict::kBad && !options.evenIfBad) {
    if (report) report->commit();  // it helps then
    throw io::Failure(options.output,
                      "was not written, since the model is bad; see the reasons above");
  }
  document.write(documentOf(result.model, result.uncertainty) + "\r\n");
  if (uncertainty) {
    write(*uncertainty, result.uncertainty, size, context);
    uncertainty->commit();
  }
  if (report) report->commit();
  document.commit();
}

}  // namespace

void addEstimateCommand(CLI::App& app, Context& context) {
  const auto options = std::make_shared<EstimateOptions>();
  CLI::App* command = app.add_subcommand(
      "estimate", "Estimate a model from what was measured, and tell how well it is known");
  command->add_option(
      "POINTS", options->points,
      "Measured points: text with columns u and v (sensor column and row), x and z "
      "(in the laser plane; one of them may be empty), and where there are several "
      "measurements, scan; sigma, in pixels, weights the points; or an NPY of float32 or "
      "float64, u, v, x and z in four columns, NaN where one is not known. Or scans of a "
      "target: the same without x and z, or range images, one a scan");
  command
      ->add_option(
          "--target", options->target,
          "What was scanned: JSON with the corners of its section from left to right, the "
          "material below, and the standard uncertainty of a corner: {\"profile\": "
          "[[0, 0], [5, 4], ...], \"tolerance\": 0.003}; also scaleTolerance [0], relative, "
          "and margin [0.5], what is left out beside corners")
      ->type_name("FILE.json");
  command
      ->add_option("--plan", options->plan,
                   "Measure nothing: tell which scans of the target say most of a camera such as "
                   "this one, and how well they would make it known; with --target")
      ->type_name("MODEL");
  command
      ->add_option("--poses", options->poses,
                   "Where the target stood in scans, as far as that is known: text with the "
                   "columns scan, x, z, angle (in degrees), sx, sz, sangle, their standard "
                   "uncertainties; an empty one is not known")
      ->needs("--target")
      ->excludes("--plan")
      ->type_name("FILE.csv");
  command->add_option("--scans", options->scans, "Scans to plan [12]")
      ->check(CLI::Range(1, 64))
      ->type_name("N");
  const auto direction = [&](const char* name, std::string& value, const char* axis,
                             const char* lines) {
    command
        ->add_option(name, value,
                     fmt::format("Which way {} goes on the sensor, where the target looks the same "
                                 "another way round",
                                 axis))
        ->check(CLI::IsMember({fmt::format("with-{}", lines), fmt::format("against-{}", lines)}))
        ->type_name("WAY");
  };
  direction("--up", options->up, "Z", "rows");
  direction("--right", options->right, "X", "columns");
  addRangeOptions(*command, options->range);
  command->add_option("-o,--output", options->output, "Model document to write")
      ->type_name("MODEL");
  command->add_option("--sensor", options->sensor, "Columns and rows of the sensor: 2560x1024")
      ->type_name("WxH");
  const NumberRule positive{[](double value) { return value > 0; }, "must be above 0"};
  const NumberRule notNegative{[](double value) { return value >= 0; }, "must be 0 or more"};
  addNumberOption(*command, "--focal", options->focalLength,
                  "Focal length of the document in pixels, a convention: nothing measured in one "
                  "plane determines it [half the diagonal of the sensor]",
                  positive);
  addNumberOption(*command, "--point-tolerance", options->pointTolerance,
                  "Standard uncertainty of the points, in X and in Z [0]", notNegative);
  addNumberOption(*command, "--noise", options->noise,
                  "Standard deviation of u and v in pixels [from the residuals]", positive);
  addNumberOption(*command, "--turn", options->turn,
                  "Standard uncertainty of how far targets are turned out of the laser plane, in "
                  "degrees [0.5]",
                  notNegative);
  addNumberOption(*command, "--tolerance", options->tolerance,
                  "Uncertainty (95 %) that is needed; beyond it the model is bad", positive);
  command->add_flag("--no-sheet-curve", options->isPlane, "Take the laser sheet for a plane");
  command
      ->add_option("--uncertainty", options->uncertainty,
                   "Standard uncertainties of X and of Z and their correlation, a value for each "
                   "pixel of the sensor; FILE.json describes it")
      ->type_name("FILE.tif");
  command
      ->add_option(
          "--report", options->report,
          "Page for people: verdict, pictures of uncertainty and residuals, which scan of a "
          "target to take next, tables of scans and terms; also written when the model is "
          "bad")
      ->type_name("FILE.html|FILE.pdf");
  command->add_flag("--even-if-bad", options->evenIfBad, "Write the model also when it is bad");
  command->add_flag("--json", options->json, "Print JSON");
  addUnitOption(*command, context);
  addForceOption(*command, context);
  addQuietOption(*command, context);
  command->footer(
      "Points come from any source: a stage, a pattern held in the laser plane, a coordinate "
      "measuring machine. A good set has some hundred of them all over the sensor. Points that "
      "contradict the others are left out, and named with --json.\n\n"
      "A target is machined, of straight edges: a sawtooth with flanks of 20 to 60 degrees that "
      "fills the field. It is scanned at rest, at four heights over the whole range, at each level "
      "and tilted by some 10 degrees either way in the laser plane; where it stands need not be "
      "known. What a stage or gauge blocks tell of it, --poses gives; a flat plate needs that.\n\n"
      "The verdict is good, doubtful (there are warnings) or bad; then there is no model, and the "
      "exit status is 1.\n\n"
      "Examples:\n"
      "  planex estimate points.csv --sensor 2560x1024 -o model.json --report report.html\n"
      "  planex estimate stage.csv cmm.csv --sensor 2560x1024 --point-tolerance 0.002 "
      "--uncertainty map.tif -o model.json\n"
      "  planex estimate scan*.png --target saw.json --up against-rows --right with-columns "
      "--sensor 2560x1024 -o model.json\n"
      "  planex estimate --plan model.json --target saw.json");
  command->callback([options, &context] { runEstimate(*options, context); });
}

}  // namespace planex::tools
