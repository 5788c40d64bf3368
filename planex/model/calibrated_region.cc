#include "planex/model/calibrated_region.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include "planex/foundation/image_of.h"
#include "planex/infra/logger.h"

namespace datafusion::planex {
namespace {

using cmnalg::Image;
using cmnalg::Vec;
using PointList = etl::Vector<Vec<2, double>>;

constexpr const char* kResidualCount = "The amount of residuals must match the amount of points.";

bool refuse(const char* message) {
  base::Logger::Get("Image.Planex.Model").Warning("%s", message);
  return false;
}

/// The grid of an update: the limits of the points, divided into cells.
class Grid {
 public:
  Grid(const PointList& points, int width, int height) : width_(width), height_(height) {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    Vec<2, double> low{kInfinity, kInfinity};
    Vec<2, double> high{-kInfinity, -kInfinity};
    for (const Vec<2, double>& point : points) {  // a NaN replaces no limit
      low = {std::min(low.x, point.x), std::min(low.y, point.y)};
      high = {std::max(high.x, point.x), std::max(high.y, point.y)};
    }
    cell_ = {(high.x - low.x) / width, (high.y - low.y) / height};
    origin_ = {low.x + cell_.x / 2, low.y + cell_.y / 2};
  }

  /// Index of the point's cell, the last one at the upper limit; nothing when it is not finite.
  std::optional<std::size_t> IndexOf(const Vec<2, double>& point) const {
    const double column = (point.x - origin_.x) / cell_.x + 0.5;
    const double row = (point.y - origin_.y) / cell_.y + 0.5;
    if (!std::isfinite(column) || !std::isfinite(row)) return std::nullopt;
    const auto clamped = [](double value, int count) {
      return static_cast<std::size_t>(std::clamp(value, 0.0, count - 1.0));
    };
    return clamped(row, height_) * static_cast<std::size_t>(width_) + clamped(column, width_);
  }

  void Describe(Image& image) const {
    image.PixelSize = {cell_.x, cell_.y, 1.0};
    image.Origin = {origin_.x, origin_.y, 0.0};
  }

 private:
  int width_;
  int height_;
  Vec<2, double> cell_;
  Vec<2, double> origin_;  // centre of cell (0, 0)
};

bool sameSize(const Image& a, const Image& b) {
  return a.GetWidth() == b.GetWidth() && a.GetHeight() == b.GetHeight();
}

void visitImage(etl::IVisitor& visitor, std::shared_ptr<const Image>& image, cmnalg::ImageType type,
                const char* name) {
  // A writer only reads, so the cast does no harm to images that copies share.
  std::shared_ptr<etl::IVisitable> object = std::const_pointer_cast<Image>(image);
  visitor.VisitSubObjectVisitable(object, name);
  if (!visitor.IsReading() || visitor.HasError()) return;
  auto read = std::dynamic_pointer_cast<const Image>(object);
  if (object != nullptr && read == nullptr) {
    visitor.SetError("Wrong subclass instance during visiting");
  } else if (read != nullptr && read->GetType() != type) {
    visitor.SetError(std::string("Wrong pixel type of image '") + name +
                     "' in the calibrated region");
  } else {
    image = std::move(read);
  }
}

bool copyOut(const std::shared_ptr<const Image>& from, Image& to) {
  if (from == nullptr) return false;
  to = *from;
  return true;
}

}  // namespace

CalibratedRegion::CalibratedRegion() { Resize(0, 0); }

bool CalibratedRegion::Resize(int width, int height) {
  const auto cleared = [&](cmnalg::ImageType type) {
    auto image = std::make_shared<Image>();
    if (!image->Create(type, width, height, 0, Image::s_defaultImageAllocator)) image.reset();
    if (image != nullptr && image->GetRawBufferSize() > 0) {
      std::memset(image->GetData(), 0, image->GetRawBufferSize());
    }
    return image;
  };
  ImagePointer count = cleared(cmnalg::IMAGE_TYPE_INT32);
  ImagePointer residuals[4];
  for (ImagePointer& image : residuals) {
    if (count != nullptr) image = cleared(cmnalg::IMAGE_TYPE_FLOAT32);
    if (image == nullptr) return false;
  }
  pointCount_ = std::move(count);
  averageResidualX_ = std::move(residuals[0]);
  averageResidualZ_ = std::move(residuals[1]);
  maximumResidualX_ = std::move(residuals[2]);
  maximumResidualZ_ = std::move(residuals[3]);
  return true;
}

bool CalibratedRegion::HaveOneSize() const {
  for (const ImagePointer& image :
       {averageResidualX_, averageResidualZ_, maximumResidualX_, maximumResidualZ_}) {
    if (image == nullptr || pointCount_ == nullptr || !sameSize(*image, *pointCount_)) return false;
  }
  return true;
}

bool CalibratedRegion::Update(const PointList& points, const PointList& residuals) {
  if (points.size() != residuals.size()) return refuse(kResidualCount);
  if (!HaveOneSize() || pointCount_->GetWidth() < 2 || pointCount_->GetHeight() < 2) {
    return refuse(
        "Grid must be at least 2x2. Please call Resize() to allocate the feedback images before "
        "calling Update().");
  }
  if (points.size() < 2) {
    return refuse("At least two points must be added to calculate the calibrated region");
  }
  CalibratedRegion updated;  // other models may share the present images
  if (!updated.Resize(pointCount_->GetWidth(), pointCount_->GetHeight())) return false;
  updated.Accumulate(points, residuals);
  *this = std::move(updated);
  return true;
}

void CalibratedRegion::Accumulate(const PointList& points, const PointList& residuals) {
  const auto pixels = [](const ImagePointer& image) {
    return const_cast<void*>(image->GetData());  // fresh images, not shared yet
  };
  auto* count = static_cast<std::int32_t*>(pixels(pointCount_));
  auto* averageX = static_cast<float*>(pixels(averageResidualX_));
  auto* averageZ = static_cast<float*>(pixels(averageResidualZ_));
  auto* maximumX = static_cast<float*>(pixels(maximumResidualX_));
  auto* maximumZ = static_cast<float*>(pixels(maximumResidualZ_));

  const Grid grid(points, pointCount_->GetWidth(), pointCount_->GetHeight());
  for (std::size_t i = 0; i < points.size(); ++i) {
    const std::optional<std::size_t> cell = grid.IndexOf(points[i]);
    if (!cell) continue;
    const auto residualX = static_cast<float>(residuals[i].x);
    const auto residualZ = static_cast<float>(residuals[i].y);
    count[*cell] += 1;
    averageX[*cell] += residualX;
    averageZ[*cell] += residualZ;
    maximumX[*cell] = std::max(maximumX[*cell], std::abs(residualX));
    maximumZ[*cell] = std::max(maximumZ[*cell], std::abs(residualZ));
  }
  const std::size_t cells = static_cast<std::size_t>(pointCount_->GetWidth()) *
                            static_cast<std::size_t>(pointCount_->GetHeight());
  for (std::size_t cell = 0; cell < cells; ++cell) {
    if (count[cell] == 0) continue;
    averageX[cell] /= static_cast<float>(count[cell]);
    averageZ[cell] /= static_cast<float>(count[cell]);
  }
  for (const ImagePointer& image :
       {pointCount_, averageResidualX_, averageResidualZ_, maximumResidualX_, maximumResidualZ_}) {
    grid.Describe(const_cast<Image&>(*image));
  }
}

bool CalibratedRegion::Update(const etl::Vector<PointList>& pointLists,
                              const etl::Vector<PointList>& residualLists) {
  if (pointLists.empty()) return refuse("At least one point list must be supplied.");
  if (pointLists.size() != residualLists.size()) return refuse(kResidualCount);
  PointList points;
  PointList residuals;
  for (std::size_t i = 0; i < pointLists.size(); ++i) {
    if (pointLists[i].size() != residualLists[i].size()) return refuse(kResidualCount);
    points.insert(points.end(), pointLists[i].begin(), pointLists[i].end());
    residuals.insert(residuals.end(), residualLists[i].begin(), residualLists[i].end());
  }
  return Update(points, residuals);
}

bool CalibratedRegion::IsValid() const {
  return HaveOneSize() && cmnalg::impro::HoldsPixels(*pointCount_);
}

bool CalibratedRegion::GetRegion(cmnalg::shape::Rectangle& region) const {
  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  region = {};
  if (pointCount_ != nullptr) {
    const double width = pointCount_->GetWidth();
    const double height = pointCount_->GetHeight();
    const Vec<3, double>& cell = pointCount_->PixelSize;
    const Vec<3, double>& origin = pointCount_->Origin;
    region.Center = {origin.x + cell.x * (width - 1) / 2, origin.y + cell.y * (height - 1) / 2};
    region.Width = width * cell.x;
    region.Height = height * cell.y;
  }
  if (IsValid() && region.IsValid()) return true;
  region.Width = kNaN;
  region.Height = kNaN;
  return false;
}

bool CalibratedRegion::GetPointCount(Image& count) const { return copyOut(pointCount_, count); }

bool CalibratedRegion::GetAverageResiduals(Image& x, Image& z) const {
  return averageResidualZ_ != nullptr && copyOut(averageResidualX_, x) &&
         copyOut(averageResidualZ_, z);
}

bool CalibratedRegion::GetMaximumResiduals(Image& x, Image& z) const {
  return maximumResidualZ_ != nullptr && copyOut(maximumResidualX_, x) &&
         copyOut(maximumResidualZ_, z);
}

void CalibratedRegion::Visit(etl::IVisitor& visitor) {
  visitImage(visitor, pointCount_, cmnalg::IMAGE_TYPE_INT32, "PointCount");
  visitImage(visitor, averageResidualX_, cmnalg::IMAGE_TYPE_FLOAT32, "AverageResidualX");
  visitImage(visitor, averageResidualZ_, cmnalg::IMAGE_TYPE_FLOAT32, "AverageResidualZ");
  visitImage(visitor, maximumResidualX_, cmnalg::IMAGE_TYPE_FLOAT32, "MaximumResidualX");
  visitImage(visitor, maximumResidualZ_, cmnalg::IMAGE_TYPE_FLOAT32, "MaximumResidualZ");
}

}  // namespace datafusion::planex
