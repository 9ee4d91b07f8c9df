// Orthonormal columns of a model and of what is added to it.

#include <algorithm>

#include "expr/kernels/packed.h"
#include "expr/kernels/vector_lanes.h"
#include "regress/diagnos.h"

namespace korvel {
namespace {

std::ptrdiff_t length(std::span<const double> v) { return std::ssize(v); }

double mean_of(std::span<const double> v) {
  double sum = 0.0;
  for (const double a : v) sum += a;
  const double first = sum / static_cast<double>(v.size());
  double rest = 0.0;  // what rounding of the first sum has left
  for (const double a : v) rest += a - first;
  return first + rest / static_cast<double>(v.size());
}

// A regressor about its mean, largest deviation 1. False: it does not vary.
bool centred(const DiagnosModel& m, int k, std::span<double> to) {
  const std::span<const double> x = m.column(k);
  const double mean = mean_of(x);
  double most = 0.0, size = 0.0;
  for (std::size_t t = 0; t < x.size(); ++t) {
    to[t] = x[t] - mean;
    most = std::max(most, std::fabs(to[t]));
    size = std::max(size, std::fabs(x[t]));
  }
  if (!(most > NO_SPREAD * size)) return false;
  for (double& v : to) v /= most;
  return true;
}

}  // namespace

bool Basis::accept(double dependent, std::span<double> r) {
  const VectorLanes& lanes = vector_lanes();
  const std::span<double> c = next();
  const double before = std::sqrt(lanes.dot(c.data(), c.data(), length(c)));
  std::ranges::fill(r, 0.0);
  for (int pass = 0; pass < 2; ++pass) {
    for (int j = 0; j < count_; ++j) {
      const double part = dot(j, c);
      lanes.add(-part, column(j).data(), length(c), c.data());
      if (!r.empty()) r[static_cast<std::size_t>(j)] += part;
    }
  }
  const double after = std::sqrt(lanes.dot(c.data(), c.data(), length(c)));
  if (!(after > dependent * before) || !std::isfinite(after)) return false;
  for (double& v : c) v /= after;
  if (!r.empty()) r[static_cast<std::size_t>(count_)] = after;
  ++count_;
  return true;
}

void Basis::adopt(const Basis& other) {
  count_ = 0;
  for (int j = 0; j < other.count(); ++j) {
    std::ranges::copy(other.column(j), next().begin());
    ++count_;
  }
}

double Basis::dot(int j, std::span<const double> v) const {
  return vector_lanes().dot(column(j).data(), v.data(), length(v));
}

void Basis::take_off(std::span<double> v, int first) const {
  for (int pass = 0; pass < 2; ++pass) {
    for (int j = first; j < count_; ++j) {
      vector_lanes().add(-dot(j, v), column(j).data(), length(v), v.data());
    }
  }
}

void solve_r(const DiagnosModel& m, std::span<const double> g, std::span<double> d) {
  for (int i = m.K; i >= 1; --i) {
    double sum = g[static_cast<std::size_t>(i - 1)];
    for (int k = i + 1; k <= m.K; ++k) {
      sum -= m.r[packed(k, i)] * d[static_cast<std::size_t>(k - 1)];
    }
    d[static_cast<std::size_t>(i - 1)] = sum / m.r[packed(i, i)];
  }
  for (int i = 0; i < m.K; ++i) {
    d[static_cast<std::size_t>(i)] *= m.scale[static_cast<std::size_t>(i)] * m.unit;
  }
}

AuxiliaryFit auxiliary_fit(const Basis& z, std::span<double> v) {
  AuxiliaryFit fit{.df = z.count() - 1};
  const VectorLanes& lanes = vector_lanes();
  const double raw = lanes.dot(v.data(), v.data(), length(v));
  const double mean = mean_of(v);
  for (double& a : v) a -= mean;
  fit.SST = lanes.dot(v.data(), v.data(), length(v));
  for (int j = 1; j < z.count(); ++j) {
    const double part = z.dot(j, v);
    fit.SSR += part * part;
  }
  // Of values that are equal but for rounding some 1e-30 of their squares is left.
  constexpr double varies = 1e-22;
  fit.fitted = fit.df > 0 && z.rows() > z.count() && fit.SST > varies * raw;
  return fit;
}

void add_constant(Basis& z) {
  std::ranges::fill(z.next(), 1.0);
  z.accept(0.0);
}

void add_regressors(Basis& z, const DiagnosModel& m) {
  for (int k = m.constant ? 1 : 0; k < m.K; ++k) {
    if (centred(m, k, z.next())) z.accept(ADDED_DEPENDENT);
  }
}

void add_squares(Basis& z, const DiagnosModel& m) {
  for (int k = m.constant ? 1 : 0; k < m.K; ++k) {
    const std::span<double> c = z.next();
    if (!centred(m, k, c)) continue;
    for (double& v : c) v *= v;
    z.accept(ADDED_DEPENDENT);
  }
}

void add_products(Basis& z, const DiagnosModel& m) {
  for (int k = m.constant ? 1 : 0; k < m.K; ++k) {
    for (int i = k + 1; i < m.K; ++i) {
      const std::span<double> c = z.next();
      if (!centred(m, i, c)) continue;
      const std::span<const double> x = m.column(k);
      const double mean = mean_of(x);
      for (std::size_t t = 0; t < c.size(); ++t) c[t] *= x[t] - mean;
      z.accept(ADDED_DEPENDENT);
    }
  }
}

bool add_column(Basis& z, std::span<const double> v) {
  std::ranges::copy(v, z.next().begin());
  return z.accept(ADDED_DEPENDENT);
}

AddedTest added_test(const DiagnosModel& m, const Basis& q, std::span<double> u) {
  AddedTest test{.DF1 = q.count() - m.K, .DF2 = static_cast<int>(m.N) - q.count()};
  if (test.DF1 < 1 || test.DF2 < 1) return test;
  std::ranges::copy(m.e, u.begin());
  m.q.take_off(u);  // of a restricted fit; nothing otherwise
  double gain = 0.0;
  for (int j = m.K; j < q.count(); ++j) {
    const double part = q.dot(j, u);
    gain += part * part;
  }
  q.take_off(u, m.K);
  const double SSE = vector_lanes().dot(u.data(), u.data(), length(u));
  if (!(SSE > 0.0)) return test;
  test.F = gain / test.DF1 / (SSE / test.DF2);
  test.fitted = std::isfinite(test.F);
  return test;
}

}  // namespace korvel
