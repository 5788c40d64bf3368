#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <cstddef>

#include "planex/estimation/model_fit.h"

namespace planex::estimation {
namespace {

using Place = cmnalg::Vec<2, double>;
using Matrix = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

constexpr int kBlock = 24;                           // residuals whose mean is compared
constexpr double kContradicts = 2.5;                 // over the uncertainty
constexpr std::size_t kFreeOfPose = kPlaceWidening;  // a placement takes up so many numbers

NormalEquations equationsOf(const ModelFit& fit, std::size_t scan) {
  NormalEquations own(fit.unknowns.values.size());
  for (std::size_t i = 0; i < fit.observations.size(); ++i) {
    const Observation& observation = fit.observations[i];
    if (fit.used[i] != 0 && observation.scan == static_cast<int>(scan)) {
      own.add(fit.residual(i), observation, fit.unknowns);
    }
  }
  return own;
}

/// Means of neighbouring residuals of a scan, and their derivatives by all unknowns.
struct Means {
  Eigen::VectorXd values;
  Matrix rows;
};

Means meansOf(const ModelFit& fit, std::size_t scan) {
  std::vector<std::size_t> order;
  for (std::size_t i = 0; i < fit.observations.size(); ++i) {
    if (fit.used[i] != 0 && fit.observations[i].scan == static_cast<int>(scan)) order.push_back(i);
  }
  std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
    return fit.observations[a].pixel.x < fit.observations[b].pixel.x;
  });
  // More means than this say no more, and cost their third power.
  constexpr std::size_t kMost = 120;
  const std::size_t block = std::max<std::size_t>(kBlock, order.size() / kMost);
  const auto count = static_cast<Eigen::Index>(order.size() / block);
  const auto unknowns = static_cast<Eigen::Index>(fit.unknowns.values.size());
  Means means{Eigen::VectorXd::Zero(count), Matrix::Zero(count, unknowns)};
  const double share = 1 / static_cast<double>(block);
  for (Eigen::Index mean = 0; mean < count; ++mean) {
    for (std::size_t i = 0; i < block; ++i) {
      const std::size_t place = order[static_cast<std::size_t>(mean) * block + i];
      const SensorResidual residual = fit.residual(place);
      const SparseRow row(residual, 0, fit.observations[place], fit.unknowns);
      means.values[mean] += share * residual.value[0];
      for (int k = 0; k < row.count; ++k) means.rows(mean, row.places[k]) += share * row.values[k];
    }
  }
  // As if the blocks were of kBlock: the deviation of a mean is that of kBlock residuals.
  const double scale = std::sqrt(static_cast<double>(block) / kBlock);
  means.values *= scale;
  means.rows *= scale;
  return means;
}

/// How well the other observations predict a scan of a target, wherever it stands.
double contradictionOf(const ModelFit& fit, std::size_t scan, const NormalEquations& others) {
  Means means = meansOf(fit, scan);
  const Eigen::Index count = means.values.size();
  constexpr int kLeast = 6;
  if (count < kLeast) return 0;
  const std::vector<double> covariance = others.covariance();
  const std::vector<double> step = stepOf(covariance, others.gradient);
  const auto unknowns = static_cast<Eigen::Index>(step.size());
  const int placement = fit.unknowns.scans[scan].placement;
  const Matrix ofPlacement =
      means.rows.middleCols(placement, static_cast<Eigen::Index>(kFreeOfPose));
  // What the placement does not take up: an orthonormal basis of it.
  const Eigen::HouseholderQR<Matrix> qr(ofPlacement);
  const Matrix basis =
      (qr.householderQ() * Matrix::Identity(count, count)).rightCols(count - kFreeOfPose);
  means.rows.middleCols(placement, static_cast<Eigen::Index>(kFreeOfPose)).setZero();
  means.values += means.rows * Eigen::Map<const Eigen::VectorXd>(step.data(), unknowns);
  const Eigen::VectorXd values = basis.transpose() * means.values;
  const Matrix rows = basis.transpose() * means.rows;
  const Eigen::Map<const Matrix> ofUnknowns(covariance.data(), unknowns, unknowns);
  Matrix expected = rows * ofUnknowns * rows.transpose();
  expected *= fit.correlation;
  expected.diagonal().array() += fit.correlation / kBlock;
  const double square = values.dot(expected.ldlt().solve(values));
  return std::sqrt(std::max(square, 0.0) / static_cast<double>(values.size()));
}

}  // namespace

double heldOutPatches(const ModelFit& fit) {
  constexpr int kFolds = 5, kCells = 8;
  Place low{1e300, 1e300}, high{-1e300, -1e300};
  for (const Observation& point : fit.observations) {
    low = {std::min(low.x, point.pixel.x), std::min(low.y, point.pixel.y)};
    high = {std::max(high.x, point.pixel.x), std::max(high.y, point.pixel.y)};
  }
  const auto foldOf = [&](const Place& pixel) {
    const auto cell = [](double value, double from, double to) {
      return std::min(static_cast<int>(kCells * (value - from) / (to - from)), kCells - 1);
    };
    return (cell(pixel.x, low.x, high.x) + 2 * cell(pixel.y, low.y, high.y)) % kFolds;
  };
  double squares = 0;
  int count = 0;
  for (int fold = 0; fold < kFolds; ++fold) {
    NormalEquations own;
    for (std::size_t i = 0; i < fit.observations.size(); ++i) {
      if (fit.used[i] != 0 && foldOf(fit.observations[i].pixel) == fold) {
        own.add(fit.residual(i), fit.observations[i], fit.unknowns);
      }
    }
    NormalEquations others = fit.equations;
    others.subtract(own);
    const std::vector<double> covariance = others.covariance();
    const std::vector<double> step = stepOf(covariance, others.gradient);
    const TermMatrix ofTerms = termsOf(covariance);
    for (std::size_t i = 0; i < fit.observations.size(); ++i) {
      if (fit.used[i] == 0 || foldOf(fit.observations[i].pixel) != fold) continue;
      const SensorResidual r = fit.residual(i);
      const std::array<double, 3> spread = propagate(r.terms, ofTerms);
      for (int k = 0; k < r.count; ++k) {
        double value = r.value[k];
        for (std::size_t t = 0; t < step.size(); ++t) value += r.terms[k][t] * step[t];
        squares += value * value / (1 + spread[k == 0 ? 0 : 2]);
        ++count;
      }
    }
  }
  return count == 0 ? 0 : std::sqrt(squares / count);
}

std::vector<double> heldOutScans(const ModelFit& fit) {
  const std::size_t count = fit.unknowns.scans.size();
  std::vector<NormalEquations> own(count, NormalEquations(0));
  std::vector<double> contradictions(count);
  std::vector<std::size_t> suspects;
  NormalEquations trusted = fit.equations;
  for (std::size_t s = 0; s < count; ++s) {
    if (!fit.unknowns.scans[s].isFound) continue;
    own[s] = equationsOf(fit, s);
    NormalEquations others = fit.equations;
    others.subtract(own[s]);
    contradictions[s] = contradictionOf(fit, s, others);
    if (contradictions[s] > kContradicts) suspects.push_back(s);
  }
  if (suspects.size() < 2 || 2 * suspects.size() > count) return contradictions;
  // A wrong scan makes those beside it look wrong: each is judged by what is above suspicion.
  for (const std::size_t s : suspects) trusted.subtract(own[s]);
  for (const std::size_t s : suspects) contradictions[s] = contradictionOf(fit, s, trusted);
  return contradictions;
}

}  // namespace planex::estimation
