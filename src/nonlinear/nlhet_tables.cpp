// What HETERO prints and stores.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "nonlinear/nlhet.h"
#include "regress/ols_parts.h"
#include "regress/tests.h"

namespace korvel {
namespace {

constexpr ResultProfile HET_PROFILE{.word = "HETERO",
                                    .likelihood_line = false,
                                    .anova = false,
                                    .f_test = false,
                                    .summary = false,
                                    .own_fit = true};

// Sum of the coefficients of lagged squares and variances.
double persistence(const HetModel& m) {
  double sum = 0.0;
  for (const double c : m.b.last(static_cast<std::size_t>(m.rows.p + m.rows.q))) sum += c;
  return sum;
}

// What the covariance was made from: in a sentence, and over the matrix.
std::string_view source(HetCovariance kind) {
  switch (kind) {
    case HetCovariance::Numeric:
      return " NUMERIC 2ND DERIVATIVES";
    case HetCovariance::Outer:
      return " THE OUTER PRODUCT OF THE GRADIENT";
    case HetCovariance::Information:
      return " THE INFORMATION MATRIX";
    case HetCovariance::Start:
      return " STARTING VALUES";
    default:
      return " ALGORITHM";
  }
}
std::string_view title(HetCovariance kind) {
  switch (kind) {
    case HetCovariance::Numeric:
      return " NUMERIC 2ND DERIVATIVES";
    case HetCovariance::Outer:
      return " OUTER PRODUCT GRADIENT ";
    case HetCovariance::Information:
    case HetCovariance::Start:
      return " INFORMATION MATRIX     ";
    default:
      return {};
  }
}

void print_source(HetCovariance kind) {
  Line row;
  row.text(" ASY. COVARIANCE MATRIX OF PARAMETER ESTIMATES  IS ESTIMATED USING");
  if (kind == HetCovariance::Algorithm) {
    const std::string_view method = NLCOM.METHOD.text;
    row.put<"(1X, A)">(method.empty() ? "BFGS" : method);
  }
  row.text(source(kind));
  OUTLINE();
}

void print_list(Workspace ws, const HetModel& m) {
  Line first, second;
  first.text("   OBS.   CALCULATED  VARIANCE  STANDARDIZED");
  second.put<"(3X, ' NO.', 3X, ' RESIDUAL', 13X, ' RESIDUAL')">();
  OUTLINE();
  for (KeptRows kept(ws); kept.next();) {
    if (stop_requested()) return;
    const auto t = static_cast<std::size_t>(kept.row);
    say<"(1X, I7, 3G13.5)">(kept.obs, m.e[t], m.h[t], m.e[t] / std::sqrt(m.h[t]));
  }
}

// Squared correlation of y and y - e, and the sum of squares of e, both weighted.
struct Fit {
  double correlation = 0.0, SSE = 0.0;
};
Fit fit_of(const HetModel& m) {
  const HetRows& r = m.rows;
  Fit fit;
  const double from = r.y[0];
  double n = 0.0, sy = 0.0, sp = 0.0, syy = 0.0, spp = 0.0, syp = 0.0;
  for (std::size_t t = 0; t < m.e.size(); ++t) {
    const double w = r.weight == nullptr ? 1.0 : r.weight[t];
    const double a = r.y[t] - from, b = a - m.e[t];
    n += w;
    sy += w * a;
    sp += w * b;
    syy += w * a * a;
    spp += w * b * b;
    syp += w * a * b;
    fit.SSE += w * m.e[t] * m.e[t];
  }
  const double vy = syy - sy * sy / n, vp = spp - sp * sp / n, c = syp - sy * sp / n;
  // A mean alone does not vary: what is left of it is rounding.
  if (vy > 0.0 && vp > 1e-14 * spp) fit.correlation = c * c / (vy * vp);
  return fit;
}

// A series of a value by kept row, the missing code elsewhere.
template <class F>
void store_rows(Workspace ws, const NameOption& option, F&& value) {
  if (option.text.empty() || OCOM.ODONT) return;
  const int var = NEWVAR(ws, option.typed, {.ITYPE = SERIES, .LEN = DATCOM.MEND});
  if (var == 0) return;
  const std::span<double> to = elements(ws, var);
  const auto length = std::min(to.size(), static_cast<std::size_t>(DATCOM.MEND));
  std::fill_n(to.begin(), length, MACOM.XMISS);
  for (KeptRows kept(ws); kept.next();) {
    to[static_cast<std::size_t>(kept.obs) - 1] = value(static_cast<std::size_t>(kept.row));
  }
}

void store_correlations(Workspace ws, const HetModel& m) {
  if (NLCOM.COR.text.empty() || OCOM.ODONT) return;
  const int P = m.P();
  const auto words = static_cast<std::int64_t>(packed_words(P));
  const int var = NEWVAR(ws, NLCOM.COR.typed, {.ITYPE = SYMMETRIC, .LEN = words, .N2 = P});
  if (var == 0) return;
  const std::span<double> to = elements(ws, var);
  for (int i = 1; i <= P; ++i) {
    for (int j = 1; j <= i; ++j) {
      const double scale = std::sqrt(m.cov[packed(i, i)] * m.cov[packed(j, j)]);
      to[packed(i, j)] = scale > 0.0 ? m.cov[packed(i, j)] / scale : MACOM.XMISS;
    }
  }
}

}  // namespace

void print_het_header(const HetModel& m) {
  const HetRows& r = m.rows;
  say<"(' HETEROSKEDASTICITY MODEL ', I0, ' OBSERVATIONS')">(static_cast<int>(r.rows));
  say(NLCOM.NUMERIC ? " NUMERIC DERIVATIVES" : " ANALYTIC DERIVATIVES");
  if (r.weight != nullptr) say<"(' NUMBER OF REPLICATED OBSERVATIONS =', G13.5)">(m.N);
  if (r.form != HetForm::ARCH) return;
  say<"(' PRE-SAMPLE VARIANCE ESTIMATE = ', G13.5)">(r.presample);
  if (!r.arch_m()) return;
  if (r.power == 1.0)
    say(" ARCH-M TERM IS H(T)");
  else if (r.power == ARCHM_LOG)
    say(" ARCH-M TERM IS LOG(H(T))");
  else
    say<"(' ARCH-M TERM IS H(T)**', F8.4)">(r.power);
}

void print_het_results(Workspace ws, HetModel& m, HetCovariance kind) {
  const HetRows& r = m.rows;
  // 1. What the results stage takes from FCOM.
  const Fit fit = fit_of(m);
  FCOM.ZZ = m.N;
  FCOM.SSE = fit.SSE;
  FCOM.SST = m.squares.back();
  FCOM.RAW = FCOM.SST + m.means.back() * m.means.back() * m.N;
  FCOM.RSQR = fit.correlation;
  FCOM.XMAXL = m.LLF;
  FCOM.SEPLOT = std::sqrt(FCOM.SSE / FCOM.ZZ);
  Estimate est{.profile = &HET_PROFILE,
               .list = m.list,
               .coef = m.b,
               .cov = m.cov,
               .means = m.means,
               .squares = m.squares,
               .observed = {r.y, m.e.size()},
               .residual = m.e,
               .mean_terms = r.mean_terms()};
  // 2. The table.
  if (OCOM.OPUT) {
    say<"(' LOG-LIKELIHOOD FUNCTION= ', G15.7)">(m.LLF);
    print_source(kind);
  }
  OLSOUT(ws, est);
  if (OCOM.ODONT) return;
  temporary(temporary_place("R2OP")) = fit.correlation;
  if (r.form == HetForm::ARCH && persistence(m) >= 1.0) {
    warn(" ...WARNING..STATIONARITY CONSTRAINTS NOT SATISFIED");
  }
  if (OCOM.OPUT && NLCOM.PCOV) {
    if (!title(kind).empty()) say(title(kind));
    print_covariance(ws, est);
  }
  if (OCOM.OPUT && NLCOM.PCOR) print_correlation(ws, est);
  if (OCOM.OPUT) {
    if (NLCOM.LIST) print_list(ws, m);
    say<"(' SQUARED CORR. COEF. BETWEEN OBSERVED AND PREDICTED', F9.4)">(fit.correlation);
  }
  // 3. Variables, the estimate for TEST and CONFID.
  store_results(ws, est, {});
  store_correlations(ws, m);
  store_rows(ws, NLCOM.STDRESID, [&](std::size_t t) { return m.e[t] / std::sqrt(m.h[t]); });
  store_rows(ws, NLCOM.SIGMA, [&](std::size_t t) { return m.h[t]; });
  if (OCOM.ODONT) return;
  save_estimate(ws, est);
  SAVED.index_coefs = m.K();
  SAVED.variance_in_mean = m.rows.arch_m();
}

}  // namespace korvel
