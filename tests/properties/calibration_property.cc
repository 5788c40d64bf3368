// Range images of every type through any model, to calibrated and on to aligned images: every pixel
// as the formulas give it. What is refused leaves its targets as they were.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "planex/foundation/matrix_inverse.h"
#include "planex/model/skewed_pose.h"
#include "planex/processing/alignment_block.h"
#include "planex/processing/calibration_block.h"
#include "planex/processing/image_alignment.h"
#include "planex/processing/image_calibration.h"
#include "tests/support/model_builders.h"
#include "tests/support/property.h"
#include "tests/support/reference.h"
#include "tests/support/samples.h"

namespace {

using cmnalg::Image;
using cmnalg::ImageOf;
using datafusion::planex::CalibrationModel;
using datafusion::planex::RunMode;
using test::Drawn;
using test::sameBits;
namespace planex = datafusion::planex;

const auto& kAllocator = Image::s_defaultImageAllocator;
constexpr float kUntouched = -7;

struct Block {
  int columnBegin, columnEnd, rowBegin, rowEnd;

  bool Holds(int u, int v) const {
    return u >= columnBegin && u < columnEnd && v >= rowBegin && v < rowEnd;
  }
  bool IsUsable(int width, int height) const {
    return columnBegin >= columnEnd || rowBegin >= rowEnd ||
           (columnBegin >= 0 && columnEnd <= width && rowBegin >= 0 && rowEnd <= height);
  }
};

Block drawBlock(test::ByteSource& source, int width, int height) {
  const int stray = source.Between(0, 7) == 0 ? source.Between(-1, 2) : 0;
  return {source.Between(0, width) + std::min(stray, 0), width - source.Between(0, width / 4),
          source.Between(0, height / 2), height + std::max(stray, 0)};
}

class CalibrationPlay {
 public:
  explicit CalibrationPlay(test::ByteSource& source)
      : source_(source),
        model_(test::anyModel(source)),
        aligned_(source.Flip()),
        mode_(static_cast<RunMode>(source.Between(-1, 3))),
        width_(source.Between(0, 80)),
        height_(source.Between(0, 5)) {
    for (double& y : rows_) y = source.Real();
    rows_.resize(static_cast<std::size_t>(source.Between(0, 15) == 0 ? 7 : height_));
    log_.Clear();
  }

  void Run() {
    test::withPixelType(source_, [&](auto pixel) { Calibrate<decltype(pixel)>(); });
    test::withPixelType(source_, [&](auto x) {
      test::withPixelType(source_, [&](auto z) { Align<decltype(x), decltype(z)>(); });
    });
  }

 private:
  using Matrix = cmnalg::Matrix<double>;

  /// What the formulas need, for a model that they can be applied to.
  reference::Calibration Constants(const Image& range) const {
    const double f = model_.FocalLength;
    reference::Calibration k{range.PixelSize.x / f,
                             range.PixelSize.z / f,
                             (range.Origin.x - model_.LensCenter.x) / f,
                             (range.Origin.z - model_.LensCenter.y) / f,
                             {},
                             {},
                             {},
                             !model_.SheetCurve.empty()};
    std::copy_n(model_.LensCoefficients.begin(), 7, k.lens);
    if (k.hasSheet) std::copy_n(model_.SheetCurve.begin(), 6, k.sheet);
    Matrix transform = model_.Homography;
    const int state = static_cast<int>(model_.CurrentState);
    if (aligned_ && state >= 2 && state <= 5) {
      transform = planex::inPlaneAlignment(planex::skewedPose(model_)) * transform;
    }
    std::copy_n(transform.Data(), 9, k.transform);
    return k;
  }

  /// Calls body(column, row, whether it is in the block) for every pixel.
  template <typename Body>
  void ForEachPixel(const Block& block, Body body) const {
    for (int v = 0; v < height_; ++v) {
      for (int u = 0; u < width_; ++u) body(u, v, block.Holds(u, v));
    }
  }

  template <typename Pixel>
  void Calibrate() {
    const Drawn<Pixel> range(source_, width_, height_);
    ImageOf<float> x(2, 1, kAllocator);
    ImageOf<float> z(1, 2, kAllocator);
    const bool done = test::tries(
        [&] { return planex::applyCalibration(model_, aligned_, range.image, x, z, mode_); });
    log_.CheckRefusal(done);
    CHECK_HOLDS(x.GetWidth() == (done ? width_ : 2) && z.GetHeight() == (done ? height_ : 2));
    if (!done) return;
    const reference::Calibration k = Constants(range.image);
    const bool precise = static_cast<int>(mode_) % 2 == 1;
    const auto check = [&](const Block& block, float missing) {
      ForEachPixel(block, [&](int u, int v, bool inside) {
        const Pixel sample = range.image.Pix(u, v);
        float want[2] = {missing, missing};
        if (!inside) want[0] = want[1] = kUntouched;
        if (inside && sample > Pixel{0}) {
          precise ? reference::calibratePixel<double>(k, sample, u, want[0], want[1])
                  : reference::calibratePixel<float>(k, sample, u, want[0], want[1]);
          if (k.hasSheet) reference::correctSheet(k.sheet, want[0], want[1]);
        }
        CHECK_HOLDS(sameBits(x.Pix(u, v), want[0]) && sameBits(z.Pix(u, v), want[1]));
      });
    };
    check({0, width_, 0, height_}, reference::kNan);
    for (const Image* target : {static_cast<Image*>(&x), static_cast<Image*>(&z)}) {
      CHECK_HOLDS(target->HandleZeroPixels == cmnalg::ZeroPixels::MissingData);
      CHECK_HOLDS(target->PixelSize.y == range.image.PixelSize.y);
      CHECK_HOLDS(target->Origin.y == range.image.Origin.y && target->Origin.x == 0);
    }

    const Block block = drawBlock(source_, width_, height_);
    const float missing = k.hasSheet || source_.Flip() ? reference::kNan : -5;
    x.SetAll(kUntouched);
    z.SetAll(kUntouched);
    const auto apply = precise ? planex::basic::applyCalibrationBlock<double>
                               : planex::basic::applyCalibrationBlock<float>;
    const bool applied = test::tries([&] {
      return apply(block.columnBegin, block.columnEnd, block.rowBegin, block.rowEnd, range.image,
                   k.a, k.b, k.c, k.d, missing, k.lens, k.transform, x, z);
    });
    CHECK_HOLDS(applied == block.IsUsable(width_, height_));
    if (k.hasSheet) {
      CHECK_HOLDS(planex::basic::applyCalibrationBlockSheetCurve(block.columnBegin, block.columnEnd,
                                                                 block.rowBegin, block.rowEnd,
                                                                 k.sheet, x, z) == applied);
    }
    check(applied ? block : Block{}, missing);
  }

  /// E, or with x and z in the aligned plane already E times the inverse of its part in the plane.
  Matrix AlignmentTransform() const {
    Matrix pose = planex::skewedPose(model_);
    if (!aligned_) return pose;
    Matrix plane = pose;
    for (int i = 0; i < 4; ++i) plane[1][i] = plane[i][1] = i == 1 ? 1.0 : 0.0;
    Matrix inverse;
    return cmnalg::math::Inverse(inverse, plane) ? pose * inverse : Matrix();
  }

  template <typename X, typename Z>
  void Align() {
    const bool oneRow = source_.Between(0, 7) == 0;
    const Drawn<X> x(source_, width_, oneRow ? 1 : height_);
    const Drawn<Z> z(source_, width_, height_);
    ImageOf<float> out[3];
    log_.Clear();
    const bool done = test::tries([&] {
      return planex::applyAlignment(model_, aligned_, x.image, rows_, z.image, out[0], out[1],
                                    out[2], mode_);
    });
    log_.CheckRefusal(done);
    CHECK_HOLDS(done || out[0].GetWidth() == 0);
    CHECK_HOLDS(!done || rows_.size() == static_cast<std::size_t>(height_));
    if (!done) return;
    const Matrix m = AlignmentTransform();
    const auto physical = [](const Image& image) {
      return std::abs(1 - image.PixelSize.z) <= 1e-13 && image.Origin.z == 0;
    };
    constexpr bool kFloating = std::is_floating_point_v<Z>;
    const bool asStored = kFloating && physical(x.image) && physical(z.image);
    const auto value = [](auto stored, const Image& image) {
      return static_cast<double>(
          static_cast<float>(static_cast<double>(stored) * image.PixelSize.z + image.Origin.z));
    };
    const auto check = [&](const Block& block) {
      ForEachPixel(block, [&](int u, int v, bool inside) {
        const X xStored = x.image.Pix(u, oneRow ? 0 : v);
        const Z zStored = z.image.Pix(u, v);
        double p[3] = {asStored ? static_cast<float>(xStored) : value(xStored, x.image),
                       static_cast<float>(rows_[static_cast<std::size_t>(v)]),
                       asStored ? static_cast<double>(zStored) : value(zStored, z.image)};
        if (!kFloating && zStored == Z{0}) p[2] = reference::kNan;
        reference::transform(m.Data(), p[0], p[1], p[2]);
        for (int i = 0; i < 3; ++i) {
          CHECK_HOLDS(sameBits(out[i].Pix(u, v), inside ? static_cast<float>(p[i]) : kUntouched));
        }
      });
    };
    check({0, width_, 0, height_});
    CHECK_HOLDS(out[1].HandleZeroPixels == cmnalg::ZeroPixels::MissingData);

    const Block block = drawBlock(source_, width_, height_);
    for (ImageOf<float>& target : out) target.SetAll(kUntouched);
    const bool applied = planex::basic::applyAlignmentBlock(
        block.columnBegin, block.columnEnd, block.rowBegin, block.rowEnd, x.image, rows_, z.image,
        m, out[0], out[1], out[2]);
    CHECK_HOLDS(applied == block.IsUsable(width_, height_));
    check(applied ? block : Block{});
  }

  test::ByteSource& source_;
  test::CheckedLog log_;
  CalibrationModel model_;
  bool aligned_;
  RunMode mode_;
  int width_, height_;
  etl::Vector<double> rows_ = etl::Vector<double>(5);
};

}  // namespace

PLANEX_PROPERTY(calibration) {
  const test::MayFail enough(false);
  do {
    CalibrationPlay(source).Run();
  } while (!source.IsEmpty());
}
