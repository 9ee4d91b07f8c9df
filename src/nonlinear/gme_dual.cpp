// The dual function of maximum entropy, its derivatives, its minimum.

#include <algorithm>
#include <cmath>
#include <limits>

#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "expr/kernels/vector_lanes.h"
#include "nonlinear/gme.h"
#include "nonlinear/minimise_parts.h"
#include "nonlinear/row_qr.h"

namespace korvel {
namespace {

constexpr int NEWTON_STEPS = 60;
constexpr int HALVINGS = 30;
constexpr double LAST_STEP = 1e-12;  // relative to the largest multiplier
constexpr double SMALLEST_VARIANCE = 1e-280;

// One distribution: its weights are prior times exp(-point slope), normalised. Returns the log of
// their sum before that; sets mean and variance of the points, and the weights where asked.
double distribution(const Support& support, std::size_t i, double slope, double& mean,
                    double& variance, double* weights) {
  double largest = -std::numeric_limits<double>::infinity();
  for (int m = 0; m < support.size; ++m) {
    if (support.prior(i, m) > 0.0) largest = std::max(largest, -support.point(i, m) * slope);
  }
  double sum = 0.0, first = 0.0;
  for (int m = 0; m < support.size; ++m) {
    const double point = support.point(i, m);
    const double weight = support.prior(i, m) * std::exp(-point * slope - largest);
    if (weights != nullptr) weights[m] = weight;
    sum += weight;
    first += weight * point;
  }
  mean = first / sum;
  double second = 0.0;
  for (int m = 0; m < support.size; ++m) {
    const double point = support.point(i, m);
    const double weight = support.prior(i, m) * std::exp(-point * slope - largest);
    second += weight * (point - mean) * (point - mean);
    if (weights != nullptr) weights[m] /= sum;
  }
  variance = second / sum;
  return std::log(sum) + largest;
}

// -sum p ln p.
double entropy(const double* weights, int n) {
  double sum = 0.0;
  for (int m = 0; m < n; ++m) {
    if (weights[m] > 0.0) sum -= weights[m] * std::log(weights[m]);
  }
  return sum;
}

// That of the prior weights, the scale of a normalised entropy.
double prior_entropy(const Support& support, std::size_t i) {
  double total = 0.0, sum = 0.0;
  for (int m = 0; m < support.size; ++m) total += support.prior(i, m);
  for (int m = 0; m < support.size; ++m) {
    const double q = support.prior(i, m) / total;
    if (q > 0.0) sum -= q * std::log(q);
  }
  return sum;
}

double largest_of(std::span<const double> x) {
  double largest = 0.0;
  for (const double v : x) largest = std::max(largest, std::fabs(v));
  return largest;
}

struct NewtonRoom {
  std::span<double> step, trial, trial_gradient;  // T
  std::span<double> matrix, factors;              // packed K
  std::span<double> side, inner;                  // K
  NewtonRoom(std::span<double> work, int T, int K) {
    const auto take = [&](std::size_t n) {
      const std::span<double> part = work.first(n);
      work = work.subspan(n);
      return part;
    };
    const auto rows = static_cast<std::size_t>(T), order = static_cast<std::size_t>(K);
    step = take(rows);
    trial = take(rows);
    trial_gradient = take(rows);
    matrix = take(packed_words(K));
    factors = take(packed_words(K));
    side = take(order);
    inner = take(order);
  }
};

// step := -(D + X S X')^-1 g by the inverse of a sum (Woodbury), D and S the variances of the
// errors' and of the coefficients' distributions. False when the K x K matrix can't be factorised.
bool newton_direction(const GmeModel& m, NewtonRoom& room) {
  const auto T = static_cast<std::size_t>(m.T), K = static_cast<std::size_t>(m.K);
  const auto D = [&](std::size_t t) { return std::max(m.spread[t], SMALLEST_VARIANCE); };
  const auto root = [&](std::size_t k) { return std::sqrt(m.variance[k]); };
  // 1. I + S^1/2 X'D^-1 X S^1/2, and S^1/2 X'D^-1 g.
  for (std::size_t k = 0; k < K; ++k) {
    const double* const x = m.column[k];
    for (std::size_t j = 0; j <= k; ++j) {
      const double* const z = m.column[j];
      double sum = 0.0;
      for (std::size_t t = 0; t < T; ++t) sum += x[t] * z[t] / D(t);
      room.matrix[packed(static_cast<int>(k) + 1, static_cast<int>(j) + 1)] =
          root(k) * root(j) * sum + (j == k ? 1.0 : 0.0);
    }
    double sum = 0.0;
    for (std::size_t t = 0; t < T; ++t) sum += x[t] * m.gradient[t] / D(t);
    room.side[k] = root(k) * sum;
  }
  HessianFactors factors{.LD = room.factors, .n = m.K};
  if (!factors.factorise(room.matrix)) return false;
  factors.direction(room.side, room.inner);  // minus the solution
  // 2. -D^-1 (g - X S^1/2 A^-1 S^1/2 X'D^-1 g).
  for (std::size_t t = 0; t < T; ++t) {
    double g = m.gradient[t];
    for (std::size_t k = 0; k < K; ++k) g += m.column[k][t] * root(k) * room.inner[k];
    room.step[t] = -g / D(t);
  }
  return true;
}

}  // namespace

Objective::Value GmeDual::evaluate(std::span<const double> lambda, std::span<double> gradient) {
  const VectorLanes& lanes = vector_lanes();
  const auto T = static_cast<std::ptrdiff_t>(m_.T);
  const auto M = static_cast<std::size_t>(m_.Z.size);
  const double* const y = m_.y();
  double f = lanes.dot(y, lambda.data(), T);
  for (std::size_t k = 0; k < m_.b.size(); ++k) {
    const double slope = lanes.dot(m_.column[k], lambda.data(), T);
    f += distribution(m_.Z, k, slope, m_.b[k], m_.variance[k], &m_.p[k * M]);
  }
  for (std::size_t t = 0; t < lambda.size(); ++t) {
    f += distribution(m_.V, t, lambda[t], m_.e[t], m_.spread[t], nullptr);
  }
  if (gradient.empty()) return {f, std::isfinite(f)};
  for (std::size_t t = 0; t < lambda.size(); ++t) gradient[t] = y[t] - m_.e[t];
  for (std::size_t k = 0; k < m_.b.size(); ++k) {
    lanes.add(-m_.b[k], m_.column[k], T, gradient.data());
  }
  return {f, std::isfinite(f)};
}

std::int64_t gme_newton_words(int T, int K) {
  return std::int64_t{3} * T + 2 * static_cast<std::int64_t>(packed_words(K)) + std::int64_t{2} * K;
}

bool gme_newton(GmeModel& m, GmeDual& dual, std::span<double> work) {
  NewtonRoom room(work, m.T, m.K);
  double f = dual.evaluate(m.lambda, m.gradient).f;
  // What the differences y - Xb - e lose to rounding.
  const double size = largest_of({m.y(), static_cast<std::size_t>(m.T)});
  bool done = false;
  for (int round = 0; round < NEWTON_STEPS && !done && !stop_requested(); ++round) {
    if (!newton_direction(m, room)) return false;
    const double slope = dot(m.gradient, room.step);
    if (!std::isfinite(slope)) return false;
    double length = 1.0;
    bool taken = false;
    for (int cut = 0; cut < HALVINGS && !taken; ++cut, length /= 2.0) {
      for (std::size_t t = 0; t < m.lambda.size(); ++t) {
        room.trial[t] = m.lambda[t] + length * room.step[t];
      }
      const Objective::Value at = dual.evaluate(room.trial, room.trial_gradient);
      taken = at.good && at.f <= f + 1e-4 * length * slope + 1e-14 * std::fabs(f);
      if (taken) f = at.f;
    }
    if (!taken) break;
    std::ranges::copy(room.trial, m.lambda.begin());
    std::ranges::copy(room.trial_gradient, m.gradient.begin());
    done = largest_of(room.step) <= LAST_STEP * largest_of(m.lambda) ||
           largest_of(m.gradient) <= 1e-14 * size;
  }
  dual.evaluate(m.lambda, m.gradient);
  return done || largest_of(m.gradient) <= 1e-10 * size;
}

void gme_entropies(GmeModel& m) {
  const int M = m.Z.size;
  m.P_entropy = 0.0;
  for (std::size_t k = 0; k < m.b.size(); ++k) {
    const double own = entropy(&m.p[k * static_cast<std::size_t>(M)], M);
    m.entropy[k] = own / prior_entropy(m.Z, k);
    m.P_entropy += m.entropy[k] / m.K;
  }
  // Of the errors: -sum w ln w with ln w = ln u - v l - ln(sum).
  m.W_entropy = 0.0;
  for (std::size_t t = 0; t < m.lambda.size(); ++t) {
    double mean = 0.0, variance = 0.0;
    const double log_sum = distribution(m.V, t, m.lambda[t], mean, variance, nullptr);
    double own = 0.0;
    for (int j = 0; j < m.V.size; ++j) {
      const double u = m.V.prior(t, j);
      if (!(u > 0.0)) continue;
      const double log_w = std::log(u) - m.V.point(t, j) * m.lambda[t] - log_sum;
      own -= std::exp(log_w) * log_w;
    }
    m.W_entropy += own / prior_entropy(m.V, t) / m.T;
  }
}

}  // namespace korvel
