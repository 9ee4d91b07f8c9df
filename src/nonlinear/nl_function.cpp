// FUNCNL: what NLINEAR minimises, and its gradient, in each of its forms.
//
//   Squares     (1 + ln 2 pi + ln(e'e/N)) / 2, which is -L/N
//   System      M (1 + ln 2 pi) / 2 + ln|E'E/N| / 2, -L/N as well (Barnett 1976; Gallant 1975)
//   Moments     m'C m with m = sum of z (x) e (Amemiya 1974; Hansen 1982)
//   functions   sums of the equation's values, or of their logarithms
// With NONORMAL the first two are -L. Weights multiply the contribution of each row.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "expr/kernels/cholesky.h"
#include "expr/kernels/packed.h"
#include "expr/kernels/vector_lanes.h"
#include "nonlinear/nl_parts.h"
#include "nonlinear/nl_squares.h"
#include "platform/progress.h"

namespace korvel {
namespace {

// A sum of squares of a perfect fit: its logarithm must stay a number.
constexpr double LEAST_SSE = 1e-300;

double dot(const double* x, const double* y, std::int64_t n) {
  return vector_lanes().dot(x, y, static_cast<std::ptrdiff_t>(n));
}

// The rows of equation j times their weights; the rows themselves without weights.
const double* weighted_rows(NlModel& m, int j) {
  const auto at = static_cast<std::size_t>(j);
  if (m.weight == nullptr) return m.e[at];
  const auto n = static_cast<std::size_t>(m.used());
  double* const to = &m.weighted[at * n];
  const double* const w = m.weight + m.p;
  for (std::size_t t = 0; t < n; ++t) to[t] = w[t] * m.e[at][t];
  return to;
}

// gradient_k := factor times the sum over equations of D_jk'v_j.
void gradient_of(const NlModel& m, double factor, std::span<const double* const> v,
                 std::span<double> gradient) {
  const auto K = static_cast<std::size_t>(m.K);
  for (std::size_t k = 0; k < K; ++k) {
    double sum = 0.0;
    for (std::size_t j = 0; j < v.size(); ++j) {
      const double* const D = m.D[j * K + k];
      if (D != nullptr) sum += dot(D, v[j], m.used());
    }
    gradient[k] = factor * sum;
  }
}

struct Sum {
  double f = 0.0;
  bool good = true;
};

Sum squares(NlModel& m, std::span<const double> b, std::span<double> gradient) {
  const double factor = NLCOM.NORMALIZ ? 1.0 : m.N;
  double SSE = 0.0;
  if (streams(m)) {
    m.SSE = stream_squares(m, b, gradient, fault_listener(m));
    SSE = std::max(m.SSE, LEAST_SSE);
    for (double& g : gradient) g *= factor / SSE;
  } else {
    NLPASS(m, b, !gradient.empty(), false);
    const double* const we = weighted_rows(m, 0);
    m.SSE = dot(m.e[0], we, m.used());
    SSE = std::max(m.SSE, LEAST_SSE);
    if (!gradient.empty()) gradient_of(m, -factor / SSE, {&we, 1}, gradient);
  }
  return {factor * 0.5 * (LN_2PI_1 + std::log(SSE / m.N)), std::isfinite(m.SSE)};
}

// v_i := sum over j of a_ij x_j for M columns of n rows; a packed.
void mix_columns(std::span<const double> a, std::span<const double* const> x, std::int64_t n,
                 double* to) {
  const int M = static_cast<int>(x.size());
  const VectorLanes& lanes = vector_lanes();
  for (int i = 0; i < M; ++i) {
    double* const v = to + i * n;
    std::fill_n(v, n, 0.0);
    for (int j = 0; j < M; ++j) {
      lanes.add(a[packed(i + 1, j + 1)], x[static_cast<std::size_t>(j)],
                static_cast<std::ptrdiff_t>(n), v);
    }
  }
}

constexpr std::size_t MOST_EQUATIONS = 64;

// S, its inverse and ln|S| from the residuals as they stand; good: S is positive definite.
Sum log_determinant(NlModel& m) {
  const int M = m.neq;
  m.SSE = 0.0;
  for (int j = 1; j <= M; ++j) {
    const double* const we = weighted_rows(m, j - 1);
    for (int i = j; i <= M; ++i) {
      m.S[packed(i, j)] = dot(m.e[static_cast<std::size_t>(i) - 1], we, m.used()) / m.N;
    }
    m.SSE += m.S[packed(j, j)] * m.N;
  }
  std::ranges::copy(m.S, m.Sinverse.begin());
  if (!std::isfinite(m.SSE) || cholesky_factor(m.Sinverse, M) != 0) return {.good = false};
  double log = 0.0;
  for (int j = 1; j <= M; ++j) log -= 2.0 * std::log(m.Sinverse[packed(j, j)]);
  std::ranges::copy(m.S, m.Sinverse.begin());
  return {log, symmetric_inverse(m.Sinverse, M) == 0};
}

Sum system(NlModel& m, std::span<double> gradient) {
  const Sum log = log_determinant(m);
  if (!log.good) return log;
  const double factor = NLCOM.NORMALIZ ? 1.0 : m.N;
  if (!gradient.empty()) {
    const double* x[MOST_EQUATIONS];
    const double* v[MOST_EQUATIONS];
    const auto M = static_cast<std::size_t>(m.neq);
    for (std::size_t j = 0; j < M; ++j) {
      x[j] = weighted_rows(m, static_cast<int>(j));
      v[j] = m.mixed.data() + static_cast<std::ptrdiff_t>(j) * m.used();
    }
    mix_columns(m.Sinverse, {x, M}, m.used(), m.mixed.data());
    gradient_of(m, -factor / m.N, {v, M}, gradient);
  }
  return {factor * 0.5 * (m.neq * LN_2PI_1 + log.f), true};
}

// The moments of the residuals as they stand: m.m.
void form_moments(NlModel& m) {
  const auto q = static_cast<std::size_t>(m.q);
  m.SSE = 0.0;
  for (int j = 0; j < m.neq; ++j) {
    const double* const we = weighted_rows(m, j);
    m.SSE += dot(m.e[static_cast<std::size_t>(j)], we, m.used());
    for (std::size_t l = 0; l < q; ++l) {
      double sum = 0.0;
      if (m.Z[l] != nullptr) {
        sum = dot(m.Z[l], we, m.used());
      } else {
        for (std::int64_t t = 0; t < m.used(); ++t) sum += we[t];
      }
      m.m[static_cast<std::size_t>(j) * q + l] = sum;
    }
  }
}

Sum moments(NlModel& m, std::span<double> gradient) {
  form_moments(m);
  const int order = m.neq * m.q;
  const auto n = static_cast<std::ptrdiff_t>(m.used());
  const VectorLanes& lanes = vector_lanes();
  const double* a[MOST_EQUATIONS];
  double Q = 0.0;
  for (int j = 0; j < m.neq; ++j) {
    // a_j = w times the sum over l of (C m)_jl z_l
    double* const column = m.mixed.data() + j * n;
    if (!gradient.empty()) std::fill_n(column, n, 0.0);
    for (int l = 0; l < m.q; ++l) {
      const int row = j * m.q + l + 1;
      double sum = 0.0;
      for (int i = 1; i <= order; ++i) {
        sum += m.C[packed(row, i)] * m.m[static_cast<std::size_t>(i) - 1];
      }
      Q += sum * m.m[static_cast<std::size_t>(row) - 1];
      if (gradient.empty()) continue;
      const double* const z = m.Z[static_cast<std::size_t>(l)];
      if (z != nullptr) {
        lanes.add(sum, z, n, column);
      } else {
        for (std::ptrdiff_t t = 0; t < n; ++t) column[t] += sum;
      }
    }
    for (std::ptrdiff_t t = 0; m.weight != nullptr && !gradient.empty() && t < n; ++t) {
      column[t] *= m.weight[m.p + t];
    }
    a[j] = column;
  }
  if (!gradient.empty()) {
    gradient_of(m, -2.0, {a, static_cast<std::size_t>(m.neq)}, gradient);
  }
  return {Q, std::isfinite(Q)};
}

// Sum of a term of each row, with v'(row) in `slope` for the gradient. Term: value and slope.
template <class Term>
Sum sum_rows(NlModel& m, std::span<double> gradient, Term&& term) {
  const auto n = static_cast<std::size_t>(m.used());
  const auto K = static_cast<std::size_t>(m.K);
  std::ranges::fill(gradient, 0.0);
  double sum = 0.0;
  for (std::size_t j = 0; j < m.e.size(); ++j) {
    double* const slope = m.mixed.data();
    for (std::size_t t = 0; t < n; ++t) {
      const double w = m.weight == nullptr ? 1.0 : m.weight[t];
      double s = 0.0;
      sum += w * term(m.e[j][t], static_cast<std::int64_t>(t), s);
      slope[t] = w * s;
    }
    if (gradient.empty()) continue;
    for (std::size_t k = 0; k < K; ++k) {
      const double* const D = m.D[j * K + k];
      if (D != nullptr) gradient[k] += dot(D, slope, m.used());
    }
  }
  return {sum, std::isfinite(sum)};
}

// Tells the rows whose density is not positive, `count` of them: all are told as one.
void report_densities(NlModel& m, std::int64_t count) {
  for (std::int64_t t = 0, told = 0; t < m.used() && told < count; ++t) {
    if (m.e[0][t] > 0.0) continue;
    report_fault(m, DENSITY_FAULT, t);
    told = count == m.used() ? count : told + 1;
  }
}

}  // namespace

double sigma_determinant(NlModel& m) {
  const std::span<double> A = m.Sinverse;
  std::ranges::copy(m.S, A.begin());
  double product = 1.0;
  for (int k = 1; k <= m.neq; ++k) {
    const double d = A[packed(k, k)];
    product *= d;
    if (!(d > 0.0)) break;
    for (int i = k + 1; i <= m.neq; ++i) {
      const double factor = A[packed(i, k)] / d;
      for (int j = k + 1; j <= i; ++j) A[packed(i, j)] -= factor * A[packed(j, k)];
    }
  }
  return product;
}

double penalty(std::span<const double> b, std::span<double> gradient) {
  double sum = 0.0;
  const double lambda = NLCOM.PENLAMBD;
  for (std::size_t k = 0; k < b.size(); ++k) {
    double slope = 0.0;
    switch (NLCOM.PENTYPE) {
      case 1: {  // outside the bounds: Courant (1943)
        const double below = std::max(0.0, NLCOM.PENLOW - b[k]);
        const double above = std::max(0.0, b[k] - NLCOM.PENHI);
        sum += below * below + above * above;
        slope = 2.0 * (above - below);
        break;
      }
      case 2:  // Hoerl and Kennard (1970)
        sum += b[k] * b[k];
        slope = 2.0 * b[k];
        break;
      case 3:  // Tibshirani (1996)
        sum += std::fabs(b[k]);
        slope = b[k] > 0.0 ? 1.0 : (b[k] < 0.0 ? -1.0 : 0.0);
        break;
      default:
        return 0.0;
    }
    if (!gradient.empty()) gradient[k] += lambda * slope;
  }
  return lambda * sum;
}

NlFunction::NlFunction(NlModel& model) : m_(model) {
  analytic = !NLCOM.NUMERIC;
  const bool likelihood =
      m_.form != NlForm::Moments && m_.form != NlForm::Minimum && m_.form != NlForm::Maximum;
  label = likelihood ? " LOG-LIKELIHOOD FUNCTION= " : " FUNCTION VALUE= ";
  switch (m_.form) {
    case NlForm::Squares:
    case NlForm::System:
      scale = NLCOM.NORMALIZ ? -m_.N : -1.0;
      break;
    case NlForm::Moments:
    case NlForm::Minimum:
      scale = 1.0;
      break;
    default:
      scale = -1.0;
      break;
  }
}

double NlFunction::likelihood_factor() const {
  const bool mean = m_.form == NlForm::Squares || m_.form == NlForm::System;
  return mean && NLCOM.NORMALIZ ? m_.N : 1.0;
}

Objective::Value NlFunction::evaluate(std::span<const double> b, std::span<double> gradient) {
  if (m_.form != NlForm::Squares) NLPASS(m_, b, !gradient.empty(), false);
  if (progress != nullptr) progress->add(1);
  Sum sum;
  int densities = 0;
  switch (m_.form) {
    case NlForm::Squares:
      sum = squares(m_, b, gradient);
      break;
    case NlForm::System:
      sum = system(m_, gradient);
      break;
    case NlForm::Moments:
      sum = moments(m_, gradient);
      break;
    case NlForm::Density:
      sum = sum_rows(m_, gradient, [&](double v, std::int64_t, double& slope) {
        if (!(v > 0.0)) {
          ++densities;
          return 0.0;
        }
        slope = -1.0 / v;
        return -std::log(v);
      });
      report_densities(m_, densities);
      break;
    case NlForm::Minimum:
      sum = sum_rows(m_, gradient, [](double v, std::int64_t, double& slope) {
        slope = 1.0;
        return v;
      });
      break;
    default:
      sum = sum_rows(m_, gradient, [](double v, std::int64_t, double& slope) {
        slope = -1.0;
        return -v;
      });
      break;
  }
  // A zero in place of the logarithm of a small density would draw the search to where there is
  // none: points with more such rows than the start are not taken.
  if (first_faults_ < 0) first_faults_ = densities;
  if (!sum.good || densities > first_faults_) return {.f = sum.f, .good = false};
  return {.f = sum.f + penalty(b, gradient), .good = true};
}

}  // namespace korvel
