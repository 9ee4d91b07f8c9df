// ANNEAL: simulated annealing over a box.
//
// Corana, Marchesi, Martini and Ridella (1987), ACM Transactions on Mathematical Software 13,
// 262-280; Goffe, Ferrier and Rogers (1994), Journal of Econometrics 60, 65-99, whose
// demonstration values the temperature, the step lengths and the seeds have.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "nonlinear/minimise_parts.h"
#include "nonlinear/nonlinear.h"
#include "nonlinear/ranmar.h"

namespace korvel {
namespace {

constexpr double FIRST_T = 5.0;   // temperature
constexpr double FIRST_VM = 1.0;  // step length of each coefficient
constexpr double ADJUST = 2.0;    // C: how strongly step lengths follow the acceptance ratio
constexpr int SEED1 = 1, SEED2 = 2;
constexpr int LEAST_SAITER = 1000;
constexpr double USE_CONV = 1e20;  // SACONV of this size means CONVERGE
constexpr double NEVER = 1e20;     // a final value that no other is near to

// exp with the guards of the published algorithm.
double EXPREP(double x) {
  if (x > 174.0) return 3.69e75;
  return x < -180.0 ? 0.0 : std::exp(x);
}

constexpr int DONE = 0, OUTSIDE = 2, REFUSED = 5;  // IER

struct Box {
  std::span<double> lower, upper;
};

// A vector of bounds with an element for each coefficient.
bool take_bounds(Workspace ws, const NameOption& option, std::span<double> to) {
  const Place place = INFO(ws, option.var);
  const std::span<const double> from = elements(ws, option.var);
  if (OCOM.ODONT) return false;
  if (place.columns() > 1 || from.size() != to.size()) {
    fail<"(' ...ERROR..SA BOUNDS MATRIX... ', A, ' HAS WRONG DIMENSIONS')">(option.text);
    return false;
  }
  std::ranges::copy(from, to.begin());
  return true;
}

void refuse_bounds(const Box& box, std::size_t i) {
  fail(" ...ERROR..SA INITIAL CONDITIONS INCONSISTENT WITH");
  say<"(' BOUNDS OF COEFFICIENT', I4, ': ', G13.5, ' TO ', G13.5)">(static_cast<int>(i) + 1,
                                                                    box.lower[i], box.upper[i]);
}

// Bounds from the variables, else from the factors of the starting values. IER: REFUSED or OUTSIDE
// after an error, which has been told.
int make_box(Workspace ws, std::span<const double> b, Box& box) {
  const NlCom& o = NLCOM;
  const bool own_lower = !o.SALOWER.text.empty(), own_upper = !o.SAUPPER.text.empty();
  if (own_lower && !take_bounds(ws, o.SALOWER, box.lower)) return REFUSED;
  if (own_upper && !take_bounds(ws, o.SAUPPER, box.upper)) return REFUSED;
  const bool usual = (!own_lower && !o.salowfac_given) || (!own_upper && !o.saupfac_given);
  if (usual) warn(" ...WARNING..DEFAULT SA UPPER AND LOWER BOUNDS USED");
  bool swapped = false;
  for (std::size_t i = 0; i < b.size(); ++i) {
    if (!own_lower) box.lower[i] = o.SALOWFAC * b[i];
    if (!own_upper) box.upper[i] = o.SAUPFAC * b[i];
    if (box.lower[i] > box.upper[i]) {
      std::swap(box.lower[i], box.upper[i]);
      swapped = true;
    }
  }
  if (swapped && OSCOM.OWARN) {
    say("..WARNING UPPER AND LOWER BOUNDS SWAPPED");
    say("    DUE TO INCONSISTENT DEFINITION");
  }
  for (std::size_t i = 0; i < b.size(); ++i) {
    if (box.lower[i] < box.upper[i]) continue;
    refuse_bounds(box, i);
    return REFUSED;
  }
  for (std::size_t i = 0; i < b.size(); ++i) {
    if (b[i] >= box.lower[i] && b[i] <= box.upper[i]) continue;
    fail(" THE STARTING VALUE (X) IS OUTSIDE THE BOUNDS ");
    say("  (LB AND UB). EXECUTION TERMINATED WITHOUT ANY");
    say("  OPTIMIZATION. RESPECIFY X, UB OR LB SO THAT  ");
    say("  LB(I) .LT. X(I) .LT. UB(I), I = 1, N. ");
    refuse_bounds(box, i);
    return OUTSIDE;
  }
  return DONE;
}

void print_values(std::string_view title, std::span<const double> x) {
  say<"(1X, A)">(title);
  for (std::size_t from = 0; from < x.size(); from += 5) {
    Line row;
    row.put<"(1X)">();
    for (std::size_t i = from; i < std::min(x.size(), from + 5); ++i) row.put<"(G13.5)">(x[i]);
    OUTLINE();
  }
}

// What happened since the last reduction of the temperature.
struct Counts {
  int better = 0, worse = 0, refused = 0, outside = 0, best = 0;
};

struct Annealing {
  MinimiserRun& run;
  Box box;
  std::span<double> x, trial, best, VM, accepted, final_values;
  double f = 0.0, best_f = 0.0, T = FIRST_T;
  Counts counts{};
  Ranmar random{};

  bool maximum() const { return run.report.scale < 0.0; }

  // One trial of coefficient h.
  void try_one(std::size_t h) {
    std::ranges::copy(x, trial.begin());
    trial[h] = x[h] + (random() * 2.0 - 1.0) * VM[h];
    if (trial[h] < box.lower[h] || trial[h] > box.upper[h]) {
      trial[h] = box.lower[h] + (box.upper[h] - box.lower[h]) * random();
      ++counts.outside;
    }
    double at = 0.0;
    const Objective::Value value = run.objective.evaluate(trial, {});
    ++run.evaluations;
    at = value.f;
    if (!value.good || !std::isfinite(at)) {
      ++counts.refused;
      return;
    }
    if (at > f) {
      if (!(random() < EXPREP((f - at) / T))) {
        ++counts.refused;
        return;
      }
      ++counts.worse;
    } else {
      ++counts.better;
    }
    x[h] = trial[h];
    f = at;
    accepted[h] += 1.0;
    if (f < best_f) {
      best_f = f;
      std::ranges::copy(x, best.begin());
      ++counts.best;
    }
  }

  // Step lengths that let about half of the trials through.
  void adjust_steps(int cycles) const {
    for (std::size_t i = 0; i < VM.size(); ++i) {
      const double ratio = accepted[i] / cycles;
      if (ratio > 0.6)
        VM[i] *= 1.0 + ADJUST * (ratio - 0.6) / 0.4;
      else if (ratio < 0.4)
        VM[i] /= 1.0 + ADJUST * (0.4 - ratio) / 0.4;
      VM[i] = std::min(VM[i], box.upper[i] - box.lower[i]);
      accepted[i] = 0.0;
    }
  }

  void dump_adjustment() const {
    say(" INTERMEDIATE RESULTS AFTER STEP LENGTH ADJUSTMENT");
    print_values("STEP LENGTH (VM)", VM);
    print_values("CURRENT OPTIMAL X", best);
    print_values("CURRENT X", x);
  }
  void dump_temperature() const {
    const int moves = counts.better + counts.worse + counts.refused;
    const double value = run.report.scale * best_f;
    say(" INTERMEDIATE RESULTS BEFORE NEXT TEMPERATURE REDUCTION");
    say<"('  CURRENT TEMPERATURE:            ', G13.5)">(T);
    if (maximum()) {
      say<"('  MAX FUNCTION VALUE SO FAR:  ', G13.5)">(value);
      say<"('  TOTAL MOVES:                ', I8)">(moves);
      say<"('     UPHILL:                  ', I8)">(counts.better);
      say<"('     ACCEPTED DOWNHILL:       ', I8)">(counts.worse);
      say<"('     REJECTED DOWNHILL:       ', I8)">(counts.refused);
      say<"('  OUT OF BOUNDS TRIALS:       ', I8)">(counts.outside);
      say<"('  NEW MAXIMA THIS TEMPERATURE:', I8)">(counts.best);
    } else {
      say<"('  MIN FUNCTION VALUE SO FAR:  ', G13.5)">(value);
      say<"('  TOTAL MOVES:                ', I8)">(moves);
      say<"('     DOWNHILL:                ', I8)">(counts.better);
      say<"('     ACCEPTED UPHILL:         ', I8)">(counts.worse);
      say<"('     REJECTED UPHILL:         ', I8)">(counts.refused);
      say<"('  OUT OF BOUNDS TRIALS:       ', I8)">(counts.outside);
      say<"('  NEW MINIMA THIS TEMPERATURE:', I8)">(counts.best);
    }
    print_values("CURRENT OPTIMAL X", best);
    print_values("STEP LENGTH (VM)", VM);
  }

  // The last values agree with this one, and this one with the best.
  bool settled(double tolerance) {
    final_values[0] = f;
    return f - best_f <= tolerance && std::ranges::all_of(final_values, [&](double v) {
             return std::fabs(f - v) <= tolerance;
           });
  }
  void cool() {
    T *= NLCOM.SATRF;
    std::shift_right(final_values.begin(), final_values.end(), 1);
    f = best_f;
    std::ranges::copy(best, x.begin());
    counts = {};
  }

  // Trials at one temperature. False: SAITER was reached, or the user stops.
  bool cycle(bool& stopped) {
    const int cycles = std::max(1, NLCOM.SANS), adjustments = std::max(1, NLCOM.SANT);
    for (int m = 0; m < adjustments; ++m) {
      for (int j = 0; j < cycles; ++j) {
        if (stop_requested()) {
          stopped = true;
          return false;
        }
        for (std::size_t h = 0; h < x.size(); ++h) {
          if (run.evaluations >= NLCOM.SAITER) return false;
          try_one(h);
        }
      }
      adjust_steps(cycles);
      if (NLCOM.DUMP && OCOM.OPUT) dump_adjustment();
    }
    return true;
  }
};

void warn_too_many() {
  warn(" ...WARNING..TOO MANY FUNCTION EVALUATIONS; CONSIDER ");
  warn(" INCREASING SAITER OR SACONV, OR DECREASING ");
  warn(" SATRF. THESE RESULTS ARE LIKELY TO BE ");
  warn(" POOR.");
}

// The loop over temperatures. Returns IER.
int anneal(Annealing& at) {
  const double tolerance = NLCOM.SACONV == USE_CONV ? NLCOM.CONV : NLCOM.SACONV;
  for (;;) {
    if (!(at.T > 0.0)) {
      say("  THE INITIAL TEMPERATURE IS NOT POSITIVE. ");
      say("  RESET THE VARIABLE T. ");
      return 3;
    }
    bool stopped = false;
    if (!at.cycle(stopped)) {
      if (stopped) return 4;
      warn_too_many();
      return 1;
    }
    if (NLCOM.DUMP && OCOM.OPUT) at.dump_temperature();
    if (at.settled(tolerance)) {
      if (OCOM.OPUT) say("  SA ACHIEVED TERMINATION CRITERIA. IER = 0. ");
      return 0;
    }
    at.cool();
  }
}

}  // namespace

Annealed ANNEAL(Workspace ws, Objective& objective, std::span<double> b, std::span<double> work,
                const MinimiserReport& report) {
  const Trace trace("ANNEAL");
  Annealed result;
  result.IER = REFUSED;
  if (NLCOM.SAITER < LEAST_SAITER) {
    fail(" ... ERROR.. SAITER TOO SMALL MUST BE AT LEAST 1000");
    return result;
  }
  // 1. The box, the start.
  const std::size_t n = b.size();
  MinimiserRun run{.objective = objective, .report = report};
  Annealing at{
      .run = run,
      .box = {work.first(n), work.subspan(n, n)},
      .x = b,
      .trial = work.subspan(2 * n, n),
      .best = work.subspan(3 * n, n),
      .VM = work.subspan(4 * n, n),
      .accepted = work.subspan(5 * n, n),
      .final_values = work.subspan(6 * n, static_cast<std::size_t>(std::max(1, NLCOM.SANEPS)))};
  const int box = make_box(ws, b, at.box);
  if (box != DONE) {
    result.IER = box;
    return result;
  }
  if (!at.random.start(SEED1, SEED2)) return result;
  if (!run.evaluate(b, {}, at.f)) {
    warn_no_start();
    leave_code(result.minimum, ERR_SEARCH);
    return result;
  }
  at.best_f = at.f;
  std::ranges::copy(b, at.best.begin());
  std::ranges::fill(at.VM, FIRST_VM);
  std::ranges::fill(at.accepted, 0.0);
  std::ranges::fill(at.final_values, NEVER);
  NLCOM.NLSTAT = 0;
  if (run.prints(0)) run.print(" INITIAL STATISTICS :", 0, at.f, b, {});
  // 2. The trials; the best point is the result.
  result.IER = anneal(at);
  std::ranges::copy(at.best, b.begin());
  Minimum& m = result.minimum;
  m.f = at.best_f;
  m.evaluations = run.evaluations;
  m.converged = result.IER == 0;
  m.stopped = result.IER == 4;
  NLCOM.NLSTAT = result.IER == 1 ? AT_LIMIT : CONVERGED;
  NLCOM.FUNVAL = m.f;
  NLCOM.GOODFUN = true;
  if (run.prints(0)) run.print(" FINAL STATISTICS :", 0, m.f, b, {});
  return result;
}

}  // namespace korvel
