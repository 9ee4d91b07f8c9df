#include "expr/kernels/gsreg.h"

#include <algorithm>
#include <cmath>

#include "expr/kernels/gsreg_lanes.h"
#include "expr/kernels/packed.h"
#include "platform/cpu.h"
#include "platform/parallel.h"

namespace korvel {

namespace baseline {
const GsLanes& gs_lane_set();
}
#if defined(__x86_64__)
namespace avx2 {
const GsLanes& gs_lane_set();
}
namespace avx512 {
const GsLanes& gs_lane_set();
}
#endif

const GsLanes& gs_lanes() {
#if defined(__x86_64__)
  if (cpu_lanes() == Lanes::avx512) return avx512::gs_lane_set();
  if (cpu_lanes() == Lanes::avx2) return avx2::gs_lane_set();
#endif
  return baseline::gs_lane_set();
}

namespace {

constexpr std::int64_t up8(std::int64_t n) { return (n + 7) & ~std::int64_t{7}; }

// How the rows are cut. Depends on the shape of the data alone.
struct Shape {
  int columns;
  std::int64_t rows;
  std::int64_t top;    // rows of the factor of earlier rows, at the head of a block
  std::int64_t block;  // rows of data in a block
  std::int64_t ld;     // words from column to column
  int sections;
  std::int64_t section;  // rows of a section
  std::int64_t words;    // words of a section's work space

  Shape(int columns_in, std::int64_t rows_in) : columns(columns_in), rows(rows_in) {
    constexpr std::int64_t shortest_section = 16384;
    constexpr std::int64_t most_sections = 64;
    top = up8(columns);
    // 256 rows of a dozen columns fill half of a first-level cache; wide models take longer blocks,
    // or most of the work would go into the factor at their head.
    block = std::max<std::int64_t>(256, 4 * top);
    const std::int64_t wanted =
        std::clamp<std::int64_t>(rows / std::max(shortest_section, 16 * block), 1, most_sections);
    section = (rows + wanted - 1) / wanted;
    section = (section + block - 1) / block * block;
    sections = static_cast<int>((rows + section - 1) / std::max<std::int64_t>(section, 1));
    sections = std::max(sections, 1);
    block = std::min(block, std::max<std::int64_t>(up8(rows), 8));
    // Columns a power of two apart would share cache sets.
    ld = top + std::max(block, top) + 8;
    words = up8(ld * columns + static_cast<std::int64_t>(packed_words(columns)) +
                std::int64_t{2} * columns);
  }
  std::int64_t begin(int s) const { return s * section; }
  std::int64_t end(int s) const { return std::min(rows, (s + 1) * section); }
};

// First word of the work space on a 64-byte line.
double* aligned(std::span<double> work) {
  const auto address = reinterpret_cast<std::uintptr_t>(work.data());
  return work.data() + ((64 - address % 64) % 64) / sizeof(double);
}

// A section's work space: the block, its factor, means and squares.
struct Section {
  double* a;
  double* factor;
  double* mean;
  double* square;
  std::int64_t rows = 0;  // rows in the means so far

  Section(const Shape& shape, double* work, int s)
      : a(work + shape.words * s),
        factor(a + shape.ld * shape.columns),
        mean(factor + packed_words(shape.columns)),
        square(mean + shape.columns) {}
};

// Joins the mean and the sum of squares of n2 further rows to those of n1 rows.
void join_moments(double& mean, double& square, std::int64_t n1, double mean2, double square2,
                  std::int64_t n2) {
  if (n1 == 0) {
    mean = mean2;
    square = square2;
    return;
  }
  const auto m = static_cast<double>(n1);
  const auto n = static_cast<double>(n2);
  const double delta = mean2 - mean;
  mean += delta * (n / (m + n));
  square += square2 + delta * delta * (m * n / (m + n));
}

// Writes the factor as an upper triangle into the rows at the head of the block.
void write_top(const Shape& shape, Section& s) {
  for (int k = 1; k <= shape.columns; ++k) {
    double* to = s.a + (k - 1) * shape.ld;
    for (int j = 1; j < k; ++j)
      to[j - 1] = std::sqrt(s.factor[packed(j, j)]) * s.factor[packed(k, j)];
    to[k - 1] = std::sqrt(s.factor[packed(k, k)]);
    std::fill(to + k, to + shape.top, 0.0);
  }
}

// Multiplies n loaded values of column c by its scale, which it returns.
double scale_column(const ColumnList& x, int c, std::int64_t n, double* to) {
  const double scale = x.scale[static_cast<std::size_t>(c)];
  if (scale != 1.0) {
    for (std::int64_t t = 0; t < n; ++t) to[t] *= scale;
  }
  return scale;
}

void run_section(const ColumnList& x, const Shape& shape, const GsLanes& lanes, int first,
                 Section& s, std::int64_t begin, std::int64_t end) {
  bool head = false;
  for (std::int64_t from = begin; from < end; from += shape.block) {
    const std::int64_t n = std::min(shape.block, end - from);
    const double* root = x.root == nullptr ? nullptr : x.root + from;
    for (int c = 0; c < shape.columns; ++c) {
      const double* src = x.column[static_cast<std::size_t>(c)];
      double* to = s.a + c * shape.ld + shape.top;
      double sum = lanes.load_column(src == nullptr ? nullptr : src + from, root, n, to);
      if (!x.scale.empty()) sum *= scale_column(x, c, n, to);
      if (c < first) continue;
      if (src == nullptr) {
        s.mean[c] = 1.0;
        s.square[c] = 0.0;
        continue;
      }
      const double mean = sum / static_cast<double>(n);
      double drift = 0.0;
      const double square = lanes.squares_about(to, n, mean, &drift);
      drift /= static_cast<double>(n);
      join_moments(s.mean[c], s.square[c], s.rows, mean + drift,
                   std::max(0.0, square - drift * drift * static_cast<double>(n)), n);
    }
    s.rows += n;
    if (head) {
      write_top(shape, s);
      lanes.orthogonalise(s.a, shape.columns, shape.ld, shape.top + up8(n), s.factor);
    } else {
      lanes.orthogonalise(s.a + shape.top, shape.columns, shape.ld, up8(n), s.factor);
    }
    head = true;
  }
}

// Joins the factor of section `from` to that of section `to`.
void join_factors(const Shape& shape, const GsLanes& lanes, Section& to, Section& from) {
  write_top(shape, to);
  write_top(shape, from);
  for (int c = 0; c < shape.columns; ++c) {
    const double* source = from.a + c * shape.ld;
    std::copy(source, source + shape.top, to.a + c * shape.ld + shape.top);
  }
  lanes.orthogonalise(to.a, shape.columns, shape.ld, 2 * shape.top, to.factor);
}

// Share of its sum of squares that a column must keep to count as a variable of its own. Rounding
// leaves (2^-53)^2, near 1e-32, of an exact combination; a limit nearer to 1 would refuse
// polynomials that still can be fitted.
constexpr double DEPENDENT = 1e-30;
// Long data leave more rounding than that in S, for it gathers with the blocks. A column that keeps
// less than this share is fitted on the columns before it once more, with refined residuals, whose
// sum of squares shows an exact combination at any length.
constexpr double DOUBTFUL = 1e-24;

// S of column j (from 1), taken from refined residuals. -1 when the refinement fails.
double refined_square(const ColumnList& x, int j, std::span<const double> factor,
                      std::span<double> work) {
  ColumnList part{x.column.first(static_cast<std::size_t>(j)), x.rows, x.root};
  if (!x.scale.empty()) part.scale = x.scale.first(static_cast<std::size_t>(j));
  const std::span<double> b = work.first(static_cast<std::size_t>(j));
  gs_coefficients(factor, j, b);
  const Refinement fit = GSREFINE(part, factor, work.subspan(static_cast<std::size_t>(j)), b);
  return fit.IFAULT == 0 ? fit.SSE : -1.0;
}

}  // namespace

std::int64_t GSREG_words(int columns, std::int64_t rows) {
  const Shape shape(columns, rows);
  return std::max(shape.words * shape.sections + 8, GSREFINE_words(columns, rows) + columns);
}

int GSREG(const ColumnList& x, std::span<double> work, std::span<double> factor, int first,
          std::span<double> means, std::span<double> squares) {
  const int columns = x.columns();
  if (x.rows < columns - 1) return FEWER_ROWS;
  const Shape shape(columns, x.rows);
  const GsLanes& lanes = gs_lanes();
  double* base = aligned(work);
  // 1. Every section by itself.
  if (shape.sections == 1) {
    Section s(shape, base, 0);
    run_section(x, shape, lanes, first, s, 0, x.rows);
  } else {
    parallel_sections(shape.sections, [&](int i) {
      Section s(shape, base, i);
      run_section(x, shape, lanes, first, s, shape.begin(i), shape.end(i));
    });
  }
  // 2. Joined in order.
  Section all(shape, base, 0);
  all.rows = shape.end(0);
  for (int i = 1; i < shape.sections; ++i) {
    Section s(shape, base, i);
    join_factors(shape, lanes, all, s);
    const std::int64_t rows = shape.end(i) - shape.begin(i);
    for (int c = first; c < columns; ++c) {
      if (x.column[static_cast<std::size_t>(c)] == nullptr) continue;
      join_moments(all.mean[c], all.square[c], all.rows, s.mean[c], s.square[c], rows);
    }
    all.rows += rows;
  }
  std::copy(all.factor, all.factor + packed_words(columns), factor.begin());
  if (first < columns) {
    std::copy(all.mean + first, all.mean + columns, means.begin() + first);
    std::copy(all.square + first, all.square + columns, squares.begin() + first);
  }
  // 3. The first column that is a combination of those before it.
  for (int j = 1; j < columns; ++j) {
    const double T = gs_square_sum(factor, j);
    double& S = factor[packed(j, j)];
    if (j > 1 && T * DOUBTFUL >= S && !(T * DEPENDENT >= S)) {
      const double refined = refined_square(x, j, factor, work);
      if (refined >= 0.0) S = refined;
    }
    if (T * DEPENDENT >= S) return j;
  }
  return 0;
}

double gs_square_sum(std::span<const double> factor, int j) {
  double T = factor[packed(j, j)];
  for (int l = 1; l < j; ++l) {
    const double r = factor[packed(j, l)];
    T += r * r * factor[packed(l, l)];
  }
  return T;
}

void gs_coefficients(std::span<const double> factor, int columns, std::span<double> b) {
  const int K = columns - 1;
  for (int j = K; j >= 1; --j) {
    double value = factor[packed(columns, j)];
    for (int k = j + 1; k <= K; ++k)
      value -= factor[packed(k, j)] * b[static_cast<std::size_t>(k - 1)];
    b[static_cast<std::size_t>(j - 1)] = value;
  }
}

void gs_inverse(std::span<const double> factor, int columns, std::span<double> inverse) {
  const int K = columns - 1;
  // 1. U, the inverse of the unit triangle, by columns; 1/S on the diagonal in place of its ones.
  for (int k = 1; k <= K; ++k) {
    inverse[packed(k, k)] = 1.0 / factor[packed(k, k)];
    for (int i = k - 1; i >= 1; --i) {
      double value = -factor[packed(k, i)];
      for (int l = i + 1; l < k; ++l) value -= factor[packed(l, i)] * inverse[packed(k, l)];
      inverse[packed(k, i)] = value;
    }
  }
  // 2. C(i, j) = sum over k >= i of U(i, k) U(j, k) / S(k); a place is read before it is written.
  for (int i = 1; i <= K; ++i) {
    for (int j = 1; j < i; ++j) {
      double sum = inverse[packed(i, j)] * inverse[packed(i, i)];
      for (int k = i + 1; k <= K; ++k) {
        sum += inverse[packed(k, i)] * inverse[packed(k, j)] * inverse[packed(k, k)];
      }
      inverse[packed(i, j)] = sum;
    }
    double sum = inverse[packed(i, i)];
    for (int k = i + 1; k <= K; ++k) {
      const double u = inverse[packed(k, i)];
      sum += u * u * inverse[packed(k, k)];
    }
    inverse[packed(i, i)] = sum;
  }
}

double gs_condition(std::span<const double> factor, std::span<const double> inverse, int columns) {
  double largest = 0.0;
  for (int j = 1; j < columns; ++j) {
    largest = std::max(largest, inverse[packed(j, j)] * gs_square_sum(factor, j));
  }
  return std::sqrt(largest);
}

void gs_residuals(const ColumnList& x, std::span<const double> b, std::span<double> e) {
  const GsLanes& lanes = gs_lanes();
  const Shape shape(x.columns(), x.rows);
  constexpr std::int64_t step = 1024;  // rows whose residuals stay in the first-level cache
  const std::size_t K = x.column.size() - 1;
  const auto section = [&](int s) {
    for (std::int64_t from = shape.begin(s); from < shape.end(s); from += step) {
      const std::int64_t n = std::min(step, shape.end(s) - from);
      double* to = e.data() + from;
      std::copy_n(x.column[K] + from, n, to);
      for (std::size_t k = 0; k < K; ++k) {
        lanes.take_column(x.column[k] == nullptr ? nullptr : x.column[k] + from, b[k], n, to);
      }
    }
  };
  if (shape.sections == 1) {
    section(0);
  } else {
    parallel_sections(shape.sections, section);
  }
}

// ---- Refinement
// ----------------------------------------------------------------------------------

namespace {

constexpr std::int64_t REFINE_ROWS = 256;

// A section's work space: the block, two rows of residuals, the partial sums of X'e, its SSE.
struct RefineShape {
  std::int64_t ld = REFINE_ROWS + 8;
  std::int64_t words;
  explicit RefineShape(int columns)
      : words(up8(ld * columns + 2 * REFINE_ROWS + std::int64_t{16} * columns + 1)) {}
};

// Adds v to high + low, keeping the rounding error.
void add_exactly(double& high, double& low, double v) {
  const double s = high + v;
  const double t = s - high;
  low += (high - (s - t)) + (v - t);
  high = s;
}

// Solves R'DR d = g with the packed factor.
void solve_normal(std::span<const double> factor, int K, std::span<double> g) {
  for (int j = 1; j <= K; ++j) {
    double value = g[static_cast<std::size_t>(j - 1)];
    for (int l = 1; l < j; ++l) value -= factor[packed(j, l)] * g[static_cast<std::size_t>(l - 1)];
    g[static_cast<std::size_t>(j - 1)] = value;
  }
  for (int j = K; j >= 1; --j) {
    double value = g[static_cast<std::size_t>(j - 1)] / factor[packed(j, j)];
    for (int k = j + 1; k <= K; ++k)
      value -= factor[packed(k, j)] * g[static_cast<std::size_t>(k - 1)];
    g[static_cast<std::size_t>(j - 1)] = value;
  }
}

}  // namespace

std::int64_t GSREFINE_words(int columns, std::int64_t rows) {
  return RefineShape(columns).words * Shape(columns, rows).sections + 8 + std::int64_t{4} * columns;
}

Refinement GSREFINE(const ColumnList& x, std::span<const double> factor, std::span<double> work,
                    std::span<double> b) {
  const int columns = x.columns();
  const int K = columns - 1;
  const auto order = static_cast<std::size_t>(K);
  const Shape shape(columns, x.rows);
  const RefineShape room(columns);
  const GsLanes& lanes = gs_lanes();
  const std::span<double> low = work.first(order);
  const std::span<double> d = work.subspan(order, order);
  const std::span<double> start = work.subspan(2 * order, order);
  double* base = aligned(work.subspan(3 * order));
  std::fill(low.begin(), low.end(), 0.0);
  std::copy_n(b.begin(), order, start.begin());

  const auto section = [&](int s) {
    double* a = base + room.words * s;
    double* e = a + room.ld * columns;
    double* g = e + 2 * REFINE_ROWS;
    double* glo = g + 8 * order;
    double* SSE = g + 16 * order;
    std::fill(g, SSE + 1, 0.0);
    for (std::int64_t from = shape.begin(s); from < shape.end(s); from += REFINE_ROWS) {
      const std::int64_t n = std::min(REFINE_ROWS, shape.end(s) - from);
      for (std::size_t c = 0; c < x.column.size(); ++c) {
        const double* src = x.column[c];
        double* to = a + static_cast<std::int64_t>(c) * room.ld;
        lanes.load_column(src == nullptr ? nullptr : src + from,
                          x.root == nullptr ? nullptr : x.root + from, n, to);
        if (!x.scale.empty()) scale_column(x, static_cast<int>(c), n, to);
      }
      *SSE += lanes.refine_block(a, K, room.ld, up8(n), b.data(), low.data(), e, g, glo);
    }
  };

  Refinement result;
  double before = 0.0;
  constexpr int most_steps = 12;
  for (result.steps = 1; result.steps <= most_steps; ++result.steps) {
    // 1. Residuals, their squares and X'e at b + low.
    if (shape.sections == 1) {
      section(0);
    } else {
      parallel_sections(shape.sections, section);
    }
    result.SSE = 0.0;
    for (std::size_t k = 0; k < order; ++k) {
      double high = 0.0;
      double rest = 0.0;
      for (int s = 0; s < shape.sections; ++s) {
        const double* g = base + room.words * s + room.ld * columns + 2 * REFINE_ROWS + 8 * k;
        for (int lane = 0; lane < 8; ++lane) {
          add_exactly(high, rest, g[lane]);
          rest += g[lane + 8 * K];
        }
      }
      d[k] = high + rest;
    }
    for (int s = 0; s < shape.sections; ++s) {
      result.SSE +=
          base[room.words * s + room.ld * columns + 2 * REFINE_ROWS + std::int64_t{16} * K];
    }
    // 2. The correction; both lengths are taken with the columns scaled to length 1.
    solve_normal(factor, K, d);
    double change = 0.0;
    double size = 0.0;
    bool settled = true;
    for (std::size_t k = 0; k < order; ++k) {
      const double scale = std::sqrt(gs_square_sum(factor, static_cast<int>(k) + 1));
      change = std::max(change, std::fabs(d[k]) * scale);
      size = std::max(size, std::fabs(b[k]) * scale);
      settled = settled && std::fabs(d[k]) <= 0x1p-55 * std::fabs(b[k]);
    }
    if (!(change <= 1e-3 * size) ||
        (result.steps > 1 && change > 0.5 * before && change > 1e-30 * size)) {
      // Not converging: where the first corrections were small the last b is as good as any.
      if (result.steps == 1 || !(change < 1e-14 * size)) {
        std::copy(start.begin(), start.end(), b.begin());
        result.IFAULT = 1;
      }
      break;
    }
    before = change;
    for (std::size_t k = 0; k < order; ++k) add_exactly(b[k], low[k], d[k]);
    if (settled || change <= 1e-24 * size) break;
  }
  if (result.IFAULT == 0) {
    for (std::size_t k = 0; k < order; ++k) b[k] += low[k];
  }
  return result;
}

}  // namespace korvel
