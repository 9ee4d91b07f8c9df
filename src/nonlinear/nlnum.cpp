// NLNUM: derivatives by differences, and Newton steps with them.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "nonlinear/minimise_parts.h"
#include "nonlinear/nonlinear.h"

namespace korvel {
namespace {

constexpr double SMALLEST_WIDTH_OF = 0.001;  // coefficients nearer to 0 have the width of this one
constexpr double SMALLEST_STEP_OF = 0.01;    // the same for second derivatives
constexpr int NEWTON_STEPS = 5;
// A step that promises less than this share of f leaves the parameters where they are by eight
// digits of their standard errors and more.
constexpr double NO_GAIN = 1e-20;

double second_step(double b) { return NLCOM.DELTA * std::max(std::fabs(b), SMALLEST_STEP_OF); }

// By central differences of the gradient. The two estimates of each element are averaged.
bool hessian_of_gradients(Objective& objective, std::span<double> b, std::span<double> hessian,
                          std::span<double> work) {
  const std::size_t n = b.size();
  const std::span<double> up = work.first(n), down = work.subspan(n, n);
  std::ranges::fill(hessian, 0.0);
  for (std::size_t i = 0; i < n; ++i) {
    const double at = b[i];
    const double above = at + second_step(at), below = at - second_step(at);
    b[i] = above;
    bool good = objective.evaluate(b, up).good;
    b[i] = below;
    good = objective.evaluate(b, down).good && good;
    b[i] = at;
    if (!good || stop_requested()) return false;
    for (std::size_t j = 0; j < n; ++j) {
      const double d = (up[j] - down[j]) / (above - below);
      hessian[packed(static_cast<int>(i) + 1, static_cast<int>(j) + 1)] += i == j ? d : d / 2.0;
    }
  }
  return true;
}

// By four values: [f(++) - f(+-) - f(-+) + f(--)] / (4 d_i d_j).
bool hessian_of_values(Objective& objective, std::span<double> b, std::span<double> hessian) {
  const int n = static_cast<int>(b.size());
  bool good = true;
  const auto value = [&](int i, double di, int j, double dj) {
    double &bi = b[static_cast<std::size_t>(i)], &bj = b[static_cast<std::size_t>(j)];
    const double old_i = bi, old_j = bj;
    bi += di;
    bj += dj;
    const Objective::Value v = objective.evaluate(b, {});
    bj = old_j;
    bi = old_i;
    good = good && v.good;
    return v.f;
  };
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j <= i; ++j) {
      const double di = second_step(b[static_cast<std::size_t>(i)]);
      const double dj = second_step(b[static_cast<std::size_t>(j)]);
      const double sum = (value(i, di, j, dj) - value(i, di, j, -dj)) -
                         (value(i, -di, j, dj) - value(i, -di, j, -dj));
      if (!good || stop_requested()) return false;
      hessian[packed(i + 1, j + 1)] = sum / (4.0 * di * dj);
    }
  }
  return true;
}

bool all_finite(std::span<const double> x) {
  return std::ranges::all_of(x, [](double v) { return std::isfinite(v); });
}

}  // namespace

bool NLNUM(Objective& objective, std::span<double> b, std::span<double> gradient, bool relative) {
  for (std::size_t i = 0; i < b.size(); ++i) {
    const double at = b[i];
    double h = NLCOM.STEPSIZE;
    if (relative) h *= std::max(std::fabs(at), SMALLEST_WIDTH_OF);
    b[i] = at - h / 2.0;
    const Objective::Value below = objective.evaluate(b, {});
    b[i] = at + h / 2.0;
    const Objective::Value above = objective.evaluate(b, {});
    b[i] = at;
    if (!below.good || !above.good || stop_requested()) return false;
    gradient[i] = (above.f - below.f) / h;
  }
  return true;
}

bool numeric_hessian(Objective& objective, std::span<double> b, std::span<double> hessian,
                     std::span<double> work) {
  const std::span<double> H = hessian.first(packed_words(static_cast<int>(b.size())));
  const bool good = objective.analytic ? hessian_of_gradients(objective, b, H, work)
                                       : hessian_of_values(objective, b, H);
  return good && all_finite(H);
}

std::int64_t newton_words(int n) { return 2 * HessianFactors::words(n) + std::int64_t{4} * n; }

double newton_polish(Objective& objective, std::span<double> b, std::span<double> gradient,
                     std::span<double> work) {
  const std::size_t n = b.size();
  const std::size_t words = packed_words(static_cast<int>(n));
  const std::span<double> H = work.first(words);
  const HessianFactors factors{.LD = work.subspan(words, words), .n = static_cast<int>(n)};
  const std::span<double> pair = work.subspan(2 * words, 2 * n);
  const std::span<double> old_b = work.subspan(2 * words + 2 * n, n);
  const std::span<double> old_g = work.subspan(2 * words + 3 * n, n);
  const auto value_at = [&](double& f) {
    const Objective::Value v =
        objective.evaluate(b, objective.analytic ? gradient : std::span<double>{});
    f = v.f;
    if (!v.good || !std::isfinite(f)) return false;
    if (!objective.analytic && !NLNUM(objective, b, gradient, true)) return false;
    return all_finite(gradient);
  };
  double f = 0.0;
  if (!value_at(f)) return f;
  for (int round = 0; round < NEWTON_STEPS && !stop_requested(); ++round) {
    if (!numeric_hessian(objective, b, H, pair) || !HessianFactors(factors).factorise(H)) break;
    std::ranges::copy(b, old_b.begin());
    std::ranges::copy(gradient, old_g.begin());
    const std::span<double> s = pair.first(n);
    factors.direction(gradient, s);
    if (-dot(gradient, s) / 2.0 <= NO_GAIN * std::max(1.0, std::fabs(f))) break;
    for (std::size_t i = 0; i < n; ++i) b[i] += s[i];
    double trial = 0.0;
    if (!value_at(trial) || trial > f) {
      std::ranges::copy(old_b, b.begin());
      std::ranges::copy(old_g, gradient.begin());
      value_at(trial);  // what the objective keeps is that of b again
      break;
    }
    f = trial;
  }
  NLCOM.FUNVAL = f;
  return f;
}

}  // namespace korvel
