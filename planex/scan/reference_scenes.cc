#include "planex/scan/reference_scenes.h"

#include <array>
#include <utility>

#include "planex/infra/containers.h"
#include "planex/model/calibrated_bounds.h"
#include "planex/model/point_mapping.h"
#include "planex/model/shape_mapping.h"
#include "planex/model/world_bounds.h"
#include "planex/processing/frame_preparation.h"
#include "planex/processing/height_grid.h"
#include "planex/processing/image_alignment.h"
#include "planex/processing/image_calibration.h"
#include "planex/processing/intensity_reduction.h"
#include "planex/processing/line_extraction.h"
#include "planex/processing/point_grid.h"
#include "planex/processing/rectification.h"
#include "planex/processing/rectification_target.h"
#include "planex/processing/world_heights.h"

namespace planex::scan {

using cmnalg::ImageOf;
using cmnalg::Vec;
using datafusion::planex::CalibrationModel;
using datafusion::planex::CoordinateSystem;
using datafusion::planex::createLineTarget;
using datafusion::planex::LineChoice;
using datafusion::planex::LineMethod;
using datafusion::planex::ModelState;
using datafusion::planex::RectificationMode;
using datafusion::planex::RunMode;
using datafusion::planex::SkewMode;
using datafusion::planex::subtractDark;
using datafusion::planex::transpose;

CalibrationModel referenceModel() {
  CalibrationModel model;
  model.CurrentState = ModelState::CALIBRATED_ALIGNED_3D;
  model.CalibrationError = 5e-324;
  model.CalibrationErrorMax = 0.1;
  model.SensorSize = {640, 480};
  model.FocalLength = 1200;
  model.LensCenter = {320.5, 241};
  model.LensCoefficients = {-0.11, 0.04, 0.013, 0.002, -0.0017, 0.02, -0.04};
  const double homography[9] = {110, -3, 12, 2, 140, 300, -0.02, 0.31, 1.01};
  model.Homography = cmnalg::Matrix<double>::FromRows(3, 3, homography);
  const double pose[16] = {0.9, 0.1, -0.4, 7, -0.2, 0.95, 0.1, -3, 0.4, 0.05, 0.9, 11, 0, 0, 0, 1};
  model.Pose = cmnalg::Matrix<double>::FromRows(4, 4, pose);
  model.Skew = {0.1, 0.9, -0.2};
  model.setSheetCurve(1.5, 1e-4, 0.02, 1e-4, -2e-5, 3e-7);
  return model;
}

namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 128;  // with the width, enough pixels for a few threads
constexpr int kCells = 300;

constexpr std::pair<const char*, RectificationMode> kModes[] = {
    {"MEAN", RectificationMode::MEAN},
    {"LOWEST", RectificationMode::LOWEST},
    {"HIGHEST", RectificationMode::HIGHEST},
    {"DARKEST", RectificationMode::DARKEST},
    {"BRIGHTEST", RectificationMode::BRIGHTEST}};

bool needsIntensity(RectificationMode mode) {
  return mode == RectificationMode::DARKEST || mode == RectificationMode::BRIGHTEST;
}

/// A whole number and, in floating types, sixteenths behind it.
template <typename T>
T withFraction(unsigned number, unsigned noise) {
  if constexpr (std::is_floating_point_v<T>) return static_cast<T>(16 * number + noise % 16) / 16;
  return static_cast<T>(number);
}

/// Range values along tilted lines, one in eight missing, in eighths of a row.
template <typename T>
const ImageOf<T>& rangeImage() {
  static const ImageOf<T> image = [] {
    ImageOf<T> range = drawnImage<T>(kWidth, kHeight, [](unsigned u, unsigned v, unsigned noise) {
      if (noise % 8 == 0) return T{0};
      const unsigned place = 1000 + 2 * u + 7 * v + noise / 8 % 300;
      return withFraction<T>(sizeof(T) == 1 ? place / 8 % 256 : place, noise >> 28);
    });
    range.PixelSize.z = sizeof(T) == 1 ? 1 : 1.0 / 8;
    return range;
  }();
  return image;
}

/// X and Z of points that lie mostly, but not always, in the order of their columns.
template <typename T>
struct CalibratedScene {
  ImageOf<T> x, z;

  static const CalibratedScene& get() {
    static const CalibratedScene scene = [] {
      CalibratedScene made;
      made.x = drawnImage<T>(kWidth, kHeight, [](unsigned u, unsigned v, unsigned noise) {
        const unsigned place = (sizeof(T) == 1 ? u / 3 : 6 * u) + v % 16 + noise % 24 / 4;
        return withFraction<T>(place, noise >> 28);
      });
      made.z = drawnImage<T>(kWidth, kHeight, [](unsigned u, unsigned v, unsigned noise) {
        if (noise / 256 % 8 == 0) {
          return std::is_floating_point_v<T> ? std::numeric_limits<T>::quiet_NaN() : T{0};
        }
        return withFraction<T>(1 + (u / 40 * 37 + v + noise % 200 / 10) % 251, noise >> 28);
      });
      made.x.PixelSize.z = sizeof(T) == 1 ? 2.25 : 0.125;
      made.x.Origin.z = 0.5;
      made.z.PixelSize.z = 0.25;
      made.z.Origin.z = -3;
      return made;
    }();
    return scene;
  }
};

const ImageOf<std::uint8_t>& intensityImage() {
  static const ImageOf<std::uint8_t> image = drawnImage<std::uint8_t>(
      kWidth, kHeight, [](unsigned, unsigned, unsigned noise) { return noise & 0xFF; });
  return image;
}

/// Which parts of the model a calibration uses.
struct ModelParts {
  bool aligned, sheet;
  int lensTerms;
};
constexpr ModelParts kParts[] = {
    {false, false, 0}, {true, true, 2}, {false, true, 7}, {true, false, 7}};

void addCalibration(std::vector<Scene>& scenes) {
  forEachMeasuredType([&scenes](const std::string& type, auto pixel) {
    for (const RunMode mode : {RunMode::SinglePrecision, RunMode::DoublePrecision}) {
      const char* const precision = mode == RunMode::SinglePrecision ? "single" : "double";
      addScene(scenes, "calibration " + type + " " + precision, [mode](int rows, SceneSum& sum) {
        const auto& range = rangeImage<decltype(pixel)>();
        ImageOf<float> x = blankImage<float>(kWidth, kHeight);
        ImageOf<float> z = blankImage<float>(kWidth, kHeight);
        for (const ModelParts& part : kParts) {
          CalibrationModel model = referenceModel();
          for (std::size_t i = static_cast<std::size_t>(part.lensTerms); i < 7; ++i) {
            model.LensCoefficients[i] = 0;
          }
          if (!part.sheet) model.SheetCurve.clear();
          forEachBlock(rows, kHeight, [&](int first, int count) {
            RowsOf<float> someX(x, first, count), someZ(z, first, count);
            SceneSum::require(applyCalibration(model, part.aligned,
                                               RowsOf(range, first, count).image, someX.image,
                                               someZ.image, mode));
          });
          sum.add(x);
          sum.add(z);
        }
      });
    }
  });
}

void addAlignment(std::vector<Scene>& scenes) {
  forEachMeasuredType([&scenes](const std::string& type, auto pixel) {
    addScene(scenes, "alignment " + type, [](int rows, SceneSum& sum) {
      const auto& from = CalibratedScene<decltype(pixel)>::get();
      CalibrationModel model = referenceModel();
      std::array<ImageOf<float>, 3> to;
      to.fill(blankImage<float>(kWidth, kHeight));
      for (const bool aligned : {false, true}) {
        model.SkewMode = aligned ? SkewMode::XZ_NOT_IN_LIGHT_PLANE : SkewMode::XZ_IN_LIGHT_PLANE;
        forEachBlock(rows, kHeight, [&](int first, int count) {
          etl::Vector<double> y;
          for (int row = first; row < first + count; ++row) y.push_back(0.1 * row);
          RowsOf<float> x(to[0], first, count), yOut(to[1], first, count), z(to[2], first, count);
          SceneSum::require(applyAlignment(model, aligned, RowsOf(from.x, first, count).image, y,
                                           RowsOf(from.z, first, count).image, x.image, yOut.image,
                                           z.image, RunMode::Default));
        });
        for (const auto& image : to) sum.add(image);
      }
    });
  });
}

/// Rectifies into a target that is cleared by the first splat size alone.
template <typename X, typename Z>
void rectify(const ImageOf<X>& x, const ImageOf<Z>& z, RectificationMode mode, bool withIntensity,
             const std::vector<double>& splats, int rows, SceneSum& sum) {
  auto heights = blankImage<std::uint16_t>(kCells, x.GetHeight());
  auto intensities = blankImage<std::uint8_t>(kCells, x.GetHeight());
  heights.PixelSize = {1.75, 1, 0.001};
  heights.Origin = {-20, 0, -2.5};
  heights.HandleZeroPixels = cmnalg::ZeroPixels::MissingData;
  for (const double& splat : splats) {
    const bool clear = &splat == &splats.front();
    forEachBlock(rows, x.GetHeight(), [&](int first, int count) {
      const RowsOf someX(x, first, count);
      const RowsOf someZ(z, first, count);
      const RowsOf someIntensities(intensityImage(), first, count);
      RowsOf target(heights, first, count);
      RowsOf targetIntensity(intensities, first, count);
      SceneSum::require(withIntensity ? toRectified(someX.image, someZ.image, someIntensities.image,
                                                    {0.01, 0.75}, splat, mode, target.image,
                                                    targetIntensity.image, clear)
                                      : toRectified(someX.image, someZ.image, {0.01, 0.75}, splat,
                                                    mode, target.image, clear));
    });
    sum.add(heights);
    if (withIntensity) sum.add(intensities);
  }
}

void rectifyToWorld(RectificationMode mode, int rows, SceneSum& sum) {
  const auto& from = CalibratedScene<float>::get();
  ImageOf<float> heights = blankImage<float>(kCells, kHeight);
  auto intensities = blankImage<std::uint8_t>(kCells, kHeight);
  forEachBlock(rows, kHeight, [&](int first, int count) {
    const RowsOf x(from.x, first, count), z(from.z, first, count);
    RowsOf target(heights, first, count);
    RowsOf targetIntensity(intensities, first, count);
    SceneSum::require(toRectifiedWorld(
        x.image, z.image, RowsOf(intensityImage(), first, count).image, {{0.01, 0.75}, 1.5}, mode,
        {kCells, count, {1.75, -20}, {0.001, -2.5}}, -1.0F, &target.image, targetIntensity.image));
  });
  sum.add(heights);
  sum.add(intensities);
}

void addRectification(std::vector<Scene>& scenes) {
  for (const auto& named : kModes) {
    const std::string title = std::string("rectification ") + named.first + " ";
    const RectificationMode mode = named.second;
    forEachMeasuredType([&scenes, title, mode](const std::string& type, auto pixel) {
      addScene(scenes, title + type, [mode](int rows, SceneSum& sum) {
        const auto& from = CalibratedScene<decltype(pixel)>::get();
        rectify(from.x, from.z, mode, true, {1, 3.5, 0}, rows, sum);
        if (!needsIntensity(mode)) rectify(from.x, from.z, mode, false, {2, 1}, rows, sum);
      });
    });
    addScene(scenes, title + "to world heights",
             [mode](int rows, SceneSum& sum) { rectifyToWorld(mode, rows, sum); });
  }
  addScene(scenes, "rectification HIGHEST all pairs of types", [](int rows, SceneSum& sum) {
    forEachMeasuredType([&](const std::string&, auto pixelX) {
      forEachMeasuredType([&](const std::string&, auto pixelZ) {
        const RowsOf x(CalibratedScene<decltype(pixelX)>::get().x, 0, 4);
        const RowsOf z(CalibratedScene<decltype(pixelZ)>::get().z, 0, 4);
        rectify(x.image, z.image, RectificationMode::HIGHEST, false, {1}, rows, sum);
      });
    });
  });
}

/// Points that fall wherever they fall, added in blocks.
void gridPoints(RectificationMode mode, int rows, SceneSum& sum) {
  const auto& from = CalibratedScene<float>::get();
  const ImageOf<float> carried = drawnImage<float>(
      kWidth, kHeight, [](unsigned, unsigned, unsigned noise) { return noise % 1024; });
  const ImageOf<float> y =
      drawnImage<float>(kWidth, kHeight, [](unsigned u, unsigned v, unsigned noise) {
        const unsigned sixteenths = 4 * v + u / 100 + noise % 8;
        return static_cast<float>(sixteenths) / 16;
      });
  datafusion::planex::PointPlacement place;
  place.width = 200;
  place.height = 40;
  place.x = {2.5, 1};
  place.y = {0.75, 0.5};
  place.splat = {{0.01, 0.75}, 1.5};
  datafusion::planex::PointGrid grid(place.width, place.height, mode, 1);
  datafusion::planex::PlacedGridPoints placed;
  forEachBlock(rows, kHeight, [&](int first, int count) {
    const float* const z = from.z.GetRowPtr(first);
    placePoints(place, count * kWidth, from.x.GetRowPtr(first), y.GetRowPtr(first), z, z, placed);
    grid.Add(placed, 0, static_cast<std::size_t>(count) * kWidth, z, {carried.GetRowPtr(first)}, 1);
  });
  std::array<std::vector<float>, 5> cells;
  cells.fill(std::vector<float>(200));
  std::vector<std::uint8_t> mask(200);
  for (int row = 0; row < place.height; ++row) {
    grid.TakeRow(
        row,
        {cells[0].data(), cells[1].data(), cells[2].data(), cells[3].data(), {cells[4].data()}});
    for (const auto& figures : cells) sum.add(figures.data(), figures.size());
    datafusion::planex::fillHoles(place.width, 5, cells[0].data(), mask.data());
    sum.add(cells[0].data(), cells[0].size());
    sum.add(mask.data(), mask.size());
  }
}

void addPointGrids(std::vector<Scene>& scenes) {
  for (const auto& named : kModes) {
    const RectificationMode mode = named.second;
    addScene(scenes, std::string("grid of points ") + named.first,
             [mode](int rows, SceneSum& sum) { gridPoints(mode, rows, sum); });
  }
}

using Direction = std::pair<CoordinateSystem, CoordinateSystem>;

template <typename T>
void add(SceneSum& sum, const Vec<2, T>& point) {
  for (const T value : {point.x, point.y}) sum.add(value);
}
template <typename T>
void add(SceneSum& sum, const Vec<3, T>& point) {
  for (const T value : {point.x, point.y, point.z}) sum.add(value);
}

/// Points over the sensor, from there to one system and on to the other.
template <int N, typename T>
void mapSomePoints(const CalibrationModel& model, Direction way, int rows, SceneSum& sum) {
  constexpr int kPoints = 1000;
  std::vector<Vec<N, T>> points(kPoints), found(kPoints);
  for (int i = 0; i < kPoints; ++i) {
    const T u = static_cast<T>(i * 16) / 25, v = static_cast<T>(i * 37 % 480);
    if constexpr (N == 2) points[static_cast<std::size_t>(i)] = {u, v};
    if constexpr (N == 3) points[static_cast<std::size_t>(i)] = {u, static_cast<T>(i) / 4, v};
  }
  const auto map = [&](CoordinateSystem from, CoordinateSystem to) {
    forEachBlock(32 * rows, kPoints, [&](int first, int count) {
      if constexpr (N == 2) {
        SceneSum::require(mapPoints(model, points.data() + first, found.data() + first,
                                    static_cast<std::size_t>(count), from, to));
      } else {
        SceneSum::require(mapPoints(model, points.data() + first, found.data() + first,
                                    static_cast<std::size_t>(count), from, to, 2.0, 0.25));
      }
    });
    points = found;
  };
  map(CoordinateSystem::Pixel, way.first);
  map(way.first, way.second);
  for (const auto& point : points) add(sum, point);
}

void mapSomeBoxes(const CalibrationModel& model, Direction way, SceneSum& sum) {
  auto box = cmnalg::shape3d::Box::FromCorners({0.1, 0, 0.3}, {637.7, 21.3, 470.9});
  SceneSum::require(mapBox(model, box, box, CoordinateSystem::Pixel, way.first, 0.1, 0.3, 2));
  etl::Vector<Vec<3, double>> points;
  SceneSum::require(mapBox(model, box, points, way.first, way.second, 0.1, 0.3, 5));
  for (const auto& point : points) add(sum, point);
  SceneSum::require(mapBox(model, box, box, way.first, way.second, 0.1, 0.3, 5));
  add(sum, box.Size);
  for (int row = 0; row < 3; ++row) {
    for (int column = 0; column < 4; ++column) sum.add(box.Pose.GetMatrix()[row][column]);
  }
}

void mapSomeRectangles(const CalibrationModel& model, Direction way, SceneSum& sum) {
  cmnalg::shape::Rectangle rectangle;
  rectangle.Center = {310.25, 236.5};
  rectangle.Width = 600;
  rectangle.Height = 450;
  SceneSum::require(
      mapRectangle(model, rectangle, rectangle, CoordinateSystem::Pixel, way.first, 3));
  cmnalg::shape::Polyline outline;
  SceneSum::require(mapRectangle(model, rectangle, outline, way.first, way.second, 7));
  for (const auto& point : outline.Points) add(sum, point);
  SceneSum::require(mapRectangle(model, rectangle, rectangle, way.first, way.second, 7));
  add(sum, rectangle.Center);
  for (const double value : {rectangle.Width, rectangle.Height}) sum.add(value);
}

void addMapping(std::vector<Scene>& scenes) {
  constexpr std::pair<const char*, CoordinateSystem> kSystems[] = {
      {"pixel", CoordinateSystem::Pixel},
      {"calibrated", CoordinateSystem::Calibrated},
      {"aligned", CoordinateSystem::Aligned}};
  for (const auto& from : kSystems) {
    for (const auto& to : kSystems) {
      if (from == to) continue;
      const Direction way{from.second, to.second};
      const std::string title = std::string(" from ") + from.first + " to " + to.first;
      addScene(scenes, "points" + title, [way](int rows, SceneSum& sum) {
        CalibrationModel model = referenceModel();
        for (const SkewMode mode : {SkewMode::XZ_IN_LIGHT_PLANE, SkewMode::Z_NOT_IN_LIGHT_PLANE,
                                    SkewMode::XZ_NOT_IN_LIGHT_PLANE}) {
          model.SkewMode = mode;
          mapSomePoints<2, float>(model, way, rows, sum);
          mapSomePoints<2, double>(model, way, rows, sum);
          mapSomePoints<3, float>(model, way, rows, sum);
          mapSomePoints<3, double>(model, way, rows, sum);
          model.SheetCurve.clear();
        }
      });
      addScene(scenes, "boxes" + title,
               [way](int, SceneSum& sum) { mapSomeBoxes(referenceModel(), way, sum); });
      addScene(scenes, "rectangles" + title,
               [way](int, SceneSum& sum) { mapSomeRectangles(referenceModel(), way, sum); });
    }
  }
}

void addBounds(std::vector<Scene>& scenes) {
  addScene(scenes, "bounds of sensor regions", [](int, SceneSum& sum) {
    for (const double scale : {1.0, 1.0 / 16, -0.5}) {
      datafusion::planex::WorldBounds bounds;
      SceneSum::require(
          calculateWorldBounds(referenceModel(), {1, 0, scale, scale < 0 ? 400.0 : 20.0, 640, 300},
                               640, bounds) == datafusion::planex::WorldBoundsResult::Calculated);
      for (const double value : {bounds.x.min, bounds.x.max, bounds.z.min, bounds.z.max}) {
        sum.add(value);
      }
      add(sum, bounds.lateralSpacing);
    }
  });
  addScene(scenes, "bounds of the sensor", [](int, SceneSum& sum) {
    for (const bool aligned : {false, true}) {
      Vec<2, double> min, max, spacing;
      SceneSum::require(
          calculateCalibratedBounds(referenceModel(), aligned, min, max, spacing.x, spacing.y));
      for (const auto& value : {min, max, spacing}) add(sum, value);
    }
  });
  addScene(scenes, "bounds of images", [](int, SceneSum& sum) {
    Vec<3, double> min, max;
    SceneSum::require(calculateImageBounds(referenceModel(), rangeImage<std::uint16_t>(), 10, 400,
                                           min, max, CoordinateSystem::Pixel,
                                           CoordinateSystem::Aligned, 4));
    add(sum, min);
    add(sum, max);
  });
}

void addGrids(std::vector<Scene>& scenes) {
  addScene(scenes, "height maps laid out", [](int, SceneSum& sum) {
    ImageOf<std::uint16_t> target;
    SceneSum::require(datafusion::planex::createRectificationTarget(
        300, -20.7, 31.9, 17, 0, 3.3, 65535, 250, 391.1, target, cmnalg::IMAGE_TYPE_UINT16, 1));
    sum.add(target);
    SceneSum::require(datafusion::planex::createRectificationTarget(
        0.3, -20.7, 31.9, 0.7, 0, 3.3, 0.0, 250, 391.1, target, cmnalg::IMAGE_TYPE_UINT16, 1));
    sum.add(target);
    for (const auto& axis : {datafusion::planex::sampleAxis(-20.7, 31.9, 300),
                             datafusion::planex::levelAxis(250, 391.1, 65536)}) {
      sum.add(axis.scale);
      sum.add(axis.origin);
    }
  });
  addScene(scenes, "levels and intensities", [](int rows, SceneSum& sum) {
    const auto& levels = rangeImage<std::uint16_t>();
    ImageOf<float> heights = blankImage<float>(kWidth, kHeight);
    auto reduced = blankImage<std::uint8_t>(kWidth, kHeight);
    datafusion::planex::IntensityLimits limits;
    const auto pixels = [](int count) { return static_cast<std::size_t>(count) * kWidth; };
    forEachBlock(rows, kHeight, [&](int first, int count) {
      limits.Include(
          datafusion::planex::findIntensityLimits(levels.GetRowPtr(first), pixels(count)));
      datafusion::planex::toWorldHeights(levels.GetRowPtr(first), pixels(count), {0.0013, 250.1},
                                         -9999.0F, heights.GetRowPtr(first));
    });
    forEachBlock(rows, kHeight, [&](int first, int count) {
      datafusion::planex::reduceIntensities(levels.GetRowPtr(first), pixels(count), limits,
                                            reduced.GetRowPtr(first));
    });
    sum.add(heights);
    sum.add(reduced);
  });
}

/// Frames with a line, a second one where `second` does not mask it, and noise.
template <typename T>
std::vector<ImageOf<T>> lineFrames() {
  constexpr int kFrames = 14, kColumns = 256, kRows = 160;
  constexpr unsigned kBright = sizeof(T) == 1 ? 1 : 250;
  std::vector<ImageOf<T>> frames;
  for (unsigned frame = 0; frame < kFrames; ++frame) {
    frames.push_back(
        drawnImage<T>(kColumns, kRows, [frame](unsigned u, unsigned v, unsigned noise) {
          // In sixteenths of a row.
          const auto far = [v](unsigned place) {
            const unsigned here = 16 * v;
            return here > place ? here - place : place - here;
          };
          const auto light = [](unsigned distance, unsigned peak) {
            return distance < 80 ? peak * (6400 - distance * distance) / 6400 : 0;
          };
          const unsigned first = light(far(400 + 3 * u + 37 * frame), u % 19 == 0 ? 3 : 180);
          const unsigned second = u % 3 == 0 ? light(far(2100 - 2 * u), 40 + u % 160) : 0;
          return kBright * std::min(first + second + noise % 9, 255U);
        }));
  }
  return frames;
}

template <typename T>
void extractSomeLines(LineMethod method, int rows, SceneSum& sum) {
  static const std::vector<ImageOf<T>> frames = lineFrames<T>();
  const int count = static_cast<int>(frames.size());
  ImageOf<std::uint16_t> range;
  SceneSum::require(createLineTarget(frames.front(), count, range));
  ImageOf<T> intensity = blankImage<T>(range.GetWidth(), count);
  ImageOf<std::uint16_t> width = range, deviation = range;
  auto quality = blankImage<std::uint8_t>(range.GetWidth(), count);
  std::vector<cmnalg::Image> views;
  views.reserve(frames.size());
  for (const auto& frame : frames) views.emplace_back(frame, true);
  datafusion::planex::LineSettings settings;
  settings.method = method;
  settings.gain = 0.03;
  settings.readNoise = 1.5;
  settings.nearestRow = 90;
  settings.minimumWidth = 1.5;
  for (const LineChoice choice :
       {LineChoice::STRONGEST, LineChoice::FIRST, LineChoice::LAST, LineChoice::NEAREST}) {
    settings.choice = choice;
    settings.lineWidth = choice == LineChoice::LAST ? 7.5 : 5;
    settings.firstRow = choice == LineChoice::FIRST ? 20 : 0;
    forEachBlock(rows, count, [&](int first, int some) {
      SceneSum::require(extractLines(views.data() + first, some, settings, first, range,
                                     {&intensity, &width, &quality, &deviation}));
    });
    sum.add(range);
    sum.add(intensity);
    sum.add(width);
    sum.add(deviation);
    sum.add(quality);
  }
}

void addLines(std::vector<Scene>& scenes) {
  for (const LineMethod method : {LineMethod::DERIVATIVE, LineMethod::CENTRE_OF_GRAVITY}) {
    const std::string title =
        std::string("lines ") +
        (method == LineMethod::DERIVATIVE ? "DERIVATIVE" : "CENTRE_OF_GRAVITY");
    addScene(scenes, title + " uint8", [method](int rows, SceneSum& sum) {
      extractSomeLines<std::uint8_t>(method, rows, sum);
    });
    addScene(scenes, title + " uint16", [method](int rows, SceneSum& sum) {
      extractSomeLines<std::uint16_t>(method, rows, sum);
    });
  }
  addScene(scenes, "frames without their dark one, transposed", [](int, SceneSum& sum) {
    const auto frame = drawnImage<std::uint16_t>(
        161, 90, [](unsigned, unsigned, unsigned noise) { return noise & 0xFFFF; });
    const auto dark = drawnImage<std::uint16_t>(161, 90, [](unsigned u, unsigned, unsigned noise) {
      return (noise >> 8 & 0xFFFF) / (1 + u);
    });
    ImageOf<std::uint16_t> left = frame, transposed;
    SceneSum::require(subtractDark(dark, left) && transpose(left, transposed));
    sum.add(left);
    sum.add(transposed);
  });
}

}  // namespace

void addProcessingScenes(std::vector<Scene>& scenes) {
  addCalibration(scenes);
  addAlignment(scenes);
  addRectification(scenes);
  addPointGrids(scenes);
  addMapping(scenes);
  addBounds(scenes);
  addGrids(scenes);
  addLines(scenes);
}

}  // namespace planex::scan
