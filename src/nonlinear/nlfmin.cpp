// NLFMIN: the variable-metric method of Fletcher (1970), Computer Journal 13, 317-322, with the
// Hessian in factors.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "nonlinear/minimise_parts.h"
#include "nonlinear/nonlinear.h"

namespace korvel {
namespace {

constexpr double SLOPE_LEFT = 0.9;    // a slope cut to this part of the first is small enough
constexpr double MOST_GROWTH = 10.0;  // of a step in one extrapolation
constexpr double FLAT = 1e-10;        // gradients below it in all elements are those of a solution
constexpr int FEW_ITERATIONS = 10;    // fewer are told

enum class Step { Accepted, Converged, Limit, Failed, Stopped };

struct Fletcher {
  MinimiserRun& run;
  Minimum& m;
  std::span<double> b, g;  // the present point
  double f = 0.0;
  std::span<double> s, accuracy, old_g, best_b, best_g;
  double best_f = 0.0;
  double length = 0.0;  // of the whole step along s

  void keep_best() {
    best_f = f;
    std::ranges::copy(b, best_b.begin());
    std::ranges::copy(g, best_g.begin());
  }
  void take_best() {
    f = best_f;
    std::ranges::copy(best_b, b.begin());
    std::ranges::copy(best_g, g.begin());
  }
  bool move(double a) const {
    bool moved = false;
    for (std::size_t i = 0; i < b.size(); ++i) {
      b[i] += a * s[i];
      moved = moved || std::fabs(a * s[i]) >= accuracy[i];
    }
    return moved;
  }
  Step search(double slope);
};

// Cubic interpolation of the next step by the values and slopes at both ends of a.
double interpolated(double a, double f0, double g0, double f1, double g1) {
  const double z = g0 + g1 + 3.0 * (f0 - f1) / a;
  const double w = std::sqrt(z * z - g0 * g1);
  const double factor = 1.0 - (g1 + w - z) / (g1 + 2.0 * w - g0);
  // Beyond this the cubic tells nothing; NaN falls here too.
  return factor >= 0.05 && factor <= 0.95 ? factor : 0.5;
}

// Along s from the present point, where the slope is `slope`. Leaves the accepted or best point.
Step Fletcher::search(double slope) {
  double g0 = slope, f0 = f;
  double a = std::min(1.0, -2.0 * NLCOM.DFN / slope);
  length = 0.0;
  // The first step from the identity is as long as ESTFN makes it, which may be no move at all
  // where the gradient is large. It tells nothing of convergence before the search has turned back.
  bool blind = m.updates == 0 && a < 1.0;
  bool outside = false;  // a step ended where there is no value: short ones tell nothing then
  keep_best();
  if (!std::isfinite(slope)) return Step::Failed;
  for (int evaluations = 0; evaluations < MOST_EVALUATIONS; ++evaluations) {
    if (stop_requested()) {
      take_best();
      return Step::Stopped;
    }
    const bool moved = move(a) || blind;
    double f1 = 0.0;
    const bool good = run.evaluate(b, g, f1);
    if (!moved && outside) break;
    if (!moved) {
      // The step is below the accuracy. The better of the last two points stays.
      f = f1;
      length += a;
      if (!good || f1 > best_f) {
        take_best();
        length = 0.0;
      }
      return Step::Converged;
    }
    if (!good) {
      outside = true;
      move(-a);
      a /= 10.0;
      continue;
    }
    f = f1;
    if (f1 < best_f) keep_best();
    const double g1 = dot(g, s);
    const bool grew = f1 > f0;
    if (!grew && std::fabs(g1 / slope) <= SLOPE_LEFT) {
      length += a;
      return Step::Accepted;
    }
    if (grew || g1 > 0.0) {
      blind = false;
      move(-a);
      a *= interpolated(a, f0, g0, f1, g1);
      continue;
    }
    length += a;
    const double factor = g1 <= g0 ? MOST_GROWTH : std::min(g1 / (g0 - g1), MOST_GROWTH);
    a *= factor;
    g0 = g1;
    f0 = f1;
  }
  take_best();
  return Step::Failed;
}

// B + yy'/(ys) + gg'/(g's), y the change of the gradient, g the old one.
void update_factors(Fletcher& at, HessianFactors factors, double slope, std::span<double> v) {
  for (std::size_t i = 0; i < v.size(); ++i) v[i] = at.g[i] - at.old_g[i];
  const double ys = at.length * dot(v, at.s);
  if (!(ys > 0.0)) return;  // no curvature was seen: the matrix would lose its definiteness
  if (!factors.update(v, 1.0 / ys)) return;
  std::ranges::copy(at.old_g, v.begin());
  factors.update(v, 1.0 / slope);
  ++at.m.updates;
}

// The expected reduction as the option ESTFN gives it.
double first_reduction(double f, double before) {
  double DFN = NLCOM.ESTFN;
  if (DFN == 0.0) DFN = f - before;
  if (DFN < 0.0) DFN = std::fabs(f * DFN);
  return DFN > 0.0 ? DFN : 1.0;
}

void tell_end(Minimum& m, bool uphill, bool quiet_limit) {
  if (m.stopped || m.ERR == ERR_SEARCH) return;
  if (NLCOM.NLSTAT == AT_LIMIT) {
    m.ERR = ERR_LIMIT;
    if (quiet_limit) return;
    warn(" ...WARNING..MAXIMUM NUMBER OF ITERATIONS EXCEEDED");
    return leave_code(m, ERR_LIMIT);
  }
  if (uphill) {
    warn(" ...WARNING..GRAD*DELTA X GREATER THAN OR  EQUAL ZERO CONV SET TOO SMALL?");
    return leave_code(m, ERR_SIGN);
  }
  if (m.iterations < FEW_ITERATIONS) {
    warn<
        "(' ...WARNING..SOLUTION CONVERGED AFTER', I3, ' ITERATIONS EQUATION MAY BE LINEAR. CHECK "
        "RESULTS USING ALTERNATIVE', ' METHOD= OPTION')">(m.iterations);
  }
}

}  // namespace

Minimum NLFMIN(Objective& objective, std::span<double> b, std::span<double> gradient,
               HessianFactors factors, const MinimiserReport& report, std::span<double> work,
               bool quiet_limit) {
  const Trace trace("NLFMIN");
  const std::size_t n = b.size();
  MinimiserRun run{.objective = objective, .report = report};
  Minimum m;
  Fletcher at{.run = run,
              .m = m,
              .b = b,
              .g = gradient,
              .s = work.first(n),
              .accuracy = work.subspan(n, n),
              .old_g = work.subspan(2 * n, n),
              .best_b = work.subspan(3 * n, n),
              .best_g = work.subspan(4 * n, n)};
  const std::span<double> v = work.subspan(5 * n, n);
  NLCOM.NLSTAT = 0;
  // 1. The factors, the start.
  if (!factors.positive()) {
    warn(" ...WARNING..HESSIAN NOT POSITIVE DEFINITE");
    leave_code(m, ERR_HESSIAN);
    settle_factors(factors);
  }
  const double before = NLCOM.FUNVAL;
  if (!run.evaluate(b, gradient, at.f)) {
    warn_no_start();
    leave_code(m, ERR_SEARCH);
    NLCOM.NLSTAT = CONVERGED;
    m.f = at.f;
    m.evaluations = run.evaluations;
    return m;
  }
  NLCOM.DFN = first_reduction(at.f, before);
  bool uphill = false, restarted = false;
  for (;;) {
    // 2. What is printed; what counts as a move.
    if (run.prints(m.iterations)) {
      run.print(m.iterations == 0 ? " INITIAL STATISTICS :" : "", m.iterations, at.f, b, gradient);
    }
    for (std::size_t i = 0; i < n; ++i) {
      at.accuracy[i] = b[i] != 0.0 ? NLCOM.CONV * std::fabs(b[i]) : NLCOM.CONV;
    }
    // 3. Direction and slope.
    factors.direction(gradient, at.s);
    const double slope = dot(gradient, at.s);
    if (!(slope < 0.0)) {
      NLCOM.NLSTAT = CONVERGED;
      m.converged = std::ranges::all_of(gradient, [](double g) { return std::fabs(g) < FLAT; });
      uphill = !m.converged;
      break;
    }
    if (m.iterations >= NLCOM.ITER) {
      NLCOM.NLSTAT = AT_LIMIT;
      break;
    }
    // 4. The step.
    NLCOM.NLSTAT = 1;
    const double f_before = at.f;
    std::ranges::copy(gradient, at.old_g.begin());
    const Step step = at.search(slope);
    NLCOM.NLSTAT = CONVERGED;
    if (step == Step::Stopped) {
      m.stopped = true;
      break;
    }
    if (step == Step::Failed) {
      if (restarted) {
        warn_search_failed();
        leave_code(m, ERR_SEARCH);
        break;
      }
      restarted = true;
      factors.identity();
      m.updates = 0;
      NLCOM.NLSTAT = 0;
      continue;
    }
    // 5. The factors at the new point.
    if (at.length > 0.0) update_factors(at, factors, slope, v);
    ++m.iterations;
    if (step == Step::Converged) {
      m.converged = true;
      break;
    }
    NLCOM.DFN = f_before - at.f > 0.0 ? f_before - at.f : 1.0;
    NLCOM.NLSTAT = 0;
  }
  // 6. The end.
  m.f = at.f;
  m.evaluations = run.evaluations;
  NLCOM.FUNVAL = at.f;
  NLCOM.GOODFUN = true;
  tell_end(m, uphill, quiet_limit);
  if (run.prints(0)) run.print(" FINAL STATISTICS :", m.iterations, at.f, b, gradient);
  return m;
}

}  // namespace korvel
