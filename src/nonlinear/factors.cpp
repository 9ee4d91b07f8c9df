// The Hessian of the minimisers as L D L', packed by columns with D first.
//
// Rank-one updates: Fletcher and Powell (1974), Mathematics of Computation 28, 1067-1087; Gill,
// Golub, Murray and Saunders (1974), ibid., 505-535, methods C1 and C2.

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "expr/kernels/packed.h"
#include "expr/kernels/vector_lanes.h"
#include "nonlinear/minimise.h"

namespace korvel {
namespace {

constexpr double EPS = std::numeric_limits<double>::epsilon();

// Words of the last run, for SAME. They grow to the largest model and stay.
std::vector<double> KEPT;
int KEPT_ORDER = 0;

// Column j (from 0) of order n: d, then the elements below the diagonal.
std::size_t column_place(int n, int j) {
  const auto order = static_cast<std::size_t>(n), column = static_cast<std::size_t>(j);
  return column * order - column * (column - 1) / 2;
}

// For loops that go from one column to the next, forwards.
struct ColumnWalk {
  double* column;
  std::ptrdiff_t below;  // elements behind d
  ColumnWalk(std::span<double> LD, int n) : column(LD.data()), below(n - 1) {}
  double& d() const { return column[0]; }
  double* L() const { return column + 1; }
  void next() {
    column += below + 1;
    --below;
  }
};

// The update with a positive factor, or any whose result can't lose definiteness.
void update_up(std::span<double> LD, int n, std::span<double> v, double a) {
  ColumnWalk walk(LD, n);
  for (std::size_t j = 0; j < v.size(); ++j, walk.next()) {
    const double p = v[j];
    if (p == 0.0) continue;
    const double d = walk.d();
    const double d_new = d + a * p * p;
    const double beta = a * p / d_new;
    a *= d / d_new;
    walk.d() = d_new;
    double* const L = walk.L();
    double* const rest = v.data() + j + 1;
    for (std::ptrdiff_t i = 0; i < walk.below; ++i) {
      rest[i] -= p * L[i];
      L[i] += beta * rest[i];
    }
  }
}

}  // namespace

HessianFactors kept_factors(int n, bool same) {
  const auto words = static_cast<std::size_t>(HessianFactors::words(n));
  const bool found = same && KEPT_ORDER == n;
  if (KEPT.size() < words) KEPT.resize(words);
  KEPT_ORDER = n;
  const HessianFactors factors{.LD = std::span(KEPT).first(words), .n = n};
  if (!found) HessianFactors(factors).identity();
  return factors;
}

void HessianFactors::identity() {
  std::ranges::fill(LD, 0.0);
  ColumnWalk walk(LD, n);
  for (int j = 0; j < n; ++j, walk.next()) walk.d() = 1.0;
}

bool HessianFactors::positive() const {
  ColumnWalk walk(LD, n);
  for (int j = 0; j < n; ++j, walk.next()) {
    if (!(walk.d() > 0.0)) return false;
  }
  return true;
}

void HessianFactors::direction(std::span<const double> g, std::span<double> s) const {
  for (std::size_t i = 0; i < s.size(); ++i) s[i] = -g[i];
  ColumnWalk walk(LD, n);
  for (std::size_t j = 0; j < s.size(); ++j, walk.next()) {
    vector_lanes().add(-s[j], walk.L(), walk.below, s.data() + j + 1);
  }
  for (int j = n - 1; j >= 0; --j) {
    const auto k = static_cast<std::size_t>(j);
    const double* const column = LD.data() + column_place(n, j);
    s[k] = s[k] / column[0] - vector_lanes().dot(column + 1, s.data() + k + 1, n - 1 - j);
  }
}

bool HessianFactors::update(std::span<double> v, double factor) const {
  for (const double e : v) {
    if (!std::isfinite(e)) return false;
  }
  if (factor == 0.0) return true;
  if (!std::isfinite(factor)) return false;
  if (factor > 0.0) {
    update_up(LD, n, v, factor);
    return true;
  }
  // 1. p := L^-1 v, and t = 1/factor + p'D^-1 p, which is below 0 as long as the result is positive
  //    definite.
  const double start = 1.0 / factor;
  double t = start;
  ColumnWalk walk(LD, n);
  for (std::size_t j = 0; j < v.size(); ++j, walk.next()) {
    vector_lanes().add(-v[j], walk.L(), walk.below, v.data() + j + 1);
    t += v[j] * v[j] / walk.d();
  }
  // What rounding has lifted to 0 is taken as just below it; more is a refusal.
  const double rounding = 16.0 * EPS * n * std::fabs(start);
  if (!(t < rounding)) return false;
  t = std::min(t, -rounding);
  // 2. Backwards, so that every new d is a product of positive numbers. v[i] for i > j holds what
  //    is left of v behind the first j columns.
  for (int j = n - 1; j >= 0; --j) {
    const auto k = static_cast<std::size_t>(j);
    double* const column = LD.data() + column_place(n, j);
    const double p = v[k], d = column[0];
    const double before = t - p * p / d;
    const double beta = p / (d * t);
    column[0] = d * (t / before);
    double* const rest = v.data() + k + 1;
    for (int i = 0; i < n - 1 - j; ++i) {
      const double L = column[i + 1];
      column[i + 1] = L + beta * rest[i];
      rest[i] += p * L;
    }
    t = before;
  }
  return true;
}

bool HessianFactors::factorise(std::span<const double> packed_matrix) const {
  for (int j = 0; j < n; ++j) {
    double* const column = LD.data() + column_place(n, j);
    for (int i = j; i < n; ++i) column[i - j] = packed_matrix[packed(i + 1, j + 1)];
  }
  for (int j = 0; j < n; ++j) {
    double* const column = LD.data() + column_place(n, j);
    double lost = 0.0;
    for (int k = 0; k < j; ++k) {
      const double* const left = LD.data() + column_place(n, k);
      const double L = left[j - k];
      lost += L * L * left[0];
      vector_lanes().add(-L * left[0], left + (j - k) + 1, n - 1 - j, column + 1);
    }
    const double d = column[0] - lost;
    // A pivot below the rounding of the sum that it is left of is none; as in the Cholesky kernel.
    if (!(d > 0.0) || d * 0.03125 + lost == lost) return false;
    column[0] = d;
    for (int i = 1; i < n - j; ++i) column[i] /= d;
  }
  return true;
}

void HessianFactors::inverse(std::span<double> packed_inverse) const {
  const std::span<double> M = packed_inverse;
  const auto L = [&](int i, int j) {
    return LD[column_place(n, j) + static_cast<std::size_t>(i - j)];
  };
  // 1. M := L^-1, by rows.
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j < i; ++j) {
      double sum = L(i, j);
      for (int k = j + 1; k < i; ++k) sum += L(i, k) * M[packed(k + 1, j + 1)];
      M[packed(i + 1, j + 1)] = -sum;
    }
    M[packed(i + 1, i + 1)] = 1.0;
  }
  // 2. M'D^-1 M in place: row i needs itself and the rows below.
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j <= i; ++j) {
      double sum = 0.0;
      for (int k = i; k < n; ++k) {
        sum += M[packed(k + 1, i + 1)] * M[packed(k + 1, j + 1)] / LD[column_place(n, k)];
      }
      M[packed(i + 1, j + 1)] = sum;
    }
  }
}

}  // namespace korvel
