// STAT: what needs the values in order. Medians and quartiles, modes, frequencies, stem and leaf.
#include <algorithm>
#include <cmath>

#include "data/sort.h"
#include "engine/output.h"
#include "stats/stats_parts.h"
#include "stats/stats_results.h"

namespace korvel {
namespace {

constexpr int MOST_STEM_DIGITS = 4;

// Columns: 1-13 value, 14-26 frequency, then percentages: of the value, up to it, behind it.
void print_frequencies(std::string_view name, std::span<const double> x) {
  say<"('  VARIABLE = ', A)">(name);
  say<"(5X, 'VALUE       FREQUENCY      PERCENT   CUMULATIVE', ' REMAINING')">();
  const double percent = 100.0 / static_cast<double>(x.size());
  for (std::size_t i = 0; i < x.size();) {
    std::size_t j = i + 1;
    while (j < x.size() && x[j] == x[i]) ++j;
    say<"(G13.5, I13, F13.2, F13.2, F10.2)">(x[i], j - i, static_cast<double>(j - i) * percent,
                                             static_cast<double>(j) * percent,
                                             static_cast<double>(x.size() - j) * percent);
    if (stop_requested()) return;
    i = j;
  }
}

// Stem and leaf of a value: the whole leaf units in it, cut, and its side of zero.
struct Stem {
  std::int64_t stem = 0;  // -1 is the stem -0
  int leaf = 0;
};
Stem stem_of(double v, double unit) {
  const auto tenths = static_cast<std::int64_t>(std::fabs(v) / unit * (1.0 + 1e-14));
  const std::int64_t stem = tenths / 10;
  return {v < 0.0 ? -1 - stem : stem, static_cast<int>(tenths % 10)};
}

// Tukey (1977), Exploratory Data Analysis, chapter 1. The largest value's stem has `digits` digits.
void print_stems(std::string_view name, std::span<const double> x, int digits) {
  const double largest = std::max(std::fabs(x.front()), std::fabs(x.back()));
  double unit = 1.0;
  if (largest > 0.0) {
    unit = std::pow(10.0, std::floor(std::log10(largest) + 1e-14) - digits);
    if (!(unit > 0.0) || !std::isfinite(largest / unit)) unit = largest;
  }
  say<"(' STEMPLOT: ', A, ' STEM DIGITS=', I0, '  LEAF UNIT=', G13.5)">(name, digits, unit);
  say(" CUMUL-FREQ STEM   LEAF");
  constexpr std::size_t LEAVES = 100;
  std::size_t i = 0;
  for (std::int64_t stem = stem_of(x.front(), unit).stem; stem <= stem_of(x.back(), unit).stem;
       ++stem) {
    char leaves[LEAVES];
    std::size_t n = 0;
    std::size_t first = i;
    while (first < x.size() && stem_of(x[first], unit).stem == stem) ++first;
    bool named = false;
    do {
      n = 0;
      for (; i < first && n < LEAVES; ++i) {
        leaves[n++] = static_cast<char>('0' + stem_of(x[i], unit).leaf);
      }
      Line row;
      if (named) {
        row.put<"(22X)">();
      } else if (stem < 0) {
        // A stem of -0 keeps its sign.
        char text[8];
        int at = 8;
        for (std::int64_t s = -1 - stem; at == 8 || s > 0; s /= 10) {
          text[--at] = static_cast<char>('0' + s % 10);
        }
        text[--at] = '-';
        row.put<"(I9)">(first);
        for (int blank = 0; blank < 7 - (8 - at); ++blank) row.put<"(1X)">();
        row.put<"(A, ' |', 4X)">(std::string_view(text + at, static_cast<std::size_t>(8 - at)));
      } else {
        row.put<"(I9, I7, ' |', 4X)">(first, stem);
      }
      row.put<"(A)">(std::string_view(leaves, n));
      OUTLINE();
      named = true;
    } while (i < first);
    if (stop_requested()) return;
  }
}

}  // namespace

void make_sorted(Workspace ws, StatJob& job) {
  const NameOption& medians = StatOption::named<"MEDIANS">();
  const NameOption& modes = StatOption::named<"MODES">();
  const int digits = StatOption::integer<"STEMPLOT">();
  if (digits < 0 || digits > MOST_STEM_DIGITS) {
    return fail(" ...ERROR..IN RIGHT HAND SIDE OF OPTION..STEMPLOT");
  }
  const bool printed = job.print && (StatOption::chosen<"PMEDIAN">() ||
                                     StatOption::chosen<"PFREQUEN">() || digits > 0);
  if (!printed && medians.text.empty() && modes.text.empty()) return;
  std::int64_t most = 0;
  for (const SeriesMoments& m : job.moments) most = std::max(most, m.n);
  const auto full = static_cast<std::int64_t>(SORTSH_words(static_cast<std::size_t>(most)));
  Scratch room(ws, most + std::clamp(free_words() - most, most, std::max(most, full)));
  if (!room) return;
  const std::span<double> values = room.take(static_cast<std::size_t>(most));
  std::vector<double> found(2 * job.columns.size(), MACOM.XMISS);
  const std::span<double> all(found);
  const std::span<double> middle = all.first(job.columns.size());
  const std::span<double> frequent = all.subspan(job.columns.size());
  for (std::size_t c = 0; c < job.columns.size(); ++c) {
    std::size_t n = 0;
    SeriesRows rows = job.rows_of(c);
    if (job.columns[c].whole) rows.marks = {};
    for_values(rows, [&](double v) { values[n++] = v; });
    if (n == 0) continue;
    const std::span<double> x = values.first(n);
    SORTSH(x, room.rest());
    const SortStatistics s = sort_statistics(x);
    middle[c] = s.median;
    if (s.frequency > 1) frequent[c] = s.mode;
    if (job.print && StatOption::chosen<"PMEDIAN">()) {
      say<"('  VARIABLE = ', A)">(job.columns[c].name());
      print_sort_statistics(s);
    }
    if (job.print && StatOption::chosen<"PFREQUEN">()) print_frequencies(job.columns[c].name(), x);
    if (job.print && digits > 0) print_stems(job.columns[c].name(), x, digits);
    if (stop_requested()) return;
  }
  give_result(ws, job, medians, SERIES, middle);
  give_result(ws, job, modes, SERIES, frequent);
}

}  // namespace korvel
