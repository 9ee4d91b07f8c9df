// TOBIT: regression with a dependent variable that is censored at a limit. Set-up, start values,
// and the iteration TOBITR.
//
// The parameters are the normalised pair of Olsen (1978): d, the coefficients over sigma, and h =
// 1/sigma (ND). With minus the dependent variable, held at the limit, as a last column, z = d'x - h
// y is all that a row gives to the likelihood: rows off the limit log h - z*z/2, rows at it log
// Phi(v) with v = -z (censored below) or z (above). So the pair is one coefficient vector of one
// index, the likelihood is concave in it, and only the term log h stands apart.

#include <algorithm>
#include <cmath>

#include "expr/kernels/cholesky.h"
#include "expr/kernels/packed.h"
#include "limdep/limdep_parts.h"
#include "regress/ols_parts.h"

namespace korvel {
namespace {

constexpr int T_ERR = temporary_place("ERR");
constexpr double SMALLEST_STEP = 1e-10;  // steps below it are none, whatever CONV says
constexpr double HALF_LOG_2PI = 0.91893853320467274178;
constexpr double ROOT_2_BY_PI = 0.79788456080286535588;
constexpr int MOST_HALVINGS = 40;

double side() { return LIMCOM.UPPER ? -1.0 : 1.0; }

// Makes the last column and the marks of the rows at the limit. A dependent variable that does not
// vary leaves sigma without an estimate, as rows that are all at the limit do, and counts as them.
// False after an error.
bool mark_limit(Workspace ws, LimModel& m) {
  const double limit = LIMCOM.LIMIT;
  const double s = side();
  const double* y_of = m.rows.y;
  const bool constant = std::all_of(y_of, y_of + m.rows.rows, [&](double v) { return v == *y_of; });
  KeptRows kept(ws);
  for (std::size_t t = 0; t < m.limit.size(); ++t) {
    kept.next();
    const double y = y_of[t];
    if (!std::isfinite(y)) return refuse_values(ws, m.dependent().var);
    const bool beyond = s * (y - limit) < 0.0;
    const bool at_limit = constant || beyond || y == limit;
    if (beyond) {
      warn<"(' ...WARNING..OBS', I7, ' IS ', G13.5, ' LIMIT IS ', G13.5)">(kept.obs, y, limit);
    }
    m.limit[t] = at_limit ? 1.0 : 0.0;
    m.made[t] = at_limit ? -limit : -y;
  }
  return true;
}

TobitCounts count_limit(const LimModel& m) {
  TobitCounts counts;
  for (std::size_t t = 0; t < m.limit.size(); ++t) {
    const double w = m.rows.weight == nullptr ? 1.0 : m.rows.weight[t] * m.rows.weight_factor;
    (m.limit[t] == 1.0 ? counts.limit : counts.other) += w;
  }
  return counts;
}

void print_counts(const LimModel& m, const TobitCounts& counts) {
  const auto limits = std::ranges::count(m.limit, 1.0);
  Line first, second;
  first.put<"(' LIMIT OBSERVATIONS    ', I10)">(limits);
  second.put<"(' NON-LIMIT OBSERVATIONS', I10)">(std::ssize(m.limit) - limits);
  OUTLINE();
  if (m.rows.weight == nullptr) return;
  say(" WEIGHTED COUNTS:");
  Line third, fourth;
  third.put<"(' LIMIT OBSERVATIONS    ', G13.5)">(counts.limit);
  fourth.put<"(' NON-LIMIT OBSERVATIONS', G13.5)">(counts.other);
  OUTLINE();
}

void set_scaled_moments(LimModel& m, double group) {
  const RowModel model{.kind = RowKind::group, .side = group};
  std::ranges::fill(m.b, 0.0);
  likelihood(m.rows, model, 2, m.b, m.gradient, m.information, m.work);
}

// Moments of regressors and dependent variable as they are, for DUMP.
void dump_moments(Workspace ws, LimModel& m, double group) {
  say(group == 0.0 ? " NON LIMIT OBSERVATIONS        " : " LIMIT OBSERVATIONS           ");
  say(" SECOND MOMENTS ABOUT THE ORIGIN");
  set_scaled_moments(m, group);
  derivatives_from_units(m.units, m.information, m.scratch, m.cov);
  // The column holds minus y. What the shifts leave of a zero is rounding.
  const auto size = [&](int k) {
    const auto c = static_cast<std::size_t>(k - 1);
    return std::fabs(m.shift[c]) + 1.0 / m.scale[c];
  };
  for (int i = 1; i <= m.M(); ++i) {
    for (int k = 1; k <= i; ++k) {
      double& v = m.cov[packed(i, k)];
      if (i == m.M() && k < i) v = -v;
      if (std::fabs(v) <= 1e-14 * m.N * size(i) * size(k)) v = 0.0;
    }
  }
  print_triangle(ws, m, m.cov);
}

// ---- Start

// Places of d and h in the units of the iteration for given coefficients of the latent variable
// s(y - c), z in those units.
void set_start(LimModel& m, std::span<const double> d, double h) {
  const auto last = static_cast<std::size_t>(m.K());
  for (std::size_t k = 0; k < last; ++k) m.b[k] = side() * d[k];
  m.b[last] = h / m.scale[last];
  if (m.units.constant >= 0) {
    m.b[static_cast<std::size_t>(m.units.constant)] += h * (LIMCOM.LIMIT + m.shift[last]);
  }
}

void both_roots_negative(LimModel& m) {
  if (OCOM.OPUT) say(" BOTH ROOTS NEGATIVE   COEF(ND) = 1.0");
  const std::span<double> zeros = m.step.first(static_cast<std::size_t>(m.K()));
  std::ranges::fill(zeros, 0.0);
  set_start(m, zeros, 1.0);
}

// Least squares on the rows off the limit; h is the positive root of a h*h + b h - c, in which the
// Mills ratios of the limit rows are replaced by their value at 0 (Fair 1977).
void fair_start(LimModel& m) {
  const int K = m.K();
  const auto last = static_cast<std::size_t>(K);
  set_scaled_moments(m, 0.0);
  const std::span<double> limit_sums = m.gradient.first(last);
  // 1. b0 for y in the units of the iteration; the last column holds minus y.
  const std::span<double> inverse = m.cov.first(packed_words(K));
  std::ranges::copy(m.information.first(packed_words(K)), inverse.begin());
  if (pivot_inverse(inverse, K, m.scratch) != 0) return both_roots_negative(m);
  const std::span<double> xy = m.scratch.first(last);
  for (int k = 1; k <= K; ++k) {
    xy[static_cast<std::size_t>(k - 1)] = -m.information[packed(K + 1, k)];
  }
  const std::span<double> b0 = m.step.first(last);
  packed_times(inverse, xy, b0);
  double a = m.information[packed(K + 1, K + 1)];
  for (std::size_t k = 0; k < last; ++k) a -= b0[k] * xy[k];
  const double whole = m.information[packed(K + 1, K + 1)];
  if (!(a > 1e-14 * whole)) return both_roots_negative(m);
  // 2. Measured from the limit, signed, in the units of y.
  const double scale = m.scale[last], s = side();
  a /= scale * scale;
  for (double& b : b0) b *= s / scale;
  if (m.units.constant >= 0) {
    b0[static_cast<std::size_t>(m.units.constant)] -= s * (m.shift[last] + LIMCOM.LIMIT);
  }
  // 3. The root. c is the number of rows off the limit.
  double b = 0.0;
  for (std::size_t k = 0; k < last; ++k) b += ROOT_2_BY_PI * b0[k] * limit_sums[k];
  double c = 0.0;
  for (std::size_t t = 0; t < m.limit.size(); ++t) {
    if (m.limit[t] == 1.0) continue;
    c += m.rows.weight == nullptr ? 1.0 : m.rows.weight[t] * m.rows.weight_factor;
  }
  const double h = (-b + std::sqrt(b * b + 4.0 * a * c)) / (2.0 * a);
  if (!(h > 0.0) || !std::isfinite(h)) return both_roots_negative(m);
  // 4. d = h b0 - k (X1'X1)^-1 (sum of the limit rows).
  packed_times(inverse, limit_sums, xy);
  for (std::size_t k = 0; k < last; ++k) b0[k] = h * b0[k] - ROOT_2_BY_PI * xy[k];
  set_start(m, b0, h);
}

// False after an error.
bool start(Workspace ws, LimModel& m) {
  const int given = given_start(ws, m, m.M(), m.K());
  if (given < 0) return false;
  if (given == 0) {
    fair_start(m);
  } else {
    if (given == m.K()) m.coef.back() = 1.0;
    if (!(m.coef.back() > 0.0)) {
      fail<"(' ...ERROR..COEFFICIENT ON ND MUST BE POSITIVE:', G13.5)">(m.coef.back());
      return false;
    }
    to_units(m.units, m.coef, m.b);
  }
  if (!OCOM.OPUT) return true;
  from_units(m.units, m.b, m.coef);
  say(" INITIAL COEFFICIENT VECTOR IS:");
  print_vector(m.coef);
  return true;
}

// ---- TOBITR

// Likelihood and derivatives at m.b; the weights off the limit carry log h and its derivatives.
void evaluate(LimModel& m, const TobitCounts& counts) {
  const RowSums sums = likelihood(m.rows, m.model, 2, m.b, m.gradient, m.information, m.work);
  const double h = m.b.back();
  m.LLF = sums.LLF + counts.other * (std::log(h * m.scale.back()) - HALF_LOG_2PI);
  m.gradient.back() += counts.other / h;
  m.information[packed(m.M(), m.M())] += counts.other / (h * h);
}

void print_iteration(LimModel& m, int round) {
  if (!OCOM.OPUT || LIMCOM.PITER <= 0 || round % LIMCOM.PITER != 0) return;
  from_units(m.units, m.b, m.coef);
  say<"(' ITERATION', I4, '  NORMALIZED COEFFICIENTS')">(round);
  print_vector(m.coef);
}

// One damped step. False when no length of it raises the likelihood, which at its maximum is
// nothing but rounding.
bool step_up(LimModel& m, const TobitCounts& counts) {
  const double before = m.LLF;
  double taken = 0.0, length = 1.0;
  for (int halvings = 0; halvings <= MOST_HALVINGS; ++halvings, length /= 2.0) {
    for (std::size_t i = 0; i < m.b.size(); ++i) m.b[i] += (length - taken) * m.step[i];
    taken = length;
    if (!(m.b.back() > 0.0)) continue;
    evaluate(m, counts);
    // The last figures of a sum are noise; falls of that size are none.
    if (m.LLF >= before - 1e-13 * std::fabs(before)) {
      for (double& v : m.step) v *= length;
      return true;
    }
  }
  for (std::size_t i = 0; i < m.b.size(); ++i) m.b[i] -= taken * m.step[i];
  evaluate(m, counts);
  std::ranges::fill(m.step, 0.0);
  return false;
}

bool small_step(LimModel& m) {
  from_units(m.units, m.b, m.coef);
  from_units(m.units, m.step, m.scratch);
  for (std::size_t i = 0; i < m.b.size(); ++i) {
    const double least = SMALLEST_STEP * std::min(1.0, m.scale[i]);
    if (!(std::fabs(m.scratch[i]) <= LIMCOM.CONV * std::fabs(m.coef[i]) + least)) return false;
  }
  return true;
}

bool report_singular(Workspace ws, LimModel& m, int row) {
  temporary(T_ERR) = ERR_PIVOT;
  MATINV(row, " SECOND DERIVATIVES");
  // The last column is the dependent variable: the regressors before it are in order.
  if (row == m.M()) {
    temporary(T_ERR) = ERR_FIT;
    say(" ...NOTE..THE ROWS OFF THE LIMIT ARE FITTED EXACTLY: THE VARIANCE GOES TO ZERO");
    return false;
  }
  warn<
      "(' ...WARNING..THIS IS PROBABLY DUE TO ', ' PERFECT MULTICOLLINEARITY ', "
      "' WITH VARIABLE ', A)">(coefficient_name(ws, m, row - 1));
  return false;
}

// A stopped command leaves the regression coefficients reached in the COEF= variable.
bool keep_point(Workspace ws, LimModel& m, int rounds) {
  from_units(m.units, m.b, m.coef);
  say<"(' ...NOTE..STOPPED AT ITERATION', I4)">(rounds);
  if (LIMCOM.COEFFICI.text.empty()) return false;
  const int var = make_result(ws, LIMCOM.COEFFICI, SERIES, m.K(), 1);
  if (var == 0) return false;
  const std::span<double> to = elements(ws, var);
  for (std::size_t k = 0; k + 1 < m.coef.size(); ++k) to[k] = m.coef[k] / m.coef.back();
  return false;
}

// What is printed at the maximum.
void print_maximum(Workspace ws, LimModel& m, int rounds) {
  if (!OCOM.OPUT) return;
  // What is below the rounding of the sums is no slope. Scaled columns are at most 1 in size.
  const double rounding = 1e-13 * m.N;
  for (double& g : m.gradient) g = std::fabs(g) < rounding ? 0.0 : g;
  gradient_from_units(m.units, m.gradient, m.step);
  say("  FIRST DERIVATIVES OF LOG OF LIKELIHOOD FUNCTION  EVALUATED AT MAXIMUM");
  print_vector(m.step);
  say<"(' NUMBER OF ITERATIONS =', I10)">(rounds);
  if (!LIMCOM.DUMP) return;
  say(" SECOND DERIVATIVES         ");
  const std::size_t words = packed_words(m.M());
  const std::span<double> room = m.work.first(words);
  derivatives_from_units(m.units, m.information, m.scratch, room);
  for (double& v : room) v = -v;
  print_triangle(ws, m, room);
}

// Newton's method from m.b; the inverse of minus the second derivatives is left in m.cov, in the
// units of the iteration. False when there are no results.
bool TOBITR(Workspace ws, LimModel& m, TobitCounts& counts) {
  const Trace trace("TOBITR");
  bool converged = false;
  evaluate(m, counts);
  for (;;) {
    std::ranges::copy(m.information, m.cov.begin());
    if (const int row = pivot_inverse(m.cov, m.M(), m.scratch); row != 0) {
      return report_singular(ws, m, row);
    }
    if (converged || counts.rounds >= LIMCOM.ITER) break;
    if (stop_requested()) return keep_point(ws, m, counts.rounds);
    packed_times(m.cov, m.gradient, m.step);
    converged = !step_up(m, counts) || small_step(m);
    print_iteration(m, ++counts.rounds);
  }
  print_maximum(ws, m, counts.rounds);
  if (!converged) {
    warn(" ...WARNING..MAXIMUM ITERATIONS REACHED: RESULTS  BELOW UNRELIABLE");
    temporary(T_ERR) = ERR_ITER;
  }
  return true;
}

}  // namespace

void TOBIT(Workspace ws, LimModel& m) {
  const Trace trace("TOBIT");
  if (OCOM.OPUT) {
    say<"(' TOBIT ANALYSIS, LIMIT=', G13.5, I10, ' MAX ITERATIONS')">(LIMCOM.LIMIT, LIMCOM.ITER);
  }
  // 1. The limit: marks of its rows take the place of y, minus y is a column of its own.
  if (!mark_limit(ws, m)) return;
  TobitCounts counts = count_limit(m);
  if (OCOM.OPUT) print_counts(m, counts);
  if (counts.other <= 0.0) return say(" ...NOTE..ALL OBSERVATIONS ARE AT THE LIMIT");
  if (counts.limit <= 0.0 && OCOM.OPUT) {
    say(" ...NOTE..THERE ARE NO OBSERVATIONS AT THE LIMIT");
  }
  m.rows.y = m.limit.data();
  m.column.back() = m.made.data();
  if (!settle_columns(ws, m)) return;
  m.model = {.kind = RowKind::tobit, .side = side()};
  if (LIMCOM.DUMP && OCOM.OPUT) {
    dump_moments(ws, m, 0.0);
    dump_moments(ws, m, 1.0);
  }
  // 2. Start and iteration.
  if (!start(ws, m) || !TOBITR(ws, m, counts)) return;
  // 3. Results in the units of the data.
  from_units(m.units, m.b, m.coef);
  covariance_from_units(m.units, m.cov, m.scratch, m.information);
  std::ranges::copy(m.information, m.cov.begin());
  TOBITL(ws, m, counts);
}

}  // namespace korvel
