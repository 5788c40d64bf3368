#include "planex/processing/image_calibration.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "planex/model/point_mapping.h"
#include "tests/support/reference.h"
#include "tests/support/warning_capture.h"

namespace datafusion::planex {
namespace {

using cmnalg::Image;
using cmnalg::ImageOf;
using cmnalg::Matrix;

const auto& kAllocator = Image::s_defaultImageAllocator;

/// A camera that uses every part of the model, aligned in 3D.
CalibrationModel camera() {
  CalibrationModel model;
  model.CurrentState = ModelState::CALIBRATED_ALIGNED_3D;
  model.FocalLength = 1200;
  model.LensCenter = {320.5, 241};
  model.LensCoefficients = {-0.11, 0.04, 0.013, 0.002, -0.0017, 0.02, -0.04};
  const double homography[9] = {110, -3, 12, 2, 140, 300, -0.02, 0.31, 1.01};
  model.Homography = Matrix<double>::FromRows(3, 3, homography);
  const double pose[16] = {0.9, 0.1, -0.4, 7, -0.2, 0.95, 0.1, -3, 0.4, 0.05, 0.9, 11, 0, 0, 0, 1};
  model.Pose = Matrix<double>::FromRows(4, 4, pose);
  model.Skew = {0.1, 0.9, -0.2};
  model.SensorSize = {640, 480};
  return model;
}

ImageOf<std::uint16_t> rangeImage() {
  ImageOf<std::uint16_t> range(40, 3, kAllocator);
  for (int v = 0; v < 3; ++v) {
    for (int u = 0; u < 40; ++u)
      range.Pix(u, v) = static_cast<std::uint16_t>((u * 97 + v * 7) % 480);
  }
  range.PixelSize = {16.0, 0.25, 1.0};
  range.Origin = {3.0, -2.0, 0.5};
  return range;
}

TEST(ImageCalibration, AgreesWithTheMappingOfPoints) {
  CalibrationModel model = camera();
  model.setSheetCurve(1.5, 1e-4, 0.02, 1e-4, -2e-5, 3e-7);
  const ImageOf<std::uint16_t> range = rangeImage();
  for (const bool aligned : {false, true}) {
    if (aligned) model.SheetCurve.clear();  // the orders differ: see the documentation
    ImageOf<float> x;
    ImageOf<float> z;
    x.PixelSize.x = 9;
    ASSERT_TRUE(applyCalibration(model, aligned, range, x, z, RunMode{3}));
    for (int v = 0; v < 3; ++v) {
      for (int u = 0; u < 40; ++u) {
        if (range.Pix(u, v) == 0) {
          EXPECT_TRUE(std::isnan(x.Pix(u, v)) && std::isnan(z.Pix(u, v)));
          continue;
        }
        etl::Vector<cmnalg::Vec<2, double>> point{{u * 16.0 + 3.0, range.Pix(u, v) + 0.5}};
        ASSERT_TRUE(mapPoints(model, point, point, CoordinateSystem::Pixel,
                              aligned ? CoordinateSystem::Aligned : CoordinateSystem::Calibrated));
        // Rounding to float, and that of the sheet curve's sum.
        EXPECT_NEAR(x.Pix(u, v), point[0].x, 3e-7 * std::abs(point[0].x));
        EXPECT_NEAR(z.Pix(u, v), point[0].y, 3e-7 * std::abs(point[0].y));
      }
    }
    EXPECT_EQ(x.HandleZeroPixels, cmnalg::ZeroPixels::MissingData);
    EXPECT_EQ(z.PixelSize, (cmnalg::Vec<3, double>{1, 0.25, 1}));
    EXPECT_EQ(x.PixelSize, (cmnalg::Vec<3, double>{9, 0.25, 1}));
    EXPECT_EQ(z.Origin, (cmnalg::Vec<3, double>{0, -2, 0}));
  }
}

TEST(ImageCalibration, TakesPrecisionFromTheParityOfTheMode) {
  const CalibrationModel model = camera();
  const ImageOf<std::uint16_t> range = rangeImage();
  const auto zOf = [&](int mode) {
    ImageOf<float> x;
    ImageOf<float> z;
    EXPECT_TRUE(applyCalibration(model, false, range, x, z, static_cast<RunMode>(mode)));
    std::vector<float> values;
    for (int u = 1; u < 40; ++u) values.push_back(z.Pix(u, 1));
    return values;
  };
  EXPECT_EQ(zOf(1), zOf(3));
  EXPECT_EQ(zOf(0), zOf(2));
  EXPECT_EQ(zOf(0), zOf(-1));
  EXPECT_NE(zOf(0), zOf(1));
}

TEST(ImageCalibration, AlignsInTheAlignedStatesOnly) {
  CalibrationModel model = camera();
  for (int state = 0; state < 6; ++state) {
    model.CurrentState = static_cast<ModelState>(state);
    const Matrix<double> transform = getCalibrationTransform(model, true);
    EXPECT_EQ(transform[0][0] == model.Homography[0][0], state < 2) << state;
    EXPECT_EQ(getCalibrationTransform(model, false)[0][0], model.Homography[0][0]);
  }
}

struct Arguments {
  CalibrationModel model = camera();
  ImageOf<std::uint16_t> range = rangeImage();
  ImageOf<float> x{2, 2, kAllocator};
  ImageOf<float> z{2, 2, kAllocator};
};
struct Refusal {
  const char* name;
  void (*spoil)(Arguments&);
  const char* text;  ///< null: accepted
};
const char* const kReuse = "Cannot reuse source image as target image.";
const double kNaN = std::nan("");
const Refusal kRefusals[] = {
    {"CentreX",
     [](Arguments& a) {
       a.model.LensCenter = {0, 240};
     },
     "Invalid lens center matrix."},
    {"CentreY",
     [](Arguments& a) {
       a.model.LensCenter = {320, -1};
     },
     "Invalid lens center matrix."},
    {"NaNCentrePasses",
     [](Arguments& a) {
       a.model.LensCenter = {kNaN, kNaN};
     },
     nullptr},
    {"Focal", [](Arguments& a) { a.model.FocalLength = 0; }, "Invalid focal length."},
    {"NaNFocalPasses", [](Arguments& a) { a.model.FocalLength = kNaN; }, nullptr},
    {"CentreBeforeFocal",
     [](Arguments& a) {
       a.model.FocalLength = -1;
       a.model.LensCenter.x = 0;
     },
     "Invalid lens center matrix."},
    {"HomographyShape", [](Arguments& a) { a.model.Homography = Matrix<double>::Identity(3, 4); },
     "Invalid perspective matrix."},
    {"HomographyPitch", [](Arguments& a) { a.model.Homography.Create(3, 3, 4); },
     "Invalid perspective matrix."},
    {"ShortSheetCurve",
     [](Arguments& a) {
       a.model.SheetCurve = {1, 2, 3, 4, 5};
     },
     "Invalid sheet curve."},
    {"LongSheetCurve", [](Arguments& a) { a.model.SheetCurve = {1, 0, 0, 0, 0, 0, 9}; }, nullptr},
    {"PoseShape", [](Arguments& a) { a.model.Pose = Matrix<double>::Identity(4, 3); },
     "Invalid pose matrix."},
    {"PoseOfThreeRows", [](Arguments& a) { a.model.Pose = Matrix<double>::Identity(3, 4); },
     nullptr},
    {"RangeIsTarget",
     [](Arguments& a) {
       a.range.Create(static_cast<std::uint16_t*>(a.z.GetData()) + 1, 3, 2, 0, false, kAllocator,
                      false);
     },
     kReuse},
    {"TargetsOverlap",
     [](Arguments& a) {
       a.x.Create(static_cast<float*>(a.z.GetData()) + 3, 1, 1, 0, false, kAllocator, false);
     },
     kReuse},
};

TEST(ImageCalibration, RefusesWithOneWarningAndUntouchedTargets) {
  for (const Refusal& refusal : kRefusals) {
    SCOPED_TRACE(refusal.name);
    Arguments a;
    a.x.SetAll(5);
    refusal.spoil(a);
    const WarningCapture log;
    EXPECT_EQ(applyCalibration(a.model, true, a.range, a.x, a.z, RunMode::Default),
              refusal.text == nullptr);
    EXPECT_EQ(log.Messages(), refusal.text == nullptr ? std::vector<std::string>{}
                                                      : std::vector<std::string>{refusal.text});
    if (refusal.text == nullptr) continue;
    EXPECT_EQ(log.Loggers().front(), "Image.Calibration.Planex");
    EXPECT_LE(a.x.GetWidth(), 2);
    EXPECT_EQ(a.x.HandleZeroPixels, cmnalg::ZeroPixels::Default);
  }
}

TEST(ImageCalibration, LeavesTargetsUnfilledForSignedRangeImages) {
  const Image range(cmnalg::IMAGE_TYPE_INT16, 6, 5, kAllocator);
  ImageOf<float> x;
  ImageOf<float> z;
  const WarningCapture log;
  EXPECT_FALSE(applyCalibration(camera(), false, range, x, z, RunMode::Default));
  EXPECT_TRUE(log.Messages().empty());
  EXPECT_EQ(x.GetWidth(), 6);
  EXPECT_EQ(z.HandleZeroPixels, cmnalg::ZeroPixels::MissingData);
}

}  // namespace
}  // namespace datafusion::planex
