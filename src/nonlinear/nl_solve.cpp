// SOLVE: the coefficients at which the equations of one observation hold, by Newton steps.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "nonlinear/minimise_parts.h"
#include "nonlinear/nl_parts.h"
#include "regress/ols_parts.h"

namespace korvel {
namespace {

constexpr int HALVINGS = 30;

double length(std::span<const double> e) {
  double sum = 0.0;
  for (const double v : e) sum += v * v;
  return std::sqrt(sum);
}

// Solves A x = r, A of order n by columns; both are overwritten. False: A is singular.
bool solve(std::span<double> A, std::span<double> r) {
  const std::size_t n = r.size();
  for (std::size_t k = 0; k < n; ++k) {
    std::size_t pivot = k;
    for (std::size_t i = k + 1; i < n; ++i) {
      if (std::fabs(A[k * n + i]) > std::fabs(A[k * n + pivot])) pivot = i;
    }
    const double d = A[k * n + pivot];
    if (!(std::fabs(d) > 0.0) || !std::isfinite(d)) return false;
    for (std::size_t j = k; j < n; ++j) std::swap(A[j * n + k], A[j * n + pivot]);
    std::swap(r[k], r[pivot]);
    for (std::size_t i = k + 1; i < n; ++i) {
      const double factor = A[k * n + i] / d;
      for (std::size_t j = k; j < n; ++j) A[j * n + i] -= factor * A[j * n + k];
      r[i] -= factor * r[k];
    }
  }
  for (std::size_t k = n; k-- > 0;) {
    for (std::size_t j = k + 1; j < n; ++j) r[k] -= A[j * n + k] * r[j];
    r[k] /= A[k * n + k];
  }
  return true;
}

// The residuals of the one row at b, and -de/db by columns in A when it is not empty.
bool equations(NlModel& m, std::span<double> b, std::span<double> e, std::span<double> A) {
  const auto n = static_cast<std::size_t>(m.K);
  const auto values = [&](std::span<double> to) {
    for (std::size_t j = 0; j < n; ++j) to[j] = m.e[j][0];
    return std::ranges::all_of(to, [](double v) { return std::isfinite(v); });
  };
  if (A.empty() || !NLCOM.NUMERIC) {
    NLPASS(m, b, !A.empty(), false);
    for (std::size_t i = 0; i < A.size(); ++i) {
      const double* const D = m.D[(i % n) * n + i / n];
      A[i] = D == nullptr ? 0.0 : D[0];
    }
    return values(e);
  }
  for (std::size_t k = 0; k < n; ++k) {
    const double at = b[k];
    const double h = NLCOM.STEPSIZE * std::max(std::fabs(at), 0.001);
    const std::span<double> column = A.subspan(k * n, n);
    b[k] = at - h / 2.0;
    NLPASS(m, b, false, false);
    values(column);
    b[k] = at + h / 2.0;
    NLPASS(m, b, false, false);
    for (std::size_t j = 0; j < n; ++j) column[j] = (column[j] - m.e[j][0]) / h;
    b[k] = at;
  }
  NLPASS(m, b, false, false);
  return values(e);
}

}  // namespace

void solve_equations(Workspace ws, NlModel& m) {
  const auto n = static_cast<std::size_t>(m.K);
  Scratch room(ws, std::int64_t{m.K} * m.K + 3 * std::int64_t{m.K});
  if (!room) return;
  const std::span<double> A = room.take(n * n), e = room.take(n), step = room.take(n),
                          trial = room.take(n);
  const auto no_solution = [&](std::string_view text) {
    temporary(temporary_place("ERR")) = ERR_SEARCH;
    fail(text);
  };
  if (!equations(m, m.b, e, {})) {
    return no_solution(" ...ERROR..FUNCTION HAS NO VALUE AT THE STARTING VALUES. GIVE OTHER ONES");
  }
  int iteration = 0;
  bool done = length(e) == 0.0;
  for (; !done && iteration < NLCOM.ITER && !stop_requested(); ++iteration) {
    equations(m, m.b, e, A);
    const double before = length(e);
    std::ranges::copy(e, step.begin());
    if (!solve(A, step)) {
      return no_solution(
          " ...ERROR..EQUATIONS ARE SINGULAR AT THE PRESENT VALUES. GIVE OTHER ONES");
    }
    // A step along which the errors grow is halved.
    double a = 1.0;
    bool down = false;
    for (int i = 0; i < HALVINGS && !down; ++i, a /= 2.0) {
      for (std::size_t k = 0; k < n; ++k) trial[k] = m.b[k] + a * step[k];
      down = equations(m, trial, e, {}) && length(e) <= before;
    }
    if (!down) break;
    done = true;
    for (std::size_t k = 0; k < n; ++k) {
      if (std::fabs(trial[k] - m.b[k]) > NLCOM.CONV * std::max(std::fabs(trial[k]), 1e-10)) {
        done = false;
      }
    }
    std::ranges::copy(trial, m.b.begin());
    if (length(e) == 0.0) done = true;
  }
  equations(m, m.b, e, {});
  if (!done && !stop_requested()) {
    if (iteration >= NLCOM.ITER) {
      warn(" ...WARNING..MAXIMUM NUMBER OF ITERATIONS EXCEEDED");
      temporary(temporary_place("ERR")) = ERR_LIMIT;
    } else {
      warn(" ...WARNING..EQUATIONS ARE NOT SOLVED: NO STEP MAKES THEIR ERRORS SMALLER");
      temporary(temporary_place("ERR")) = ERR_SEARCH;
    }
  }
  if (!OCOM.OPUT) return;
  say<"(' SOLUTION AFTER', I5, ' ITERATIONS')">(iteration);
  say("              VALUE    EQUATION ERROR");
  for (std::size_t k = 0; k < n; ++k) {
    say<"(1X, A8, 2G15.7)">(m.names[k], m.b[k], e[k]);
  }
}

}  // namespace korvel
