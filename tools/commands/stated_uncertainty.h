#pragma once

#include <fmt/format.h>
#include <planex/model/calibration_model.h>

#include <memory>
#include <optional>
#include <string>

#include "planex/report/model_page.h"

namespace planex::tools {

// What model documents state of their uncertainty: the member that `planex estimate` writes.

/// For people.
struct StatedUncertainty {
  double largest95;   ///< at most over the measured part of the sensor, at 95 %
  double measured;    ///< that part
  double noise;       ///< of a pixel, in pixels
  const char* frame;  ///< "fixed" or "rigid"

  /// How large it is.
  std::string summary(const std::string& unit) const {
    return fmt::format(
        "{:.2g} {} (95 %) at most over the {:.0f} % of the sensor that were measured", largest95,
        unit, 100 * measured);
  }
  /// What it rests on.
  std::string basis() const { return fmt::format("frame {}, noise {:.3g} pixels", frame, noise); }
};

/// Nothing for a document without, and in a planex without estimation. A statement of no use is
/// told of as a warning.
/// @param name  of the file
std::optional<StatedUncertainty> statedUncertainty(const std::string& document,
                                                   const std::string& name);

/// The same for a page, with a map; or why there is none.
report::UncertaintyPart uncertaintyPart(const std::string& document, const std::string& unit);

/// Why the statement of a document is of no use; empty where it is of use, or not there, and in a
/// planex without estimation.
std::string faultOfUncertainty(const std::string& document);

/// The document of a model made from another document, with the uncertainty that the other one
/// states as long as the model has the same map. Nothing where it states none, and in a planex
/// without estimation; one that is lost is told of as a warning.
/// @param name  of the file of the other one
std::optional<std::string> withStatedUncertainty(const datafusion::planex::CalibrationModel& model,
                                                 bool pretty, const std::string& other,
                                                 const std::string& name);

/// A covariance of X with Z.
struct PlaneCovariance {
  /// @{
  /// Of X, of X with Z, of Z, in squared length units.
  double xx, xz, zz;
  /// @}
};

/// Covariances of the laser plane by sensor places.
class PlaneUncertainty {
 public:
  PlaneUncertainty() = default;
  virtual ~PlaneUncertainty() = default;
  PlaneUncertainty(const PlaneUncertainty&) = delete;
  PlaneUncertainty& operator=(const PlaneUncertainty&) = delete;

  /// Any thread.
  virtual PlaneCovariance at(double column, double row) const = 0;
};

/// What --uncertainty evaluates. A Failure for a document that states none, or one of no use, and
/// in a planex without estimation.
/// @param rowNoise  standard deviation of a measured row in pixels, added; 0: the model alone
std::unique_ptr<const PlaneUncertainty> requireUncertainty(const std::string& document,
                                                           const std::string& name,
                                                           double rowNoise);

}  // namespace planex::tools
