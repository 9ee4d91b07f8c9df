// PROBIT: probit, logit and the multinomial logit by Newton's method.

#include <algorithm>
#include <cmath>

#include "engine/commands.h"
#include "expr/kernels/cholesky.h"
#include "expr/kernels/packed.h"
#include "limdep/limdep_parts.h"

namespace korvel {
namespace {

constexpr int T_ERR = temporary_place("ERR");
constexpr double EXPONENT_LIMIT = 88.0;  // a logit of an index below minus this has blown up
constexpr double FITTED = 1e-6;          // all rows nearer to their y than this: a perfect fit
constexpr double SMALLEST_COEF = 1e-6;   // steps are measured against no less than this
// A fall of the likelihood below this share is not told: the probability polynomial jumps by
// 3.6e-7 where an index changes its sign.
constexpr double FALL = 1e-7;

// ---- The dependent variable

// Counts the choices. False after an error.
bool count_choices(Workspace ws, LimModel& m) {
  std::ranges::fill(m.counts, 0.0);
  std::ranges::fill(m.observed, 0.0);
  const LikelihoodRows& rows = m.rows;
  KeptRows kept(ws);
  for (std::int64_t t = 0; t < rows.rows; ++t) {
    kept.next();
    const double y = rows.y[t];
    if (!(y >= 0.0 && y < m.choices) || y != std::trunc(y)) {
      fail<"(' ...ERROR..OB NO. ', I0, ' HAS ILLEGAL DEP. VAR.')">(kept.obs);
      return false;
    }
    const auto j = static_cast<std::size_t>(y);
    m.counts[j] += 1.0;
    m.observed[j] += rows.weight == nullptr ? 1.0 : rows.weight[t] * rows.weight_factor;
  }
  const auto met = std::ranges::count_if(m.observed, [](double n) { return n > 0.0; });
  if (met < 2) {
    fail(" ...ERROR..DEPENDENT VARIABLE IS A CONSTANT");
    return false;
  }
  for (std::size_t j = 0; j < m.observed.size(); ++j) {
    if (m.observed[j] > 0.0) continue;
    fail<"(' ...ERROR..NO OBSERVATIONS AT', I4, ': ITS COEFFICIENTS CANNOT BE ESTIMATED')">(j);
    return false;
  }
  return true;
}

void print_counts(std::span<const double> counts, bool weighted) {
  double total = 0.0;
  for (const double n : counts) total += n;
  const auto line = [weighted](std::string_view label, double n) {
    Line row;
    row.put<"(' ', A22)">(label);
    if (weighted)
      row.put<"(G13.5)">(n);
    else
      row.put<"(I10)">(static_cast<std::int64_t>(n));
    OUTLINE();
  };
  line("TOTAL OBSERVATIONS", total);
  if (counts.size() == 2) {
    line("OBSERVATIONS AT ONE", counts[1]);
    line("OBSERVATIONS AT ZERO", counts[0]);
    return;
  }
  for (std::size_t j = 0; j < counts.size(); ++j) {
    char label[22];
    std::fill_n(label, 22, ' ');
    compose<"('OBSERVATIONS AT', I7)">(label, 22, 0, j);
    line({label, 22}, counts[j]);
  }
}

void print_header(Workspace ws, const LimModel& m) {
  Line first;
  first.put<"(1X, A, ' ANALYSIS', 5X, ' DEPENDENT VARIABLE =', A8, 4X, ' CHOICES =', I10)">(
      command_word(), NAME(ws, m.dependent().var), m.choices);
  Line second;
  second.put<"(I10, ' OBSERVATIONS FOUND FOR ', A)">(m.rows.rows, NAME(ws, m.dependent().var));
  OUTLINE();
  say("   UNWEIGHTED COUNTS");
  print_counts(m.counts, false);
  if (m.rows.weight != nullptr) {
    say("   WEIGHTED COUNTS");
    print_counts(m.observed, true);
  }
  if (LIMCOM.LOWRESP != 0.0 || LIMCOM.UPRESP != 0.0) {
    say<"(' PROPORTION NATURAL NONRESPONSE =', G13.5)">(LIMCOM.LOWRESP);
    say<"(' PROPORTION NATURAL RESPONSE =', G13.5)">(LIMCOM.UPRESP);
  }
  Line third, fourth;
  third.put<"(' MAXIMUM ITERATIONS', I14)">(LIMCOM.ITER);
  fourth.put<"(' CONVERGENCE TOLERANCE =', G13.5)">(LIMCOM.CONV);
  OUTLINE();
}

void print_baseline(const LimModel& m) {
  const Line blank;
  Line first;
  first.put<"(1X, 'LOG OF LIKELIHOOD WITH CONSTANT TERM ONLY =  ', G13.5)">(constants_only(m));
  if (m.choices == 2) {
    Line second;
    second.put<"(' BINOMIAL  ESTIMATE = ', G13.5)">(m.observed[1] / m.N);
  }
  OUTLINE();
}

// ---- Separation

// A regressor that parts the rows at y=1 from those at y=0 fits them perfectly; when only their
// extreme values meet, its coefficient alone has no finite estimate. Without a constant the cut
// would have to be at zero. False after an exact link, which ends the command.
bool check_links(Workspace ws, const LimModel& m) {
  if (m.choices > 2 || m.model.low != 0.0 || m.model.share != 1.0) return true;
  const bool constant = m.units.constant >= 0;
  for (std::size_t k = 0; k < m.column.size(); ++k) {
    if (m.column[k] == nullptr) continue;
    const ColumnSurvey& s = m.survey[k];
    // Room between the groups, above or below.
    const double above = s.low_at_one - s.high_at_zero, below = s.low_at_zero - s.high_at_one;
    const bool cut = constant || (above > 0.0 && s.low_at_one > 0.0 && s.high_at_zero < 0.0) ||
                     (below > 0.0 && s.low_at_zero > 0.0 && s.high_at_one < 0.0);
    if (!cut || s.low == s.high) continue;
    const std::string_view name = NAME(ws, m.list[k].var);
    if (above > 0.0 || below > 0.0) {
      fail<"(' PERFECT FIT DUE TO EXACT LINK BETWEEN ', A, ' AND ', A)">(
          NAME(ws, m.dependent().var), name);
      temporary(T_ERR) = ERR_FIT;
      return false;
    }
    const bool varies =
        std::min(s.low_at_zero, s.low_at_one) < std::max(s.high_at_zero, s.high_at_one);
    if (varies && (above == 0.0 || below == 0.0)) {
      warn<
          "(' ...WARNING..', A, ' ALONE PARTS ONES FROM ZEROS BUT FOR TIES: ITS COEFFICIENT HAS "
          "NO FINITE ESTIMATE')">(name);
    }
  }
  return true;
}

bool perfect_fit() {
  fail(" ..PERFECT FIT");
  temporary(T_ERR) = ERR_FIT;
  return false;
}

// The row whose logit has left the range of exponents.
void report_blown(Workspace ws, LimModel& m) {
  RowBlock block(m.work.data(), m.rows.columns(), 2);
  KeptRows kept(ws);
  for (std::int64_t from = 0; from < m.rows.rows; from += RowBlock::ROWS) {
    block.load(m.rows, from, std::min(RowBlock::ROWS, m.rows.rows - from));
    block.index(m.rows, 2, m.b);
    for (std::int64_t t = 0; t < block.n; ++t) {
      kept.next();
      if (!(block.z[t] < -EXPONENT_LIMIT) || !(block.w[t] > 0.0)) continue;
      return say<"(' ...IN OBS ', I0, ' MODEL HAS BLOWN UP WITH -XB=', G13.5)">(kept.obs,
                                                                                -block.z[t]);
    }
  }
}

// ---- Start

// Least squares of y on x, blown up to the scale of the index (Amemiya 1981). Zeros when that has
// no solution, and for several choices.
void own_start(LimModel& m) {
  std::ranges::fill(m.b, 0.0);
  if (m.choices > 2) return;
  const RowModel linear{.kind = RowKind::linear, .low = m.units.constant >= 0 ? 0.5 : 0.0};
  likelihood(m.rows, linear, 2, m.b, m.gradient, m.information, m.work);
  std::ranges::copy(m.information, m.cov.begin());
  if (pivot_inverse(m.cov, m.M(), m.scratch) != 0) return;
  packed_times(m.cov, m.gradient, m.b);
  const double factor = m.model.kind == RowKind::probit ? 2.5 : 4.0;
  for (double& b : m.b) b *= factor;
}

// ---- Iteration

// A matrix without an inverse: of the regressors themselves, or only of their second derivatives
// at these estimates.
bool report_singular(Workspace ws, LimModel& m, int row) {
  temporary(T_ERR) = ERR_PIVOT;
  const RowModel linear{.kind = RowKind::linear};
  const auto K = static_cast<std::size_t>(m.K());
  const std::span<double> zeros = m.step.first(K);
  const std::span<double> moments = m.information.first(packed_words(m.K()));
  std::ranges::fill(zeros, 0.0);
  likelihood(m.rows, linear, 2, zeros, m.gradient.first(K), moments, m.work);
  const int collinear = pivot_inverse(moments, m.K(), m.scratch);
  MATINV(collinear != 0 ? collinear : row, " SECOND DERIVATIVES");
  if (collinear == 0) {
    say(" ...NOTE..THE REGRESSORS ARE NOT COLLINEAR: THE PROBABILITIES AT THESE ESTIMATES ARE ALL "
        "NEAR 0 OR 1. TRY OTHER START VALUES");
    return false;
  }
  warn<
      "(' ...WARNING..THIS IS PROBABLY DUE TO ', ' PERFECT MULTICOLLINEARITY ', "
      "' WITH VARIABLE ', A)">(coefficient_name(ws, m, collinear - 1));
  return false;
}

void dump_inverse(Workspace ws, LimModel& m) {
  say(" DUMP AFTER INVERSION");
  covariance_from_units(m.units, m.cov, m.scratch, m.information);
  print_triangle(ws, m, m.information);
}

void print_iteration(LimModel& m, int round) {
  if (!OCOM.OPUT || LIMCOM.PITER <= 0 || round % LIMCOM.PITER != 0) return;
  say<"(1X, 'ITERATION', I4, 2X, 'LOG OF LIKELIHOOD FUNCTION = ', G13.5)">(round, shown(m.LLF));
  if (!LIMCOM.LIST) return;
  from_units(m.units, m.b, m.coef);
  say<"(' ITERATION', I4, ' ESTIMATES')">(round);
  print_vector(m.coef);
}

// Whether the last step is small in every coefficient, in the units of the data. What counts as no
// coefficient at all goes with the size of its variable.
bool small_step(LimModel& m) {
  from_units(m.units, m.b, m.coef);
  from_units(m.units, m.step, m.scratch);
  const std::size_t C = m.scale.size();
  for (std::size_t i = 0; i < m.b.size(); ++i) {
    const double least = SMALLEST_COEF * std::min(1.0, m.scale[i % C]);
    if (!(std::fabs(m.scratch[i]) <= LIMCOM.CONV * std::max(std::fabs(m.coef[i]), least))) {
      return false;
    }
  }
  return true;
}

// A stopped command: the better one of the last two points is left in the COEF= variable.
bool keep_point(Workspace ws, LimModel& m, bool falling, int rounds) {
  if (falling) {
    for (std::size_t i = 0; i < m.b.size(); ++i) m.b[i] -= m.step[i];
  }
  from_units(m.units, m.b, m.coef);
  say<"(' ...NOTE..STOPPED AT ITERATION', I4)">(rounds);
  if (LIMCOM.COEFFICI.text.empty()) return false;
  const int var = make_result(ws, LIMCOM.COEFFICI, SERIES, m.M(), 1);
  if (var != 0) std::ranges::copy(m.coef, elements(ws, var).begin());
  return false;
}

// Newton's method from m.b. Leaves the inverse of minus the second derivatives at the last
// estimates in m.cov, in the units of the iteration. False when there are no results.
bool iterate(Workspace ws, LimModel& m) {
  const auto evaluate = [&] {
    const RowSums sums =
        likelihood(m.rows, m.model, m.choices, m.b, m.gradient, m.information, m.work);
    m.LLF = sums.LLF;
    return sums;
  };
  const double small_fall = FALL * std::fabs(constants_only(m));
  const bool natural = m.model.low != 0.0 || m.model.share != 1.0;
  RowSums sums = evaluate();
  bool falling = false, converged = false;
  int round = 0;
  print_iteration(m, 0);
  for (;;) {
    // 1. A perfect fit has no estimates.
    if (m.model.kind == RowKind::logit && m.choices == 2 && sums.lowest < -EXPONENT_LIMIT) {
      report_blown(ws, m);
      return perfect_fit();
    }
    if (sums.worst < FITTED) return perfect_fit();
    // 2. The inverse of minus the second derivatives.
    std::ranges::copy(m.information, m.cov.begin());
    if (const int row = pivot_inverse(m.cov, m.M(), m.scratch); row != 0) {
      return report_singular(ws, m, row);
    }
    if (LIMCOM.DUMP && OCOM.OPUT) dump_inverse(ws, m);
    if (converged || round >= LIMCOM.ITER) break;
    if (stop_requested()) return keep_point(ws, m, falling, round);
    // 3. The step, and the likelihood behind it.
    packed_times(m.cov, m.gradient, m.step);
    for (std::size_t i = 0; i < m.b.size(); ++i) m.b[i] += m.step[i];
    const double before = m.LLF;
    sums = evaluate();
    print_iteration(m, ++round);
    falling = !(m.LLF >= before - small_fall);
    if (falling) warn(" ...WARNING..LOG-LIKELIHOOD FUNCTION IS DECREASING");
    converged = small_step(m);
  }
  if (!converged) {
    // Rows that are all on their own side stay there however long the step: no maximum is near.
    if (sums.worst < 0.5 && !natural) return perfect_fit();
    warn(" ...WARNING..MAXIMUM ITERATIONS REACHED: RESULTS  BELOW UNRELIABLE");
    temporary(T_ERR) = ERR_ITER;
  } else if (falling) {
    temporary(T_ERR) = ERR_FALLING;
  }
  return true;
}

// The start values, LOPRO's logit among them, then the iteration. False when there are no results.
bool estimate(Workspace ws, LimModel& m) {
  const int given = given_start(ws, m, m.M(), 0);
  if (given < 0) return false;
  if (m.model.kind == RowKind::probit && LIMCOM.LOPRO) {
    m.model.kind = RowKind::logit;
    if (given > 0)
      to_units(m.units, m.coef, m.b);
    else
      own_start(m);
    if (!iterate(ws, m)) return false;
    m.model.kind = RowKind::probit;
    for (double& b : m.b) b /= LIMCOM.LPDIV;
    if (OCOM.OPUT) say(" PROBIT ANALYSIS STARTING FROM LOGIT ESTIMATES");
  } else if (given > 0) {
    to_units(m.units, m.coef, m.b);
  } else {
    own_start(m);
  }
  return iterate(ws, m);
}

void set_temporaries(const LimModel& m, const FitSums& sums) {
  clear_results();
  temporary(temporary_place("LLF")) = m.LLF;
  temporary(temporary_place("N")) = m.N;
  temporary(temporary_place("K")) = m.M();
  temporary(temporary_place("DF")) = m.N - m.M();
  temporary(temporary_place("R2")) = mcfadden(m);
  FCOM.ZZ = m.N;
  FCOM.DF = m.N;
  FCOM.XMAXL = m.LLF;
  FCOM.RSQR = mcfadden(m);
  FCOM.SSE = m.choices == 2 ? sums.squares : 0.0;
  if (m.choices == 2) temporary(temporary_place("SSE")) = sums.squares;
}

}  // namespace

double constants_only(const LimModel& m) {
  double sum = 0.0;
  for (const double n : m.observed) {
    if (n > 0.0) sum += n * std::log(n / m.N);
  }
  return sum;
}

void print_vector(std::span<const double> v) {
  constexpr std::size_t a_line = 5;
  for (std::size_t from = 0; from < v.size(); from += a_line) {
    Line row;
    row.put<"(1X)">();
    for (std::size_t i = from; i < std::min(v.size(), from + a_line); ++i) {
      row.put<"(G13.5)">(shown(v[i]));
    }
    OUTLINE();
  }
}

void PROBIT(Workspace ws, LimModel& m) {
  const Trace trace("PROBIT");
  // 1. The dependent variable and the columns.
  if (!count_choices(ws, m) || !settle_columns(ws, m)) return;
  m.model = {.kind = INPCOM.IKOD == K_PROBIT ? RowKind::probit : RowKind::logit,
             .low = LIMCOM.UPRESP,
             .share = 1.0 - LIMCOM.LOWRESP - LIMCOM.UPRESP};
  if (OCOM.OPUT) {
    print_header(ws, m);
    print_baseline(m);
  }
  if (!check_links(ws, m)) return;
  // 2. The estimates, their covariance in the units of the data.
  if (!estimate(ws, m)) return;
  from_units(m.units, m.b, m.coef);
  covariance_from_units(m.units, m.cov, m.scratch, m.information);
  std::ranges::copy(m.information, m.cov.begin());
  // 3. Tables.
  FitSums sums;
  fit_sums(m, sums);
  set_temporaries(m, sums);
  for (int i = 0; i < m.M(); ++i) {
    if (m.cov[packed(i + 1, i + 1)] >= 0.0) continue;
    warn<"(' ...WARNING..NEGATIVE VARIANCE ON VARIABLE ', A)">(coefficient_name(ws, m, i));
  }
  if (OCOM.OPUT) {
    print_coefficient_tables(ws, m, sums);
    print_matrices(ws, m);
    print_fit_statistics(m, sums);
    print_success(m, sums);
    if (LIMCOM.LIST) print_choices(ws, m);
  }
  // 4. Stored results.
  if (LIMCOM.RSTAT && m.choices == 2) {
    for (std::size_t t = 0; t < m.residual.size(); ++t) {
      m.fitted[t] = m.rows.y[t];
      m.residual[t] = m.rows.y[t] - fitted_probability(m, t, 1);
    }
    residual_statistics(ws, m, m.fitted, m.residual);
  }
  // The Mills ratio reads y once more: it goes before what may take the place of y.
  const bool binary = m.choices == 2;
  store_rows(ws, LIMCOM.IMRATIO, 1,
             [&](std::size_t t, int) { return mills_ratio(m.index[t], m.rows.y[t] == 1.0); });
  store_rows(ws, LIMCOM.PREDICT, binary ? 1 : m.choices,
             [&](std::size_t t, int j) { return fitted_probability(m, t, binary ? 1 : j); });
  store_rows(ws, LIMCOM.INDEX, m.choices - 1, [&](std::size_t t, int j) {
    return m.index[static_cast<std::size_t>(m.rows.rows) * static_cast<std::size_t>(j) + t];
  });
  store_coefficients(ws, m, m.coef);
  if (!OCOM.ODONT) save_model(ws, m);
}

}  // namespace korvel
