#pragma once

/// @file
/// The uncertainty of a map in the document of its model: one more member behind the others, which
/// readers of models pass over.
///
///     "Estimation": {
///       "Frame": "fixed",                 or "rigid"
///       "Sensor": {"x", "y"},             columns and rows, as those of the document
///       "Noise",                          of a pixel, in pixels
///       "Radius",                         what normalises sensor coordinates, in pixels
///       "Shift": {"x", "y"},              of the frame of the terms, in the calibrated system
///       "Terms": [21 numbers],            see MapUncertainty
///       "Covariance": [231 numbers],      its lower triangle, row by row
///       "OtherMinima": [[weight, 21 terms], ...],
///       "Measured": [[column, row], ...]  corners of a convex hull, counterclockwise in (u, v)
///     }

#include <optional>
#include <stdexcept>
#include <string>

#include "planex/estimation/map_uncertainty.h"
#include "planex/infra/export.h"
#include "planex/model/calibration_model.h"

namespace planex::estimation {

/// Why the uncertainty that a document states is of no use, in one sentence that names the member.
class PLANEX_EXPORT UncertaintyFault : public std::runtime_error {
 public:
  /// @param text  one sentence, without the name of a file
  explicit UncertaintyFault(const std::string& text) : std::runtime_error(text) {}
  ~UncertaintyFault() override;
};

/// The document of a model with the uncertainty of its map: up to the member Estimation the bytes
/// of a document without. Numbers have as many digits as reading them back needs, whatever the
/// locale. UncertaintyFault where a number is not finite.
/// @param pretty  indented, or one line without white space
PLANEX_EXPORT std::string documentOf(const datafusion::planex::CalibrationModel& model,
                                     const MapUncertainty& uncertainty, bool pretty = true);

/// The uncertainty that a document states; nothing where it has no member Estimation.
///
/// UncertaintyFault for text that is no model document, for a member that is incomplete or whose
/// numbers cannot be, and for one that belongs to another map: over the sensor the places that its
/// terms give must be those of the document, to a millionth of what the sensor sees there.
PLANEX_EXPORT std::optional<MapUncertainty> uncertaintyIn(const std::string& document);

}  // namespace planex::estimation
