#pragma once

#include <array>
#include <cstddef>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "planex/estimation/map_uncertainty.h"
#include "planex/estimation/target_profile.h"
#include "planex/foundation/vec.h"
#include "planex/infra/export.h"
#include "planex/model/calibration_model.h"

namespace planex::estimation {

/// Where a target stands as far as that is known, from a stage or gauge blocks; NaN: it is not.
struct TargetPose {
  /// Stands for a number that is not known.
  static constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();
  /// @{
  /// Of the target's origin, and its angle in radians.
  double x = kUnknown, z = kUnknown, angle = kUnknown;
  /// @}
  /// @{
  /// Standard uncertainties; 0: exact.
  double ofX = 0, ofZ = 0, ofAngle = 0;
  /// @}
};

/// What one scan contributes: sensor pixels whose places in the laser plane are known, from any
/// source; a stage, a pattern held in the plane, a coordinate measuring machine. Or the profile of
/// a target, which stood still, anywhere.
struct ScanMeasurement {
  std::string name;                            ///< what messages call it
  std::vector<cmnalg::Vec<2, double>> pixels;  ///< sensor column and row
  /// As many: X and Z. NaN stands for one that is not known. None where there is a target.
  std::vector<cmnalg::Vec<2, double>> points;
  /// As many, or none: standard deviations of the pixels, relative to each other.
  std::vector<double> deviations;
  /// What was measured, if no points are given. Scans of one target share it.
  std::shared_ptr<const TargetProfile> target;
  TargetPose pose;  ///< of the target
};

/// How to estimate.
struct EstimationOptions {
  cmnalg::Vec<2, int> sensorSize;  ///< columns and rows
  /// In pixels, a convention: nothing that is measured in one plane determines it. 0: half the
  /// diagonal of the sensor.
  double focalLength = 0;
  double pointTolerance = 0;  ///< standard uncertainty of the points, in X and in Z
  /// Standard deviation of a pixel, the same along columns and rows; 0: estimated.
  double noise = 0;
  double neededUncertainty = std::numeric_limits<double>::infinity();  ///< at 95 %, to be good for
  bool hasSheetCurve = true;  ///< false: the sheet is plane
  /// @{
  /// Which way Z and X go on the sensor: 1 with the rows and columns, -1 against them; 0: as the
  /// targets look, and where they look the same, Z against the rows and X with the columns.
  int up = 0, right = 0;
  /// @}
  /// Standard uncertainty of how far targets are turned out of the laser plane, in radians.
  double turn = 0.008726646259971648;
  std::string unit = "mm";  ///< for texts
};

/// How good a calibration is; a greater one is worse.
enum class Verdict { kGood, kDoubtful, kBad };

/// A reason of the verdict.
struct Finding {
  Verdict level;     ///< kDoubtful or kBad
  const char* code;  ///< one word: "residual"
  std::string text;  ///< a sentence
};

/// How a scan fits.
struct ScanFit {
  std::string name;                   ///< that of the measurement
  std::vector<std::size_t> rejected;  ///< places in the lists of the scan
  std::size_t given = 0;              ///< pixels
  std::size_t leftOut = 0;            ///< those near corners of the target, or beside it
  double rms = 0;                     ///< of the distances of those used, in the length unit
  /// @{
  /// Of a target: whether it was found, and where it stands, the angle in radians. Along a target
  /// whose parts look alike the place is one of several.
  bool isFound = true;
  double x = 0, z = 0, angle = 0;
  /// @}
  /// Of a target: from where the model puts each pixel to the edge, in the calibrated system; NaN
  /// where it was left out.
  std::vector<cmnalg::Vec<2, double>> residuals;
  /// Of a target: residuals as the other scans predict them, over their uncertainty; 0: too short
  /// to tell.
  double heldOut = 0;
};

/// By which part a target is wider than its description says, if heights are what it says; NaN of a
/// plate, whose width says nothing.
struct TargetStretch {
  double stretch = 0;    ///< 0.003: by 0.3 %
  double deviation = 0;  ///< standard uncertainty
};

/// A scan that is worth taking.
struct PlannedScan {
  /// @{
  /// Where the target's origin stands in the calibrated system, and its angle in radians.
  double x = 0, z = 0, angle = 0;
  /// @}
  /// The longest half axis of a 95 % ellipse over the sensor's middle nine tenths, with the scans
  /// up to this one.
  double largest95 = 0;
};

/// The scan that would tell most beside those that there are.
struct NextScan {
  PlannedScan scan;            ///< where its target stands
  std::size_t target = 0;      ///< which, as scans name them first
  double largest95Before = 0;  ///< what its largest95 is without it
};

/// A model and what is known about it.
struct PLANEX_EXPORT Estimation {
  datafusion::planex::CalibrationModel model;  ///< what was estimated
  MapUncertainty uncertainty;                  ///< of its map from the sensor to the plane
  std::vector<Finding> findings;               ///< reasons to doubt it
  std::vector<ScanFit> scans;                  ///< in the order of the measurements
  std::vector<TargetStretch> stretches;        ///< of the targets, as scans name them first
  /// Of the poses that planScans() chooses from, that which lowers the mean variance of the map the
  /// most. None without a target, nor where the model is bad by more than its uncertainty.
  std::optional<NextScan> next;
  /// Whether neither points nor poses say where the frame is, or poses not all of it: it is that of
  /// one of the targets, and the uncertainty that of shapes.
  bool isFrameFree = false;
  double noise = 0;        ///< standard deviation of a pixel, in pixels
  double rms = 0;          ///< of the distances of the points used, in the length unit
  double largest = 0;      ///< of these distances
  std::size_t given = 0;   ///< measurements, without those left out
  std::size_t used = 0;    ///< those that were not rejected
  double correlation = 1;  ///< by which the covariance of independent residuals was multiplied
  /// Residuals of a fifth of the measured area, predicted from the others, over their uncertainty;
  /// root of the mean square. Where there are targets, of scans.
  double heldOut = 0;
  double measured = 0;   ///< part of the sensor that was measured
  double largest95 = 0;  ///< the longest half axis of a 95 % ellipse in the measured area

  /// The worst level of the findings.
  Verdict verdict() const;
  /// "Good: over 84 % of the sensor the map is known to 0.0029 mm (95 %)."
  std::string sentence(const std::string& unit) const;
  /// What to measure next and what it would give, in one sentence; empty where that is nothing.
  std::string advice(const std::string& unit) const;
};

/// Why there is no model, in one sentence that says what to do.
class PLANEX_EXPORT EstimationFailure : public std::runtime_error {
 public:
  /// In place of a measurement.
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  /// @param text  one sentence, without the name of a file
  explicit EstimationFailure(const std::string& text, std::size_t scan = kNone,
                             std::size_t point = kNone)
      : std::runtime_error(text), scan_(scan), point_(point) {}
  ~EstimationFailure() override;

  /// @{
  /// The measurement that is to blame, by its place in the lists; kNone: none alone.
  std::size_t scan() const { return scan_; }
  std::size_t point() const { return point_; }
  /// @}

 private:
  std::size_t scan_, point_;
};

/// Estimates the camera model from measurements of the laser plane.
///
/// All terms that measurements can determine are estimated, each held by a weak expectation in
/// pixels of its effect, and none is selected: what the data are silent about gets a large
/// uncertainty. Points that contradict the others are left out, and named. The covariance takes in
/// noise and its correlation between neighbours, the tolerance of the points, and other minima.
///
/// The calibrated system is that of the points, or of the poses that are given, unless X is turned
/// against the rows of the sensor by more than a degree. Then its X runs along the rows, since the
/// sheet curve moves points along Z, and the pose of the model leads back to the points: ALIGNED
/// states of the model say so.
///
/// The same input gives the same bits, on one thread. Any number of threads may call it.
/// Throws EstimationFailure where no model can be had from such measurements.
PLANEX_EXPORT Estimation estimateModel(const std::vector<ScanMeasurement>& scans,
                                       const EstimationOptions& options);

}  // namespace planex::estimation
