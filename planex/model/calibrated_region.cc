#include "planex/model/calibrated_region.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <string>
#include <utility>

#include "planex/foundation/image_of.h"
#include "planex/foundation/interval.h"
#include "planex/infra/float_environment.h"
#include "planex/model/model_checks.h"

namespace datafusion::planex {
namespace {

using cmnalg::Image;
using Point = cmnalg::Vec<2, double>;
using PointList = etl::Vector<Point>;

constexpr const char* kModelClass = "Image.Planex.Model";
constexpr const char* kUnequalLists = "The amount of residuals must match the amount of points.";

/// The five images while they are filled.
class Grid {
 public:
  /// All cells 0. @return false when a size is negative or there is no memory
  bool create(int width, int height) {
    const etl::Allocator& allocator = Image::s_defaultImageAllocator;
    count = std::make_shared<cmnalg::ImageOf<std::int32_t>>();
    if (!count->Create(width, height, allocator)) return false;
    count->SetAll(0);
    for (ResidualImage* image : {&meanX, &meanZ, &maxX, &maxZ}) {
      *image = std::make_shared<cmnalg::ImageOf<float>>();
      if (!(*image)->Create(width, height, allocator)) return false;
      (*image)->SetAll(0.0F);
    }
    return true;
  }

  /// Spans the grid over finite points. @return false when there are less than two of them
  bool place(const PointList& points) {
    cmnalg::math::Interval x, z;
    std::size_t finite = 0;
    for (const Point& point : points) {
      if (!isFinite(point)) continue;
      x.Include(point.x);
      z.Include(point.y);
      ++finite;
    }
    const double dx = (x.max - x.min) / count->GetWidth();
    const double dz = (z.max - z.min) / count->GetHeight();
    count->PixelSize = {dx, dz, 1.0};
    count->Origin = {x.min + dx / 2, z.min + dz / 2, 0.0};
    for (const ResidualImage* image : {&meanX, &meanZ, &maxX, &maxZ}) {
      cmnalg::impro::CopyImageMetadata(*count, **image);
    }
    return finite >= 2;
  }

  /// A point whose cell is not finite is left out.
  void add(const Point& point, const Point& residual) {
    const double col = (point.x - count->Origin.x) / count->PixelSize.x + 0.5;
    const double row = (point.y - count->Origin.y) / count->PixelSize.y + 0.5;
    if (!std::isfinite(col) || !std::isfinite(row)) return;
    const int x = static_cast<int>(std::clamp(col, 0.0, count->GetWidth() - 1.0));
    const int y = static_cast<int>(std::clamp(row, 0.0, count->GetHeight() - 1.0));
    const auto rx = static_cast<float>(residual.x);
    const auto rz = static_cast<float>(residual.y);
    count->Pix(x, y) += 1;
    meanX->Pix(x, y) += rx;
    meanZ->Pix(x, y) += rz;
    maxX->Pix(x, y) = std::max(maxX->Pix(x, y), std::abs(rx));
    maxZ->Pix(x, y) = std::max(maxZ->Pix(x, y), std::abs(rz));
  }

  /// Sums to means.
  void finalize() {
    for (int y = 0; y < count->GetHeight(); ++y) {
      for (int x = 0; x < count->GetWidth(); ++x) {
        const std::int32_t points = count->Pix(x, y);
        if (points == 0) continue;
        meanX->Pix(x, y) /= static_cast<float>(points);
        meanZ->Pix(x, y) /= static_cast<float>(points);
      }
    }
  }

  using ResidualImage = std::shared_ptr<cmnalg::ImageOf<float>>;
  std::shared_ptr<cmnalg::ImageOf<std::int32_t>> count;
  ResidualImage meanX, meanZ, maxX, maxZ;

 private:
  static bool isFinite(const Point& point) {
    return std::isfinite(point.x) && std::isfinite(point.y);
  }
};

/// One image as a member. Reading replaces the pointer: the image itself may be shared.
void visitImage(etl::IVisitor& visitor, std::shared_ptr<const Image>& image, cmnalg::ImageType type,
                const char* name) {
  std::shared_ptr<etl::IVisitable> object = std::const_pointer_cast<Image>(image);
  visitor.VisitSubObjectVisitable(object, name);
  if (!visitor.IsReading() || visitor.HasError()) return;
  auto read = std::dynamic_pointer_cast<const Image>(object);
  if (object != nullptr && read == nullptr) {
    visitor.SetError("Wrong subclass instance during visiting");
  } else if (read != nullptr && read->GetType() != type) {
    visitor.SetError(std::string("Data field '") + name + "' of class '" + kModelClass +
                     "' not found or out or range");
  } else {
    image = std::move(read);
  }
}

}  // namespace

CalibratedRegion::CalibratedRegion() {
  if (!Resize(0, 0)) throw std::bad_alloc();
}

bool CalibratedRegion::Resize(int width, int height) {
  Grid grid;
  if (!grid.create(width, height)) return false;
  images_ = {grid.count, grid.meanX, grid.meanZ, grid.maxX, grid.maxZ};
  return true;
}

/// Whether the images that there are have the size of the point counts.
bool CalibratedRegion::AreOfOneSize() const {
  const ImagePointer& count = images_[kPointCount];
  return count != nullptr &&
         std::all_of(images_.begin(), images_.end(), [&count](const ImagePointer& image) {
           return image == nullptr || (image->GetWidth() == count->GetWidth() &&
                                       image->GetHeight() == count->GetHeight());
         });
}

bool CalibratedRegion::Update(const PointList& points, const PointList& residuals) {
  const base::DefaultFloatEnvironment environment;
  const bool complete = std::count(images_.begin(), images_.end(), nullptr) == 0;
  const int width = complete && AreOfOneSize() ? images_[kPointCount]->GetWidth() : 0;
  const int height = width > 0 ? images_[kPointCount]->GetHeight() : 0;
  if (width < 2 || height < 2) {
    return refuseToChange(
        "Grid must be at least 2x2. Please call Resize() to allocate the feedback images before "
        "calling Update().");
  }
  constexpr const char* kTooFew =
      "At least two points must be added to calculate the calibrated region";
  if (points.size() < 2) return refuseToChange(kTooFew);
  if (points.size() != residuals.size()) return refuseToChange(kUnequalLists);
  Grid grid;
  if (!grid.create(width, height)) return false;
  if (!grid.place(points)) return refuseToChange(kTooFew);
  for (std::size_t i = 0; i < points.size(); ++i) grid.add(points[i], residuals[i]);
  grid.finalize();
  images_ = {grid.count, grid.meanX, grid.meanZ, grid.maxX, grid.maxZ};
  return true;
}

bool CalibratedRegion::Update(const etl::Vector<PointList>& pointLists,
                              const etl::Vector<PointList>& residualLists) {
  if (pointLists.empty()) return refuseToChange("At least one point list must be supplied.");
  if (pointLists.size() != residualLists.size()) return refuseToChange(kUnequalLists);
  PointList points;
  PointList residuals;
  for (std::size_t i = 0; i < pointLists.size(); ++i) {
    if (pointLists[i].size() != residualLists[i].size()) return refuseToChange(kUnequalLists);
    points.insert(points.end(), pointLists[i].begin(), pointLists[i].end());
    residuals.insert(residuals.end(), residualLists[i].begin(), residualLists[i].end());
  }
  return Update(points, residuals);
}

bool CalibratedRegion::SetImages(const Image& count, const Image& averageX, const Image& averageZ,
                                 const Image& maximumX, const Image& maximumZ) {
  std::array<ImagePointer, 5> images;
  const Image* const given[] = {&count, &averageX, &averageZ, &maximumX, &maximumZ};
  for (std::size_t i = 0; i < images.size(); ++i) {
    const Image& from = *given[i];
    const auto type = i == kPointCount ? cmnalg::IMAGE_TYPE_INT32 : cmnalg::IMAGE_TYPE_FLOAT32;
    if (from.GetType() != type || from.GetWidth() != count.GetWidth() ||
        from.GetHeight() != count.GetHeight()) {
      return refuseToChange(
          "The images of a calibrated region must be of one size, counts in INT32 and residuals in "
          "FLOAT32.");
    }
    const auto copy = std::make_shared<Image>(from);
    if (from.GetImageData().IsValid() && !copy->GetImageData().IsValid()) return false;
    cmnalg::impro::CopyImageMetadata(count, *copy);
    images[i] = copy;
  }
  images_ = images;
  return true;
}

bool CalibratedRegion::IsValid() const {
  return AreOfOneSize() && cmnalg::impro::HoldsPixels(*images_[kPointCount]);
}

bool CalibratedRegion::GetRegion(cmnalg::shape::Rectangle& region) const {
  const base::DefaultFloatEnvironment environment;
  cmnalg::shape::Rectangle area;
  if (images_[kPointCount] != nullptr) {
    const Image& count = *images_[kPointCount];
    area.Center = {count.Origin.x + count.PixelSize.x * (count.GetWidth() - 1.0) / 2,
                   count.Origin.y + count.PixelSize.y * (count.GetHeight() - 1.0) / 2};
    area.Width = count.GetWidth() * count.PixelSize.x;
    area.Height = count.GetHeight() * count.PixelSize.y;
  }
  const bool valid = IsValid() && area.IsValid();
  if (!valid) area.Width = area.Height = std::numeric_limits<double>::quiet_NaN();
  region = area;
  return valid;
}

bool CalibratedRegion::GetPointCount(Image& count) const {
  if (images_[kPointCount] == nullptr) return false;
  count = *images_[kPointCount];
  return count.GetImageData().IsValid();
}

bool CalibratedRegion::GetAverageResiduals(Image& x, Image& z) const {
  return CopyImages(kAverageX, kAverageZ, x, z);
}

bool CalibratedRegion::GetMaximumResiduals(Image& x, Image& z) const {
  return CopyImages(kMaximumX, kMaximumZ, x, z);
}

/// Both or neither.
bool CalibratedRegion::CopyImages(ImageIndex indexX, ImageIndex indexZ, Image& x, Image& z) const {
  if (images_[indexX] == nullptr || images_[indexZ] == nullptr) return false;
  Image copyX(*images_[indexX]);
  Image copyZ(*images_[indexZ]);
  x = std::move(copyX);
  z = std::move(copyZ);
  return x.GetImageData().IsValid() && z.GetImageData().IsValid();
}

void CalibratedRegion::Visit(etl::IVisitor& visitor) {
  constexpr const char* kNames[] = {"PointCount", "AverageResidualX", "AverageResidualZ",
                                    "MaximumResidualX", "MaximumResidualZ"};
  for (std::size_t i = 0; i < images_.size(); ++i) {
    const bool counts = i == kPointCount;
    visitImage(visitor, images_[i], counts ? cmnalg::IMAGE_TYPE_INT32 : cmnalg::IMAGE_TYPE_FLOAT32,
               kNames[i]);
  }
}

}  // namespace datafusion::planex
