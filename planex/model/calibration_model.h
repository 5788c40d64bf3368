#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>

#include "planex/foundation/matrix.h"
#include "planex/foundation/transform.h"
#include "planex/foundation/vec.h"
#include "planex/infra/containers.h"
#include "planex/infra/export.h"
#include "planex/infra/visitable.h"
#include "planex/model/calibrated_region.h"
#include "planex/model/model_state.h"

namespace datafusion::planex {

/// The model of a laser-line triangulation camera.
///
/// A sensor pixel becomes a point of the laser plane by normalisation (FocalLength, LensCenter),
/// lens correction (LensCoefficients), projection (Homography) and, where there is one, the sheet
/// curve; a pose, corrected for the skew of the scan direction, carries it on into an aligned
/// system. Setters check what they are given; whoever fills the fields directly sets CurrentState.
///
/// Refusals are one warning on the logger "Image.Planex.Model" and false, the model unchanged.
/// Reading a model from several threads is safe; changing it is not.
class PLANEX_EXPORT CalibrationModel final : public etl::IVisitable {
 public:
  /// An error figure that nobody has set.
  static constexpr double kNeverSet = std::numeric_limits<double>::max();

  std::int32_t FileVersion = 2;                        ///< of the document read, and to be written
  ModelState CurrentState = ModelState::UNCALIBRATED;  ///< what mappings rely on
  /// How the skew enters the pose.
  datafusion::planex::SkewMode SkewMode = datafusion::planex::SkewMode::XZ_IN_LIGHT_PLANE;
  double CalibrationError = kNeverSet;            ///< what calibration left over; in no formula
  double CalibrationErrorMax = kNeverSet;         ///< its maximum
  double AlignmentError = kNeverSet;              ///< what alignment left over; in no formula
  double AlignmentErrorMax = kNeverSet;           ///< its maximum
  double FocalLength = 10000.0;                   ///< in pixels
  cmnalg::Vec<2, double> LensCenter{-1.0, -1.0};  ///< in pixels; negative: never set
  std::array<double, 7> LensCoefficients{};       ///< c0 ... c6, see basic::undistort
  cmnalg::Vec<3, double> Skew{0.0, 1.0, 0.0};     ///< scan direction, not normalised
  cmnalg::Matrix<double> Homography;              ///< 3 x 3, undistorted sensor to laser plane
  cmnalg::Matrix<double> Pose;                    ///< 4 x 4, calibrated to aligned
  etl::Vector<double> SheetCurve;                 ///< empty, or s0 ... s5
  cmnalg::Vec<2, std::int32_t> SensorSize{0, 0};  ///< width and height in pixels
  /// Where in the laser plane the calibration was supported by points.
  datafusion::planex::CalibratedRegion CalibratedRegion;

  /// An uncalibrated model with the defaults above, identity homography and pose.
  CalibrationModel();
  /// @{
  /// Copies share the images of the region until one side changes them. Without memory for the
  /// copy the target of an assignment stays as it was.
  CalibrationModel(const CalibrationModel& other);
  CalibrationModel(CalibrationModel&& other) noexcept;
  CalibrationModel& operator=(const CalibrationModel& other);
  CalibrationModel& operator=(CalibrationModel&& other) noexcept;
  /// @}
  ~CalibrationModel() override;

  /// c0 ... c4; anything is accepted.
  bool setLensCorrection(const double& c0, const double& c1, const double& c2, const double& c3,
                         const double& c4);
  /// c5 and c6; anything is accepted.
  bool setScheimpflug(double c5, double c6);
  /// Refuses a vector whose length or |y| is at most 1e-13: "Skew vector cannot have zero norm or
  /// have zero contribution skewed the image Y-direction."
  bool setSkew(double x, double y, double z);
  /// Refuses a transform more general than SIMILARITY by its stored type: "The input pose is not a
  /// valid similarity transform."
  bool setPose(const cmnalg::math::Transform<3, double>& pose);
  /// Refuses a transform whose stored type is none: "The input is not a valid homography
  /// transform."
  bool setHomography(const cmnalg::math::Transform<2, double>& homography);
  /// Makes it six coefficients long; anything is accepted.
  bool setSheetCurve(const double& s0, const double& s1, const double& s2, const double& s3,
                     const double& s4, const double& s5);

  /// Back to uncalibrated: lens coefficients, homography, pose, skew, state and errors take their
  /// defaults; version, skew mode, focal length, lens centre, sensor size, sheet curve and region
  /// stay.
  void reset();

  /// False when an error or the focal length is below 0; NaN passes.
  bool IsConsistent() const;

  /// The 3 x 3 camera matrix; empty, with a warning of the free getK, when centre or focal length
  /// are negative.
  cmnalg::Matrix<double> getK() const;

  /// Mirrors the calibrated plane at the line X = point.x (mirrorX) or Z = point.y: Homography
  /// becomes M Homography; nothing else changes. Refuses a point that is not finite: "The mirror
  /// point is invalid."; a homography that is not 3 x 3: "Invalid perspective matrix."
  bool mirror(bool mirrorX, cmnalg::Vec<2, double> point);

  /// One line for people, for example "Planex Camera Model, state: Calibrated, calibration error
  /// 0.50". Only states 1 to 3 count as calibrated and tell their error; the alignment error
  /// follows for 2D and 3D alignment, the skew vector for 3D. Numbers have two decimals.
  std::string toString() const;

  const char* GetClassName() const override;  ///< "Image.Planex.Model"
  /// The members of the model document: the fields above in the order FileVersion, CurrentState and
  /// SkewMode (as their names), the four errors, FocalLength, SensorSize, LensCenter, Skew,
  /// Homography, Pose, LensCoefficients, SheetCurve, CalibratedRegion.
  ///
  /// Documents of a version below 2 have neither of the last two: not written, not read, and the
  /// model's are emptied. Reading another version than 2 leaves an INFO record. A name that is
  /// none of a state or skew mode means their first. Reading does not check that values make sense:
  /// matrices keep the document's shape and sheet curves its length; whoever uses them asks.
  void Visit(etl::IVisitor& visitor) override;
  std::unique_ptr<etl::IVisitable> CloneVisitable() const override;
};

}  // namespace datafusion::planex
