#include "planex/report/model_page.h"

#include <fmt/format.h>
#include <planex/version.h>

#include <cmath>

#include "planex/model/model_state.h"
#include "planex/report/model_figure.h"
#include "planex/report/ticks.h"

namespace planex::report {
namespace {

using datafusion::planex::CalibrationModel;

constexpr double kWidth = 900;  // of pictures, in pixels

std::string lengthText(double value, int digits, const std::string& unit) {
  return figureText(value, digits) + (unit.empty() ? "" : "\u00A0" + unit);
}

std::string rangeText(double from, double to, const std::string& unit) {
  return figureText(from, 6) + " to " + lengthText(to, 6, unit);
}

std::string errorText(double error, double maximum, const std::string& unit) {
  if (error == CalibrationModel::kNeverSet) return "never set";
  std::string text = lengthText(error, 4, unit);
  if (maximum == CalibrationModel::kNeverSet) return text;
  return text + ", at most " + lengthText(maximum, 4, unit);
}

void addRecord(const FileRecord& file, Table& table) {
  table.add({file.role, fmt::format("{} ({} bytes)", file.path, file.identity.bytes)});
  table.add({"SHA-256", file.identity.sha256});
  for (const auto& [title, text] : file.lines) table.add({title, text});
}

Table modelTable(const ModelPart& part, const FileRecord& file) {
  const CalibrationModel& m = part.model;
  Table table;
  addRecord(file, table);
  table.add({"What it is", m.toString()});
  table.add({"Form", fmt::format("version {}, {}", m.FileVersion, stateToString(m.CurrentState))});
  table.add({"Sensor", fmt::format("{} columns and {} rows", m.SensorSize.x, m.SensorSize.y)});
  table.add({"Calibration error", errorText(m.CalibrationError, m.CalibrationErrorMax, part.unit)});
  table.add({"Alignment error", errorText(m.AlignmentError, m.AlignmentErrorMax, part.unit)});
  return table;
}

void addView(const ModelPart& part, const ModelFigure& figure, Document& page) {
  page.blocks.emplace_back(Heading{"What the sensor sees and resolves"});
  if (!part.view) {
    page.blocks.emplace_back(Paragraph{"The model has no field of view: " + part.noView});
    return;
  }
  const scan::FieldOfView& view = *part.view;
  if (!hasArea(view)) {
    page.blocks.emplace_back(Paragraph{"The model has no finite field of view."});
    return;
  }
  Table field;
  field.add({"Field of view", "X " + rangeText(view.xMin, view.xMax, part.unit) + ", Z " +
                                  rangeText(view.zMin, view.zMax, part.unit)});
  page.blocks.emplace_back(std::move(field));
  Table table;
  table.texts = 1;
  table.heading = {"Resolution", titleWithUnit("at Z", part.unit),
                   titleWithUnit("X of one sensor column", part.unit),
                   titleWithUnit("Z of one sensor row", part.unit)};
  for (const auto& [name, end] : {std::pair{"near end", view.near}, {"far end", view.far}}) {
    table.add({name, figureText(end.z, 6), figureText(end.lateral, 4), figureText(end.height, 4)});
  }
  page.blocks.emplace_back(std::move(table));
  page.blocks.emplace_back(Picture{
      drawView(figure, kWidth), "The field of view in X and Z, and the calibrated region", {}});
}

void addResiduals(const ModelPart& part, const ModelFigure& figure, Document& page) {
  page.blocks.emplace_back(Heading{"Residuals of the calibration"});
  if (!part.region) {
    page.blocks.emplace_back(Paragraph{
        "The model has no calibrated region, so nothing tells where it was calibrated and how "
        "large residuals were there."});
    return;
  }
  const scan::RegionSummary& region = *part.region;
  const auto& area = region.area;
  Table facts;
  facts.add(
      {"Calibrated region",
       "X " + rangeText(area.Center.x - area.Width / 2, area.Center.x + area.Width / 2, part.unit) +
           ", Z " +
           rangeText(area.Center.y - area.Height / 2, area.Center.y + area.Height / 2, part.unit)});
  facts.add({"Points", fmt::format("{} points in {} of {} x {} cells", region.points,
                                   region.filledCells, region.columns, region.rows)});
  page.blocks.emplace_back(std::move(facts));
  Table table;
  table.texts = 1;
  table.heading = {"Residuals", titleWithUnit("mean", part.unit),
                   titleWithUnit("rms of cell means", part.unit),
                   titleWithUnit("at most", part.unit)};
  for (const auto& [name, sums] : {std::pair{"in X", region.x}, {"in Z", region.z}}) {
    table.add(
        {name, figureText(sums.mean, 4), figureText(sums.rms, 4), figureText(sums.maximum, 4)});
  }
  page.blocks.emplace_back(std::move(table));
  if (figure.residuals.empty()) return;
  page.blocks.emplace_back(Picture{drawCells(figure.residuals, *ColorMap::find("viridis"), kWidth),
                                   "Maps of the residuals over the calibrated region",
                                   {}});
}

void addUncertainty(const UncertaintyPart& part, Document& page) {
  page.blocks.emplace_back(Heading{"Uncertainty"});
  if (!part.missing.empty()) {
    page.blocks.emplace_back(Paragraph{part.missing});
    return;
  }
  Table table;
  table.add({"Stated uncertainty", part.size});
  table.add({"Basis", part.basis});
  page.blocks.emplace_back(std::move(table));
  if (part.map) page.blocks.emplace_back(*part.map);
}

std::string shareText(std::int64_t part, std::int64_t all) {
  if (all == 0) return "none";
  return fmt::format("{} of {}, {:.1f} %", part, all,
                     100 * static_cast<double>(part) / static_cast<double>(all));
}

CellMap coverageMap(const ScanPart& scan) {
  CellMap map;
  map.title = "Measured part of the scan";
  map.columns = scan.coverage.columns;
  map.rows = scan.coverage.rows;
  map.least = {-0.5, scan.rows - 0.5};  // the first row is the upper one
  map.most = {scan.columns - 0.5, -0.5};
  for (int row = map.rows - 1; row >= 0; --row) {
    for (int column = 0; column < map.columns; ++column) {
      const double share =
          scan.coverage
              .shares[static_cast<std::size_t>(row) * static_cast<std::size_t>(map.columns) +
                      static_cast<std::size_t>(column)];
      map.values.push_back(share > 0 ? 100 * share : std::nan(""));
    }
  }
  map.xTitle = "column of the image";
  map.yTitle = "row of the image";
  map.unit = "%";
  map.missing = "nothing";
  map.range = {0, 100};
  map.trueToScale = false;
  return map;
}

void addScan(const ModelPart& part, const ScanPart& scan, Document& page) {
  const scan::ScanCoverage& coverage = scan.coverage;
  page.blocks.emplace_back(Heading{"What the scan covers"});
  Table table;
  table.add({"Scan", scan.name});
  table.add({"Image", fmt::format("{} columns and {} rows, Y ", scan.columns, scan.rows) +
                          rangeText(scan.firstY, scan.lastY, scan.isYLength ? part.unit : "rows")});
  table.add({"Measured", shareText(coverage.measured, coverage.values) + " of the values"});
  table.add({"Beyond the sensor", fmt::format("{} values", coverage.outside)});
  if (coverage.points > 0) {
    table.add({"Points", "X " + rangeText(coverage.xMin, coverage.xMax, part.unit) + ", Z " +
                             rangeText(coverage.zMin, coverage.zMax, part.unit)});
  }
  if (part.region && coverage.points > 0) {
    table.add({"In the calibrated region",
               shareText(coverage.inRegion, coverage.points) +
                   " of the points, in cells that have points of the calibration"});
  }
  page.blocks.emplace_back(std::move(table));
  page.blocks.emplace_back(
      Picture{drawCells({coverageMap(scan)}, *ColorMap::find("viridis"), kWidth),
              "Map of the measured part over columns and rows of the scan",
              {}});
}

/// But for the model, which stands above.
void addFiles(const std::vector<FileRecord>& files, Document& page) {
  if (files.size() < 2) return;
  page.blocks.emplace_back(Heading{"Other files"});
  for (std::size_t i = 1; i < files.size(); ++i) {
    Table table;
    addRecord(files[i], table);
    page.blocks.emplace_back(std::move(table));
  }
}

/// Around the points.
std::vector<Point> outlineOf(const scan::ScanCoverage& coverage) {
  if (coverage.points == 0) return {};
  return {{coverage.xMin, coverage.zMin},
          {coverage.xMax, coverage.zMin},
          {coverage.xMax, coverage.zMax},
          {coverage.xMin, coverage.zMax},
          {coverage.xMin, coverage.zMin}};
}

}  // namespace

Document modelPage(const ModelPart& part, const Verdict& verdict,
                   const UncertaintyPart& uncertainty, const std::optional<ScanPart>& scan,
                   const std::vector<FileRecord>& files) {
  const FileRecord& document = files.front();
  Document page{"Report on a camera model",
                {},
                fmt::format("planex {}, model {}", PLANEX_VERSION_STRING,
                            document.identity.sha256.substr(0, 16))};
  page.blocks.emplace_back(verdict);
  page.blocks.emplace_back(Heading{"The model"});
  page.blocks.emplace_back(modelTable(part, document));
  ModelFigure figure;
  if (part.view) figure = figureOf(part.model, *part.view, part.region, part.unit);
  if (scan) figure.scan = outlineOf(scan->coverage);
  addView(part, figure, page);
  addResiduals(part, figure, page);
  addUncertainty(uncertainty, page);
  if (scan) addScan(part, *scan, page);
  addFiles(files, page);
  page.blocks.emplace_back(Signature{{"Name", "Place and date", "Signature"}});
  return page;
}

}  // namespace planex::report
