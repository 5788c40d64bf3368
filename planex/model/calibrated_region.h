#pragma once

#include <array>
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

  /// Gives the grid a size, and creates the images that are null: all cells 0, PixelSize 1, Origin
  /// 0. Resize(0, 0) empties the region.
  /// @return false, with the image's own warning and an unchanged region, for sizes that cannot be
  ///         allocated
  bool Resize(int width, int height);

  /// Fills the grid anew from calibration points (X, Z) and their residuals, both in the model's
  /// length unit. With W columns and xMin, xMax the limits of the points (rows likewise in Z):
  ///
  ///     dx  = (xMax - xMin) / W,   originX = xMin + dx / 2
  ///     col = trunc((X - originX) / dx + 0.5), clamped to 0 ... W - 1
  ///
  /// A cell gets the number of its points, the mean of their residuals and the largest absolute
  /// ones, summed in float in the order of the points. Points that are not finite, and points
  /// whose cell is not (all of one X or one Z: dx or dz is 0), are left out.
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

  /// Takes copies of five images, as another calibration has made them. PixelSize and Origin are
  /// those of the counts.
  /// @param count  INT32
  /// @param averageX, averageZ, maximumX, maximumZ  FLOAT32
  /// @return false, the region unchanged: with a warning on "Image.Planex.Model", "The images of a
  ///         calibrated region must be of one size, counts in INT32 and residuals in FLOAT32."; or
  ///         with the image's own, without memory for the copies
  bool SetImages(const cmnalg::Image& count, const cmnalg::Image& averageX,
                 const cmnalg::Image& averageZ, const cmnalg::Image& maximumX,
                 const cmnalg::Image& maximumZ);

  /// Whether there are point counts, with pixels and a PixelSize that is nowhere negative or NaN,
  /// and no image has another size than they have.
  bool IsValid() const;

  /// The area of the grid in calibrated coordinates, rotation 0: centre originX + dx (W - 1) / 2,
  /// width W dx, and likewise in Z.
  /// @return false, width and height NaN, when the region is not valid or the area not finite
  bool GetRegion(cmnalg::shape::Rectangle& region) const;

  // Deep copies of the images. False, with untouched outputs and no message, when one is null.
  bool GetPointCount(cmnalg::Image& count) const;                      ///< INT32
  bool GetAverageResiduals(cmnalg::Image& x, cmnalg::Image& z) const;  ///< FLOAT32
  bool GetMaximumResiduals(cmnalg::Image& x, cmnalg::Image& z) const;  ///< FLOAT32

  /// Five members, "PointCount", "AverageResidualX", "AverageResidualZ", "MaximumResidualX",
  /// "MaximumResidualZ", each an image object or null. Reading refuses an image of another pixel
  /// type ("Data field 'M' of class 'Image.Planex.Model' not found or out or range") and an object
  /// that is no image ("Wrong subclass instance during visiting").
  void Visit(etl::IVisitor& visitor);

 private:
  using ImagePointer = std::shared_ptr<const cmnalg::Image>;
  enum ImageIndex { kPointCount, kAverageX, kAverageZ, kMaximumX, kMaximumZ };

  bool AreOfOneSize() const;
  bool CopyImages(ImageIndex indexX, ImageIndex indexZ, cmnalg::Image& x, cmnalg::Image& z) const;

  std::array<ImagePointer, 5> images_;  // in the order of the document
};

}  // namespace datafusion::planex
