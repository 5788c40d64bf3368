#include <fmt/format.h>
#include <planex/io/failure.h>
#include <planex/io/json.h>
#include <planex/io/model_file.h>
#include <planex/io/output_file.h>
#include <planex/io/provenance.h>
#include <planex/scan/model_summary.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "planex/report/model_figure.h"
#include "tools/cli/picture_options.h"
#include "tools/commands/commands.h"
#include "tools/commands/stated_uncertainty.h"

namespace planex::tools {
namespace {

using datafusion::planex::CalibrationModel;
using report::ColorMap;

struct InfoOptions {
  std::string model, plot, colors = "viridis";
  bool json = false;
};

/// What is told of a model.
struct Facts {
  const CalibrationModel& model;
  const std::string& unit;
  std::optional<scan::FieldOfView> view;
  std::string noView;  // why there is none
  std::optional<scan::RegionSummary> region;
  std::optional<StatedUncertainty> uncertainty;
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

std::string resolutionText(const char* title, const scan::Resolution& resolution,
                           const std::string& unit) {
  return fmt::format("{:<19}at Z {:.6g} {}: {:.4g} {} per column, {:.4g} {} per row\n", title,
                     resolution.z, unit, resolution.lateral, unit, resolution.height, unit);
}

std::string viewText(const Facts& facts) {
  if (!facts.view) return fmt::format("{:<19}none: {}\n", "field of view", facts.noView);
  const scan::FieldOfView& view = *facts.view;
  return fmt::format("{:<19}X {:.8g} to {:.8g} {}, Z {:.8g} to {:.8g} {}\n", "field of view",
                     view.xMin, view.xMax, facts.unit, view.zMin, view.zMax, facts.unit) +
         resolutionText("near end", view.near, facts.unit) +
         resolutionText("far end", view.far, facts.unit);
}

std::string residualText(const char* title, const scan::ResidualSummary& residual,
                         const std::string& unit) {
  return fmt::format("{:<19}mean {:.4g}, rms of cell means {:.4g}, at most {:.4g} {}\n", title,
                     residual.mean, residual.rms, residual.maximum, unit);
}

std::string regionText(const Facts& facts) {
  if (!facts.region) return fmt::format("{:<19}none\n", "calibrated region");
  const scan::RegionSummary& region = *facts.region;
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

std::string uncertaintyText(const Facts& facts) {
  if (!facts.uncertainty) return {};
  const StatedUncertainty& stated = *facts.uncertainty;
  return fmt::format("{:<19}{}\n{:<19}{}\n", "uncertainty", stated.summary(facts.unit), "",
                     stated.basis());
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
  return text + viewText(facts) + regionText(facts) + uncertaintyText(facts);
}

/// Null for an error that nobody has set.
void addError(const io::JsonObject& object, const char* name, double value) {
  if (value == CalibrationModel::kNeverSet) {
    object.addNull(name);
  } else {
    object.add(name, value);
  }
}

void addView(const io::JsonObject& root, const std::optional<scan::FieldOfView>& view) {
  if (!view) {
    root.addNull("fieldOfView");
    return;
  }
  const io::JsonObject object = root.addObject("fieldOfView");
  object.add("xMin", view->xMin);
  object.add("xMax", view->xMax);
  object.add("zMin", view->zMin);
  object.add("zMax", view->zMax);
  for (const auto& [name, resolution] : {std::pair{"near", view->near}, {"far", view->far}}) {
    const io::JsonObject end = object.addObject(name);
    end.add("z", resolution.z);
    end.add("perColumn", resolution.lateral);
    end.add("perRow", resolution.height);
  }
}

void addRegion(const io::JsonObject& root, const std::optional<scan::RegionSummary>& region) {
  if (!region) {
    root.addNull("calibratedRegion");
    return;
  }
  const io::JsonObject object = root.addObject("calibratedRegion");
  const cmnalg::shape::Rectangle& area = region->area;
  object.add("xMin", area.Center.x - area.Width / 2);
  object.add("xMax", area.Center.x + area.Width / 2);
  object.add("zMin", area.Center.y - area.Height / 2);
  object.add("zMax", area.Center.y + area.Height / 2);
  object.add("columns", region->columns);
  object.add("rows", region->rows);
  object.add("filledCells", region->filledCells);
  object.add("points", static_cast<double>(region->points));
  for (const auto& [name, sums] : {std::pair{"residualX", region->x}, {"residualZ", region->z}}) {
    const io::JsonObject residual = object.addObject(name);
    residual.add("mean", sums.mean);
    residual.add("rmsOfCellMeans", sums.rms);
    residual.add("maximum", sums.maximum);
  }
}

std::string jsonText(const Facts& facts) {
  const CalibrationModel& m = facts.model;
  io::JsonText root;
  root.add("description", m.toString());
  root.add("unit", facts.unit);
  root.add("fileVersion", m.FileVersion);
  root.add("state", stateToString(m.CurrentState));
  root.add("skewMode", skewModeToString(m.SkewMode));
  const io::JsonObject sensor = root.addObject("sensorSize");
  sensor.add("width", m.SensorSize.x);
  sensor.add("height", m.SensorSize.y);
  root.add("focalLength", m.FocalLength);
  const io::JsonObject center = root.addObject("lensCenter");
  center.add("column", m.LensCenter.x);
  center.add("row", m.LensCenter.y);
  root.addList("lensCoefficients", m.LensCoefficients);
  root.addList("sheetCurve", m.SheetCurve);
  addError(root, "calibrationError", m.CalibrationError);
  addError(root, "calibrationErrorMax", m.CalibrationErrorMax);
  addError(root, "alignmentError", m.AlignmentError);
  addError(root, "alignmentErrorMax", m.AlignmentErrorMax);
  root.addList("skew", std::array{m.Skew.x, m.Skew.y, m.Skew.z});
  root.addRows("homography", m.Homography);
  root.addRows("pose", m.Pose);
  addView(root, facts.view);
  addRegion(root, facts.region);
  if (facts.uncertainty) {
    const io::JsonObject stated = root.addObject("uncertainty");
    stated.add("largest95", facts.uncertainty->largest95);
    stated.add("support", facts.uncertainty->measured);
    stated.add("frame", facts.uncertainty->frame);
    stated.add("noise", facts.uncertainty->noise);
  }
  return root.print();
}

/// What the sidecar of an output tells; a Failure behind it where it tells of another file.
void printProvenance(const InfoOptions& options, const io::Provenance& provenance) {
  if (!options.plot.empty()) throw CLI::ValidationError("--plot", "needs a model document");
  std::string text;
  for (const auto& [title, value] : provenance.lines) {
    text += fmt::format("{:<18} {}\n", title, value);
  }
  std::fputs(options.json ? provenance.json.c_str() : text.c_str(), stdout);
  if (provenance.fault.empty()) return;
  std::fflush(stdout);
  throw io::Failure(provenance.sidecar,
                    provenance.fault + "; keep outputs and their sidecars together");
}

void runInfo(const InfoOptions& options, const Context& context) {
  if (!options.plot.empty()) pictureFormat("--plot", options.plot);
  if (const auto provenance = io::readProvenance(options.model)) {
    printProvenance(options, *provenance);
    return;
  }
  std::string sha256, document;
  const CalibrationModel model = io::loadModel(options.model, sha256, document);
  Facts facts{model, context.unit, {}, {}, {}, statedUncertainty(document, options.model)};
  facts.view = scan::fieldOfView(model, facts.noView);
  facts.region = scan::summarizeRegion(model);
  if (!options.plot.empty()) {
    if (!facts.view) {
      throw io::Failure(options.model,
                        "has nothing to plot (" + facts.noView + "); see planex check");
    }
    if (!report::hasArea(*facts.view)) {
      throw io::Failure(options.model,
                        "has no finite field of view to plot; see: planex check " + options.model);
    }
    io::requireNoInput(options.plot, {options.model});
    io::OutputFile file(options.plot, context.force);
    file.write(drawModel(report::figureOf(model, *facts.view, facts.region, context.unit),
                         *ColorMap::find(options.colors))
                   .file(pictureFormat("--plot", options.plot)));
    file.commit();
  }
  std::fputs((options.json ? jsonText(facts) : plainText(facts)).c_str(), stdout);
}

}  // namespace

void addInfoCommand(CLI::App& app, Context& context) {
  const auto options = std::make_shared<InfoOptions>();
  CLI::App* command =
      app.add_subcommand("info", "Tell what a model is and sees, or how an output was made");
  command
      ->add_option("MODEL", options->model,
                   "Model document, - is standard input; or an output or its sidecar")
      ->required();
  command->add_flag("--json", options->json, "Print JSON");
  command
      ->add_option("--plot", options->plot,
                   "Draw the field of view in X and Z, and the residuals: .png or .svg")
      ->type_name("PICTURE");
  addColorsOption(*command, options->colors);
  addUnitOption(*command, context);
  addForceOption(*command, context);
  command->footer(
      "Examples:\n"
      "  planex info model.json\n"
      "  planex info model.json --plot view.png\n"
      "  planex info model.json --json\n"
      "  planex info height.tif");
  command->callback([options, &context] { runInfo(*options, context); });
}

}  // namespace planex::tools
