#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "planex/foundation/vec.h"
#include "planex/infra/export.h"

namespace planex::estimation {

/// The covariance of a place in the laser plane, in squared length units.
struct PLANEX_EXPORT PlaceCovariance {
  /// @{
  /// Of X, of X with Z, of Z.
  double xx = 0, xz = 0, zz = 0;
  /// @}

  /// @{
  /// Standard uncertainties.
  double ofX() const;
  double ofZ() const;
  /// @}
  /// Of X with Z, -1 to 1.
  double correlation() const;
  /// The longer half axis of the ellipse that holds the truth in 95 % of cases.
  double radius95() const;
};

/// What is known of the way from the sensor to the laser plane: with which covariance, and where it
/// was measured.
///
///     S(u, v) = D C D^T + sum over other minima of  w / (1 + w) d d^T
///
/// D is the derivative of the place by the terms of the model, C their covariance, d the difference
/// to the place that the other minimum gives, and w how likely it is beside the best. Where the
/// frame is free, D and d are less that motion of the plane which makes them least over what was
/// measured.
///
/// Source: JCGM 102:2011, Extension to any number of output quantities, section 6.2; model
/// averaging for the other minima.
class PLANEX_EXPORT MapUncertainty {
 public:
  /// Another set of terms that the measurements permit.
  struct OtherMinimum {
    double weight;                 ///< exp of half the difference of chi-square, at most 1
    std::array<double, 21> terms;  ///< as those of Parts
  };
  /// Which frame the covariance is in.
  enum class Frame {
    kFixed,  ///< that of the places that were given: the calibrated system, or behind the pose
    kRigid,  ///< any: places of the plane are known but for a motion of all of them together
  };
  /// What the object is made of. Terms are in a frame of their own, whose axes are those of the
  /// calibrated system.
  struct Parts {
    double radius = 0;                             ///< what normalises sensor coordinates
    std::array<double, 21> terms{};                ///< of the estimate
    std::array<double, 441> covariance{};          ///< of the terms, row by row
    std::vector<OtherMinimum> others;              ///< beside the estimate
    std::vector<cmnalg::Vec<2, double>> measured;  ///< corners of the convex hull of all pixels
    cmnalg::Vec<2, double> shift;                  ///< their origin, in the calibrated system
    cmnalg::Vec<2, int> sensorSize;                ///< columns and rows
    double noise = 0;                              ///< of a pixel, in pixels
    Frame frame = Frame::kFixed;                   ///< of the covariance
  };
  /// Corners of a hull that are kept, spread over it; more would be of no use.
  static constexpr std::size_t kMostCorners = 4096;

  /// Without parts: of no model.
  MapUncertainty() = default;
  /// @param parts  `measured` may be any pixels; their hull is kept
  explicit MapUncertainty(Parts parts);

  /// @param pixel sensor column and row
  /// Any thread; NaN or infinite where the model has no place.
  PlaceCovariance at(cmnalg::Vec<2, double> pixel) const;
  /// Whether the pixel lies in the convex hull of the pixels that were measured.
  bool isMeasured(cmnalg::Vec<2, double> pixel) const;
  /// The part of the sensor that was measured.
  double measuredShare(cmnalg::Vec<2, int> sensorSize) const;
  /// The longest half axis of a 95 % ellipse over a grid of the measured part.
  double largestRadius95() const;
  /// Which frame the covariance is in: "fixed" or "rigid".
  const char* frameName() const;

  /// What it is made of.
  const Parts& parts() const { return parts_; }

 private:
  /// Of a motion: a shift of X and of Z, and a turn.
  static constexpr std::size_t kMotions = 3;
  using Motion = std::array<double, kMotions>;

  void fitMotions();

  Parts parts_;
  std::array<Motion, 21> ofTerms_{};  ///< that follow from a change of each term by 1
  std::vector<Motion> ofOthers_;      ///< that lead from the best to the other minima
};

}  // namespace planex::estimation
