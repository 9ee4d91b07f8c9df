// Householder reflections of a triangle with a block of rows below it: a reflection touches one row
// of the triangle and the block alone. Golub and Van Loan (1996), section 12.5.

#include "nonlinear/row_qr.h"

#include <algorithm>
#include <cmath>

#include "expr/kernels/vector_lanes.h"

namespace korvel {

void reflect_rows(std::span<double> R, int K, double* block, std::ptrdiff_t ld,
                  std::ptrdiff_t rows) {
  const VectorLanes& lanes = vector_lanes();
  for (int k = 0; k < K; ++k) {
    double* const v = block + k * ld;
    const double below = lanes.dot(v, v, rows);
    if (below == 0.0) continue;
    double* const row = R.data() + k;  // element (k, j) is row[j K]
    double& pivot = row[std::ptrdiff_t{k} * K];
    const double norm = std::sqrt(pivot * pivot + below);
    const double reflected = pivot > 0.0 ? -norm : norm;
    const double head = pivot - reflected;
    const double scale = 2.0 / (head * head + below);
    pivot = reflected;
    for (int j = k + 1; j <= K; ++j) {
      double* const column = block + j * ld;
      double& top = row[std::ptrdiff_t{j} * K];
      const double t = scale * (head * top + lanes.dot(v, column, rows));
      top -= t * head;
      lanes.add(-t, v, rows, column);
    }
  }
}

void factor_rows(std::span<double> R, std::span<const double* const> columns, std::int64_t n,
                 std::span<double> work) {
  const int K = static_cast<int>(columns.size()) - 1;
  std::ranges::fill(R.first(triangle_words(K)), 0.0);
  for (std::int64_t from = 0; from < n; from += QR_ROWS) {
    const std::int64_t rows = std::min<std::int64_t>(QR_ROWS, n - from);
    double* to = work.data();
    for (const double* column : columns) {
      std::copy_n(column + from, rows, to);
      to += QR_ROWS;
    }
    reflect_rows(R, K, work.data(), QR_ROWS, rows);
  }
}

void solve_triangle(std::span<const double> R, int K, int order, std::span<double> x,
                    double least) {
  const auto at = [&](int i, int j) {
    return R[static_cast<std::size_t>(j) * static_cast<std::size_t>(K) +
             static_cast<std::size_t>(i)];
  };
  for (int i = order - 1; i >= 0; --i) {
    double norm2 = 0.0;
    for (int k = 0; k <= i; ++k) norm2 += at(k, i) * at(k, i);
    const double pivot = at(i, i);
    double& value = x[static_cast<std::size_t>(i)];
    value = 0.0;
    if (!(std::fabs(pivot) > least * std::sqrt(norm2))) continue;
    double sum = -at(i, K);
    for (int j = i + 1; j < order; ++j) sum -= at(i, j) * x[static_cast<std::size_t>(j)];
    value = sum / pivot;
  }
}

}  // namespace korvel
