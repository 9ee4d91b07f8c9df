// STAT: analysis of variance with the variables as groups, and Bartlett's test of equal variances.
#include <algorithm>
#include <cmath>
#include <numbers>

#include "engine/output.h"
#include "stats/stats.h"
#include "stats/stats_parts.h"

namespace korvel {
namespace {

constexpr int T_F = temporary_place("F");
constexpr int T_DF1 = temporary_place("DF1");
constexpr int T_DF2 = temporary_place("DF2");
constexpr int T_CHI = temporary_place("CHI");
constexpr int T_DF = temporary_place("DF");
constexpr int T_PVAL = temporary_place("PVAL");

// The unit of the group whose numbers are largest.
int common_unit(std::span<const SeriesMoments> groups) {
  int unit = -2000;
  for (const SeriesMoments& m : groups) {
    if (m.n > 0) unit = std::max(unit, m.exponent);
  }
  return unit;
}

double squares_in(const SeriesMoments& m, int unit) {
  return std::ldexp(m.squares, 2 * (m.exponent - unit));
}

// A mean as its distance from another one, with the digits that neither of them holds.
double from_pivot(const SeriesMoments& m, const SeriesMoments& pivot) {
  return (m.mean - pivot.mean) + m.low;
}

// What a row of the table shows. Columns: 1-12 name, 13-29 sum of squares, 30-37 degrees of
// freedom, 38-55 mean square, 56-68 F, 69-78 its p-value.
struct AnovaRow {
  double SS, df;
  int unit;  // as in OneWay
  double MS() const { return df > 0.0 ? SS / df : 0.0; }
  double shown(double v) const {
    const double plain = std::ldexp(v, 2 * unit);
    return std::isfinite(plain) ? plain : MACOM.XMISS;
  }
};

template <FixedText NAME>
void print_anova_row(const AnovaRow& r, const AnovaRow* error) {
  Line row;
  row.put<NAME>();
  row.column(13);
  row.put<"(G17.5, F8.0, G18.5)">(r.shown(r.SS), r.df, r.shown(r.MS()));
  if (error != nullptr && error->MS() > 0.0) {
    const double F = r.MS() / error->MS();
    row.put<"(G13.5, F10.5)">(F, f_tail(F, r.df, error->df));
  }
  OUTLINE();
}

void print_anova_heading() { say<"(27X, 'SS', 6X, 'DF', 16X, 'MS', 11X, 'F    P-VALUE')">(); }

void set_F(double F, double df1, double df2) {
  temporary(T_F) = F;
  temporary(T_DF1) = df1;
  temporary(T_DF2) = df2;
  temporary(T_PVAL) = f_tail(F, df1, df2);
}

// Two ways: the variables are groups, the observations blocks. Deviations from the group means are
// split into those of the blocks and the rest (Snedecor and Cochran 1989, chapter 14).
struct TwoWay {
  AnovaRow groups, blocks, error;
};
TwoWay two_way(const StatJob& job, const OneWay& one) {
  const auto K = static_cast<double>(job.K());
  double sum = 0.0;
  double blocks = 0.0;
  double error = 0.0;
  std::int64_t n = 0;
  const auto marks = static_cast<std::int64_t>(job.common_marks.size());
  for (std::int64_t t = 0; t < job.common_rows; ++t) {
    if (t < marks && job.common_marks[static_cast<std::size_t>(t)] > 0.0) continue;
    const auto deviation = [&](std::size_t c) {
      const SeriesMoments& m = job.moments[c];
      const double scale = std::ldexp(1.0, -one.unit);
      return (job.columns[c].x[t] * scale - m.mean * scale) - m.low * scale;
    };
    double row = 0.0;
    for (std::size_t c = 0; c < job.columns.size(); ++c) row += deviation(c);
    row /= K;
    for (std::size_t c = 0; c < job.columns.size(); ++c) {
      const double e = deviation(c) - row;
      error += e * e;
    }
    sum += row;
    blocks += row * row;
    ++n;
  }
  const auto N = static_cast<double>(n);
  return {{one.between, K - 1.0, one.unit},
          {K * (blocks - sum * sum / N), N - 1.0, one.unit},
          {error, (K - 1.0) * (N - 1.0), one.unit}};
}

bool enough_groups(const StatJob& job, std::string_view test) {
  std::int64_t groups = 0;
  for (const SeriesMoments& m : job.moments) groups += m.n > 0 ? 1 : 0;
  if (groups >= 2) return true;
  fail<"(' ...ERROR..', A, ' NEEDS AT LEAST TWO VARIABLES WITH OBSERVATIONS')">(test);
  return false;
}

}  // namespace

OneWay one_way(std::span<const SeriesMoments> groups) {
  OneWay a;
  a.unit = common_unit(groups);
  double N = 0.0;
  double k = 0.0;
  const SeriesMoments* pivot = nullptr;
  double mean = 0.0;  // grand mean from the pivot, in the unit
  for (const SeriesMoments& m : groups) {
    if (m.n == 0) continue;
    if (pivot == nullptr) pivot = &m;
    const auto n = static_cast<double>(m.n);
    N += n;
    k += 1.0;
    mean += n * std::ldexp(from_pivot(m, *pivot), -a.unit);
    a.within += squares_in(m, a.unit);
  }
  if (pivot == nullptr) return a;
  mean /= N;
  for (const SeriesMoments& m : groups) {
    if (m.n == 0) continue;
    const double d = std::ldexp(from_pivot(m, *pivot), -a.unit) - mean;
    a.between += static_cast<double>(m.n) * d * d;
  }
  a.mean = pivot->mean + std::ldexp(mean, a.unit);
  a.df1 = k - 1.0;
  a.df2 = N - k;
  a.has_F = a.df1 > 0.0 && a.df2 > 0.0 && a.within > 0.0;
  if (a.has_F) a.F = (a.between / a.df1) / (a.within / a.df2);
  return a;
}

void make_anova(Workspace, StatJob& job) {
  if (!enough_groups(job, "ANOVA")) return;
  // 1. One way.
  const OneWay one = one_way(job.moments);
  if (one.has_F) set_F(one.F, one.df1, one.df2);
  const AnovaRow within{one.within, one.df2, one.unit};
  if (job.print) {
    say<"(1X, 'ANALYSIS OF VARIANCE - OVERALL MEAN=', G13.5)">(one.mean);
    print_anova_heading();
    const AnovaRow between{one.between, one.df1, one.unit};
    print_anova_row<"(' BETWEEN    ')">(between, one.df2 > 0.0 ? &within : nullptr);
    print_anova_row<"(' WITHIN     ')">(within, nullptr);
    print_anova_row<"(' TOTAL')">({one.between + one.within, one.df1 + one.df2, one.unit}, nullptr);
  }
  // 2. Two ways, where every observation is in all groups.
  if (!job.same_rows || job.common_n < 2 || !job.print) return;
  const TwoWay two = two_way(job, one);
  say<"(1X, 'TWO-WAY ANALYSIS OF VARIANCE - OVERALL MEAN=', G13.5)">(one.mean);
  print_anova_heading();
  print_anova_row<"(' GROUPS     ')">(two.groups, &two.error);
  print_anova_row<"(' BLOCKS     ')">(two.blocks, &two.error);
  print_anova_row<"(' ERROR')">(two.error, nullptr);
  print_anova_row<"(' TOTAL')">({two.groups.SS + two.blocks.SS + two.error.SS,
                                 two.groups.df + two.blocks.df + two.error.df, one.unit},
                                nullptr);
}

// Bartlett (1937), Proceedings of the Royal Society A 160, 268-282, with his correction.
void make_bartlett(const StatJob& job) {
  if (!enough_groups(job, "BARTLETT")) return;
  const int unit = common_unit(job.moments);
  double k = 0.0;
  double df = 0.0;
  double squares = 0.0;
  double logs = 0.0;
  double reciprocals = 0.0;
  for (std::size_t c = 0; c < job.moments.size(); ++c) {
    const SeriesMoments& m = job.moments[c];
    if (m.n == 0) continue;
    const double own = static_cast<double>(m.n) - 1.0;
    if (!(own > 0.0) || !(m.squares > 0.0)) {
      return warn<"(' ...WARNING..', A, ' HAS NO VARIANCE. NO BARTLETT TEST')">(
          job.columns[c].name());
    }
    k += 1.0;
    df += own;
    squares += squares_in(m, unit);
    logs += own * (std::log(m.squares / own) + 2.0 * (m.exponent - unit) * std::numbers::ln2);
    reciprocals += 1.0 / own;
  }
  const double correction = 1.0 + (reciprocals - 1.0 / df) / (3.0 * (k - 1.0));
  const double chi = std::max(0.0, (df * std::log(squares / df) - logs) / correction);
  temporary(T_CHI) = chi;
  temporary(T_DF) = k - 1.0;
  temporary(T_PVAL) = chi_square_tail(chi, k - 1.0).value;
  if (!job.print) return;
  say<"('  BARTLETTS HOMOGENEITY OF VARIANCE TEST = ', G13.5, ' P-VALUE=', F8.5)">(
      chi, temporary(T_PVAL));
  say<"('     APPROXIMATELY CHI-SQUARE WITH ', I0, ' DEGREES OF FREEDOM')">(
      static_cast<int>(k - 1.0));
}

}  // namespace korvel
