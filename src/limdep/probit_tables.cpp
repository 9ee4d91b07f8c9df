// Tables of PROBIT and LOGIT: coefficients with their elasticities, marginal effects, likelihood
// and pseudo R-squares.

#include <cmath>

#include "expr/kernels/packed.h"
#include "limdep/limdep_parts.h"
#include "regress/ols_parts.h"
#include "stats/probability.h"

namespace korvel {
namespace {

double at(std::span<const double> v, int i) { return v[static_cast<std::size_t>(i)]; }

// F(z) and F'(z) of the model, natural responses included.
struct Point {
  double P, f;
};
Point probability_at(const LimModel& m, double index) {
  double z[8] = {}, P[8], Q[8], f[8];
  z[0] = index;
  const RowTerms in{z, nullptr, nullptr, nullptr, nullptr, 8, m.model.low, m.model.share, 1.0};
  const LikelihoodLanes& lanes = likelihood_lanes();
  (m.model.kind == RowKind::probit ? lanes.fitted_probit : lanes.fitted_logit)(in, P, Q, f);
  return {P[0], f[0]};
}

// Index of choice block `from` where column k is x(k); in the units of the iteration, where a mean
// far from zero takes no digits.
template <class F>
double index_at(const LimModel& m, int from, F&& x) {
  double z = 0.0;
  for (int k = 0; k < m.K(); ++k) {
    const double b = at(m.b, from + k);
    z += m.is_constant(k) ? b : b * ((x(k) - at(m.shift, k)) * at(m.scale, k));
  }
  return z;
}

bool logs() { return LIMCOM.LOG || LIMCOM.LINLOG; }

// ---- Binary models

void print_elasticities(Workspace ws, const LimModel& m, const FitSums& sums) {
  const Point mean = probability_at(m, index_at(m, 0, [&](int k) { return at(m.mean, k); }));
  const Line blank;
  Line first, second, third;
  first.put<"(27X, 'ASYMPTOTIC', 30X, 'WEIGHTED')">();
  second.put<
      "(1X, 'VARIABLE', 4X, 'ESTIMATED', 5X, 'STANDARD', 6X, 'T-RATIO', 4X, 'ELASTICITY', 4X, "
      "'AGGREGATE')">();
  third.put<"('  NAME   ', 3X, 'COEFFICIENT', 6X, 'ERROR', 20X, 'AT MEANS', 4X, 'ELASTICITY')">();
  OUTLINE();
  for (int k = 0; k < m.K(); ++k) {
    const double b = at(m.coef, k), se = standard_error(m, k);
    const double x = logs() ? 1.0 : at(m.mean, k);
    const double mass = logs() ? sums.f : at(sums.slopes, k);
    say<"(1X, A8, 5G13.5)">(coefficient_name(ws, m, k), b, se, t_ratio(b, se),
                            shown(mean.f * b * x / mean.P), shown(mass * b / sums.P));
  }
  if (logs()) say(" ELASTICITIES ASSUME LOG-TRANSFORMED VARIABLES");
}

// What a dummy changes at the typical case: dummies at their more frequent value, all else at its
// mean.
void print_marginal_effects(Workspace ws, const LimModel& m) {
  const auto typical = [&](int k) {
    const double mean = at(m.mean, k);
    return m.survey[static_cast<std::size_t>(k)].dummy ? (mean > 0.5 ? 1.0 : 0.0) : mean;
  };
  const double factor = probability_at(m, index_at(m, 0, [&](int k) { return at(m.mean, k); })).f;
  say<"(' SCALE FACTOR = ', G13.5)">(factor);
  if (logs()) {
    say("  MARGINAL EFFECTS ASSUME ALL VARIABLES ARE  LOG-TRANSFORMED   (EXCEPT DUMMY VARIABLES)");
  }
  if (m.K() == (m.units.constant >= 0 ? 1 : 0)) return;  // nothing that could change
  const Line blank;
  Line first, second, third;
  first.put<
      "(' VARIABLE', 4X, 'MARGINAL', 5X, '-----', ' PROBABILITIES FOR A TYPICAL CASE -----')">();
  second.put<"(2X, 'NAME', 8X, 'EFFECT', 8X, 'CASE', 10X, 'X=0', 10X, 'X=1', 7X, 'MARGINAL')">();
  third.put<"(27X, 'VALUES', 34X, 'EFFECT')">();
  OUTLINE();
  for (int k = 0; k < m.K(); ++k) {
    if (m.is_constant(k)) continue;
    const bool dummy = m.survey[static_cast<std::size_t>(k)].dummy;
    double effect = factor * at(m.coef, k);
    if (logs() && !dummy) effect /= std::exp(at(m.mean, k));  // x stands for log X
    Line row;
    row.put<"(1X, A8, 2G13.5)">(coefficient_name(ws, m, k), shown(effect), typical(k));
    if (dummy) {
      const auto with = [&](double value) {
        const auto x = [&](int j) { return j == k ? value : typical(j); };
        return probability_at(m, index_at(m, 0, x)).P;
      };
      row.put<"(3G13.5)">(with(0.0), with(1.0), with(1.0) - with(0.0));
    }
    OUTLINE();
  }
}

// ---- Several choices

void print_choice_estimates(Workspace ws, const LimModel& m) {
  say("                    MAXIMUM LIKELIHOOD ESTIMATES");
  for (int j = 1; j < m.choices; ++j) {
    Line choice, first, second;
    choice.put<"(' CHOICE', I5)">(j);
    first.put<"(26X, 'ASYMPTOTIC')">();
    second.put<"(' VARIABLE', 4X, 'ESTIMATES  STANDARD ERRORS  T-RATIOS')">();
    OUTLINE();
    for (int k = 0; k < m.K(); ++k) {
      const int i = (j - 1) * m.K() + k;
      const double b = at(m.coef, i), se = standard_error(m, i);
      say<"(1X, A8, 3G13.5)">(coefficient_name(ws, m, i), b, se, t_ratio(b, se));
    }
  }
}

// Derivatives of the probabilities at the means, a table for each choice.
void print_choice_effects(Workspace ws, const LimModel& m) {
  const int others = m.choices - 1;
  const auto z = [&](int j) {
    return j == 0 ? 0.0 : index_at(m, (j - 1) * m.K(), [&](int k) { return at(m.mean, k); });
  };
  double top = 0.0, sum = 0.0;
  for (int j = 1; j <= others; ++j) top = std::max(top, z(j));
  for (int j = 0; j <= others; ++j) sum += std::exp(z(j) - top);
  const auto P = [&](int j) { return std::exp(z(j) - top) / sum; };
  for (int j = 0; j <= others; ++j) {
    Line choice, first, second;
    choice.put<"(' CHOICE', I5, '  PROBABILITY AT MEANS =', G13.5)">(j, P(j));
    first.put<"(' VARIABLE', 4X, 'MARGINAL', 5X, 'VARIABLE')">();
    second.put<"(2X, 'NAME', 8X, 'EFFECT', 7X, 'MEANS')">();
    OUTLINE();
    for (int k = 0; k < m.K(); ++k) {
      if (m.is_constant(k)) continue;
      double average = 0.0;
      for (int i = 1; i <= others; ++i) average += P(i) * at(m.coef, (i - 1) * m.K() + k);
      const double b = j == 0 ? 0.0 : at(m.coef, (j - 1) * m.K() + k);
      say<"(1X, A8, 2G13.5)">(coefficient_name(ws, m, k), P(j) * (b - average), at(m.mean, k));
    }
  }
}

}  // namespace

void print_coefficient_tables(Workspace ws, const LimModel& m, const FitSums& sums) {
  if (m.choices > 2) {
    print_choice_estimates(ws, m);
    print_choice_effects(ws, m);
    return;
  }
  print_elasticities(ws, m, sums);
  print_marginal_effects(ws, m);
}

void print_triangle(Workspace ws, const LimModel& m, std::span<const double> a) {
  print_covariances(
      m.M(), [&](int i) { return coefficient_name(ws, m, i); },
      [&](int i, int j) { return a[packed(i, j)]; });
}

void print_matrices(Workspace ws, const LimModel& m) {
  if (LIMCOM.PCOV) {
    say(" VARIANCE-COVARIANCE MATRIX OF COEFFICIENTS");
    print_triangle(ws, m, m.cov);
  }
  if (!LIMCOM.PCOR) return;
  say(" CORRELATION MATRIX OF COEFFICIENTS");
  constexpr double none = 1e-20;
  for (int i = 1; i <= m.M(); ++i) {
    for (int j = 1; j <= i; ++j) {
      const double product = standard_error(m, i - 1) * standard_error(m, j - 1);
      m.information[packed(i, j)] = m.cov[packed(i, j)] / (product > 0.0 ? product : none);
    }
  }
  print_triangle(ws, m, m.information);
}

// ---- Likelihood

double mcfadden(const LimModel& m) {
  const bool constants = m.K() == (m.units.constant >= 0 ? 1 : 0);
  return constants ? 0.0 : 1.0 - m.LLF / constants_only(m);
}

void print_fit_statistics(const LimModel& m, const FitSums& sums) {
  const int constants = m.units.constant >= 0 ? m.choices - 1 : 0;
  const int df = m.M() - constants;
  // Constants alone are the same model: what the iteration rounds is no improvement.
  const double L0 = constants_only(m), L = df > 0 ? m.LLF : L0, N = m.N;
  const double ratio = 2.0 * (L - L0);
  const Line blank;
  Line first, second;
  first.put<"(' LOG-LIKELIHOOD FUNCTION =', G13.5)">(L);
  second.put<"(' LOG-LIKELIHOOD(0)  = ', G13.5)">(L0);
  OUTLINE();
  if (df > 0) {
    // Without a constant the model need not do better than constants alone.
    say<"(' LIKELIHOOD RATIO TEST  = ', G13.5, ' WITH ', I5, ' D.F.', 3X, ' P-VALUE=', F8.5)">(
        ratio, df, ratio > 0.0 ? chi_square_tail(ratio, df).value : 1.0);
  }
  // Estrella (1998); Maddala (1983); Cragg and Uhler (1970); McFadden (1974); Chow (1983).
  const double estrella = 1.0 - std::pow(L / L0, -2.0 * L0 / N);
  const double maddala = 1.0 - std::exp(2.0 * (L0 - L) / N);
  const double R2 = mcfadden(m);
  const double K = m.M();
  say<"(' ESTRELLA R-SQUARE        ', G13.5)">(shown(estrella));
  say<"(' MADDALA R-SQUARE     ', 4X, G13.5)">(shown(maddala));
  say<"(' CRAGG-UHLER R-SQUARE ', 4X, G13.5)">(shown(maddala / (1.0 - std::exp(2.0 * L0 / N))));
  say<"(' MCFADDEN R-SQUARE        ', G13.5)">(R2);
  // A model of constants has one for every choice but the first.
  const double constants_df = m.choices - 1;
  const double slopes = K - constants_df;
  say<"('      ADJUSTED FOR DEGREES OF FREEDOM     ', G13.5)">(
      N > K && N > constants_df ? 1.0 - (L / (N - K)) / (L0 / (N - constants_df)) : NO_STATISTIC);
  if (slopes > 0.0 && N > K) {
    say<"('      APPROXIMATELY F-DISTRIBUTED ', G13.5, ' WITH ', I5, ' AND ', I8, ' D.F.')">(
        shown(R2 / slopes / ((1.0 - R2) / (N - K))), std::llround(slopes), std::llround(N - K));
  }
  if (m.choices > 2) return;
  const double p = m.observed[1] / N;
  say<"(' CHOW R-SQUARE           ', 1X, G13.5)">(
      shown(above(1.0, sums.chow / (N * p * (1.0 - p)))));
}

}  // namespace korvel
