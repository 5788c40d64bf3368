#include "tools/commands/estimation_terms.h"

#include <planex/model/calibration_model.h>
#include <planex/model/point_mapping.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

#include "planex/report/ticks.h"
#include "tools/commands/estimation_residuals.h"

namespace planex::tools {
namespace {

using datafusion::planex::CalibrationModel;
using datafusion::planex::CoordinateSystem;
using report::figureText;
using Place = cmnalg::Vec<2, double>;
using Terms = std::array<double, 21>;
using Corners = std::array<Place, 4>;

enum class Kind { kPlain, kLens, kCentre, kSheet };

struct Term {
  const char* name;
  const char* what;
  Kind kind;
  int power;  ///< of the length unit
};

const Term kTerms[] = {
    {"h00", "X over u", Kind::kPlain, 1},
    {"h01", "X over v", Kind::kPlain, 1},
    {"h02", "X in the middle", Kind::kPlain, 1},
    {"h10", "Z over u", Kind::kPlain, 1},
    {"h11", "Z over v", Kind::kPlain, 1},
    {"h12", "Z in the middle", Kind::kPlain, 1},
    {"h20", "perspective over u", Kind::kPlain, 0},
    {"h21", "perspective over v", Kind::kPlain, 0},
    {"c0", "radial, 2nd order", Kind::kLens, 0},
    {"c1", "radial, 4th order", Kind::kLens, 0},
    {"c2", "radial, 6th order", Kind::kLens, 0},
    {"c3", "tangential, in v", Kind::kLens, 0},
    {"c4", "tangential, in u", Kind::kLens, 0},
    {"c5", "tilt of the sensor, in u", Kind::kLens, 0},
    {"c6", "tilt of the sensor, in v", Kind::kLens, 0},
    {"cx", "centre, column", Kind::kCentre, 0},
    {"cy", "centre, row", Kind::kCentre, 0},
    {"s0", "X around which it bends", Kind::kPlain, 1},
    {"s1", "change of the bend with Z", Kind::kSheet, -1},
    {"s4", "bend, 2nd order", Kind::kSheet, -1},
    {"s5", "bend, 3rd order", Kind::kSheet, -2},
};
constexpr std::size_t kLens = 8, kCentre = 15, kCurve = 17;

/// A model with these terms.
CalibrationModel modelOf(const Terms& t, double radius) {
  CalibrationModel model;
  const double h[9] = {t[0], t[1], t[2], t[3], t[4], t[5], t[6], t[7], 1};
  model.CurrentState = datafusion::planex::ModelState::CALIBRATED;
  model.FocalLength = radius;
  model.LensCenter = {t[kCentre], t[kCentre + 1]};
  std::copy_n(t.begin() + kLens, model.LensCoefficients.size(), model.LensCoefficients.begin());
  model.Homography = cmnalg::Matrix<double>::FromRows(3, 3, h);
  model.SheetCurve = {t[kCurve], t[kCurve + 1], 0, 0, t[kCurve + 2], t[kCurve + 3]};
  return model;
}

Corners mapped(const Terms& terms, double radius, Corners places) {
  mapPoints(modelOf(terms, radius), places.data(), places.data(), places.size(),
            CoordinateSystem::Pixel, CoordinateSystem::Calibrated);
  return places;
}

/// What terms do at the corners of a sensor.
class Corner {
 public:
  Corner(const estimation::MapUncertainty::Parts& parts, cmnalg::Vec<2, int> size) : parts_(parts) {
    const double right = size.x - 1, bottom = size.y - 1;
    corners_ = {{{0, 0}, {right, 0}, {0, bottom}, {right, bottom}}};
    for (std::size_t i = 0; i < corners_.size(); ++i) slopes_[i] = slopesAt(parts, corners_[i]);
  }

  /// How far a corner, the one that moves most, moves between two values of a term; in pixels.
  double moved(std::size_t term, double from, double to) const {
    Terms one = parts_.terms, other = parts_.terms;
    one[term] = from;
    other[term] = to;
    const Corners a = mapped(one, parts_.radius, corners_);
    const Corners b = mapped(other, parts_.radius, corners_);
    double most = 0;
    for (std::size_t i = 0; i < corners_.size(); ++i) {
      const Place by = slopes_[i].pixels({b[i].x - a[i].x, b[i].y - a[i].y});
      most = std::max(most, std::hypot(by.x, by.y));
    }
    return most;
  }

 private:
  static PixelSlopes slopesAt(const estimation::MapUncertainty::Parts& parts, const Place& corner) {
    return PixelSlopes::between(
        mapped(parts.terms, parts.radius, PixelSlopes::around(corner)).data());
  }

  const estimation::MapUncertainty::Parts& parts_;
  Corners corners_;
  std::array<PixelSlopes, 4> slopes_;
};

/// A value with the digits that its deviation leaves it.
std::string figureBeside(double value, double deviation) {
  if (!(deviation > 0 && std::isfinite(deviation) && value != 0)) return figureText(value, 6);
  const double digits =
      std::floor(std::log10(std::abs(value))) - std::floor(std::log10(deviation)) + 2;
  return digits < 1 ? "0" : figureText(value, static_cast<int>(std::min(digits, 6.0)));
}

std::string unitOf(const Term& term, const std::string& unit) {
  switch (term.kind == Kind::kCentre ? 2 : term.power) {
    case 2:
      return "pixels";
    case 1:
      return unit;
    case -1:
      return "1/" + unit;
    case -2:
      return "1/" + unit + "\xC2\xB2";
    default:
      return "";
  }
}

}  // namespace

report::Table termTable(const estimation::MapUncertainty::Parts& parts,
                        cmnalg::Vec<2, int> sensorSize, const std::string& unit, bool isPlane) {
  const std::string none = "\xE2\x80\x93";
  report::Table table;
  table.heading = {"Term",
                   "",
                   "Value",
                   "Standard uncertainty",
                   "Unit",
                   "At the corner (pixels)",
                   "Standard uncertainty (pixels)",
                   ""};
  table.isDense = true;
  const Corner corner(parts, sensorSize);
  for (std::size_t i = 0; i < std::size(kTerms); ++i) {
    const Term& term = kTerms[i];
    if (i == 0) table.add({"Projection from the sensor to the laser plane"});
    if (i == kLens) table.add({"Lens"});
    if (i == kCurve && isPlane) break;
    if (i == kCurve) table.add({"Bend of the laser sheet"});
    const double value = parts.terms[i];
    const double deviation = std::sqrt(parts.covariance[i * std::size(kTerms) + i]);
    const bool hasEffect = term.kind == Kind::kLens || term.kind == Kind::kSheet;
    const bool isOpen = hasEffect && !(std::abs(value) >= 2 * deviation);
    const double effect = hasEffect ? corner.moved(i, 0, value) : 0;
    const double ofEffect =
        hasEffect ? corner.moved(i, value - deviation, value + deviation) / 2 : 0;
    table.add({term.name, term.what, figureBeside(value, deviation), figureText(deviation, 2),
               unitOf(term, unit), hasEffect ? figureBeside(effect, ofEffect) : none,
               hasEffect ? figureText(ofEffect, 2) : none,
               isOpen ? "not told apart from zero" : ""});
  }
  return table;
}

}  // namespace planex::tools
