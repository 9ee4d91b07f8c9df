#include "stats/stats_moments.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "expr/kernels/lsreg_lanes.h"
#include "expr/kernels/moments.h"
#include "expr/kernels/packed.h"
#include "expr/kernels/row_sections.h"
#include "platform/cpu.h"
#include "platform/parallel.h"
#include "stats/stats_moments_lanes.h"

namespace korvel {

namespace baseline {
const StatLanes& stat_lane_set();
}
#if defined(__x86_64__)
namespace avx2 {
const StatLanes& stat_lane_set();
}
namespace avx512 {
const StatLanes& stat_lane_set();
}
#endif

const StatLanes& stat_lanes() {
#if defined(__x86_64__)
  if (cpu_lanes() == Lanes::avx512) return avx512::stat_lane_set();
  if (cpu_lanes() == Lanes::avx2) return avx2::stat_lane_set();
#endif
  return baseline::stat_lane_set();
}

namespace {

constexpr double INFINITE = std::numeric_limits<double>::infinity();
constexpr std::int64_t BLOCK = 1024;  // rows summed before the sum joins the total
constexpr std::int64_t WORTH_THREADS = 100000;
constexpr std::int64_t PART = 8;  // words of a section's sums
// Squares below this have lost digits to underflow; series that big or small are scaled.
constexpr double SMALL_SQUARES = 1e-270;

// A sum with its rounding errors.
struct Total {
  double high = 0.0;
  double low = 0.0;
  void add(double v) {
    const double s = high + v;
    low += std::fabs(high) >= std::fabs(v) ? (high - s) + v : (v - s) + high;
    high = s;
  }
  double value() const { return high + low; }
};

// Rows of a block in one piece.
struct Block {
  const double* x = nullptr;
  const double* w = nullptr;
  std::ptrdiff_t n = 0;
};

// How the values are taken: as they are, or without those that are no numbers and scaled.
struct Taking {
  bool careful = false;
  double scale = 1.0;
};

class BlockLoader {
 public:
  BlockLoader(const SeriesRows& s, const Taking& taking) : s_(s), taking_(taking) {
    copies_ = taking.careful || s.missing || !s.marks.empty();
  }
  // The next rows of from..end (not included); n 0 when all have been taken.
  Block next(std::int64_t& from, std::int64_t end) {
    if (!copies_) {
      const Block b{s_.x + from, s_.weight == nullptr ? nullptr : s_.weight + from,
                    static_cast<std::ptrdiff_t>(std::min(BLOCK, end - from))};
      from += b.n;
      return b;
    }
    const auto marks = static_cast<std::int64_t>(s_.marks.size());
    std::ptrdiff_t n = 0;
    for (; from < end && n < BLOCK; ++from) {
      if (from < marks && s_.marks[static_cast<std::size_t>(from)] > 0.0) continue;
      const double v = s_.x[from];
      if (s_.missing && v == s_.code) continue;
      if (taking_.careful && !std::isfinite(v)) {
        ++no_number;
        continue;
      }
      x_[n] = v * taking_.scale;
      if (s_.weight != nullptr) w_[n] = s_.weight[from];
      ++n;
    }
    return {x_, s_.weight == nullptr ? nullptr : w_, n};
  }
  std::int64_t no_number = 0;

 private:
  const SeriesRows& s_;
  Taking taking_;
  bool copies_;
  double x_[BLOCK];
  double w_[BLOCK];
};

// First pass over rows from..end: PART words to `part`.
void first_pass(const SeriesRows& s, const Taking& taking, std::int64_t from, std::int64_t end,
                double* part) {
  BlockLoader loader(s, taking);
  Total sum, weights;
  std::int64_t n = 0;
  double least = INFINITE;
  double most = -INFINITE;
  while (from < end) {
    const Block b = loader.next(from, end);
    double total = stat_lanes().sum_range(b.x, b.n, &least, &most);
    if (b.w != nullptr) {
      total = ls_lanes().weighted_sum(b.x, b.w, b.n);
      double w_least = 0.0;
      double w_most = 0.0;
      weights.add(stat_lanes().sum_range(b.w, b.n, &w_least, &w_most));
    }
    sum.add(total);
    n += b.n;
  }
  const auto count = static_cast<double>(n);
  const double words[PART] = {
      sum.high, sum.low, s.weight == nullptr ? count : weights.value(), count,
      least,    most,    static_cast<double>(loader.no_number),         0.0};
  std::copy_n(words, PART, part);
}

void second_pass(const SeriesRows& s, const Taking& taking, double mean, std::int64_t from,
                 std::int64_t end, double* part) {
  BlockLoader loader(s, taking);
  Total drift, squares;
  while (from < end) {
    const Block b = loader.next(from, end);
    double out[2];
    stat_lanes().squares(b.x, b.w, mean, b.n, out);
    drift.add(out[0]);
    squares.add(out[1]);
  }
  part[0] = drift.value();
  part[1] = squares.value();
}

// Joins the first pass of all sections.
void join_first(const double* part, int sections, SeriesMoments& m) {
  Total sum, weights;
  m = {.least = INFINITE, .most = -INFINITE};
  for (int s = 0; s < sections; ++s, part += PART) {
    sum.add(part[0]);
    sum.add(part[1]);
    weights.add(part[2]);
    m.n += static_cast<std::int64_t>(part[3]);
    m.least = std::min(m.least, part[4]);
    m.most = std::max(m.most, part[5]);
    m.no_number += static_cast<std::int64_t>(part[6]);
  }
  m.SWT = weights.value();
  m.sum = sum.value();
  m.mean = m.SWT > 0.0 ? m.sum / m.SWT : 0.0;
  // A mean outside of the range is rounding; and a constant is its own mean.
  if (m.n > 0 && m.least <= m.most) m.mean = std::clamp(m.mean, m.least, m.most);
}

void join_second(const double* part, int sections, SeriesMoments& m) {
  Total drift, squares;
  for (int s = 0; s < sections; ++s, part += PART) {
    drift.add(part[0]);
    squares.add(part[1]);
  }
  if (!(m.SWT > 0.0) || m.least == m.most) {
    m.squares = 0.0;
    return;
  }
  const double low = drift.value() / m.SWT;
  m.squares = std::max(0.0, squares.value() - drift.value() * low);
  const double mean = m.mean + low;
  m.low = (m.mean - mean) + low;
  m.mean = mean;
}

bool out_of_range(const SeriesMoments& m) {
  if (m.n == 0) return false;
  if (!std::isfinite(m.sum) || !std::isfinite(m.squares)) return true;
  return m.most > m.least && m.squares < SMALL_SQUARES;
}

// The series once more, one section after the other, without values that are no numbers and scaled
// by a power of two.
void careful_moments(const SeriesRows& s, const RowSections& sections, double* work,
                     SeriesMoments& m) {
  const auto pass = [&](auto&& body) {
    for (int k = 0; k < sections.count; ++k) {
      body(sections.begin(k), std::max(sections.begin(k), std::min(sections.end(k), s.rows)),
           work + PART * k);
    }
  };
  Taking taking{.careful = true};
  pass([&](std::int64_t from, std::int64_t end, double* to) {
    first_pass(s, taking, from, end, to);
  });
  join_first(work, sections.count, m);
  if (m.n == 0) return;
  const double largest = std::max(std::fabs(m.least), std::fabs(m.most));
  const int e = largest > 0.0 ? std::clamp(std::ilogb(largest), -1000, 1020) : 0;
  const double least = m.least;
  const double most = m.most;
  taking.scale = std::ldexp(1.0, -e);
  pass([&](std::int64_t from, std::int64_t end, double* to) {
    first_pass(s, taking, from, end, to);
  });
  join_first(work, sections.count, m);
  pass([&](std::int64_t from, std::int64_t end, double* to) {
    second_pass(s, taking, m.mean, from, end, to);
  });
  join_second(work, sections.count, m);
  m.exponent = e;
  m.sum = std::ldexp(m.sum, e);
  m.mean = std::ldexp(m.mean, e);
  m.low = std::ldexp(m.low, e);
  m.least = least;
  m.most = most;
  // Scaling was needed for the values that are no numbers alone: the plain unit is as good.
  const double plain = std::ldexp(m.squares, 2 * e);
  if (std::isfinite(plain) && (plain == 0.0 ? m.squares == 0.0 : plain > SMALL_SQUARES)) {
    m.squares = plain;
    m.exponent = 0;
  }
}

std::int64_t longest(std::span<const SeriesRows> series) {
  std::int64_t rows = 1;
  for (const SeriesRows& s : series) rows = std::max(rows, s.rows);
  return rows;
}

template <class F>
void run_tasks(int tasks, bool threads, F&& body) {
  if (threads && tasks > 1) return parallel_sections(tasks, body);
  for (int k = 0; k < tasks; ++k) body(k);
}

}  // namespace

std::int64_t series_moments_words(std::int64_t columns, std::int64_t rows) {
  return columns * RowSections(std::max<std::int64_t>(rows, 1)).count * PART;
}

void series_moments(std::span<const SeriesRows> series, std::span<SeriesMoments> out,
                    std::span<double> work) {
  const RowSections sections(longest(series));
  const int columns = static_cast<int>(series.size());
  const int tasks = columns * sections.count;
  const bool threads = sections.rows * columns >= WORTH_THREADS;
  const Taking plain;
  const auto pass = [&](auto&& body) {
    run_tasks(tasks, threads, [&](int k) {
      const auto c = static_cast<std::size_t>(k / sections.count);
      const std::int64_t from = sections.begin(k % sections.count);
      const std::int64_t end = std::min(sections.end(k % sections.count), series[c].rows);
      body(c, from, std::max(from, end), work.data() + PART * k);
    });
  };
  const auto parts = [&](std::size_t c) {
    return work.data() + PART * sections.count * static_cast<std::int64_t>(c);
  };
  pass([&](std::size_t c, std::int64_t from, std::int64_t end, double* to) {
    first_pass(series[c], plain, from, end, to);
  });
  for (std::size_t c = 0; c < series.size(); ++c) join_first(parts(c), sections.count, out[c]);
  pass([&](std::size_t c, std::int64_t from, std::int64_t end, double* to) {
    second_pass(series[c], plain, out[c].mean, from, end, to);
  });
  for (std::size_t c = 0; c < series.size(); ++c) {
    const bool was_infinite = !std::isfinite(out[c].sum);
    join_second(parts(c), sections.count, out[c]);
    if (was_infinite || out_of_range(out[c])) {
      careful_moments(series[c], sections, parts(c), out[c]);
    }
  }
}

// ---- Common rows
// -------------------------------------------------------------------------------

std::int64_t mark_common(const CommonRows& t, bool missing, double code, std::span<double> marks) {
  std::int64_t left = 0;
  for (std::int64_t i = 0; i < t.rows; ++i) {
    double& mark = marks[static_cast<std::size_t>(i)];
    for (std::size_t c = 0; c < t.x.size() && !(mark > 0.0); ++c) {
      const double v = t.x[c][i];
      if (!std::isfinite(v) || (missing && v == code)) mark = 1.0;
    }
    if (!(mark > 0.0)) ++left;
  }
  return left;
}

namespace {

constexpr std::int64_t ROWS = 256;     // rows of a block of columns: they stay in the cache
constexpr std::int64_t LD = ROWS + 8;  // columns a power of two apart would share cache sets

// A section's work space.
struct CrossPart {
  double* a;      // the block, LD a column
  double* root;   // roots of its weights
  double* drift;  // K sums of the deviations
  double* cross;  // packed K

  static std::int64_t words(std::int64_t K) {
    return (LD * K + LD + K + K * (K + 1) / 2 + 7) / 8 * 8;
  }
  CrossPart(double* work, std::int64_t K)
      : a(work), root(a + LD * K), drift(root + LD), cross(drift + K) {}
};

// Up to ROWS kept rows from row `from` on.
std::int64_t load_rows(const CommonRows& t, std::int64_t& from, std::int64_t end,
                       const CrossPart& part) {
  const auto K = static_cast<std::int64_t>(t.x.size());
  const auto marks = static_cast<std::int64_t>(t.marks.size());
  std::int64_t n = 0;
  if (t.marks.empty()) {
    n = std::min(ROWS, end - from);
    for (std::int64_t c = 0; c < K; ++c) {
      std::copy_n(t.x[static_cast<std::size_t>(c)] + from, n, part.a + c * LD);
    }
    if (t.weight != nullptr) {
      for (std::int64_t i = 0; i < n; ++i) part.root[i] = std::sqrt(t.weight[from + i]);
    }
    from += n;
    return n;
  }
  for (; from < end && n < ROWS; ++from) {
    if (from < marks && t.marks[static_cast<std::size_t>(from)] > 0.0) continue;
    for (std::int64_t c = 0; c < K; ++c) {
      part.a[c * LD + n] = t.x[static_cast<std::size_t>(c)][from];
    }
    if (t.weight != nullptr) part.root[n] = std::sqrt(t.weight[from]);
    ++n;
  }
  return n;
}

void cross_section(const CommonRows& t, std::span<const SeriesMoments> m, std::int64_t from,
                   std::int64_t end, const CrossPart& part) {
  const LsLanes& lanes = ls_lanes();
  const int K = static_cast<int>(t.x.size());
  std::fill_n(part.drift, K, 0.0);
  std::fill_n(part.cross, packed_words(K), 0.0);
  std::fill_n(part.root, LD, 1.0);
  while (from < end) {
    const std::int64_t n = load_rows(t, from, end, part);
    if (n == 0) break;
    for (int c = 0; c < K; ++c) {
      const SeriesMoments& s = m[static_cast<std::size_t>(c)];
      double* column = part.a + c * LD;
      double mean = s.mean;
      if (s.exponent != 0) {
        const double scale = std::ldexp(1.0, -s.exponent);
        for (std::int64_t i = 0; i < n; ++i) column[i] *= scale;
        mean *= scale;
      }
      lanes.centre(column, t.weight != nullptr ? part.root : nullptr, mean, n);
      part.drift[c] += lanes.weighted_sum(column, part.root, n);
    }
    lanes.cross(part.a, K, LD, (n + 7) / 8 * 8, part.cross);
  }
}

}  // namespace

std::int64_t common_cross_words(std::int64_t columns, std::int64_t rows) {
  return CrossPart::words(columns) * RowSections(std::max<std::int64_t>(rows, 1)).count;
}

void common_cross(const CommonRows& t, std::span<const SeriesMoments> m, std::span<double> work,
                  std::span<double> cross) {
  const auto K = static_cast<std::int64_t>(t.x.size());
  const RowSections sections(std::max<std::int64_t>(t.rows, 1));
  const std::int64_t words = CrossPart::words(K);
  sections.run([&](int s) {
    const CrossPart part(work.data() + words * s, K);
    cross_section(t, m, sections.begin(s), std::min(sections.end(s), t.rows), part);
  });
  const CrossPart all(work.data(), K);
  for (int s = 1; s < sections.count; ++s) {
    const CrossPart part(work.data() + words * s, K);
    for (std::int64_t c = 0; c < K; ++c) all.drift[c] += part.drift[c];
    for (std::size_t p = 0; p < packed_words(static_cast<int>(K)); ++p) {
      all.cross[p] += part.cross[p];
    }
  }
  // The means are rounded: what their last digits lack comes off.
  std::size_t p = 0;
  for (std::int64_t i = 0; i < K; ++i) {
    const double share = m[static_cast<std::size_t>(i)].SWT;
    const double d = share > 0.0 ? all.drift[i] / share : 0.0;
    for (std::int64_t j = 0; j <= i; ++j, ++p) cross[p] = all.cross[p] - d * all.drift[j];
  }
}

void correlations(std::span<double> a, int K, std::span<double> variances) {
  // Rows and columns are multiplied by powers of two before, so that no product of two variances
  // leaves the range of reals.
  for (int i = 1; i <= K; ++i) {
    const double v = a[packed(i, i)];
    variances[static_cast<std::size_t>(i - 1)] = v > 0.0 ? -std::ilogb(v) / 2 : 0;
  }
  const auto power = [&](int i) {
    return static_cast<int>(variances[static_cast<std::size_t>(i - 1)]);
  };
  for (int i = 1; i <= K; ++i) {
    for (int j = 1; j <= i; ++j) {
      a[packed(i, j)] = std::ldexp(a[packed(i, j)], power(i) + power(j));
    }
  }
  for (int i = 1; i <= K; ++i) variances[static_cast<std::size_t>(i - 1)] = a[packed(i, i)];
  MATMOM(a, a, K, 1.0, variances, variances, MomentMode::Correlation);
}

}  // namespace korvel
