// The minimisation of an NLINEAR run: the chosen minimiser, the stages of instruments and moments,
// and the least squares steps behind the default one.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "nonlinear/least_squares.h"
#include "nonlinear/minimise_parts.h"
#include "nonlinear/nl_parts.h"
#include "nonlinear/nl_squares.h"
#include "platform/progress.h"

namespace korvel {
namespace {

constexpr int FULL_LIMIT = 100;        // a smaller ITER asks for an unfinished run
constexpr double IMPROVED = 1e-6;      // relative: a sum of squares that much lower is told
constexpr double TIE = 1e-10;          // relative: sums of squares that close are the same
constexpr double IMAGE = 1e-9;         // ... and those of a minimum whose terms have changed places
constexpr double CLEARLY = 0.99;       // such a one counts when it is that much nearer the start
constexpr double LAST_STEP = 1e-13;    // relative: where the least squares steps end
constexpr double COARSE_STEP = 1e-8;   // ... those that full steps follow
constexpr double LEAST_WIDTH = 0.001;  // of a numeric derivative, relative to the coefficient

// The residuals of one equation as the least squares steps want them.
class NlResiduals final : public ResidualModel {
 public:
  NlResiduals(NlModel& m, std::span<double> spare) : m_(m), spare_(spare) {}
  bool evaluate(std::span<const double> b, std::span<double> u, std::span<double> J) override {
    if (stop_requested()) return false;
    if (J.empty() || !NLCOM.NUMERIC) return plain_residuals(m_, b, u, J);
    return plain_residuals(m_, b, u, {}) && differences(b, J);
  }

 private:
  // Central differences of a width relative to each coefficient.
  bool differences(std::span<const double> b, std::span<double> J) {
    const auto n = static_cast<std::size_t>(m_.rows);
    const std::span<double> low = spare_.first(n);
    const std::span<double> point = spare_.subspan(n, b.size());
    std::ranges::copy(b, point.begin());
    for (std::size_t k = 0; k < b.size(); ++k) {
      const double h = NLCOM.STEPSIZE * std::max(std::fabs(b[k]), LEAST_WIDTH);
      const std::span<double> column = J.subspan(k * n, n);
      point[k] = b[k] + h / 2.0;
      if (!plain_residuals(m_, point, column, {})) return false;
      point[k] = b[k] - h / 2.0;
      if (!plain_residuals(m_, point, low, {})) return false;
      point[k] = b[k];
      for (std::size_t t = 0; t < n; ++t) column[t] = (column[t] - low[t]) / h;
    }
    return true;
  }

  NlModel& m_;
  std::span<double> spare_;  // a column and K words
};

// Coefficients that enter linearly, read off the derivative list: the list of such a one reads
// neither itself nor another one. One mark a coefficient; the number of marks.
int linear_coefficients(const NlModel& m, std::vector<char>& linear) {
  const auto K = static_cast<std::size_t>(m.K);
  linear.assign(K, 0);
  if (NLCOM.NUMERIC) return 0;
  const NlEquation& eq = m.eq[0];
  const std::size_t words = (K + 63) / 64;
  // What each operand depends on, a bit a coefficient.
  std::vector<std::uint64_t> reads(eq.operands.size() * words, 0);
  const auto of = [&](int k) { return &reads[(static_cast<std::size_t>(k) - 1) * words]; };
  for (std::size_t k = 0; k < K; ++k) of(static_cast<int>(k) + 1)[k / 64] |= 1ULL << (k % 64);
  for (const Quad& q : eq.code) {
    for (std::size_t w = 0; w < words; ++w) {
      const std::uint64_t left = q.left > 0 ? of(q.left)[w] : 0;
      of(q.result)[w] = left | of(q.right)[w];
    }
  }
  int count = 0;
  const auto depends = [&](std::size_t c, std::size_t k) {
    return (of(eq.derivative[c])[k / 64] >> (k % 64) & 1U) != 0;
  };
  for (std::size_t c = 0; c < eq.derivative.size(); ++c) {
    const auto k = static_cast<std::size_t>(eq.coefficient[c]);
    if (eq.derivative[c] == 0) continue;
    bool apart = !depends(c, k);
    for (std::size_t i = 0; apart && i < c; ++i) {
      const auto other = static_cast<std::size_t>(eq.coefficient[i]);
      if (linear[other] != 0 && (depends(c, other) || depends(i, k))) apart = false;
    }
    if (!apart) continue;
    linear[k] = 1;
    ++count;
  }
  return count;
}

bool can_polish(const NlModel& m) {
  return m.form == NlForm::Squares && m.p == 0 && NLCOM.METHODCODE == 0 && !NLCOM.HYBRID &&
         NLCOM.PENTYPE == 0 && NLCOM.ITER >= FULL_LIMIT;
}

std::int64_t polish_words(const NlModel& m) {
  const std::int64_t rows = streams(m) ? 0 : m.rows;
  const std::int64_t steps = streams(m) ? damped_words(m.K) : least_squares_words(rows, m.K);
  return steps + rows + 4 * std::int64_t{m.K};
}

// How far a point lies from the start: the sum of relative changes.
double distance(std::span<const double> b, std::span<const double> start) {
  double sum = 0.0;
  for (std::size_t k = 0; k < b.size(); ++k) {
    const double size = std::fabs(b[k]) + std::fabs(start[k]);
    if (size > 0.0) sum += std::fabs(b[k] - start[k]) / size;
  }
  return sum;
}

// Least squares steps from the end of NLFMIN, from the user's start, and from there with the linear
// coefficients solved exactly. The lowest sum of squares stays in m.b.
bool polish(Workspace ws, NlModel& m, double SSE) {
  Scratch room(ws, polish_words(m));
  if (!room) return false;
  const auto K = static_cast<std::size_t>(m.K);
  const std::span<double> best = room.take(K);
  const std::span<double> b = room.take(K);
  const std::span<double> spare =
      room.take((streams(m) ? 0 : static_cast<std::size_t>(m.rows)) + K);
  NlResiduals model(m, spare);
  SquaresFit lowest;
  const auto consider = [&](const SquaresFit& fit) {
    if (!fit.good) return;
    if (lowest.good && !(fit.SSE < lowest.SSE * (1.0 - IMAGE))) {
      // As good: the first one stays, unless terms of the same form stand in the other's places as
      // they do in the start values.
      const bool nearer = distance(b, m.start) < CLEARLY * distance(best, m.start);
      const double reach = nearer ? 1.0 + IMAGE : 1.0 - TIE;
      if (!(fit.SSE < lowest.SSE * reach)) return;
    }
    lowest = fit;
    std::ranges::copy(b, best.begin());
  };
  // Steps from b; those of long data are summed up by blocks and end where they meet a minimum that
  // is known.
  const bool blocks = streams(m);
  const auto steps = [&] {
    if (!blocks) return consider(levenberg_marquardt(model, m.rows, b, room.rest()));
    NlSquares problem(m, {});
    if (lowest.converged) problem.known(best);
    const SquaresFit fit = damped_steps(problem, b, m.rows - m.K, LAST_STEP, room.rest());
    if (!problem.arrived()) consider(fit);
  };
  std::ranges::copy(m.b, b.begin());
  steps();
  std::ranges::copy(m.start, b.begin());
  if (!stop_requested()) steps();
  static std::vector<char> marks;
  const int linear = linear_coefficients(m, marks);
  if (linear > 0 && linear < m.K && !stop_requested()) {
    std::ranges::copy(m.start, b.begin());
    if (blocks) {
      NlSquares problem(m, marks);
      if (lowest.converged) problem.known(best);
      const std::span<double> a = spare.first(static_cast<std::size_t>(problem.free_ones()));
      problem.pick(b, a);
      const SquaresFit fit = damped_steps(problem, a, m.rows - m.K, COARSE_STEP, room.rest());
      double squares = 0.0;
      if (!problem.arrived() && fit.good && problem.evaluate(a, {}, squares)) {
        problem.place(a, b);
        steps();
      }
    } else {
      static_assert(sizeof(bool) == sizeof(char));
      const std::span<const bool> flags(reinterpret_cast<const bool*>(marks.data()), K);
      consider(variable_projection(model, m.rows, b, flags, room.rest()));
    }
  }
  if (!lowest.good || !(lowest.SSE <= SSE * (1.0 + IMAGE))) return false;
  std::ranges::copy(best, m.b.begin());
  if (lowest.SSE < SSE * (1.0 - IMPROVED) && OCOM.OPUT) {
    say(" ...NOTE..SOLUTION IMPROVED BY LEAST SQUARES STEPS");
  }
  return lowest.converged;
}

// One run of the chosen minimiser. `first`: annealing, where it was asked for, comes before it.
bool run_minimiser(Workspace ws, NlModel& m, NlFunction& f, HessianFactors factors, bool first,
                   NlOutcome& outcome) {
  Progress progress("ESTIMATING", search_evaluations(m.K), OCOM.OPUT);
  f.progress = &progress;
  struct Release {
    NlFunction& f;
    ~Release() { f.progress = nullptr; }
  } const release{f};
  const MinimiserReport report{.label = f.label, .scale = f.scale, .print = OCOM.OPUT};
  if (first && (NLCOM.METHODCODE == 99 || NLCOM.METHODCODE == -1 || NLCOM.HYBRID)) {
    const Annealed annealed = ANNEAL(ws, f, m.b, m.work, report);
    outcome.minimum = annealed.minimum;
    if (annealed.IER == 2) return false;
    if (annealed.IER == 3 || OCOM.ODONT) {
      mark_failed();
      return false;
    }
    f.evaluate(m.b, {});
    if (outcome.minimum.stopped) return true;
  }
  if (NLCOM.METHODCODE == 99 || NLCOM.METHODCODE == -1) {
    NLCOM.METHODCODE = -1;
    return true;
  }
  if (NLCOM.METHODCODE == 0) {
    outcome.minimum = NLFMIN(f, m.b, m.gradient, factors, report, m.work, can_polish(m));
    return true;
  }
  outcome.minimum = NLQN(f, m.b, m.gradient, factors, report, m.work);
  outcome.factors = true;
  return true;
}

bool evaluate_final(NlModel& m, NlFunction& f, NlOutcome& outcome) {
  const Objective::Value value = f.evaluate(m.b, NLCOM.NUMERIC ? std::span<double>{} : m.gradient);
  if (NLCOM.NUMERIC && value.good) {
    NLNUM(f, m.b, m.gradient);
    f.evaluate(m.b, {});
  }
  outcome.f = value.f;
  return value.good;
}

// Instruments: the stages one after another, each from where the one before has ended.
bool moment_stages(Workspace ws, NlModel& m, NlFunction& f, HessianFactors factors,
                   NlOutcome& outcome) {
  const auto stage = [&](NlWeights weights, bool first) {
    if (!weigh_moments(ws, m, weights, m.b)) return false;
    m.weights = weights;
    if (NLCOM.EVAL) return true;
    if (!first) factors.identity();
    return run_minimiser(ws, m, f, factors, first, outcome);
  };
  if (gmm_given_matrix()) return stage(NlWeights::Given, true);
  const bool sigma = given_sigma(ws, m);
  if (!stage(sigma ? NlWeights::Sigma : NlWeights::Projection, true)) return false;
  const auto go_on = [&] { return !outcome.minimum.stopped && !stop_requested(); };
  if (m.neq > 1 && NLCOM.S3SLS && !sigma && go_on() && !stage(NlWeights::Sigma, false)) {
    return false;
  }
  return NLCOM.GMM.text.empty() || !go_on() || stage(NlWeights::Moments, false);
}

}  // namespace

std::int64_t stage_words(const NlModel& m) {
  return std::max(minimiser_words(m.K), newton_words(m.K));
}

bool minimise_model(Workspace ws, NlModel& m, NlFunction& f, HessianFactors factors,
                    NlOutcome& outcome) {
  // 1. There must be a value at the start.
  const bool by_moments = m.form == NlForm::Moments;
  if (!by_moments) {
    if (m.form == NlForm::System && OCOM.OPUT) {
      say(" ...NOTE..ATTEMPTING CALCULATION OF DETERMINANT OF SIGMA");
    }
    if (!f.evaluate(m.b, {}).good) {
      if (m.form == NlForm::System && std::isfinite(m.SSE)) {
        fail<"(' ...ERROR..DETERMINANT OF SIGMA NOT POSITIVE =', G13.5)">(sigma_determinant(m));
      } else {
        fail(" ...ERROR..FUNCTION HAS NO VALUE AT THE STARTING VALUES. GIVE OTHER ONES");
      }
      return false;
    }
  }
  // 2. The minimiser.
  const bool good = by_moments ? moment_stages(ws, m, f, factors, outcome)
                               : NLCOM.EVAL || run_minimiser(ws, m, f, factors, true, outcome);
  if (!good) return false;
  outcome.stopped = outcome.minimum.stopped || stop_requested();
  const bool polishes = can_polish(m) && !outcome.stopped && !NLCOM.EVAL;
  if (polishes ? !f.evaluate(m.b, {}).good : !evaluate_final(m, f, outcome)) {
    fail(" ...ERROR..FUNCTION HAS NO VALUE AT THE STARTING VALUES. GIVE OTHER ONES");
    return false;
  }
  if (outcome.stopped || NLCOM.EVAL) return true;
  // 3. More digits.
  if (polishes) {
    outcome.polished = polish(ws, m, m.SSE);
    outcome.stopped = stop_requested();
    evaluate_final(m, f, outcome);
    if (outcome.minimum.ERR == ERR_LIMIT && !outcome.polished) {
      warn(" ...WARNING..MAXIMUM NUMBER OF ITERATIONS EXCEEDED");
      leave_code(outcome.minimum, ERR_LIMIT);
    }
  } else if (NLCOM.METHODCODE == 0 && NLCOM.ITER >= FULL_LIMIT && m.residuals()) {
    newton_polish(f, m.b, m.gradient, m.work);
    evaluate_final(m, f, outcome);
  }
  return true;
}

}  // namespace korvel
