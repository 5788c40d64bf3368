#pragma once

#include <cstddef>
#include <vector>

#include "planex/estimation/model_fit.h"

namespace planex::estimation {

/// Observations of fits that others follow.
constexpr std::size_t kThinned = 3000;
/// The least that a noise may be, in pixels.
constexpr double kLeastNoise = 1e-6;

/// The middle of the sensor.
cmnalg::Vec<2, double> middleOf(const EstimationOptions& options);

/// The unknowns of scans and targets, with what is expected of them but the terms. What belongs to
/// a target comes before the placement of the first scan of it.
Unknowns unknownsOf(const std::vector<ScanMeasurement>& scans, const EstimationOptions& options);

/// Says what is expected of the terms where the measurements are silent, in a field as large as the
/// terms make it. The sheet's middle becomes what is expected.
///
/// Source: how far lenses and laser sheets depart from the ideal at the corner of the sensor, in
/// half diagonals and half widths of the field.
void expectTerms(Unknowns& unknowns, const EstimationOptions& options);

/// Throws EstimationFailure where measurements or options are such that no fit can begin.
void requireMeasurements(const std::vector<ScanMeasurement>& scans,
                         const EstimationOptions& options);

/// A fit that has its frame, what is expected of its unknowns, and values near enough to go on
/// from: by a homography from known points, or from the corners of one target; then the other
/// targets one after another.
ModelFit initialFit(const std::vector<ScanMeasurement>& scans, const EstimationOptions& options);

/// Says of each pixel of a scan of a target on which edge it lies, as things stand: on the nearest
/// that is not too steep to be seen, and farther from its corners than the margin.
void associate(ModelFit& fit);

/// Every k-th of those that lie on something, so that no more than `most` are left.
std::vector<const Observation*> thinned(const std::vector<Observation>& observations,
                                        std::size_t most);

/// The standard deviation of a pixel of weight 1, from the median of the residuals.
double medianNoise(const ModelFit& fit, const std::vector<const Observation*>& observations);

}  // namespace planex::estimation
