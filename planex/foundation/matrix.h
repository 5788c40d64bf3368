#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "planex/infra/allocator.h"
#include "planex/infra/export.h"
#include "planex/infra/visitor.h"

namespace cmnalg {

/// Dense row-major matrix of float or double: element (r, c) is at Data()[r * Pitch() + c].
///
/// Refusals are warnings on the logger "Matrix" and false. Copies are deep, with pitch = width and
/// memory from the source's allocator; a copy that finds no memory throws std::bad_alloc and leaves
/// the target as it was. A matrix that was moved from is empty.
template <typename T>
class Matrix {
 public:
  /// An empty (0 x 0) matrix.
  Matrix() = default;
  /// The rows x cols matrix with ones on the diagonal and zeros elsewhere; throws std::bad_alloc.
  static Matrix Identity(int rows, int cols);
  /// A rows x cols matrix with these values, row-major; throws std::bad_alloc.
  static Matrix FromRows(int rows, int cols, const T* values);

  /// @{
  /// Copies are deep, also of a view.
  Matrix(const Matrix& other);
  Matrix(Matrix&& other) noexcept;
  Matrix& operator=(const Matrix& other);
  Matrix& operator=(Matrix&& other) noexcept;
  /// @}
  ~Matrix();

  /// Gives the matrix a shape; the elements are not initialised.
  ///
  /// Storage of exactly rows * pitch elements that the matrix owns is kept, other storage is
  /// released (unless external) and allocated anew.
  /// @param pitch     elements between the starts of two rows, at least cols; 0 means cols
  /// @param allocator must outlive the matrix
  /// @return false, and an unchanged matrix, with "Cannot create matrix: Number of rows and
  ///         columns must be non-negative.", "Cannot create matrix: Line pitch is set smaller
  ///         than the matrix width." or "Cannot create matrix: Memory allocation failed."
  ///         (sizes whose product has no 32-bit integer count as such)
  bool Create(int rows, int cols, int pitch = 0,
              const etl::Allocator& allocator = etl::StandardMemAllocator::Default());

  /// Makes the matrix a view of the caller's rows * pitch elements, which must outlive it and
  /// are never freed by it. Same checks as Create; null data are refused as failed memory. The
  /// elements must not be this matrix's own: those are freed here.
  bool CreateExternal(T* data, int rows, int cols, int pitch = 0);

  /// @{
  /// Columns, rows, and elements between the starts of two rows.
  int Width() const { return width_; }
  int Height() const { return height_; }
  int Pitch() const { return pitch_; }
  /// @}
  /// Whether it has no elements.
  bool IsEmpty() const { return width_ == 0 || height_ == 0; }
  /// @{
  /// Element (0, 0); null for an empty matrix.
  T* Data() { return data_; }
  const T* Data() const { return data_; }
  /// @}
  /// @{
  /// First element of a row, so that m[r][c] is element (r, c); indices are not checked.
  T* operator[](int row) { return data_ + static_cast<std::ptrdiff_t>(row) * pitch_; }
  const T* operator[](int row) const { return data_ + static_cast<std::ptrdiff_t>(row) * pitch_; }
  /// @}

  /// The matrix product, each sum in order of the inner index. Factors that do not fit, silently,
  /// and a product that cannot be created, with Create's warning, give an empty matrix.
  Matrix operator*(const Matrix& right) const;

  /// The member `name` as an array of rows. Reading takes the number of rows from the outer and
  /// the number of columns from the first inner array; rows of other lengths are a size-mismatch
  /// error, an empty outer array leaves the matrix as it was. So does every error.
  void Visit(etl::IVisitor& visitor, const char* name);

 private:
  void Read(etl::IVisitor& visitor, std::size_t rows);
  void Release() noexcept;

  T* data_ = nullptr;
  std::int32_t width_ = 0;
  std::int32_t height_ = 0;
  std::int32_t pitch_ = 0;
  bool external_ = false;
  const etl::Allocator* allocator_ = nullptr;
};

extern template class PLANEX_EXPORT Matrix<float>;
extern template class PLANEX_EXPORT Matrix<double>;

}  // namespace cmnalg
