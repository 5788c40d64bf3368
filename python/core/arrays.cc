#include "core/arrays.h"

#include <algorithm>
#include <limits>
#include <string>

namespace planex_python {
namespace {

using cmnalg::ImageType;
using Flags = py::detail::npy_api;

constexpr std::int64_t kMostInt = std::numeric_limits<std::int32_t>::max();

std::string textOf(py::handle object) { return py::cast<std::string>(py::str(object)); }

[[noreturn]] void refuseType(const char* name, const std::string& problem) {
  throw py::type_error(std::string(name) + " " + problem);
}

[[noreturn]] void refuseValue(const char* name, const std::string& problem) {
  throw py::value_error(std::string(name) + " " + problem);
}

[[noreturn]] void refuseLayout(const char* name, const std::string& problem) {
  refuseValue(name, problem + "; pass numpy.ascontiguousarray(" + name + ")");
}

/// A subclass may mean something else by its numbers: a mask is not to be dropped.
py::array requireArray(py::handle object, const char* name) {
  PyTypeObject* const type = Py_TYPE(object.ptr());
  if (type == py::detail::npy_api::get().PyArray_Type_ ||
      reinterpret_cast<PyObject*>(type) == py::module_::import("numpy").attr("memmap").ptr()) {
    return py::reinterpret_borrow<py::array>(object);
  }
  std::string remedy = "; pass a numpy.ndarray";
  if (py::hasattr(object, "filled")) {
    remedy = "; pass " + std::string(name) + ".filled(0), or another value without measurement";
  } else if (py::hasattr(object, "to_numpy")) {
    remedy = "; pass " + std::string(name) + ".to_numpy()";
  } else if (py::hasattr(object, "compute")) {
    remedy = "; use the function of this name in planex.dask, or pass " + std::string(name) +
             ".compute()";
  }
  const py::type kind = py::type::of(object);
  std::string from = textOf(kind.attr("__module__")) + ".";
  if (from == "builtins.") from.clear();
  refuseType(name, "is a " + from + textOf(kind.attr("__qualname__")) + remedy);
}

ImageType typeOf(const py::array& array) {
  const py::dtype type = array.dtype();
  if (type.byteorder() == '>') return cmnalg::IMAGE_TYPE_INVALID;
  const py::ssize_t size = type.itemsize();
  switch (type.kind()) {
    case 'u':
      return size == 1   ? cmnalg::IMAGE_TYPE_UINT8
             : size == 2 ? cmnalg::IMAGE_TYPE_UINT16
             : size == 4 ? cmnalg::IMAGE_TYPE_UINT32
                         : cmnalg::IMAGE_TYPE_UINT64;
    case 'i':
      return size == 4 ? cmnalg::IMAGE_TYPE_INT32 : cmnalg::IMAGE_TYPE_INVALID;
    case 'f':
      return size == 4   ? cmnalg::IMAGE_TYPE_FLOAT32
             : size == 8 ? cmnalg::IMAGE_TYPE_FLOAT64
                         : cmnalg::IMAGE_TYPE_INVALID;
    default:
      return cmnalg::IMAGE_TYPE_INVALID;
  }
}

ImageType requireType(const py::array& array, const char* name, TypeSet types) {
  const ImageType type = typeOf(array);
  if ((types >> type & 1U) != 0 && type != cmnalg::IMAGE_TYPE_INVALID) return type;
  std::string wanted;
  for (int t = 0; t < cmnalg::IMAGE_TYPE_INVALID; ++t) {
    if ((types >> t & 1U) == 0) continue;
    wanted += (wanted.empty() ? "" : ", ");
    wanted += cmnalg::serialisedTypeName(static_cast<ImageType>(t));
  }
  refuseType(name, "has the type " + textOf(array.attr("dtype")) + "; it must be one of " + wanted +
                       ", in native byte order");
}

void requireFlags(const py::array& array, const char* name, int flags) {
  const int missing = flags & ~array.flags();
  if ((missing & Flags::NPY_ARRAY_ALIGNED_) != 0) refuseLayout(name, "begins at an odd address");
  if ((missing & Flags::NPY_ARRAY_C_CONTIGUOUS_) != 0) refuseLayout(name, "is not C-contiguous");
  if ((missing & Flags::NPY_ARRAY_WRITEABLE_) != 0) refuseValue(name, "is read-only");
}

char* dataOf(const py::array& array) { return static_cast<char*>(const_cast<void*>(array.data())); }

struct Extent {
  const char* begin;
  const char* end;
};

Extent extentOf(const Profiles& profiles) {
  if (profiles.IsEmpty()) return {profiles.data, profiles.data};
  const auto size = static_cast<std::int64_t>(cmnalg::bytesPerPixel(profiles.type));
  return {profiles.data, profiles.At(profiles.rows - 1) + profiles.columns * size};
}

bool overlap(const Extent& a, const Extent& b) {
  return a.begin < a.end && b.begin < b.end && a.begin < b.end && b.begin < a.end;
}

Extent extentOf(const PointArray& points) {
  const auto size = static_cast<std::int64_t>(cmnalg::bytesPerPixel(points.type));
  return {points.data, points.data + points.count * points.dimensions * size};
}

}  // namespace

char* Profiles::At(std::int64_t row) const {
  return data + row * pitch * static_cast<std::int64_t>(cmnalg::bytesPerPixel(type));
}

void Profiles::View(std::int64_t first, int count, cmnalg::Image& image) const {
  // The distance of a single profile to others is of no matter, and may be beyond an int.
  const std::int64_t distance = count == 1 ? columns : pitch;
  image.Create(At(first), type, static_cast<int>(columns), count, static_cast<int>(distance), false,
               cmnalg::Image::s_defaultImageAllocator, false);
}

Profiles readProfiles(py::handle object, const char* name, TypeSet types) {
  const py::array array = requireArray(object, name);
  Profiles profiles;
  profiles.name = name;
  profiles.type = requireType(array, name, types);
  if (array.ndim() != 2) {
    refuseValue(name, "has " + std::to_string(array.ndim()) +
                          " dimensions; it must have two, profiles and columns");
  }
  profiles.rows = array.shape(0);
  profiles.columns = array.shape(1);
  profiles.data = dataOf(array);
  profiles.pitch = profiles.columns;
  if (profiles.IsEmpty()) return profiles;
  if (profiles.columns > kMostInt) refuseValue(name, "has more than 2147483647 columns");
  requireFlags(array, name, Flags::NPY_ARRAY_ALIGNED_);
  const py::ssize_t size = array.itemsize();
  // The stride along an axis of one element is arbitrary.
  if (profiles.columns > 1 && array.strides(1) != size) {
    refuseLayout(name, "has samples of a row that do not lie side by side");
  }
  if (profiles.rows > 1) {
    const py::ssize_t stride = array.strides(0);
    if (stride < profiles.columns * size || stride % size != 0) {
      refuseLayout(name, "has rows that overlap or run backwards");
    }
    profiles.pitch = stride / size;
  }
  return profiles;
}

FrameStack readFrames(py::handle object, const char* name) {
  const py::array array = requireArray(object, name);
  FrameStack stack;
  stack.type = requireType(array, name, kIntensities);
  const py::ssize_t axes = array.ndim();
  if (axes != 2 && axes != 3) {
    refuseValue(name, "has " + std::to_string(axes) +
                          " dimensions; it must have three, frames, rows and columns, or two");
  }
  stack.rows = array.shape(axes - 2);
  stack.columns = array.shape(axes - 1);
  const std::int64_t count = axes == 3 ? array.shape(0) : 1;
  if (count == 0) return stack;
  requireFlags(array, name, Flags::NPY_ARRAY_ALIGNED_);
  Profiles frame =
      readProfiles(axes == 3 ? array[py::int_(0)] : py::object(array), name, 1U << stack.type);
  if (stack.rows > 1 && frame.pitch > kMostInt) refuseLayout(name, "has rows too far apart");
  for (std::int64_t i = 0; i < count; ++i) {
    stack.frames.push_back(frame);
    if (axes == 3) frame.data += array.strides(0);
  }
  return stack;
}

Profiles writtenProfiles(py::handle object, const char* name, ImageType type, std::int64_t rows,
                         std::int64_t columns) {
  const py::array array = requireArray(object, name);
  requireType(array, name, 1U << type);
  if (array.ndim() != 2 || array.shape(0) != rows || array.shape(1) != columns) {
    refuseValue(name, "has the shape " + textOf(array.attr("shape")) + "; it must be (" +
                          std::to_string(rows) + ", " + std::to_string(columns) + ")");
  }
  requireFlags(
      array, name,
      Flags::NPY_ARRAY_ALIGNED_ | Flags::NPY_ARRAY_C_CONTIGUOUS_ | Flags::NPY_ARRAY_WRITEABLE_);
  return {name, dataOf(array), type, rows, columns, columns};
}

py::array newProfiles(ImageType type, std::int64_t rows, std::int64_t columns) {
  const py::array::ShapeContainer shape{rows, columns};
  switch (type) {
    case cmnalg::IMAGE_TYPE_UINT8:
      return py::array_t<std::uint8_t>(shape);
    case cmnalg::IMAGE_TYPE_UINT16:
      return py::array_t<std::uint16_t>(shape);
    case cmnalg::IMAGE_TYPE_UINT32:
      return py::array_t<std::uint32_t>(shape);
    default:
      return py::array_t<float>(shape);
  }
}

Output::Output(py::object given, const char* name, ImageType type, std::int64_t rows,
               std::int64_t columns)
    : array(std::move(given)) {
  profiles = {name, nullptr, type, rows, columns, columns};
  if (!array.is_none()) profiles = writtenProfiles(array, name, type, rows, columns);
}

void Output::Allocate() {
  if (!array.is_none()) return;
  const py::array made = newProfiles(profiles.type, profiles.rows, profiles.columns);
  profiles.data = dataOf(made);
  array = made;
}

void requireDisjoint(const std::vector<const Profiles*>& inputs,
                     const std::vector<const Profiles*>& outputs) {
  for (auto output = outputs.begin(); output != outputs.end(); ++output) {
    const auto check = [&](const Profiles* other) {
      if ((*output)->data == nullptr || other->data == nullptr) return;
      if (overlap(extentOf(**output), extentOf(*other))) {
        refuseValue((*output)->name, std::string("shares memory with ") + other->name);
      }
    };
    for (const Profiles* input : inputs) check(input);
    for (auto other = outputs.begin(); other != output; ++other) check(*other);
  }
}

const double* readNumbers(py::handle object, const char* name, std::int64_t length) {
  const py::array array = requireArray(object, name);
  requireType(array, name, 1U << cmnalg::IMAGE_TYPE_FLOAT64);
  if (array.ndim() != 1 || array.shape(0) != length) {
    refuseValue(name, "has the shape " + textOf(array.attr("shape")) + "; it must be (" +
                          std::to_string(length) + ",), one number a profile");
  }
  requireFlags(array, name, Flags::NPY_ARRAY_ALIGNED_ | Flags::NPY_ARRAY_C_CONTIGUOUS_);
  return static_cast<const double*>(array.data());
}

PointArray readPoints(py::handle object, const char* name) {
  const py::array array = requireArray(object, name);
  PointArray points;
  points.type = requireType(array, name, kFloating);
  points.dimensions = array.ndim() > 0 ? static_cast<int>(array.shape(array.ndim() - 1)) : 0;
  if (points.dimensions != 2 && points.dimensions != 3) {
    refuseValue(name, "has the shape " + textOf(array.attr("shape")) +
                          "; its last axis must have two or three elements");
  }
  requireFlags(array, name, Flags::NPY_ARRAY_ALIGNED_ | Flags::NPY_ARRAY_C_CONTIGUOUS_);
  points.data = dataOf(array);
  points.count = array.size() / points.dimensions;
  return points;
}

PointArray writtenPoints(py::handle object, const char* name, py::handle like) {
  const PointArray from = readPoints(like, "points");
  const py::array array = requireArray(object, name);
  requireType(array, name, 1U << from.type);
  if (!array.attr("shape").equal(like.attr("shape"))) {
    refuseValue(name, "has the shape " + textOf(array.attr("shape")) +
                          "; it must be that of points, " + textOf(like.attr("shape")));
  }
  requireFlags(array, name, Flags::NPY_ARRAY_WRITEABLE_);
  const PointArray points = readPoints(object, name);
  if (points.data != from.data && overlap(extentOf(points), extentOf(from))) {
    refuseValue(name, "shares a part of its memory with points");
  }
  return points;
}

std::int64_t profilesPerBlock(std::int64_t pixels, std::initializer_list<const Profiles*> arrays) {
  std::int64_t count = kMostInt;
  for (const Profiles* array : arrays) {
    count = std::min(count, pixels / std::max<std::int64_t>(array->columns, 1));
    if (array->rows > 1)
      count = std::min(count, kMostInt / std::max<std::int64_t>(array->pitch, 1));
  }
  return std::max<std::int64_t>(count, 1);
}

}  // namespace planex_python
