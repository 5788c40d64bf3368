#include <gtest/gtest.h>
#include <omp.h>

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "planex/foundation/image_of.h"
#include "planex/foundation/matrix_inverse.h"
#include "planex/infra/class_repository.h"
#include "planex/infra/logger.h"
#include "planex/model/calibrated_bounds.h"
#include "planex/model/point_mapping.h"
#include "planex/model/shape_mapping.h"
#include "planex/processing/image_alignment.h"
#include "planex/processing/image_calibration.h"
#include "planex/processing/rectification.h"
#include "planex/processing/rectification_target.h"
#include "tests/faults/faulty_memory.h"
#include "tests/support/instruction_sets.h"
#include "tests/support/model_builders.h"

namespace test {
namespace {

using cmnalg::Image;
using cmnalg::ImageOf;
using cmnalg::Vec;
using datafusion::planex::CoordinateSystem;
using datafusion::planex::RectificationMode;
using datafusion::planex::RunMode;
using Plane = etl::Vector<Vec<2, double>>;
using Space = etl::Vector<Vec<3, double>>;

const auto& kAllocator = Image::s_defaultImageAllocator;

CalibrationModel usedModel() {
  std::mt19937 random(7);
  CalibrationModel model = randomModel(random);
  EXPECT_TRUE(model.CalibratedRegion.Resize(3, 2));
  EXPECT_TRUE(model.CalibratedRegion.Update(Plane{{0, 0}, {3, 2}}, Plane{{1, 1}, {2, 2}}));
  return model;
}

std::string textOf(const Image& image) {
  std::string text = std::to_string(image.GetWidth()) + "x" + std::to_string(image.GetHeight());
  for (int y = 0; y < image.GetHeight(); ++y) {
    for (int x = 0; x < image.GetWidth(); ++x) text += ' ' + std::to_string(image.GetPixel(x, y));
  }
  return text;
}

/// Objects for one call. What is const in a call, or must survive its failure, is compared after.
struct Objects {
  Objects()
      : model(usedModel()),
        target(test::plainModel()),
        document(toJson(model)),
        range(20, 8, kAllocator),
        intensity(20, 8, kAllocator) {
    range.SetAll(900);
    intensity.SetAll(5);
    range.PixelSize.z = 1.0 / 16;
    former.Create(cmnalg::IMAGE_TYPE_UINT8, 2, 2, 0, kAllocator);
    for (int i = 0; i < 4; ++i) former.SetPixel(i % 2, i / 2, i);
    EXPECT_TRUE(applyCalibration(model, false, range, x, z, RunMode::Default));
    modelText = toJson(model);
    targetText = toJson(target);
    formerText = textOf(former);
  }

  void check() {
    EXPECT_EQ(toJson(model), modelText);
    EXPECT_EQ(toJson(target), targetText);
    EXPECT_EQ(textOf(former), formerText);
    EXPECT_EQ(points.size(), 2u);
  }

  CalibrationModel model, target;
  std::string document;
  ImageOf<std::uint16_t> range;
  ImageOf<std::uint8_t> intensity;
  ImageOf<float> x, z;
  Image former;  // has pixels to lose
  Space points{{1, 2, 3}, {4, 5, 6}};
  std::string modelText, targetText, formerText;
};

Operation operation(const char* name, Expect expect, bool (*run)(Objects&)) {
  return {name, expect, [run] {
            const auto objects = std::make_shared<Objects>();
            return Call{[objects, run] { return run(*objects); }, [objects] { objects->check(); }};
          }};
}

template <typename T>
bool mapAll(Objects& o, CoordinateSystem from, CoordinateSystem to) {
  etl::Vector<Vec<3, T>> space(2, {T{5}, T{1}, T{7}});
  etl::Vector<Vec<2, T>> plane(2, {T{5}, T{7}});
  etl::Vector<Vec<3, T>> spaceOut;
  etl::Vector<Vec<2, T>> planeOut;
  return datafusion::planex::mapPoints<T>(o.model, space, spaceOut, from, to, 0.0, 1.0) &&
         datafusion::planex::mapPoints<T>(o.model, plane, planeOut, from, to);
}

template <RectificationMode kMode>
bool rectifyWith(Objects& o) {
  ImageOf<std::uint16_t> heights(30, 8, kAllocator);
  ImageOf<std::uint8_t> intensities(30, 8, kAllocator);
  if (!heights.IsConsistent() || !intensities.IsConsistent()) return false;
  heights.HandleZeroPixels = cmnalg::ZeroPixels::MissingData;
  heights.PixelSize = {5, 1, 0.01};
  const bool done =
      toRectified(o.x, o.z, o.intensity, {0.001, 0.5}, 1.0, kMode, heights, intensities, true);
  return done && (kMode == RectificationMode::BRIGHTEST ||
                  toRectified(o.x, o.z, {0.001, 0.5}, 1.0, kMode, heights, true));
}

const Operation kOperations[] = {
    operation("ImageCreate", Expect::False,
              [](Objects& o) {
                Image image;
                return image.Create(cmnalg::IMAGE_TYPE_FLOAT64, 7, 3, 9, kAllocator) &&
                       image.Create(o.former, true);
              }),
    operation("ImageClonePixels", Expect::False,
              [](Objects& o) {
                Image image;
                return image.Create(o.former.GetData(), cmnalg::IMAGE_TYPE_UINT8, 2, 2, 0, true,
                                    kAllocator, false);
              }),
    operation("ImageCopy", Expect::FalseOrThrow,
              [](Objects& o) {
                Image copy(o.x);
                return textOf(copy) == textOf(o.x);
              }),
    operation("ImageAssign", Expect::FalseOrThrow,
              [](Objects& o) {
                Image target(o.former, false);
                target = static_cast<const Image&>(o.x);
                o.former = static_cast<const Image&>(o.x);
                return true;
              }),
    operation("ImageCloneVisitable", Expect::FalseOrThrow,
              [](Objects& o) { return o.x.CloneVisitable() != nullptr; }),
    operation("ModelDefault", Expect::FalseOrThrow,
              [](Objects&) { return CalibrationModel().IsConsistent(); }),
    operation("ModelCopy", Expect::FalseOrThrow,
              [](Objects& o) { return CalibrationModel(o.model).IsConsistent(); }),
    operation("ModelAssign", Expect::FalseOrThrow,
              [](Objects& o) {
                o.target = o.model;
                return true;
              }),
    operation("ModelClone", Expect::FalseOrThrow,
              [](Objects& o) { return o.model.CloneVisitable() != nullptr; }),
    operation("ModelReset", Expect::FalseOrThrow,
              [](Objects& o) {
                o.target.reset();
                return true;
              }),
    operation("ModelMirror", Expect::FalseOrThrow,
              [](Objects& o) {
                return o.target.mirror(true, {1, 2});
              }),
    operation("ModelPose", Expect::FalseOrThrow,
              [](Objects& o) { return o.target.setPose({}) && o.target.setHomography({}); }),
    operation("ModelSheetCurve", Expect::FalseOrThrow,
              [](Objects& o) { return o.target.setSheetCurve(1, 2, 3, 4, 5, 6); }),
    operation("ModelText", Expect::FalseOrThrow,
              [](Objects& o) { return !o.model.toString().empty(); }),
    operation("ModelK", Expect::FalseOrThrow, [](Objects& o) { return !o.model.getK().IsEmpty(); }),
    operation("ModelWrite", Expect::FalseOrThrow,
              [](Objects& o) { return toJson(o.model) == o.document; }),
    operation("ModelRead", Expect::FalseOrThrow,
              [](Objects& o) {
                CalibrationModel model;
                return readJson(o.document, model).empty() && toJson(model) == o.document;
              }),
    operation("ObjectRead", Expect::FalseOrThrow,
              [](Objects& o) {
                base::JsonVisitingDeSerializer reader(o.document.c_str(), true);
                return reader.DeserializeObject() != nullptr;
              }),
    operation("TransformOfAnotherSizeRead", Expect::FalseOrThrow,
              [](Objects&) {
                base::JsonVisitingDeSerializer reader(
                    R"({"class":"Transform2D","data":{"Type":"HOMOGRAPHY","Matrix":[[1,2,3]]}})",
                    true);
                reader.DeserializeObject();
                return reader.GetErrorDescription() ==
                       "Serialized array size mismatch while de-serializing class 'Transform2D'";
              }),
    operation("RegionResize", Expect::FalseOrThrow,
              [](Objects& o) { return o.target.CalibratedRegion.Resize(5, 4); }),
    operation("RegionUpdate", Expect::FalseOrThrow,
              [](Objects& o) {
                const Plane points{{0, 0}, {1, 1}};
                return o.model.CalibratedRegion.Update({points, points}, {points, points});
              }),
    operation("RegionImages", Expect::FalseOrThrow,
              [](Objects& o) {
                Image a;
                Image b;
                return o.model.CalibratedRegion.GetPointCount(a) &&
                       o.model.CalibratedRegion.GetAverageResiduals(a, b) &&
                       o.model.CalibratedRegion.GetMaximumResiduals(a, b);
              }),
    operation("MapForward", Expect::FalseOrThrow,
              [](Objects& o) {
                return mapAll<float>(o, CoordinateSystem::Pixel, CoordinateSystem::Aligned) &&
                       mapAll<double>(o, CoordinateSystem::Calibrated,
                                      CoordinateSystem::Calibrated);
              }),
    operation("MapBack", Expect::FalseOrThrow,
              [](Objects& o) {
                return mapAll<double>(o, CoordinateSystem::Aligned, CoordinateSystem::Pixel);
              }),
    operation("MapBox", Expect::FalseOrThrow,
              [](Objects& o) {
                cmnalg::shape3d::Box box;
                box.Size = {1, 2, 3};
                return mapBox(o.model, box, box, CoordinateSystem::Calibrated,
                              CoordinateSystem::Aligned, 0, 1, 3) &&
                       mapBox(o.model, box, o.points, CoordinateSystem::Calibrated,
                              CoordinateSystem::Aligned, 0, 1, 3);
              }),
    operation("MapRectangle", Expect::FalseOrThrow,
              [](Objects& o) {
                cmnalg::shape::Rectangle rectangle;
                rectangle.Width = rectangle.Height = 2;
                cmnalg::shape::Polyline line;
                return mapRectangle(o.model, rectangle, line, CoordinateSystem::Pixel,
                                    CoordinateSystem::Calibrated, 2) &&
                       mapRectangle(o.model, rectangle, rectangle, CoordinateSystem::Pixel,
                                    CoordinateSystem::Calibrated, 2);
              }),
    operation("Bounds", Expect::FalseOrThrow,
              [](Objects& o) {
                Vec<2, double> min, max;
                Vec<3, double> low, high;
                double slope = 0;
                double offset = 0;
                return calculateCalibratedBounds(o.model, true, {10, 10}, {500, 500}, min, max,
                                                 slope, offset) &&
                       calculateImageBounds(o.model, o.range, 10, 20, low, high,
                                            CoordinateSystem::Pixel, CoordinateSystem::Calibrated,
                                            1);
              }),
    operation("Calibrate", Expect::FalseOrThrow,
              [](Objects& o) {
                ImageOf<float> x;
                ImageOf<float> z;
                return applyCalibration(o.model, true, o.range, x, z, RunMode::DoublePrecision);
              }),
    operation("Align", Expect::FalseOrThrow,
              [](Objects& o) {
                ImageOf<float> out[3];
                const etl::Vector<double> y(8, 0.5);
                return applyAlignment(o.model, true, o.x, y, o.z, out[0], out[1], out[2],
                                      RunMode::Default);
              }),
    operation("RectifyMean", Expect::FalseOrThrow, rectifyWith<RectificationMode::MEAN>),
    operation("RectifyLowest", Expect::FalseOrThrow, rectifyWith<RectificationMode::LOWEST>),
    operation("RectifyBrightest", Expect::FalseOrThrow, rectifyWith<RectificationMode::BRIGHTEST>),
    operation("RectificationTarget", Expect::False,
              [](Objects&) {
                Image target;
                return datafusion::planex::createRectificationTarget(
                           10, 0.0, 9.0, 2, 0.0, 1.0, 65536, 0.0, 1.0, target,
                           cmnalg::IMAGE_TYPE_UINT16, 0) &&
                       datafusion::planex::createRectificationTarget(1.0, 0.0, 12.0, 1.0, 0.0, 2.0,
                                                                     0.1, 0.0, 1.0, target,
                                                                     cmnalg::IMAGE_TYPE_UINT16, 0);
              }),
    operation("ToMatrix", Expect::False,
              [](Objects& o) {
                cmnalg::Matrix<double> matrix;
                return cmnalg::math::toMatrix(o.points, matrix, true);
              }),
    operation("Handlers", Expect::FalseOrThrow,
              [](Objects&) {
                base::Logger& logger = base::Logger::Get("Image.Planex.Model");
                logger.ReplaceAllHandlers(nullptr);
                logger.RemoveAllHandlers(true);
                return logger.GetHandler("a name that is not there") == nullptr;
              }),
};

class ClassFaults : public ::testing::TestWithParam<Operation> {
 protected:
  ClassFaults() { omp_set_num_threads(2); }

  const SmallTeams teams_;
};

TEST_P(ClassFaults, LeaveEverythingAsItWas) { runWithEveryFault(GetParam()); }

INSTANTIATE_TEST_SUITE_P(Classes, ClassFaults, ::testing::ValuesIn(kOperations),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(LoggerFaults, LetTheRootStandInForALogger) {
  long number = 1;
  for (bool hasStruck = true; hasStruck; ++number) {
    ASSERT_LT(number, 100);
    const std::string name = "Test.ALoggerWithoutMemoryFor." + std::to_string(number);
    const base::Logger* logger = nullptr;
    {
      const FaultyMemory faults(number, Fault::Once);
      logger = &base::Logger::Get(name);
      hasStruck = FaultyMemory::hasStruck();
    }
    EXPECT_EQ(logger == &base::Logger::GetRoot(), hasStruck) << "allocation " << number;
    EXPECT_EQ(base::Logger::Get(name).GetName(), name) << "once there is memory";
  }
  EXPECT_GT(number, 2);
}

}  // namespace
}  // namespace test
