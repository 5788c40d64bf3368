#include "planex/foundation/pixel_type.h"

namespace cmnalg {
namespace {

struct TypeRow {
  const char* serialisedName;
  std::size_t bytes;
};

/// Indexed by ImageType 0 to 10.
constexpr TypeRow kTypes[] = {{"uint8", 1},   {"uint16", 2},  {"uint32", 4}, {"uint64", 8},
                              {"int8", 1},    {"int16", 2},   {"int32", 4},  {"int64", 8},
                              {"float32", 4}, {"float64", 8}, {"RGB24", 3}};
static_assert(sizeof(kTypes) / sizeof(kTypes[0]) == IMAGE_TYPE_INVALID);

constexpr bool isType(int type) { return type >= 0 && type < IMAGE_TYPE_INVALID; }

}  // namespace

std::size_t bytesPerPixel(ImageType type) { return isType(type) ? kTypes[type].bytes : 0; }

const char* serialisedTypeName(ImageType type) {
  return isType(type) ? kTypes[type].serialisedName : "invalid";
}

ImageType typeFromSerialisedName(const etl::String& name) {
  for (int type = 0; type < IMAGE_TYPE_INVALID; ++type) {
    if (name == kTypes[type].serialisedName) return static_cast<ImageType>(type);
  }
  return IMAGE_TYPE_INVALID;
}

namespace impro {

const char* const IMAGE_TYPE_STRINGS[11] = {"UINT8",   "UINT16",  "UINT32", "UINT64",
                                            "INT8",    "INT16",   "INT32",  "INT64",
                                            "FLOAT32", "FLOAT64", "RGB24"};

const char* ImageTypeString(int type) {
  return isType(type) ? IMAGE_TYPE_STRINGS[type] : "INVALID";
}

int typeStringToEnum(const etl::String& text) {
  for (int type = 0; type < NrImageTypes(); ++type) {
    if (text.find(IMAGE_TYPE_STRINGS[type]) != etl::String::npos) return type;
  }
  return IMAGE_TYPE_INVALID;
}

int NrImageTypes() { return IMAGE_TYPE_INVALID; }

}  // namespace impro
}  // namespace cmnalg
