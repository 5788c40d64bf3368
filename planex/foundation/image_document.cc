#include <algorithm>
#include <limits>
#include <new>
#include <string>
#include <utility>

#include "planex/foundation/image.h"
#include "planex/infra/sub_object.h"
#include "planex/infra/visitor.h"

namespace cmnalg {
namespace {

constexpr const char* kInvalidName = "invalid";

void visitVec(etl::IVisitor& visitor, Vec<3, double>& vec, const char* name) {
  etl::visitPlainSubObject(visitor, name, "", [&vec](etl::IVisitor& v) {
    v.VisitMemberF64(vec.x, "x");
    v.VisitMemberF64(vec.y, "y");
    v.VisitMemberF64(vec.z, "z");
  });
}

const char* toString(ZeroPixels value) {
  switch (value) {
    case ZeroPixels::Default:
      return "Default";
    case ZeroPixels::MissingData:
      return "MissingData";
  }
  return "Unknown";
}

/// Any unknown word gives 2, a value that no consistent image has.
ZeroPixels zeroPixelsFromString(const etl::String& text) {
  if (text == toString(ZeroPixels::Default)) return ZeroPixels::Default;
  if (text == toString(ZeroPixels::MissingData)) return ZeroPixels::MissingData;
  return static_cast<ZeroPixels>(2);
}

void visitZeroPixels(etl::IVisitor& visitor, ZeroPixels& value) {
  etl::String text = toString(value);
  visitor.VisitMemberS(text, "HandleZeroPixels");
  if (visitor.IsReading()) value = zeroPixelsFromString(text);
}

void setFieldError(etl::IVisitor& visitor, const char* name) {
  visitor.SetError(std::string("Data field '") + name +
                   "' of class 'Image' not found or out or range");
}

etl::BigDataArray pixelBlock(ImageType type, int width, int height) {
  etl::BigDataArray block;
  block.elemType = serialisedTypeName(type);
  block.elemSize = std::max<std::size_t>(bytesPerPixel(type), 1);
  block.rowElems = static_cast<std::size_t>(width);
  block.rows = static_cast<std::size_t>(height);
  return block;
}

void writeData(etl::IVisitor& visitor, const ImageData& data, ImageType type) {
  etl::String typeName = serialisedTypeName(type);
  std::int32_t width = data.GetWidth();
  std::int32_t height = data.GetHeight();
  visitor.VisitMemberS(typeName, "ImageType");
  visitor.VisitMemberI32(width, "Width");
  visitor.VisitMemberI32(height, "Height");
  etl::BigDataArray block = pixelBlock(type, width, height);
  block.data = data.GetData();
  block.rowPitchBytes = static_cast<std::size_t>(data.GetPitch()) * bytesPerPixel(type);
  visitor.VisitBigDataArray(block, "Pixels");
}

/// Reads what stands before the pixels. @return whether it describes an image
bool readShape(etl::IVisitor& visitor, ImageType& type, std::int32_t& width, std::int32_t& height) {
  etl::String typeName;
  visitor.VisitMemberS(typeName, "ImageType");
  visitor.VisitMemberI32(width, "Width");
  visitor.VisitMemberI32(height, "Height");
  if (visitor.HasError()) return false;
  type = typeFromSerialisedName(typeName);
  const bool isEmpty = width == 0 && height == 0;
  if (type == IMAGE_TYPE_INVALID && !(typeName == kInvalidName && isEmpty)) {
    setFieldError(visitor, "ImageType");
  } else if (width < 0) {
    setFieldError(visitor, "Width");
  } else if (height < 0 ||
             std::int64_t{width} * height > std::numeric_limits<std::int32_t>::max()) {
    setFieldError(visitor, "Height");
  }
  return !visitor.HasError();
}

/// Reads the pixels into a fresh buffer.
void readPixels(etl::IVisitor& visitor, ImageData& data, ImageType type, int width, int height) {
  unsigned char noPixels = 0;  // an address to fill with nothing, for an image of 0 x 0
  etl::BigDataArray block = pixelBlock(type, width, height);
  block.allocate = [&]() -> void* {
    if (type == IMAGE_TYPE_INVALID) return &noPixels;
    // Its shape has passed. A lack of memory is not a fault of the document, which a reader might
    // forgive.
    if (!data.Create(type, width, height, 0, Image::s_defaultImageAllocator)) {
      throw std::bad_alloc();
    }
    return data.GetData() != nullptr ? data.GetData() : &noPixels;
  };
  visitor.VisitBigDataArray(block, "Pixels");
}

}  // namespace

void Image::Visit(etl::IVisitor& visitor) {
  Vec<3, double> pixelSize = PixelSize;
  Vec<3, double> origin = Origin;
  ZeroPixels zeroPixels = HandleZeroPixels;
  ImageData data;
  visitVec(visitor, pixelSize, "PixelSize");
  visitVec(visitor, origin, "Origin");
  visitZeroPixels(visitor, zeroPixels);
  etl::visitPlainSubObject(visitor, "Data", "", [&](etl::IVisitor& v) { VisitData(v, data); });
  if (!visitor.IsReading() || visitor.HasError()) return;
  PixelSize = pixelSize;
  Origin = origin;
  HandleZeroPixels = zeroPixels;
  data_ = std::move(data);
}

void Image::VisitData(etl::IVisitor& visitor, ImageData& data) const {
  if (!visitor.IsReading()) {
    writeData(visitor, data_, GetType());
    return;
  }
  ImageType type = IMAGE_TYPE_INVALID;
  std::int32_t width = 0;
  std::int32_t height = 0;
  if (!readShape(visitor, type, width, height)) return;
  if (!CanHold(type)) {
    setFieldError(visitor, "ImageType");
    return;
  }
  readPixels(visitor, data, type, width, height);
}

}  // namespace cmnalg
