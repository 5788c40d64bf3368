#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

#include "planex/foundation/image.h"

namespace planex_python {

namespace py = pybind11;

/// Profiles of samples where NumPy has them: samples side by side, profiles in order and at one
/// distance. Nothing is copied on the way to the library.
struct Profiles {
  const char* name = "";  ///< of the argument, for messages
  char* data = nullptr;
  cmnalg::ImageType type = cmnalg::IMAGE_TYPE_INVALID;
  std::int64_t rows = 0;
  std::int64_t columns = 0;
  std::int64_t pitch = 0;  ///< samples between the starts of two profiles

  bool IsEmpty() const { return rows == 0 || columns == 0; }
  /// The first sample of a profile.
  char* At(std::int64_t row) const;
  /// `count` profiles from `first` on as an image that borrows them. So many fit into an image when
  /// count is at most profilesPerBlock().
  void View(std::int64_t first, int count, cmnalg::Image& image) const;
};

/// Types that an argument may have; bit t stands for ImageType t.
using TypeSet = unsigned;
constexpr TypeSet oneOf(std::initializer_list<cmnalg::ImageType> types) {
  TypeSet set = 0;
  for (const cmnalg::ImageType type : types) set |= 1U << type;
  return set;
}
constexpr TypeSet kFloating = oneOf({cmnalg::IMAGE_TYPE_FLOAT32, cmnalg::IMAGE_TYPE_FLOAT64});
constexpr TypeSet kMeasured =
    kFloating | oneOf({cmnalg::IMAGE_TYPE_UINT8, cmnalg::IMAGE_TYPE_UINT16,
                       cmnalg::IMAGE_TYPE_UINT32, cmnalg::IMAGE_TYPE_UINT64});
constexpr TypeSet kIntensities = oneOf({cmnalg::IMAGE_TYPE_UINT8, cmnalg::IMAGE_TYPE_UINT16});

/// An array that is read. TypeError for what is no numpy.ndarray (or numpy.memmap) of one of the
/// types in native byte order, ValueError for a layout that no image has.
Profiles readProfiles(py::handle object, const char* name, TypeSet types);

/// Frames where NumPy has them, each as its rows.
struct FrameStack {
  cmnalg::ImageType type = cmnalg::IMAGE_TYPE_INVALID;
  std::int64_t rows = 0;  ///< of a frame
  std::int64_t columns = 0;
  std::vector<Profiles> frames;

  bool IsEmpty() const { return frames.empty() || columns == 0; }
};

/// Frames of uint8 or uint16, frames x rows x columns, or a single one, that are read. Errors as of
/// readProfiles(). Frames may lie anyhow: at any distance, backwards, or in one place.
FrameStack readFrames(py::handle object, const char* name);

/// An array that is written: of just that type and shape, C-contiguous and writeable. The library
/// would replace a target of another size by memory of its own, and leave the array as it was.
Profiles writtenProfiles(py::handle object, const char* name, cmnalg::ImageType type,
                         std::int64_t rows, std::int64_t columns);

/// An uninitialised array for results.
py::array newProfiles(cmnalg::ImageType type, std::int64_t rows, std::int64_t columns);

/// The array that was given, or a new one for None, and its profiles.
struct Output {
  Output(py::object given, const char* name, cmnalg::ImageType type, std::int64_t rows,
         std::int64_t columns);
  /// Makes the array where none was given; for when all checks have passed.
  void Allocate();

  py::object array;
  Profiles profiles;
};

/// ValueError where an output shares memory with an input or another output.
void requireDisjoint(const std::vector<const Profiles*>& inputs,
                     const std::vector<const Profiles*>& outputs);

/// A one-dimensional array of float64, contiguous, of that length.
const double* readNumbers(py::handle object, const char* name, std::int64_t length);

/// Points, `dimensions` floating numbers each, in an array of any shape, contiguous.
struct PointArray {
  char* data = nullptr;
  cmnalg::ImageType type = cmnalg::IMAGE_TYPE_INVALID;
  int dimensions = 0;
  std::int64_t count = 0;
};
PointArray readPoints(py::handle object, const char* name);
/// An array that is written, of the type and shape of `like`; the same array, or disjoint.
PointArray writtenPoints(py::handle object, const char* name, py::handle like);

/// How many profiles of the arrays go into one call of the library: about `pixels`, at least one.
std::int64_t profilesPerBlock(std::int64_t pixels, std::initializer_list<const Profiles*> arrays);

/// Between two checks for signals, a tenth of a second at worst.
constexpr std::int64_t kPixelsPerBlock = std::int64_t{8} << 20;

}  // namespace planex_python
