// The units of the iteration of MLE: columns near zero mean and of unit size (limdep/newton.h), so
// that neither units of measurement nor a large mean decide how far a difference or a step goes.

#include <algorithm>
#include <cmath>

#include "expr/kernels/packed.h"
#include "limdep/newton.h"
#include "nonlinear/nlmle_parts.h"

namespace korvel {
namespace {

Units units_of(const MleRows& rows) { return {rows.shift, rows.scale, rows.constant}; }

// Calls f for the first and, where there is one, the second index: the place of its coefficients.
template <class F>
void each_index(const MleFamily& family, std::size_t K, F&& f) {
  f(std::size_t{0});
  if (family.both) f(K);
}

// Row `to` of a packed matrix += m times row `from`, and the columns alike.
void add_row(std::span<double> a, int order, int to, int from, double m) {
  a[packed(to, to)] += 2.0 * m * a[packed(to, from)] + m * m * a[packed(from, from)];
  for (int j = 1; j <= order; ++j) {
    if (j != to) a[packed(to, j)] += m * a[packed(from, j)];
  }
}

void scale_row(std::span<double> a, int order, int row, double s) {
  for (int j = 1; j <= order; ++j) a[packed(row, j)] *= j == row ? s * s : s;
}

}  // namespace

void settle_units(MleModel& m) {
  const std::span<double> shift = m.shift, scale = m.scale;
  const auto n = static_cast<std::size_t>(m.rows.rows);
  m.rows.shift = shift;
  m.rows.scale = scale;
  m.rows.constant = -1;
  for (std::size_t k = 0; k < shift.size(); ++k) {
    shift[k] = 0.0;
    scale[k] = 1.0;
    if (m.rows.column[k] == nullptr) m.rows.constant = static_cast<int>(k);
  }
  for (std::size_t k = 0; k < shift.size(); ++k) {
    const double* const x = m.rows.column[k];
    if (x == nullptr) continue;
    if (m.rows.constant >= 0) shift[k] = m.means[k];
    double reach = 0.0;
    for (std::size_t t = 0; t < n; ++t) reach = std::max(reach, std::fabs(x[t] - shift[k]));
    if (reach > 0.0) scale[k] = std::ldexp(1.0, -std::clamp(std::ilogb(reach), -1000, 1000));
  }
}

void mle_from_units(const MleFamily& family, const MleRows& rows, std::span<const double> scaled,
                    std::span<double> b) {
  const std::size_t K = rows.column.size();
  std::ranges::copy(scaled, b.begin());
  each_index(family, K, [&](std::size_t at) {
    from_units(units_of(rows), scaled.subspan(at, K), b.subspan(at, K));
  });
}

void mle_to_units(const MleFamily& family, const MleRows& rows, std::span<const double> b,
                  std::span<double> scaled) {
  const std::size_t K = rows.column.size();
  std::ranges::copy(b, scaled.begin());
  each_index(family, K, [&](std::size_t at) {
    to_units(units_of(rows), b.subspan(at, K), scaled.subspan(at, K));
  });
}

void mle_covariance_from_units(const MleFamily& family, const MleRows& rows,
                               std::span<double> cov) {
  const int M = mle_coefficients(family, rows.K());
  each_index(family, rows.column.size(), [&](std::size_t at) {
    const int first = static_cast<int>(at) + 1;
    for (int k = 0; k < rows.K(); ++k) {
      scale_row(cov, M, first + k, rows.scale[static_cast<std::size_t>(k)]);
    }
    if (rows.constant < 0) return;
    for (int k = 0; k < rows.K(); ++k) {
      if (k == rows.constant) continue;
      add_row(cov, M, first + rows.constant, first + k, -rows.shift[static_cast<std::size_t>(k)]);
    }
  });
}

void mle_derivatives_from_units(const MleFamily& family, const MleRows& rows,
                                std::span<double> second) {
  const int M = mle_coefficients(family, rows.K());
  each_index(family, rows.column.size(), [&](std::size_t at) {
    const int first = static_cast<int>(at) + 1;
    for (int k = 0; k < rows.K(); ++k) {
      scale_row(second, M, first + k, 1.0 / rows.scale[static_cast<std::size_t>(k)]);
    }
    if (rows.constant < 0) return;
    for (int k = 0; k < rows.K(); ++k) {
      if (k == rows.constant) continue;
      add_row(second, M, first + k, first + rows.constant, rows.shift[static_cast<std::size_t>(k)]);
    }
  });
}

double MleLikelihood::shown(std::span<const double> b, std::size_t i) const {
  const std::size_t K = rows_.column.size();
  const std::size_t at = family_.both && i >= K ? K : 0;
  if (i >= at + K) return b[i];
  const std::size_t k = i - at;
  if (static_cast<int>(k) != rows_.constant) return b[i] * rows_.scale[k];
  double level = b[i];
  for (std::size_t j = 0; j < K; ++j) {
    if (j != k) level -= b[at + j] * rows_.scale[j] * rows_.shift[j];
  }
  return level;
}

double MleLikelihood::shown_slope(std::span<const double> g, std::size_t i) const {
  const std::size_t K = rows_.column.size();
  const std::size_t at = family_.both && i >= K ? K : 0;
  if (i >= at + K) return g[i];
  const std::size_t k = i - at;
  const double level = rows_.constant >= 0 ? g[at + static_cast<std::size_t>(rows_.constant)] : 0.0;
  return static_cast<int>(k) == rows_.constant ? level
                                               : g[i] / rows_.scale[k] + rows_.shift[k] * level;
}

}  // namespace korvel
