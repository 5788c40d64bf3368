#include "planex/estimation/robust_fit.h"

#include <ceres/ceres.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>

namespace planex::estimation {
namespace {

/// One observation over its standard deviation.
class PointCost final : public ceres::CostFunction {
 public:
  PointCost(const FitProblem& problem, const PointObservation& observation,
            const CameraTerms& terms)
      : radius_(problem.radius), observation_(observation) {
    const SensorResidual now = residualOf(terms, radius_, observation_, Derivatives::kNone);
    whitening_ = Whitening::of(now, observation_.weight, problem.noise, problem.tolerance);
    set_num_residuals(now.count);
    mutable_parameter_block_sizes()->push_back(kTermCount);
  }

  bool Evaluate(double const* const* parameters, double* residuals,
                double** jacobians) const override {
    CameraTerms terms;
    std::copy_n(parameters[0], kTermCount, terms.begin());
    const bool wantsJacobian = jacobians != nullptr && jacobians[0] != nullptr;
    const Derivatives wanted = wantsJacobian ? Derivatives::kAll : Derivatives::kNone;
    SensorResidual residual = residualOf(terms, radius_, observation_, wanted);
    whitening_.apply(residual, wanted);
    std::copy_n(residual.value, residual.count, residuals);
    if (wantsJacobian) {
      for (int i = 0; i < residual.count; ++i) {
        std::copy_n(residual.terms[i], kTermCount, jacobians[0] + std::ptrdiff_t{i} * kTermCount);
      }
    }
    return true;
  }

 private:
  const double radius_;
  const PointObservation& observation_;
  Whitening whitening_;
};

class PriorCost final : public ceres::CostFunction {
 public:
  explicit PriorCost(const TermPriors& priors) : priors_(priors) {
    set_num_residuals(kTermCount - kLensTerms);
    mutable_parameter_block_sizes()->push_back(kTermCount);
  }

  bool Evaluate(double const* const* parameters, double* residuals,
                double** jacobians) const override {
    const bool wantsJacobian = jacobians != nullptr && jacobians[0] != nullptr;
    if (wantsJacobian) std::fill_n(jacobians[0], num_residuals() * kTermCount, 0.0);
    for (int i = kLensTerms; i < kTermCount; ++i) {
      const auto term = static_cast<std::size_t>(i);
      const int row = i - kLensTerms;
      residuals[row] = (parameters[0][i] - priors_.mean[term]) / priors_.deviation[term];
      if (wantsJacobian) jacobians[0][row * kTermCount + i] = 1 / priors_.deviation[term];
    }
    return true;
  }

 private:
  const TermPriors& priors_;
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

}  // namespace

double fitTerms(const FitProblem& problem, const std::vector<const PointObservation*>& observations,
                CameraTerms& terms) {
  ceres::Problem::Options owned;
  owned.loss_function_ownership = ceres::DO_NOT_TAKE_OWNERSHIP;
  ceres::Problem solver(owned);
  const std::unique_ptr<ceres::LossFunction> loss = lossOf(problem.loss);
  CameraTerms values = terms;
  for (const PointObservation* observation : observations) {
    solver.AddResidualBlock(new PointCost(problem, *observation, terms), loss.get(), values.data());
  }
  solver.AddResidualBlock(new PriorCost(problem.priors), nullptr, values.data());
  ceres::Solver::Options options;
  options.linear_solver_type = ceres::DENSE_NORMAL_CHOLESKY;
  options.dense_linear_algebra_library_type = ceres::EIGEN;
  options.initial_trust_region_radius = 1e10;
  options.function_tolerance = problem.loss == Loss::kSquares ? 1e-12 : 1e-6;
  options.max_num_iterations = 60;
  options.num_threads = 1;
  options.logging_type = ceres::SILENT;
  ceres::Solver::Summary summary;
  ceres::Solve(options, &solver, &summary);
  if (summary.IsSolutionUsable()) terms = values;
  return summary.final_cost;
}

}  // namespace planex::estimation
