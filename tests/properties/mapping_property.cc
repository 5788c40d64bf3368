// Points, shapes and images through arbitrary models: any coefficients, matrices of any shape, any
// coordinates. What works on a list must work on each of its points, in place, and on any number of
// threads; what is refused leaves its outputs as they were.

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "planex/model/calibrated_bounds.h"
#include "planex/model/calibration_model.h"
#include "planex/model/camera_matrix.h"
#include "planex/model/point_mapping.h"
#include "planex/model/shape_mapping.h"
#include "planex/processing/image_alignment.h"
#include "planex/processing/image_calibration.h"
#include "tests/support/byte_source.h"
#include "tests/support/property.h"

namespace {

using cmnalg::Image;
using cmnalg::ImageOf;
using cmnalg::ImageType;
using cmnalg::Vec;
using datafusion::planex::CalibrationModel;
using datafusion::planex::CoordinateSystem;
using datafusion::planex::RunMode;

template <int N, typename T>
using Points = etl::Vector<Vec<N, T>>;

template <typename T>
T toReal(double value) {
  if (std::abs(value) > static_cast<double>(std::numeric_limits<T>::max())) {
    return static_cast<T>(std::copysign(INFINITY, value));
  }
  return static_cast<T>(value);
}

template <typename T>
bool same(const Vec<2, T>& a, const Vec<2, T>& b) {
  return test::sameBits(a.x, b.x) && test::sameBits(a.y, b.y);
}
template <typename T>
bool same(const Vec<3, T>& a, const Vec<3, T>& b) {
  return test::sameBits(a.x, b.x) && test::sameBits(a.y, b.y) && test::sameBits(a.z, b.z);
}
template <int N, typename T>
bool same(const Points<N, T>& a, const Points<N, T>& b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(),
                    [](const auto& p, const auto& q) { return same(p, q); });
}

/// Mostly the shape that is wanted.
cmnalg::Matrix<double> drawMatrix(test::ByteSource& source, int rows, int cols) {
  if (source.Between(0, 15) == 0) {
    rows = source.Between(0, 5);
    cols = source.Between(0, 5);
  }
  std::vector<double> values(25);
  const bool identity = source.Flip();
  for (int i = 0; i < rows * cols; ++i) {
    values[static_cast<std::size_t>(i)] =
        identity ? (i % cols == i / cols ? 1.0 : 0.0) : source.Real();
  }
  if (identity && rows * cols > 0) values[source.Raw<std::uint8_t>() % 16U] = source.Real();
  return cmnalg::Matrix<double>::FromRows(rows, cols, values.data());
}

CalibrationModel drawModel(test::ByteSource& source) {
  CalibrationModel model;
  model.CurrentState = static_cast<datafusion::planex::ModelState>(source.Between(0, 6));
  model.SkewMode = static_cast<datafusion::planex::SkewMode>(source.Between(0, 3));
  model.SensorSize = {static_cast<int>(source.Count()), static_cast<int>(source.Count())};
  model.FocalLength = source.Flip() ? 1000.0 : source.Real();
  model.LensCenter =
      source.Flip() ? Vec<2, double>{320, 240} : Vec<2, double>{source.Real(), source.Real()};
  if (source.Flip()) {
    for (double& c : model.LensCoefficients) c = source.Flip() ? source.Real() : 1e-3;
  }
  if (source.Flip()) model.Skew = {source.Real(), source.Real(), source.Real()};
  model.Homography = drawMatrix(source, 3, 3);
  model.Pose = drawMatrix(source, source.Between(3, 4), 4);
  if (source.Flip()) {
    model.SheetCurve.resize(source.Between(0, 7) == 0
                                ? static_cast<std::size_t>(source.Between(0, 8))
                                : std::size_t{6});
    for (double& s : model.SheetCurve) s = source.Flip() ? source.Real() : 1e-3;
  }
  return model;
}

CoordinateSystem drawSystem(test::ByteSource& source) {
  return static_cast<CoordinateSystem>(source.Between(0, 15) == 0 ? source.Between(-1, 4)
                                                                  : source.Between(0, 2));
}

class MappingPlay {
 public:
  explicit MappingPlay(test::ByteSource& source)
      : source_(source),
        model_(drawModel(source)),
        from_(drawSystem(source)),
        to_(drawSystem(source)) {
    log_.Clear();
  }

  void Run() {
    switch (source_.Between(0, 7)) {
      case 0:
        return Map2D<double>();
      case 1:
        return Map2D<float>();
      case 2:
        return Map3D<double>();
      case 3:
        return Map3D<float>();
      case 4:
        return MapShapes();
      case 5:
        return Bounds();
      case 6:
        return Images();
      default:
        return ChangeModel();
    }
  }

 private:
  template <typename T>
  T Real() {
    return toReal<T>(source_.Real());
  }

  std::size_t Count() { return static_cast<std::size_t>(source_.Between(0, 21)); }

  /// @param mapThem (in, out) -> whether done
  template <int N, typename T, typename Map>
  void CheckList(const Points<N, T>& points, Map mapThem) {
    Points<N, T> out(1, points.empty() ? Vec<N, T>{} : points[0]);
    const Points<N, T> before = out;
    const bool done = mapThem(points, out);
    log_.CheckRefusal(done);
    CHECK_HOLDS(done ? out.size() == points.size() : same(out, before));
    Points<N, T> inPlace = points;
    CHECK_HOLDS(mapThem(inPlace, inPlace) == done);
    CHECK_HOLDS(same(inPlace, done ? out : points));
    for (std::size_t i = 0; done && i < points.size(); ++i) {
      const Points<N, T> single = {points[i]};
      Points<N, T> mapped;
      CHECK_HOLDS(mapThem(single, mapped));
      CHECK_HOLDS(same(mapped[0], out[i]));
    }
    log_.Clear();
  }

  template <typename T>
  void Map2D() {
    Points<2, T> points(Count());
    for (auto& point : points) point = {Real<T>(), Real<T>()};
    using datafusion::planex::mapPoints;
    CheckList(points,
              [&](const auto& in, auto& out) { return mapPoints<T>(model_, in, out, from_, to_); });
    CheckList(points, [&](const auto& in, auto& out) {
      return datafusion::planex::mapPointsPixToCal<T>(model_, in, out);
    });
    CheckList(points, [&](const auto& in, auto& out) {
      return datafusion::planex::mapPointsCalToPix<T>(model_, in, out);
    });
    CheckList(points, [&](const auto& in, auto& out) {
      return datafusion::planex::mapPointsAlignedToCal<T>(model_, in, out);
    });
  }

  template <typename T>
  void Map3D() {
    const double yOffset = source_.Real();
    const double yScale = source_.Real();
    Points<3, T> points(Count());
    for (auto& point : points) point = {Real<T>(), Real<T>(), Real<T>()};
    CheckList(points, [&](const auto& in, auto& out) {
      return datafusion::planex::mapPoints<T>(model_, in, out, from_, to_, yOffset, yScale);
    });
  }

  void MapShapes() {
    namespace planex = datafusion::planex;
    const int n = source_.Between(-1, 6);
    const cmnalg::shape::Rectangle rectangle{
        {source_.Real(), source_.Real()}, source_.Real(), source_.Real(), source_.Real()};
    cmnalg::shape::Polyline outline;
    const bool done = planex::mapRectangle(model_, rectangle, outline, from_, to_, n);
    log_.CheckRefusal(done);
    CHECK_HOLDS(outline.Points.size() == (done ? 4 * (static_cast<std::size_t>(n) + 1) : 0));
    cmnalg::shape::Rectangle bounds = rectangle;
    CHECK_HOLDS(planex::mapRectangle(model_, bounds, bounds, from_, to_, n) == done);
    CHECK_HOLDS(done ||
                (std::isnan(bounds.Center.x) && test::sameBits(bounds.Width, rectangle.Width)));
    log_.Clear();

    const auto box =
        cmnalg::shape3d::Box::FromCorners({source_.Real(), source_.Real(), source_.Real()},
                                          {source_.Real(), source_.Real(), source_.Real()});
    Points<3, double> points;
    const double yScale = source_.Real();
    const bool mapped = planex::mapBox(model_, box, points, from_, to_, 0.5, yScale, n);
    log_.CheckRefusal(mapped);
    const std::size_t k = static_cast<std::size_t>(n) + 2;
    CHECK_HOLDS(points.size() == (mapped ? 2 * (k - 2) * (k - 2) + 4 * k * (k - 1) : 0));
    Vec<3, double> min{1, 2, 3};
    Vec<3, double> max{4, 5, 6};
    CHECK_HOLDS(planex::mapBox(model_, box, min, max, from_, to_, 0.5, yScale, n) == mapped);
    CHECK_HOLDS(mapped || (min.x == 1 && max.z == 6));
    for (const auto& point : points) CHECK_HOLDS(!(point.x < min.x) && !(point.y > max.y));
    log_.Clear();
  }

  void Bounds() {
    namespace planex = datafusion::planex;
    Vec<2, double> min{1, 2};
    Vec<2, double> max{3, 4};
    double slope = 5;
    double offset = 6;
    const bool aligned = source_.Flip();
    const bool done = planex::calculateCalibratedBounds(
        model_, aligned, {source_.Real(), source_.Real()}, {source_.Real(), source_.Real()}, min,
        max, slope, offset);
    log_.CheckRefusal(done);
    CHECK_HOLDS(done ? !std::isnan(min.x) && !std::isnan(max.y)
                     : min.x == 1 && max.y == 4 && slope == 5 && offset == 6);
    planex::calculateCalibratedBounds(model_, aligned, min, max, slope, offset);
    log_.Clear();

    Image image;
    image.PixelSize = {source_.Real(), source_.Real(), source_.Real()};
    image.Origin = {source_.Real(), source_.Real(), source_.Real()};
    Vec<3, double> low{1, 2, 3};
    Vec<3, double> high{4, 5, 6};
    const bool bounded =
        planex::calculateImageBounds(model_, image, source_.Real(), source_.Real(), low, high,
                                     from_, to_, source_.Between(-1, 4));
    log_.CheckRefusal(bounded);
    CHECK_HOLDS(bounded || (low.x == 1 && high.z == 6));
  }

  /// Calibration and alignment of an image of any type, on one and on three threads.
  void Images() {
    namespace planex = datafusion::planex;
    const auto type = static_cast<ImageType>(source_.Between(0, 11));
    const int width = source_.Between(0, 40);
    const int height = source_.Between(0, 5);
    const int pitch = width + source_.Between(0, 2);
    std::vector<unsigned char> pixels(static_cast<std::size_t>(height) *
                                      static_cast<std::size_t>(pitch) *
                                      cmnalg::bytesPerPixel(type));
    const std::string bytes = source_.Text(48);
    for (std::size_t i = 0; i < pixels.size() && !bytes.empty(); ++i) {
      pixels[i] = static_cast<unsigned char>(bytes[i % bytes.size()]);
    }
    Image range;
    range.Create(pixels.data(), type, width, height, pitch, false, Image::s_defaultImageAllocator,
                 false);
    if (source_.Flip()) {
      range.PixelSize = {source_.Real(), source_.Real(), source_.Real()};
      range.Origin = {source_.Real(), source_.Real(), source_.Real()};
    }
    log_.Clear();
    const bool aligned = source_.Flip();
    const auto mode = static_cast<RunMode>(source_.Between(-1, 3));
    ImageOf<float> x;
    ImageOf<float> z;
    const bool done = planex::applyCalibration(model_, aligned, range, x, z, mode);
    CHECK_HOLDS(done || log_.Severe() == 0);
    if (!done) {
      CHECK_HOLDS(log_.Warnings() <= 1);
      return;
    }
    ImageOf<float> x3;
    ImageOf<float> z3;
    test::useThreads(3);
    CHECK_HOLDS(planex::applyCalibration(model_, aligned, range, x3, z3, mode));
    test::useThreads(1);
    CheckSame(x, x3);
    CheckSame(z, z3);
    Align(aligned, x, z, mode);
  }

  void Align(bool aligned, const Image& x, const Image& z, RunMode mode) {
    namespace planex = datafusion::planex;
    const bool fits = source_.Between(0, 15) != 0;
    etl::Vector<double> y(static_cast<std::size_t>(z.GetHeight()) + (fits ? 0 : 1));
    for (double& value : y) value = source_.Real();
    ImageOf<float> out[3];
    log_.Clear();
    const bool done =
        planex::applyAlignment(model_, aligned, x, y, z, out[0], out[1], out[2], mode);
    CHECK_HOLDS(done || log_.Warnings() == 1);
    CHECK_HOLDS(fits || !done);
    if (!done) return;
    ImageOf<float> three[3];
    test::useThreads(3);
    CHECK_HOLDS(
        planex::applyAlignment(model_, aligned, x, y, z, three[0], three[1], three[2], mode));
    test::useThreads(1);
    for (int i = 0; i < 3; ++i) CheckSame(out[i], three[i]);
  }

  static void CheckSame(const ImageOf<float>& a, const ImageOf<float>& b) {
    CHECK_HOLDS(a.GetWidth() == b.GetWidth() && a.GetHeight() == b.GetHeight());
    for (int v = 0; v < a.GetHeight(); ++v) {
      for (int u = 0; u < a.GetWidth(); ++u) CHECK_HOLDS(test::sameBits(a.Pix(u, v), b.Pix(u, v)));
    }
  }

  /// Setters, mirror, texts and the calibrated region.
  void ChangeModel() {
    const auto before = model_.Skew;
    const Vec<3, double> skew{source_.Real(), source_.Real(), source_.Real()};
    const bool skewed = model_.setSkew(skew.x, skew.y, skew.z);
    log_.CheckRefusal(skewed);
    CHECK_HOLDS(same(model_.Skew, skewed ? skew : before));
    const bool mirrored = model_.mirror(source_.Flip(), {source_.Real(), source_.Real()});
    log_.CheckRefusal(mirrored);
    cmnalg::math::Transform<3, double> pose;
    pose.Create(drawMatrix(source_, 4, 4),
                static_cast<cmnalg::math::TransformType>(source_.Between(0, 7)));
    model_.setPose(pose);
    model_.getK();
    CHECK_HOLDS(!model_.toString().empty());
    log_.Clear();

    auto& region = model_.CalibratedRegion;
    CHECK_HOLDS(region.Resize(source_.Between(0, 12), source_.Between(0, 12)));
    Points<2, double> points(Count());
    for (auto& point : points) point = {source_.Real(), source_.Real()};
    Points<2, double> residuals(points.size() + (source_.Between(0, 15) == 0 ? 1 : 0));
    for (auto& residual : residuals) residual = {Real<float>(), Real<float>()};
    const bool updated = region.Update(points, residuals);
    log_.CheckRefusal(updated);
    Image count;
    CHECK_HOLDS(region.GetPointCount(count));
    double counted = 0;
    for (int v = 0; v < count.GetHeight(); ++v) {
      for (int u = 0; u < count.GetWidth(); ++u) counted += count.GetPixel(u, v);
    }
    CHECK_HOLDS(counted <= static_cast<double>(points.size()));
    cmnalg::shape::Rectangle area;
    CHECK_HOLDS(region.GetRegion(area) == area.IsValid());
    CalibrationModel copy = model_;
    copy.reset();
    CHECK_HOLDS(copy.IsConsistent() || copy.FocalLength < 0);
  }

  test::ByteSource& source_;
  test::CheckedLog log_;
  CalibrationModel model_;
  CoordinateSystem from_, to_;
};

}  // namespace

PLANEX_PROPERTY(mapping) { MappingPlay(source).Run(); }
