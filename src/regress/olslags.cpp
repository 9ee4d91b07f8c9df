// Restricted fits: the F test on the restrictions, and the tests on lagged coefficients.

#include <cmath>

#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "regress/ols_parts.h"
#include "regress/tests.h"
#include "stats/stats.h"

namespace korvel {
namespace {

// The entries first..last of the list are the lags of one variable on one polynomial.
struct LagGroup {
  int first, last;  // places from 1
  int order, endcon;
  int lags() const { return last - first + 1; }
  // Coefficients that are free: a polynomial of that order less its end constraints.
  int free() const {
    const int ends = endcon == 3 ? 2 : (endcon > 0 ? 1 : 0);
    return std::max(1, std::min(lags(), order + 1 - ends));
  }
};

LagGroup lag_group(std::span<const ListItem> list, int first) {
  const ListItem& head = list[static_cast<std::size_t>(first - 1)];
  LagGroup g{first, first, head.order, head.endcon};
  while (g.last < std::ssize(list) - 1) {
    const ListItem& next = list[static_cast<std::size_t>(g.last)];
    if (next.var != head.var || next.order != head.order || next.endcon != head.endcon ||
        next.lag != list[static_cast<std::size_t>(g.last - 1)].lag + 1) {
      break;
    }
    ++g.last;
  }
  return g;
}

// All lags at once. On a polynomial as many of them as it has free coefficients settle the rest,
// whose covariance would be singular.
double joint_f(Workspace ws, const Estimate& est, const LagGroup& g, double* p) {
  const int q = FCOM.NQ > 0 ? g.free() : g.lags();
  const int K = est.K();
  Scratch room(ws, std::int64_t{q} * (K + 1));
  if (!room) return 0.0;
  const std::span<double> v = room.take(static_cast<std::size_t>(q));
  const std::span<double> G = room.take(static_cast<std::size_t>(q) * static_cast<std::size_t>(K));
  std::fill(G.begin(), G.end(), 0.0);
  for (int i = 0; i < q; ++i) {
    // Spread over the lags: neighbours alone would leave the test badly conditioned.
    const int place = q == 1 ? g.first : g.first + i * (g.lags() - 1) / (q - 1);
    v[static_cast<std::size_t>(i)] = est.coef[static_cast<std::size_t>(place - 1)];
    G[static_cast<std::size_t>(i * K + place - 1)] = 1.0;
  }
  const WaldTest test = wald(v, G, est.cov, K, ws);
  if (test.IFAULT != 0) return 0.0;
  const double F = test.W / q;
  *p = OLSCOM.DN ? PCHI(test.W, q) : f_tail(F, q, FCOM.DF);
  return F;
}

}  // namespace

void test_restrictions(double SSE_free, int K) {
  const auto df = static_cast<double>(std::lround(FCOM.ZZ - K));
  if (!OCOM.OPUT || df <= 0.0 || !(SSE_free > 0.0)) return;
  const int NQ = FCOM.NQ;
  const double F = (FCOM.SSE - SSE_free) / NQ / (SSE_free / df);
  const double p = f_tail(F, NQ, df);
  temporary(temporary_place("PVAL")) = p;
  say<"(' F TEST ON RESTRICTIONS=', G13.5, ' WITH', I4, ' AND', I4, ' DF  P-VALUE=', F8.5)">(
      F, NQ, static_cast<int>(df), p);
}

void print_lag_tests(Workspace ws, const Estimate& est) {
  {
    Line first, second;
    first.text("TESTS ON LAGGED COEFFICIENTS");
    second.text(" VARIABLE  SUM(COEFS)  STD ERROR T-RATIO  P-VALUE MEAN LAG JOINT-F  P-VALUE");
    OUTLINE();
  }
  for (int first = 1; first <= est.K();) {
    const ListItem& item = est.list[static_cast<std::size_t>(first - 1)];
    if (item.order == 0) {
      ++first;
      continue;
    }
    const LagGroup g = lag_group(est.list, first);
    double sum = 0.0, moment = 0.0, variance = 0.0;
    for (int i = g.first; i <= g.last; ++i) {
      const auto k = static_cast<std::size_t>(i - 1);
      sum += est.coef[k];
      moment += est.list[k].lag * est.coef[k];
      for (int j = g.first; j <= g.last; ++j) variance += est.cov[packed(i, j)];
    }
    const double se = variance > 0.0 ? std::sqrt(variance) : 0.0;
    const double t = t_ratio(sum, se);
    const double p = OLSCOM.DN ? normal_two_sided(t) : f_tail(t * t, 1.0, FCOM.DF);
    const double mean_lag = sum != 0.0 ? moment / sum : 0.0;
    double joint_p = 1.0;
    const double F = joint_f(ws, est, g, &joint_p);
    say<"(1X, A8, G13.5, 2G11.3, F6.3, ' |', F8.3, ' |', G11.3, F6.3)">(NAME(ws, item.var), sum, se,
                                                                        t, p, mean_lag, F, joint_p);
    first = g.last + 1;
  }
}

}  // namespace korvel
