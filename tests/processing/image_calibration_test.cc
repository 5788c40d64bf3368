#include "planex/processing/image_calibration.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

#include "planex/processing/calibration_block.h"
#include "tests/support/model_builders.h"
#include "tests/support/refusals.h"

namespace datafusion::planex {
namespace {

using cmnalg::Image;
using cmnalg::ImageOf;
using cmnalg::Matrix;

const auto& kAllocator = Image::s_defaultImageAllocator;
const double kNaN = std::nan("");

struct Arguments {
  CalibrationModel model = test::fullModel();
  ImageOf<std::uint8_t> range{4, 3, kAllocator};
  ImageOf<float> x{2, 2, kAllocator};
  ImageOf<float> z{2, 2, kAllocator};
};

std::uint8_t* bytesOf(Image& image) { return static_cast<std::uint8_t*>(image.GetData()); }

const char* const kCentre = "Invalid lens center matrix.";
const char* const kFocal = "Invalid focal length.";
const char* const kHomography = "Invalid perspective matrix.";
const char* const kSheet = "Invalid sheet curve.";
const char* const kReuse = "Cannot reuse source image as target image.";
const test::Check<Arguments> kChecks[] = {
    // clang-format off
    {[](auto& a) { a.model.LensCenter.x = 0; }, kCentre},
    {[](auto& a) { a.model.LensCenter.y = -1; }, kCentre},
    {[](auto& a) { a.model.LensCenter = {kNaN, kNaN}; }, nullptr},
    {[](auto& a) { a.model.FocalLength = 0; }, kFocal},
    {[](auto& a) { a.model.FocalLength = kNaN; }, nullptr},
    {[](auto& a) { a.model.Homography = Matrix<double>::Identity(3, 4); }, kHomography},
    {[](auto& a) { a.model.Homography = Matrix<double>::Identity(4, 3); }, kHomography},
    {[](auto& a) { a.model.Homography.Create(3, 3, 4); }, kHomography},
    {[](auto& a) { a.model.SheetCurve = {1, 2, 3, 4, 5}; }, kSheet},
    {[](auto& a) { a.model.SheetCurve = {1, 0, 0, 0, 0, 0, 9}; }, nullptr},
    {[](auto& a) { a.range.Create(bytesOf(a.x) + 1, 3, 2, 0, false, kAllocator, false); }, kReuse},
    {[](auto& a) { a.range.Create(bytesOf(a.z) + 1, 3, 2, 0, false, kAllocator, false); }, kReuse},
    {[](auto& a) { a.x.Create(a.z.GetRowPtr(1) + 1, 1, 1, 0, false, kAllocator, false); }, kReuse},
    {[](auto& a) { a.model.Pose = Matrix<double>::Identity(4, 3); }, "Invalid pose matrix."},
    {[](auto& a) { a.model.Pose = Matrix<double>::Identity(3, 4); }, nullptr},
    // clang-format on
};

TEST(ImageCalibration, RefusesInOrder) {
  expectChecksInOrder(kChecks, [](Arguments& a) {
    a.model.CurrentState = ModelState::ALIGNED_3D;
    const bool done = applyCalibration(a.model, true, a.range, a.x, a.z, RunMode::Default);
    EXPECT_EQ(a.z.GetWidth(), done ? a.range.GetWidth() : 2);
    EXPECT_EQ(a.x.HandleZeroPixels == cmnalg::ZeroPixels::MissingData, done);
    return done;
  });
}

TEST(ImageCalibration, LeavesTargetsUnfilledForSignedRangeImages) {
  const Image range(cmnalg::IMAGE_TYPE_INT16, 6, 5, kAllocator);
  ImageOf<float> x;
  ImageOf<float> z;
  test::LogCapture log;
  EXPECT_FALSE(applyCalibration(test::fullModel(), false, range, x, z, RunMode::Default));
  EXPECT_EQ(log.TakeOne(), "");
  EXPECT_EQ(z.HandleZeroPixels, cmnalg::ZeroPixels::MissingData);
}

TEST(CalibrationBlock, RefusesWhatItCannotReadOrWrite) {
  ImageOf<float> x(8, 4, kAllocator);
  ImageOf<float> z(8, 4, kAllocator);
  const double k[9] = {};
  const auto run = [&](cmnalg::ImageType type, int width, const double* lens, const double* h) {
    return basic::applyCalibrationBlock<float>(0, 8, 0, 4, Image(type, width, 4, kAllocator), 1, 1,
                                               0, 0, kNaN, lens, h, x, z);
  };
  EXPECT_TRUE(run(cmnalg::IMAGE_TYPE_UINT16, 9, k, k));
  EXPECT_FALSE(run(cmnalg::IMAGE_TYPE_UINT16, 7, k, k));
  EXPECT_FALSE(run(cmnalg::IMAGE_TYPE_UINT16, 9, nullptr, k));
  EXPECT_FALSE(run(cmnalg::IMAGE_TYPE_UINT16, 9, k, nullptr));
  EXPECT_FALSE(run(cmnalg::IMAGE_TYPE_RGB24, 9, k, k));
  EXPECT_FALSE(basic::applyCalibrationSheetCurve(nullptr, x, z));
}

}  // namespace
}  // namespace datafusion::planex
