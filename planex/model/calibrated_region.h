#pragma once

#include <memory>

#include "planex/foundation/image.h"
#include "planex/foundation/rectangle.h"
#include "planex/foundation/vec.h"
#include "planex/infra/containers.h"
#include "planex/infra/export.h"
#include "planex/infra/visitor.h"

namespace datafusion::planex {

/// Where in the laser plane a calibration was supported by points, and how large its residuals
/// were there: a grid of cells, columns along X and rows along Z.
///
/// Five images of one size share PixelSize (dx, dz, 1) and Origin, the centre of cell (0, 0) in
/// calibrated coordinates. Copies share the images until one of them changes.
class PLANEX_EXPORT CalibratedRegion {
 public:
  /// Five empty (0 x 0) images.
  CalibratedRegion();

  /// Gives the grid a size; all cells 0. Resize(0, 0) empties the region.
  /// @return false, with the image's own warning and an unchanged region, for sizes that cannot be
  ///         allocated
  bool Resize(int width, int height);

  /// Fills the grid anew from calibration points (X, Z) and their residuals, both in the model's
  /// length unit: limits from the points, then per cell the number of points, the mean of the
  /// residuals and the largest absolute ones. Points whose cell is not finite are left out.
  /// @return false, the region unchanged, with a warning on "Image.Planex.Model": "Grid must be at
  ///         least 2x2. Please call Resize() to allocate the feedback images before calling
  ///         Update().", "At least two points must be added to calculate the calibrated region",
  ///         "The amount of residuals must match the amount of points."
  bool Update(const etl::Vector<cmnalg::Vec<2, double>>& points,
              const etl::Vector<cmnalg::Vec<2, double>>& residuals);
  /// The same with several lists, joined in order. An empty outer list is refused with "At least
  /// one point list must be supplied.", lists that do not match as above.
  bool Update(const etl::Vector<etl::Vector<cmnalg::Vec<2, double>>>& pointLists,
              const etl::Vector<etl::Vector<cmnalg::Vec<2, double>>>& residualLists);

  /// Whether the five images have one size and the point counts hold pixels.
  bool IsValid() const;

  /// The area of the grid in calibrated coordinates, rotation 0.
  /// @return false, width and height NaN, when the region has none
  bool GetRegion(cmnalg::shape::Rectangle& region) const;

  // Deep copies of the images. False, with untouched outputs, when an image is null.
  bool GetPointCount(cmnalg::Image& count) const;                      ///< INT32
  bool GetAverageResiduals(cmnalg::Image& x, cmnalg::Image& z) const;  ///< FLOAT32
  bool GetMaximumResiduals(cmnalg::Image& x, cmnalg::Image& z) const;  ///< FLOAT32

  /// Five members, "PointCount", "AverageResidualX", "AverageResidualZ", "MaximumResidualX",
  /// "MaximumResidualZ", each an image object or null. An image of another pixel type is a reading
  /// error.
  void Visit(etl::IVisitor& visitor);

 private:
  using ImagePointer = std::shared_ptr<const cmnalg::Image>;

  bool HaveOneSize() const;
  /// Fills images that are cleared and not shared.
  void Accumulate(const etl::Vector<cmnalg::Vec<2, double>>& points,
                  const etl::Vector<cmnalg::Vec<2, double>>& residuals);

  ImagePointer pointCount_;
  ImagePointer averageResidualX_;
  ImagePointer averageResidualZ_;
  ImagePointer maximumResidualX_;
  ImagePointer maximumResidualZ_;
};

}  // namespace datafusion::planex
