#include "planex/foundation/matrix.h"

#include <algorithm>
#include <limits>
#include <new>
#include <utility>
#include <vector>

#include "planex/infra/float_environment.h"
#include "planex/infra/logger.h"

namespace cmnalg {
namespace {

constexpr std::int64_t kMaxElements = std::numeric_limits<std::int32_t>::max();

bool refuse(const char* reason) {
  base::Logger::Get("Matrix").Warning("Cannot create matrix: %s", reason);
  return false;
}

/// The checks of Create; turns a pitch of 0 into the width.
bool acceptShape(int rows, int cols, int& pitch) {
  if (rows < 0 || cols < 0) return refuse("Number of rows and columns must be non-negative.");
  if (pitch == 0) pitch = cols;
  if (pitch < cols) return refuse("Line pitch is set smaller than the matrix width.");
  if (std::int64_t{rows} * pitch > kMaxElements) return refuse("Memory allocation failed.");
  return true;
}

/// Reads the rows into one list, so that never more elements are held than the document has: the
/// announced shape may be as large as the product of two lengths in it.
template <typename T>
std::vector<T> readRows(etl::IVisitor& visitor, std::size_t rows, std::size_t& cols) {
  std::vector<T> values;
  for (std::size_t r = 0; r < rows; ++r) {
    if (r > 0) visitor.VisitArraySeparator();
    std::size_t count = 0;
    visitor.BeginVisitingArray(etl::ArrayType::Primitives, count, nullptr);
    if (visitor.HasError()) break;
    if (r == 0) cols = count;
    if (count != cols) {
      visitor.SetArraySizeMismatch();
      break;
    }
    values.resize(values.size() + count);
    visitor.VisitPodArray(values.data() + (values.size() - count));
    visitor.EndVisitingArray(etl::ArrayType::Primitives);
    if (visitor.HasError()) break;
  }
  return values;
}

}  // namespace

template <typename T>
Matrix<T> Matrix<T>::Identity(int rows, int cols) {
  Matrix identity;
  if (!identity.Create(rows, cols)) throw std::bad_alloc();
  for (int r = 0; r < rows; ++r) {
    for (int c = 0; c < cols; ++c) identity[r][c] = r == c ? T{1} : T{0};
  }
  return identity;
}

template <typename T>
Matrix<T> Matrix<T>::FromRows(int rows, int cols, const T* values) {
  Matrix matrix;
  if (!matrix.Create(rows, cols)) throw std::bad_alloc();
  std::copy_n(values, static_cast<std::ptrdiff_t>(rows) * cols, matrix.data_);
  return matrix;
}

template <typename T>
Matrix<T>::Matrix(const Matrix& other) {
  if (!Create(
          other.height_, other.width_, 0,
          other.allocator_ != nullptr ? *other.allocator_ : etl::StandardMemAllocator::Default())) {
    throw std::bad_alloc();
  }
  for (int r = 0; r < height_; ++r) std::copy_n(other[r], width_, (*this)[r]);
}

template <typename T>
Matrix<T>::Matrix(Matrix&& other) noexcept {
  *this = std::move(other);
}

template <typename T>
Matrix<T>& Matrix<T>::operator=(const Matrix& other) {
  if (this != &other) *this = Matrix(other);
  return *this;
}

template <typename T>
Matrix<T>& Matrix<T>::operator=(Matrix&& other) noexcept {
  if (this == &other) return *this;
  Release();
  data_ = std::exchange(other.data_, nullptr);
  width_ = std::exchange(other.width_, 0);
  height_ = std::exchange(other.height_, 0);
  pitch_ = std::exchange(other.pitch_, 0);
  external_ = std::exchange(other.external_, false);
  allocator_ = std::exchange(other.allocator_, nullptr);
  return *this;
}

template <typename T>
Matrix<T>::~Matrix() {
  Release();
}

template <typename T>
void Matrix<T>::Release() noexcept {
  if (data_ != nullptr && !external_) allocator_->Deallocate(data_);
  data_ = nullptr;
}

template <typename T>
bool Matrix<T>::Create(int rows, int cols, int pitch, const etl::Allocator& allocator) {
  if (!acceptShape(rows, cols, pitch)) return false;
  const std::int64_t count = std::int64_t{rows} * pitch;
  const bool reuse = data_ != nullptr && !external_ && std::int64_t{height_} * pitch_ == count;
  if (!reuse) {
    void* memory = nullptr;
    if (count > 0) {
      memory = allocator.Allocate(static_cast<std::size_t>(count) * sizeof(T));
      if (memory == nullptr) return refuse("Memory allocation failed.");
    }
    Release();
    data_ = static_cast<T*>(memory);
    external_ = false;
    allocator_ = &allocator;
  }
  width_ = cols;
  height_ = rows;
  pitch_ = pitch;
  return true;
}

template <typename T>
bool Matrix<T>::CreateExternal(T* data, int rows, int cols, int pitch) {
  if (!acceptShape(rows, cols, pitch)) return false;
  if (data == nullptr) return refuse("Memory allocation failed.");
  Release();
  data_ = data;
  width_ = cols;
  height_ = rows;
  pitch_ = pitch;
  external_ = true;
  allocator_ = nullptr;
  return true;
}

template <typename T>
Matrix<T> Matrix<T>::operator*(const Matrix& right) const {
  const base::DefaultFloatEnvironment environment;
  Matrix product;
  if (width_ != right.height_ || !product.Create(height_, right.width_)) return product;
  for (int r = 0; r < height_; ++r) {
    for (int c = 0; c < right.width_; ++c) {
      T sum = 0;
      for (int k = 0; k < width_; ++k) sum += (*this)[r][k] * right[k][c];
      product[r][c] = sum;
    }
  }
  return product;
}

template <typename T>
void Matrix<T>::Visit(etl::IVisitor& visitor, const char* name) {
  auto rows = static_cast<std::size_t>(height_);
  visitor.BeginVisitingArray(etl::ArrayType::Arrays, rows, name);
  if (visitor.HasError()) return;
  if (visitor.IsReading()) {
    Read(visitor, rows);
    return;
  }
  for (int r = 0; r < height_; ++r) {
    if (r > 0) visitor.VisitArraySeparator();
    auto cols = static_cast<std::size_t>(width_);
    visitor.BeginVisitingArray(etl::ArrayType::Primitives, cols, nullptr);
    visitor.VisitPodArray((*this)[r]);
    visitor.EndVisitingArray(etl::ArrayType::Primitives);
  }
  visitor.EndVisitingArray(etl::ArrayType::Arrays);
}

template <typename T>
void Matrix<T>::Read(etl::IVisitor& visitor, std::size_t rows) {
  std::size_t cols = 0;
  const std::vector<T> values = readRows<T>(visitor, rows, cols);
  visitor.EndVisitingArray(etl::ArrayType::Arrays);
  if (visitor.HasError() || rows == 0) return;
  const std::size_t limit = std::numeric_limits<std::int32_t>::max();
  // Capped rather than wrapped: a count that has no int fails Create like any other large one.
  if (!Create(static_cast<int>(std::min(rows, limit)), static_cast<int>(std::min(cols, limit)))) {
    // Not a fault of the document, which a reader might forgive.
    if (values.size() <= limit) throw std::bad_alloc();
    visitor.SetError("Cannot create matrix: Memory allocation failed.");
    return;
  }
  std::copy(values.begin(), values.end(), data_);
}

template class Matrix<float>;
template class Matrix<double>;

}  // namespace cmnalg
