// What NLINEAR prints.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "nonlinear/nl_parts.h"
#include "regress/ols_parts.h"
#include "stats/probability.h"

namespace korvel {
namespace {

constexpr int A_LINE = 5;
constexpr double CERTAIN_T2 = 10000;  // above this t*t the p-value is printed as 0

std::string_view name_of(std::span<const std::string> names, int i) {
  return names[static_cast<std::size_t>(i)];
}

// Degrees of freedom behind NODN.
double degrees(const NlModel& m) { return m.N * (m.residuals() ? m.neq : 1) - m.K; }

void print_stage(const NlModel& m) {
  if (!NLCOM.GMM.text.empty()) {
    say<"(' GENERALIZED METHOD OF MOMENTS ESTIMATION: ', ' USING ', I4, ' INSTRUMENTAL VARIABLES "
        "AND WEIGHT MATRIX=', A)">(m.q, NLCOM.GMM.text);
    return;
  }
  say<"(' NONLINEAR TWO-STAGE LEAST SQUARES: ', ' USING ', I4, ' INSTRUMENTAL EXOGENOUS "
      "VARIABLES')">(m.q);
}

void print_moment_lines(const NlModel& m, double Q) {
  if (m.weights == NlWeights::Sigma) {
    say(" NONLINEAR THREE STAGE LEAST SQUARES  USING  ESTIMATED  SIGMA MATRIX ");
  } else if (m.weights != NlWeights::Projection) {
    say(" GENERALIZED METHOD OF MOMENTS USING  ESTIMATED  SIGMA MATRIX ");
    say<"('      AND OPTIMAL WEIGHTING MATRIX=', A)">(NLCOM.GMM.text);
  }
  const int df = m.neq * m.q - m.K;
  const bool weighted = m.weights == NlWeights::Moments || m.weights == NlWeights::Given;
  if (!weighted || df <= 0) return;
  say<"(' TEST OF OVERIDENTIFYING RESTRICTIONS J=', G13.5, ' CHI-SQUARE WITH ', I5, ' D.F.', "
      "'  P-VALUE=', F8.5)">(Q, df, PCHI(std::max(Q, 0.0), df));
}

double p_value(const NlModel& m, double t) {
  if (t * t > CERTAIN_T2) return 0.0;
  const double df = degrees(m);
  return NLCOM.DN || !(df > 0.0) ? normal_two_sided(t) : f_tail(t * t, 1.0, df);
}

// known: the covariance is that of the coefficients, not that of a run which was stopped.
void print_coefficient_table(const NlModel& m, bool known) {
  const Line blank;
  if (NLCOM.DN) {
    Line row;
    row.put<"(23X, 'ASYMPTOTIC')">();
  }
  Line heading;
  heading.put<"(9X, ' COEFFICIENT STD ERROR   T-RATIO', '  P-VALUE')">();
  OUTLINE();
  for (int i = 0; i < m.K; ++i) {
    const double b = m.b[static_cast<std::size_t>(i)];
    if (!known) {
      say<"(1X, A8, G13.5)">(name_of(m.names, i), b);
      continue;
    }
    const double se = standard_error_of(m, i);
    const double t = t_ratio(b, se);
    if (OSCOM.OWIDE) {
      say<"(1X, A8, G13.5, G12.5, G13.5, F7.4)">(name_of(m.names, i), b, se, t, p_value(m, t));
    } else {
      say<"(1X, A8, G13.5, G11.4, G12.4, F6.3)">(name_of(m.names, i), b, se, t, p_value(m, t));
    }
  }
}

void print_nl_correlations(Workspace ws, const NlModel& m) {
  Scratch room(ws, static_cast<std::int64_t>(packed_words(m.K)));
  if (!room) return;
  for (int i = 1; i <= m.K; ++i) {
    for (int j = 1; j <= i; ++j) {
      const double product = standard_error_of(m, i - 1) * standard_error_of(m, j - 1);
      room.words()[packed(i, j)] = product > 0.0 ? m.cov[packed(i, j)] / product : 0.0;
    }
  }
  print_packed(" CORRELATION MATRIX OF COEFFICIENTS", room.words(), m.K, m.names);
}

// The gradient of what is printed.
void print_gradient(std::string_view heading, const NlModel& m, const NlFunction& f) {
  say(heading);
  for (std::size_t i = 0; i < m.gradient.size(); i += A_LINE) {
    Line row;
    row.column(2);
    for (std::size_t k = i; k < std::min(i + A_LINE, m.gradient.size()); ++k) {
      row.put<"(G15.7)">(f.printed(m.gradient[k]) + 0.0);
    }
    OUTLINE();
  }
}

void print_score(Workspace ws, NlModel& m, const NlFunction& f) {
  if (!m.residuals() || m.form == NlForm::Moments) return;
  print_gradient("   LM GRADIENT", m, f);
  double statistic = 0.0;
  if (score_statistic(ws, m, statistic)) say<"('   LM STATISTIC =', G13.5)">(statistic);
}

}  // namespace

double standard_error_of(const NlModel& m, int i) {
  const double v = m.cov[packed(i + 1, i + 1)];
  return v > 0.0 ? std::sqrt(v) : 0.0;
}

void print_packed(std::string_view title, std::span<const double> a, int order,
                  std::span<const std::string> names) {
  say(title);
  if (names.empty()) return print_bare_triangle(a, order, OSCOM.OWIDE ? 8 : A_LINE, 10);
  print_covariances(
      order, [&](int i) { return name_of(names, i); },
      [&](int i, int j) { return a[packed(i, j)]; });
}

void print_factors(Workspace ws, const NlModel& m, HessianFactors factors) {
  if (!OCOM.OPUT) return;
  Scratch room(ws, static_cast<std::int64_t>(packed_words(m.K)));
  if (!room) return;
  std::size_t place = 0;  // they lie by columns
  for (int j = 1; j <= m.K; ++j) {
    for (int i = j; i <= m.K; ++i) room.words()[packed(i, j)] = factors.LD[place++];
  }
  print_packed(" DUMP OF L AND D        ", room.words(), m.K, m.names);
}

void print_headline(Workspace ws, const NlModel& m) {
  if (!OCOM.OPUT) return;
  Line row;
  row.put<"(1X, I4, ' VARIABLES IN ', I3, ' EQUATIONS WITH ', I4, ' COEFFICIENTS')">(
      m.variables, m.neq, m.NCOEF);
  if (m.p > 0) row.put<"(' WITH ', I3, ' AUTOREGRESSIVE COEFFICIENTS')">(m.K - m.NCOEF);
  OUTLINE();
  if (m.form == NlForm::Moments) print_stage(m);
  if (NLCOM.NUMERIC) say(" ..ALGORITHM USES NUMERIC DERIVATIVES");
  const Place weight = NLCOM.WEIGHT.var > 0 ? INFO(ws, NLCOM.WEIGHT.var) : Place{};
  if (weight.IADD > 0 && !NLCOM.PWEIGHT) {
    say<"(' NUMBER OF REPLICATED OBSERVATIONS =', G13.5)">(m.N);
  }
  say<"(1X, I0, ' OBSERVATIONS')">(m.used());
}

void print_results(Workspace ws, NlModel& m, const NlFunction& f, const NlOutcome& outcome,
                   const NlCovariance& cov) {
  if (!OCOM.OPUT) return;
  // 1. The value of the function, the residuals' variance.
  if (NLCOM.EVAL) print_gradient(" GRADIENT", m, f);
  say<"(A, G15.7)">(f.label, f.printed(outcome.f) + 0.0);
  if (m.residuals() && m.neq == 1) {
    if (m.form == NlForm::Squares) {
      say<"(' MAXIMUM LIKELIHOOD ESTIMATE OF SIGMA-SQUARED =', G13.5)">(m.SSE / m.N);
    }
    say<"(' SUM OF SQUARED ERRORS =', G13.5)">(m.SSE);
  } else if (m.residuals() && (NLCOM.PSIGMA || NLCOM.DUMP)) {
    print_packed(" SIGMA MATRIX           ", m.S, m.neq, {});
  }
  if (m.form == NlForm::Moments) print_moment_lines(m, outcome.f);
  const bool known = !outcome.stopped && !stop_requested();
  if (known) {
    say<"(' GTRANSPOSE*INVERSE(H)*G  STATISTIC  -  =', G13.5)">(cov.quadratic);
  }
  if (NLCOM.LM && known) print_score(ws, m, f);
  // 2. The coefficients.
  print_coefficient_table(m, known);
  if (NLCOM.PCOV && known) print_packed(cov.title, m.cov, m.K, m.names);
  if (NLCOM.PCOR && known) print_nl_correlations(ws, m);
}

}  // namespace korvel
