// NLQN: quasi-Newton minimisation with the BFGS or the DFP update of the factors of the Hessian.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "nonlinear/minimise_parts.h"
#include "nonlinear/nlls.h"
#include "nonlinear/nonlinear.h"

namespace korvel {
namespace {

constexpr int DFP = 2;  // METHODCODE; all others are BFGS

bool is_identity(const HessianFactors& factors) {
  std::size_t place = 0;
  for (int j = 0; j < factors.n; ++j) {
    for (int i = j; i < factors.n; ++i, ++place) {
      if (factors.LD[place] != (i == j ? 1.0 : 0.0)) return false;
    }
  }
  return true;
}

// H + vv' - e gg', v a combination of the new and the old gradient. v is work space; old is
// destroyed. False when the numbers have left their range.
bool update_factors(HessianFactors factors, const LineStep& step, double gs,
                    std::span<const double> fresh, std::span<double> old, std::span<double> v) {
  const double gn = step.g, a = step.a;
  double c, c2, e;
  if (NLCOM.METHODCODE == DFP) {
    const double u = a / (gn - (a + 1.0) * gs);
    const double root = std::sqrt(u);
    c = 1.0 / (root * (gn - gs));
    c2 = root - c;
    e = u;
  } else {
    e = -1.0 / gs;
    c = 1.0 / std::sqrt((gn - gs) * a);
    c2 = -c;
  }
  for (std::size_t i = 0; i < v.size(); ++i) v[i] = c * fresh[i] + c2 * old[i];
  return factors.update(v, 1.0) && factors.update(old, -e);
}

}  // namespace

Minimum NLQN(Objective& objective, std::span<double> b, std::span<double> gradient,
             HessianFactors factors, const MinimiserReport& report, std::span<double> work) {
  const Trace trace("NLQN");
  const std::size_t n = b.size();
  MinimiserRun run{.objective = objective, .report = report};
  Minimum m;
  const std::span<double> s = work.first(n), x = work.subspan(n, n);
  const std::span<double> fresh = work.subspan(2 * n, n), v = work.subspan(3 * n, n);
  const bool dfp = NLCOM.METHODCODE == DFP;
  // 1. Start.
  NLCOM.NLSTAT = 0;
  settle_factors(factors);
  if (!run.evaluate(b, gradient, m.f)) {
    m.stopped = stop_requested();
    if (!m.stopped) {
      warn_no_start();
      leave_code(m, ERR_SEARCH);
    }
    NLCOM.NLSTAT = CONVERGED;
    m.evaluations = run.evaluations;
    return m;
  }
  bool restarted = false;
  for (;;) {
    // 2. Direction, prints, and the two ordinary ends.
    factors.direction(gradient, s);
    const double gs = dot(gradient, s);
    if (run.prints(m.iterations)) {
      run.print(m.iterations == 0 ? " INITIAL STATISTICS :" : "", m.iterations, m.f, b, gradient);
    }
    NLCOM.NLSTAT = CONVERGED;
    if (-gs / 2.0 <= NLCOM.CONV) {
      m.converged = true;
      break;
    }
    if (m.iterations >= NLCOM.ITER) {
      NLCOM.NLSTAT = AT_LIMIT;
      warn(" ...WARNING..MAXIMUM NUMBER OF ITERATIONS");
      leave_code(m, ERR_LIMIT);
      break;
    }
    // 3. The line search.
    NLCOM.NLSTAT = 1;
    LineSearch search{.run = run,
                      .x0 = b,
                      .s = s,
                      .x = x,
                      .gradient = fresh,
                      .f0 = m.f,
                      .gs = gs,
                      .ALPHA = dfp ? 0.01 : 0.0001,
                      .BETA = dfp ? 0.1 : 0.9};
    const LineStep step = NLLS(search);
    NLCOM.NLSTAT = CONVERGED;
    if (!step.accepted) {
      // The lowest point on the way is kept.
      if (step.a > 0.0) {
        for (std::size_t i = 0; i < n; ++i) b[i] += step.a * s[i];
        m.f = step.f;
        if (!step.stopped) run.evaluate(b, gradient, m.f);
      }
      m.stopped = step.stopped;
      if (m.stopped) break;
      if (restarted || is_identity(factors)) {
        warn_search_failed();
        leave_code(m, ERR_SEARCH);
        break;
      }
      restarted = true;
      factors.identity();
      m.updates = 0;
      continue;
    }
    // 4. The factors, the new point. `gradient` becomes work space of the update.
    const bool updated = update_factors(factors, step, gs, fresh, gradient, v);
    std::ranges::copy(x, b.begin());
    std::ranges::copy(fresh, gradient.begin());
    m.f = step.f;
    ++m.iterations;
    ++m.updates;
    if (!updated) {
      say(" STARTING HESSIAN REJECTED-USING IDENTITY MATRIX INSTEAD");
      leave_code(m, ERR_HESSIAN);
      factors.identity();
      m.updates = 0;
      break;
    }
  }
  // 5. The end.
  m.evaluations = run.evaluations;
  NLCOM.FUNVAL = m.f;
  NLCOM.GOODFUN = true;
  if (run.prints(0)) run.print(" FINAL STATISTICS :", m.iterations, m.f, b, gradient);
  return m;
}

}  // namespace korvel
