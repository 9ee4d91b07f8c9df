// YHATS: the covariance matrix that stays right under heteroskedastic and autocorrelated errors.

#include <algorithm>

#include "engine/output.h"
#include "expr/kernels/lsreg_lanes.h"
#include "expr/kernels/packed.h"
#include "expr/kernels/row_sections.h"
#include "regress/ols_parts.h"

namespace korvel {
namespace {

constexpr std::int64_t BLOCK = 256;

// Work space of a section: scores of a block behind those of the rows before it, the sums.
struct Scores {
  int K;
  std::int64_t before;  // rows of history: a lag reaches so far
  std::int64_t ld;
  std::int64_t words;

  Scores(int K_in, int lags)
      : K(K_in), before((std::int64_t{lags} + 7) / 8 * 8), ld(before + BLOCK + 8) {
    words = ld * K + static_cast<std::int64_t>(packed_words(K)) + std::int64_t{K} * K;
  }
};

// scores := x(t) e(t) with both times the root of the weight, rows from..from+n-1. A row that
// stands for `counted` equal ones adds its square that many times, so one root is enough.
void load_scores(const ColumnList& x, std::span<const double> e, bool counted, std::int64_t from,
                 std::int64_t n, const Scores& shape, double* to) {
  for (int k = 0; k < shape.K; ++k) {
    const double* column = x.column[static_cast<std::size_t>(k)];
    double* score = to + shape.ld * k;
    for (std::int64_t t = 0; t < n; ++t) {
      const std::int64_t row = from + t;
      double v = e[static_cast<std::size_t>(row)];
      if (x.root != nullptr) v *= counted ? x.root[row] : x.root[row] * x.root[row];
      score[t] = column == nullptr ? v : v * column[row];
    }
    std::fill(score + n, score + (n + 7) / 8 * 8, 0.0);
  }
}

}  // namespace

std::int64_t YHATS_words(int K, std::int64_t rows, int lags) {
  return Scores(K, lags).words * RowSections(rows).count +
         2 * static_cast<std::int64_t>(packed_words(K)) + K;
}

// S = sum over t of e(t)^2 x(t) x(t)' and, for lags l = 1..L, with weight 1 - l/(L+1), the products
// x(t) e(t) e(t-l) x(t-l)' and their mirror. Rows are kept rows; e is not weighted, x and e are
// multiplied by the root of the weight here (x alone when weights count equal rows).
void YHATS(const ColumnList& x, std::span<const double> e, bool counted, int lags,
           std::span<double> cov, std::span<double> work) {
  const Trace trace("YHATS");
  const int K = x.columns() - 1;
  const std::size_t triangle = packed_words(K);
  if (OCOM.OPUT) {
    say(" USING HETEROSKEDASTICITY-CONSISTENT COVARIANCE MATRIX");
    if (lags != 0) {
      say<"(' AND AUTOCORRELATION-CONSISTENT MATRIX WITH  ORDER=', I4, "
          "' BY NEWEY-WEST CORRECTION METHOD')">(lags);
    }
  }
  // 1. The middle matrix, by sections of rows; a section looks back into the one before it.
  const LsLanes& lanes = ls_lanes();
  const Scores shape(K, lags);
  const RowSections sections(x.rows);
  sections.run([&](int s) {
    double* scores = work.data() + shape.words * s;
    double* S = scores + shape.ld * K;
    double* product = S + triangle;
    std::fill_n(S, triangle, 0.0);
    for (std::int64_t from = sections.begin(s); from < sections.end(s); from += BLOCK) {
      const std::int64_t n = std::min(BLOCK, sections.end(s) - from);
      const std::int64_t history = std::min<std::int64_t>(shape.before, from);
      for (int k = 0; k < K; ++k) std::fill_n(scores + shape.ld * k, shape.before, 0.0);
      if (history > 0) {
        load_scores(x, e, counted, from - history, history, shape, scores + shape.before - history);
      }
      double* here = scores + shape.before;
      load_scores(x, e, counted, from, n, shape, here);
      const std::int64_t rows = (n + 7) / 8 * 8;
      lanes.cross(here, K, shape.ld, rows, S);
      for (int l = 1; l <= lags; ++l) {
        const double share = 1.0 - static_cast<double>(l) / (lags + 1.0);
        std::fill_n(product, static_cast<std::size_t>(K) * static_cast<std::size_t>(K), 0.0);
        lanes.cross_pair(here, here - l, K, shape.ld, rows, product);
        for (int j = 0; j < K; ++j) {
          for (int k = 0; k <= j; ++k) {
            S[packed(j + 1, k + 1)] += share * (product[j * K + k] + product[k * K + j]);
          }
        }
      }
    }
  });
  const std::span<double> rest =
      work.subspan(static_cast<std::size_t>(shape.words * sections.count));
  const std::span<double> S = rest.first(triangle);
  const std::span<double> result = rest.subspan(triangle, triangle);
  const std::span<double> column = rest.subspan(2 * triangle, static_cast<std::size_t>(K));
  std::fill(S.begin(), S.end(), 0.0);
  for (int s = 0; s < sections.count; ++s) {
    const double* part = work.data() + shape.words * s + shape.ld * K;
    for (std::size_t p = 0; p < triangle; ++p) S[p] += part[p];
  }
  // 2. C S C by columns: v = S C(., j), then C v. Every element needs all of S and C.
  for (int j = 1; j <= K; ++j) {
    for (int k = 1; k <= K; ++k) {
      double sum = 0.0;
      for (int l = 1; l <= K; ++l) sum += S[packed(k, l)] * cov[packed(l, j)];
      column[static_cast<std::size_t>(k - 1)] = sum;
    }
    for (int i = j; i <= K; ++i) {
      double sum = 0.0;
      for (int k = 1; k <= K; ++k) {
        sum += cov[packed(i, k)] * column[static_cast<std::size_t>(k - 1)];
      }
      result[packed(i, j)] = sum;
    }
  }
  std::copy_n(result.begin(), triangle, cov.begin());
}

}  // namespace korvel
