// Rows of a model with errors of higher order or moving averages, and their derivatives.

#include <algorithm>
#include <cmath>

#include "regress/auto.h"

namespace korvel {
namespace {

// out(t) -= sum m(j) out(t-j), row by row; nothing stands before the sample.
void divide_by_average(std::span<const double> m, std::span<double> out) {
  for (std::size_t t = 0; t < out.size(); ++t) {
    double sum = 0.0;
    for (std::size_t j = 1; j <= std::min(m.size(), t); ++j) sum += m[j - 1] * out[t - j];
    out[t] -= sum;
  }
}

}  // namespace

bool first_rows_factor(std::span<const double> r, std::span<double> P, std::span<double> work) {
  const std::size_t p = r.size();
  // Inverse autocovariances: A A' - B B' with lower triangles whose diagonals are constant, of
  // A(1, -r1, -r2, ..) and B(-rp, -r(p-1), ..).
  const auto a = [&](std::size_t i) { return i == 0 ? 1.0 : -r[i - 1]; };
  const auto b = [&](std::size_t i) { return -r[p - 1 - i]; };
  for (std::size_t i = 0; i < p; ++i) {
    for (std::size_t j = 0; j <= i; ++j) {
      double sum = 0.0;
      for (std::size_t k = 0; k <= j; ++k) sum += a(i - k) * a(j - k) - b(i - k) * b(j - k);
      work[i * p + j] = sum;
    }
  }
  // P'P: the last row of P first.
  std::ranges::fill(P, 0.0);
  for (std::size_t i = p; i-- > 0;) {
    double left = work[i * p + i];
    for (std::size_t k = i + 1; k < p; ++k) left -= P[k * p + i] * P[k * p + i];
    if (!(left > 0.0)) return false;
    P[i * p + i] = std::sqrt(left);
    for (std::size_t j = 0; j < i; ++j) {
      double sum = work[i * p + j];
      for (std::size_t k = i + 1; k < p; ++k) sum -= P[k * p + i] * P[k * p + j];
      P[i * p + j] = sum / P[i * p + i];
    }
  }
  return true;
}

void filter_column(const ErrorModel& model, const double* z, std::int64_t n,
                   std::span<double> out) {
  const std::size_t p = model.r.size();
  const auto at = [&](std::size_t t) { return z == nullptr ? 1.0 : z[t]; };
  const auto first = static_cast<std::size_t>(model.lost());
  for (std::size_t t = first; t < static_cast<std::size_t>(n); ++t) {
    double sum = at(t);
    if (t < p && model.exact()) {
      sum = 0.0;
      for (std::size_t k = 0; k <= t; ++k) sum += model.first[t * p + k] * at(k);
    } else {
      for (std::size_t j = 1; j <= std::min(p, t); ++j) sum -= model.r[j - 1] * at(t - j);
    }
    out[t - first] = sum;
  }
  divide_by_average(model.m, out);
}

void derivative_r(const ErrorModel& model, int j, std::span<const double> e,
                  std::span<const double> dP, std::span<double> out) {
  const std::size_t p = model.r.size();
  const auto lag = static_cast<std::size_t>(j);
  const auto first = static_cast<std::size_t>(model.lost());
  for (std::size_t t = first; t < e.size(); ++t) {
    double value = t >= lag ? e[t - lag] : 0.0;
    if (t < p && model.exact()) {
      value = 0.0;
      for (std::size_t k = 0; k <= t; ++k) value -= dP[t * p + k] * e[k];
    }
    out[t - first] = value;
  }
  divide_by_average(model.m, out);
}

void derivative_m(const ErrorModel& model, int j, std::span<const double> u,
                  std::span<const double> before, std::span<double> out) {
  const auto lag = static_cast<std::size_t>(j);
  for (std::size_t t = 0; t < u.size(); ++t) {
    if (t >= lag) {
      out[t] = u[t - lag];
    } else {
      const std::size_t back = lag - t - 1;
      out[t] = back < before.size() ? before[back] : 0.0;
    }
  }
  divide_by_average(model.m, out);
}

void derivative_before(const ErrorModel& model, int k, std::span<double> out) {
  // u(1-k) enters row t, from 0, with m(t+k).
  for (std::size_t t = 0; t < out.size(); ++t) {
    const std::size_t lag = t + static_cast<std::size_t>(k);
    out[t] = lag <= model.m.size() ? model.m[lag - 1] : 0.0;
  }
  divide_by_average(model.m, out);
}

}  // namespace korvel
