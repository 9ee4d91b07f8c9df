// Correlogram, normality and stability of the coefficients.

#include <algorithm>
#include <numbers>

#include "expr/kernels/cholesky.h"
#include "expr/kernels/packed.h"
#include "expr/kernels/vector_lanes.h"
#include "regress/diagnos.h"
#include "stats/probability.h"

namespace korvel {
namespace {

// Logarithm of the normal distribution function. Far out the function itself is held at 1e-78; the
// asymptotic series (Abramowitz and Stegun 26.2.12) has 12 digits there.
double log_normal_cdf(double z) {
  constexpr double far = -15.0;
  if (z >= far) return std::log(normal_cdf(z));
  const double i = 1.0 / (z * z);
  const double series = 1.0 - i * (1.0 - i * (3.0 - i * (15.0 - i * 105.0)));
  return -0.5 * z * z - std::log(-z) - 0.5 * std::log(2.0 * std::numbers::pi) + std::log(series);
}

}  // namespace

LagStatistics lag_statistics(const DiagnosModel& m, std::span<const double> Qe, int j) {
  const VectorLanes& lanes = vector_lanes();
  const std::ptrdiff_t n = m.N - j;
  const double* e = m.e.data();
  const double* late = e + j;
  const double SSE = lanes.dot(e, e, m.N);
  LagStatistics s;
  const double cross = lanes.dot(late, e, n);
  double change = 0.0;
  for (std::ptrdiff_t t = 0; t < n; ++t) change += (late[t] - e[t]) * (late[t] - e[t]);
  s.RHO = cross / SSE;
  s.DW = change / SSE;
  // z = e(t-j): what X leaves of it, and of its product with e.
  double zz = lanes.dot(e, e, n);
  const double whole = zz;
  double ze = cross;
  double explained = 0.0;
  for (int k = 0; k < m.K; ++k) {
    const double part = lanes.dot(m.q.column(k).data() + j, e, n);
    const double own = Qe[static_cast<std::size_t>(k)];
    zz -= part * part;
    ze -= part * own;
    explained += own * own;
  }
  constexpr double dependent = 1e-12;  // z is a combination of X: its share is rounding
  if (zz > dependent * whole) explained += ze * ze / zz;
  s.LM = std::copysign(std::sqrt(static_cast<double>(m.N) * explained / SSE), s.RHO);
  return s;
}

double anderson_darling(std::span<double> e) {
  const auto N = static_cast<double>(e.size());
  std::ranges::sort(e);
  double mean = 0.0, squares = 0.0;
  for (const double v : e) mean += v;
  mean /= N;
  for (const double v : e) squares += (v - mean) * (v - mean);
  const double s = std::sqrt(squares / (N - 1.0));
  for (double& v : e) v = (v - mean) / s;
  double sum = 0.0;
  for (std::size_t i = 0; i < e.size(); ++i) {
    const double weight = 2.0 * static_cast<double>(i) + 1.0;
    sum += weight * (log_normal_cdf(e[i]) + log_normal_cdf(-e[e.size() - 1 - i]));
  }
  return (-N - sum / N) * (1.0 + 0.75 / N + 2.25 / (N * N));
}

HansenTest hansen_test(const DiagnosModel& m, std::span<double> work, std::span<double> single) {
  const int P = m.K + 1;
  const auto K = static_cast<std::size_t>(m.K);
  const auto N = static_cast<double>(m.N);
  const std::span<double> V = work.first(packed_words(P));
  work = work.subspan(V.size());
  const std::span<double> f = work.first(K + 1);                   // one row of the scores
  const std::span<double> S = work.subspan(K + 1, K + 1);          // their running sums
  const std::span<double> own = work.subspan(2 * (K + 1), K + 1);  // V(i,i) of the regressors
  const std::span<double> u = work.subspan(3 * (K + 1), K + 1);
  const double variance = vector_lanes().dot(m.e.data(), m.e.data(), m.N) / N;
  // The joint statistic is the same for any basis of the regressors: the orthonormal one keeps V
  // well conditioned.
  const auto score = [&](std::size_t t, bool basis) {
    const double e = m.e[t];
    for (int k = 0; k < m.K; ++k) {
      const double x = basis ? m.q.column(k)[t] : m.at(k, static_cast<std::int64_t>(t));
      f[static_cast<std::size_t>(k)] = x * e;
    }
    f[K] = e * e - variance;
  };
  const auto rows = static_cast<std::size_t>(m.N);
  // 1. Single statistics: sum of S(i,t)^2 / (N V(i,i)).
  std::ranges::fill(S, 0.0);
  std::ranges::fill(own, 0.0);
  std::ranges::fill(single, 0.0);
  for (std::size_t t = 0; t < rows; ++t) {
    score(t, false);
    for (std::size_t i = 0; i <= K; ++i) {
      S[i] += f[i];
      own[i] += f[i] * f[i];
      single[i] += S[i] * S[i];
    }
  }
  for (std::size_t i = 0; i <= K; ++i) single[i] = own[i] > 0.0 ? single[i] / (N * own[i]) : 0.0;
  // 2. V in the orthonormal basis, its factor, and the sum of S'V^-1 S.
  std::ranges::fill(V, 0.0);
  for (std::size_t t = 0; t < rows; ++t) {
    score(t, true);
    std::size_t at = 0;
    for (std::size_t i = 0; i <= K; ++i) {
      for (std::size_t j = 0; j <= i; ++j) V[at++] += f[i] * f[j];
    }
  }
  HansenTest test{.IFAULT = cholesky_factor(V, P)};
  if (test.IFAULT != 0) return test;
  std::ranges::fill(S, 0.0);
  for (std::size_t t = 0; t < rows; ++t) {
    score(t, true);
    for (std::size_t i = 0; i <= K; ++i) S[i] += f[i];
    for (int i = 1; i <= P; ++i) {
      double v = S[static_cast<std::size_t>(i - 1)];
      for (int k = 1; k < i; ++k) v -= V[packed(i, k)] * u[static_cast<std::size_t>(k - 1)];
      v *= V[packed(i, i)];  // the diagonal holds reciprocals
      u[static_cast<std::size_t>(i - 1)] = v;
      test.joint += v * v;
    }
  }
  test.joint /= N;
  return test;
}

}  // namespace korvel
