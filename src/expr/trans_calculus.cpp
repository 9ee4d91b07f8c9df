// DERIVATIVE and INTEGRATE: the list evaluated several times at each observation.

#include <array>
#include <cmath>

#include "engine/output.h"
#include "expr/operators.h"
#include "expr/trans.h"

namespace korvel {
namespace {

constexpr double H = 1e-06;  // the operand is raised by twice this, whatever its size
constexpr int POINTS = 5;    // estimates that one extrapolation uses
constexpr int REFINEMENTS = 20;
constexpr double TOLERANCE = 1e-06;

// The value of the list with the variable of integration at x; false after a failure.
bool value_at(Run& run, double& variable, double x, double& value, Outcome& outcome) {
  variable = x;
  run.missing = false;
  outcome = run_list(run);
  value = run.value;
  return outcome == Outcome::good;
}

// Polynomial through the points (step squared, estimate), at step 0, and its error (Neville's
// algorithm; Press et al. 1992, Numerical Recipes, section 3.1).
double extrapolate(const std::array<double, POINTS>& x, const std::array<double, POINTS>& y,
                   double& error) {
  std::array<double, POINTS> c = y, d = y;
  double value = y[POINTS - 1];
  error = 0.0;
  for (std::size_t m = 1; m < POINTS; ++m) {
    for (std::size_t i = 0; i + m < POINTS; ++i) {
      const double low = x[i], high = x[i + m];
      const double w = (c[i + 1] - d[i]) / (low - high);
      d[i] = high * w;
      c[i] = low * w;
    }
    error = d[POINTS - 1 - m];
    value += error;
  }
  return value;
}

}  // namespace

// f at the value of the variable goes to the target, then (f2-f1)/2h replaces it.
Outcome derivative_observation(Run& run, int place) {
  const bool calculator = run.target == 0;
  run.storing = false;
  Outcome outcome = run_list(run);
  if (outcome != Outcome::good) return outcome;
  const double first = run.value;
  if (!calculator) {
    outcome = store_target(run, first);
    if (outcome != Outcome::good) return outcome;
  }
  if (place != 0) run.formula->operand(place) += 2.0 * H;
  outcome = run_list(run);
  if (outcome != Outcome::good) return outcome;
  const double second = run.value;
  const bool missing = first == run.XMISS || second == run.XMISS;
  const double slope = missing ? run.XMISS : (second - first) / (2.0 * H);
  if (!calculator) return store_target(run, slope);
  say<"(1X, G15.8)">(slope);
  return Outcome::good;
}

// Romberg's method: trapezoids halved step by step, the latest five extrapolated to step 0.
Outcome integrate_observation(Run& run) {
  const double a = run.lower > 0 ? run.formula->operand(run.lower) : run.job->lower.value;
  const double b = run.upper > 0 ? run.formula->operand(run.upper) : run.job->upper.value;
  if (!(b - a >= 0.0)) {
    fail(" ...ERROR..INCONSISTENT INTEGRATION RANGE");
    return Outcome::failed;
  }
  double spare = 0.0;
  double* variable = &spare;
  for (int place = 1; place <= GENCOM.LHS; ++place) {
    if (run.source(place).entry == DATCOM.MAXVAR) variable = &run.formula->operand(place);
  }
  run.storing = false;
  run.quiet_end = true;
  double result = 0.0;
  bool missing = false;
  Outcome outcome = Outcome::good;
  if (b > a) {
    std::array<double, POINTS> steps{}, estimates{};
    const auto keep = [&](int j, double step, double estimate) {
      if (j > POINTS) {
        for (std::size_t i = 1; i < POINTS; ++i) {
          steps[i - 1] = steps[i];
          estimates[i - 1] = estimates[i];
        }
      }
      const auto at = static_cast<std::size_t>(j > POINTS ? POINTS : j) - 1;
      steps[at] = step;
      estimates[at] = estimate;
    };
    double low = 0.0, high = 0.0;
    if (!value_at(run, *variable, a, low, outcome)) return outcome;
    if (!value_at(run, *variable, b, high, outcome)) return outcome;
    missing = low == run.XMISS || high == run.XMISS;
    double trapezoid = 0.5 * (b - a) * (low + high);
    double step = 1.0;
    keep(1, step, trapezoid);
    result = trapezoid;
    bool converged = false;
    for (int j = 2; j <= REFINEMENTS && !converged; ++j) {
      const std::int64_t count = std::int64_t{1} << (j - 2);
      const double width = (b - a) / static_cast<double>(count);
      double sum = 0.0;
      for (std::int64_t k = 0; k < count; ++k) {
        double value = 0.0;
        const double x = a + (static_cast<double>(k) + 0.5) * width;
        if (!value_at(run, *variable, x, value, outcome)) return outcome;
        missing = missing || value == run.XMISS;
        sum += value;
      }
      trapezoid = 0.5 * (trapezoid + (b - a) * sum / static_cast<double>(count));
      step *= 0.25;
      keep(j, step, trapezoid);
      result = trapezoid;
      if (j < POINTS) continue;
      double error = 0.0;
      result = extrapolate(steps, estimates, error);
      converged = std::fabs(error) <= TOLERANCE * std::fabs(result);
      if (missing || stop_requested()) break;
    }
    if (!converged && !missing) {
      error_line<"(' ...ERROR..TOO MANY INTEGRATION STEPS IN OBS.', I5)">(run.obs);
    }
  }
  if (missing) {
    result = run.XMISS;
    if (OSCOM.OMSWRN) {
      warn<"(' ...WARNING..OBSERVATION', I5, ' IS ASSIGNED MISSING CODE=', F7.0)">(run.obs,
                                                                                   run.XMISS);
    }
  }
  if (OCOM.OPUT) say<"(1X, I10, 1X, 3G15.8)">(run.obs, a, b, result);
  run.storing = true;
  return run.target > 0 ? store_target(run, result) : Outcome::good;
}

}  // namespace korvel
