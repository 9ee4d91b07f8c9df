// STAT: what its parts share. stats_command.cpp is the command routine; stats_tables.cpp prints the
// table and the matrices, stats_spread.cpp what needs sorted values, anova.cpp and stats_ranks.cpp
// the tests.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "data/format.h"
#include "engine/options.h"
#include "engine/workspace.h"
#include "stats/stats_moments.h"

namespace korvel {

inline constexpr auto STATOPT = option_table(
    logical("PCORRELA"), logical("PCOVARIA"), logical("LIST", true), logical("MATRIX"),
    logical("ALL"), logical("MAX"), logical("DN"), logical("PCPRODUC"), logical("PCPDEV"),
    logical("PRANKCOR"), logical("BARTLETT"), logical("ANOVA"), logical("BEHRENSF"),
    logical("PFREQUEN"), logical("PMEDIAN"), logical("WIDE"), logical("REPLICAT"),
    logical("NPARAM"), logical("SAMEOBS"), logical("DUMP"), logical("SAMPSIZE"), integer("BEG"),
    integer("END"), integer("OBS"), integer("STEMPLOT"), integer("NPOP"), variable("MEANS"),
    variable("VARIANCE"), variable("STDEVS"), variable("MINIMUMS"), variable("MAXIMUMS"),
    variable("CORRELAT"), variable("COVARIAN"), variable("CPRODUCT"), variable("CPDEVIAT"),
    variable("RANKCORR"), variable("WEIGHT"), variable("MOMENTS"), variable("SUMS"),
    variable("MEDIANS"), variable("MODES"));
static_assert(STATOPT.words.size() == 41);

using StatOption = OptionValues<STATOPT>;

// A column of the list, from the first observation of the range on.
struct StatColumn {
  int var = 0;
  const double* x = nullptr;  // null: no numbers
  std::int64_t rows = 0;      // of the range; 0: it lies behind the variable's end
  bool whole = false;         // all elements of a matrix: they are no observations
  std::array<char, 24> label{};
  int label_length = 0;
  std::string_view name() const { return {label.data(), static_cast<std::size_t>(label_length)}; }
  void set_label(std::string_view name, int column);
};

// A result whose variable is still being read.
struct LateResult {
  const NameOption* option = nullptr;
  VarType type = SERIES;
  std::vector<double> values;
  int columns = 1;
};

// One STAT command.
struct StatJob {
  std::vector<StatColumn> columns;
  std::vector<SeriesMoments> moments;  // of each column's own rows
  std::vector<SeriesMoments> common;   // of the rows that all columns have
  std::vector<double> values;          // a vector result, or two, on its way to its variable
  std::vector<LateResult> late;
  std::int64_t rows = 0;                 // longest range
  std::int64_t common_rows = 0;          // shortest one
  std::int64_t common_n = 0;             // rows of it that count
  bool same_rows = false;                // every column has just the common rows
  std::span<const double> marks;         // rows that no column may use
  std::span<const double> common_marks;  // ... or that some column lacks
  const double* weight = nullptr;
  int weight_var = 0;
  bool missing = false;  // SKIPMISS: the missing code is passed over
  bool print = false;

  int K() const { return static_cast<int>(columns.size()); }
  // Rows of a column as the kernels take them.
  SeriesRows rows_of(std::size_t c) const {
    return {.x = columns[c].x,
            .rows = columns[c].rows,
            .weight = weight,
            .marks = marks,
            .missing = missing,
            .code = MACOM.XMISS};
  }
  SeriesRows common_rows_of(std::size_t c) const {
    return {.x = columns[c].x, .rows = common_rows, .weight = weight, .marks = common_marks};
  }
};

// Observations that a divisor counts, and what weighted sums are multiplied by to be of that count.
struct Counting {
  double N = 0.0;
  double scale = 1.0;
};
Counting counting(const SeriesMoments& m, bool weighted);
// Variance and its root; the missing code where there is none.
double stat_variance(const SeriesMoments& m, bool weighted);
double stat_deviation(const SeriesMoments& m, bool weighted);

// Calls f(value) for the rows of a column that count, in order.
template <class F>
void for_values(const SeriesRows& s, F&& f) {
  const auto marks = static_cast<std::int64_t>(s.marks.size());
  for (std::int64_t t = 0; t < s.rows; ++t) {
    if (t < marks && s.marks[static_cast<std::size_t>(t)] > 0.0) continue;
    const double v = s.x[t];
    if ((s.missing && v == s.code) || v - v != 0.0) continue;
    f(v);
  }
}

// Steps of the command. All of them print under job.print only and return early after a failure.
void print_statistics(const StatJob& job);
void print_sample_sizes(const StatJob& job);
// A result that takes the place of a listed variable or of the weights waits for the end of the
// command, since later steps read them; any other one is stored.
void give_result(Workspace ws, StatJob& job, const NameOption& option, VarType type,
                 std::span<const double> values, int columns = 1);
void store_late(Workspace ws, const StatJob& job);
void store_vectors(Workspace ws, StatJob& job);
void make_matrices(Workspace ws, StatJob& job);
void make_sorted(Workspace ws, StatJob& job);
void make_anova(Workspace ws, StatJob& job);
void make_bartlett(const StatJob& job);
void make_rank_tests(Workspace ws, StatJob& job);
void make_two_samples(Workspace ws, StatJob& job);

// F of variances between and within groups, and what belongs to it. Sums of squares stand times
// 4**-unit, which is 0 but for data near the ends of the range of reals.
struct OneWay {
  double mean = 0.0;
  double between = 0.0, within = 0.0;
  double df1 = 0.0, df2 = 0.0;
  double F = 0.0;
  bool has_F = false;
  int unit = 0;
};
OneWay one_way(std::span<const SeriesMoments> groups);

}  // namespace korvel
