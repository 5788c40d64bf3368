// The scenes behind runSelftest(), and what they share. Their inputs are whole numbers and numbers
// written out in decimals, so that they are the same wherever they are made.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "planex/foundation/image.h"
#include "planex/foundation/image_of.h"
#include "planex/infra/byte_order.h"
#include "planex/io/failure.h"
#include "planex/io/sha256.h"
#include "planex/model/calibration_model.h"

namespace planex::scan {

/// The SHA-256 of results: of numbers with their lowest byte first, and of every NaN as the same.
class SceneSum {
 public:
  /// @{
  /// Appends text, bytes, or numbers.
  void add(std::string_view text) { sum_.add(text.data(), text.size()); }
  template <typename T>
  void add(const T* numbers, std::size_t count) {
    bytes_.resize(count * sizeof(T));
    for (std::size_t i = 0; i < count; ++i) {
      T number = numbers[i];
      if constexpr (std::is_floating_point_v<T>) {
        if (number != number) number = std::numeric_limits<T>::quiet_NaN();
      }
      base::storeLittle(number, bytes_.data() + i * sizeof(T));
    }
    sum_.add(bytes_.data(), bytes_.size());
  }
  template <typename T, std::enable_if_t<std::is_arithmetic_v<T>>* = nullptr>
  void add(T number) {
    add(&number, 1);
  }
  /// @}

  /// Appends the pixels of an image, row by row, and what it says of them.
  template <typename T>
  void add(const cmnalg::ImageOf<T>& image) {
    for (const auto& vec : {image.PixelSize, image.Origin}) {
      for (const double value : {vec.x, vec.y, vec.z}) add(value);
    }
    for (int row = 0; row < image.GetHeight(); ++row) {
      add(image.GetRowPtr(row), static_cast<std::size_t>(image.GetWidth()));
    }
  }

  /// A Failure where a step of a scene was refused: a machine that computes cannot do that.
  static void require(bool done) {
    if (!done) throw io::Failure("a scene of the self-test was refused; look for memory");
  }

  std::string take() { return sum_.take(); }

 private:
  io::Sha256 sum_;
  std::vector<unsigned char> bytes_;
};

/// A scene: all that it computes goes into the sum.
struct Scene {
  std::string name;
  /// @param rows of images that go through a call at a time; 0: all
  std::function<void(int rows, SceneSum& sum)> compute;
};

/// Appends a scene; its name and what computes it stand side by side.
inline void addScene(std::vector<Scene>& scenes, std::string name,
                     std::function<void(int rows, SceneSum& sum)> compute) {
  scenes.push_back({std::move(name), std::move(compute)});
}

/// Calls body(first, count) for blocks of that many rows, the last one with what is left.
template <typename Body>
void forEachBlock(int rows, int height, Body&& body) {
  const int step = rows > 0 ? rows : height;
  for (int first = 0; first < height; first += step) body(first, std::min(step, height - first));
}

/// Some rows of an image, where they lie.
template <typename T>
struct RowsOf {
  RowsOf(const cmnalg::ImageOf<T>& whole, int first, int count)
      : image(const_cast<T*>(whole.GetRowPtr(first)), whole.GetWidth(), count, whole.GetPitch(),
              false, cmnalg::Image::s_defaultImageAllocator, false) {
    cmnalg::impro::CopyImageMetadata(whole, image);
  }
  cmnalg::ImageOf<T> image;
};

/// An image, all 0.
template <typename T>
cmnalg::ImageOf<T> blankImage(int width, int height) {
  cmnalg::ImageOf<T> image(width, height, cmnalg::Image::s_defaultImageAllocator);
  SceneSum::require(image.GetData() != nullptr);
  image.SetAll(T{});
  return image;
}

/// An image of numbers that body(column, row, noise) gives.
template <typename T, typename Body>
cmnalg::ImageOf<T> drawnImage(int width, int height, Body&& body) {
  cmnalg::ImageOf<T> image = blankImage<T>(width, height);
  std::mt19937 noise(2024);
  for (int v = 0; v < height; ++v) {
    for (int u = 0; u < width; ++u) {
      image.Pix(u, v) = static_cast<T>(
          body(static_cast<unsigned>(u), static_cast<unsigned>(v), static_cast<unsigned>(noise())));
    }
  }
  return image;
}

/// Calls body(name of the type, a pixel of it) for the types that hold measurements.
template <typename Body>
void forEachMeasuredType(Body&& body) {
  body("uint8", std::uint8_t{});
  body("uint16", std::uint16_t{});
  body("uint32", std::uint32_t{});
  body("uint64", std::uint64_t{});
  body("float32", float{});
  body("float64", double{});
}

/// A camera with every part in use.
datafusion::planex::CalibrationModel referenceModel();

void addProcessingScenes(std::vector<Scene>& scenes);
void addFileScenes(std::vector<Scene>& scenes);

}  // namespace planex::scan
