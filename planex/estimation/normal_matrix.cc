#include "planex/estimation/normal_matrix.h"

#include <Eigen/Dense>
#include <algorithm>

namespace planex::estimation {
namespace {

using Square = Eigen::Matrix<double, kTermCount, kTermCount, Eigen::RowMajor>;
using Column = Eigen::Matrix<double, kTermCount, 1>;
using ConstColumn = Eigen::Map<const Column>;
using Matrix = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
using Vector = Eigen::VectorXd;

constexpr double kLeastEigenvalue = 1e-15;  // of the largest

Eigen::Index indexOf(std::size_t size) { return static_cast<Eigen::Index>(size); }

Eigen::Map<const Matrix> squareOf(const std::vector<double>& values, std::size_t side) {
  return {values.data(), indexOf(side), indexOf(side)};
}

}  // namespace

SparseRow::SparseRow(const SensorResidual& residual, int number, const Observation& observation,
                     const Unknowns& unknowns) {
  for (int i = 0; i < kTermCount; ++i) places[i] = i;
  std::copy_n(residual.terms[number], kTermCount, values);
  if (observation.edge < 0) return;
  const auto append = [&](int first, const double* derivatives, int size) {
    for (int i = 0; i < size; ++i, ++count) {
      places[count] = first + i;
      values[count] = derivatives[i];
    }
  };
  const Unknowns::Scan& scan = unknowns.scans[static_cast<std::size_t>(observation.scan)];
  const Unknowns::Target& target = unknowns.targets[static_cast<std::size_t>(scan.target)];
  append(scan.placement, residual.placement, kPlacementCount);
  append(target.size, residual.size, kSizeCount);
  if (target.corners >= 0) append(target.corners + 2 * observation.edge, residual.corners, 4);
}

void NormalEquations::add(const SensorResidual& whitened, const Observation& observation,
                          const Unknowns& unknowns) {
  const auto side = indexOf(gradient.size());
  Eigen::Map<Square, 0, Eigen::OuterStride<>> sum(matrix.data(), Eigen::OuterStride<>(side));
  Eigen::Map<Column> right(gradient.data());
  for (int i = 0; i < whitened.count; ++i) {
    const ConstColumn row(whitened.terms[i]);
    const double value = whitened.value[i];
    sum.noalias() += row * row.transpose();
    right += row * value;
    squares += value * value;
    if (observation.edge < 0) continue;
    const SparseRow all(whitened, i, observation, unknowns);
    for (int a = kTermCount; a < all.count; ++a) {
      const auto place = static_cast<std::size_t>(all.places[a]);
      gradient[place] += all.values[a] * value;
      for (int b = 0; b < all.count; ++b) {
        const double product = all.values[a] * all.values[b];
        const auto other = static_cast<std::size_t>(all.places[b]);
        matrix[place * gradient.size() + other] += product;
        if (b < kTermCount) matrix[other * gradient.size() + place] += product;
      }
    }
  }
  residuals += whitened.count;
}

void NormalEquations::addPriors(const Unknowns& unknowns) {
  for (std::size_t i = 0; i < gradient.size(); ++i) {
    if (unknowns.deviation[i] == 0) continue;
    const double weight = 1 / (unknowns.deviation[i] * unknowns.deviation[i]);
    const double off = unknowns.values[i] - unknowns.mean[i];
    matrix[i * gradient.size() + i] += weight;
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

std::vector<double> NormalEquations::covariance() const {
  const auto sum = squareOf(matrix, gradient.size());
  const Vector scale = sum.diagonal().cwiseMax(1e-300).cwiseSqrt().cwiseInverse();
  const Matrix scaled = scale.asDiagonal() * sum * scale.asDiagonal();
  const Eigen::SelfAdjointEigenSolver<Matrix> solver(scaled);
  const double least = kLeastEigenvalue * solver.eigenvalues().maxCoeff();
  const Vector inverse =
      solver.eigenvalues().unaryExpr([least](double v) { return v > least ? 1 / v : 0.0; });
  const Matrix vectors = scale.asDiagonal() * solver.eigenvectors();
  std::vector<double> result(matrix.size());
  Eigen::Map<Matrix>(result.data(), sum.rows(), sum.cols()) =
      vectors * inverse.asDiagonal() * vectors.transpose();
  return result;
}

TermMatrix termsOf(const std::vector<double>& covariance) {
  std::size_t side = 0;
  while (side * side < covariance.size()) ++side;
  TermMatrix terms;
  for (std::size_t i = 0; i < kTermCount; ++i) {
    std::copy_n(covariance.data() + i * side, kTermCount, terms.data() + i * kTermCount);
  }
  return terms;
}

std::vector<double> stepOf(const std::vector<double>& covariance,
                           const std::vector<double>& gradient) {
  std::vector<double> step(gradient.size());
  Eigen::Map<Vector>(step.data(), indexOf(step.size())) =
      -(squareOf(covariance, step.size()) *
        Eigen::Map<const Vector>(gradient.data(), indexOf(step.size())));
  return step;
}

std::array<double, 3> propagate(const double (&rows)[2][kTermCount], const TermMatrix& covariance) {
  const ConstColumn x(rows[0]), z(rows[1]);
  const Eigen::Map<const Square> matrix(covariance.data());
  const Column ofX = matrix * x;
  const Column ofZ = matrix * z;
  return {x.dot(ofX), x.dot(ofZ), z.dot(ofZ)};
}

}  // namespace planex::estimation
