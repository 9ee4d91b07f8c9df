// Tests for a unit root.
#include "arima/unitroot.h"

#include <algorithm>
#include <cmath>

#include "arima/autocorr.h"
#include "expr/kernels/gsreg.h"
#include "expr/kernels/packed.h"

namespace korvel {
namespace {

constexpr int MAXCOLUMNS = MAXLAGS + 4;
using Coefficients = std::array<double, MAXCOLUMNS>;

// The columns of a test regression; those that a hypothesis leaves are taken first.
struct Columns {
  std::array<const double*, MAXCOLUMNS> at{};
  std::size_t count = 0;
  void add(const double* column) { at[count++] = column; }
  std::span<const double* const> all() const { return std::span(at).first(count); }
};

std::size_t index(std::int64_t i) { return static_cast<std::size_t>(i); }

// Front of the work space: the differences, the trend, the packed inverse; the rest is the fit's.
struct Room {
  std::span<double> dy, trend, inverse, rest;
  Room(std::span<double> work, std::size_t T, int columns)
      : dy(work.first(T)),
        trend(work.subspan(T, T)),
        inverse(work.subspan(2 * T, packed_words(columns))),
        rest(work.subspan(2 * T + packed_words(columns))) {}
};

}  // namespace

std::int64_t unit_root_words(std::int64_t T, int p) {
  const int columns = p + 4;
  return 2 * T + static_cast<std::int64_t>(2 * packed_words(columns)) + std::int64_t{2} * columns +
         GSREG_words(columns, T);
}

SmallFit small_fit(std::span<const double* const> columns, std::int64_t rows,
                   std::span<double> work, std::span<double> b, std::span<double> inverse) {
  const int n = static_cast<int>(columns.size());
  const ColumnList x{columns, rows, nullptr, {}};
  const std::span<double> factor = work.first(packed_words(n));
  SmallFit fit;
  if (n == 1) {  // nothing to regress on
    for (std::int64_t t = 0; t < rows; ++t) fit.SSE += x.at(0, t) * x.at(0, t);
    return fit;
  }
  fit.IFAULT = GSREG(x, work.subspan(packed_words(n)), factor, n, {}, {});
  if (fit.IFAULT != 0) return fit;
  fit.SSE = factor[packed(n, n)];
  if (!b.empty()) gs_coefficients(factor, n, b);
  if (!inverse.empty()) gs_inverse(factor, n, inverse);
  return fit;
}

DickeyFuller DICKEYF(std::span<const double> y, int p, Deterministic terms,
                     std::span<double> work) {
  DickeyFuller df;
  const auto T = static_cast<std::int64_t>(y.size());
  const int extra = static_cast<int>(terms);  // deterministic columns: 0, 1 or 2
  const int k = 1 + p + extra;
  const std::int64_t n = T - p - 1;
  if (n - k <= 0) {
    df.IFAULT = 1;
    return df;
  }
  df.n = static_cast<int>(n);
  const Room room(work, y.size(), k + 1);
  for (std::int64_t j = 0; j + 1 < T; ++j) room.dy[index(j)] = y[index(j + 1)] - y[index(j)];
  for (std::int64_t t = 0; t < T; ++t) room.trend[index(t)] = static_cast<double>(t + 1);
  const double* const dependent = room.dy.data() + p;
  // 1. The whole regression: level, lags, constant, trend.
  Columns all;
  all.add(y.data() + p);
  for (int i = 1; i <= p; ++i) all.add(dependent - i);
  if (extra >= 1) all.add(nullptr);
  if (extra == 2) all.add(room.trend.data() + p + 1);
  all.add(dependent);
  Coefficients b{};
  const SmallFit fit = small_fit(all.all(), n, room.rest, std::span(b).first(index(k)),
                                 room.inverse.first(packed_words(k)));
  if (fit.IFAULT != 0) {
    df.IFAULT = 2;
    return df;
  }
  const double s2 = fit.SSE / static_cast<double>(n - k);
  if (!(s2 > 0.0)) {
    df.IFAULT = 3;
    return df;
  }
  df.tau = b[0] / std::sqrt(s2 * room.inverse[packed(1, 1)]);
  double lags = 0.0;
  for (int i = 1; i <= p; ++i) lags += b[index(i)];
  df.z = static_cast<double>(n) * b[0] / (1.0 - lags);
  if (p > 0) df.t_last = b[index(p)] / std::sqrt(s2 * room.inverse[packed(p + 1, p + 1)]);
  if (extra == 0) return df;
  // 2. What the hypotheses leave: the lags, with or without the constant.
  const auto F = [&](bool constant, int q) {
    Columns left;
    for (int i = 1; i <= p; ++i) left.add(dependent - i);
    if (constant) left.add(nullptr);
    left.add(dependent);
    const SmallFit reduced = small_fit(left.all(), n, room.rest, {}, {});
    return (reduced.SSE - fit.SSE) / (q * s2);
  };
  if (extra == 1) {
    df.phi1 = F(false, 2);
  } else {
    df.phi2 = F(false, 3);
    df.phi3 = F(true, 2);
  }
  return df;
}

PhillipsPerron PHILLIPP(std::span<const double> y, int L, Deterministic terms,
                        std::span<double> work) {
  PhillipsPerron pp;
  const auto T = static_cast<std::int64_t>(y.size()) - 1;
  const int extra = static_cast<int>(terms);
  const int k = 1 + extra;
  if (T - k <= 0 || L >= T) {
    pp.IFAULT = 1;
    return pp;
  }
  pp.n = static_cast<int>(T);
  const Room room(work, y.size(), k + 1);
  for (std::int64_t t = 0; t < T; ++t) room.trend[index(t)] = static_cast<double>(t + 1);
  Columns all;
  all.add(y.data());
  if (extra >= 1) all.add(nullptr);
  if (extra == 2) all.add(room.trend.data());
  all.add(y.data() + 1);
  Coefficients b{};
  const SmallFit fit = small_fit(all.all(), T, room.rest, std::span(b).first(index(k)),
                                 room.inverse.first(packed_words(k)));
  if (fit.IFAULT != 0) {
    pp.IFAULT = 2;
    return pp;
  }
  if (!(fit.SSE > 0.0)) {
    pp.IFAULT = 3;
    return pp;
  }
  // The variance of the residuals and their long-run variance.
  const ColumnList x{all.all(), T, nullptr, {}};
  const std::span<double> e = room.dy.first(index(T));
  gs_residuals(x, std::span<const double>(b).first(index(k)), e);
  const auto rows = static_cast<double>(T);
  const double g0 = fit.SSE / rows;
  const double s2 = fit.SSE / static_cast<double>(T - k);
  std::array<double, MAXLAGS> g{};
  const std::span<double> sums = std::span(g).first(index(L));
  lagged_products(e, sums);
  double long_run = g0;
  for (int j = 1; j <= L; ++j) {
    long_run += 2.0 * (1.0 - j / (L + 1.0)) * sums[index(j - 1)] / rows;
  }
  const double se = std::sqrt(s2 * room.inverse[packed(1, 1)]);
  const double t = (b[0] - 1.0) / se;
  const double excess = long_run - g0;
  pp.zt = std::sqrt(g0 / long_run) * t - excess * rows * se / (2.0 * std::sqrt(long_run * s2));
  pp.za = rows * (b[0] - 1.0) - excess * (rows * se) * (rows * se) / (2.0 * s2);
  return pp;
}

}  // namespace korvel
