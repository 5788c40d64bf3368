#pragma once

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/images.h"
#include "planex/api/planex.h"

/// Whole calls of the C interface for the camera of the other benchmarks, with images of any size.
namespace bench {

inline std::string cameraDocument(int width, int height) {
  return R"({"class": "Image.Planex.Model", "data": {"FileVersion": 1,
    "CurrentState": "CALIBRATED", "SkewMode": "XZ_IN_LIGHT_PLANE",
    "CalibrationError": 0.01, "CalibrationErrorMax": 0.02,
    "AlignmentError": 0, "AlignmentErrorMax": 0, "FocalLength": 4100,
    "SensorSize": {"x": )" +
         std::to_string(width) + R"(, "y": )" + std::to_string(height) +
         R"(}, "LensCenter": {"x": 1271, "y": 492}, "Skew": {"x": 0, "y": 1, "z": 0},
    "Homography": [[110, -3, 12], [2, 140, 300], [-0.02, 0.31, 1.01]],
    "Pose": [[1, 0, 0, 0], [0, 1, 0, 0], [0, 0, 1, 0], [0, 0, 0, 1]],
    "LensCoefficients": [-0.11, 0.04, 0.013, 0.002, -0.0017, 0.02, -0.04]}})";
}

inline void require(bool good) {
  if (!good) std::abort();
}

/// Buffers and filters for `rows` profiles a call out of an image of `height`.
class Calls {
 public:
  Calls(int width, int height, int rows)
      : rows_(static_cast<std::size_t>(rows)),
        height_(static_cast<std::size_t>(height)),
        width_(static_cast<std::size_t>(width)),
        range_(width_ * height_),
        x_(range_.size()),
        z_(range_.size()),
        map_(range_.size()) {
    fillRange();
    const SensorTraits traits = {1, 0, 1.0 / 16, 0, static_cast<std::uint16_t>(width), 1000};
    const ImageSize size = {static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(rows)};
    require(createModelFromJson(cameraDocument(width, 1000).c_str(), &model_));
    require(createCalibrationFilter(model_, traits, size, PLANEX_PIXEL_FORMAT_MONO16, &calibrate_));
    const WorldRangeTraits grid = {-25, 50,         static_cast<std::uint32_t>(width),
                                   0,   rows - 1.0, static_cast<std::uint32_t>(rows),
                                   270, 320,        65536};
    // Half-width 1: 0.55 of the splat is 1.1 columns.
    const SplatSettings splat = {0, 2 * 75.0 / (width - 1), 1};
    require(createRectificationFilter(PLANEX_RECTIFICATION_LOWEST, grid, size, 0, nullptr, splat,
                                      std::nanf(""), &rectify_));
  }
  ~Calls() {
    destroyRectificationFilter(&rectify_);
    destroyCalibrationFilter(&calibrate_);
    destroyModel(&model_);
  }
  Calls(const Calls&) = delete;
  Calls& operator=(const Calls&) = delete;

  /// The image in calls of `rows` profiles, one after the other.
  void calibrate() {
    for (std::size_t i = 0; i < range_.size(); i += rows_ * width_) {
      require(applyCalibration(calibrate_, &range_[i], &x_[i], &z_[i]));
    }
  }
  void rectify() {
    for (std::size_t i = 0; i < range_.size(); i += rows_ * width_) {
      require(::rectify(rectify_, &x_[i], &z_[i], nullptr, &map_[i], nullptr));
    }
  }

  std::size_t pixels() const { return range_.size(); }
  std::uint32_t model() const { return model_; }

 private:
  /// A wavy surface with jitter; 64 random rows, over and over.
  void fillRange() {
    const std::vector<std::uint16_t> noise = rangeImage(width_ * 64);
    for (std::size_t i = 0; i < range_.size(); ++i) {
      const std::uint16_t sample = noise[i % noise.size()];
      const double wave = 8000 + 3000 * std::sin(static_cast<double>(i % width_) * 0.003);
      range_[i] = sample == 0 ? sample : static_cast<std::uint16_t>(wave + sample % 64);
    }
  }

  std::size_t rows_, height_, width_;
  std::vector<std::uint16_t> range_;
  std::vector<float> x_, z_, map_;
  std::uint32_t model_ = 0, calibrate_ = 0, rectify_ = 0;
};

}  // namespace bench
