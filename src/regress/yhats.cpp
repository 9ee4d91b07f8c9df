// YHATS: the covariance matrix that stays right under heteroskedastic and autocorrelated errors.

#include <algorithm>

#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "regress/ols_parts.h"

namespace korvel {

// S = sum over t of e(t)^2 x(t) x(t)' and, for lags l = 1..L, with weight 1 - l/(L+1), the products
// x(t) e(t) e(t-l) x(t-l)' and their mirror. Rows are kept rows; e is not weighted,
// x and e are multiplied by the root of the weight here.
void YHATS(const ColumnList& x, std::span<const double> e, int lags, std::span<double> cov,
           std::span<double> moment, std::span<double> row) {
  const int K = x.columns() - 1;
  const auto order = static_cast<std::size_t>(K);
  if (OCOM.OPUT) {
    say(" USING HETEROSKEDASTICITY-CONSISTENT COVARIANCE MATRIX");
    if (lags != 0) {
      say<"(' AND AUTOCORRELATION-CONSISTENT MATRIX WITH  ORDER=', I4, "
          "' BY NEWEY-WEST CORRECTION METHOD')">(lags);
    }
  }
  const std::span<double> here = row.first(order);
  const std::span<double> there = row.subspan(order, order);
  const auto load = [&](std::int64_t t, std::span<double> to) {
    const double root = x.root == nullptr ? 1.0 : x.root[t];
    const double score = root * root * e[static_cast<std::size_t>(t)];
    for (std::size_t k = 0; k < order; ++k) to[k] = x.at(k, t) * score;
  };
  std::fill(moment.begin(), moment.end(), 0.0);
  // 1. The middle matrix.
  for (std::int64_t t = 0; t < x.rows; ++t) {
    load(t, here);
    for (int j = 1; j <= K; ++j) {
      const double h = here[static_cast<std::size_t>(j - 1)];
      for (int k = 1; k <= j; ++k)
        moment[packed(j, k)] += h * here[static_cast<std::size_t>(k - 1)];
    }
    for (int l = 1; l <= lags && l <= t; ++l) {
      const double share = 1.0 - static_cast<double>(l) / (lags + 1.0);
      load(t - l, there);
      for (int j = 1; j <= K; ++j) {
        const auto a = static_cast<std::size_t>(j - 1);
        for (int k = 1; k <= j; ++k) {
          const auto b = static_cast<std::size_t>(k - 1);
          moment[packed(j, k)] += share * (here[a] * there[b] + there[a] * here[b]);
        }
      }
    }
  }
  // 2. C S C by columns: v = S C(., j), then C v. Every element needs all of S and C, so the result
  // waits behind S.
  const std::span<double> result = moment.subspan(packed_words(K));
  for (int j = 1; j <= K; ++j) {
    for (int k = 1; k <= K; ++k) {
      double sum = 0.0;
      for (int l = 1; l <= K; ++l) sum += moment[packed(k, l)] * cov[packed(l, j)];
      here[static_cast<std::size_t>(k - 1)] = sum;
    }
    for (int i = j; i <= K; ++i) {
      double sum = 0.0;
      for (int k = 1; k <= K; ++k) sum += cov[packed(i, k)] * here[static_cast<std::size_t>(k - 1)];
      result[packed(i, j)] = sum;
    }
  }
  std::copy_n(result.begin(), packed_words(K), cov.begin());
}

}  // namespace korvel
