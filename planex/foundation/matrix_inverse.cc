#include "planex/foundation/matrix_inverse.h"

#include <Eigen/Core>
#include <Eigen/LU>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

#include "planex/infra/float_environment.h"
#include "planex/infra/refusal.h"

namespace cmnalg::math {
namespace {

bool refuse(const char* reason) { return base::refuse("Matrix", reason); }

/// The power of two that brings `largest` into [1, 2).
double balancing(double largest) { return std::scalbn(1.0, -std::ilogb(largest)); }

/// Scales rows, then columns, by powers of two so that the largest element of each is near 1. A
/// matrix that mixes units (focal lengths with pixels) then has a condition number that speaks of
/// the matrix and not of its units. Powers of two round nothing.
/// @return false for a row or column of zeros, or an element that is not finite
bool balance(Eigen::MatrixXd& m, Eigen::VectorXd& rowScale, Eigen::VectorXd& colScale) {
  if (!m.allFinite()) return false;
  for (Eigen::Index r = 0; r < m.rows(); ++r) {
    const double largest = m.row(r).cwiseAbs().maxCoeff();
    if (!(largest > 0)) return false;
    rowScale[r] = balancing(largest);
    m.row(r) *= rowScale[r];
  }
  for (Eigen::Index c = 0; c < m.cols(); ++c) {
    const double largest = m.col(c).cwiseAbs().maxCoeff();
    if (!(largest > 0)) return false;
    colScale[c] = balancing(largest);
    m.col(c) *= colScale[c];
  }
  return true;
}

template <typename T>
bool fits(const Eigen::MatrixXd& m) {
  return m.allFinite() && m.cwiseAbs().maxCoeff() <= double{std::numeric_limits<T>::max()};
}

template <int N, typename T>
void writeColumn(const Vec<N, T>& point, Matrix<T>& matrix, int col) {
  matrix[0][col] = point.x;
  matrix[1][col] = point.y;
  if constexpr (N == 3) matrix[2][col] = point.z;
  if (matrix.Height() > N) matrix[N][col] = T{1};
}

}  // namespace

template <typename T>
bool Inverse(Matrix<T>& out, const Matrix<T>& in) {
  const base::DefaultFloatEnvironment environment;
  const int size = in.Height();
  if (in.IsEmpty() || in.Width() != size) {
    return refuse("Input or output matrix is not correct size.");
  }
  if (&out == &in) return refuse("Input matrix cannot be the same as the output matrix.");

  Eigen::MatrixXd balanced(size, size);
  for (int r = 0; r < size; ++r) {
    for (int c = 0; c < size; ++c) balanced(r, c) = double{in[r][c]};
  }
  Eigen::VectorXd rowScale(size);
  Eigen::VectorXd colScale(size);
  if (!balance(balanced, rowScale, colScale)) return false;
  const Eigen::PartialPivLU<Eigen::MatrixXd> lu(balanced);
  const double singular = size * double{std::numeric_limits<T>::epsilon()};
  if (!(lu.rcond() > singular)) return false;
  const Eigen::MatrixXd inverse = colScale.asDiagonal() * lu.inverse() * rowScale.asDiagonal();
  if (!fits<T>(inverse) || !out.Create(size, size)) return false;
  for (int r = 0; r < size; ++r) {
    for (int c = 0; c < size; ++c) out[r][c] = static_cast<T>(inverse(r, c));
  }
  return true;
}

template <int N, typename T>
bool toMatrix(const Vec<N, T>& point, Matrix<T>& matrix, bool homogeneous) {
  if (!matrix.Create(homogeneous ? N + 1 : N, 1)) return false;
  writeColumn(point, matrix, 0);
  return true;
}

template <int N, typename T>
bool toMatrix(const etl::Vector<Vec<N, T>>& points, Matrix<T>& matrix, bool homogeneous) {
  // A longer list is capped, not wrapped: two rows of the largest int are refused by Create.
  const auto cols = std::min<std::size_t>(points.size(), std::numeric_limits<std::int32_t>::max());
  if (!matrix.Create(homogeneous ? N + 1 : N, static_cast<int>(cols))) return false;
  for (int c = 0; c < matrix.Width(); ++c) {
    writeColumn(points[static_cast<std::size_t>(c)], matrix, c);
  }
  return true;
}

template PLANEX_EXPORT bool Inverse(Matrix<float>&, const Matrix<float>&);
template PLANEX_EXPORT bool Inverse(Matrix<double>&, const Matrix<double>&);
template PLANEX_EXPORT bool toMatrix(const Vec<2, float>&, Matrix<float>&, bool);
template PLANEX_EXPORT bool toMatrix(const etl::Vector<Vec<2, float>>&, Matrix<float>&, bool);
template PLANEX_EXPORT bool toMatrix(const Vec<2, double>&, Matrix<double>&, bool);
template PLANEX_EXPORT bool toMatrix(const etl::Vector<Vec<2, double>>&, Matrix<double>&, bool);
template PLANEX_EXPORT bool toMatrix(const Vec<3, float>&, Matrix<float>&, bool);
template PLANEX_EXPORT bool toMatrix(const etl::Vector<Vec<3, float>>&, Matrix<float>&, bool);
template PLANEX_EXPORT bool toMatrix(const Vec<3, double>&, Matrix<double>&, bool);
template PLANEX_EXPORT bool toMatrix(const etl::Vector<Vec<3, double>>&, Matrix<double>&, bool);

}  // namespace cmnalg::math
