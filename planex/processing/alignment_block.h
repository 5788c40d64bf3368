#pragma once

#include "planex/foundation/image.h"
#include "planex/foundation/image_of.h"
#include "planex/foundation/matrix.h"
#include "planex/infra/containers.h"
#include "planex/infra/export.h"

namespace datafusion::planex::basic {

/// applyAlignmentBlock over the columns and rows of z.
PLANEX_EXPORT bool applyAlignment(const cmnalg::Image& x, const etl::Vector<double>& y,
                                  const cmnalg::Image& z, const cmnalg::Matrix<double>& transform,
                                  cmnalg::ImageOf<float>& xOut, cmnalg::ImageOf<float>& yOut,
                                  cmnalg::ImageOf<float>& zOut);

/// Transforms the points of columns [columnBegin, columnEnd) of rows [rowBegin, rowEnd).
///
///     x = float(Xraw sX + oX),  y = float(Y[row]),  z = float(Zraw sZ + oZ)
///     X' = t0 x + t1 y + t2 z + t3
///     Y' = t4 x + t5 y + t6 z + t7
///     Z' = t8 x + t9 y + t10 z + t11          (in double; each rounded to float)
///
/// with sX, oX, sZ, oZ the value scale and offset of the images. Where both scales are 1 within
/// 1e-13 and both offsets 0, samples with a floating Z type are taken as they are, z without
/// rounding. A missing Z (0 in an integer image, NaN in a floating one) gives NaN in all three
/// targets; X is never tested.
///
/// @param x         UINT8, UINT16, UINT32, UINT64, FLOAT32 or FLOAT64; row v of z goes with its
///                  row v modulo its height, so that one row can serve all
/// @param y         one coordinate for each row of z
/// @param z         a type as x, independently
/// @param transform at least three rows of four columns, row-major; nothing is divided
/// @param xOut, yOut, zOut  targets, at least as large as the block; must not overlap x or z
/// @return false, without a message and without a written pixel, for other types, another shape
///         of the transform, and a block that is not inside the images and y
///
/// Rows are divided among the threads of one OpenMP team; results do not depend on it.
PLANEX_EXPORT bool applyAlignmentBlock(int columnBegin, int columnEnd, int rowBegin, int rowEnd,
                                       const cmnalg::Image& x, const etl::Vector<double>& y,
                                       const cmnalg::Image& z,
                                       const cmnalg::Matrix<double>& transform,
                                       cmnalg::ImageOf<float>& xOut, cmnalg::ImageOf<float>& yOut,
                                       cmnalg::ImageOf<float>& zOut);

}  // namespace datafusion::planex::basic
