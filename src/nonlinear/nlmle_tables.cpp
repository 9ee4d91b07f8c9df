// Results of MLE: the fitted values, the table through the results stage, variables that keep
// results.

#include <algorithm>
#include <cmath>
#include <vector>

#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "nonlinear/nlmle_parts.h"
#include "nonlinear/nonlinear.h"
#include "regress/ols_parts.h"
#include "regress/tests.h"

namespace korvel {
namespace {

constexpr ResultProfile MLE_PROFILE{.word = "MLE", .f_test = false, .own_fit = true};

double square(double v) { return v * v; }

// Weighted sums over the fit.
struct FitSums {
  double SSE = 0.0, e = 0.0, correlation = 0.0;
};

// The likelihood of EDGE has no upper bound: with large cumulants the series can be high at all
// rows and negative between them, which is no density.
void warn_no_density(const MleModel& m) {
  const std::span<const double> s = m.shape();
  const auto [least, most] = std::ranges::minmax(m.residual);
  constexpr int steps = 1000;
  for (int i = 0; i <= steps; ++i) {
    const double w = (least + (most - least) * i / steps) / s[0];
    if (edgeworth_series(w, s[1], s[2]) >= 0.0) continue;
    return warn(" ...WARNING..NO DENSITY: IT IS NEGATIVE WITHIN THE RANGE OF THE RESIDUALS");
  }
}

// Fills fitted and residual.
FitSums fit_rows(MleModel& m) {
  FitSums sums;
  const double ybar = m.means.back();
  double W = 0.0, f1 = 0.0, f2 = 0.0, fy = 0.0, y1 = 0.0, y2 = 0.0;
  for (std::size_t t = 0; t < m.fitted.size(); ++t) {
    const MleIndexes index = mle_indexes(m, t);
    const double mean = mle_moments(m.family->type, index.z, index.z2, m.shape()).mean;
    const double w = m.rows.weight_at(t), y = m.rows.y[t] - ybar, f = mean - ybar;
    m.fitted[t] = mean;
    m.residual[t] = m.rows.y[t] - mean;
    sums.SSE += w * square(m.residual[t]);
    sums.e += w * m.residual[t];
    W += w;
    f1 += w * f;
    f2 += w * f * f;
    y1 += w * y;
    y2 += w * y * y;
    fy += w * f * y;
  }
  const double cross = fy - f1 * y1 / W;
  const double spread = f2 - f1 * f1 / W;
  // A fit that does not vary correlates with nothing; what is left of its spread is rounding.
  if (spread > 1e-24 * W * square(ybar) && y2 > 0.0) {
    sums.correlation = std::min(1.0, cross * cross / (spread * (y2 - y1 * y1 / W)));
  }
  return sums;
}

// COR= and STDRESID=.
void store_correlations(Workspace ws, const MleModel& m) {
  const NameOption& option = NLCOM.COR;
  if (option.text.empty() || OCOM.ODONT) return;
  const int M = m.M();
  const auto words = static_cast<std::int64_t>(packed_words(M));
  const int var = NEWVAR(ws, option.typed, {.ITYPE = SYMMETRIC, .LEN = words, .N2 = M});
  if (var == 0) return;
  const std::span<double> to = elements(ws, var);
  for (int i = 1; i <= M; ++i) {
    for (int j = 1; j <= i; ++j) {
      const double scale = std::sqrt(m.cov[packed(i, i)] * m.cov[packed(j, j)]);
      to[packed(i, j)] = scale > 0.0 ? m.cov[packed(i, j)] / scale : MACOM.XMISS;
    }
  }
}

// By rows: residuals over the standard deviation of the law, the missing code without one.
void standard_residuals(const MleModel& m, std::span<double> to) {
  for (std::size_t t = 0; t < to.size(); ++t) {
    const MleIndexes index = mle_indexes(m, t);
    const double v = mle_moments(m.family->type, index.z, index.z2, m.shape()).variance;
    to[t] = v > 0.0 && std::isfinite(v) ? m.residual[t] / std::sqrt(v) : MACOM.XMISS;
  }
}

void store_standard_residuals(Workspace ws, std::span<const double> rows) {
  const NameOption& option = NLCOM.STDRESID;
  if (option.text.empty() || OCOM.ODONT) return;
  const int var = NEWVAR(ws, option.typed, {.ITYPE = SERIES, .LEN = DATCOM.MEND});
  if (var == 0) return;
  const std::span<double> to = elements(ws, var);
  std::fill_n(to.begin(), std::min<std::size_t>(to.size(), static_cast<std::size_t>(DATCOM.MEND)),
              MACOM.XMISS);
  KeptRows kept(ws);
  while (kept.next()) {
    to[static_cast<std::size_t>(kept.obs) - 1] = rows[static_cast<std::size_t>(kept.row)];
  }
}

}  // namespace

std::string_view mle_name(Workspace ws, const MleModel& m, int i) {
  const int shapes = m.family->shapes;
  const int behind = i - (m.M() - shapes);
  if (behind >= 0) return m.family->names[static_cast<std::size_t>(behind)];
  return NAME(ws, m.list[static_cast<std::size_t>(i % m.K())].var);
}

void tell_shapes(Workspace ws, const MleModel& m) {
  if (!OCOM.OPUT) return;
  const MleFamily& f = *m.family;
  if (f.both) {
    Line row;
    row.put<"(' SHAPE PARAMETER IS LISTED BELOW AS COEFFICIENT ON ', A, ':2')">(mle_name(ws, m, 0));
    if (m.K() > 1) row.put<"(' TO ', A, ':2')">(mle_name(ws, m, m.K() - 1));
    OUTLINE();
  }
  if (f.shapes == 0) return;
  Line row;
  if (f.type == MleType::STABLE)
    row.text(" STABILITY PARAMETERS ARE LISTED AS COEFS ON ");
  else if (f.type == MleType::GG)
    row.text(" GAMMA AND WEIBULL PARAMETERS ARE LISTED AS COEFS ON ");
  else
    row.text(" SHAPE PARAMETER IS LISTED BELOW AS COEFFICIENT ON ");
  // The gamma parameter is named first.
  for (int j = 0; j < f.shapes; ++j) {
    const int at = f.type == MleType::GG ? f.shapes - 1 - j : j;
    if (j > 0) row.text(j == f.shapes - 1 ? " AND " : ", ");
    row.text(f.names[static_cast<std::size_t>(at)]);
  }
  OUTLINE();
}

void mle_results(Workspace ws, MleModel& m) {
  const MleFamily& family = *m.family;
  // 1. Fitted values, and what the results stage takes from FCOM.
  const FitSums sums = fit_rows(m);
  FCOM.ZZ = m.N;
  FCOM.SSE = sums.SSE;
  FCOM.SST = m.squares.back();
  FCOM.RAW = FCOM.SST + square(m.means.back()) * m.N;
  FCOM.RSQR = sums.correlation;
  FCOM.XMAXL = m.LLF;
  FCOM.SEPLOT = std::sqrt(FCOM.SSE / FCOM.ZZ);
  // 2. The list: coefficients behind the regressors have a name and no variable.
  static std::vector<ListItem> list;  // grows to the largest model of the run
  list.assign(m.list.begin(), m.list.end() - 1);
  for (int i = m.K(); i < m.M(); ++i) list.push_back(ListItem{.name = mle_name(ws, m, i)});
  list.push_back(m.list.back());
  Estimate est{.profile = &MLE_PROFILE,
               .list = list,
               .coef = m.b,
               .cov = m.cov,
               .means = m.means,
               .squares = m.squares,
               .observed = {m.rows.y, m.fitted.size()},
               .residual = m.residual};
  OLSOUT(ws, est);
  if (OCOM.ODONT) return;
  temporary(temporary_place("R2OP")) = sums.correlation;
  // 3. What the families add.
  if (OCOM.OPUT) {
    if (family.type == MleType::EDGE) {
      warn_no_density(m);
      const std::span<const double> s = m.shape();
      say<"(' K*THIRD=', G13.5, ' K*FOURTH=', G13.5)">(square(s[0]) * s[0] * s[1],
                                                       square(square(s[0])) * s[2]);
    }
    if (family.count()) print_poisson(m);
    if (family.beta()) print_beta(ws, m);
    say<"(1X, 'RESIDUAL  SSE SUME SST', 3G13.5)">(sums.SSE, sums.e, FCOM.SST);
    say<"(' SQUARED CORR. COEF. BETWEEN OBSERVED AND PREDICTED', F9.4)">(sums.correlation);
  }
  // 4. Stored results, the estimate for TEST, CONFID and SAME. A result may take the place of a
  // variable of the model: what is computed from those comes before.
  if (NLCOM.LM) mle_tests(ws, m);
  Scratch room(ws, NLCOM.STDRESID.text.empty() ? 0 : m.rows.rows);
  if (!room) return;
  standard_residuals(m, room.words());
  store_results(ws, est, {});
  store_correlations(ws, m);
  store_standard_residuals(ws, room.words());
  if (OCOM.ODONT) return;
  save_estimate(ws, est);
  SAVED.index_coefs = m.K();
  SAVED.second_index = m.family->both;
  SAVED.family = static_cast<int>(m.family->type);
}

}  // namespace korvel
