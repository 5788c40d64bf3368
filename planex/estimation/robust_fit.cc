#include "planex/estimation/robust_fit.h"

#include <ceres/ceres.h>
#include <glog/logging.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace planex::estimation {
namespace {

/// One observation over its standard deviation. The parameter blocks of an edge are the terms, its
/// placement, its size and, unless they are known exactly, its two corners.
class ObservationCost final : public ceres::CostFunction {
 public:
  ObservationCost(const FitProblem& problem, const Observation& observation,
                  const Unknowns& unknowns)
      : radius_(problem.radius), observation_(observation), unknowns_(unknowns) {
    const SensorResidual now = residualOf(unknowns, radius_, observation_, Derivatives::kNone);
    whitening_ = Whitening::of(now, observation_.weight, problem.noise, problem.tolerance);
    set_num_residuals(now.count);
    std::vector<int>& sizes = *mutable_parameter_block_sizes();
    sizes = {kTermCount};
    if (observation.edge < 0) return;
    sizes.insert(sizes.end(), {kPlacementCount, kSizeCount});
    if (target().corners >= 0) sizes.insert(sizes.end(), {2, 2});
  }

  /// The blocks in the values of the unknowns.
  std::vector<double*> blocks(Unknowns& unknowns) const {
    std::vector<double*> blocks = {unknowns.at(0)};
    if (observation_.edge < 0) return blocks;
    blocks.push_back(unknowns.at(scan().placement));
    blocks.push_back(unknowns.at(target().size));
    for (int i = 0; target().corners >= 0 && i < 2; ++i) {
      blocks.push_back(unknowns.at(target().corners + 2 * (observation_.edge + i)));
    }
    return blocks;
  }

  bool Evaluate(double const* const* parameters, double* residuals,
                double** jacobians) const override {
    CameraTerms terms;
    std::copy_n(parameters[0], kTermCount, terms.begin());
    std::optional<PlacedEdge> edge;
    if (observation_.edge >= 0) edge = edgeOf(parameters);
    const Derivatives wanted = jacobians == nullptr ? Derivatives::kNone : Derivatives::kAll;
    SensorResidual residual =
        residualOf(terms, radius_, observation_, edge ? &*edge : nullptr, wanted);
    whitening_.apply(residual, wanted);
    std::copy_n(residual.value, residual.count, residuals);
    if (jacobians == nullptr) return true;
    for (int i = 0; jacobians[0] != nullptr && i < residual.count; ++i) {
      std::copy_n(residual.terms[i], kTermCount, jacobians[0] + std::ptrdiff_t{i} * kTermCount);
    }
    const double* const others[] = {residual.placement, residual.size, residual.corners,
                                    residual.corners + 2};
    const std::vector<int>& sizes = parameter_block_sizes();
    for (std::size_t block = 1; block < sizes.size(); ++block) {
      if (jacobians[block] == nullptr) continue;
      std::copy_n(others[block - 1], sizes[block], jacobians[block]);
    }
    return true;
  }

 private:
  const Unknowns::Scan& scan() const {
    return unknowns_.scans[static_cast<std::size_t>(observation_.scan)];
  }
  const Unknowns::Target& target() const { return unknowns_.targetOf(scan()); }

  PlacedEdge edgeOf(double const* const* parameters) const {
    cmnalg::Vec<2, double> ends[2];
    for (int i = 0; i < 2; ++i) {
      ends[i] = target().corners < 0
                    ? unknowns_.corner(target(), observation_.edge + i)
                    : cmnalg::Vec<2, double>{parameters[3 + i][0], parameters[3 + i][1]};
    }
    return {parameters[1], parameters[2], ends[0], ends[1]};
  }

  const double radius_;
  const Observation& observation_;
  const Unknowns& unknowns_;
  Whitening whitening_;
};

/// What is expected of a block, or of the part [from, to) of it.
class PriorCost final : public ceres::CostFunction {
 public:
  PriorCost(const Unknowns& unknowns, int first, int count, int from, int to)
      : unknowns_(unknowns), first_(first), count_(count) {
    for (int i = from; i < to; ++i) {
      if (deviation(i) > 0) expected_.push_back(i);
    }
    set_num_residuals(static_cast<int>(expected_.size()));
    mutable_parameter_block_sizes()->push_back(count);
  }

  bool isEmpty() const { return expected_.empty(); }

  bool Evaluate(double const* const* parameters, double* residuals,
                double** jacobians) const override {
    const bool wantsJacobian = jacobians != nullptr && jacobians[0] != nullptr;
    if (wantsJacobian) std::fill_n(jacobians[0], num_residuals() * count_, 0.0);
    for (int row = 0; row < num_residuals(); ++row) {
      const int i = expected_[static_cast<std::size_t>(row)];
      residuals[row] = (parameters[0][i] - unknowns_.meanOf(first_ + i)) / deviation(i);
      if (wantsJacobian) jacobians[0][row * count_ + i] = 1 / deviation(i);
    }
    return true;
  }

 private:
  double deviation(int i) const { return unknowns_.deviationOf(first_ + i); }

  const Unknowns& unknowns_;
  const int first_, count_;
  std::vector<int> expected_;
};

std::unique_ptr<ceres::LossFunction> lossOf(Loss loss) {
  switch (loss) {
    case Loss::kCauchy:
      return std::make_unique<ceres::CauchyLoss>(2.0);
    case Loss::kTukey:
      return std::make_unique<ceres::TukeyLoss>(6.0);
    default:
      return nullptr;
  }
}

/// Adds what is expected of those blocks that observations depend on.
/// @param loss of poses that somebody told
void addPriors(ceres::Problem& solver, const Unknowns& unknowns, ceres::LossFunction* loss,
               Unknowns& tried) {
  const auto addPart = [&](int first, int count, int from, int to, ceres::LossFunction* of) {
    if (!solver.HasParameterBlock(tried.at(first))) return;
    auto prior = std::make_unique<PriorCost>(unknowns, first, count, from, to);
    if (!prior->isEmpty()) solver.AddResidualBlock(prior.release(), of, tried.at(first));
  };
  const auto add = [&](int first, int count) { addPart(first, count, 0, count, nullptr); };
  add(0, kTermCount);
  for (const Unknowns::Scan& scan : unknowns.scans) {
    if (scan.hasPose) {
      addPart(scan.placement, kPlacementCount, 0, kPlaceWidening, loss);
      addPart(scan.placement, kPlacementCount, kPlaceWidening, kPlacementCount, nullptr);
    } else if (scan.placement >= 0) {
      add(scan.placement, kPlacementCount);
    }
  }
  for (const Unknowns::Target& target : unknowns.targets) {
    add(target.size, kSizeCount);
    const auto corners = static_cast<int>(target.profile.corners.size());
    for (int i = 0; target.corners >= 0 && i < corners; ++i) add(target.corners + 2 * i, 2);
  }
}

/// Ceres warns of steps that it takes back by glog, which prints to standard error where no host
/// has set it up.
void keepQuiet() {
  static std::once_flag once;
  std::call_once(once, [] {
    if (!google::IsGoogleLoggingInitialized()) FLAGS_minloglevel = google::GLOG_ERROR;
  });
}

}  // namespace

void fitUnknowns(const FitProblem& problem, const std::vector<const Observation*>& observations,
                 Unknowns& unknowns) {
  ceres::Problem::Options owned;
  owned.loss_function_ownership = ceres::DO_NOT_TAKE_OWNERSHIP;
  ceres::Problem solver(owned);
  const std::unique_ptr<ceres::LossFunction> loss = lossOf(problem.loss);
  Unknowns tried = unknowns;
  for (const Observation* observation : observations) {
    auto cost = std::make_unique<ObservationCost>(problem, *observation, unknowns);
    const std::vector<double*> blocks = cost->blocks(tried);
    solver.AddResidualBlock(cost.release(), loss.get(), blocks);
  }
  addPriors(solver, unknowns, loss.get(), tried);
  ceres::Solver::Options options;
  const bool isOneBlock = unknowns.targets.empty();
  options.linear_solver_type =
      isOneBlock ? ceres::DENSE_NORMAL_CHOLESKY : ceres::SPARSE_NORMAL_CHOLESKY;
  options.dense_linear_algebra_library_type = ceres::EIGEN;
  options.sparse_linear_algebra_library_type = ceres::EIGEN_SPARSE;
  options.initial_trust_region_radius = 1e10;
  options.function_tolerance = problem.precision;
  options.max_num_iterations = 60;
  options.num_threads = 1;
  options.logging_type = ceres::SILENT;
  keepQuiet();
  ceres::Solver::Summary summary;
  ceres::Solve(options, &solver, &summary);
  if (summary.IsSolutionUsable()) unknowns.values = tried.values;
}

}  // namespace planex::estimation
