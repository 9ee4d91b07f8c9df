// BJEGAU, BJEMAT: Marquardt's method for ARMA models.
#include "arima/bjegau.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "expr/kernels/cholesky.h"
#include "expr/kernels/packed.h"
#include "expr/kernels/vector_lanes.h"

namespace korvel {
namespace {

constexpr double DEGREES = 57.295;    // of a radian
constexpr double WIDE_ANGLE = 30.0;   // between step and gradient: the step is shortened by lambda
constexpr double GROWTH = 1e-6;       // relative growth of S that still counts as none
constexpr double LEAST_GAMMA = 1e-8;  // a shorter step can't lower S any more
constexpr double NEGLIGIBLE = 1e-30;  // a derivative that counts as none
constexpr double FIRST_GAMMA = 0.5;   // of a step that is tried

using Vector = std::array<double, MAXBJ>;

std::size_t at(int i) { return static_cast<std::size_t>(i); }

// One run of the method: the pieces of work space and the state that its steps share.
struct GaussRun {
  const GaussProblem& problem;
  int k;
  std::size_t n, N;
  ArmRoom room;
  std::span<double> a, trial, J, A, scaled;  // J: k columns of N
  bool mean = false;                         // b's constant is the mean
  BjModel model{};
  Vector D{}, g{}, x{};

  double residuals(std::span<const double> b, std::span<double> to) {
    make_model(problem.orders, b, mean, model);
    return BJEARM(model, room, to);
  }
  std::span<double> column(int i) const { return J.subspan(at(i) * N, N); }

  void derivatives(std::span<double> b);
  void normal_equations(std::span<const double> b);
  bool BJEMAT(double lambda);
  double angle() const;
  bool covariance(std::span<const double> b, std::span<double> cov);
};

// J: a(b) - a(b + step) over the step, for every parameter that is not 0.
void GaussRun::derivatives(std::span<double> b) {
  for (int i = 0; i < k; ++i) {
    const double old = b[at(i)];
    if (old == 0.0) continue;
    const double step = problem.h * old;
    b[at(i)] = old + step;
    const std::span<double> d = column(i);
    residuals(b, d);
    b[at(i)] = old;
    const std::size_t first = first_residual(model);
    for (std::size_t t = 0; t < first; ++t) d[t] = 0.0;
    for (std::size_t t = first; t < N; ++t) {
      const double change = a[t] - d[t];
      d[t] = std::fabs(change) > NEGLIGIBLE ? change / step : 0.0;
    }
  }
}

// A = J'J (packed), g = J'a scaled to unit diagonal, D the scales; D = 0 leaves a parameter out.
void GaussRun::normal_equations(std::span<const double> b) {
  const VectorLanes& lanes = vector_lanes();
  const auto rows = static_cast<std::ptrdiff_t>(N);
  for (int i = 0; i < k; ++i) {
    for (int j = 0; j <= i; ++j) {
      const bool in = b[at(i)] != 0.0 && b[at(j)] != 0.0;
      A[packed(i + 1, j + 1)] = in ? lanes.dot(column(i).data(), column(j).data(), rows) : 0.0;
    }
    D[at(i)] = std::sqrt(A[packed(i + 1, i + 1)]);
    if (!std::isfinite(D[at(i)])) D[at(i)] = 0.0;
    g[at(i)] = D[at(i)] > 0.0 ? lanes.dot(column(i).data(), a.data(), rows) / D[at(i)] : 0.0;
  }
}

// Solves (A* + lambda I) x = g*, where A* is A with unit diagonal. False: not positive definite.
bool GaussRun::BJEMAT(double lambda) {
  for (int i = 0; i < k; ++i) {
    for (int j = 0; j < i; ++j) {
      const double scale = D[at(i)] * D[at(j)];
      scaled[packed(i + 1, j + 1)] = scale > 0.0 ? A[packed(i + 1, j + 1)] / scale : 0.0;
    }
    scaled[packed(i + 1, i + 1)] = 1.0 + lambda;
    x[at(i)] = g[at(i)];
  }
  return positive_solve(scaled, k, std::span<double>(x).first(at(k))) == 0;
}

// Between the step and the gradient, in degrees.
double GaussRun::angle() const {
  double product = 0.0, xx = 0.0, gg = 0.0;
  for (int i = 0; i < k; ++i) {
    product += x[at(i)] * g[at(i)];
    xx += x[at(i)] * x[at(i)];
    gg += g[at(i)] * g[at(i)];
  }
  const double cosine = product / std::sqrt(xx * gg);
  return cosine <= 1.0 ? DEGREES * std::acos(std::max(cosine, -1.0)) : 0.0;
}

// T (J'J)^-1 T', with T the derivatives of the parameters as the caller knows them with respect to
// those of the fit: only the constant, mean times factor, differs.
bool GaussRun::covariance(std::span<const double> b, std::span<double> cov) {
  const BjOrders& o = problem.orders;
  normal_equations(b);
  std::fill(cov.begin(), cov.end(), 0.0);
  for (int i = 0; i < k; ++i) {
    for (int j = 0; j < i; ++j) {
      const double scale = D[at(i)] * D[at(j)];
      scaled[packed(i + 1, j + 1)] = scale > 0.0 ? A[packed(i + 1, j + 1)] / scale : 0.0;
    }
    scaled[packed(i + 1, i + 1)] = 1.0;
  }
  if (symmetric_inverse(scaled, k) != 0) return false;
  for (int i = 0; i < k; ++i) {
    for (int j = 0; j <= i; ++j) {
      const double scale = D[at(i)] * D[at(j)];
      if (scale > 0.0) cov[packed(i + 1, j + 1)] = scaled[packed(i + 1, j + 1)] / scale;
    }
  }
  if (!o.constant || !mean) return true;
  Vector& T = x;  // the row of T that belongs to the constant
  const double mu = b[at(k - 1)];
  double ordinary = 1.0, seasonal = 1.0;
  for (int i = 0; i < o.NARP; ++i) ordinary -= b[at(i)];
  for (int i = 0; i < o.NSARP; ++i) seasonal -= b[at(o.NARP + o.NMA + i)];
  T.fill(0.0);
  for (int i = 0; i < o.NARP; ++i) T[at(i)] = -mu * seasonal;
  for (int i = 0; i < o.NSARP; ++i) T[at(o.NARP + o.NMA + i)] = -mu * ordinary;
  T[at(k - 1)] = ordinary * seasonal;
  Vector& row = g;
  double corner = 0.0;
  for (int j = 0; j < k; ++j) {
    row[at(j)] = 0.0;
    for (int i = 0; i < k; ++i) row[at(j)] += T[at(i)] * cov[packed(i + 1, j + 1)];
  }
  for (int i = 0; i < k; ++i) corner += T[at(i)] * row[at(i)];
  for (int j = 0; j < k - 1; ++j) cov[packed(k, j + 1)] = row[at(j)];
  cov[packed(k, k)] = corner;
  return true;
}

}  // namespace

std::size_t BJEGAU_words(int k, std::size_t n) {
  return arm_words(n) + (PRESAMPLE + n) * (at(k) + 1) + 2 * packed_words(k);
}

double BJEGAU_start(const GaussProblem& problem, std::span<const double> series,
                    std::span<const double> b, std::span<double> a, std::span<double> work) {
  ArmRoom room(work, series.size());
  room.limit = arm_limit(series);
  std::copy(series.begin(), series.end(), room.w.begin() + PRESAMPLE);
  BjModel model;
  make_model(problem.orders, b, false, model);
  return BJEARM(model, room, a);
}

GaussFit BJEGAU(const GaussProblem& problem, std::span<const double> series, std::span<double> b,
                std::span<double> a, std::span<double> cov, std::span<double> work,
                const GaussWatcher& watch) {
  const BjOrders& o = problem.orders;
  const int k = o.parameters();
  const std::size_t n = series.size(), N = PRESAMPLE + n;
  std::size_t used = 0;
  const auto take = [&](std::size_t words) {
    used += words;
    return work.subspan(used - words, words);
  };
  GaussRun run{problem,
               k,
               n,
               N,
               ArmRoom(take(arm_words(n)), n),
               a,
               take(N),
               take(N * at(k)),
               take(packed_words(k)),
               take(packed_words(k))};
  run.room.limit = arm_limit(series);
  std::copy(series.begin(), series.end(), run.room.w.begin() + PRESAMPLE);
  // 1. The constant becomes the mean, where it has one.
  if (o.constant) {
    const double factor = mean_factor(o, b);
    run.mean = factor != 0.0;
    if (run.mean) b[at(k - 1)] /= factor;
  }
  std::array<double, MAXBJ> next{}, shown{};
  const auto known = [&](std::span<const double> from) {
    std::copy(from.begin(), from.end(), shown.begin());
    if (run.mean) shown[at(k - 1)] *= mean_factor(o, from);
    return std::span<const double>(shown).first(at(k));
  };
  GaussFit fit;
  fit.S = fit.S0 = run.residuals(b, a);
  // 2. Iterations.
  double lambda = 1.0;
  bool more = fit.S0 <= run.room.limit;
  if (!more) fit.stop = GaussStop::no_step;
  const std::span<double> trial_b = std::span<double>(next).first(at(k));
  while (more && fit.iterations < problem.ITER) {
    ++fit.iterations;
    lambda /= 10.0;
    run.derivatives(b);
    run.normal_equations(b);
    double gamma = FIRST_GAMMA, angle = 0.0, S = 0.0;
    bool solve = true, accepted = false;
    for (int solves = 0; !accepted;) {
      if (solve) {
        if (++solves > problem.ITER) break;
        gamma = FIRST_GAMMA;
        solve = !run.BJEMAT(lambda);
        if (solve) {
          lambda *= 10.0;
          continue;
        }
        angle = run.angle();
      }
      for (int i = 0; i < k; ++i) {
        const double step = run.D[at(i)] > 0.0 ? gamma * run.x[at(i)] / run.D[at(i)] : 0.0;
        trial_b[at(i)] = b[at(i)] + step;
      }
      S = run.residuals(trial_b, run.trial);
      if (S / fit.S - 1.0 <= GROWTH || S == fit.S) {
        accepted = true;
      } else if (angle > WIDE_ANGLE) {
        lambda *= 10.0;
        solve = true;
      } else {
        gamma *= 0.5;
        if (gamma < LEAST_GAMMA) break;
      }
    }
    if (!accepted) {
      fit.stop = GaussStop::no_step;
      break;
    }
    // 3. The step is taken.
    bool small = true;
    for (int i = 0; i < k; ++i) {
      const double step = std::fabs(trial_b[at(i)] - b[at(i)]);
      small = small && step / (std::fabs(b[at(i)]) + 1e-20) <= GAUSS_TOLERANCE;
      b[at(i)] = trial_b[at(i)];
    }
    const double change = fit.S > 0.0 ? std::fabs(S / fit.S - 1.0) : 0.0;
    fit.S = S;
    std::swap(run.a, run.trial);
    const GaussStep step{fit.iterations, S, lambda, angle, gamma, known(b)};
    if (!watch(step)) {
      fit.stop = GaussStop::asked;
      more = false;
    } else if (small || change <= GAUSS_TOLERANCE) {
      fit.stop = small ? GaussStop::parameters : GaussStop::squares;
      more = false;
    }
  }
  // 4. Residuals and covariance at the end.
  run.a = a;
  fit.S = run.residuals(b, a);
  run.derivatives(b);
  fit.singular = !run.covariance(b, cov);
  if (run.mean) b[at(k - 1)] *= mean_factor(o, b);
  return fit;
}

}  // namespace korvel
