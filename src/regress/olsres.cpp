// OLSRES: residual statistics. Durbin-Watson, runs, Durbin's h, then the tests of normality.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "regress/ols_parts.h"
#include "stats/shapiro_wilk.h"

namespace korvel {
namespace {

constexpr double CELLS_A_SIGMA = 10.0;  // histogram cells are a tenth of sigma wide
constexpr int CELLS = 60;

// Changes are taken within a block: its first row has none before it.
ResidualSums sum_residuals(std::span<const double> e, int blocks) {
  ResidualSums s;
  s.n = FCOM.ZZ;
  const double sigma = FCOM.SEPLOT > 0.0 ? FCOM.SEPLOT : 1.0;
  const std::size_t length = std::max<std::size_t>(1, e.size() / static_cast<std::size_t>(blocks));
  for (std::size_t t = 0; t < e.size(); ++t) {
    const double v = e[t];
    const double v2 = v * v;
    s.e += v;
    s.e2 += v2;
    s.e3 += v2 * v;
    s.e4 += v2 * v2;
    s.absolute += std::fabs(v);
    if (v > 0.0)
      ++s.positive;
    else if (v < 0.0)
      ++s.negative;
    else
      ++s.zero;
    if (t % length != 0) {
      const double before = e[t - 1];
      const double change = v - before;
      s.cross += v * before;
      s.change2 += change * change;
      if ((v > 0.0) != (before > 0.0)) ++s.runs;
    }
    if (OLSCOM.GF || OLSCOM.LM) {
      const double place = std::clamp(CELLS_A_SIGMA * v / sigma + 31.0, 1.0, double{CELLS});
      ++s.cell[static_cast<int>(place) - 1];
    }
  }
  if (!e.empty()) s.last2 = e.back() * e.back();
  return s;
}

// Squared correlation of f(y) and f(y - e). Sums are taken about the first value of y, which leaves
// the formula as it is and keeps its digits where the mean is large.
template <class F>
double r_square_between(const Estimate& est, F&& f) {
  const std::span<const double> y = est.observed;
  const double from = f(y[0]);
  double sy = 0.0, sp = 0.0, syy = 0.0, spp = 0.0, syp = 0.0;
  for (std::size_t t = 0; t < y.size(); ++t) {
    const double a = f(y[t]) - from;
    const double b = f(y[t] - est.residual[t]) - from;
    sy += a;
    sp += b;
    syy += a * a;
    spp += b * b;
    syp += a * b;
  }
  const auto n = static_cast<double>(y.size());
  const double cross = syp - sy * sp / n;
  const double product = (syy - sy * sy / n) * (spp - sp * sp / n);
  return product > 0.0 ? cross * cross / product : 0.0;
}

void print_runs(const ResidualSums& s) {
  if (s.positive == 0 || s.negative == 0) return;
  const double n = static_cast<double>(s.positive) + s.negative;
  const double a = 2.0 * s.positive * s.negative;
  const double variance = a * (a - s.positive - s.negative) / (n * n * (n - 1.0));
  const double Z = variance > 0.0 ? (s.runs - (a / n + 1.0)) / std::sqrt(variance) : 0.0;
  say<"(' RUNS TEST:', I5, ' RUNS,', I5, ' POS,', I5, ' ZERO,', I5, ' NEG  NORMAL STATISTIC =', "
      "F8.4)">(s.runs, s.positive, s.zero, s.negative, Z);
}

// Durbin's h for a lagged dependent variable, which is the first regressor. Behind errors of first
// order without one, the first autocorrelation of the residuals has the variance r*r/n (Box and
// Pierce 1970).
void durbin_h(const ResidualSums& s, double RHO, bool first_order) {
  const double r = FCOM.RHO;
  const double q = OLSCOM.DLAG ? s.n / (1.0 - OLSCOM.DLAGV * s.n) : s.n / (r * r);
  double& DURH = temporary(temporary_place("DURH"));
  if (!(q >= 0.0) || std::isinf(q)) {
    DURH = UNSET;
    if (OCOM.OPUT) warn(" ...WARNING..DURBIN H STATISTIC CANNOT BE COMPUTED");
    return;
  }
  DURH = std::sqrt(q) * RHO;
  if (!OCOM.OPUT) return;
  Line row;
  row.put<"(' DURBIN H STATISTIC (ASYMPTOTIC NORMAL) =', G13.5)">(DURH);
  if (first_order && OLSCOM.DLAG)
    row.text("  MODIFIED FOR AUTO ORDER=1 WITH LAGGED DEPVAR");
  else if (first_order)
    row.text("  MODIFIED FOR AUTO ORDER=1");
  OUTLINE();
}

// SET SPV: the statistic of Shapiro and Wilk.
void print_shapiro(Workspace ws, const Estimate& est) {
  const std::size_t n = est.residual.size();
  if (n < 3) return;
  Scratch scratch(ws, static_cast<std::int64_t>(n + n / 2));
  if (!scratch) return;
  const std::span<double> sorted = scratch.take(n);
  std::ranges::copy(est.residual, sorted.begin());
  std::ranges::sort(sorted);
  say<"(' SHAPIRO-WILK STATISTIC =', G13.5)">(shapiro_wilk(sorted, scratch.take(n / 2)));
}

}  // namespace

void OLSRES(Workspace ws, const Estimate& est) {
  const Trace trace("OLSRES");
  const ResultProfile& profile = est.profile != nullptr ? *est.profile : OLS_PROFILE;
  // 1. The plots, the listing.
  if (OLSCOM.GNUPLOT) write_residual_plots(ws, est);
  if (OCOM.ODONT) return;
  if (OLSCOM.LIST && OCOM.OPUT) print_listing(ws, est);
  if (est.residual.empty()) return;
  // 2. Sums, and what follows from them.
  const ResidualSums s = sum_residuals(est.residual, est.blocks);
  const double DW = s.e2 > 0.0 ? s.change2 / s.e2 : 0.0;
  const double RHO = s.e2 - s.last2 > 0.0 ? s.cross / (s.e2 - s.last2) : 0.0;
  const double ratio = s.n > 1.0 ? s.n / (s.n - 1.0) * DW : 0.0;
  const double variance = FCOM.DF > 0.0 ? s.e2 / FCOM.DF : 0.0;
  const bool logs = OLSCOM.LOGLOG || OLSCOM.LOGLIN;
  const double R2OP = r_square_between(est, [](double v) { return v; });
  if (!profile.forecast) temporary(temporary_place("DW")) = DW;
  if (!profile.autocorrelated && !profile.forecast) temporary(temporary_place("RHO")) = RHO;
  temporary(temporary_place("R2OP")) = R2OP;
  double R2AN = UNSET;
  if (logs) {
    R2AN = r_square_between(
        est, [](double v) { return std::exp(std::clamp(v, -MACOM.EXLIM, MACOM.EXLIM)); });
  }
  temporary(temporary_place("R2AN")) = R2AN;
  // 3. The block round the Durbin-Watson statistic.
  if (OCOM.OPUT) {
    if (OLSCOM.UT) {
      say(" RESIDUAL STATISTICS ARE COMPUTED FROM UNTRANSFORMED DEPENDENT VARIABLE");
    }
    if (!profile.forecast) {
      const Line blank;
      Line first, second;
      first.put<
          "(' DURBIN-WATSON =', F7.4, 4X, 'VON NEUMANN RATIO = ', F6.4, 4X, 'RHO = ', F8.5)">(
          DW, ratio, RHO);
      second.put<"(' RESIDUAL SUM =', G13.5, '  RESIDUAL VARIANCE =', G13.5)">(s.e, variance);
      OUTLINE();
    }
    say<"(' SUM OF ABSOLUTE ERRORS=', G13.5)">(s.absolute);
    say<"(' R-SQUARE BETWEEN OBSERVED AND PREDICTED =', F7.4)">(R2OP);
    if (logs) say<"(' R-SQUARE BETWEEN ANTILOGS OBSERVED AND PREDICTED =', F7.4)">(R2AN);
    if (profile.autocorrelated) say<"(' LOG-LIKELIHOOD FUNCTION =', G16.7)">(FCOM.XMAXL);
    print_runs(s);
  }
  // 4. The tests.
  if (profile.first_order || (OLSCOM.DLAG && !profile.autocorrelated)) {
    durbin_h(s, RHO, profile.first_order);
  }
  if (OLSCOM.GF || OLSCOM.LM) test_normality(est, s);
  if (OSCOM.OSPV && OCOM.OPUT) print_shapiro(ws, est);
  if (OLSCOM.LM && OLSCOM.DUMP) test_hall_pagan(est, s);
}

}  // namespace korvel
