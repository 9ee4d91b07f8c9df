// Tables of an estimated ARIMA model, its residuals, and the variables that keep results.
#include <cmath>
#include <vector>

#include "arima/bj.h"
#include "expr/kernels/packed.h"
#include "stats/probability.h"

namespace korvel {
namespace {

double standard_error(const BjEstimate& est, int i) {
  const double v = est.cov[packed(i + 1, i + 1)];
  return v > 0.0 ? std::sqrt(v) : 0.0;
}

double t_ratio(const BjEstimate& est, int i) {
  const double se = standard_error(est, i);
  return se > 0.0 ? est.b[static_cast<std::size_t>(i)] / se : 0.0;
}

void print_summary(const BjEstimate& est) {
  const double M = est.S / est.n;
  const Line blank;
  Line a, b, c, d, e;
  a.put<"('  R-SQUARE =', F9.4, 4X, ' R-SQUARE ADJUSTED =', F9.4)">(
      temporary(temporary_place("R2")), temporary(temporary_place("ADR2")));
  b.put<"(' VARIANCE OF THE ESTIMATE-SIGMA**2 =', G13.5)">(est.sigma2);
  c.put<"(' STANDARD ERROR OF THE ESTIMATE-SIGMA =', G13.5)">(std::sqrt(est.sigma2));
  d.put<"(' AKAIKE INFORMATION CRITERIA -AIC(K) =', G13.5)">(std::log(M) + 2.0 * est.k / est.n);
  e.put<"(' SCHWARZ CRITERIA- SC(K) =', G13.5)">(
      std::log(M) + est.k * std::log(static_cast<double>(est.n)) / est.n);
  OUTLINE();
}

// The layout of the table of the other estimators.
void print_anova(const BjEstimate& est) {
  const double SST = est.moments.variance * est.n;
  const double SSR = SST - est.S;
  const double p = est.k - (BJCOM.orders.constant ? 1.0 : 0.0);
  const double DF = est.n - est.k;
  const double MSR = p > 0.0 ? SSR / p : 0.0;
  const double MSE = est.S / DF;
  const double F = MSE > 0.0 ? MSR / MSE : 0.0;
  Line head, names, regression, error, total;
  head.put<"(24X, 'ANALYSIS OF VARIANCE - FROM MEAN')">();
  names.put<"(23X, 'SS', 9X, 'DF', 13X, 'MS', 17X, 'F')">();
  regression.put<"(' REGRESSION ', G17.5, F8.0, G18.5, F18.3)">(SSR, p, MSR, F);
  error.put<"(' ERROR      ', G17.5, F8.0, G18.5, 11X, 'P-VALUE')">(est.S, DF, MSE);
  total.put<"(' TOTAL      ', G17.5, F8.0, G18.5, F18.3)">(SST, est.n - 1.0, SST / (est.n - 1.0),
                                                           f_tail(F, p, DF));
  OUTLINE();
}

// Columns: 10-17 name, 22-36 estimate, 41-53 standard error, 57-69 t.
void print_parameters(const BjEstimate& est) {
  const BjOrders& o = BJCOM.orders;
  {
    const Line blank;
    Line head;
    head.put<"(20X, 'PARAMETER ESTIMATES', 6X, 'STD ERROR', 9X, 'T-STAT')">();
    OUTLINE();
  }
  for (int i = 0; i < o.parameters(); ++i) {
    if (!est.estimated(i)) continue;
    Line row;
    row.put<"(9X, A8, 4X, G15.5, 4X, G13.5, 3X, G13.5)">(parameter_name(o, i),
                                                         est.b[static_cast<std::size_t>(i)],
                                                         standard_error(est, i), t_ratio(est, i));
    OUTLINE();
  }
}

// The parameters that were estimated, by their places.
std::vector<int> estimated_places(const BjEstimate& est) {
  std::vector<int> places;
  for (int i = 0; i < BJCOM.orders.parameters(); ++i) {
    if (est.estimated(i)) places.push_back(i);
  }
  return places;
}

}  // namespace

void print_estimate(const BjEstimate& est) {
  print_summary(est);
  if (BJCOM.ANOVA) print_anova(est);
  print_parameters(est);
  const std::vector<int> place = estimated_places(est);
  const int K = static_cast<int>(place.size());
  const auto at = [&](int i) { return place[static_cast<std::size_t>(i)]; };
  const auto name = [&](int i) { return parameter_name(BJCOM.orders, at(i)); };
  const auto covariance = [&](int i, int j) {
    return est.cov[packed(at(i - 1) + 1, at(j - 1) + 1)];
  };
  if (BJCOM.PCOV) {
    say(" VARIANCE-COVARIANCE MATRIX OF COEFFICIENTS");
    print_triangle<"(G13.5)", "(5X, A8)">(K, BJCOM.WIDE ? 8 : 5, name, covariance);
  }
  if (BJCOM.PCOR) {
    say(" CORRELATION MATRIX OF COEFFICIENTS");
    print_triangle<"(F9.4)", "(1X, A8)">(K, BJCOM.WIDE ? 12 : 7, name, [&](int i, int j) {
      const double product = standard_error(est, at(i - 1)) * standard_error(est, at(j - 1));
      return product > 0.0 ? covariance(i, j) / product : 0.0;
    });
  }
}

// room: n words for the centred residuals, then three vectors of NLAG.
void examine_residuals(Workspace ws, const BjEstimate& est, std::span<double> room) {
  const BjCom& o = BJCOM;
  const bool print = OCOM.OPUT;
  const int first_obs = DATCOM.MBEG + static_cast<int>(o.orders.lost());
  const std::size_t n = est.e.size();
  const auto nlag = static_cast<std::size_t>(o.NLAG);
  const bool wanted = (print && (o.TABLE || o.PLOTRES)) || o.GRAPHRES || !o.TESTSTAT.text.empty() ||
                      !o.ACF.text.empty();
  if (!wanted) return;
  const std::span<double> centred = room.first(n), r = room.subspan(n, nlag);
  const std::span<double> errors = room.subspan(n + nlag, nlag);
  const std::span<double> Q = room.subspan(n + 2 * nlag, nlag);
  std::copy(est.e.begin(), est.e.end(), centred.begin());
  const SeriesMoments moments = series_moments(est.e);
  autocorrelations(centred, moments, r);
  bartlett_errors(r, est.n, errors);
  ljung_box(r, est.n, Q);
  if (print && o.DUMP) BJEPLT(" RESIDUALS", est.e, first_obs);
  if (print && o.TABLE) {
    const Line blank;
    Line title;
    title.put<"(30X, 'RESIDUALS')">();
    OUTLINE();
    BJISER("AUTOCORRELATIONS", r, errors);
    print_ljung_box(Q, est.k);
    constexpr int most_cross = 12;
    BJECRO(est.w, est.e, std::min({most_cross, o.NLAG, est.n - 1}));
  }
  for (double& e : errors) e *= 2.0;
  if (print && o.PLOTRES) {
    if (!o.DUMP) BJEPLT(" RESIDUALS", est.e, first_obs);
    BJIPLA(" AUTOCORRELATION FUNCTION OF THE RESIDUALS", r, errors);
  }
  if (o.GRAPHRES && !(plot_series("RESIDUALS", est.e, first_obs) &&
                      plot_correlations("AUTOCORRELATION FUNCTION OF THE RESIDUALS", r, errors))) {
    return;
  }
  if (est.k < o.NLAG) store_vector(ws, o.TESTSTAT, Q.subspan(static_cast<std::size_t>(est.k)));
  // Identification and forecasts have autocorrelations of their own to keep.
  if (!o.IDENTIFY && !o.FORECAST) store_vector(ws, o.ACF, r);
}

void store_estimate(Workspace ws, const BjSeries& series, const BjEstimate& est) {
  const BjCom& o = BJCOM;
  const int k = o.orders.parameters();
  const auto lost = static_cast<int>(o.orders.lost());
  // Residuals stand at their own observations; a forecast needs the name PREDICT= for itself.
  const auto store_rows = [&](const NameOption& option, bool fitted) {
    const std::span<double> to = store_series(ws, option, DATCOM.MEND);
    if (to.empty()) return;
    for (BjRows rows(ws); rows.next();) {
      if (rows.row < lost) continue;
      const double e = est.e[static_cast<std::size_t>(rows.row - lost)];
      to[static_cast<std::size_t>(rows.obs - 1)] =
          fitted ? series.y[static_cast<std::size_t>(rows.row)] - e : e;
    }
  };
  store_rows(o.RESIDUAL, false);
  if (!o.FORECAST) store_rows(o.PREDICT, true);
  std::array<double, MAXBJ> values{};
  const std::span<double> used = head(std::span<double>(values), k);
  store_vector(ws, o.COEFFICI, est.b);
  for (int i = 0; i < k; ++i) values[static_cast<std::size_t>(i)] = standard_error(est, i);
  store_vector(ws, o.STDERR, used);
  for (int i = 0; i < k; ++i) values[static_cast<std::size_t>(i)] = t_ratio(est, i);
  store_vector(ws, o.TRATIO, used);
  store_symmetric(ws, o.COVARIAN, est.cov, k);
}

}  // namespace korvel
