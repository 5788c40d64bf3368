#include "core/file_writing.h"

#include <cstddef>
#include <cstring>
#include <limits>
#include <string>

namespace planex_python {

using planex::io::SampleType;

void requireSize(const Profiles& profiles, const Profiles& like) {
  if (profiles.rows == like.rows && profiles.columns == like.columns) return;
  throw py::value_error(std::string(profiles.name) + " must have the shape of " + like.name);
}

void requireCells(const Profiles& profiles) {
  if (profiles.IsEmpty() || profiles.rows > std::numeric_limits<int>::max()) {
    throw py::value_error(std::string(profiles.name) + " has " + std::to_string(profiles.rows) +
                          " rows of " + std::to_string(profiles.columns) +
                          " columns; a file needs one at least, and at most 2147483647 rows");
  }
}

const void* withoutGaps(const Profiles& profiles, std::int64_t first, int count,
                        std::vector<char>& room) {
  if (profiles.pitch == profiles.columns || count == 1) return profiles.At(first);
  const std::size_t bytes = static_cast<std::size_t>(profiles.columns) *
                            static_cast<std::size_t>(cmnalg::bytesPerPixel(profiles.type));
  room.resize(bytes * static_cast<std::size_t>(count));
  for (int row = 0; row < count; ++row) {
    std::memcpy(room.data() + static_cast<std::size_t>(row) * bytes, profiles.At(first + row),
                bytes);
  }
  return room.data();
}

SampleType sampleOf(cmnalg::ImageType type) {
  return type == cmnalg::IMAGE_TYPE_UINT8    ? SampleType::kUint8
         : type == cmnalg::IMAGE_TYPE_UINT16 ? SampleType::kUint16
                                             : SampleType::kFloat32;
}

}  // namespace planex_python
