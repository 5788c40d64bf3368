// Points and shapes through any model: every point as the formulas give it, in lists of any length
// and in place, and shapes as the points along them. What is refused leaves its outputs as they
// were.

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "planex/foundation/matrix_inverse.h"
#include "planex/model/calibrated_bounds.h"
#include "planex/model/calibration_model.h"
#include "planex/model/homography.h"
#include "planex/model/lens_polynomial.h"
#include "planex/model/model_checks.h"
#include "planex/model/outline_sampling.h"
#include "planex/model/point_mapping.h"
#include "planex/model/pose.h"
#include "planex/model/shape_mapping.h"
#include "planex/model/sheet_curve.h"
#include "planex/model/skewed_pose.h"
#include "planex/model/world_bounds.h"
#include "tests/support/model_builders.h"
#include "tests/support/property.h"
#include "tests/support/reference.h"
#include "tests/support/samples.h"

namespace {

using cmnalg::Vec;
using cmnalg::shape3d::Box;
using datafusion::planex::CalibrationModel;
using System = datafusion::planex::CoordinateSystem;
using datafusion::planex::basic::applyHomography;
using datafusion::planex::basic::transform;
namespace planex = datafusion::planex;

template <int N, typename T>
using Points = etl::Vector<Vec<N, T>>;

template <typename Point>
bool same(const Point& a, const Point& b) {
  const auto* const end = &a.x + sizeof a / sizeof a.x;
  return std::equal(&a.x, end, &b.x, test::sameBits<decltype(Point::x)>);
}
template <typename Point>
bool same(const etl::Vector<Point>& a, const etl::Vector<Point>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const Point& p, const Point& q) { return same(p, q); });
}

System normalised(System system) {
  return system == System::Pixel || system == System::Calibrated ? system : System::Aligned;
}

/// The formulas for one point, step by step; every step leaves its result in T.
class Formulas {
 public:
  Formulas(const CalibrationModel& model, double yOffset, double yScale)
      : m_(model), yOffset_(yOffset), yScale_(yScale) {
    using cmnalg::math::Inverse;
    Inverse(homographyBack_, model.Homography);
    if (!poseUsable(model)) return;
    space_ = planex::skewedPose(model);
    plane_ = planex::inPlaneAlignment(space_);
    Inverse(planeBack_, plane_);
    Inverse(spaceBack_, space_);
  }

  template <typename T>
  Vec<2, T> Map(Vec<2, T> p, System from, System to) const {
    if (from == to) return p;
    if (from == System::Pixel) ToPlane(p.x, p.y);
    if (from == System::Aligned) applyHomography(planeBack_.Data(), p.x, p.y);
    if (to == System::Pixel) ToPixel(p.x, p.y);
    if (to == System::Aligned) applyHomography(plane_.Data(), p.x, p.y);
    return p;
  }

  template <typename T>
  Vec<3, T> Map(Vec<3, T> p, System from, System to) const {
    if (from == to) return p;
    if (from == System::Pixel) ToPlane(p.x, p.z);
    if (from == System::Pixel) p.y = static_cast<T>(p.y * yScale_ + yOffset_);
    if (from == System::Aligned) transform(spaceBack_.Data(), p);
    if (to == System::Aligned) transform(space_.Data(), p);
    if (to == System::Pixel) ToPixel(p.x, p.z);
    if (to == System::Pixel) p.y = static_cast<T>((p.y - yOffset_) / yScale_);
    return p;
  }

 private:
  template <typename T>
  void ToPlane(T& x, T& z) const {
    planex::basic::normalise(m_.FocalLength, m_.LensCenter.x, m_.LensCenter.y, x, z);
    planex::basic::undistort(m_.LensCoefficients.data(), x, z);
    applyHomography(m_.Homography.Data(), x, z);
    if (!m_.SheetCurve.empty()) planex::basic::applySheetCurve(m_.SheetCurve.data(), x, z);
  }

  template <typename T>
  void ToPixel(T& x, T& z) const {
    if (!m_.SheetCurve.empty()) planex::basic::removeSheetCurve(m_.SheetCurve.data(), x, z);
    applyHomography(homographyBack_.Data(), x, z);
    planex::basic::distort(m_.LensCoefficients.data(), x, z);
    planex::basic::denormalise(m_.FocalLength, m_.LensCenter.x, m_.LensCenter.y, x, z);
  }

  const CalibrationModel& m_;
  double yOffset_, yScale_;
  cmnalg::Matrix<double> homographyBack_, plane_, planeBack_, space_, spaceBack_;
};

System drawSystem(test::ByteSource& source) {
  return static_cast<System>(source.Between(0, 15) == 0 ? -1 : source.Between(0, 2));
}

class MappingPlay {
 public:
  explicit MappingPlay(test::ByteSource& source)
      : source_(source),
        model_(test::anyModel(source)),
        from_(drawSystem(source)),
        to_(drawSystem(source)) {
    log_.Clear();
  }

  void Run() {
    constexpr void (MappingPlay::*kPlays[])() = {
        &MappingPlay::MapPoints<double>, &MappingPlay::MapPoints<float>, &MappingPlay::MapShapes,
        &MappingPlay::WorldBounds, &MappingPlay::SensorBounds};
    (this->*source_.OneOf(kPlays))();
  }

 private:
  /// Random points, more of them than are mapped at a time in some of the cases.
  template <typename Point>
  etl::Vector<Point> DrawPoints() {
    etl::Vector<Point> points(static_cast<std::size_t>(source_.Between(0, 150)));
    test::Samples samples(source_);
    using T = decltype(Point::x);
    for (Point& point : points) {
      for (T* c = &point.x; c < &point.x + sizeof(Point) / sizeof(T); ++c) *c = samples.Next<T>();
    }
    return points;
  }

  /// @param map (in, out) -> whether done
  template <typename Point, typename Map>
  void CheckList(const Formulas& formulas, const etl::Vector<Point>& points, System from, System to,
                 Map map) {
    const etl::Vector<Point> before(1);
    etl::Vector<Point> out = before;
    log_.Clear();  // inverting for the formulas may have warned
    const bool done = test::tries([&] { return map(points, out); });
    log_.CheckRefusal(done);
    etl::Vector<Point> wanted;
    for (const Point& point : points) {
      if (done) wanted.push_back(formulas.Map(point, from, to));
    }
    CHECK_ALWAYS(same(out, done ? wanted : before));
    etl::Vector<Point> inPlace = points;
    CHECK_HOLDS(map(inPlace, inPlace) == done);
    CHECK_HOLDS(same(inPlace, done ? wanted : points));
  }

  template <typename T>
  void MapPoints() {
    const double y[] = {source_.Real(), test::drawScale(source_)};
    const Formulas formulas(model_, y[0], y[1]);
    const System from = normalised(from_);
    const System to = normalised(to_);
    CheckList(formulas, DrawPoints<Vec<3, T>>(), from, to, [&](const auto& in, auto& out) {
      return planex::mapPoints<T>(model_, in, out, from_, to_, y[0], y[1]);
    });
    const auto points = DrawPoints<Vec<2, T>>();
    CheckList(formulas, points, from, to, [&](const auto& in, auto& out) {
      return planex::mapPoints<T>(model_, in, out, from_, to_);
    });
    CheckList(formulas, points, from, to, [&](auto in, auto& out) {  // arrays, in place
      const bool mapped = planex::mapPoints<T>(model_, in.data(), in.data(), in.size(), from_, to_);
      if (mapped) out = in;
      return mapped;
    });
    CheckList(formulas, DrawPoints<Vec<3, T>>(), from, to, [&](const auto& in, auto& out) {
      auto mapped = in;
      const bool done =
          planex::mapPoints<T>(model_, in.data(), mapped.data(), in.size(), from_, to_, y[0], y[1]);
      if (done) out = mapped;
      return done;
    });
    using List = Points<2, T>;
    const struct {
      bool (*map)(const CalibrationModel&, const List&, List&);
      System from, to;
    } singles[] = {{planex::mapPointsPixToCal<T>, System::Pixel, System::Calibrated},
                   {planex::mapPointsCalToPix<T>, System::Calibrated, System::Pixel},
                   {planex::mapPointsPixToAligned<T>, System::Pixel, System::Aligned},
                   {planex::mapPointsAlignedToPix<T>, System::Aligned, System::Pixel},
                   {planex::mapPointsAlignedToCal<T>, System::Aligned, System::Calibrated}};
    for (const auto& single : singles) {
      CheckList(formulas, points, single.from, single.to,
                [&](const List& in, List& out) { return single.map(model_, in, out); });
    }
  }

  /// A shape is the points along it.
  template <typename Point, typename Map, typename Sample, typename... Profile>
  void CheckShape(Map map, Sample sample, Profile... profile) {
    etl::Vector<Point> points(1);
    etl::Vector<Point> want = points;
    const bool mapped = test::tries([&] { return map(points); });
    log_.CheckRefusal(mapped);
    CHECK_HOLDS(!mapped || sample(want));
    CHECK_HOLDS(!mapped || planex::mapPoints<double>(model_, want, want, from_, to_, profile...));
    CHECK_ALWAYS(same(points, want));
  }

  void MapShapes() {
    const int n = source_.Between(-1, 6);
    const double y[] = {source_.Real(), test::drawScale(source_)};
    const auto real = [this] { return source_.Real(); };
    const auto box = Box::FromCorners({real(), real(), real()}, {real(), real(), real()});
    CheckShape<Vec<3, double>>(
        [&](auto& points) {
          return planex::mapBox(model_, box, points, from_, to_, y[0], y[1], n);
        },
        [&](auto& points) { return planex::sampleBox(box, n, points); }, y[0], y[1]);
    const cmnalg::shape::Rectangle area{{real(), real()}, real(), real(), real()};
    cmnalg::shape::Polyline line;
    CheckShape<Vec<2, double>>(
        [&](auto& points) {
          line.Points = points;
          const bool mapped = planex::mapRectangle(model_, area, line, from_, to_, n);
          points.swap(line.Points);
          return mapped;
        },
        [&](auto& points) { return planex::sampleRectangle(area, n, points); });
  }

  /// The bounds of pixels that are mapped one by one, and the line of distances over Z.
  struct Outline {
    Vec<2, double> Map(double x, double y) {
      Points<2, double> point{{x, y}};
      mapped = mapped && planex::mapPoints<double>(model, point, point, System::Pixel, to);
      low = {std::min(low.x, point[0].x), std::min(low.y, point[0].y)};
      high = {std::max(high.x, point[0].x), std::max(high.y, point[0].y)};
      return point[0];
    }
    /// Maps the ends and the middle of a row.
    void AddRow(double first, double last, double middle, double y, double columns) {
      const auto left = Map(first, y);
      const auto right = Map(last, y);
      const double dx = right.x - left.x;
      const double dz = right.y - left.y;
      distances.push_back(std::sqrt(dx * dx + dz * dz) / columns);
      z.push_back(Map(middle, y).y);
    }
    Vec<2, double> Line(double slopeWithout, double columns) const {
      double line[2] = {slopeWithout, (high.x - low.x) / columns};
      reference::fitLine(z, distances, line[0], line[1]);
      return {line[0], line[1]};
    }
    const CalibrationModel& model;
    System to;
    double largest;
    Vec<2, double> low{largest, largest}, high{-largest, -largest};
    bool mapped = true;
    std::vector<double> z{}, distances{};
  };

  /// Of what range images can show.
  void WorldBounds() {
    const int columns = source_.Between(0, 40);
    planex::SensorRegion t{source_.Between(-8, 8) / 4.0,
                           source_.Between(0, 255) * 2.0,
                           source_.Between(-1, 9) / 4.0,
                           source_.Between(0, 255) * 2.0,
                           100,
                           200};
    if (source_.Between(0, 7) == 0) t.scaleZ = source_.Real();
    const bool onSensor = isOnSensor(model_, t);
    const double largest = lastRangeValue(t);
    const bool valid = std::isfinite(largest) && std::trunc(largest) <= 16777216;
    if (valid && largest > 1e5) return;  // takes long

    Outline outline{model_, System::Calibrated, INFINITY};
    const double last = columns - 1.0;
    const auto at = [&](double column) { return t.scaleX * column + t.originX; };
    outline.Map(NAN, NAN);  // a model is refused without any sample, too
    for (int i = 0; onSensor && valid && i < columns; ++i) {
      outline.Map(at(i), t.scaleZ * 1 + t.originZ);
      outline.Map(at(i), t.scaleZ * largest + t.originZ);
    }
    for (int i = 1; onSensor && valid && i <= largest; ++i) {
      outline.AddRow(at(0), at(last), at(last * 0.5), t.scaleZ * i + t.originZ, last);
    }
    outline.mapped = outline.mapped && isCalibrated(model_.CurrentState);
    using Result = planex::WorldBoundsResult;
    planex::WorldBounds got;
    Result result = Result::NotMappable;
    test::tries([&] {
      result = planex::calculateWorldBounds(model_, t, columns, got);
      return true;
    });
    CHECK_HOLDS(result == (!onSensor        ? Result::OutsideSensor
                           : !valid         ? Result::InvalidRangeValues
                           : outline.mapped ? Result::Calculated
                                            : Result::NotMappable));
    if (result != Result::Calculated) return;
    CHECK_HOLDS(got.x.min == outline.low.x && got.x.max == outline.high.x);
    CHECK_HOLDS(got.z.min == outline.low.y && got.z.max == outline.high.y);
    CHECK_HOLDS(same(got.lateralSpacing, outline.Line(2, last)));
  }

  /// Of a part of the sensor, and of the whole of it.
  void SensorBounds() {
    const bool whole = source_.Flip();
    Vec<2, double> first{};
    Vec<2, double> last{model_.SensorSize.x - 1.0, model_.SensorSize.y - 1.0};
    if (!whole) first = {source_.Real(), source_.Real()};
    if (!whole) last = {source_.Real(), source_.Real()};
    const bool aligned = source_.Flip();
    Outline outline{model_, aligned ? System::Aligned : System::Calibrated,
                    std::numeric_limits<double>::max()};
    const auto at = [](double from, double to, int i) {
      return i == 19 ? to : from + i * ((to - from) / 19);
    };
    const double columns = last.x - first.x;
    for (int i = 0; i < 20; ++i) {
      outline.AddRow(first.x, last.x, (first.x + last.x) / 2, at(first.y, last.y, i), columns);
      if (i % 19 == 0) continue;
      outline.Map(at(first.x, last.x, i), first.y);
      outline.Map(at(first.x, last.x, i), last.y);
    }
    log_.Clear();
    Vec<2, double> min = first;
    Vec<2, double> max = last;
    Vec<2, double> line{5, 6};
    const bool done = test::tries([&] {
      return whole ? planex::calculateCalibratedBounds(model_, aligned, min, max, line.x, line.y)
                   : planex::calculateCalibratedBounds(model_, aligned, min, max, min, max, line.x,
                                                       line.y);
    });
    log_.CheckRefusal(done);
    CHECK_HOLDS(done == outline.mapped);
    CHECK_ALWAYS(same(min, done ? outline.low : first) && same(max, done ? outline.high : last));
    CHECK_ALWAYS(same(line, done ? outline.Line(1, columns) : Vec<2, double>{5, 6}));
  }

  test::ByteSource& source_;
  test::CheckedLog log_;
  CalibrationModel model_;
  System from_, to_;
};

}  // namespace

PLANEX_PROPERTY(mapping) {
  const test::MayFail enough(false);
  do {
    MappingPlay(source).Run();
  } while (!source.IsEmpty());
}
