#include "expr/kernels/lsreg.h"

#include <algorithm>
#include <cmath>

#include "expr/kernels/cholesky.h"
#include "expr/kernels/gsreg_lanes.h"
#include "expr/kernels/lsreg_lanes.h"
#include "expr/kernels/packed.h"
#include "expr/kernels/row_sections.h"
#include "platform/cpu.h"

namespace korvel {

namespace baseline {
const LsLanes& ls_lane_set();
}
#if defined(__x86_64__)
namespace avx2 {
const LsLanes& ls_lane_set();
}
namespace avx512 {
const LsLanes& ls_lane_set();
}
#endif

const LsLanes& ls_lanes() {
#if defined(__x86_64__)
  if (cpu_lanes() == Lanes::avx512) return avx512::ls_lane_set();
  if (cpu_lanes() == Lanes::avx2) return avx2::ls_lane_set();
#endif
  return baseline::ls_lane_set();
}

namespace {

constexpr std::int64_t BLOCK = 256;     // rows of a block: a dozen columns fill half of a cache
constexpr std::int64_t LD = BLOCK + 8;  // columns a power of two apart would share cache sets

constexpr std::int64_t up8(std::int64_t n) { return (n + 7) & ~std::int64_t{7}; }

// A section's work space.
struct Part {
  double* a;       // the block, LD a column
  double* weight;  // BLOCK weights, then their roots
  double* root;
  double* block_mean;
  double* mean;
  double* block_cross;
  double* cross;
  double SWT = 0.0;

  static std::int64_t words(int columns) {
    return up8(LD * columns + 2 * LD + std::int64_t{2} * columns +
               2 * static_cast<std::int64_t>(packed_words(columns)) + 1);
  }
  Part(double* work, int columns)
      : a(work),
        weight(a + LD * columns),
        root(weight + LD),
        block_mean(root + LD),
        mean(block_mean + columns),
        block_cross(mean + columns),
        cross(block_cross + packed_words(columns)) {}
  // Where SWT waits for the other sections.
  double& total(int columns) const { return cross[packed_words(columns)]; }
};

// Joins means and cross-products of weight n2 to those of weight n1 (which grows).
void join(int columns, double& n1, double* mean1, double* cross1, double n2, const double* mean2,
          const double* cross2) {
  if (n2 == 0.0) return;
  if (n1 == 0.0) {
    n1 = n2;
    std::copy_n(mean2, columns, mean1);
    std::copy_n(cross2, packed_words(columns), cross1);
    return;
  }
  const double share = n2 / (n1 + n2);
  const double f = n1 * share;
  std::size_t p = 0;
  for (int i = 0; i < columns; ++i) {
    const double d = f * (mean2[i] - mean1[i]);
    for (int j = 0; j <= i; ++j, ++p) cross1[p] += cross2[p] + d * (mean2[j] - mean1[j]);
  }
  for (int i = 0; i < columns; ++i) mean1[i] += share * (mean2[i] - mean1[i]);
  n1 += n2;
}

// Copies up to BLOCK kept rows from row `from` on into the block and moves `from` behind them.
// Returns how many.
std::int64_t load_block(const MomentRows& rows, std::int64_t& from, std::int64_t end, Part& part) {
  const int columns = rows.x.columns();
  if (rows.skip.empty()) {
    const std::int64_t n = std::min(BLOCK, end - from);
    for (int c = 0; c < columns; ++c) {
      const double* src = rows.x.column[static_cast<std::size_t>(c)];
      if (src != nullptr) std::copy_n(src + from, n, part.a + c * LD);
    }
    if (rows.weight != nullptr) std::copy_n(rows.weight + from, n, part.weight);
    from += n;
    return n;
  }
  const auto marks = static_cast<std::int64_t>(rows.skip.size());
  std::int64_t n = 0;
  for (; from < end && n < BLOCK; ++from) {
    if (from < marks && rows.skip[static_cast<std::size_t>(from)] > 0.0) continue;
    for (int c = 0; c < columns; ++c) {
      const double* src = rows.x.column[static_cast<std::size_t>(c)];
      if (src != nullptr) part.a[c * LD + n] = src[from];
    }
    if (rows.weight != nullptr) part.weight[n] = rows.weight[from];
    ++n;
  }
  return n;
}

void scale_column(const ColumnList& x, int c, std::int64_t n, double* to) {
  if (x.scale.empty()) return;
  const double scale = x.scale[static_cast<std::size_t>(c)];
  for (std::int64_t t = 0; t < n; ++t) to[t] *= scale;
}

void run_section(const MomentRows& rows, Part& part, std::int64_t from, std::int64_t end) {
  const LsLanes& lanes = ls_lanes();
  const int columns = rows.x.columns();
  const std::size_t triangle = packed_words(columns);
  std::fill_n(part.mean, columns, 0.0);
  std::fill_n(part.cross, triangle, 0.0);
  std::fill_n(part.root, LD, 1.0);  // also what the sums of unweighted columns are taken with
  while (from < end) {
    const std::int64_t n = load_block(rows, from, end, part);
    if (n == 0) break;
    auto weights = static_cast<double>(n);
    const double* weight = part.root;
    if (rows.weight != nullptr) {
      weights = 0.0;
      for (std::int64_t t = 0; t < n; ++t) {
        part.weight[t] = std::fabs(part.weight[t]);
        part.root[t] = std::sqrt(part.weight[t]);
        weights += part.weight[t];
      }
      weight = part.weight;
    }
    for (int c = 0; c < columns; ++c) {
      double* column = part.a + c * LD;
      const bool ones = rows.x.column[static_cast<std::size_t>(c)] == nullptr;
      double mean = 1.0;
      if (ones) {
        std::fill_n(column, n, 1.0);
      } else {
        scale_column(rows.x, c, n, column);
        mean = weights > 0.0 ? lanes.weighted_sum(column, weight, n) / weights : 0.0;
      }
      part.block_mean[c] = mean;
      lanes.centre(column, rows.weight != nullptr ? part.root : nullptr, mean, n);
    }
    std::fill_n(part.block_cross, triangle, 0.0);
    lanes.cross(part.a, columns, LD, up8(n), part.block_cross);
    join(columns, part.SWT, part.mean, part.cross, weights, part.block_mean, part.block_cross);
  }
  part.total(columns) = part.SWT;
}

}  // namespace

std::int64_t LSMOM_words(int columns, std::int64_t rows) {
  return Part::words(columns) * RowSections(rows).count;
}

double LSMOM(const MomentRows& rows, std::span<double> work, std::span<double> mean,
             std::span<double> cross) {
  const int columns = rows.x.columns();
  const std::int64_t words = Part::words(columns);
  const RowSections sections(rows.x.rows);
  sections.run([&](int s) {
    Part part(work.data() + words * s, columns);
    run_section(rows, part, sections.begin(s), sections.end(s));
  });
  Part first(work.data(), columns);
  double SWT = first.total(columns);
  for (int s = 1; s < sections.count; ++s) {
    Part part(work.data() + words * s, columns);
    join(columns, SWT, first.mean, first.cross, part.total(columns), part.mean, part.cross);
  }
  std::copy_n(first.mean, columns, mean.begin());
  std::copy_n(first.cross, packed_words(columns), cross.begin());
  return SWT;
}

void raw_moments(const MomentView& m, int order, std::span<double> out) {
  for (int i = 1; i <= order; ++i) {
    for (int j = 1; j <= i; ++j) {
      out[packed(i, j)] = m.cross[packed(i, j)] + m.SWT * m.mean[static_cast<std::size_t>(i - 1)] *
                                                      m.mean[static_cast<std::size_t>(j - 1)];
    }
  }
}

NormalFit LSREG(const MomentView& m, double ridge, bool given, std::span<double> work,
                std::span<double> coef, std::span<double> cov) {
  const int K = m.K();
  const int slopes = m.constant ? K - 1 : K;
  const auto at = [](int i) { return static_cast<std::size_t>(i - 1); };
  // Moments as the fit takes them: about the means with a constant, else about zero.
  const auto moment = [&](int i, int j) {
    const double about = m.cross[packed(i, j)];
    return m.constant ? about : about + m.SWT * m.mean[at(i)] * m.mean[at(j)];
  };
  NormalFit fit;
  // 1. The inverse.
  for (int i = 1; i <= slopes; ++i) {
    for (int j = 1; j <= i; ++j) cov[packed(i, j)] = moment(i, j);
    cov[packed(i, i)] *= 1.0 + ridge;
  }
  std::copy_n(cov.begin(), packed_words(slopes), work.begin());
  fit.IFAULT = symmetric_inverse(cov, slopes);
  if (fit.IFAULT != 0) return fit;
  for (int j = 1; j <= slopes; ++j) {
    fit.condition = std::max(fit.condition, cov[packed(j, j)] * work[packed(j, j)]);
  }
  // 2. The slopes, from the factor and not from the inverse: substitution loses less.
  if (!given && slopes > 0) {
    const std::span<double> b = coef.first(static_cast<std::size_t>(slopes));
    for (int i = 1; i <= slopes; ++i) b[at(i)] = moment(K + 1, i);
    positive_solve(work, slopes, b);
  }
  // 3. SSE from the moments.
  double SSE = moment(K + 1, K + 1);
  for (int i = 1; i <= slopes; ++i) {
    double sum = -2.0 * moment(K + 1, i);
    for (int j = 1; j <= slopes; ++j) sum += moment(i, j) * coef[at(j)];
    SSE += coef[at(i)] * sum;
  }
  // 4. The constant.
  if (m.constant) {
    double level = m.mean[at(K + 1)];
    for (int i = 1; i <= slopes; ++i) level -= coef[at(i)] * m.mean[at(i)];
    if (given) {
      const double miss = level - coef[at(K)];
      SSE += m.SWT * miss * miss;
    } else {
      coef[at(K)] = level;
    }
    double variance = 1.0 / m.SWT;
    for (int j = 1; j <= slopes; ++j) {
      double sum = 0.0;
      for (int k = 1; k <= slopes; ++k) sum += cov[packed(j, k)] * m.mean[at(k)];
      cov[packed(K, j)] = -sum;
      variance += m.mean[at(j)] * sum;
    }
    cov[packed(K, K)] = variance;
  }
  fit.SSE = SSE;
  return fit;
}

void sweep(std::span<double> a, int order, int k) {
  const double d = a[packed(k, k)];
  for (int i = 1; i <= order; ++i) {
    if (i == k) continue;
    const double f = a[packed(i, k)] / d;
    for (int j = 1; j <= i; ++j) {
      if (j != k) a[packed(i, j)] -= f * a[packed(j, k)];
    }
  }
  // The sign of the pivot tells whether k is in: negative entries of the inverse.
  const double sign = d < 0.0 ? -1.0 : 1.0;
  for (int i = 1; i <= order; ++i) {
    if (i != k) a[packed(i, k)] /= sign * d;
  }
  a[packed(k, k)] = -1.0 / d;
}

// ---- The inverse in twice the working precision

namespace {

// A section: the block and the partial sums.
std::int64_t exact_words(int K) {
  return up8(LD * K + 16 * static_cast<std::int64_t>(packed_words(K)));
}

struct Twice {
  double high = 0.0, low = 0.0;
  // Adds v, keeping the rounding error.
  void add(double v) {
    const double s = high + v;
    const double t = s - high;
    low += (high - (s - t)) + (v - t);
    high = s;
  }
  // Adds the product of a and b.
  void add_product(double a, double b) {
    const double p = a * b;
    add(p);
    low += std::fma(a, b, -p);
  }
  double value() const { return high + low; }
};

}  // namespace

std::int64_t LSINVERSE_words(int K, std::int64_t rows) {
  return exact_words(K) * RowSections(rows).count + 2 * static_cast<std::int64_t>(packed_words(K)) +
         2 * std::int64_t{K} * K;
}

int LSINVERSE(const ColumnList& x, int K, std::span<double> work, std::span<double> inverse) {
  const GsLanes& loader = gs_lanes();
  const LsLanes& lanes = ls_lanes();
  const std::size_t triangle = packed_words(K);
  const auto order = static_cast<std::size_t>(K);
  const std::int64_t words = exact_words(K);
  const RowSections sections(x.rows);
  // 1. X'X.
  sections.run([&](int s) {
    double* a = work.data() + words * s;
    double* high = a + LD * K;
    double* low = high + 8 * triangle;
    std::fill_n(high, 16 * triangle, 0.0);
    for (std::int64_t from = sections.begin(s); from < sections.end(s); from += BLOCK) {
      const std::int64_t n = std::min(BLOCK, sections.end(s) - from);
      for (int c = 0; c < K; ++c) {
        const double* src = x.column[static_cast<std::size_t>(c)];
        loader.load_column(src == nullptr ? nullptr : src + from,
                           x.root == nullptr ? nullptr : x.root + from, n, a + c * LD);
        scale_column(x, c, n, a + c * LD);
      }
      lanes.cross_exact(a, K, LD, up8(n), high, low);
    }
  });
  std::span<double> rest = work.subspan(static_cast<std::size_t>(words * sections.count));
  const std::span<double> high = rest.first(triangle);
  const std::span<double> low = rest.subspan(triangle, triangle);
  const std::span<double> error = rest.subspan(2 * triangle, order * order);
  const std::span<double> change = rest.subspan(2 * triangle + order * order, order * order);
  for (std::size_t p = 0; p < triangle; ++p) {
    Twice sum;
    for (int s = 0; s < sections.count; ++s) {
      const double* part = work.data() + words * s + LD * K + 8 * p;
      for (int lane = 0; lane < 8; ++lane) {
        sum.add(part[lane]);
        sum.low += part[lane + 8 * static_cast<std::ptrdiff_t>(triangle)];
      }
    }
    high[p] = sum.high + sum.low;
    low[p] = (sum.high - high[p]) + sum.low;
  }
  // 2. Steps C := C + C (I - X'X C).
  std::copy_n(inverse.begin(), triangle, work.begin());
  double before = 0.0;
  constexpr int most_steps = 6;
  for (int step = 1; step <= most_steps; ++step) {
    for (int i = 1; i <= K; ++i) {
      for (int j = 1; j <= K; ++j) {
        Twice sum;
        sum.add(i == j ? 1.0 : 0.0);
        for (int k = 1; k <= K; ++k) {
          const double c = inverse[packed(k, j)];
          sum.add_product(-high[packed(i, k)], c);
          sum.low -= low[packed(i, k)] * c;
        }
        error[static_cast<std::size_t>((i - 1) * K + j - 1)] = sum.value();
      }
    }
    double largest = 0.0;
    for (int i = 1; i <= K; ++i) {
      for (int j = 1; j <= K; ++j) {
        double sum = 0.0;
        for (int k = 1; k <= K; ++k) {
          sum += inverse[packed(i, k)] * error[static_cast<std::size_t>((k - 1) * K + j - 1)];
        }
        change[static_cast<std::size_t>((i - 1) * K + j - 1)] = sum;
        const double size = std::sqrt(inverse[packed(i, i)] * inverse[packed(j, j)]);
        largest = std::max(largest, std::fabs(sum) / size);
      }
    }
    if (!(largest < 0.01) || (step > 1 && largest > before && largest > 1e-13)) {
      std::copy_n(work.begin(), triangle, inverse.begin());
      return 1;
    }
    for (int i = 1; i <= K; ++i) {
      for (int j = 1; j <= i; ++j) {
        const auto ij = static_cast<std::size_t>((i - 1) * K + j - 1);
        const auto ji = static_cast<std::size_t>((j - 1) * K + i - 1);
        inverse[packed(i, j)] += 0.5 * (change[ij] + change[ji]);
      }
    }
    if (largest < 1e-15 || (step > 1 && largest > 0.1 * before)) break;
    before = largest;
  }
  return 0;
}

}  // namespace korvel
