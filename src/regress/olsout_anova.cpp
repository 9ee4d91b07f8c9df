// Model selection tests and the analysis of variance.

#include <cmath>

#include "engine/output.h"
#include "regress/ols_parts.h"
#include "stats/stats.h"

namespace korvel {
namespace {

constexpr double NO_F = 1e18;  // an F that does not exist

// exp, 0 where it would leave the range of reals.
double bounded_exp(double v) { return v > -MACOM.EXLIM && v < MACOM.EXLIM ? std::exp(v) : 0.0; }

struct AnovaTable {
  double SSR, SSE, SST;  // regression, error, total
  double p, DF, total;   // their degrees of freedom
  double MSR, MSE, MST;
  double F;
};

void print_table(std::string_view title, const AnovaTable& a) {
  const bool with_f = a.F < NO_F;
  Line head;
  head.put<"(24X, A)">(title);
  Line names;
  names.put<"(23X, 'SS', 9X, 'DF', 13X, 'MS')">();
  if (with_f) names.put<"(17X, 'F')">();
  Line regression;
  regression.put<"(' REGRESSION', G18.5, F8.0, G18.5)">(a.SSR, a.p, a.MSR);
  if (with_f) regression.put<"(F18.3)">(a.F);
  Line error;
  error.put<"(' ERROR      ', G17.5, F8.0, G18.5)">(a.SSE, a.DF, a.MSE);
  if (with_f) error.put<"(11X, 'P-VALUE')">();
  Line total;
  total.put<"(' TOTAL', G23.5, F8.0, G18.5)">(a.SST, a.total, a.MST);
  if (with_f) total.put<"(F18.3)">(f_tail(a.F, a.p, a.DF));
  OUTLINE();
}

}  // namespace

void print_model_selection(int K, double SSE, double sigma2) {
  const double N = FCOM.ZZ;
  const double M = SSE / N;
  const double L0 = SSE > 0.0 ? std::log(M) : 0.0;
  const double share = K / N;
  const double LAIC = L0 + 2.0 * share;
  const double LSC = L0 + K * std::log(N) / N;
  const double FPE = (share + 1.0) * sigma2;
  const double GCV = K == N ? 0.0 : M / ((1.0 - share) * (1.0 - share));
  const double HQ = M * std::pow(std::log(N), 2.0 * share);
  const double RICE = 2.0 * K == N ? 0.0 : M / (1.0 - 2.0 * share);
  const double SHIB = M * (N + 2.0 * K) / N;
  const double SC = bounded_exp(LSC);
  const double AIC = bounded_exp(LAIC);
  temporary(temporary_place("FPE")) = FPE;
  temporary(temporary_place("LAIC")) = LAIC;
  temporary(temporary_place("LSC")) = LSC;
  temporary(temporary_place("GCV")) = GCV;
  temporary(temporary_place("HQ")) = HQ;
  temporary(temporary_place("RICE")) = RICE;
  temporary(temporary_place("SHIB")) = SHIB;
  temporary(temporary_place("SC")) = SC;
  temporary(temporary_place("AIC")) = AIC;
  if (!OCOM.OPUT) return;
  const Line blank;
  Line a, b, c, d, e, f, g, h, i, j, k, l, m;
  a.text(" MODEL SELECTION TESTS - SEE JUDGE ET AL. (1985,P.242)");
  b.put<"('  AKAIKE (1969) FINAL PREDICTION ERROR - FPE =', G13.5)">(FPE);
  c.text("     (FPE IS ALSO KNOWN AS AMEMIYA PREDICTION CRITERION - PC)");
  d.put<"('  AKAIKE (1973) INFORMATION CRITERION - LOG AIC =', G13.5)">(LAIC);
  e.put<"('  SCHWARZ (1978) CRITERION - LOG SC =', G13.5)">(LSC);
  f.text(" MODEL SELECTION TESTS - SEE RAMANATHAN (1998,P.165)");
  g.text("  CRAVEN-WAHBA (1979)");
  h.put<"('     GENERALIZED CROSS VALIDATION - GCV =', G13.5)">(GCV);
  i.put<"('  HANNAN AND QUINN (1979) CRITERION =', G13.5)">(HQ);
  j.put<"('  RICE (1984) CRITERION =', G13.5)">(RICE);
  k.put<"('  SHIBATA (1981) CRITERION =', G13.5)">(SHIB);
  l.put<"('  SCHWARZ (1978) CRITERION - SC =', G13.5)">(SC);
  m.put<"('  AKAIKE (1974) INFORMATION CRITERION - AIC =', G13.5)">(AIC);
  OUTLINE();
}

void print_anova(const Estimate& est, int coefficients, double SSE, double sigma2, double raw_sum) {
  const ResultProfile& profile = *est.profile;
  const double K = coefficients;
  const double N = FCOM.ZZ;
  const bool with_f = profile.f_test && sigma2 > 0.0;
  // 1. From the mean.
  if (OLSCOM.CONSTANT) {
    AnovaTable a{};
    a.p = K - 1.0;
    // A dependent variable that never changes leaves nothing to explain but rounding.
    a.SSR = a.p > 0.0 && FCOM.SST > 0.0 ? FCOM.SST - SSE : 0.0;
    a.SSE = SSE;
    a.SST = FCOM.SST;
    a.DF = FCOM.DF;
    a.total = N - 1.0;
    a.MSR = a.p > 0.0 ? a.SSR / a.p : 0.0;
    a.MSE = sigma2;
    a.MST = a.total != 0.0 ? a.SST / a.total : 0.0;
    a.F = with_f ? a.MSR / sigma2 : NO_F;
    temporary(temporary_place("SST")) = a.SST;
    temporary(temporary_place("SSR")) = a.SSR;
    if (a.F < NO_F) temporary(temporary_place("ANF")) = a.F;
    if (OCOM.OPUT) print_table("ANALYSIS OF VARIANCE - FROM MEAN", a);
  }
  // 2. From zero.
  AnovaTable z{};
  z.SST = raw_sum;
  z.SSE = SSE;
  z.SSR = raw_sum - SSE;
  z.p = K;
  z.DF = FCOM.DF;
  z.total = N;
  z.MSR = z.SSR / K;
  z.MSE = sigma2;
  z.MST = raw_sum / N;
  z.F = with_f ? z.MSR / sigma2 : NO_F;
  temporary(temporary_place("ZSST")) = z.SST;
  temporary(temporary_place("ZSSR")) = z.SSR;
  temporary(temporary_place("ZDF")) = z.p;
  if (z.F < NO_F) temporary(temporary_place("ZANF")) = z.F;
  if (OCOM.OPUT) print_table("ANALYSIS OF VARIANCE - FROM ZERO", z);
}

}  // namespace korvel
