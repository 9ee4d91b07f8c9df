#include "expr/kernels/dense_cholesky.h"

#include <algorithm>
#include <cmath>

#include "expr/kernels/gemm.h"

namespace korvel {
namespace {
constexpr std::int64_t NB = 32;  // columns of a block, as for the LU decomposition
}  // namespace

std::int64_t dense_cholesky_words(std::int64_t n) { return n + DGMULT_words(n, n, NB); }

int dense_cholesky(double* a, int n, std::span<double> work) {
  const auto order = static_cast<std::size_t>(n);
  const std::span<double> given = work.first(order);  // the diagonal as it came
  const std::int64_t ld = n;
  for (std::int64_t i = 0; i < n; ++i) given[static_cast<std::size_t>(i)] = a[i + i * ld];
  for (std::int64_t k0 = 0; k0 < n; k0 += NB) {
    const std::int64_t k1 = std::min(k0 + NB, ld);
    for (std::int64_t j = k0; j < k1; ++j) {
      double* y = a + j + j * ld;
      gemm_lanes().take_columns(a + j + k0 * ld, ld, a + j + k0 * ld, ld, j - k0, n - j, y);
      const double d = y[0];
      const double s = given[static_cast<std::size_t>(j)] - d;
      if (!(d > 0.0)) return static_cast<int>(j + 1);
      if (j > 0 && d * 0.03125 + s == s) return static_cast<int>(-(j + 1));
      const double reciprocal = 1.0 / std::sqrt(d);
      y[0] = 1.0 / reciprocal;
      for (std::int64_t i = 1; i < n - j; ++i) y[i] *= reciprocal;
      std::fill_n(a + j * ld, j, 0.0);
    }
    const double* panel = a + k1 + k0 * ld;
    const GemmShape rest{.rows = n - k1,
                         .columns = n - k1,
                         .inner = k1 - k0,
                         .ld = ld,
                         .mode = GEMM_TAKE,
                         .symmetric = true,
                         .mirror = false};
    if (rest.rows > 0 && !DGMULT(by_columns(panel, ld), transpose_of(panel, ld), a + k1 + k1 * ld,
                                 rest, work.subspan(order))) {
      return CHOLESKY_STOPPED;
    }
  }
  return 0;
}

}  // namespace korvel
