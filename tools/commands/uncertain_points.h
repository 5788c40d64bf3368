#pragma once

#include <planex/scan/point_rows.h>

#include "tools/commands/stated_uncertainty.h"
#include "tools/commands/uncertainty_file.h"

namespace planex::tools {

/// How a pose turns the laser plane: what X and Z become, but for what Y adds.
struct PlaneTurn {
  /// Of the aligned system, by the pose and skew of the model; else the identity. A Failure for a
  /// model without a usable pose.
  static PlaneTurn of(const datafusion::planex::CalibrationModel& model,
                      const std::string& modelName, bool aligned);

  /// Of what is turned.
  PlaneCovariance apply(const PlaneCovariance& covariance) const;

  double xByX = 1, xByZ = 0, zByX = 0, zByZ = 1;
};

/// Points with the uncertainties of their X and Z.
class UncertainPoints final : public scan::PointBlock {
 public:
  /// All outlive the object. See PointBlock.
  UncertainPoints(const scan::RangeScan& scan, const scan::YPositions& y, bool aligned,
                  const scan::IntensityImage* intensity, const io::PointWriter& writer,
                  const PlaneUncertainty& uncertainty, const PlaneTurn& turn);

  void process() override;

  const UncertaintyLayers& uncertainties() const { return layers_; }

 private:
  const scan::RangeScan& source_;
  const PlaneUncertainty& uncertainty_;
  const PlaneTurn turn_;
  std::vector<double> rows_;
  UncertaintyLayers layers_;
};

}  // namespace planex::tools
