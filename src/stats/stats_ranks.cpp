// STAT: tests that compare samples. Kruskal-Wallis and Mann-Whitney on ranks, t-tests of equal
// means, the sign test.
#include <algorithm>
#include <cmath>

#include "data/sort.h"
#include "engine/output.h"
#include "stats/stats.h"
#include "stats/stats_parts.h"
#include "stats/stats_results.h"

namespace korvel {
namespace {

constexpr int T_T = temporary_place("T");
constexpr int T_CHI = temporary_place("CHI");
constexpr int T_DF = temporary_place("DF");
constexpr int T_PVAL = temporary_place("PVAL");

// The pooled sample in order: rank sums of the groups, and what ties take from the variance of the
// ranks.
struct Pooled {
  std::vector<double> ranksum;
  double N = 0.0;
  double ties = 0.0;  // sum of t^3 - t over runs of t equal values
};

bool pool(Workspace ws, const StatJob& job, Pooled& p) {
  std::int64_t N = 0;
  for (const SeriesMoments& m : job.moments) N += m.n;
  if (!fits32(2 * N)) {
    ADDCOM.NEED = 2 * N + ADDCOM.LASADD;
    NOCORE();
    return false;
  }
  const auto full = static_cast<std::int64_t>(SORTSH_words(static_cast<std::size_t>(N)));
  Scratch room(ws, N + std::clamp(free_words() - N, N, std::max(N, full)));
  if (!room) return false;
  const std::span<double> x = room.take(static_cast<std::size_t>(N));
  // Values in the order of the groups; `end` tells where each one stops.
  std::vector<std::size_t> end;
  std::size_t n = 0;
  for (std::size_t c = 0; c < job.columns.size(); ++c) {
    SeriesRows rows = job.rows_of(c);
    if (job.columns[c].whole) rows.marks = {};
    for_values(rows, [&](double v) { x[n++] = v; });
    end.push_back(n);
  }
  p.N = static_cast<double>(n);
  p.ranksum.assign(job.columns.size(), 0.0);
  const auto order = sort_order(x.first(n), room.rest());
  for (std::size_t i = 0; i < n;) {
    std::size_t j = i + 1;
    while (j < n && x[order[j]] == x[order[i]]) ++j;
    const auto t = static_cast<double>(j - i);
    p.ties += t * t * t - t;
    const double rank = 0.5 * static_cast<double>(i + 1 + j);
    for (; i < j; ++i) {
      const auto group = std::upper_bound(end.begin(), end.end(), order[i]) - end.begin();
      p.ranksum[static_cast<std::size_t>(group)] += rank;
    }
  }
  return true;
}

// U of the first sample, with the normal approximation that ties correct: Lehmann (1975),
// Nonparametrics, section 1.4. No correction for continuity.
void mann_whitney(const StatJob& job, const Pooled& p) {
  const auto n1 = static_cast<double>(job.moments[0].n);
  const auto n2 = static_cast<double>(job.moments[1].n);
  const double U = p.ranksum[0] - n1 * (n1 + 1.0) / 2.0;
  const double variance = n1 * n2 / 12.0 * (p.N + 1.0 - p.ties / (p.N * (p.N - 1.0)));
  const double z = variance > 0.0 ? (U - n1 * n2 / 2.0) / std::sqrt(variance) : 0.0;
  if (variance > 0.0) temporary(T_PVAL) = normal_two_sided(z);
  if (!job.print) return;
  Line row;
  row.put<"(' MANN-WHITNEY TEST U=', G13.5, ' N1=', I0, ' N2=', I0)">(U, job.moments[0].n,
                                                                      job.moments[1].n);
  if (variance > 0.0) row.put<"(' Z=', G13.5, ' P-VALUE=', F8.5)">(z, temporary(T_PVAL));
  OUTLINE();
}

// The sign test of first minus second, zeros dropped.
void sign_test(const StatJob& job) {
  if (job.columns[0].rows != job.columns[1].rows || job.columns[0].whole || job.columns[1].whole) {
    if (job.print) say(" ...NOTE..NO SIGN TEST: THE SAMPLES DO NOT COME IN PAIRS");
    return;
  }
  std::int64_t negative = 0;
  std::int64_t zero = 0;
  std::int64_t positive = 0;
  const auto marks = static_cast<std::int64_t>(job.common_marks.size());
  for (std::int64_t t = 0; t < job.common_rows; ++t) {
    if (t < marks && job.common_marks[static_cast<std::size_t>(t)] > 0.0) continue;
    const double first = job.columns[0].x[t];
    const double second = job.columns[1].x[t];
    negative += first < second ? 1 : 0;
    positive += first > second ? 1 : 0;
    zero += first == second ? 1 : 0;
  }
  const auto k = static_cast<double>(std::min(negative, positive));
  const auto n = static_cast<double>(negative + positive);
  // P(X <= k) of the binomial with p = 1/2.
  const double one_sided = n > 0.0 ? beta_tails(0.5L, 0.5L, n - k, k + 1.0).below : 1.0;
  temporary(T_PVAL) = std::min(1.0, 2.0 * one_sided);
  if (!job.print) return;
  say<"(1X, 'NONPARAMETRIC SIGN TEST:')">();
  say<"('  DIFFERENCES: NEGATIVE=', I0, ' ZERO=', I0, ' POSITIVE=', I0)">(negative, zero, positive);
  say<"('  ONE-SIDED PVALUE=', F8.5, ' TWO-SIDED PVALUE=', F8.5)">(one_sided, temporary(T_PVAL));
}

struct TTest {
  double t = 0.0, df = 0.0;
  bool exists = false;
};

// Difference of the means over its error: pooled variance, or each sample's own (Welch 1947,
// Biometrika 34, 28-35). Variances are taken in one unit of both samples.
TTest t_test(const SeriesMoments& a, const SeriesMoments& b, bool pooled) {
  TTest r;
  const auto n1 = static_cast<double>(a.n);
  const auto n2 = static_cast<double>(b.n);
  if (n1 < 1.0 || n2 < 1.0 || n1 + n2 < 3.0 || (!pooled && (n1 < 2.0 || n2 < 2.0))) return r;
  const int unit = std::max(a.exponent, b.exponent);
  const double s1 = std::ldexp(a.squares, 2 * (a.exponent - unit));
  const double s2 = std::ldexp(b.squares, 2 * (b.exponent - unit));
  double variance = 0.0;
  if (pooled) {
    r.df = n1 + n2 - 2.0;
    variance = (s1 + s2) / r.df * (1.0 / n1 + 1.0 / n2);
  } else {
    const double v1 = s1 / (n1 - 1.0) / n1;
    const double v2 = s2 / (n2 - 1.0) / n2;
    variance = v1 + v2;
    const double q1 = variance > 0.0 ? v1 / variance : 0.0;
    const double q2 = variance > 0.0 ? v2 / variance : 0.0;
    r.df = variance > 0.0 ? 1.0 / (q1 * q1 / (n1 - 1.0) + q2 * q2 / (n2 - 1.0)) : 0.0;
  }
  r.exists = variance > 0.0;
  const double difference = (a.mean - b.mean) + (a.low - b.low);
  if (r.exists) r.t = std::ldexp(difference, -unit) / std::sqrt(variance);
  return r;
}

void give_t_test(const StatJob& job, bool pooled) {
  const TTest r = t_test(job.moments[0], job.moments[1], pooled);
  if (!r.exists) {
    return warn(" ...WARNING..THE SAMPLES HAVE NO VARIANCE. NO T-TEST");
  }
  temporary(T_T) = r.t;
  temporary(T_DF) = r.df;
  temporary(T_PVAL) = f_tail(r.t * r.t, 1.0, r.df);
  if (!job.print) return;
  Line row;
  if (pooled)
    row.put<"('                T-TEST OF EQUAL MEANS:')">();
  else
    row.put<"(' APPROXIMATE    T-TEST OF EQUAL MEANS:')">();
  row.put<"(G13.5, ' WITH', F10.2, ' D.F. P-VALUE=', F8.5)">(r.t, r.df, temporary(T_PVAL));
  OUTLINE();
}

}  // namespace

// Kruskal and Wallis (1952), Journal of the American Statistical Association 47, 583-621, with the
// correction for ties.
void make_rank_tests(Workspace ws, StatJob& job) {
  double k = 0.0;
  for (const SeriesMoments& m : job.moments) k += m.n > 0 ? 1.0 : 0.0;
  if (k < 2.0) return fail(" ...ERROR..NPARAM NEEDS AT LEAST TWO VARIABLES WITH OBSERVATIONS");
  Pooled p;
  if (!pool(ws, job, p)) return;
  double spread = 0.0;
  for (std::size_t c = 0; c < job.columns.size(); ++c) {
    if (job.moments[c].n == 0) continue;
    const auto n = static_cast<double>(job.moments[c].n);
    const double d = p.ranksum[c] / n - (p.N + 1.0) / 2.0;
    spread += n * d * d;
    if (job.print) {
      say<"(1X, A8, ' RANKSUM=', G13.5, ' N=', I0)">(job.columns[c].name(), p.ranksum[c],
                                                     job.moments[c].n);
    }
  }
  const double tied = 1.0 - p.ties / (p.N * p.N * p.N - p.N);
  if (!(tied > 0.0)) {
    warn(" ...WARNING..ALL VALUES ARE EQUAL. NO KRUSKAL-WALLIS TEST");
  } else {
    const double H = 12.0 / (p.N * (p.N + 1.0)) * spread / tied;
    temporary(T_CHI) = H;
    temporary(T_DF) = k - 1.0;
    temporary(T_PVAL) = chi_square_tail(H, k - 1.0).value;
    if (job.print) {
      say<"(' KRUSKAL-WALLIS TEST:', G13.5, ' IS CHI-SQUARE WITH ', I0, ' D.F. P-VALUE=', F8.5)">(
          H, static_cast<int>(k - 1.0), temporary(T_PVAL));
    }
  }
  if (job.K() == 2) mann_whitney(job, p);
}

void make_two_samples(Workspace, StatJob& job) {
  if (job.K() != 2) {
    // NPARAM has said all that there is for more than two samples.
    if (StatOption::chosen<"BEHRENSF">()) fail(" ...ERROR..BEHRENSF COMPARES TWO VARIABLES");
    return;
  }
  if (job.print) say("  DIFFERENCE BETWEEN TWO SAMPLES TESTS:");
  if (StatOption::chosen<"NPARAM">()) give_t_test(job, true);
  if (StatOption::chosen<"BEHRENSF">()) give_t_test(job, false);
  if (StatOption::chosen<"NPARAM">()) sign_test(job);
}

}  // namespace korvel
