#pragma once

#include <string>
#include <vector>

#include "planex/report/document.h"
#include "tools/commands/estimation_residuals.h"

namespace planex::tools {

/// What the report tells beside the estimation.
struct ReportSource {
  std::vector<std::string> files;
  std::string unit;
  double pointTolerance = 0;
  bool isNoiseGiven = false, isPlane = false;
};

/// A page: verdict, reasons, what was used, pictures of
/// the uncertainty and of residuals, and tables of scans and terms. The same estimation gives the
/// same bytes. Its length is bounded, however much was measured.
report::Document estimationReport(const estimation::Estimation& result,
                                  const std::vector<PlaceResidual>& residuals,
                                  const ReportSource& source);

}  // namespace planex::tools
