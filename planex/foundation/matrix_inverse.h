#pragma once

#include "planex/foundation/matrix.h"
#include "planex/foundation/vec.h"
#include "planex/infra/containers.h"
#include "planex/infra/export.h"

namespace cmnalg::math {

/// Inverts a square matrix by LU decomposition with partial pivoting, in double, after rows and
/// columns have been scaled by powers of two to a largest element near 1. Source: Golub and Van
/// Loan, Matrix Computations, 4th ed., sections 3.4 and 3.5.2.
///
/// The matrix counts as singular when the estimated reciprocal condition of the scaled matrix is
/// not above n epsilon, epsilon being that of T: its inverse would be rounding errors. A last row
/// (0, ..., 0, 1) is that of the inverse, too, without any error.
///
/// @param out receives the inverse, with pitch = width; untouched on failure
/// @return false when `in` is empty, not square ("Input or output matrix is not correct size."),
///         the same object as `out` ("Input matrix cannot be the same as the output matrix."),
///         both warnings on the logger "Matrix", or, without a message, when it is singular or
///         an element of the result is not finite
template <typename T>
bool Inverse(Matrix<T>& out, const Matrix<T>& in);

/// Writes a point into a matrix as one column of N rows, N + 1 with a last 1 when `homogeneous`.
/// @return false when the matrix cannot be created
template <int N, typename T>
bool toMatrix(const Vec<N, T>& point, Matrix<T>& matrix, bool homogeneous);

/// Writes a list of points into a matrix, one column a point.
template <int N, typename T>
bool toMatrix(const etl::Vector<Vec<N, T>>& points, Matrix<T>& matrix, bool homogeneous);

}  // namespace cmnalg::math
