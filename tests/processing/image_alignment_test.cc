#include "planex/processing/image_alignment.h"

#include <gtest/gtest.h>

#include <cmath>

#include "planex/processing/alignment_block.h"
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
  CalibrationModel model;
  ImageOf<float> x{4, 3, kAllocator};
  ImageOf<float> z{4, 3, kAllocator};
  etl::Vector<double> y = {0, 1, 2};
  ImageOf<float> xOut, yOut, zOut;
  bool aligned = true;
};

const char* const kPose = "Invalid pose matrix.";
const char* const kSkew = "Invalid skew vector.";
const char* const kReuse = "Cannot reuse source image as target image.";
const char* const kSize = "X and Z input must be of the same size.";
const test::Check<Arguments> kChecks[] = {
    // clang-format off
    {[](auto& a) { a.model.Pose = Matrix<double>::Identity(4, 5); }, kPose},
    {[](auto& a) { a.model.Pose = Matrix<double>::Identity(2, 4); }, kPose},
    {[](auto& a) { a.model.Pose = Matrix<double>::Identity(3, 4); }, nullptr},
    {[](auto& a) { a.model.Skew.y = 1e-13; }, kSkew},
    {[](auto& a) { a.model.Skew = {0.2, -1e-12, 1}; }, nullptr},
    {[](auto& a) { a.model.Skew.x = kNaN; }, kSkew},
    {[](auto& a) { a.model.Skew.z = kNaN; }, kSkew},
    {[](auto& a) { a.yOut.Create(a.x, false); }, kReuse},
    {[](auto& a) { a.zOut.Create(a.z.GetRowPtr(2), 2, 1, 0, false, kAllocator, false); }, kReuse},
    {[](auto& a) { a.xOut.Create(4, 4, kAllocator), a.yOut.Create(a.xOut, false); }, kReuse},
    {[](auto& a) { a.xOut.Create(4, 4, kAllocator), a.zOut.Create(a.xOut, false); }, kReuse},
    {[](auto& a) { a.yOut.Create(4, 4, kAllocator), a.zOut.Create(a.yOut, false); }, kReuse},
    {[](auto& a) { a.x.Create(5, 3, kAllocator); }, kSize},
    {[](auto& a) { a.x.Create(4, 2, kAllocator); }, kSize},
    {[](auto& a) { a.x.Create(4, 1, kAllocator); }, nullptr},
    {[](auto& a) { a.y.pop_back(); }, "Y vector must be as long as X and Z are high."},
    {[](auto& a) { a.model.Pose[0][0] = 0; }, kPose},
    {[](auto& a) { a.model.Pose[0][0] = 0, a.aligned = false; }, nullptr},
    // clang-format on
};

TEST(ImageAlignment, RefusesInOrder) {
  expectChecksInOrder(kChecks, [](Arguments& a) {
    a.x.SetAll(1);
    const int widthBefore = a.xOut.GetWidth();
    const bool done =
        applyAlignment(a.model, a.aligned, a.x, a.y, a.z, a.xOut, a.yOut, a.zOut, RunMode::Default);
    EXPECT_EQ(a.xOut.GetWidth(), done ? 4 : widthBefore);
    EXPECT_EQ(a.zOut.HandleZeroPixels == cmnalg::ZeroPixels::MissingData, done);
    return done;
  });
}

TEST(ImageAlignment, RefusesSignedIntegersSmallTransformsAndNarrowX) {
  const Image x(cmnalg::IMAGE_TYPE_FLOAT32, 2, 1, kAllocator);
  ImageOf<float> out[3] = {{2, 1, kAllocator}, {2, 1, kAllocator}, {2, 1, kAllocator}};
  const auto run = [&](const Image& z, int rows, int columns) {
    const auto transform = Matrix<double>::Identity(rows, columns);
    return basic::applyAlignment(x, {0.0}, z, transform, out[0], out[1], out[2]);
  };
  EXPECT_TRUE(run(x, 3, 4));
  EXPECT_FALSE(run(x, 2, 4) || run(x, 4, 3));
  EXPECT_FALSE(run(Image(cmnalg::IMAGE_TYPE_INT32, 2, 1, kAllocator), 3, 4));
  const Image narrow(cmnalg::IMAGE_TYPE_FLOAT32, 1, 1, kAllocator);
  EXPECT_FALSE(basic::applyAlignmentBlock(0, 2, 0, 1, narrow, {0.0}, x,
                                          Matrix<double>::Identity(3, 4), out[0], out[1], out[2]));
}

}  // namespace
}  // namespace datafusion::planex
