#include "planex/estimation/estimation.h"

#include <pybind11/stl.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/bindings.h"
#include "core/call.h"
#include "planex/estimation/uncertainty_document.h"

namespace planex_python {
namespace {

namespace est = planex::estimation;

using datafusion::planex::CalibrationModel;
using est::MapUncertainty;
using Pixel = cmnalg::Vec<2, double>;
using Numbers = py::array_t<double, py::array::c_style>;
using Places = py::array_t<std::int64_t, py::array::c_style>;

/// Rows of all scans, and where they stand in the arrays.
struct Measurements {
  std::vector<est::ScanMeasurement> scans;
  std::vector<std::vector<py::ssize_t>> places;
};

/// @param pixels, points  n x 2
/// @param deviations      n, or none
/// @param scan            n places in the names
Measurements measurementsOf(const Numbers& pixels, const Numbers& points,
                            const std::optional<Numbers>& deviations, const Places& scan,
                            const std::vector<std::string>& names) {
  Measurements all;
  all.scans.resize(names.size());
  all.places.resize(names.size());
  for (std::size_t i = 0; i < names.size(); ++i) all.scans[i].name = names[i];
  for (py::ssize_t i = 0; i < scan.size(); ++i) {
    const auto place = static_cast<std::size_t>(scan.at(i));
    est::ScanMeasurement& measurement = all.scans.at(place);
    measurement.pixels.push_back({pixels.at(i, 0), pixels.at(i, 1)});
    measurement.points.push_back({points.at(i, 0), points.at(i, 1)});
    if (deviations) measurement.deviations.push_back(deviations->at(i));
    all.places[place].push_back(i);
  }
  return all;
}

[[noreturn]] void raiseFailure(const est::EstimationFailure& failure, const Measurements& all) {
  constexpr std::size_t kNone = est::EstimationFailure::kNone;
  std::string what = failure.what();
  if (failure.scan() != kNone && failure.point() != kNone) {
    what = "point " + std::to_string(all.places[failure.scan()][failure.point()]) + " " + what;
  } else if (failure.scan() != kNone) {
    what = "scan '" + all.scans[failure.scan()].name + "' " + what;
  }
  raise("Error", what);
}

py::tuple estimate(const Numbers& pixels, const Numbers& points,
                   const std::optional<Numbers>& deviations, const Places& scan,
                   const std::vector<std::string>& names, int columns, int rows,
                   const std::vector<double>& numbers, bool sheetCurve, const std::string& unit) {
  const Measurements all = measurementsOf(pixels, points, deviations, scan, names);
  est::EstimationOptions options;
  options.sensorSize = {columns, rows};
  options.focalLength = numbers.at(0);
  options.pointTolerance = numbers.at(1);
  options.noise = numbers.at(2);
  options.neededUncertainty = numbers.at(3);
  options.hasSheetCurve = sheetCurve;
  options.unit = unit;
  est::Estimation found;
  try {
    call([&] {
      found = est::estimateModel(all.scans, options);
      return true;
    });
  } catch (const est::EstimationFailure& failure) {
    raiseFailure(failure, all);
  }
  py::list findings, scans;
  for (const est::Finding& finding : found.findings) {
    findings.append(py::make_tuple(static_cast<int>(finding.level), finding.code, finding.text));
  }
  py::array_t<bool> used(scan.size());
  bool* const isUsed = used.mutable_data();
  std::fill_n(isUsed, scan.size(), true);
  for (std::size_t i = 0; i < found.scans.size(); ++i) {
    const est::ScanFit& fit = found.scans[i];
    for (const std::size_t point : fit.rejected) isUsed[all.places[i][point]] = false;
    scans.append(py::make_tuple(fit.name, fit.given, fit.given - fit.rejected.size(), fit.rms));
  }
  const py::tuple figures = py::make_tuple(found.noise, found.rms, found.largest, found.largest95,
                                           found.measured, found.correlation, found.heldOut);
  return py::make_tuple(found.model, found.uncertainty, static_cast<int>(found.verdict()),
                        found.sentence(unit), findings, scans, figures, used);
}

/// 3 x n: xx, xz and zz.
Numbers covariancesAt(const MapUncertainty& uncertainty, const Numbers& pixels) {
  const py::ssize_t count = pixels.shape(0);
  Numbers result({py::ssize_t{3}, count});
  const double* const from = pixels.data();
  double* const to = result.mutable_data();
  forEachBlock(count, 1 << 16, 0, [&](std::int64_t first, int some) {
    for (std::int64_t i = first; i < first + some; ++i) {
      const est::PlaceCovariance at = uncertainty.at({from[2 * i], from[2 * i + 1]});
      to[i] = at.xx;
      to[count + i] = at.xz;
      to[2 * count + i] = at.zz;
    }
    return true;
  });
  return result;
}

py::array_t<bool> isMeasured(const MapUncertainty& uncertainty, const Numbers& pixels) {
  py::array_t<bool> result(pixels.shape(0));
  const double* const from = pixels.data();
  bool* const to = result.mutable_data();
  forEachBlock(result.size(), 1 << 16, 0, [&](std::int64_t first, int some) {
    for (std::int64_t i = first; i < first + some; ++i) {
      to[i] = uncertainty.isMeasured({from[2 * i], from[2 * i + 1]});
    }
    return true;
  });
  return result;
}

/// Columns and rows of the sensor, frame, noise, measured part, largest uncertainty.
py::tuple factsOf(const MapUncertainty& uncertainty) {
  const MapUncertainty::Parts& parts = uncertainty.parts();
  return py::make_tuple(parts.sensorSize.x, parts.sensorSize.y, uncertainty.frameName(),
                        parts.noise, uncertainty.measuredShare(parts.sensorSize),
                        uncertainty.largestRadius95());
}

/// @param source  what the document is called
MapUncertainty uncertaintyIn(const std::string& text, const std::string& source) {
  std::optional<MapUncertainty> found;
  std::string fault;
  call([&] {
    try {
      found = est::uncertaintyIn(text);
      if (!found) fault = "states no uncertainty; planex.estimate makes models that do";
    } catch (const est::UncertaintyFault& error) {
      fault = error.what();
    }
    return true;
  });
  if (!found) raise("DocumentError", source + ": " + fault);
  return *found;
}

std::string toJson(const CalibrationModel& model, const MapUncertainty& uncertainty, bool pretty) {
  try {
    return documentOf(model, uncertainty, pretty);
  } catch (const est::UncertaintyFault& fault) {
    raise("DocumentError", fault.what());
  }
}

}  // namespace

void bindEstimation(py::module_& module) {
  const py::class_<MapUncertainty> uncertainty(module, "MapUncertainty");
  module.def("estimate", estimate);
  module.def("covariances_at", covariancesAt);
  module.def("is_measured", isMeasured);
  module.def("uncertainty_facts", factsOf);
  module.def("uncertainty_in", uncertaintyIn);
  module.def("estimation_to_json", toJson);
}

}  // namespace planex_python
