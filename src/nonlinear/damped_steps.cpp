// Levenberg-Marquardt steps. Scale of the coefficients: More (1978), Lecture Notes in Mathematics
// 630, 105-116; damping by the gain ratio: Nielsen (1999), report IMM-REP-1999-05, Lyngby.

#include "nonlinear/damped_steps.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "engine/output.h"
#include "nonlinear/row_qr.h"

namespace korvel {
namespace {

constexpr int MOST_STEPS = 400;
constexpr double FIRST_DAMPING = 1e-3;
constexpr double LAST_DAMPING = 1e-12;
constexpr double FINE = 1e-13;       // of the fitted values, what rounding leaves of the residuals
constexpr double SMALL_STEP = 1e-9;  // so do several of this size in a row ...
constexpr double SMALL_CHANGE = 1e-14;  // ... that change SSE by no more than this part
constexpr int SMALL_STEPS = 3;
constexpr double ROUNDING = 1e-13;  // of SSE
constexpr double LEVEL = 1e-5;      // cosine of residuals and columns at an end that is a minimum

struct Damped {
  std::span<double> R, trial_R, stacked, block;
  std::span<double> D, step, trial;
  int p = 0;

  double& element(std::span<double> matrix, int i, int j) const {
    return matrix[static_cast<std::size_t>(j * p + i)];
  }
  double column_norm(int j) const {
    double sum = 0.0;
    for (int i = 0; i <= j; ++i) sum += element(R, i, j) * element(R, i, j);
    return std::sqrt(sum);
  }
  // D: the largest norm that each column has had.
  void widen_scale() const {
    for (int j = 0; j < p; ++j) {
      double& d = D[static_cast<std::size_t>(j)];
      d = std::max(d, column_norm(j));
    }
  }
  double scale(int j) const {
    const double d = D[static_cast<std::size_t>(j)];
    return d > 0.0 ? d : 1.0;
  }

  // The step of damping mu, by the triangle of [R/D; sqrt(mu) I]. Returns the fall of SSE that the
  // linear model promises.
  double make_step(double mu) {
    for (int j = 0; j <= p; ++j) {
      const double d = j < p ? scale(j) : 1.0;
      for (int i = 0; i < p; ++i) element(stacked, i, j) = element(R, i, j) / d;
    }
    std::ranges::fill(block, 0.0);
    for (int j = 0; j < p; ++j) block[static_cast<std::size_t>(j * p + j)] = std::sqrt(mu);
    reflect_rows(stacked, p, block.data(), p, p);
    solve_triangle(stacked, p, p, step, 0.0);
    double promised = 0.0;
    for (int i = 0; i < p; ++i) {
      double fitted = 0.0;
      for (int j = i; j < p; ++j) {
        fitted += element(R, i, j) / scale(j) * step[static_cast<std::size_t>(j)];
      }
      const double own = step[static_cast<std::size_t>(i)];
      promised += fitted * fitted + 2.0 * mu * own * own;
    }
    for (int j = 0; j < p; ++j) step[static_cast<std::size_t>(j)] /= scale(j);
    return promised;
  }

  // The largest step against the size of its coefficient, or against what the residuals leave
  // uncertain of it, if that is more: a coefficient that is really 0 has no relative precision.
  double relative_step(std::span<const double> a, double sigma) const {
    double largest = 0.0;
    for (int j = 0; j < p; ++j) {
      const auto k = static_cast<std::size_t>(j);
      const double size = std::max(std::fabs(a[k]), sigma / scale(j));
      if (step[k] != 0.0) largest = std::max(largest, std::fabs(step[k]) / size);
    }
    return largest;
  }

  // Size of the fitted values, whose rounding the residuals carry.
  double fitted_size(std::span<const double> a) const {
    double size = 0.0;
    for (int j = 0; j < p; ++j) {
      size = std::max(size, scale(j) * std::fabs(a[static_cast<std::size_t>(j)]));
    }
    return size;
  }
  // What rounding may change in SSE, relative to it.
  double rounding(std::span<const double> a, double SSE) const {
    constexpr double eps = std::numeric_limits<double>::epsilon();
    return ROUNDING + (SSE > 0.0 ? 4.0 * eps * fitted_size(a) / std::sqrt(SSE) : 0.0);
  }

  // The residuals are at right angles to every column, as far as they can be told from rounding.
  bool level(std::span<const double> a, double SSE) const {
    const double most = LEVEL * std::sqrt(SSE) + FINE * fitted_size(a);
    for (int j = 0; j < p; ++j) {
      double slope = 0.0;
      for (int i = 0; i <= j; ++i) slope += element(R, i, j) * element(R, i, p);
      if (!(std::fabs(slope) / scale(j) <= most)) return false;
    }
    return true;
  }
};

}  // namespace

std::int64_t damped_words(int p) {
  return 3 * static_cast<std::int64_t>(triangle_words(p)) + std::int64_t{p} * (p + 1) +
         std::int64_t{3} * p;
}

SquaresFit damped_steps(SquaresProblem& problem, std::span<double> a, std::int64_t df,
                        double last_step, std::span<double> work) {
  const std::size_t p = a.size(), triangle = triangle_words(static_cast<int>(p));
  Damped at{.R = work.first(triangle),
            .trial_R = work.subspan(triangle, triangle),
            .stacked = work.subspan(2 * triangle, triangle),
            .block = work.subspan(3 * triangle, p * (p + 1)),
            .D = work.subspan(3 * triangle + p * (p + 1), p),
            .step = work.subspan(3 * triangle + p * (p + 2), p),
            .trial = work.subspan(3 * triangle + p * (p + 3), p),
            .p = static_cast<int>(p)};
  std::ranges::fill(at.D, 0.0);
  SquaresFit fit;
  if (!problem.evaluate(a, at.R, fit.SSE) || !std::isfinite(fit.SSE)) return fit;
  fit.good = true;
  at.widen_scale();
  double mu = FIRST_DAMPING, growth = 2.0;
  double last_relative = std::numeric_limits<double>::infinity();
  int small_steps = 0;
  bool relaxed = false;
  bool taken = true;  // the step before
  for (; fit.steps < MOST_STEPS; ++fit.steps) {
    if (stop_requested()) {
      fit.stopped = true;
      return fit;
    }
    const double promised = at.make_step(mu);
    const double sigma = std::sqrt(fit.SSE / static_cast<double>(std::max<std::int64_t>(1, df)));
    const double relative = at.relative_step(a, sigma);
    if (!std::isfinite(relative) || !std::isfinite(promised)) return fit;
    if (relative < FINE || (relative < last_step && mu < FIRST_DAMPING)) {
      fit.converged = at.level(a, fit.SSE);
      return fit;
    }
    for (std::size_t j = 0; j < p; ++j) at.trial[j] = a[j] + at.step[j];
    // Behind a step that failed, the next one often fails as well: its Jacobian waits.
    double SSE = 0.0;
    bool good = problem.evaluate(at.trial, taken ? at.trial_R : std::span<double>{}, SSE) &&
                std::isfinite(SSE);
    // Where the promised fall is lost in the rounding of SSE, steps that get shorter are trusted.
    const double rounding = at.rounding(a, fit.SSE);
    const bool unseen = promised <= rounding * fit.SSE && SSE <= (1.0 + rounding) * fit.SSE;
    const bool contracting = unseen && relative < last_relative;
    last_relative = relative;
    const bool smaller = good && (SSE <= fit.SSE || contracting);
    if (smaller && !taken) good = problem.evaluate(at.trial, at.trial_R, SSE);
    const double change = fit.SSE - SSE;
    const bool small = good && relative < SMALL_STEP && std::fabs(change) <= SMALL_CHANGE * fit.SSE;
    taken = good && smaller;
    if (taken) {
      std::ranges::copy(at.trial, a.begin());
      std::swap(at.R, at.trial_R);
      fit.SSE = SSE;
      at.widen_scale();
      if (problem.enough(a)) return fit;
      const double gain = unseen ? 1.0 : change / promised;
      mu *= std::max(1.0 / 3.0, 1.0 - std::pow(2.0 * gain - 1.0, 3.0));
      growth = 2.0;
    } else {
      mu *= growth;
      growth *= 2.0;
    }
    small_steps = small ? small_steps + 1 : 0;
    if (small_steps == SMALL_STEPS && !relaxed && mu > LAST_DAMPING) {
      // Steps can be small because they are damped: once more without.
      relaxed = true;
      small_steps = 0;
      mu = LAST_DAMPING;
      growth = 2.0;
      last_relative = std::numeric_limits<double>::infinity();
    }
    if (small_steps == SMALL_STEPS || fit.SSE == 0.0) {
      fit.converged = true;
      return fit;
    }
  }
  return fit;
}

}  // namespace korvel
