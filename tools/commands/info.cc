#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/commands/commands.h"
#include "tools/images/raster.h"
#include "tools/support/failure.h"
#include "tools/support/json.h"
#include "tools/support/model_file.h"
#include "tools/support/model_plot.h"
#include "tools/support/model_summary.h"
#include "tools/support/output_file.h"

namespace planex_tools {
namespace {

using datafusion::planex::CalibrationModel;

struct InfoOptions {
  std::string model, plot;
  bool json = false;
};

/// What is told of a model.
struct Facts {
  const CalibrationModel& model;
  const std::string& unit;
  std::optional<FieldOfView> view;
  std::string noView;  // why there is none
  std::optional<RegionSummary> region;
};

std::string errorText(double error, double maximum, const std::string& unit) {
  if (error == CalibrationModel::kNeverSet) return "never set";
  if (maximum == CalibrationModel::kNeverSet) return fmt::format("{} {}", error, unit);
  return fmt::format("{} {}, at most {} {}", error, unit, maximum, unit);
}

template <typename List>
std::string listText(const List& values) {
  std::string text;
  for (const double value : values)
    text += fmt::format("{}{:.8g}", text.empty() ? "" : "  ", value);
  return text;
}

/// One line a row, the first behind the title.
std::string matrixText(const char* title, const cmnalg::Matrix<double>& matrix) {
  std::string text = fmt::format("{:<19}{}", title, matrix.IsEmpty() ? "empty\n" : "");
  for (int row = 0; row < matrix.Height(); ++row) {
    if (row > 0) text += fmt::format("{:19}", "");
    for (int column = 0; column < matrix.Width(); ++column) {
      text += fmt::format("{:>14.8g}", matrix[row][column]);
    }
    text += '\n';
  }
  return text;
}

std::string resolutionText(const char* title, const Resolution& resolution,
                           const std::string& unit) {
  return fmt::format("{:<19}at Z {:.6g} {}: {:.4g} {} per column, {:.4g} {} per row\n", title,
                     resolution.z, unit, resolution.lateral, unit, resolution.height, unit);
}

std::string viewText(const Facts& facts) {
  if (!facts.view) return fmt::format("{:<19}none: {}\n", "field of view", facts.noView);
  const FieldOfView& view = *facts.view;
  return fmt::format("{:<19}X {:.6g} to {:.6g} {}, Z {:.6g} to {:.6g} {}\n", "field of view",
                     view.xMin, view.xMax, facts.unit, view.zMin, view.zMax, facts.unit) +
         resolutionText("near end", view.near, facts.unit) +
         resolutionText("far end", view.far, facts.unit);
}

std::string residualText(const char* title, const ResidualSummary& residual,
                         const std::string& unit) {
  return fmt::format("{:<19}mean {:.4g}, rms of cell means {:.4g}, at most {:.4g} {}\n", title,
                     residual.mean, residual.rms, residual.maximum, unit);
}

std::string regionText(const Facts& facts) {
  if (!facts.region) return fmt::format("{:<19}none\n", "calibrated region");
  const RegionSummary& region = *facts.region;
  const cmnalg::shape::Rectangle& area = region.area;
  return fmt::format(
             "{:<19}X {:.6g} to {:.6g} {}, Z {:.6g} to {:.6g} {}; {} points in {} of {} x {} "
             "cells\n",
             "calibrated region", area.Center.x - area.Width / 2, area.Center.x + area.Width / 2,
             facts.unit, area.Center.y - area.Height / 2, area.Center.y + area.Height / 2,
             facts.unit, region.points, region.filledCells, region.columns, region.rows) +
         residualText("  residuals in X", region.x, facts.unit) +
         residualText("  residuals in Z", region.z, facts.unit);
}

std::string plainText(const Facts& facts) {
  const CalibrationModel& m = facts.model;
  const auto& c = m.LensCoefficients;
  std::string text = m.toString() + "\n";
  const auto line = [&text](const char* title, const std::string& value) {
    text += fmt::format("{:<19}{}\n", title, value);
  };
  line("document", fmt::format("version {}, {}", m.FileVersion, stateToString(m.CurrentState)));
  line("sensor", fmt::format("{} x {} pixels", m.SensorSize.x, m.SensorSize.y));
  line("focal length", fmt::format("{} pixels", m.FocalLength));
  line("lens centre", fmt::format("column {}, row {}", m.LensCenter.x, m.LensCenter.y));
  line("lens terms", fmt::format("radial {:.8g}  {:.8g}  {:.8g}, tangential {:.8g}  {:.8g}, "
                                 "Scheimpflug {:.8g}  {:.8g}",
                                 c[0], c[1], c[2], c[3], c[4], c[5], c[6]));
  line("sheet curve", m.SheetCurve.empty() ? "none" : listText(m.SheetCurve));
  line("calibration error", errorText(m.CalibrationError, m.CalibrationErrorMax, facts.unit));
  line("alignment error", errorText(m.AlignmentError, m.AlignmentErrorMax, facts.unit));
  line("skew", fmt::format("{:.8g}  {:.8g}  {:.8g}, {}", m.Skew.x, m.Skew.y, m.Skew.z,
                           skewModeToString(m.SkewMode)));
  text += matrixText("homography", m.Homography) + matrixText("pose", m.Pose);
  return text + viewText(facts) + regionText(facts);
}

/// Null for an error that nobody has set.
void addError(cJSON* object, const char* name, double value) {
  cJSON_AddItemToObject(
      object, name, value == CalibrationModel::kNeverSet ? cJSON_CreateNull() : jsonNumber(value));
}

template <typename List>
cJSON* jsonArray(const List& values) {
  cJSON* array = cJSON_CreateArray();
  for (const double value : values) cJSON_AddItemToArray(array, jsonNumber(value));
  return array;
}

cJSON* jsonMatrix(const cmnalg::Matrix<double>& matrix) {
  cJSON* rows = cJSON_CreateArray();
  for (int row = 0; row < matrix.Height(); ++row) {
    cJSON_AddItemToArray(rows,
                         jsonArray(std::vector<double>(matrix[row], matrix[row] + matrix.Width())));
  }
  return rows;
}

void addView(cJSON* root, const std::optional<FieldOfView>& view) {
  if (!view) {
    cJSON_AddNullToObject(root, "fieldOfView");
    return;
  }
  cJSON* object = addObject(root, "fieldOfView");
  add(object, "xMin", view->xMin);
  add(object, "xMax", view->xMax);
  add(object, "zMin", view->zMin);
  add(object, "zMax", view->zMax);
  for (const auto& [name, resolution] : {std::pair{"near", view->near}, {"far", view->far}}) {
    cJSON* end = addObject(object, name);
    add(end, "z", resolution.z);
    add(end, "perColumn", resolution.lateral);
    add(end, "perRow", resolution.height);
  }
}

void addRegion(cJSON* root, const std::optional<RegionSummary>& region) {
  if (!region) {
    cJSON_AddNullToObject(root, "calibratedRegion");
    return;
  }
  cJSON* object = addObject(root, "calibratedRegion");
  const cmnalg::shape::Rectangle& area = region->area;
  add(object, "xMin", area.Center.x - area.Width / 2);
  add(object, "xMax", area.Center.x + area.Width / 2);
  add(object, "zMin", area.Center.y - area.Height / 2);
  add(object, "zMax", area.Center.y + area.Height / 2);
  add(object, "columns", static_cast<double>(region->columns));
  add(object, "rows", static_cast<double>(region->rows));
  add(object, "filledCells", static_cast<double>(region->filledCells));
  add(object, "points", static_cast<double>(region->points));
  for (const auto& [name, sums] : {std::pair{"residualX", region->x}, {"residualZ", region->z}}) {
    cJSON* residual = addObject(object, name);
    add(residual, "mean", sums.mean);
    add(residual, "rmsOfCellMeans", sums.rms);
    add(residual, "maximum", sums.maximum);
  }
}

std::string jsonText(const Facts& facts) {
  const CalibrationModel& m = facts.model;
  const Json json(cJSON_CreateObject());
  cJSON* root = json.get();
  add(root, "description", m.toString());
  add(root, "unit", facts.unit);
  add(root, "fileVersion", static_cast<double>(m.FileVersion));
  add(root, "state", stateToString(m.CurrentState));
  add(root, "skewMode", skewModeToString(m.SkewMode));
  cJSON* sensor = addObject(root, "sensorSize");
  add(sensor, "width", static_cast<double>(m.SensorSize.x));
  add(sensor, "height", static_cast<double>(m.SensorSize.y));
  add(root, "focalLength", m.FocalLength);
  cJSON* center = addObject(root, "lensCenter");
  add(center, "column", m.LensCenter.x);
  add(center, "row", m.LensCenter.y);
  cJSON_AddItemToObject(root, "lensCoefficients", jsonArray(m.LensCoefficients));
  cJSON_AddItemToObject(root, "sheetCurve", jsonArray(m.SheetCurve));
  addError(root, "calibrationError", m.CalibrationError);
  addError(root, "calibrationErrorMax", m.CalibrationErrorMax);
  addError(root, "alignmentError", m.AlignmentError);
  addError(root, "alignmentErrorMax", m.AlignmentErrorMax);
  cJSON_AddItemToObject(root, "skew", jsonArray(std::array{m.Skew.x, m.Skew.y, m.Skew.z}));
  cJSON_AddItemToObject(root, "homography", jsonMatrix(m.Homography));
  cJSON_AddItemToObject(root, "pose", jsonMatrix(m.Pose));
  addView(root, facts.view);
  addRegion(root, facts.region);
  return printJson(*root);
}

bool hasArea(const FieldOfView& view) {
  const double width = view.xMax - view.xMin;
  const double height = view.zMax - view.zMin;
  return width > 0 && height > 0 && std::isfinite(width) && std::isfinite(height);
}

void runInfo(const InfoOptions& options, const Context& context) {
  if (!options.plot.empty() && endingOf(options.plot) != ".png") {
    throw CLI::ValidationError("--plot", "'" + options.plot + "' does not end in .png");
  }
  const CalibrationModel model = loadModel(options.model);
  Facts facts{model, context.unit, {}, {}, {}};
  facts.view = fieldOfView(model, facts.noView);
  facts.region = summarizeRegion(model);
  if (!options.plot.empty()) {
    if (!facts.view) {
      throw Failure(options.model, "has nothing to plot (" + facts.noView + "); see planex check");
    }
    if (!hasArea(*facts.view)) {
      throw Failure(options.model,
                    "has no finite field of view to plot; see: planex check " + options.model);
    }
    OutputFile file(options.plot, context.force);
    plotModel(model, *facts.view, facts.region, context.unit, file);
    file.commit();
  }
  std::fputs((options.json ? jsonText(facts) : plainText(facts)).c_str(), stdout);
}

}  // namespace

void addInfoCommand(CLI::App& app, Context& context) {
  const auto options = std::make_shared<InfoOptions>();
  CLI::App* command = app.add_subcommand("info", "Tell what a model is and what it sees");
  command->add_option("MODEL", options->model, "Model document; - is standard input")->required();
  command->add_flag("--json", options->json, "Print JSON");
  command
      ->add_option("--plot", options->plot,
                   "Draw the field of view in X and Z, and the residuals, into a PNG")
      ->type_name("FILE.png");
  addUnitOption(*command, context);
  addForceOption(*command, context);
  command->footer(
      "Examples:\n"
      "  planex info model.json\n"
      "  planex info model.json --plot view.png\n"
      "  planex info model.json --json");
  command->callback([options, &context] { runInfo(*options, context); });
}

}  // namespace planex_tools
