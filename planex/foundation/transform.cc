#include "planex/foundation/transform.h"

#include <cmath>
#include <string>

#include "planex/infra/class_repository.h"
#include "planex/infra/float_environment.h"
#include "planex/infra/refusal.h"
#include "planex/infra/visitor.h"

namespace cmnalg::math {
namespace {

constexpr double kTolerance = 1e-5;
constexpr const char* kTypeNames[] = {"IDENTITY",   "TRANSLATION", "RIGID",
                                      "SIMILARITY", "AFFINE",      "HOMOGRAPHY"};

[[maybe_unused]] const bool kRegistered = etl::registerClass<Transform<2, double>>("Transform2D") &&
                                          etl::registerClass<Transform<3, double>>("Transform3D");

bool refuse(const char* reason) { return base::refuse("Matrix", reason); }

/// @return false when the text is no type's name
bool typeFromString(const std::string& text, TransformType& type) {
  for (int i = 0; i <= static_cast<int>(TransformType::HOMOGRAPHY); ++i) {
    if (text != kTypeNames[i]) continue;
    type = static_cast<TransformType>(i);
    return true;
  }
  return false;
}

bool isNear(double a, double b) { return std::abs(a - b) < kTolerance; }

template <typename T>
bool isProjective(const Matrix<T>& m, int n) {
  for (int c = 0; c < n; ++c) {
    if (m[n][c] != 0) return true;
  }
  return !isNear(m[n][n], 1);
}

/// Element (i, j) of L L^T.
template <typename T>
double gram(const Matrix<T>& m, int n, int i, int j) {
  double sum = 0;
  for (int k = 0; k < n; ++k) sum += double{m[i][k]} * double{m[j][k]};
  return sum;
}

/// Whether L L^T = s I; gives s, the square of the scale.
template <typename T>
bool scalesUniformly(const Matrix<T>& m, int n, double& s) {
  double trace = 0;
  for (int i = 0; i < n; ++i) trace += gram(m, n, i, i);
  s = trace / n;
  for (int i = 0; i < n; ++i) {
    if (!isNear(gram(m, n, i, i), s)) return false;
    for (int j = i + 1; j < n; ++j) {
      if (!isNear(gram(m, n, i, j), 0)) return false;
    }
  }
  return true;
}

template <typename T>
bool isUnitLinear(const Matrix<T>& m, int n) {
  for (int r = 0; r < n; ++r) {
    for (int c = 0; c < n; ++c) {
      if (r == c ? !isNear(m[r][c], 1) : m[r][c] != 0) return false;
    }
  }
  return true;
}

template <typename T>
TransformType classify(const Matrix<T>& m, int n) {
  if (isProjective(m, n)) return TransformType::HOMOGRAPHY;
  double s = 0;
  if (!scalesUniformly(m, n, s)) return TransformType::AFFINE;
  if (!isNear(s, 1)) return TransformType::SIMILARITY;
  if (!isUnitLinear(m, n)) return TransformType::RIGID;
  for (int r = 0; r < n; ++r) {
    if (m[r][n] != 0) return TransformType::TRANSLATION;
  }
  return TransformType::IDENTITY;
}

}  // namespace

const char* transformTypeToString(TransformType type) {
  const bool known = type >= TransformType::IDENTITY && type <= TransformType::HOMOGRAPHY;
  return known ? kTypeNames[static_cast<int>(type)] : "INVALID";
}

template <int N, typename T>
Transform<N, T>::Transform() : matrix_(Matrix<T>::Identity(N + 1, N + 1)) {}

template <int N, typename T>
Transform<N, T>& Transform<N, T>::operator=(const Transform& other) {
  matrix_ = other.matrix_;  // first: it may throw
  type_ = other.type_;
  return *this;
}

template <int N, typename T>
bool Transform<N, T>::Create(const Matrix<T>& matrix, TransformType wanted) {
  const base::DefaultFloatEnvironment environment;
  if (matrix.Width() != N + 1 || matrix.Height() != N + 1) {
    return refuse("Input matrix is not correct size.");
  }
  if (classify(matrix, N) > wanted) {
    return refuse(
        "The matrix represents a transform more general than the desired transform type, check "
        "transform matrix or adjust the desired type.");
  }
  matrix_ = matrix;
  type_ = wanted;
  return true;
}

template <int N, typename T>
TransformType Transform<N, T>::GetTypeNumerical() const {
  const base::DefaultFloatEnvironment environment;
  return classify(matrix_, N);
}

template <int N, typename T>
const char* Transform<N, T>::GetClassName() const {
  return N == 2 ? "Transform2D" : "Transform3D";
}

template <int N, typename T>
void Transform<N, T>::Visit(etl::IVisitor& visitor) {
  etl::String typeName = transformTypeToString(type_);
  visitor.VisitMemberS(typeName, "Type");
  if (!visitor.IsReading()) {
    matrix_.Visit(visitor, "Matrix");
    return;
  }
  Matrix<T> matrix(matrix_);
  matrix.Visit(visitor, "Matrix");
  if (visitor.HasError()) return;
  TransformType type{};
  if (!typeFromString(typeName, type)) {
    visitor.SetError(std::string("Data field 'Type' of class '") + GetClassName() +
                     "' not found or out or range");
  } else if (matrix.Width() != N + 1 || matrix.Height() != N + 1) {
    visitor.SetArraySizeMismatch();
  } else {
    matrix_ = std::move(matrix);
    type_ = type;
  }
}

template <int N, typename T>
std::unique_ptr<etl::IVisitable> Transform<N, T>::CloneVisitable() const {
  return std::make_unique<Transform>(*this);
}

template class Transform<2, float>;
template class Transform<2, double>;
template class Transform<3, float>;
template class Transform<3, double>;

}  // namespace cmnalg::math
