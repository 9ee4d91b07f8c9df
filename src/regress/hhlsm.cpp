// HHLSM: exact tests for autocorrelation of the residuals of METHOD=HH.
#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "expr/kernels/gsreg.h"
#include "regress/hhest.h"
#include "stats/durbin_watson.h"
#include "stats/durbin_watson_ar.h"

namespace korvel {
namespace {

// Rows of weight zero tell nothing about the errors: the tests leave them aside. Moves the rest of
// the n values together.
std::int64_t close_up(double* x, const double* root, std::int64_t n) {
  if (root == nullptr) return n;
  std::int64_t kept = 0;
  for (std::int64_t t = 0; t < n; ++t) {
    if (root[t] != 0.0) x[kept++] = x[t];
  }
  return kept;
}

// Brings the largest value near 1, so that no square leaves the range. False: all are zero.
bool normalise(std::span<double> e) {
  double largest = 0.0;
  for (const double v : e) largest = std::max(largest, std::fabs(v));
  if (!(largest > 0.0)) return false;
  for (double& v : e) v /= largest;
  return true;
}

// sum (e(t) - e(before(t)))^2 / sum e(t)^2. `pairs` gets the number of differences.
double difference_ratio(std::span<const double> e, std::span<const double> before, int* pairs) {
  double change = 0.0;
  double sum = 0.0;
  *pairs = 0;
  for (std::size_t t = 0; t < e.size(); ++t) {
    sum += e[t] * e[t];
    if (before[t] < 0.0) continue;
    const double difference = e[t] - e[static_cast<std::size_t>(before[t])];
    change += difference * difference;
    ++*pairs;
  }
  return change / sum;
}

// Place of every row in time, and the gap in the same count: observation numbers with MISS, else
// the rows as they follow one another.
DifferenceRows difference_rows(Workspace ws, const double* root, std::span<double> place) {
  const OlsCom& o = OLSCOM;
  DifferenceRows rows{.order = static_cast<std::size_t>(o.ORDER)};
  KeptRows kept(ws);
  std::size_t t = 0;
  while (kept.next()) {
    if (root != nullptr && root[kept.row] == 0.0) continue;
    if (kept.obs <= o.GAP) rows.gap = o.MISS ? static_cast<std::size_t>(o.GAP) : t + 1;
    place[t] = o.MISS ? static_cast<double>(kept.obs - 1) : static_cast<double>(t);
    ++t;
  }
  rows.place = place.first(t);
  return rows;
}

void test_residuals(Workspace ws, const FitData& data, const FitRoom& room, HouseholderWork& work) {
  const OlsCom& o = OLSCOM;
  const double* root = data.x.root;
  const auto K = static_cast<std::size_t>(work.x.columns);
  // 1. Residuals as the errors are: times the root of the weight.
  gs_residuals(data.raw, room.coef, {work.y, static_cast<std::size_t>(data.rows)});
  if (root != nullptr) {
    for (std::int64_t t = 0; t < data.rows; ++t) work.y[t] *= root[t];
  }
  const auto n = static_cast<std::size_t>(close_up(work.y, root, data.rows));
  const std::span<double> e(work.y, n);
  const std::span<double> place = work.rest.first(n);
  const std::span<double> before = work.rest.subspan(n, n);
  const std::span<double> rest = work.rest.subspan(2 * n);
  // 2. The statistic. One degree of freedom leaves no choice of its value.
  const bool possible = n >= K + 2 && o.ORDER >= 1 && static_cast<std::size_t>(o.ORDER) < n;
  DifferenceRows rows;
  int pairs = 0;
  double d = 0.0;
  if (possible) {
    rows = difference_rows(ws, root, place);
    rows.partners(before);
    if (!normalise(e)) return warn(" ...WARNING..RESIDUALS ARE ALL ZERO. DWPVALUE IS LEFT OUT");
    d = difference_ratio(e, before, &pairs);
  }
  if (pairs == 0) return warn(" ...WARNING..INSUFFICIENT DEGREES OF FREEDOM FOR DWPVALUE");
  if (o.INDW != 0.0) d = o.INDW;
  // 3. Its distribution, from an orthonormal basis of the regressors.
  hh_columns(work.x);
  for (int j = 0; j < work.x.columns; ++j) close_up(work.x.column(j), root, data.rows);
  const auto ld = static_cast<std::size_t>(work.x.ld);
  const DurbinWatsonTails tails =
      o.RHO != 0.0
          ? durbin_watson_ar(work.x.a, n, K, ld, d, rows,
                             {.rho = o.RHO, .missing = static_cast<std::size_t>(o.NMISS)}, rest)
          : durbin_watson_tails({work.x.a, ld * K}, n, K, ld, d, rows, rest, stop_requested);
  if (tails.IFAULT == 4) return;
  if (tails.IFAULT != 0) warn(" ...WARNING..REQUESTED ACCURACY COULD NOT BE OBTAINED");
  temporary(temporary_place("PVAL")) = tails.positive;
  if (!OCOM.OPUT) return;
  if (o.ORDER == 1) {
    say<"(' DURBIN-WATSON STATISTIC  =', F9.5)">(d);
  } else {
    say<"(' DURBIN-WATSON STATISTIC FOR', I4, ' GAP -  =', F9.5)">(o.ORDER, d);
  }
  Line positive;
  positive.put<"(' DURBIN-WATSON POSITIVE AUTOCORRELATION TEST P-VALUE =', F9.6)">(tails.positive);
  Line negative;
  negative.put<"(14X, ' NEGATIVE AUTOCORRELATION TEST P-VALUE =', F9.6)">(tails.negative);
  OUTLINE();
}

// LUSH: linear unbiased residuals with scalar covariance, by Householder (Grossman and Styan 1972,
// JASA 67, 672-673). With X = Q (R; 0), the last N-K elements u of Q'y are free of b and have the
// covariance sigma^2 I.
void test_lush(const FitData& data, HouseholderWork& work) {
  const double* root = data.x.root;
  load_householder(data.x, work);
  std::int64_t n = data.rows;
  for (int j = 0; j <= work.x.columns; ++j) {
    n = close_up(work.x.a + work.x.ld * j, root, data.rows);
  }
  const int K = work.x.columns;
  if (n - K < 2) return warn(" ...WARNING..INSUFFICIENT DEGREES OF FREEDOM FOR PLUSH");
  work.x.rows = n;
  HHDCMP(work.x);
  hh_transpose(work.x, work.y);
  const std::span<double> u(work.y + K, static_cast<std::size_t>(n - K));
  if (!OCOM.OPUT) return;
  say(" LUSH RESIDUALS");
  const std::size_t a_line = OSCOM.OWIDE ? 8 : 5;
  for (std::size_t k = 0; k < u.size(); k += a_line) {
    Line row;
    row.put<"(1X)">();
    for (std::size_t i = k; i < std::min(k + a_line, u.size()); ++i) row.put<"(G13.5)">(u[i]);
    OUTLINE();
    if (stop_requested()) return;
  }
  if (!normalise(u)) return;
  const DifferenceRows rows;
  const std::span<double> before = work.rest.first(u.size());
  rows.partners(before);
  int pairs = 0;
  const double d = difference_ratio(u, before, &pairs);
  const auto left = static_cast<double>(u.size());
  // Without regressors the exact distribution is that of the roots 2 - 2 cos(pi j / (N-K)).
  const DurbinWatsonTails tails =
      durbin_watson_tails({}, u.size(), 0, 0, d, rows, work.rest.subspan(u.size()), stop_requested);
  if (tails.IFAULT == 4) return;
  if (tails.IFAULT != 0) warn(" ...WARNING..REQUESTED ACCURACY COULD NOT BE OBTAINED");
  say<"(' MODIFIED VON-NEUMANN RATIO ON LUSH RESIDUALS =', F9.5)">(d * left / (left - 1.0));
  say<"(' DURBIN-WATSON LUSH STATISTIC =', F9.5)">(d);
  say<"(' DURBIN-WATSON LUSH P-VALUE =', F9.6)">(tails.positive);
}

}  // namespace

void HHLSM(Workspace ws, const FitData& data, const FitRoom& room, HouseholderWork& work) {
  const Trace trace("HHLSM");
  if (OLSCOM.DWPVALUE) test_residuals(ws, data, room, work);
  if (OLSCOM.PLUSH && !stop_requested()) test_lush(data, work);
}

}  // namespace korvel
