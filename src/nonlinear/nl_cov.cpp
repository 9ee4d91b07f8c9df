// The covariance of the coefficients of NLINEAR, in each of its forms.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "expr/kernels/cholesky.h"
#include "expr/kernels/packed.h"
#include "expr/kernels/vector_lanes.h"
#include "nonlinear/minimise_parts.h"
#include "nonlinear/nl_parts.h"
#include "nonlinear/nl_squares.h"

namespace korvel {
namespace {

constexpr double LEAST_SIZE = 0.01;  // steps of second derivatives are those of coefficients of it
constexpr double LEAST_WIDTH = 0.001;  // likewise for first derivatives
constexpr double NO_GRADIENT = 1e-15;  // of g'Cg: below it only rounding is left of the gradient
constexpr std::string_view PLAIN_TITLE = " ASYMPTOTIC COVARIANCE MATRIX";

double dot(const double* x, const double* y, std::int64_t n) {
  return vector_lanes().dot(x, y, static_cast<std::ptrdiff_t>(n));
}

const double* derivative(const NlModel& m, int j, int k) {
  return m
      .D[static_cast<std::size_t>(j) * static_cast<std::size_t>(m.K) + static_cast<std::size_t>(k)];
}

// With NUMERIC the derivatives of the residuals are central differences.
void fill_derivatives(NlModel& m) {
  if (!NLCOM.NUMERIC) return;
  const auto n = static_cast<std::size_t>(m.used());
  for (std::size_t k = 0; k < static_cast<std::size_t>(m.K); ++k) {
    const double b = m.b[k];
    const double h = NLCOM.STEPSIZE * std::max(std::fabs(b), LEAST_WIDTH);
    for (const double side : {-1.0, 1.0}) {
      m.b[k] = b + side * h / 2.0;
      NLPASS(m, m.b, false, true);
      for (int j = 0; j < m.neq; ++j) {
        const auto at = static_cast<std::size_t>(j);
        double* const D = m.D[at * static_cast<std::size_t>(m.K) + k];
        for (std::size_t t = 0; D != nullptr && t < n; ++t) {
          D[t] = side < 0.0 ? m.e[at][t] / h : D[t] - m.e[at][t] / h;
        }
      }
    }
    m.b[k] = b;
  }
  NLPASS(m, m.b, false, true);
}

// Inverse of a packed matrix by way of its correlation form, which coefficients of different size
// leave well conditioned. False: it is not positive definite; a is then of no use.
bool invert_scaled(std::span<double> a, int n, std::span<double> scale) {
  for (int i = 1; i <= n; ++i) {
    const double d = a[packed(i, i)];
    if (!(d > 0.0) || !std::isfinite(d)) return false;
    scale[static_cast<std::size_t>(i) - 1] = 1.0 / std::sqrt(d);
  }
  const auto rescale = [&] {
    for (int i = 1; i <= n; ++i) {
      for (int j = 1; j <= i; ++j) {
        a[packed(i, j)] *=
            scale[static_cast<std::size_t>(i) - 1] * scale[static_cast<std::size_t>(j) - 1];
      }
    }
  };
  rescale();
  if (symmetric_inverse(a, n) != 0) return false;
  rescale();
  return std::ranges::all_of(a, [](double v) { return std::isfinite(v); });
}

// v_j = sum over i of a_ij w e_i, M columns in m.mixed.
void mix_residuals(NlModel& m, std::span<const double> a) {
  const auto n = static_cast<std::size_t>(m.used());
  for (int j = 0; j < m.neq; ++j) {
    double* const v = m.mixed.data() + static_cast<std::size_t>(j) * n;
    std::fill_n(v, n, 0.0);
    for (int i = 0; i < m.neq; ++i) {
      const double factor = a[packed(i + 1, j + 1)];
      const double* const e = m.e[static_cast<std::size_t>(i)];
      for (std::size_t t = 0; t < n; ++t) {
        v[t] += factor * (m.weight == nullptr ? 1.0 : m.weight[static_cast<std::size_t>(m.p) + t]) *
                e[t];
      }
    }
  }
}

// Sets S^-1 for the forms whose residuals are normal: 1/s2 for one equation.
void settle_precision(NlModel& m) {
  if (m.neq > 1) return;
  m.S[0] = m.SSE / m.N;
  m.Sinverse[0] = 1.0 / std::max(m.S[0], 1e-300);
}

// sum over i, j of S^-1_ij D_i'D_j: the second derivatives of -L without those of the residuals.
void cross_products(NlModel& m, std::span<double> H) {
  fill_derivatives(m);
  settle_precision(m);
  const auto n = static_cast<std::size_t>(m.used());
  double* const wD = m.mixed.data();
  for (int k = 1; k <= m.K; ++k) {
    for (int l = 1; l <= k; ++l) H[packed(k, l)] = 0.0;
  }
  for (int j = 0; j < m.neq; ++j) {
    for (int l = 1; l <= m.K; ++l) {
      const double* D = derivative(m, j, l - 1);
      if (D == nullptr) continue;
      if (m.weight != nullptr) {
        for (std::size_t t = 0; t < n; ++t)
          wD[t] = m.weight[static_cast<std::size_t>(m.p) + t] * D[t];
        D = wD;
      }
      for (int i = 0; i < m.neq; ++i) {
        const double s = m.Sinverse[packed(i + 1, j + 1)];
        for (int k = l; k <= m.K; ++k) {
          const double* const other = derivative(m, i, k - 1);
          if (other != nullptr) H[packed(k, l)] += s * dot(other, D, m.used());
        }
      }
    }
  }
}

// sum of g_t g_t' with g_t = sum over j of v_j(t) D_j(t), v = S^-1 e (Berndt, Hall, Hall and
// Hausman 1974).
bool outer_products(Workspace ws, NlModel& m, std::span<double> H) {
  fill_derivatives(m);
  settle_precision(m);
  mix_residuals(m, m.Sinverse);
  const auto n = static_cast<std::size_t>(m.used());
  const auto K = static_cast<std::size_t>(m.K);
  Scratch room(ws, m.used() * m.K);
  if (!room) return false;
  for (std::size_t k = 0; k < K; ++k) {
    double* const g = room.words().data() + k * n;
    std::fill_n(g, n, 0.0);
    for (int j = 0; j < m.neq; ++j) {
      const double* const D = derivative(m, j, static_cast<int>(k));
      const double* const v = m.mixed.data() + static_cast<std::size_t>(j) * n;
      for (std::size_t t = 0; D != nullptr && t < n; ++t) g[t] += v[t] * D[t];
    }
  }
  const double* const g = room.words().data();
  for (int k = 1; k <= m.K; ++k) {
    for (int l = 1; l <= k; ++l) {
      H[packed(k, l)] =
          dot(g + std::int64_t{k - 1} * m.used(), g + std::int64_t{l - 1} * m.used(), m.used());
    }
  }
  return true;
}

// The objective in coefficients divided by their scale, so that the steps of its second derivatives
// suit small coefficients.
class ScaledFunction final : public Objective {
 public:
  ScaledFunction(NlFunction& f, std::span<const double> scale, std::span<double> point)
      : f_(f), scale_(scale), point_(point) {
    analytic = f.analytic;
  }
  Value evaluate(std::span<const double> b, std::span<double> gradient) override {
    for (std::size_t k = 0; k < b.size(); ++k) point_[k] = b[k] * scale_[k];
    const Value value = f_.evaluate(point_, gradient);
    for (std::size_t k = 0; k < gradient.size(); ++k) gradient[k] *= scale_[k];
    return value;
  }

 private:
  NlFunction& f_;
  std::span<const double> scale_;
  std::span<double> point_;
};

// A coefficient below LEAST_SIZE is moved by steps of its own size or, when it is near zero beside
// it, of its standard error, as the first derivatives tell it.
void choose_scales(NlModel& m, std::span<double> scale) {
  std::ranges::fill(scale, 1.0);
  if (NLCOM.NUMERIC || !m.residuals()) {
    for (std::size_t k = 0; k < scale.size(); ++k) {
      if (m.b[k] != 0.0) scale[k] = std::min(1.0, std::fabs(m.b[k]) / LEAST_SIZE);
    }
    return;
  }
  NLPASS(m, m.b, true, true);
  for (int k = 0; k < m.K; ++k) {
    const auto at = static_cast<std::size_t>(k);
    double sum = 0.0;
    for (int j = 0; j < m.neq; ++j) {
      const double* const D = derivative(m, j, k);
      if (D != nullptr) sum += dot(D, D, m.used());
    }
    const double s2 = m.SSE / (m.N * m.neq);
    const double size = std::max(std::fabs(m.b[at]), sum > 0.0 ? std::sqrt(s2 / sum) : 0.0);
    if (size > 0.0) scale[at] = std::min(1.0, size / LEAST_SIZE);
  }
}

// Second derivatives of f at m.b, packed.
bool second_derivatives(Workspace ws, NlModel& m, NlFunction& f, std::span<double> H) {
  const auto K = static_cast<std::size_t>(m.K);
  Scratch room(ws, 5 * std::int64_t{m.K});
  if (!room) return false;
  const std::span<double> scale = room.take(K), c = room.take(K), point = room.take(K);
  choose_scales(m, scale);
  for (std::size_t k = 0; k < K; ++k) c[k] = m.b[k] / scale[k];
  ScaledFunction scaled(f, scale, point);
  const bool good = numeric_hessian(scaled, c, H, room.rest());
  for (int i = 1; i <= m.K; ++i) {
    for (int j = 1; j <= i; ++j) {
      H[packed(i, j)] /=
          scale[static_cast<std::size_t>(i) - 1] * scale[static_cast<std::size_t>(j) - 1];
    }
  }
  f.evaluate(m.b, {});
  return good;
}

// The same for a sum of squares: -L has (N/SSE) [D'D - sum of e dD/db], of which only the small
// part is found by differences, so that a nearly singular D'D keeps its digits.
bool square_derivatives(Workspace ws, NlModel& m, std::span<double> H) {
  const auto K = static_cast<std::size_t>(m.K);
  Scratch room(ws, std::int64_t{m.K} * m.K + 2 * std::int64_t{m.K} + m.used());
  if (!room) return false;
  const std::span<double> change = room.take(K * K), scale = room.take(K), products = room.take(K);
  const std::span<double> we = room.rest();
  choose_scales(m, scale);
  for (std::size_t t = 0; t < we.size(); ++t) {
    we[t] = m.e[0][t] * (m.weight == nullptr ? 1.0 : m.weight[static_cast<std::size_t>(m.p) + t]);
  }
  cross_products(m, H);
  const double s2 = m.SSE / m.N;
  for (std::size_t l = 0; l < K; ++l) {
    const double b = m.b[l];
    const double d = NLCOM.DELTA * std::max(std::fabs(b), LEAST_SIZE * scale[l]);
    for (const double side : {-1.0, 1.0}) {
      m.b[l] = b + side * d;
      if (streams(m)) {
        stream_products(m, m.b, we, products);
      } else {
        NLPASS(m, m.b, true, true);
        for (std::size_t k = 0; k < K; ++k) {
          const double* const D = derivative(m, 0, static_cast<int>(k));
          products[k] = D == nullptr ? 0.0 : dot(D, we.data(), m.used());
        }
      }
      for (std::size_t k = 0; k < K; ++k) {
        const double term = products[k] / (2.0 * d);
        change[l * K + k] = side < 0.0 ? -term : change[l * K + k] + term;
      }
    }
    m.b[l] = b;
    if (stop_requested()) return false;
  }
  for (int i = 1; i <= m.K; ++i) {
    for (int j = 1; j <= i; ++j) {
      const std::size_t k = static_cast<std::size_t>(i) - 1, l = static_cast<std::size_t>(j) - 1;
      H[packed(i, j)] -= 0.5 * (change[l * K + k] + change[k * K + l]) / s2;
    }
  }
  return true;
}

// (G'CG)^-1 with G = dm/db; two stages of several equations have the moments' own covariance
// between, for their weights are not those of the residuals.
bool moment_matrix(Workspace ws, NlModel& m, double sigma2) {
  const int order = m.neq * m.q;
  const auto rows = static_cast<std::size_t>(order);
  const auto K = static_cast<std::size_t>(m.K);
  Scratch room(ws,
               2 * std::int64_t{order} * m.K + m.K + static_cast<std::int64_t>(packed_words(m.K)));
  if (!room) return false;
  const std::span<double> G = room.take(rows * K), CG = room.take(rows * K);
  const std::span<double> scale = room.take(K);
  const std::span<double> middle = room.take(packed_words(m.K));
  fill_derivatives(m);
  if (!NLCOM.NUMERIC) NLPASS(m, m.b, true, true);
  for (int k = 0; k < m.K; ++k) {
    for (int j = 0; j < m.neq; ++j) {
      const double* const D = derivative(m, j, k);
      for (int l = 0; l < m.q; ++l) {
        const double* const z = m.Z[static_cast<std::size_t>(l)];
        double sum = 0.0;
        for (std::int64_t t = 0; D != nullptr && t < m.used(); ++t) {
          const double w = m.weight == nullptr ? 1.0 : m.weight[m.p + t];
          sum += w * (z == nullptr ? 1.0 : z[t]) * D[t];
        }
        G[static_cast<std::size_t>(k) * rows + static_cast<std::size_t>(j * m.q + l)] = sum;
      }
    }
  }
  const auto times = [&](std::span<const double> C, std::span<const double> g,
                         std::span<double> out) {
    for (int a = 1; a <= order; ++a) {
      double sum = 0.0;
      for (int b = 1; b <= order; ++b) {
        sum += C[packed(a, b)] * g[static_cast<std::size_t>(b) - 1];
      }
      out[static_cast<std::size_t>(a) - 1] = sum;
    }
  };
  const auto products = [&](std::span<double> to) {
    for (std::size_t k = 0; k < K; ++k)
      times(m.C, G.subspan(k * rows, rows), CG.subspan(k * rows, rows));
    for (int k = 1; k <= m.K; ++k) {
      for (int l = 1; l <= k; ++l) {
        to[packed(k, l)] = dot(&G[static_cast<std::size_t>(k - 1) * rows],
                               &CG[static_cast<std::size_t>(l - 1) * rows], order);
      }
    }
  };
  products(m.cov);
  if (!invert_scaled(m.cov, m.K, scale)) return false;
  if (m.weights == NlWeights::Projection && m.neq > 1) {
    // A^-1 B A^-1, B with S of the residuals in place of the identity.
    for (int a = 1; a <= order; ++a) {
      for (int b = 1; b <= a; ++b) {
        m.C[packed(a, b)] = m.S[packed((a - 1) / m.q + 1, (b - 1) / m.q + 1)] *
                            m.C[packed((a - 1) % m.q + 1, (b - 1) % m.q + 1)];
      }
    }
    products(middle);
    for (int i = 1; i <= m.K; ++i) {
      for (int j = 1; j <= i; ++j) {
        double sum = 0.0;
        for (int k = 1; k <= m.K; ++k) {
          for (int l = 1; l <= m.K; ++l) {
            sum += m.cov[packed(i, k)] * middle[packed(k, l)] * m.cov[packed(l, j)];
          }
        }
        CG[static_cast<std::size_t>(j - 1) * K + static_cast<std::size_t>(i - 1)] = sum;
      }
    }
    for (int i = 1; i <= m.K; ++i) {
      for (int j = 1; j <= i; ++j) {
        m.cov[packed(i, j)] =
            CG[static_cast<std::size_t>(j - 1) * K + static_cast<std::size_t>(i - 1)];
      }
    }
  } else if (m.neq == 1 && m.weights == NlWeights::Projection) {
    for (double& c : m.cov) c *= sigma2;
  }
  return true;
}

double quadratic_form(std::span<const double> C, std::span<const double> g, double factor) {
  const int K = static_cast<int>(g.size());
  double sum = 0.0;
  for (int i = 1; i <= K; ++i) {
    for (int j = 1; j <= K; ++j) {
      sum +=
          g[static_cast<std::size_t>(i) - 1] * C[packed(i, j)] * g[static_cast<std::size_t>(j) - 1];
    }
  }
  return factor * factor * sum;
}

void warn_incorrect() {
  if (stop_requested()) return;  // which is told instead
  warn(" ...WARNING..COVARIANCE MATRIX AND STD ERRORS  ARE INCORRECT");
}

// The second derivatives, inverted; without them being positive definite those of the residuals are
// left aside.
bool hessian_covariance(Workspace ws, NlModel& m, NlFunction& f, std::span<double> scale) {
  if (NLCOM.NUMERIC && OCOM.OPUT) {
    say(" ...NOTE..NUMERIC OPTION GIVES GARBAGE FOR COVARIANCES");
  }
  if ((NLCOM.NUMERIC || NLCOM.NUMCOV) && OCOM.OPUT) {
    say<"(' NUMERIC DERIVATIVES USING STEP =', G13.5)">(NLCOM.DELTA);
  }
  if (OCOM.OPUT) say(" ...NOTE..ATTEMPTING INVERSION OF HESSIAN FOR COVARIANCE MATRIX");
  const bool plain = m.form == NlForm::Squares && f.analytic && NLCOM.PENTYPE == 0;
  const bool computed =
      plain ? square_derivatives(ws, m, m.cov) : second_derivatives(ws, m, f, m.cov);
  if (OCOM.ODONT) return false;
  for (double& h : m.cov) h *= plain ? 1.0 : f.likelihood_factor();
  if (computed && invert_scaled(m.cov, m.K, scale)) return true;
  warn_incorrect();
  if (!m.residuals() || stop_requested()) return false;
  if (!NLCOM.NUMERIC) NLPASS(m, m.b, true, true);
  cross_products(m, m.cov);
  return invert_scaled(m.cov, m.K, scale);
}

}  // namespace

NlCovariance coefficient_covariance(Workspace ws, NlModel& m, NlFunction& f,
                                    const NlOutcome& outcome, HessianFactors factors) {
  const double df = m.N - m.K;
  const bool small = !NLCOM.DN && m.neq == 1 && m.residuals();
  if (m.residuals() && !(m.N * m.neq > m.K)) warn(" ...WARNING..ZERO DEGREES OF FREEDOM LEFT");
  NlCovariance cov{.title = PLAIN_TITLE};
  cov.sigma2 = m.SSE / (small && df > 0.0 ? df : m.N);
  Scratch room(ws, m.K);
  if (!room) return cov;
  if (outcome.stopped) {  // the point is not that of the estimate
    warn_stopped();
    std::ranges::fill(m.cov, 0.0);
    return cov;
  }
  const std::span<double> scale = room.words();
  const int code = NLCOM.METHODCODE;
  if (m.form == NlForm::Moments) {
    cov.good = moment_matrix(ws, m, cov.sigma2);
    // H of m'Cm is twice what its covariance is the inverse of.
    const double unit = m.neq == 1 && m.weights == NlWeights::Projection ? cov.sigma2 : 1.0;
    cov.quadratic = unit > 0.0 ? quadratic_form(m.cov, m.gradient, 1.0) / (2.0 * unit) : 0.0;
    if (!cov.good && !OCOM.ODONT) warn_incorrect();
  } else {
    if (NLCOM.OPGCOV) {
      cov.title = " OUTER-PRODUCT-GRADIENT ";
      if (!NLCOM.NUMERIC) NLPASS(m, m.b, true, true);
      cov.good = outer_products(ws, m, m.cov) && invert_scaled(m.cov, m.K, scale);
      if (!cov.good && !OCOM.ODONT) warn_incorrect();
    } else if (outcome.factors && f.analytic && !NLCOM.NUMCOV &&
               outcome.minimum.updates >= 2 * m.K) {
      if (code == 2) cov.title = " ASYMPTOTIC COVARIANCE MATRIX (DFP METHOD)";
      factors.inverse(m.cov);
      for (double& c : m.cov) c /= f.likelihood_factor();
      cov.good = true;
    } else if (NLCOM.numcov_given && !NLCOM.NUMCOV && m.residuals()) {
      if (!NLCOM.NUMERIC) NLPASS(m, m.b, true, true);
      cross_products(m, m.cov);
      cov.good = invert_scaled(m.cov, m.K, scale);
      if (!cov.good) warn_incorrect();
    } else {
      if (NLCOM.NUMCOV || NLCOM.NUMERIC) cov.title = " NUMERIC";
      cov.good = hessian_covariance(ws, m, f, scale);
    }
    cov.quadratic = quadratic_form(m.cov, m.gradient, f.likelihood_factor());
    if (small && df > 0.0) {
      for (double& c : m.cov) c *= m.N / df;
    }
  }
  if (cov.quadratic < NO_GRADIENT) cov.quadratic = 0.0;
  if (stop_requested()) {
    warn_stopped();
    cov.good = false;
  }
  if (!cov.good) {
    std::ranges::fill(m.cov, 0.0);
    cov.quadratic = 0.0;
  }
  return cov;
}

bool score_statistic(Workspace ws, NlModel& m, double& statistic) {
  Scratch room(ws, static_cast<std::int64_t>(packed_words(m.K)) + 2 * std::int64_t{m.K});
  if (!room) return false;
  const std::span<double> C = room.take(packed_words(m.K));
  const std::span<double> scale = room.take(static_cast<std::size_t>(m.K));
  const std::span<double> g = room.take(static_cast<std::size_t>(m.K));
  if (!NLCOM.NUMERIC) NLPASS(m, m.b, true, true);
  if (!outer_products(ws, m, C) || !invert_scaled(C, m.K, scale)) return false;
  for (int k = 0; k < m.K; ++k) {
    double sum = 0.0;
    for (int j = 0; j < m.neq; ++j) {
      const double* const D = derivative(m, j, k);
      const double* const v = m.mixed.data() + std::int64_t{j} * m.used();
      if (D != nullptr) sum += dot(D, v, m.used());
    }
    g[static_cast<std::size_t>(k)] = sum;
  }
  statistic = quadratic_form(C, g, 1.0);
  return true;
}

}  // namespace korvel
