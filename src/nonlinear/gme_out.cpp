// What GME prints and stores. Covariance of the coefficients: Mittelhammer and Cardell (1997), as
// of an M-estimator whose score of an error is its multiplier: (q/c^2)(X'X)^-1, q the mean of the
// squared multipliers, c that of their slopes 1/Var(v).

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "nonlinear/gme.h"
#include "nonlinear/nonlinear.h"
#include "nonlinear/row_qr.h"
#include "regress/ols_parts.h"
#include "regress/tests.h"

namespace korvel {
namespace {

constexpr ResultProfile GME_PROFILE{
    .word = "GME", .likelihood = false, .likelihood_line = false, .anova = false, .f_test = false};
constexpr double LOST = 1e-13;  // diagonal of R against its column: less is no independent column

// cov := (X'X)^-1 by the triangle of X; y rides along as the right side. False when a column is a
// combination of others.
bool inverse_moments(const GmeModel& m, std::span<double> cov, std::span<double> work) {
  const int K = m.K;
  const std::span<double> R = work.first(triangle_words(K));
  factor_rows(R, m.column, m.T, work.subspan(R.size()));
  const auto at = [&](int i, int j) -> double& {
    return R[static_cast<std::size_t>(j) * static_cast<std::size_t>(K) +
             static_cast<std::size_t>(i)];
  };
  for (int j = 0; j < K; ++j) {
    double norm2 = 0.0;
    for (int i = 0; i <= j; ++i) norm2 += at(i, j) * at(i, j);
    if (!(std::fabs(at(j, j)) > LOST * std::sqrt(norm2))) return false;
  }
  // R := R^-1, last column first: column j needs the rows of R above it as they were, and they are
  // turned from the bottom. Then R^-1 R^-T.
  for (int j = K - 1; j >= 0; --j) {
    const double pivot = at(j, j);
    for (int i = j - 1; i >= 0; --i) {
      double sum = at(i, j) / pivot;
      for (int k = i + 1; k < j; ++k) sum += at(i, k) * at(k, j);
      at(i, j) = -sum / at(i, i);
    }
    at(j, j) = 1.0 / pivot;
  }
  for (int i = 0; i < K; ++i) {
    for (int j = 0; j <= i; ++j) {
      double sum = 0.0;
      for (int k = i; k < K; ++k) sum += at(i, k) * at(j, k);
      cov[packed(i + 1, j + 1)] = sum;
    }
  }
  return true;
}

void make_covariance(const GmeModel& m, std::span<double> cov, std::span<double> work) {
  if (!inverse_moments(m, cov, work)) {
    warn(" ...WARNING..COVARIANCE MATRIX AND STD ERRORS  ARE INCORRECT");
    std::ranges::fill(cov, 0.0);
    return;
  }
  double q = 0.0, c = 0.0;
  for (std::size_t t = 0; t < m.lambda.size(); ++t) {
    q += m.lambda[t] * m.lambda[t] / m.T;
    c += 1.0 / m.spread[t] / m.T;
  }
  for (double& v : cov) v *= q / (c * c);
}

// Means of all columns and sums of squares about them.
void make_moments(const GmeModel& m, std::span<double> means, std::span<double> squares) {
  for (std::size_t c = 0; c < m.column.size(); ++c) {
    const std::span<const double> x(m.column[c], static_cast<std::size_t>(m.T));
    double sum = 0.0, square = 0.0;
    for (const double v : x) sum += v;
    means[c] = sum / m.T;
    for (const double v : x) square += (v - means[c]) * (v - means[c]);
    squares[c] = square;
  }
}

void print_entropies(Workspace ws, const GmeModel& m, const Estimate& est) {
  const Line blank;
  OUTLINE();
  for (std::size_t k = 0; k < m.b.size(); ++k) {
    say<"(' NORMALIZED ENTROPY FOR COEFFICIENT ', A8, ' =', F9.5, '   SIGMAZ FOR K=', I4, ' =', "
        "G13.5)">(NAME(ws, est.list[k].var), m.entropy[k], static_cast<int>(k) + 1, m.variance[k]);
  }
  say<"(' NORMALIZED ENTROPY FOR P=', F9.5)">(m.P_entropy);
  say<"(' NORMALIZED ENTROPY FOR W=', F9.5)">(m.W_entropy);
}

// COR= and SIGMAZ=, which the other estimators don't have.
void store_own(Workspace ws, const GmeModel& m, const Estimate& est) {
  if (!NLCOM.COR.text.empty() && !OCOM.ODONT) {
    const auto words = static_cast<std::int64_t>(packed_words(m.K));
    const int var = make_result(ws, NLCOM.COR, SYMMETRIC, words, m.K);
    if (var == 0) return;
    const std::span<double> to = elements(ws, var);
    for (int i = 1; i <= m.K; ++i) {
      for (int j = 1; j <= i; ++j) {
        const double product = standard_error(est, i - 1) * standard_error(est, j - 1);
        to[packed(i, j)] = i == j ? 1.0 : product > 0.0 ? est.cov[packed(i, j)] / product : 0.0;
      }
    }
  }
  store_vector(ws, NLCOM.SIGMAZ, m.variance);
}

}  // namespace

std::int64_t gme_out_words(int T, int K) {
  return T + static_cast<std::int64_t>(packed_words(K) + triangle_words(K)) + factor_words(K) +
         std::int64_t{2} * (K + 1);
}

void gme_results(Workspace ws, GmeModel& m, std::span<double> work) {
  const auto K = static_cast<std::size_t>(m.K), T = static_cast<std::size_t>(m.T);
  // 1. Residuals, moments, covariance.
  const std::span<double> residual = work.first(T);
  const std::span<double> means = work.subspan(T, K + 1), squares = work.subspan(T + K + 1, K + 1);
  const std::span<double> cov = work.subspan(T + 2 * K + 2, packed_words(m.K));
  make_moments(m, means, squares);
  make_covariance(m, cov, work.subspan(T + 2 * K + 2 + cov.size()));
  double SSE = 0.0;
  for (std::size_t t = 0; t < T; ++t) {
    double fitted = 0.0;
    for (std::size_t k = 0; k < K; ++k) fitted += m.column[k][t] * m.b[k];
    residual[t] = m.y()[t] - fitted;
    SSE += residual[t] * residual[t];
  }
  gme_entropies(m);
  // 2. The results stage.
  FCOM.ZZ = FCOM.SWT = m.T;
  FCOM.SSE = SSE;
  FCOM.SST = squares.back();
  FCOM.RAW = FCOM.SST + means.back() * means.back() * m.T;
  FCOM.DF = OLSCOM.DN ? m.T : m.T - m.K;
  FCOM.SEPLOT = FCOM.DF > 0.0 ? std::sqrt(SSE / FCOM.DF) : 1.0;
  FCOM.NQ = 0;
  FCOM.XMAXL = 0.0;
  OLSCOM.MULSIGSQ = false;  // the covariance has its scale
  Estimate est{.profile = &GME_PROFILE,
               .list = model_list().first(K + 1),
               .coef = m.b,
               .cov = cov,
               .means = means,
               .squares = squares,
               .observed = {m.y(), T},
               .residual = residual};
  OLSOUT(ws, est);
  if (OCOM.OPUT) print_entropies(ws, m, est);
  // 3. Variables, and the estimate for TEST and its like.
  store_results(ws, est, {});
  store_own(ws, m, est);
  if (!OCOM.ODONT) save_estimate(ws, est);
}

}  // namespace korvel
