#pragma once

#include <cstdint>
#include <memory>
#include <type_traits>

#include "planex/foundation/matrix.h"
#include "planex/infra/export.h"
#include "planex/infra/visitable.h"

namespace cmnalg::math {

/// Classes of transforms, each containing the ones before it.
enum class TransformType : std::int32_t {
  IDENTITY = 0,     ///< changes nothing
  TRANSLATION = 1,  ///< shifts
  RIGID = 2,        ///< and turns
  SIMILARITY = 3,   ///< and scales, alike in all directions
  AFFINE = 4,       ///< any linear map with a shift
  HOMOGRAPHY = 5,   ///< any projective map
};

/// @return the enumerator's name, "INVALID" for any other value; static storage
PLANEX_EXPORT const char* transformTypeToString(TransformType type);

/// A transform of N-dimensional space (N = 2 or 3) with its homogeneous (N+1) x (N+1) matrix.
///
/// The stored type is what the creator declared, and it is authoritative: the Is... queries
/// compare it for equality, so IsSimilarity() is false for a rigid transform.
/// GetTypeNumerical() classifies the matrix itself.
template <int N, typename T>
class Transform final : public etl::IVisitable {
 public:
  /// The identity.
  Transform();
  /// @{
  /// Copies only, no moves, so that a transform always has its matrix.
  Transform(const Transform&) = default;
  Transform& operator=(const Transform& other);
  /// @}

  /// Sets matrix and declared type, after checking that the matrix is not more general. A type
  /// beyond HOMOGRAPHY is stored as it is; users of the transform refuse it.
  /// @return false, the transform unchanged, with a warning on the logger "Matrix": "Input
  ///         matrix is not correct size." or "The matrix represents a transform more general
  ///         than the desired transform type, check transform matrix or adjust the desired
  ///         type."
  bool Create(const Matrix<T>& matrix, TransformType wanted);
  /// @{
  /// Create under the name of its dimension.
  template <int D = N>
  std::enable_if_t<D == 2, bool> Create2D(const Matrix<T>& matrix, TransformType wanted) {
    return Create(matrix, wanted);
  }
  template <int D = N>
  std::enable_if_t<D == 3, bool> Create3D(const Matrix<T>& matrix, TransformType wanted) {
    return Create(matrix, wanted);
  }
  /// @}

  /// The stored type.
  TransformType GetType() const { return type_; }
  /// @{
  /// Whether the stored type is just this one.
  bool IsIdentity() const { return type_ == TransformType::IDENTITY; }
  bool IsTranslation() const { return type_ == TransformType::TRANSLATION; }
  bool IsRigid() const { return type_ == TransformType::RIGID; }
  bool IsSimilarity() const { return type_ == TransformType::SIMILARITY; }
  bool IsHomography() const { return type_ == TransformType::HOMOGRAPHY; }
  /// @}
  /// (N+1) x (N+1).
  const Matrix<T>& GetMatrix() const { return matrix_; }

  /// Classifies the matrix with the tolerance 1e-5. With m its elements and L its upper-left
  /// N x N part:
  ///
  ///     HOMOGRAPHY   a bottom element before the last is not 0, or |m_NN - 1| >= tolerance
  ///     AFFINE       A = L L^T is not s I within the tolerance, s = trace(A) / N
  ///     SIMILARITY   |s - 1| >= tolerance
  ///     RIGID        a diagonal element of L differs from 1 by the tolerance or more, or one
  ///                  off the diagonal is not 0 (a pure reflection is RIGID, too)
  ///     TRANSLATION  a translation component is not 0
  ///     IDENTITY     otherwise
  ///
  /// NaN counts as different from everything: in the bottom row it gives HOMOGRAPHY, in L AFFINE,
  /// in the translation TRANSLATION. Evaluated in double.
  TransformType GetTypeNumerical() const;

  const char* GetClassName() const override;  ///< "Transform2D" or "Transform3D"
  /// Members "Type" (the type's text) and "Matrix". A text that names no type, and a matrix of
  /// another size, are reading errors, which leave the transform as it was; the declared type
  /// is not compared with the matrix.
  void Visit(etl::IVisitor& visitor) override;
  std::unique_ptr<etl::IVisitable> CloneVisitable() const override;

 private:
  TransformType type_ = TransformType::IDENTITY;
  Matrix<T> matrix_;
};

extern template class PLANEX_EXPORT Transform<2, float>;
extern template class PLANEX_EXPORT Transform<2, double>;
extern template class PLANEX_EXPORT Transform<3, float>;
extern template class PLANEX_EXPORT Transform<3, double>;

}  // namespace cmnalg::math
