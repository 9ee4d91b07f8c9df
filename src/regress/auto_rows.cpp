// Rows of a model with first-order errors, the estimates of RHO, and the logarithm of the Jacobian.

#include <algorithm>
#include <cmath>

#include "platform/parallel.h"
#include "regress/auto.h"

namespace korvel {
namespace {

constexpr double PI = 3.14159265358979323846;
constexpr double LARGEST_RHO = 0.9999999;  // of the search: at 1 the likelihood has no value

void transform_column(const double* z, std::int64_t n, double r, bool drop,
                      std::span<const Gap> gaps, std::span<double> out) {
  const std::int64_t lost = drop ? 1 : 0;
  double* to = out.data() + (1 - lost);  // of row 1
  if (z == nullptr) {
    std::fill_n(to, n - 1, 1.0 - r);
  } else {
    for (std::int64_t t = 1; t < n; ++t) to[t - 1] = z[t] - r * z[t - 1];
  }
  if (!drop) out[0] = std::sqrt(1.0 - r * r) * (z == nullptr ? 1.0 : z[0]);
  for (const Gap& gap : gaps) {
    const double now = z == nullptr ? 1.0 : z[gap.row];
    const double before = z == nullptr ? 1.0 : z[gap.row - 1];
    to[gap.row - 1] =
        (now - std::pow(r, gap.steps) * before) / std::sqrt(steps_variance(r, gap.steps));
  }
}

// (N/2) ln SSE and the Jacobian as functions of RHO, the residuals given.
double log_likelihood(std::span<const PairSums> sums, double e1, bool drop, double N, double r) {
  double SSE = drop ? 0.0 : (1.0 - r * r) * e1 * e1;
  for (const PairSums& s : sums) {
    const double power = std::pow(r, s.steps);
    SSE +=
        (s.after2 - 2.0 * power * s.cross + power * power * s.before2) / steps_variance(r, s.steps);
  }
  return -0.5 * N * std::log(SSE) + first_jacobian(r, drop, sums);
}

}  // namespace

double steps_variance(double r, double steps) {
  const double square = r * r;
  if (square == 0.0) return 1.0;
  if (square == 1.0) return steps;
  const double log_square = 2.0 * std::log(std::fabs(r));
  return std::expm1(steps * log_square) / std::expm1(log_square);
}

void transform_first(const ColumnList& z, double r, bool drop, std::span<const Gap> gaps,
                     std::span<double> out) {
  const auto used = static_cast<std::size_t>(z.rows - (drop ? 1 : 0));
  const auto one = [&](int c) {
    const auto k = static_cast<std::size_t>(c);
    transform_column(z.column[k], z.rows, r, drop, gaps, out.subspan(k * used, used));
  };
  constexpr std::int64_t worth_threads = 20000;
  if (z.rows < worth_threads) {
    for (int c = 0; c < z.columns(); ++c) one(c);
  } else {
    parallel_sections(z.columns(), one);
  }
}

double first_jacobian(double r, bool drop, std::span<const PairSums> sums) {
  double sum = drop ? 0.0 : 0.5 * std::log1p(-r * r);
  for (const PairSums& s : sums.subspan(1)) {
    sum -= 0.5 * s.count * std::log(steps_variance(r, s.steps));
  }
  return sum;
}

void sum_pairs(std::span<const double> e, std::span<const Gap> gaps, std::span<PairSums> sums) {
  for (PairSums& s : sums) s = {.steps = s.steps};
  PairSums& all = sums[0];
  std::size_t next = 0;
  for (std::size_t t = 1; t < e.size(); ++t) {
    PairSums* s = &all;
    if (next < gaps.size() && static_cast<std::size_t>(gaps[next].row) == t) {
      s = &sums[gaps[next++].lengths];
    }
    s->count += 1.0;
    s->cross += e[t] * e[t - 1];
    s->before2 += e[t - 1] * e[t - 1];
    s->after2 += e[t] * e[t];
  }
}

double rho_least_squares(const PairSums& neighbours) {
  return neighbours.before2 > 0.0 ? neighbours.cross / neighbours.before2 : 0.0;
}

double rho_likelihood(const PairSums& neighbours, double e1, double N) {
  const double first2 = e1 * e1;
  const double D = (N - 1.0) * (neighbours.before2 - first2);
  if (!(D > 0.0)) return rho_least_squares(neighbours);
  const double a = -(N - 2.0) * neighbours.cross / D;
  const double b = ((N - 1.0) * first2 - N * neighbours.before2 - neighbours.after2) / D;
  const double c = N * neighbours.cross / D;
  const double p = b - a * a / 3.0;
  const double q = c - a * b / 3.0 + 2.0 * a * a * a / 27.0;
  if (!(p < 0.0)) return rho_least_squares(neighbours);
  // The cubic has three real roots, the middle one in (-1, 1): rounding alone leaves [-1, 1] here.
  const double cosine = q * std::sqrt(27.0) / (2.0 * p * std::sqrt(-p));
  const double v = std::acos(std::clamp(cosine, -1.0, 1.0));
  return -2.0 * std::sqrt(-p / 3.0) * std::cos(v / 3.0 + PI / 3.0) - a / 3.0;
}

double rho_search(std::span<const PairSums> sums, double e1, bool drop, double N) {
  const auto L = [&](double r) { return log_likelihood(sums, e1, drop, N, r); };
  double best = 0.0, highest = L(0.0);
  for (int i = -99; i <= 99; ++i) {
    const double value = L(i / 100.0);
    if (value > highest) {
      highest = value;
      best = i / 100.0;
    }
  }
  // Golden section on the two neighbouring cells; a flat top is as good anywhere.
  constexpr double share = 0.61803398874989485;
  double low = std::max(best - 0.01, -LARGEST_RHO);
  double high = std::min(best + 0.01, LARGEST_RHO);
  double a = high - share * (high - low), b = low + share * (high - low);
  double La = L(a), Lb = L(b);
  while (high - low > 1e-10) {
    if (La > Lb) {
      high = b;
      b = a;
      Lb = La;
      a = high - share * (high - low);
      La = L(a);
    } else {
      low = a;
      a = b;
      La = Lb;
      b = low + share * (high - low);
      Lb = L(b);
    }
  }
  return (low + high) / 2.0;
}

}  // namespace korvel
