// Stepwise regression: regressors in parentheses enter and leave by their F (Efroymson 1960).

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "expr/kernels/lsreg.h"
#include "expr/kernels/packed.h"
#include "regress/ols_parts.h"
#include "stats/stats.h"

namespace korvel {
namespace {

// A column that keeps less of its sum of squares than this share is a combination of those in the
// equation: the sweep, which works on products, has lost the rest to rounding.
constexpr double DEPENDENT = 1e-11;
// The same for what is left to explain of the dependent variable.
constexpr double PERFECT = 1e-13;

struct Selection {
  Workspace ws;
  std::span<double> a;  // moments of the candidates and y, swept on those in the equation
  int candidates = 0;   // regressors without the constant
  int order = 0;        // order of a
  int y = 0;            // row of the dependent variable
  int steps = 0;

  std::string_view name(int k) const {
    return NAME(ws, model_list()[static_cast<std::size_t>(k - 1)].var);
  }
  bool free(int k) const { return model_list()[static_cast<std::size_t>(k - 1)].group; }
  bool in(int k) const { return a[packed(k, k)] < 0.0; }  // a swept pivot is negative
  int size() const {
    int n = 0;
    for (int k = 1; k <= candidates; ++k) n += in(k) ? 1 : 0;
    return n;
  }
  double SSE() const { return a[packed(y, y)]; }
  // Change of the error sum when k enters or leaves.
  double change(int k) const {
    const double b = a[packed(y, k)];
    return b * b / std::fabs(a[packed(k, k)]);
  }
};

double freedom(int regressors) { return FCOM.ZZ - regressors - (OLSCOM.CONSTANT ? 1.0 : 0.0); }

void print_step(const Selection& s, int k, bool enters, double F, double p) {
  if (!OCOM.OPUT) return;
  if (enters)
    say<"(' STEP', I4, '  ENTERED ', A8, '  F TO ENTER =', G13.5, ' P-VALUE=', F6.3)">(
        s.steps, s.name(k), F, p);
  else
    say<"(' STEP', I4, '  REMOVED ', A8, '  F TO REMOVE=', G13.5, ' P-VALUE=', F6.3)">(
        s.steps, s.name(k), F, p);
}

void note_deleted(std::string_view name) {
  if (!OCOM.OPUT) return;
  Line first, second;
  first.put<"(' ...NOTE..VARIABLE ', A, ' HAS BEEN DELETED FROM THE REGRESSION.', A)">(
      name, " IT'S A LINEAR COMBO. OF");
  second.text(" INDEP. VARS. ALREADY IN THE EQUATION.");
  OUTLINE();
}

// Enters the best candidate that passes; 0 when none does.
int enter(Selection& s, std::span<const double> start) {
  const int inside = s.size();
  const double df = freedom(inside + 1);
  if (df <= 0.0) return 0;
  int best = 0;
  for (int k = 1; k <= s.candidates; ++k) {
    const double left = s.a[packed(k, k)];
    if (s.in(k) || !s.free(k) || left <= DEPENDENT * start[static_cast<std::size_t>(k - 1)])
      continue;
    if (best == 0 || s.change(k) > s.change(best)) best = k;
  }
  if (best == 0) return 0;
  const double after = s.SSE() - s.change(best);
  const double F = after > 0.0 ? s.change(best) / (after / df) : 1e18;
  const double p = f_tail(F, 1.0, df);
  if (OLSCOM.by_FE ? F < OLSCOM.FE : p > OLSCOM.PE) return 0;
  ++s.steps;
  sweep(s.a, s.order, best);
  print_step(s, best, true, F, p);
  return best;
}

// Takes out the weakest regressor that fails, but not the one that has just entered.
int remove(Selection& s, int entered) {
  const double df = freedom(s.size());
  if (df <= 0.0) return 0;
  int weakest = 0;
  for (int k = 1; k <= s.candidates; ++k) {
    if (!s.in(k) || !s.free(k) || k == entered) continue;
    if (weakest == 0 || s.change(k) < s.change(weakest)) weakest = k;
  }
  if (weakest == 0 || s.SSE() <= 0.0) return 0;
  const double F = s.change(weakest) / (s.SSE() / df);
  const double p = f_tail(F, 1.0, df);
  if (OLSCOM.by_FX ? F >= OLSCOM.FX : p <= OLSCOM.PX) return 0;
  ++s.steps;
  sweep(s.a, s.order, weakest);
  print_step(s, weakest, false, F, p);
  return weakest;
}

}  // namespace

int STEPWISE(Workspace ws, std::span<double> moments, std::span<double> start,
             std::span<double> chosen) {
  const Trace trace("STEPWI");
  const int NF = OLSCOM.NF;
  const int constants = OLSCOM.CONSTANT ? 1 : 0;
  Selection s{.ws = ws, .a = moments, .candidates = NF - 1 - constants, .order = NF, .y = NF};
  // 1. Every column's own sum of squares; the row of the constant is left alone.
  for (int k = 1; k <= s.candidates; ++k)
    start[static_cast<std::size_t>(k - 1)] = s.a[packed(k, k)];
  const double SST = s.SSE();
  if (OCOM.OPUT) {
    const Line blank;
    Line head;
    head.text(" **** STEPWISE REGRESSION ****");
    OUTLINE();
  }
  // 2. Regressors outside the parentheses are always in.
  for (int k = 1; k <= s.candidates; ++k) {
    if (s.free(k)) continue;
    if (!(s.a[packed(k, k)] > DEPENDENT * start[static_cast<std::size_t>(k - 1)])) {
      note_deleted(s.name(k));
      continue;
    }
    sweep(s.a, s.order, k);
  }
  // 3. In and out until nothing passes. A regressor may come back, so the steps are bounded.
  const int most = 10 * s.candidates;
  while (s.steps < most && !stop_requested()) {
    const int entered = enter(s, start);
    if (entered == 0) break;
    if (s.SSE() <= PERFECT * SST) {
      if (OCOM.OPUT) {
        say<"(' ...NOTE..STEP', I4, ' HAS RESULTED IN A PERFECT FIT. FOR NUMERICAL REASONS NO ', "
            "'FURTHER VARIABLE ENTERS')">(s.steps);
      }
      break;
    }
    while (s.steps < most && remove(s, entered) != 0) {
    }
  }
  for (int k = 1; k <= s.candidates; ++k) {
    const double left = s.a[packed(k, k)];
    if (s.free(k) && !s.in(k) && left <= DEPENDENT * start[static_cast<std::size_t>(k - 1)]) {
      note_deleted(s.name(k));
    }
  }
  // 4. What is left: chosen regressors, constant, dependent variable.
  int n = 0;
  for (int k = 1; k <= s.candidates; ++k) {
    if (s.in(k)) chosen[static_cast<std::size_t>(n++)] = k - 1;
  }
  if (n + constants == 0) {
    fail(" ...ERROR..INSUFFICIENT NUMBER OF VARIABLES SPECIFIED");
    return 0;
  }
  if (constants != 0) chosen[static_cast<std::size_t>(n++)] = NF - 2;
  chosen[static_cast<std::size_t>(n++)] = NF - 1;
  return n;
}

}  // namespace korvel
