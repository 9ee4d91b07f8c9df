// OLSOUT: the results stage of all linear estimators. Sets the temporaries, prints the summary, the
// variance tables and the coefficients, and calls OLSRES for the residuals.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "regress/ols_parts.h"
#include "stats/stats.h"

namespace korvel {
namespace {

constexpr int T_R2 = temporary_place("R2");
constexpr int T_ZANF = temporary_place("ZANF");
constexpr double NO_VALUE = 9999999.0;  // an adjusted R-square that does not exist
constexpr double PI = 3.1415926535898;
constexpr double LLF_PRINTED = 99999.0;  // likelihoods outside +- this are not printed

// Temporaries of the last estimation are gone before the first new one is set.
void clear_temporaries() {
  for (int p = T_R2; p <= T_ZANF; ++p) temporary(p) = UNSET;
  temporary(temporary_place("RHO")) = UNSET;
  temporary(temporary_place("JB")) = UNSET;
}

// Error variance with the finite population correction, which is printed.
double population_variance(double sigma2) {
  if (OLSCOM.NPOP <= 0) return sigma2;
  const double c = 1.0 - FCOM.ZZ / OLSCOM.NPOP;
  if (OCOM.OPUT) {
    say<"(' NP=', I20, ' FINITE POPULATION CORRECTION=', G13.5)">(OLSCOM.NPOP, c);
  }
  return FCOM.DF > 0.0 ? FCOM.SSE / FCOM.DF * c : sigma2 * c;
}

void print_r_square(double adjusted) {
  const Line blank;
  Line row;
  row.put<"('  R-SQUARE =', F9.4)">(FCOM.RSQR);
  if (!(adjusted > 2.0)) row.put<"(5X, 'R-SQUARE ADJUSTED =', F9.4)">(adjusted);
  OUTLINE();
}

void print_variance(double sigma2, double ybar) {
  Line a, b, c, d;
  a.put<"(' VARIANCE OF THE ESTIMATE-SIGMA**2 =', G13.5)">(sigma2);
  b.put<"(' STANDARD ERROR OF THE ESTIMATE-SIGMA =', G13.5)">(std::sqrt(sigma2));
  c.put<"(' SUM OF SQUARED ERRORS-SSE=', G13.5)">(FCOM.SSE);
  d.put<"(' MEAN OF DEPENDENT VARIABLE =', G13.5)">(ybar);
  OUTLINE();
}

void print_likelihood(double LLF, bool log_dependent) {
  if (!(LLF > -LLF_PRINTED && LLF < LLF_PRINTED)) return;
  if (log_dependent) {
    say<"(' LOG OF THE LIKELIHOOD FUNCTION(IF DEPVAR LOG) =', G13.5)">(LLF);
  } else {
    say<"(' LOG OF THE LIKELIHOOD FUNCTION =', G13.5)">(LLF);
  }
}

}  // namespace

void OLSOUT(Workspace ws, Estimate& est) {
  const Trace trace("OLSOUT");
  const ResultProfile& profile = *est.profile;
  const int K = est.K() / est.multiplicity;
  const double ZZ = FCOM.ZZ;
  const double ybar = est.means.back();
  const bool anova = OLSCOM.ANOVA && profile.anova;
  clear_temporaries();
  // 1. Raw-moment R-square.
  const double raw_sum = FCOM.RAW;
  if (FCOM.RAW != 0.0) FCOM.RAW = 1.0 - FCOM.SSE / FCOM.RAW;
  temporary(temporary_place("RAW")) = FCOM.RAW;
  // 2. Degrees of freedom; d0 stays that of the plain model when DN divides by N.
  const double d0 = ZZ - K + FCOM.NQ;
  FCOM.DF = OLSCOM.DN ? ZZ : d0;
  temporary(temporary_place("N")) = ZZ;
  temporary(temporary_place("K")) = K - FCOM.NQ;
  temporary(temporary_place("DF")) = FCOM.DF;
  temporary(temporary_place("SSE")) = FCOM.SSE;
  // 3. R-square and the error variance.
  if (FCOM.SSE < 0.0) {
    warn(" ...WARNING..CALCULATED SSE IS NEGATIVE..ZERO USED");
    FCOM.SSE = 0.0;
  }
  const double M = FCOM.SSE / ZZ;
  // A mean alone explains nothing: the difference would only be rounding, of either sign.
  const bool mean_only = K == 1 && OLSCOM.CONSTANT && !profile.autocorrelated;
  if (!profile.own_fit) {
    FCOM.RSQR = FCOM.SST > 0.0 && !mean_only ? 1.0 - FCOM.SSE / FCOM.SST : 0.0;
  }
  temporary(T_R2) = FCOM.RSQR;
  double sigma2 = FCOM.SSE;
  double adjusted = FCOM.RSQR;
  if (FCOM.DF <= 0.0) {
    warn(" ...WARNING..ZERO DEGREES OF FREEDOM LEFT");
  } else {
    sigma2 = FCOM.SSE / FCOM.DF;
    adjusted = d0 > 0.0 ? FCOM.RSQR - (K - FCOM.NQ - 1.0) / d0 * (1.0 - FCOM.RSQR) : NO_VALUE;
  }
  if (!profile.adjusted) adjusted = NO_VALUE;
  if (profile.own_fit) adjusted = NO_VALUE;
  temporary(temporary_place("ADR2")) = adjusted;
  if (OLSCOM.DN) sigma2 = M;
  sigma2 = population_variance(sigma2);
  temporary(temporary_place("SIG2")) = sigma2;
  // 4. Log-likelihood of normal errors; a logarithm as dependent variable changes the measure.
  const bool log_dependent = OLSCOM.LOGLOG || OLSCOM.LOGLIN || OLSCOM.LOGINVER;
  double LLF = UNSET;
  if (profile.own_fit) {
    LLF = FCOM.XMAXL;
    temporary(temporary_place("LLF")) = LLF;
  } else if (profile.likelihood && M > 0.0) {
    LLF = -(ZZ / 2.0) * std::log(2.0 * PI * M) - ZZ / 2.0;
    if (OLSCOM.weighted || profile.autocorrelated) LLF += FCOM.XMAXL;
    if (log_dependent) LLF -= ZZ * ybar;
    FCOM.XMAXL = LLF;
    temporary(temporary_place("LLF")) = LLF;
  }
  // 5. The summary.
  if (OCOM.OPUT && profile.summary) {
    print_r_square(adjusted);
    print_variance(sigma2, ybar);
    if (profile.likelihood_line) print_likelihood(LLF, log_dependent && !profile.own_fit);
    if (!OLSCOM.CONSTANT) say<"(' RAW MOMENT R-SQUARE =', G13.5)">(FCOM.RAW);
  }
  // 6. Model selection, analysis of variance.
  if (anova) {
    print_model_selection(K - FCOM.NQ, FCOM.SSE, sigma2);
    print_anova(est, K - FCOM.NQ, FCOM.SSE, sigma2, raw_sum);
  }
  // 7. The covariance matrix takes its scale; from here on it is the one printed and stored.
  if (OLSCOM.MULSIGSQ) {
    for (double& c : est.cov) c *= sigma2;
  }
  OLSCOM.DLAGV = est.cov[0];
  // 8. The coefficients and their matrices.
  if (OCOM.OPUT) {
    if (OLSCOM.lag_terms) print_lag_tests(ws, est);
    print_coefficients(ws, est, d0);
    if (OLSCOM.PCOV) print_covariance(ws, est);
    if (OLSCOM.PCOR) print_correlation(ws, est);
    if (OLSCOM.PCINFORM != 0) print_component_variables(ws, est);
  }
  // 9. The residuals.
  if (OLSCOM.RSTAT && profile.residual_statistics) OLSRES(ws, est);
}

}  // namespace korvel
