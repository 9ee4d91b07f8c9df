// Tables of DIAGNOSE: stability, normality, heteroskedasticity, correlogram.

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "regress/diagnos_parts.h"
#include "stats/probability.h"

namespace korvel {
namespace {

// ---- Hansen (1992)

// Critical values of the statistic of p parameters at 10, 5 and 1 percent.
constexpr int MOST_PARAMETERS = 20;
constexpr std::array<std::array<double, MOST_PARAMETERS>, 3> HANSEN_CRITICAL = {{
    {0.353, 0.610, 0.846, 1.07, 1.28, 1.49, 1.69, 1.89, 2.10, 2.29,
     2.49,  2.69,  2.89,  3.08, 3.26, 3.46, 3.64, 3.83, 4.03, 4.22},
    {0.470, 0.749, 1.01, 1.24, 1.47, 1.68, 1.90, 2.11, 2.32, 2.54,
     2.75,  2.96,  3.15, 3.34, 3.54, 3.75, 3.95, 4.14, 4.33, 4.52},
    {0.748, 1.07, 1.35, 1.60, 1.88, 2.12, 2.35, 2.59, 2.82, 3.05,
     3.27,  3.51, 3.69, 3.90, 4.07, 4.30, 4.51, 4.73, 4.92, 5.13},
}};

// The strictest level that the statistic exceeds.
std::string_view single_verdict(double statistic) {
  if (statistic > HANSEN_CRITICAL[2][0]) return "UNSTABLE: 1% CRITICAL VALUE IS 0.748";
  if (statistic > HANSEN_CRITICAL[1][0]) return "UNSTABLE: 5% CRITICAL VALUE IS 0.470";
  if (statistic > HANSEN_CRITICAL[0][0]) return "UNSTABLE:10% CRITICAL VALUE IS 0.353";
  return "  STABLE:10% CRITICAL VALUE IS 0.353";
}

void print_joint(double statistic, int parameters) {
  Line row;
  row.put<"(4X, A8, 2X, G13.5, 2X)">("JOINT", statistic);
  if (parameters <= MOST_PARAMETERS) {
    const auto place = static_cast<std::size_t>(parameters - 1);
    std::size_t level = 0;
    while (level < 3 && statistic > HANSEN_CRITICAL[level][place]) ++level;
    constexpr std::array<int, 3> percent = {10, 5, 1};
    const std::size_t shown = level == 0 ? 0 : level - 1;
    row.put<"(A8, ':', I2, '% CRITICAL VALUE IS', F6.3)">(
        level == 0 ? "  STABLE" : "UNSTABLE", percent[shown], HANSEN_CRITICAL[shown][place]);
  }
  OUTLINE();
  if (parameters > MOST_PARAMETERS) warn(" ...WARNING..RESULTS OF THIS TEST ARE UNRELIABLE");
}

}  // namespace

void not_fitted(std::string_view test) {
  warn<"(' ...WARNING..', A, ' COULD NOT BE FITTED')">(test);
}

void put_df(Line& row, int df) {
  if (df <= 9999)
    row.put<"(I4)">(df);
  else
    row.put<"(I0)">(df);
}

void print_hansen(Workspace ws, const DiagnosWork& d) {
  const int K = d.m.K;
  const auto P = static_cast<std::size_t>(K + 1);
  Scratch scratch(ws, static_cast<std::int64_t>(packed_words(K + 1) + 5 * P));
  if (!scratch) return;
  const std::span<double> single = scratch.take(P);
  const HansenTest test = hansen_test(d.m, scratch.rest(), single);
  say(" HANSEN INSTABILITY TEST");
  say("    COEFFICIENT   TEST-STAT");
  const auto print = [](std::string_view name, double statistic) {
    say<"(4X, A8, 2X, G13.5, 2X, A)">(name, statistic, single_verdict(statistic));
  };
  for (int i = 0; i < K; ++i) print(d.name(i), single[static_cast<std::size_t>(d.column_of(i))]);
  print("VARIANCE", single.back());
  if (test.IFAULT != 0) return not_fitted("THE JOINT HANSEN TEST");
  print_joint(test.joint, K + 1);
}

void print_normality(Workspace ws, const DiagnosWork& d) {
  Scratch scratch(ws, d.m.N);
  if (!scratch) return;
  std::ranges::copy(d.m.e, scratch.words().begin());
  const double A2 = anderson_darling(scratch.words());
  if (!std::isfinite(A2)) return not_fitted("THE ANDERSON-DARLING TEST");
  say<"(' ANDERSON-DARLING NORMALITY TEST STATISTIC =', G13.5)">(A2);
}

// ---- Heteroskedasticity

namespace {

// The rows of one table: a test's left-hand side is made anew for each row, since the regression
// destroys it.
class HeteroTable {
 public:
  HeteroTable(const DiagnosWork& d, Basis z, std::span<double> v)
      : d_(d), z_(z), v_(v), mean2_(0.0) {
    for (const double e : d.m.e) mean2_ += e * e;
    mean2_ /= static_cast<double>(d.m.N);
  }

  void print(bool products);

 private:
  double fitted(std::size_t t) const { return d_.m.y[t] - d_.m.e[t]; }
  double square(std::size_t t) const { return d_.m.e[t] * d_.m.e[t]; }
  static void row(std::string_view label, std::string_view test, double chi, int df) {
    if (!std::isfinite(chi)) return not_fitted(test);
    say<"(A32, F10.3, 1X, I5, 2X, F9.5)">(label, chi, df, chi_square_tail(chi, df).value);
  }
  // v := f(t), regressed on the basis; then what statistic(fit) makes of it.
  template <class F, class S>
  void test(std::string_view label, std::string_view name, F&& f, S&& statistic) {
    for (std::size_t t = 0; t < v_.size(); ++t) v_[t] = f(t);
    const AuxiliaryFit fit = auxiliary_fit(z_, v_);
    if (!fit.fitted) return not_fitted(name);
    row(label, name, statistic(fit), fit.df);
  }
  template <class F>
  void on_fitted(std::string_view label, std::string_view name, F&& f);
  void arch();
  void group(std::string_view regressors, std::string_view name);

  const DiagnosWork& d_;
  Basis z_;
  std::span<double> v_;
  double mean2_;  // mean squared residual
  double breusch_pagan_ = 0.0;
  int breusch_pagan_df_ = 0;
};

// E**2 on a function of the fitted value.
template <class F>
void HeteroTable::on_fitted(std::string_view label, std::string_view name, F&& f) {
  const std::span<double> c = z_.next();
  for (std::size_t t = 0; t < c.size(); ++t) c[t] = f(fitted(t));
  const double first = c[0];  // a large mean would cost the slope its digits
  double size = 0.0, spread = 0.0;
  for (double& v : c) {
    size = std::max(size, std::fabs(v));
    v -= first;
    spread = std::max(spread, std::fabs(v));
  }
  if (!(spread > NO_SPREAD * size) || !z_.accept(ADDED_DEPENDENT)) return not_fitted(name);
  const auto N = static_cast<double>(d_.m.N);
  test(
      label, name, [&](std::size_t t) { return square(t); },
      [&](const AuxiliaryFit& fit) { return N * fit.R2(); });
  z_.cut(1);
}

// E**2 on its value one row earlier (Engle 1982).
void HeteroTable::arch() {
  constexpr std::string_view name = "E**2 ON LAG(E**2) ARCH TEST";
  const std::size_t n = v_.size() - 1;
  if (n < 3) return not_fitted(name);
  Basis z(z_.rest(), static_cast<std::int64_t>(n));
  add_constant(z);
  // Both columns lie in the room of the table's basis, which is empty but for its constant.
  for (std::size_t t = 0; t < n; ++t) z.next()[t] = square(t);
  if (!z.accept(ADDED_DEPENDENT)) return not_fitted(name);
  for (std::size_t t = 0; t < n; ++t) v_[t] = square(t + 1);
  const AuxiliaryFit fit = auxiliary_fit(z, v_.first(n));
  if (!fit.fitted) return not_fitted(name);
  row(" E**2 ON LAG(E**2) ARCH TEST:", name, static_cast<double>(n) * fit.R2(), fit.df);
}

// The basis holds the group: White (1980) with the variants of Koenker (1981) and of Breusch and
// Pagan (1979), Godfrey (1978).
void HeteroTable::group(std::string_view regressors, std::string_view name) {
  for (std::size_t t = 0; t < v_.size(); ++t) v_[t] = square(t) / mean2_;
  const AuxiliaryFit fit = auxiliary_fit(z_, v_);
  if (!fit.fitted) return not_fitted(name);
  say<"(' E**2 ON ', A9, ' (WHITE) TEST:')">(regressors);
  row("           KOENKER(R2):", name, static_cast<double>(d_.m.N) * fit.R2(), fit.df);
  row("           B-P-G (SSR) :", name, fit.SSR / 2.0, fit.df);
  if (regressors != "X") return;
  breusch_pagan_ = fit.SSR / 2.0;
  breusch_pagan_df_ = fit.df;
}

void HeteroTable::print(bool products) {
  say(" HETEROSKEDASTICITY TESTS");
  say("                           CHI-SQUARE     D.F.   P-VALUE");
  say("                           TEST STATISTIC");
  add_constant(z_);
  // 1. On the fitted values and on the past.
  on_fitted(" E**2 ON YHAT:", "E**2 ON YHAT", [](double f) { return f; });
  on_fitted(" E**2 ON YHAT**2:", "E**2 ON YHAT**2", [](double f) { return f * f; });
  on_fitted(" E**2 ON LOG(YHAT**2):", "E**2 ON LOG(YHAT**2)",
            [](double f) { return std::log(f * f); });
  arch();
  // 2. On the regressors. The variances of log chi-square(1) and of a normal absolute value scale
  // the tests of Harvey (1976) and Glejser (1969).
  constexpr double pi = std::numbers::pi;
  add_regressors(z_, d_.m);
  test(
      " LOG(E**2) ON X (HARVEY) TEST:", "LOG(E**2) ON X (HARVEY) TEST",
      [&](std::size_t t) { return std::log(square(t)); },
      [](const AuxiliaryFit& fit) { return fit.SSR / (pi * pi / 2.0); });
  test(
      " ABS(E) ON X (GLEJSER) TEST:", "ABS(E) ON X (GLEJSER) TEST",
      [&](std::size_t t) { return std::fabs(d_.m.e[t]); },
      [&](const AuxiliaryFit& fit) { return fit.SSR / ((1.0 - 2.0 / pi) * mean2_); });
  // 3. On growing groups of their squares and products.
  group("X", "E**2 ON X (WHITE) TEST");
  add_squares(z_, d_.m);
  group("X X**2", "E**2 ON X X**2 (WHITE) TEST");
  if (products) {
    add_products(z_, d_.m);
    group("X X**2 XX", "E**2 ON X X**2 XX (WHITE) TEST");
  }
  if (breusch_pagan_df_ > 0) {
    say<"(' BREUSCH-PAGAN TEST: CHI-SQUARE(', I3, ') =    ', G13.5)">(breusch_pagan_df_,
                                                                      breusch_pagan_);
  }
}

}  // namespace

void print_heteroskedasticity(Workspace ws, const DiagnosWork& d, bool products) {
  // Constant, regressors, squares, products, and the room of one more that is refused.
  const std::int64_t K = d.m.K;
  const std::int64_t columns = 4 + 2 * K + (products ? K * (K - 1) / 2 : 0);
  Scratch scratch(ws, (columns + 1) * d.m.N);
  if (!scratch) return;
  const std::span<double> v = scratch.take(static_cast<std::size_t>(d.m.N));
  HeteroTable(d, Basis(scratch.rest(), d.m.N), v).print(products);
}

// ---- Correlogram

void print_correlogram(const DiagnosWork& d) {
  const auto N = static_cast<double>(d.m.N);
  const int most = static_cast<int>(d.m.N) - 1;
  int lags = std::clamp(static_cast<int>(d.m.N / 3), 1, 24);
  if (FcastOption::given<"LAG">()) lags = FcastOption::integer<"LAG">();
  if (lags > most) {
    warn<"(' ...WARNING..LAG=', I0, ' IS TOO LARGE, ', I0, ' LAGS ARE USED')">(lags, most);
    lags = most;
  }
  say(" RESIDUAL CORRELOGRAM");
  say(" LM-TEST FOR HJ:RHO(J)=0, STATISTIC IS STANDARD NORMAL");
  say("  LAG     RHO       STD ERR     T-STAT     LM-STAT    DW-TEST BOX-PIERCE-LJUNG");
  const double se = 1.0 / std::sqrt(N);
  double sum = 0.0;
  for (int j = 1; j <= lags && !stop_requested(); ++j) {
    const LagStatistics s = lag_statistics(d.m, d.Qe, j);
    sum += s.RHO * s.RHO / (N - j);
    say<"(I5, F10.4, F12.4, F11.4, F12.4, F11.4, F13.4)">(j, s.RHO, se, s.RHO / se, s.LM, s.DW,
                                                          N * (N + 2.0) * sum);
  }
}

}  // namespace korvel
