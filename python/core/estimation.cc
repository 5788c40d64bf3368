#include "planex/estimation/estimation.h"

#include <pybind11/stl.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "core/bindings.h"
#include "core/call.h"
#include "planex/estimation/pose_plan.h"
#include "planex/estimation/uncertainty_document.h"
#include "planex/io/failure.h"
#include "planex/io/measured_target.h"
#include "planex/scan/resting_profile.h"

namespace planex_python {
namespace {

namespace est = planex::estimation;
namespace io = planex::io;

using datafusion::planex::CalibrationModel;
using est::MapUncertainty;
using Pixel = cmnalg::Vec<2, double>;
using Numbers = py::array_t<double, py::array::c_style>;
using Places = py::array_t<std::int64_t, py::array::c_style>;
/// Corners (n x 2), tolerance, its scale's, margin.
using TargetNumbers = std::tuple<Numbers, double, double, double>;
using TargetProfile = std::shared_ptr<const est::TargetProfile>;

/// Rows of all scans, and where they stand in the arrays.
struct Measurements {
  std::vector<est::ScanMeasurement> scans;
  std::vector<std::vector<py::ssize_t>> places;
};

/// Raises where it is none.
TargetProfile targetOf(const TargetNumbers& numbers) {
  const Numbers& corners = std::get<0>(numbers);
  auto profile = std::make_shared<est::TargetProfile>();
  for (py::ssize_t i = 0; i < corners.shape(0); ++i) {
    profile->corners.push_back({corners.at(i, 0), corners.at(i, 1)});
  }
  profile->tolerance = std::get<1>(numbers);
  profile->scaleTolerance = std::get<2>(numbers);
  profile->margin = std::get<3>(numbers);
  try {
    requireTarget(*profile);
  } catch (const std::invalid_argument& refusal) {
    raise("Error", std::string("the target ") + refusal.what());
  }
  return profile;
}

TargetNumbers readTarget(const std::string& path) {
  io::MeasuredTarget target;
  try {
    target = io::readMeasuredTarget(path);
  } catch (const io::Failure& failure) {
    raise("DocumentError", failure.what());
  }
  Numbers corners({static_cast<py::ssize_t>(target.profile.size()), py::ssize_t{2}});
  for (std::size_t i = 0; i < target.profile.size(); ++i) {
    const auto row = static_cast<py::ssize_t>(i);
    corners.mutable_at(row, 0) = target.profile[i].x;
    corners.mutable_at(row, 1) = target.profile[i].y;
  }
  return {corners, target.tolerance, target.scaleTolerance, target.margin};
}

/// A range image that lies in memory.
class ArrayImage final : public io::ImageReader {
 public:
  explicit ArrayImage(const Profiles& profiles) : ImageReader(profiles.name), profiles_(profiles) {
    announce(static_cast<std::uint64_t>(profiles.columns),
             static_cast<std::uint64_t>(profiles.rows), profiles.type);
  }

 private:
  void readNextRow(void* row) override {
    std::memcpy(row, profiles_.At(row_++), shape().rowBytes());
  }
  void rewind() override { row_ = 0; }
  void skipRows(int count) override { row_ += count; }

  const Profiles& profiles_;
  std::int64_t row_ = 0;
};

/// Sensor places (n x 2) of what stood still in a range image, and its drift in sensor rows.
py::tuple restingProfile(py::handle range, const std::string& name, py::handle sensor, int columns,
                         int rows) {
  const Profiles profiles =
      readProfiles(range, name.c_str(),
                   oneOf({cmnalg::IMAGE_TYPE_UINT8, cmnalg::IMAGE_TYPE_UINT16,
                          cmnalg::IMAGE_TYPE_UINT32, cmnalg::IMAGE_TYPE_FLOAT32}));
  if (profiles.IsEmpty()) raise("Error", name + " is empty");
  const datafusion::planex::SensorRegion region = regionOf(sensor);
  planex::scan::RestingProfile found;
  call([&] {
    ArrayImage image(profiles);
    found = planex::scan::readRestingProfile(image, region, {columns, rows});
    return true;
  });
  Numbers pixels({static_cast<py::ssize_t>(found.pixels.size()), py::ssize_t{2}});
  for (std::size_t i = 0; i < found.pixels.size(); ++i) {
    const auto row = static_cast<py::ssize_t>(i);
    pixels.mutable_at(row, 0) = found.pixels[i].x;
    pixels.mutable_at(row, 1) = found.pixels[i].y;
  }
  return py::make_tuple(pixels, found.drift);
}

/// @param pixels      n x 2
/// @param points      n x 2, or none where there is a target
/// @param deviations  n, or none
/// @param scan        n places in the names
Measurements measurementsOf(const Numbers& pixels, const std::optional<Numbers>& points,
                            const TargetProfile& target, const std::optional<Numbers>& deviations,
                            const Places& scan, const std::vector<std::string>& names) {
  Measurements all;
  all.scans.resize(names.size());
  all.places.resize(names.size());
  for (std::size_t i = 0; i < names.size(); ++i) {
    all.scans[i].name = names[i];
    all.scans[i].target = target;
  }
  for (py::ssize_t i = 0; i < scan.size(); ++i) {
    const auto place = static_cast<std::size_t>(scan.at(i));
    est::ScanMeasurement& measurement = all.scans.at(place);
    measurement.pixels.push_back({pixels.at(i, 0), pixels.at(i, 1)});
    if (points) measurement.points.push_back({points->at(i, 0), points->at(i, 1)});
    if (deviations) measurement.deviations.push_back(deviations->at(i));
    all.places[place].push_back(i);
  }
  return all;
}

[[noreturn]] void raiseFailure(const est::EstimationFailure& failure, const Measurements& all) {
  constexpr std::size_t kNone = est::EstimationFailure::kNone;
  std::string what = failure.what();
  if (failure.scan() != kNone && failure.point() != kNone) {
    const est::ScanMeasurement& scan = all.scans[failure.scan()];
    what = (scan.target ? "scan '" + scan.name + "', point " + std::to_string(failure.point())
                        : "point " + std::to_string(all.places[failure.scan()][failure.point()])) +
           " " + what;
  } else if (failure.scan() != kNone) {
    what = "scan '" + all.scans[failure.scan()].name + "' " + what;
  }
  raise("Error", what);
}

py::tuple planned(const est::PlannedScan& scan) {
  return py::make_tuple(scan.x, scan.z, scan.angle, scan.largest95);
}

/// @param target  in place of points
/// @param ways    which way Z and X go on the sensor
py::tuple estimate(const Numbers& pixels, const std::optional<Numbers>& points,
                   const std::optional<TargetNumbers>& target,
                   const std::optional<Numbers>& deviations, const Places& scan,
                   const std::vector<std::string>& names, int columns, int rows,
                   const std::vector<double>& numbers, const std::pair<int, int>& ways,
                   bool sheetCurve, const std::string& unit) {
  const Measurements all =
      measurementsOf(pixels, points, target ? targetOf(*target) : nullptr, deviations, scan, names);
  est::EstimationOptions options;
  options.sensorSize = {columns, rows};
  options.focalLength = numbers.at(0);
  options.pointTolerance = numbers.at(1);
  options.noise = numbers.at(2);
  options.neededUncertainty = numbers.at(3);
  options.turn = numbers.at(4);
  options.up = ways.first;
  options.right = ways.second;
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
  Numbers residuals({scan.size(), py::ssize_t{2}});
  double* const residual = residuals.mutable_data();
  std::fill_n(residual, residuals.size(), std::numeric_limits<double>::quiet_NaN());
  for (std::size_t i = 0; i < found.scans.size(); ++i) {
    const est::ScanFit& fit = found.scans[i];
    const std::vector<py::ssize_t>& places = all.places[i];
    for (std::size_t point = 0; point < fit.residuals.size(); ++point) {
      const Pixel& off = fit.residuals[point];
      isUsed[places[point]] = off.x == off.x;
      residual[2 * places[point]] = off.x;
      residual[2 * places[point] + 1] = off.y;
    }
    for (const std::size_t point : fit.rejected) isUsed[places[point]] = false;
    const std::size_t left = fit.given - fit.leftOut - fit.rejected.size();
    const py::tuple facts = py::make_tuple(fit.name, fit.given, left, fit.rms);
    if (!target) {
      scans.append(facts);
    } else {
      scans.append(facts +
                   py::make_tuple(fit.leftOut, fit.isFound, fit.x, fit.z, fit.angle, fit.heldOut));
    }
  }
  const py::tuple figures = py::make_tuple(found.noise, found.rms, found.largest, found.largest95,
                                           found.measured, found.correlation, found.heldOut);
  py::list stretches;
  for (const est::TargetStretch& stretch : found.stretches) {
    stretches.append(py::make_tuple(stretch.stretch, stretch.deviation));
  }
  return py::make_tuple(
      found.model, found.uncertainty, static_cast<int>(found.verdict()), found.sentence(unit),
      findings, scans, figures, used, residuals, stretches, found.isFrameFree,
      found.next ? py::object(planned(found.next->scan)) : py::none(), found.advice(unit));
}

/// Scans, and the uncertainty with all of them.
py::tuple planScans(const CalibrationModel& model, const TargetNumbers& target, int count,
                    double noise, double turn) {
  const TargetProfile profile = targetOf(target);
  est::EstimationOptions options;
  options.noise = noise;
  options.turn = turn;
  est::PosePlan plan;
  try {
    call([&] {
      plan = est::planScans(model, *profile, options, count);
      return true;
    });
  } catch (const est::EstimationFailure& failure) {
    raise("Error", std::string("the target ") + failure.what());
  }
  py::list scans;
  for (const est::PlannedScan& scan : plan.scans) scans.append(planned(scan));
  return py::make_tuple(scans, plan.uncertainty);
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
  module.def("plan_scans", planScans);
  module.def("require_target", [](const TargetNumbers& numbers) { targetOf(numbers); });
  module.def("read_target", readTarget);
  module.def("resting_profile", restingProfile);
  module.def("covariances_at", covariancesAt);
  module.def("is_measured", isMeasured);
  module.def("uncertainty_facts", factsOf);
  module.def("uncertainty_in", uncertaintyIn);
  module.def("estimation_to_json", toJson);
}

}  // namespace planex_python
