#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "planex/io/file_identity.h"
#include "planex/model/calibration_model.h"
#include "planex/report/document.h"
#include "planex/scan/model_summary.h"
#include "planex/scan/scan_coverage.h"
#include "planex/scan/y_positions.h"

namespace planex::report {

/// A file that a page rests on.
struct FileRecord {
  std::string role;  ///< "Model"
  std::string path;
  io::FileIdentity identity;
  /// How it was made, as its sidecar tells: pairs of title and text.
  std::vector<std::pair<std::string, std::string>> lines;
};

/// What a model document states of its uncertainty.
struct UncertaintyPart {
  std::string missing;      ///< why there is none to be shown; empty where there is
  std::string size, basis;  ///< how large it is, and what that rests on
  std::optional<Picture> map;
};

/// What a scan covers.
struct ScanPart {
  std::string name;
  int columns = 0, rows = 0;
  double firstY = 0, lastY = 0;
  bool isYLength = true;  ///< else Y counts rows
  scan::ScanCoverage coverage;
};

/// What is told of a model to those who answer for it.
struct ModelPart {
  const datafusion::planex::CalibrationModel& model;
  std::string unit;
  std::optional<scan::FieldOfView> view;
  std::string noView;  ///< why there is none
  std::optional<scan::RegionSummary> region;
};

/// A page to be signed: verdict, model, what the sensor sees and resolves at both ends, residuals
/// over the calibrated region, uncertainty, what a scan covers, and the files all this comes from.
/// @param files  the document of the model first
Document modelPage(const ModelPart& part, const Verdict& verdict,
                   const UncertaintyPart& uncertainty, const std::optional<ScanPart>& scan,
                   const std::vector<FileRecord>& files);

}  // namespace planex::report
