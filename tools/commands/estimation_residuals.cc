#include "tools/commands/estimation_residuals.h"

#include <planex/model/point_mapping.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "planex/report/estimation_plot.h"

namespace planex::tools {

using datafusion::planex::CalibrationModel;
using datafusion::planex::CoordinateSystem;
using estimation::Estimation;
using estimation::ScanMeasurement;
using report::EvenChoice;
using Place = cmnalg::Vec<2, double>;

namespace {

constexpr std::size_t kMostUsed = 1000, kLeastRejected = 100, kMostRejected = 500;

/// Of points rejected as many as of those used, in proportion, so that a picture tells their share.
std::size_t mostRejected(const Estimation& result) {
  const std::size_t used = std::max<std::size_t>(result.used, 1);
  const std::size_t inProportion = (result.given - result.used) * kMostUsed / used;
  return used <= kMostUsed ? kMostRejected
                           : std::clamp(inProportion, kLeastRejected, kMostRejected);
}

/// Points of all scans one after the other.
class PointWalk {
 public:
  PointWalk(const Estimation& result, const std::vector<ScanMeasurement>& scans)
      : result_(result), scans_(scans) {}

  /// Calls visit(scan, place in its lists, whether it was used) for every point.
  template <typename Visit>
  void visit(const Visit& visit) const {
    for (std::size_t s = 0; s < scans_.size(); ++s) {
      const std::vector<std::size_t>& rejected = result_.scans[s].rejected;
      auto next = rejected.begin();
      for (std::size_t i = 0; i < scans_[s].pixels.size(); ++i) {
        const bool isRejected = next != rejected.end() && *next == i;
        if (isRejected) ++next;
        const bool isLeftOut = scans_[s].target && std::isnan(result_.scans[s].residuals[i].x);
        if (!isLeftOut) visit(s, i, !isRejected);
      }
    }
  }

 private:
  const Estimation& result_;
  const std::vector<ScanMeasurement>& scans_;
};

/// Passes on the chosen ones of those that are counted.
class Selection {
 public:
  explicit Selection(std::vector<std::size_t> chosen) : chosen_(std::move(chosen)) {}

  bool takesNext() {
    const bool takes = next_ < chosen_.size() && chosen_[next_] == count_;
    if (takes) ++next_;
    ++count_;
    return takes;
  }

 private:
  std::vector<std::size_t> chosen_;
  std::size_t next_ = 0, count_ = 0;
};

}  // namespace

void mapToPoints(const CalibrationModel& model, std::vector<Place>& pixels) {
  const CoordinateSystem system =
      isAligned2D(model.CurrentState) ? CoordinateSystem::Aligned : CoordinateSystem::Calibrated;
  mapPoints(model, pixels.data(), pixels.data(), pixels.size(), CoordinateSystem::Pixel, system);
}

std::vector<PlaceResidual> shownResiduals(const Estimation& result,
                                          const std::vector<ScanMeasurement>& scans) {
  const double width = result.model.SensorSize.x, height = result.model.SensorSize.y;
  EvenChoice used(width, height, kMostUsed), rejected(width, height, mostRejected(result));
  const PointWalk points(result, scans);
  points.visit([&](std::size_t scan, std::size_t i, bool isUsed) {
    const Place& pixel = scans[scan].pixels[i];
    (isUsed ? used : rejected).offer({pixel.x, pixel.y});
  });
  Selection ofUsed(used.chosen()), ofRejected(rejected.chosen());
  std::vector<PlaceResidual> residuals;
  std::vector<Place> places;
  std::vector<std::size_t> members;
  points.visit([&](std::size_t scan, std::size_t i, bool isUsed) {
    if (!(isUsed ? ofUsed : ofRejected).takesNext()) return;
    residuals.push_back({scans[scan].pixels[i], {}, 0, 0, isUsed, scan});
    places.push_back(scans[scan].pixels[i]);
    members.push_back(i);
  });
  mapToPoints(result.model, places);
  for (std::size_t i = 0; i < residuals.size(); ++i) {
    residuals[i].place = places[i];
    const ScanMeasurement& scan = scans[residuals[i].scan];
    const Place to = scan.target ? result.scans[residuals[i].scan].residuals[members[i]]
                                 : scan.points[members[i]];
    residuals[i].dx = scan.target ? to.x : to.x - places[i].x;
    residuals[i].dz = scan.target ? to.y : to.y - places[i].y;
  }
  return residuals;
}

std::array<Place, 4> PixelSlopes::around(const Place& pixel) {
  return {{{pixel.x - 0.5, pixel.y},
           {pixel.x + 0.5, pixel.y},
           {pixel.x, pixel.y - 0.5},
           {pixel.x, pixel.y + 0.5}}};
}

PixelSlopes PixelSlopes::between(const Place* places) {
  return {places[1].x - places[0].x, places[3].x - places[2].x, places[1].y - places[0].y,
          places[3].y - places[2].y};
}

Place PixelSlopes::pixels(const Place& displacement) const {
  const double determinant = xByColumn * zByRow - xByRow * zByColumn;
  return {(zByRow * displacement.x - xByRow * displacement.y) / determinant,
          (xByColumn * displacement.y - zByColumn * displacement.x) / determinant};
}

}  // namespace planex::tools
