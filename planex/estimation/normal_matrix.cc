#include "planex/estimation/normal_matrix.h"

#include <Eigen/Dense>

namespace planex::estimation {
namespace {

using Square = Eigen::Matrix<double, kTermCount, kTermCount, Eigen::RowMajor>;
using Column = Eigen::Matrix<double, kTermCount, 1>;
using ConstSquare = Eigen::Map<const Square>;
using ConstColumn = Eigen::Map<const Column>;

constexpr double kLeastEigenvalue = 1e-15;  // of the largest

}  // namespace

void NormalEquations::add(const SensorResidual& whitened) {
  Eigen::Map<Square> sum(matrix.data());
  Eigen::Map<Column> right(gradient.data());
  for (int i = 0; i < whitened.count; ++i) {
    const ConstColumn row(whitened.terms[i]);
    sum.noalias() += row * row.transpose();
    right += row * whitened.value[i];
    squares += whitened.value[i] * whitened.value[i];
  }
  residuals += whitened.count;
}

void NormalEquations::add(const TermPriors& priors, const CameraTerms& terms) {
  for (std::size_t i = kLensTerms; i < kTermCount; ++i) {
    const double weight = 1 / (priors.deviation[i] * priors.deviation[i]);
    const double off = terms[i] - priors.mean[i];
    matrix[i * kTermCount + i] += weight;
    gradient[i] += weight * off;
    squares += weight * off * off;
  }
}

void NormalEquations::subtract(const NormalEquations& other) {
  for (std::size_t i = 0; i < matrix.size(); ++i) matrix[i] -= other.matrix[i];
  for (std::size_t i = 0; i < gradient.size(); ++i) gradient[i] -= other.gradient[i];
  squares -= other.squares;
  residuals -= other.residuals;
}

TermMatrix NormalEquations::covariance() const {
  const ConstSquare sum(matrix.data());
  const Column scale = sum.diagonal().cwiseMax(1e-300).cwiseSqrt().cwiseInverse();
  const Square scaled = scale.asDiagonal() * sum * scale.asDiagonal();
  const Eigen::SelfAdjointEigenSolver<Square> solver(scaled);
  const double least = kLeastEigenvalue * solver.eigenvalues().maxCoeff();
  const Column inverse =
      solver.eigenvalues().unaryExpr([least](double v) { return v > least ? 1 / v : 0.0; });
  const Square vectors = scale.asDiagonal() * solver.eigenvectors();
  TermMatrix result;
  Eigen::Map<Square>(result.data()) = vectors * inverse.asDiagonal() * vectors.transpose();
  return result;
}

CameraTerms stepOf(const TermMatrix& covariance, const CameraTerms& gradient) {
  CameraTerms step;
  Eigen::Map<Column>(step.data()) =
      -(ConstSquare(covariance.data()) * ConstColumn(gradient.data()));
  return step;
}

std::array<double, 3> propagate(const double (&rows)[2][kTermCount], const TermMatrix& covariance) {
  const ConstColumn x(rows[0]), z(rows[1]);
  const Column ofX = ConstSquare(covariance.data()) * x;
  const Column ofZ = ConstSquare(covariance.data()) * z;
  return {x.dot(ofX), x.dot(ofZ), z.dot(ofZ)};
}

}  // namespace planex::estimation
