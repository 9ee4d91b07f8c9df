// Rows that are made of the listed columns: complex data, double-length regressions, inverse lags.
#include <algorithm>
#include <cmath>

#include "regress/ols_parts.h"

namespace korvel {
namespace {

double value(const double* column, std::int64_t t) { return column == nullptr ? 1.0 : column[t]; }

struct Complex {
  double re, im;
};

// POLAR data are a modulus and an angle in radians.
Complex complex_value(const double* first, const double* second, std::int64_t t) {
  const double a = first[t];
  const double b = second[t];
  if (OLSCOM.POLAR) return {a * std::cos(b), a * std::sin(b)};
  return {a, b};
}

// A complex regressor a + bi with coefficient c + di adds (ac - bd) + (bc + ad)i: its pair of
// columns becomes (a, -b) over (b, a). The constant is 1 + 0i. Real parts fill the upper half.
void build_complex(std::span<const double* const> from, std::int64_t n, int NF,
                   std::span<double> to) {
  const auto K = static_cast<std::size_t>(NF - 1);
  const auto column = [&](std::size_t k) {
    return to.data() + 2 * n * static_cast<std::ptrdiff_t>(k);
  };
  for (std::size_t k = 0; k < K; k += 2) {
    double* first = column(k);
    double* second = column(k + 1);
    for (std::int64_t t = 0; t < n; ++t) {
      const Complex x =
          from[k] == nullptr ? Complex{1.0, 0.0} : complex_value(from[k], from[k + 1], t);
      first[t] = x.re;
      first[n + t] = x.im;
      second[t] = -x.im;
      second[n + t] = x.re;
    }
  }
  // The dependent variable stands at place NF, its imaginary part behind it.
  for (std::int64_t t = 0; t < n; ++t) {
    const Complex y = complex_value(from[K], from[K + 1], t);
    column(K)[t] = y.re;
    column(K)[n + t] = y.im;
  }
}

// The artificial regression of Davidson and MacKinnon (1984): the columns in parentheses stand
// below the regressors; below the dependent variable ones, or the first of the columns in
// parentheses when there is one more of them than regressors.
void build_double(std::span<const double* const> from, std::int64_t n, int NF,
                  std::span<double> to) {
  const auto half = static_cast<std::size_t>(n);
  const auto y = static_cast<std::size_t>(NF - 1);
  const std::size_t regressors = y - (OLSCOM.CONSTANT ? 1 : 0);
  const bool own = OLSCOM.second_columns > static_cast<int>(regressors);
  for (std::size_t k = 0; k <= y; ++k) {
    double* column = to.data() + 2 * half * k;
    const double* below = nullptr;
    if (k < regressors) below = from[y + 1 + k + (own ? 1 : 0)];
    if (k == y && own) below = from[y + 1];
    for (std::size_t t = 0; t < half; ++t) {
      column[t] = value(from[k], static_cast<std::int64_t>(t));
      column[half + t] = value(below, static_cast<std::int64_t>(t));
    }
  }
}

// z(t) = sum over i >= 0 of x(t-i) / (i+1)^power, over all values from NDROP observations before
// MBEG on (Mitchell and Speaker 1986).
void build_inverse_lags(Workspace ws, std::span<const ListItem> list,
                        std::span<const double* const> from, std::int64_t n,
                        std::span<double> weight, std::span<double> to) {
  for (std::size_t k = 0; k < list.size(); ++k) {
    double* column = to.data() + static_cast<std::size_t>(n) * k;
    if (list[k].column == 0) {
      for (std::int64_t t = 0; t < n; ++t) column[t] = value(from[k], t);
      continue;
    }
    for (std::size_t i = 0; i < weight.size(); ++i) {
      double power = 1.0;
      for (int p = 0; p < list[k].column; ++p) power *= static_cast<double>(i + 1);
      weight[i] = 1.0 / power;
    }
    const std::span<const double> x = elements(ws, list[k].var);
    KeptRows rows(ws);
    while (rows.next()) {
      const int past = rows.obs - (DATCOM.MBEG - OLSCOM.NDROP);
      double sum = 0.0;
      for (int i = 0; i <= past; ++i) {
        sum += x[static_cast<std::size_t>(rows.obs - 1 - i)] * weight[static_cast<std::size_t>(i)];
      }
      column[rows.row] = sum;
    }
  }
}

}  // namespace

void build_rows(Workspace ws, std::span<const ListItem> list, std::int64_t n,
                std::span<double> weight, std::span<double> to, std::span<const double*> column) {
  const int NF = static_cast<int>(list.size());
  switch (OLSCOM.build) {
    case Build::Plain:
      return;
    case Build::Imls:
      build_complex(column, n, NF, to);
      break;
    case Build::Dlrx:
      build_double(column, n, NF, to);
      break;
    case Build::Pilags:
      build_inverse_lags(ws, list, column, n, weight, to);
      break;
  }
  const auto rows = static_cast<std::size_t>(n * OLSCOM.blocks);
  for (std::size_t k = 0; k < list.size(); ++k) column[k] = to.data() + rows * k;
}

double complex_moments(const ColumnList& x, std::span<double> means, std::span<double> squares) {
  const std::int64_t half = x.rows / 2;
  double raw = 0.0;
  for (std::size_t k = 0; k < x.column.size(); ++k) {
    squares[k] = 0.0;
    raw = 0.0;
    for (int part = 1; part >= 0; --part) {
      const double* v = x.column[k] + part * half;
      double sum = 0.0;
      for (std::int64_t t = 0; t < half; ++t) sum += v[t];
      const double mean = sum / static_cast<double>(half);
      for (std::int64_t t = 0; t < half; ++t) {
        squares[k] += (v[t] - mean) * (v[t] - mean);
        raw += v[t] * v[t];
      }
      means[k] = mean;
    }
  }
  return raw;
}

}  // namespace korvel
