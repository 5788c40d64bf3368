// Points and shapes through any model: every point as the formulas give it, in lists of any length
// and in place, and shapes as the points along them. What is refused leaves its outputs as they
// were.

#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>
#include <vector>

#include "planex/api/planex.h"
#include "planex/api/registries.h"
#include "planex/foundation/matrix_inverse.h"
#include "planex/model/calibrated_bounds.h"
#include "planex/model/calibration_model.h"
#include "planex/model/model_checks.h"
#include "planex/model/point_mapping.h"
#include "planex/model/shape_mapping.h"
#include "planex/model/skewed_pose.h"
#include "planex/model/world_bounds.h"
#include "tests/support/model_builders.h"
#include "tests/support/property.h"
#include "tests/support/reference.h"
#include "tests/support/samples.h"

namespace {

using cmnalg::Vec;
using datafusion::planex::CalibrationModel;
using System = datafusion::planex::CoordinateSystem;
namespace planex = datafusion::planex;

template <int N, typename T>
using Points = etl::Vector<Vec<N, T>>;

template <typename T>
bool same(const Vec<2, T>& a, const Vec<2, T>& b) {
  return test::sameBits(a.x, b.x) && test::sameBits(a.y, b.y);
}
template <typename T>
bool same(const Vec<3, T>& a, const Vec<3, T>& b) {
  return test::sameBits(a.x, b.x) && test::sameBits(a.y, b.y) && test::sameBits(a.z, b.z);
}
template <typename Point>
bool same(const etl::Vector<Point>& a, const etl::Vector<Point>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const Point& p, const Point& q) { return same(p, q); });
}

/// The formulas for one point; every step leaves its result in T.
template <typename T>
class Formulas {
 public:
  explicit Formulas(const CalibrationModel& model) : m_(model) {
    using cmnalg::math::Inverse;
    Inverse(homographyBack_, model.Homography);
    if (!poseUsable(model)) return;
    space_ = planex::skewedPose(model);
    plane_ = planex::inPlaneAlignment(space_);
    Inverse(planeBack_, plane_);
    Inverse(spaceBack_, space_);
  }

  Vec<2, T> Map(const Vec<2, T>& p, System from, System to) const {
    double x = p.x;
    double z = p.y;
    if (from == System::Pixel) ToPlane(x, z);
    if (from == System::Aligned) Project(planeBack_, x, z);
    if (to == System::Pixel) ToPixel(x, z);
    if (to == System::Aligned) Project(plane_, x, z);
    return {static_cast<T>(x), static_cast<T>(z)};
  }

  Vec<3, T> Map(const Vec<3, T>& p, System from, System to, double offset, double scale) const {
    double x = p.x;
    double y = p.y;
    double z = p.z;
    if (from == System::Pixel) ToPlane(x, z);
    if (from == System::Pixel) y = T(y * scale + offset);
    if (from == System::Aligned) Transform(spaceBack_, x, y, z);
    if (to == System::Aligned) Transform(space_, x, y, z);
    if (to == System::Pixel) ToPixel(x, z);
    if (to == System::Pixel) y = T((y - offset) / scale);
    return {static_cast<T>(x), static_cast<T>(y), static_cast<T>(z)};
  }

 private:
  using Matrix = cmnalg::Matrix<double>;

  static void Round(double& x, double& z) {
    x = static_cast<T>(x);
    z = static_cast<T>(z);
  }
  static void Project(const Matrix& h, double& x, double& z) {
    reference::project(h.Data(), x, z);
    Round(x, z);
  }
  static void Transform(const Matrix& m, double& x, double& y, double& z) {
    reference::transform(m.Data(), x, y, z);
    Round(x, z);
    y = static_cast<T>(y);
  }

  void ToPlane(double& x, double& z) const {
    x = (x - m_.LensCenter.x) / m_.FocalLength;
    z = (z - m_.LensCenter.y) / m_.FocalLength;
    Round(x, z);
    reference::undistort(m_.LensCoefficients.data(), x, z);
    Round(x, z);
    Project(m_.Homography, x, z);
    if (m_.SheetCurve.empty()) return;
    const etl::Vector<double>& s = m_.SheetCurve;
    const double d = (x - s[0]) * (1 + s[1] * z);
    z = T(z + s[2] + s[3] * d + s[4] * (d * d) + s[5] * (d * d * d));
  }

  void ToPixel(double& x, double& z) const {
    if (!m_.SheetCurve.empty()) RemoveSheetCurve(x, z);
    Project(homographyBack_, x, z);
    const double target[2] = {x, z};
    const std::array<double, 7>& c = m_.LensCoefficients;
    bool settled = false;
    for (int i = 0; i < 100 && !settled; ++i) {
      const double r2 = x * x + z * z;
      const double radial = 1 + r2 * (c[0] + r2 * (c[1] + r2 * c[2]));
      const double dx = 2 * c[3] * x * z + c[4] * (r2 + 2 * (x * x)) + c[5] * r2;
      const double dz = c[3] * (r2 + 2 * (z * z)) + 2 * c[4] * x * z + c[6] * r2;
      const double before[2] = {x, z};
      x = (target[0] - dx) / radial;
      z = (target[1] - dz) / radial;
      settled = std::abs(x - before[0]) < 1e-5 && std::abs(z - before[1]) < 1e-5;
    }
    Round(x, z);
    x = m_.FocalLength * x + m_.LensCenter.x;
    z = m_.FocalLength * z + m_.LensCenter.y;
    Round(x, z);
  }

  void RemoveSheetCurve(double x, double& z) const {
    const etl::Vector<double>& s = m_.SheetCurve;
    const double a = x - s[0];
    const double target = z;
    for (int i = 0; i < 10; ++i) {
      const double t = 1 + s[1] * z;
      const double d = a * t;
      const double g = z + s[3] * d + s[4] * (d * d) + s[5] * (d * d * d) + s[2] - target;
      const double slope = 1 + s[1] * s[3] * a + 2 * s[1] * s[4] * (a * a) * t +
                           3 * s[1] * s[5] * (a * a * a) * (t * t);
      z = z - g / slope;
    }
    z = static_cast<T>(z);
  }

  const CalibrationModel& m_;
  Matrix homographyBack_, plane_, planeBack_, space_, spaceBack_;
};

System drawSystem(test::ByteSource& source) {
  return static_cast<System>(source.Between(0, 15) == 0 ? source.Between(-1, 4)
                                                        : source.Between(0, 2));
}

System normalised(System system) {
  return system == System::Pixel || system == System::Calibrated ? system : System::Aligned;
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
    switch (source_.Between(0, 7)) {
      case 0:
        return MapInPlane<double>();
      case 1:
        return MapInPlane<float>();
      case 2:
        return MapInSpace<double>();
      case 3:
        return MapInSpace<float>();
      case 4:
        return MapShapes();
      case 5:
        return ImageBounds();
      case 6:
        return WorldBounds();
      default:
        return SensorBounds();
    }
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
  /// @param want point -> what the formulas give
  template <typename Point, typename Map, typename Want>
  void CheckList(const etl::Vector<Point>& points, Map map, Want want) {
    const etl::Vector<Point> before(1);
    etl::Vector<Point> out = before;
    log_.Clear();  // inverting for the formulas may have warned
    const bool done = test::tries([&] { return map(points, out); });
    log_.CheckRefusal(done);
    etl::Vector<Point> wanted;
    for (const Point& point : points) {
      if (done) wanted.push_back(want(point));
    }
    CHECK_ALWAYS(same(out, done ? wanted : before));
    etl::Vector<Point> inPlace = points;
    CHECK_HOLDS(map(inPlace, inPlace) == done);
    CHECK_HOLDS(same(inPlace, done ? wanted : points));
  }

  template <typename T>
  void MapInPlane() {
    const auto points = DrawPoints<Vec<2, T>>();
    const Formulas<T> formulas(model_);
    const auto check = [&](System from, System to, auto map) {
      CheckList(points, map, [&](const auto& point) { return formulas.Map(point, from, to); });
    };
    const System from = normalised(from_);
    const bool copies = from == normalised(to_);
    CheckList(
        points,
        [&](const auto& in, auto& out) {
          return planex::mapPoints<T>(model_, in, out, from_, to_);
        },
        [&](const auto& point) {
          return copies ? point : formulas.Map(point, from, normalised(to_));
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
      check(single.from, single.to,
            [&](const List& in, List& out) { return single.map(model_, in, out); });
    }
  }

  template <typename T>
  void MapInSpace() {
    const double offset = source_.Real();
    const double scale = test::drawScale(source_);
    const Formulas<T> formulas(model_);
    const System from = normalised(from_);
    const System to = normalised(to_);
    CheckList(
        DrawPoints<Vec<3, T>>(),
        [&](const auto& in, auto& out) {
          return planex::mapPoints<T>(model_, in, out, from_, to_, offset, scale);
        },
        [&](const auto& p) { return from == to ? p : formulas.Map(p, from, to, offset, scale); });
  }

  /// Shapes are the points along them, which a mapping from a system to itself shows.
  void MapShapes() {
    const int n = source_.Between(-1, 6);
    const double y[] = {source_.Real(), test::drawScale(source_)};
    const auto box =
        cmnalg::shape3d::Box::FromCorners({source_.Real(), source_.Real(), source_.Real()},
                                          {source_.Real(), source_.Real(), source_.Real()});
    Points<3, double> points(1);
    const bool mapped =
        test::tries([&] { return planex::mapBox(model_, box, points, from_, to_, y[0], y[1], n); });
    log_.CheckRefusal(mapped);
    Vec<3, double> min{1, 2, 3};
    Vec<3, double> max{4, 5, 6};
    cmnalg::shape3d::Box bounds = box;
    CHECK_HOLDS(planex::mapBox(model_, box, min, max, from_, to_, y[0], y[1], n) == mapped);
    CHECK_HOLDS(planex::mapBox(model_, box, bounds, from_, to_, y[0], y[1], n) == mapped);
    if (mapped) {
      Points<3, double> want;
      CHECK_HOLDS(planex::mapBox(test::plainModel(), box, want, to_, to_, 0, 1, n));
      CHECK_HOLDS(planex::mapPoints<double>(model_, want, want, from_, to_, y[0], y[1]));
      CHECK_HOLDS(same(points, want));
      Vec<3, double> low = want[0];
      Vec<3, double> high = low;
      for (const Vec<3, double>& p : want) {
        low = {std::min(low.x, p.x), std::min(low.y, p.y), std::min(low.z, p.z)};
        high = {std::max(high.x, p.x), std::max(high.y, p.y), std::max(high.z, p.z)};
      }
      CHECK_HOLDS(same(min, low) && same(max, high));
      CHECK_HOLDS(same(bounds.Size, cmnalg::shape3d::Box::FromCorners(low, high).Size));
    } else {
      CHECK_HOLDS(points.size() == 1 && same(bounds.Size, box.Size));
      CHECK_HOLDS(same(min, {1, 2, 3}) && same(max, {4, 5, 6}));
    }
    log_.Clear();

    const cmnalg::shape::Rectangle rectangle{
        {source_.Real(), source_.Real()}, source_.Real(), source_.Real(), source_.Real()};
    cmnalg::shape::Polyline outline;
    const bool outlined = test::tries(
        [&] { return planex::mapRectangle(model_, rectangle, outline, from_, to_, n); });
    log_.CheckRefusal(outlined);
    CHECK_HOLDS(outline.Points.size() == (outlined ? 4 * (static_cast<std::size_t>(n) + 1) : 0));
    cmnalg::shape::Rectangle area = rectangle;
    CHECK_HOLDS(planex::mapRectangle(model_, area, area, from_, to_, n) == outlined);
    if (outlined) {
      cmnalg::shape::Polyline want;
      CHECK_HOLDS(planex::mapRectangle(test::plainModel(), rectangle, want, to_, to_, n));
      CHECK_HOLDS(planex::mapPoints<double>(model_, want.Points, want.Points, from_, to_));
      CHECK_HOLDS(same(outline.Points, want.Points));
      CHECK_HOLDS(test::sameBits(area.Width, want.GetBoundingBox().Width));
    } else {
      CHECK_HOLDS(std::isnan(area.Center.x) && std::isnan(area.Center.y));
      CHECK_HOLDS(test::sameBits(area.Width, rectangle.Width));
    }
  }

  /// Of an image: of the box from its first to its last pixel.
  void ImageBounds() {
    const int size[] = {source_.Between(0, 9), source_.Between(0, 9)};
    cmnalg::Image image(cmnalg::IMAGE_TYPE_UINT8, size[0], size[1],
                        cmnalg::Image::s_defaultImageAllocator);
    image.PixelSize = {source_.Real(), source_.Real(), source_.Real()};
    image.Origin = {source_.Real(), source_.Real(), source_.Real()};
    const double z[] = {source_.Real(), source_.Real()};
    const int n = source_.Between(0, 3);
    const auto box = cmnalg::shape3d::Box::FromCorners(
        {image.Origin.x, image.Origin.y, z[0]},
        {image.Origin.x + (size[0] - 1.0) * image.PixelSize.x,
         image.Origin.y + (size[1] - 1.0) * image.PixelSize.y, z[1]});
    Vec<3, double> min[2] = {{1, 2, 3}, {1, 2, 3}};
    Vec<3, double> max[2] = {{4, 5, 6}, {4, 5, 6}};
    const bool done =
        planex::calculateImageBounds(model_, image, z[0], z[1], min[0], max[0], from_, to_, n);
    log_.CheckRefusal(done);
    const bool mapped =
        !(z[0] > z[1]) && planex::mapBox(model_, box, min[1], max[1], from_, to_, 0, 1, n);
    CHECK_HOLDS(done == mapped && same(min[0], min[1]) && same(max[0], max[1]));
  }

  /// The bounds of pixels that are mapped one by one, and the line of distances over Z.
  struct Outline {
    Outline(const CalibrationModel& mappedBy, System mappedTo, double largest)
        : model(mappedBy), to(mappedTo), low{largest, largest}, high{-largest, -largest} {}
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
    Vec<2, double> low, high;
    bool mapped = true;
    std::vector<double> z, distances;
  };

  /// Of what range images can show, and through the C interface.
  void WorldBounds() {
    model_ = CalibrationModel(model_);  // without padding, as the interface's copy
    const ImageSize size = {static_cast<std::uint16_t>(source_.Between(0, 40)),
                            static_cast<std::uint16_t>(source_.Between(1, 9))};
    SensorTraits t = {source_.Between(-8, 8) / 4.0,
                      source_.Between(0, 255) * 2.0,
                      source_.Between(-1, 9) / 4.0,
                      source_.Between(0, 255) * 2.0,
                      100,
                      200};
    if (source_.Between(0, 7) == 0) t.originX = source_.Real();
    if (source_.Between(0, 7) == 0) t.scaleZ = source_.Real();
    const auto inside = [](double origin, int extent, double scale, int limit) {
      const double end = origin + (scale > 0 ? extent : scale < 0 ? -extent : 0);
      return origin >= 0 && origin <= limit && end >= 0 && end <= limit;
    };
    const bool onSensor = inside(t.originX, t.width, t.scaleX, model_.SensorSize.x) &&
                          inside(t.originZ, t.height, t.scaleZ, model_.SensorSize.y);
    const double largest = t.height / std::abs(t.scaleZ) - 1;
    const bool valid = std::isfinite(largest) && std::trunc(largest) <= 16777216;
    if (valid && largest > 1e5) return;  // takes long

    Outline outline(model_, System::Calibrated, INFINITY);
    const double last = size.width - 1.0;
    const auto at = [&](double column) { return t.scaleX * column + t.originX; };
    outline.Map(NAN, NAN);  // a model is refused without any sample, too
    for (int i = 0; onSensor && valid && i < size.width; ++i) {
      outline.Map(at(i), t.scaleZ * 1 + t.originZ);
      outline.Map(at(i), t.scaleZ * largest + t.originZ);
    }
    for (int i = 1; onSensor && valid && i <= largest; ++i) {
      outline.AddRow(at(0), at(last), at(last * 0.5), t.scaleZ * i + t.originZ, last);
    }
    outline.mapped = outline.mapped && isCalibrated(model_.CurrentState);

    using Result = planex::WorldBoundsResult;
    planex::WorldBounds got;
    const planex::SensorRegion region{t.scaleX, t.originX, t.scaleZ, t.originZ, t.width, t.height};
    Result result = Result::NotMappable;
    test::tries([&] {
      result = planex::calculateWorldBounds(model_, region, size.width, got);
      return true;
    });
    CHECK_HOLDS(result == (!onSensor        ? Result::OutsideSensor
                           : !valid         ? Result::InvalidRangeValues
                           : outline.mapped ? Result::Calculated
                                            : Result::NotMappable));
    WorldRangeTraits box{};
    SplatSettings splat{};
    std::uint32_t handle = tavik::planex::models().insert(model_);
    log_.Clear();
    const bool done =
        test::tries([&] { return calculateCalibrationBounds(handle, t, size, &box, &splat); });
    log_.CheckCall(done);
    CHECK_HOLDS(destroyModel(&handle));
    CHECK_HOLDS(done == (result == Result::Calculated));
    if (!done) return;
    CHECK_HOLDS(got.x.min == outline.low.x && got.x.max == outline.high.x);
    CHECK_HOLDS(got.z.min == outline.low.y && got.z.max == outline.high.y);
    CHECK_HOLDS(same(got.lateralSpacing, outline.Line(2, last)));
    CHECK_HOLDS(box.xMin == got.x.min && box.xMax == got.x.max && box.yMin == 0);
    CHECK_HOLDS(box.zMin == got.z.min && box.zMax == got.z.max && box.yMax == size.height - 1);
    CHECK_HOLDS(same(Vec<2, double>{splat.splatA, splat.splatB}, got.lateralSpacing));
  }

  /// Of a part of the sensor, and of the whole of it.
  void SensorBounds() {
    const bool whole = source_.Flip();
    const Vec<2, double> first =
        whole ? Vec<2, double>{} : Vec<2, double>{source_.Real(), source_.Real()};
    const Vec<2, double> last =
        whole ? Vec<2, double>{model_.SensorSize.x - 1.0, model_.SensorSize.y - 1.0}
              : Vec<2, double>{source_.Real(), source_.Real()};
    const bool aligned = source_.Flip();
    Outline outline(model_, aligned ? System::Aligned : System::Calibrated,
                    std::numeric_limits<double>::max());
    const auto at = [](double from, double to, int i) {
      return i == 19 ? to : from + i * ((to - from) / 19);
    };
    const double columns = last.x - first.x;
    for (int i = 0; i < 20; ++i) {
      outline.AddRow(first.x, last.x, (first.x + last.x) / 2, at(first.y, last.y, i), columns);
    }
    for (int i = 1; i < 19; ++i) {
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
