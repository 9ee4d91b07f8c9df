// STAT: the table of statistics, sample sizes, the matrices, and the variables that keep them.
#include <algorithm>
#include <charconv>
#include <cmath>

#include "data/sort.h"
#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "stats/stats_parts.h"
#include "stats/stats_results.h"

namespace korvel {
namespace {

// Leading decimal digits that all values share, of 15: minimum and maximum share them.
int constant_digits(const SeriesMoments& m) {
  constexpr int DIGITS = 15;
  if (m.least == m.most) return DIGITS;
  if (!(m.least * m.most > 0.0)) return 0;
  char a[32], b[32];
  const auto write = [](double v, char* to) {
    return std::to_chars(to, to + 32, std::fabs(v), std::chars_format::scientific, DIGITS - 1).ptr;
  };
  const char* a_end = write(m.least, a);
  const char* b_end = write(m.most, b);
  const std::string_view x(a, static_cast<std::size_t>(a_end - a));
  const std::string_view y(b, static_cast<std::size_t>(b_end - b));
  if (x.substr(x.find('e')) != y.substr(y.find('e'))) return 0;
  int same = 0;
  for (std::size_t i = 0; x[i] == y[i] && x[i] != 'e'; ++i) same += x[i] == '.' ? 0 : 1;
  return same;
}

double variation(const SeriesMoments& m, double deviation) {
  return m.mean != 0.0 && deviation != MACOM.XMISS ? deviation / m.mean : 0.0;
}

void print_row(const StatColumn& column, const SeriesMoments& m, bool weighted) {
  if (m.n == 0) {
    return say<"(1X, A, ' HAS NO OBSERVATIONS IN SAMPLE RANGE')">(column.name());
  }
  const Counting c = counting(m, weighted);
  const double deviation = stat_deviation(m, weighted);
  Line row;
  const auto N = static_cast<std::int64_t>(std::llround(c.N));
  if (N < 100000)
    row.put<"(1X, A8, I5)">(column.name(), N);
  else
    row.put<"(1X, A8, I9)">(column.name(), N);
  row.put<"(G13.5)">(m.mean);
  if (deviation == MACOM.XMISS)
    row.put<"(26X)">();
  else
    row.put<"(2G13.5)">(deviation, stat_variance(m, weighted));
  row.put<"(2G13.5)">(m.least, m.most);
  if (StatOption::chosen<"WIDE">())
    row.put<"(G13.5, I8)">(variation(m, deviation), constant_digits(m));
  OUTLINE();
  if (StatOption::chosen<"DUMP">()) {
    say<"(' SUM OF WEIGHTS=', G13.5, ' SUM=', G13.5, ' SUM OF SQUARES=', G13.5)">(
        m.SWT, m.sum, std::ldexp(m.squares, 2 * m.exponent));
  }
}

}  // namespace

// Columns: 2-9 name, 10-14 (18 for long samples) N, then 13 for each number.
void print_statistics(const StatJob& job) {
  Line head;
  head.put<"(' NAME        N   MEAN        ST. DEV      VARIANCE')">();
  head.put<"('     MINIMUM      MAXIMUM')">();
  if (StatOption::chosen<"WIDE">()) head.put<"(' COEF.OF.VARIATION CONSTANT-DIGITS')">();
  OUTLINE();
  for (std::size_t c = 0; c < job.columns.size(); ++c) {
    print_row(job.columns[c], job.moments[c], job.weight != nullptr);
  }
}

// Sample sizes by which a mean is known to 1, 5 and 10 percent (of the standard deviation where the
// mean is 0) with 95 percent confidence: n = (1.96 s / margin)^2, and without replacement from NP
// units n / (1 + n/NP). Cochran (1977), Sampling Techniques, formulas 4.2 and 4.3.
void print_sample_sizes(const StatJob& job) {
  const auto NP = static_cast<double>(StatOption::integer<"NPOP">());
  say<"(' SAMPLE SIZE ESTIMATION: NP=', I0)">(StatOption::integer<"NPOP">());
  say(" VARIABLE   ERROR MARGIN(+-)  N(W REPL)     N(WO REPL)");
  for (std::size_t c = 0; c < job.columns.size(); ++c) {
    const SeriesMoments& m = job.moments[c];
    const double deviation = stat_deviation(m, job.weight != nullptr);
    if (deviation == MACOM.XMISS) continue;
    const double unit = m.mean != 0.0 ? std::fabs(m.mean) : deviation;
    for (const double share : {0.01, 0.05, 0.10}) {
      const double margin = share * unit;
      const double root = margin > 0.0 ? 1.96 * deviation / margin : 0.0;
      const double n = root * root;
      const double finite = NP > 0.0 ? n / (1.0 + n / NP) : n;
      if (n < 1e10) {
        say<"(1X, A8, G17.5, F12.0, F15.0)">(job.columns[c].name(), margin, std::ceil(n),
                                             std::ceil(finite));
      } else {  // a mean that is nearly 0
        say<"(1X, A8, G17.5, G12.4, G15.5)">(job.columns[c].name(), margin, n, finite);
      }
    }
  }
}

void give_result(Workspace ws, StatJob& job, const NameOption& option, VarType type,
                 std::span<const double> values, int columns) {
  const int var = owner_of(option.var).var;
  const auto read = [&](const StatColumn& c) { return owner_of(c.var).var == var; };
  if (var > 0 && (owner_of(job.weight_var).var == var || std::ranges::any_of(job.columns, read))) {
    job.late.push_back({&option, type, {values.begin(), values.end()}, columns});
  } else {
    store_result(ws, option, type, values, columns);
  }
}

void store_late(Workspace ws, const StatJob& job) {
  for (const LateResult& r : job.late) store_result(ws, *r.option, r.type, r.values, r.columns);
}

void store_vectors(Workspace ws, StatJob& job) {
  const bool weighted = job.weight != nullptr;
  const auto store = [&](const NameOption& option, auto&& value) {
    if (option.text.empty()) return;
    job.values.assign(job.columns.size(), MACOM.XMISS);
    for (std::size_t c = 0; c < job.values.size(); ++c) {
      if (job.moments[c].n > 0) job.values[c] = value(job.moments[c]);
    }
    store_result(ws, option, SERIES, job.values);
  };
  store(StatOption::named<"MEANS">(), [](const SeriesMoments& m) { return m.mean; });
  store(StatOption::named<"VARIANCE">(),
        [&](const SeriesMoments& m) { return stat_variance(m, weighted); });
  store(StatOption::named<"STDEVS">(),
        [&](const SeriesMoments& m) { return stat_deviation(m, weighted); });
  store(StatOption::named<"MINIMUMS">(), [](const SeriesMoments& m) { return m.least; });
  store(StatOption::named<"MAXIMUMS">(), [](const SeriesMoments& m) { return m.most; });
  store(StatOption::named<"SUMS">(),
        [&](const SeriesMoments& m) { return m.sum * counting(m, weighted).scale; });
}

// ---- Matrices ----------------------------------------------------------------------------------

namespace {

std::string_view column_name(const void* columns, int i) {
  return static_cast<const StatColumn*>(columns)[i].name();
}

struct Matrices {
  StatJob& job;
  Workspace ws;
  std::span<const double> cross;  // packed K about the means, scaled by the exponents
  std::span<double> out;          // packed K
  Counting count;

  // Prints the matrix in `out` and stores it.
  template <FixedText TITLE>
  void give(bool print, const NameOption& option) const {
    if (print && job.print) {
      say<TITLE>(static_cast<std::int64_t>(std::llround(count.N)));
      print_packed(out, job.K(), column_name, job.columns.data());
    }
    give_result(ws, job, option, SYMMETRIC, out, job.K());
  }
  // Sums about the means, divided.
  void fill(double divisor) const {
    for (int i = 1; i <= job.K(); ++i) {
      for (int j = 1; j <= i; ++j) {
        const int e = job.common[static_cast<std::size_t>(i - 1)].exponent +
                      job.common[static_cast<std::size_t>(j - 1)].exponent;
        const double v = cross[packed(i, j)] * count.scale / divisor;
        out[packed(i, j)] = e == 0 ? v : std::ldexp(v, e);
      }
    }
  }
  // Sums of products about zero.
  void fill_raw() const {
    fill(1.0);
    for (int i = 1; i <= job.K(); ++i) {
      for (int j = 1; j <= i; ++j) {
        const double product = job.common[static_cast<std::size_t>(i - 1)].mean *
                               job.common[static_cast<std::size_t>(j - 1)].mean;
        out[packed(i, j)] += count.N * product;
      }
    }
  }
  void fill_missing() const { std::ranges::fill(out, MACOM.XMISS); }
};

// Raw moments with a column of ones before the last variable: what MOMENTS= of OLS reads.
void store_moments(const Matrices& all) {
  if (StatOption::named<"MOMENTS">().text.empty()) return;
  const int K = all.job.K();
  all.fill_raw();
  std::vector<double> with_ones(packed_words(K + 1));
  const auto place = [K](int i) { return i < K ? i : K + 1; };
  for (int i = 1; i <= K; ++i) {
    for (int j = 1; j <= i; ++j) {
      with_ones[packed(place(i), place(j))] = all.out[packed(i, j)];
    }
    const double sum = all.job.common[static_cast<std::size_t>(i - 1)].sum;
    with_ones[packed(place(i), K)] = sum * all.count.scale;
  }
  with_ones[packed(K, K)] = all.count.N;
  give_result(all.ws, all.job, StatOption::named<"MOMENTS">(), SYMMETRIC, with_ones, K + 1);
}

// The ranks of one column's common rows, tied values averaged, in the rows' order. Returns how
// many.
std::size_t RANKS(const SeriesRows& rows, std::span<double> ranks, std::span<double> x,
                  std::span<double> work) {
  std::size_t n = 0;
  for_values(rows, [&](double v) { x[n++] = v; });
  const auto order = sort_order(x.first(n), work);
  for (std::size_t i = 0; i < n;) {
    std::size_t j = i + 1;
    while (j < n && x[order[j]] == x[order[i]]) ++j;
    const double rank = 0.5 * static_cast<double>(i + 1 + j);
    for (; i < j; ++i) ranks[order[i]] = rank;
  }
  return n;
}

void rank_correlations(Workspace ws, StatJob& job, const Matrices& all) {
  if (!StatOption::chosen<"PRANKCOR">() && StatOption::named<"RANKCORR">().text.empty()) return;
  const auto n = static_cast<std::size_t>(job.common_n);
  const auto K = static_cast<std::size_t>(job.K());
  if (n < 2) {
    all.fill_missing();
    return give_result(ws, job, StatOption::named<"RANKCORR">(), SYMMETRIC, all.out, job.K());
  }
  const auto each = static_cast<std::int64_t>(n);
  std::int64_t words = 0;
  const auto K64 = static_cast<std::int64_t>(K);
  const std::int64_t fixed = series_moments_words(K64, each) + common_cross_words(K64, each) + K64;
  if (!checked_product(K64 + 2, each, words) || !fits32(words + fixed)) words = -1 - fixed;
  Scratch room(ws, words + fixed);
  if (!room) return;
  std::vector<const double*> column(K);
  std::vector<SeriesRows> rows(K);
  std::vector<SeriesMoments> moments(K);
  const std::span<double> variances = room.take(K);
  const std::span<double> ranks = room.take(n * K);
  const std::span<double> rest = room.rest();
  for (std::size_t c = 0; c < K; ++c) {
    const auto to = ranks.subspan(c * n, n);
    RANKS(job.common_rows_of(c), to, rest.first(n), rest.subspan(n, n));
    column[c] = to.data();
    rows[c] = {.x = to.data(), .rows = each};
    if (stop_requested()) return;
  }
  series_moments(rows, moments, rest);
  common_cross({.x = column, .rows = each}, moments, rest, all.out);
  correlations(all.out, job.K(), variances);
  all.give<"(' SPEARMAN RANK CORRELATION MATRIX - ', I8, ' OBSERVATIONS')">(
      StatOption::chosen<"PRANKCOR">(), StatOption::named<"RANKCORR">());
}

bool moments_wanted() {
  return StatOption::chosen<"PCORRELA">() || StatOption::chosen<"PCOVARIA">() ||
         StatOption::chosen<"PCPRODUC">() || StatOption::chosen<"PCPDEV">() ||
         !StatOption::named<"CORRELAT">().text.empty() ||
         !StatOption::named<"COVARIAN">().text.empty() ||
         !StatOption::named<"CPRODUCT">().text.empty() ||
         !StatOption::named<"CPDEVIAT">().text.empty() ||
         !StatOption::named<"MOMENTS">().text.empty();
}

}  // namespace

void make_matrices(Workspace ws, StatJob& job) {
  const bool moments = moments_wanted();
  if (OCOM.ODONT || (!moments && !StatOption::chosen<"PRANKCOR">() &&
                     StatOption::named<"RANKCORR">().text.empty())) {
    return;
  }
  const int K = job.K();
  const auto triangle = static_cast<std::int64_t>(packed_words(K));
  if (!fits32(2 * triangle + K)) {
    ADDCOM.NEED = 2 * triangle + ADDCOM.LASADD;
    return NOCORE();
  }
  Scratch room(ws, 2 * triangle + K);
  if (!room) return;
  const std::span<double> cross = room.take(packed_words(K));
  const std::span<double> out = room.take(packed_words(K));
  Matrices all{job, ws, cross, out, counting(job.common.front(), job.weight != nullptr)};
  if (moments) {
    Scratch work(ws, common_cross_words(K, job.common_rows));
    if (!work) return;
    std::vector<const double*> x;
    for (const StatColumn& c : job.columns) x.push_back(c.x);
    common_cross({.x = x, .rows = job.common_rows, .weight = job.weight, .marks = job.common_marks},
                 job.common, work.words(), cross);
    if (job.common_n == 0 && job.print) say(" NO OBSERVATIONS FOUND");
    const bool some = job.common_n > 0;
    some ? all.fill_raw() : all.fill_missing();
    all.give<"(' CROSSPRODUCT MATRIX OF VARIABLES -', I8, ' OBSERVATIONS')">(
        some && StatOption::chosen<"PCPRODUC">(), StatOption::named<"CPRODUCT">());
    some ? all.fill(1.0) : all.fill_missing();
    all.give<"(' CROSSPRODUCT MATRIX IN DEVIATIONS -', I8, ' OBSERVATIONS')">(
        some && StatOption::chosen<"PCPDEV">(), StatOption::named<"CPDEVIAT">());
    const double divisor = StatOption::chosen<"DN">() ? all.count.N : all.count.N - 1.0;
    const bool spread = some && divisor > 0.0;
    spread ? all.fill(divisor) : all.fill_missing();
    all.give<"('  COVARIANCE MATRIX OF VARIABLES -', I8, ' OBSERVATIONS')">(
        spread && StatOption::chosen<"PCOVARIA">(), StatOption::named<"COVARIAN">());
    if (spread) {
      std::ranges::copy(cross, out.begin());
      correlations(out, K, room.take(static_cast<std::size_t>(K)));
    } else {
      all.fill_missing();
    }
    all.give<"('  CORRELATION MATRIX OF VARIABLES -', I8, ' OBSERVATIONS')">(
        spread && StatOption::chosen<"PCORRELA">(), StatOption::named<"CORRELAT">());
    if (some) store_moments(all);
  }
  rank_correlations(ws, job, all);
}

}  // namespace korvel
