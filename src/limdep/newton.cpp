#include "limdep/newton.h"

#include <cmath>

#include "expr/kernels/packed.h"

namespace korvel {
namespace {

constexpr double SMALLEST_PIVOT = 1e-12;

// The map from coefficients of scaled columns to those of the columns as they are, b = A b': the
// element of A in row r of column c (places in one block).
double unit_element(const Units& u, int r, int c) {
  if (r == c) return u.scale[static_cast<std::size_t>(c)];
  if (r != u.constant) return 0.0;
  const auto k = static_cast<std::size_t>(c);
  return -u.shift[k] * u.scale[k];
}

// The inverse of A.
double inverse_element(const Units& u, int r, int c) {
  const auto k = static_cast<std::size_t>(c);
  if (r == c) return 1.0 / u.scale[k];
  return r == u.constant ? u.shift[k] : 0.0;
}

// out := F S F' for packed S by blocks of columns, where F(r,c) = 0 unless r = c, or `hub` is r
// (by_row) or c.
template <class F>
void sandwich(const Units& u, std::span<const double> S, bool by_row, std::span<double> column,
              std::span<double> out, F&& element) {
  const int C = u.columns();
  const int M = static_cast<int>(column.size());
  // Row r of F touches: by_row: all columns when r is the constant, else r; otherwise r and the
  // constant.
  const auto apply = [&](int r, auto&& value) {
    const int base = r / C * C;
    const int place = r - base;
    if (u.constant < 0) return element(place, place) * value(r);
    if (by_row && place != u.constant) return element(place, place) * value(r);
    double sum = 0.0;
    for (int c = 0; c < C; ++c) {
      if (c == place || by_row || c == u.constant) sum += element(place, c) * value(base + c);
    }
    return sum;
  };
  for (int i = 0; i < M; ++i) {
    // Row i of F S, then its products with the rows of F.
    for (int j = 0; j < M; ++j) {
      column[static_cast<std::size_t>(j)] =
          apply(i, [&](int k) { return S[packed(k + 1, j + 1)]; });
    }
    for (int j = 0; j <= i; ++j) {
      out[packed(i + 1, j + 1)] =
          apply(j, [&](int k) { return column[static_cast<std::size_t>(k)]; });
    }
  }
}

}  // namespace

void from_units(const Units& units, std::span<const double> scaled, std::span<double> b) {
  const std::size_t C = units.scale.size();
  for (std::size_t from = 0; from < b.size(); from += C) {
    double level = 0.0;
    for (std::size_t k = 0; k < C; ++k) {
      b[from + k] = scaled[from + k] * units.scale[k];
      level += b[from + k] * units.shift[k];
    }
    if (units.constant >= 0) b[from + static_cast<std::size_t>(units.constant)] -= level;
  }
}

void to_units(const Units& units, std::span<const double> b, std::span<double> scaled) {
  const std::size_t C = units.scale.size();
  for (std::size_t from = 0; from < b.size(); from += C) {
    double level = 0.0;
    for (std::size_t k = 0; k < C; ++k) {
      scaled[from + k] = b[from + k] / units.scale[k];
      level += b[from + k] * units.shift[k];
    }
    if (units.constant >= 0) scaled[from + static_cast<std::size_t>(units.constant)] += level;
  }
}

void covariance_from_units(const Units& units, std::span<const double> scaled,
                           std::span<double> column, std::span<double> cov) {
  sandwich(units, scaled, true, column, cov,
           [&](int r, int c) { return unit_element(units, r, c); });
}

// Derivatives go through the inverse, transposed.
void gradient_from_units(const Units& units, std::span<const double> scaled, std::span<double> g) {
  const std::size_t C = units.scale.size();
  for (std::size_t from = 0; from < g.size(); from += C) {
    const double level =
        units.constant >= 0 ? scaled[from + static_cast<std::size_t>(units.constant)] : 0.0;
    for (std::size_t k = 0; k < C; ++k) {
      g[from + k] = scaled[from + k] / units.scale[k] + units.shift[k] * level;
    }
  }
}

void derivatives_from_units(const Units& units, std::span<const double> scaled,
                            std::span<double> column, std::span<double> out) {
  sandwich(units, scaled, false, column, out,
           [&](int r, int c) { return inverse_element(units, c, r); });
}

int pivot_inverse(std::span<double> a, int order, std::span<double> d) {
  // 1. Unit diagonal.
  for (int i = 1; i <= order; ++i) {
    const double v = std::fabs(a[packed(i, i)]);
    if (!(v > 0.0) || !std::isfinite(v)) return i;
    d[static_cast<std::size_t>(i - 1)] = 1.0 / std::sqrt(v);
  }
  const auto root = [&](int i) { return d[static_cast<std::size_t>(i - 1)]; };
  for (int i = 1; i <= order; ++i) {
    for (int j = 1; j <= i; ++j) a[packed(i, j)] *= root(i) * root(j);
  }
  // 2. a = L D L' row by row; L below the diagonal, D on it.
  for (int i = 1; i <= order; ++i) {
    for (int j = 1; j < i; ++j) {
      double sum = a[packed(i, j)];
      for (int k = 1; k < j; ++k) sum -= a[packed(i, k)] * a[packed(j, k)];
      a[packed(i, j)] = sum;  // L(i,j) D(j) until the row is done
    }
    double pivot = a[packed(i, i)];
    for (int j = 1; j < i; ++j) {
      const double l = a[packed(i, j)] / a[packed(j, j)];
      pivot -= l * a[packed(i, j)];
      a[packed(i, j)] = l;
    }
    if (!(std::fabs(pivot) >= SMALLEST_PIVOT)) return i;
    a[packed(i, i)] = pivot;
  }
  // 3. L becomes its inverse.
  for (int j = 1; j <= order; ++j) {
    for (int i = j + 1; i <= order; ++i) {
      double sum = -a[packed(i, j)];
      for (int k = j + 1; k < i; ++k) sum -= a[packed(i, k)] * a[packed(k, j)];
      a[packed(i, j)] = sum;
    }
  }
  // 4. The inverse L'^-1 D^-1 L^-1. Row i reads rows below it, and of itself only the element that
  // is replaced and the pivot, which goes last.
  for (int i = 1; i <= order; ++i) {
    for (int j = 1; j <= i; ++j) {
      double sum = (j < i ? a[packed(i, j)] : 1.0) / a[packed(i, i)];
      for (int k = i + 1; k <= order; ++k) {
        sum += a[packed(k, i)] * a[packed(k, j)] / a[packed(k, k)];
      }
      a[packed(i, j)] = sum;
    }
  }
  for (int i = 1; i <= order; ++i) {
    for (int j = 1; j <= i; ++j) a[packed(i, j)] *= root(i) * root(j);
  }
  return 0;
}

void packed_times(std::span<const double> a, std::span<const double> x, std::span<double> y) {
  const int n = static_cast<int>(x.size());
  for (int i = 1; i <= n; ++i) {
    double sum = 0.0;
    for (int j = 1; j <= n; ++j) sum += a[packed(i, j)] * x[static_cast<std::size_t>(j - 1)];
    y[static_cast<std::size_t>(i - 1)] = sum;
  }
}

}  // namespace korvel
