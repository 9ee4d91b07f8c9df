// STATS: the command STAT. Descriptive statistics of the listed variables, their moment matrices,
// frequencies, and tests that compare them.
//   reads SCNCOM list, OPTCOM, the sample; sets MBEG, MEND, NOB, the temporaries of its tests and
//   the failure flags.
#include <algorithm>
#include <cmath>
#include <limits>

#include "data/data.h"
#include "data/sample.h"
#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "stats/stats.h"
#include "stats/stats_parts.h"
#include "stats/stats_results.h"

namespace korvel {

void StatColumn::set_label(std::string_view name, int column) {
  char digits[12];
  int n = 0;
  for (int c = column; c > 0; c /= 10) digits[n++] = static_cast<char>('0' + c % 10);
  const std::size_t room = column > 0 ? static_cast<std::size_t>(KEYLEN - 1 - n) : NAMELEN;
  name = name.substr(0, room);
  std::copy(name.begin(), name.end(), label.begin());
  label_length = static_cast<int>(name.size());
  if (column == 0) return;
  label[static_cast<std::size_t>(label_length++)] = ':';
  while (n > 0) label[static_cast<std::size_t>(label_length++)] = digits[--n];
}

Counting counting(const SeriesMoments& m, bool weighted) {
  const auto N = static_cast<double>(m.n);
  if (!weighted || !(m.SWT > 0.0)) return {N, 1.0};
  if (StatOption::chosen<"REPLICAT">()) return {m.SWT, 1.0};
  return {N, N / m.SWT};
}

namespace {

// Variance times 4**-exponent; negative: there is none.
double scaled_variance(const SeriesMoments& m, bool weighted) {
  const Counting c = counting(m, weighted);
  const double divisor = StatOption::chosen<"DN">() ? c.N : c.N - 1.0;
  return m.n > 0 && divisor > 0.0 ? m.squares * c.scale / divisor : -1.0;
}
double existing(double v) { return std::isfinite(v) ? v : MACOM.XMISS; }

}  // namespace

double stat_variance(const SeriesMoments& m, bool weighted) {
  const double v = scaled_variance(m, weighted);
  return v < 0.0 ? MACOM.XMISS : existing(std::ldexp(v, 2 * m.exponent));
}

double stat_deviation(const SeriesMoments& m, bool weighted) {
  const double v = scaled_variance(m, weighted);
  return v < 0.0 ? MACOM.XMISS : existing(std::ldexp(std::sqrt(v), m.exponent));
}

namespace {

// ---- The list ----------------------------------------------------------------------------------

bool add_column(StatJob& job, int var, const double* x, std::int64_t rows, std::string_view name,
                int column) {
  StatColumn c;
  c.var = var;
  c.x = x;
  c.rows = rows;
  c.set_label(name, column);
  job.columns.push_back(c);
  return true;
}

// An entry of the list as one column or, for a matrix under MATRIX, as several.
bool add_variable(Workspace ws, StatJob& job, int var, std::string_view name) {
  const Place place = INFO(ws, var);
  if (OCOM.ODONT) return false;
  const std::span<double> data = elements(ws, var);
  if (var <= 0 || data.empty() || place.ITYPE == NOTYPE) {
    fail<"(' ...ERROR..VARIABLE ', A, ' IS INVALID')">(name);
    return false;
  }
  const bool matrix = place.ITYPE == MATRIX2 && place.columns() > 1;
  // A column that was listed by its number goes by it, as the columns of MATRIX do.
  const int listed = owner_of(var).column;
  if (place.ITYPE >= STRING5 || (StatOption::chosen<"MATRIX">() && place.ITYPE > MATRIX2)) {
    return add_column(job, var, nullptr, 0, name, 0);
  }
  if (!matrix && place.ITYPE <= MATRIX2) {
    return add_column(job, var, data.data(), std::ssize(data), name, listed);
  }
  if (!StatOption::chosen<"MATRIX">()) {
    add_column(job, var, data.data(), std::ssize(data), name, 0);
    job.columns.back().whole = true;
    return true;
  }
  if (OCOM.OPUT) say<"(' ...NOTE..TREATING COLUMNS OF ', A, ' AS VECTORS ')">(name);
  const std::int64_t rows = place.rows();
  for (int j = 0; j < place.columns(); ++j) {
    add_column(job, var, data.data() + rows * j, rows, name, j + 1);
  }
  return true;
}

bool take_list(Workspace ws, StatJob& job) {
  if (StatOption::chosen<"ALL">()) {
    for (int i = 1; i <= DATCOM.NVARS; ++i) {
      const std::string_view name = right_trimmed(ws.VNAME(i));
      if (name.empty() || name == SKIPNAME || elements(ws, i).empty()) continue;
      const int type = INFO(ws, i).ITYPE;
      if (type != SERIES && !(type == MATRIX2 && StatOption::chosen<"MATRIX">())) continue;
      if (!add_variable(ws, job, i, name)) return false;
    }
  }
  for (const ListItem& item : SCNCOM.list()) {
    if (item.lag != 0 || item.order != 0 || item.group) {
      fail(" ...ERROR..LAGS AND GROUPS ARE NOT ALLOWED IN STAT");
      return false;
    }
    const auto taken = [&](const StatColumn& c) { return c.var == item.var; };
    if (StatOption::chosen<"ALL">() && std::ranges::any_of(job.columns, taken)) continue;
    if (!add_variable(ws, job, item.var, item.name.empty() ? NAME(ws, item.var) : item.name)) {
      return false;
    }
  }
  return true;
}

// ---- The sample --------------------------------------------------------------------------------

// Working range and, with it, each column's rows of it. A variable may end within the sample:
// groups of different size stand in variables of different length. END= typed holds for all of
// them.
bool take_range(Workspace ws, StatJob& job) {
  const bool typed = StatOption::given<"END">() || StatOption::integer<"OBS">() > 0;
  DATCOM.MBEG = std::max(StatOption::integer<"BEG">(), 1);
  DATCOM.MEND = StatOption::integer<"END">();
  if (const int obs = StatOption::integer<"OBS">(); obs > 0) {
    const std::int64_t last = std::int64_t{DATCOM.MBEG} + obs - 1;
    DATCOM.MEND = static_cast<int>(std::min<std::int64_t>(last, 999999999));
  }
  if ((typed && DATCOM.MEND < 1) || (DATCOM.MEND > 0 && DATCOM.MEND < DATCOM.MBEG)) {
    fail<"(' ...ERROR..BEG AND END OBSERVATIONS INCONSISTENT', 2I10)">(DATCOM.MBEG, DATCOM.MEND);
    return false;
  }
  const int wanted = DATCOM.MEND;
  int last_var = 0;
  job.common_rows = std::numeric_limits<std::int64_t>::max();
  for (StatColumn& c : job.columns) {
    if (c.x == nullptr) continue;
    if (!c.whole) {
      const auto end = static_cast<int>(wanted < 1 ? c.rows
                                        : typed    ? wanted
                                                   : std::min<std::int64_t>(wanted, c.rows));
      if (c.var != last_var) {
        DATCOM.MEND = end;
        ListItem one;
        one.var = c.var;
        CKSMPL(ws, {&one, 1});
        DATCOM.MEND = wanted;
        if (OCOM.ODONT) return false;
        last_var = c.var;
      }
      c.x += DATCOM.MBEG - 1;
      c.rows = std::max(0, end - DATCOM.MBEG + 1);
    }
    job.rows = std::max(job.rows, c.rows);
    job.common_rows = std::min(job.common_rows, c.rows);
  }
  if (job.rows == 0) job.common_rows = 0;
  DATCOM.MEND = static_cast<int>(std::min<std::int64_t>(DATCOM.MBEG + job.rows - 1, 2147483647));
  DATCOM.NOB = static_cast<int>(job.rows);
  return true;
}

// Matrix elements are no observations: nothing that goes by rows can use them.
bool rows_wanted() {
  return StatOption::chosen<"PCORRELA">() || StatOption::chosen<"PCOVARIA">() ||
         StatOption::chosen<"PCPRODUC">() || StatOption::chosen<"PCPDEV">() ||
         StatOption::chosen<"PRANKCOR">() || StatOption::chosen<"SAMEOBS">() ||
         !StatOption::named<"CORRELAT">().text.empty() ||
         !StatOption::named<"COVARIAN">().text.empty() ||
         !StatOption::named<"CPRODUCT">().text.empty() ||
         !StatOption::named<"CPDEVIAT">().text.empty() ||
         !StatOption::named<"RANKCORR">().text.empty() ||
         !StatOption::named<"MOMENTS">().text.empty();
}

bool take_weight(Workspace ws, StatJob& job) {
  const NameOption& option = StatOption::named<"WEIGHT">();
  if (option.text.empty()) return true;
  const std::span<double> data = option.var > 0 ? elements(ws, option.var) : std::span<double>{};
  if (data.empty() || INFO(ws, option.var).ITYPE > MATRIX2) {
    fail<"(' ...ERROR..VARIABLE ', A, ' IS INVALID')">(option.text);
    return false;
  }
  const bool whole = std::ranges::any_of(job.columns, [](const StatColumn& c) { return c.whole; });
  if (whole || StatOption::chosen<"ANOVA">() || StatOption::chosen<"BARTLETT">() ||
      StatOption::chosen<"BEHRENSF">() || StatOption::chosen<"NPARAM">()) {
    return incompatible_options();
  }
  if (std::ssize(data) < DATCOM.MEND) {
    fail(" ....ERROR..WEIGHT VECTOR TOO SHORT");
    return false;
  }
  job.weight_var = option.var;
  job.weight = data.data() + (DATCOM.MBEG - 1);
  for (std::int64_t t = 0; t < job.rows; ++t) {
    if (job.weight[t] < 0.0 && job.weight[t] != MACOM.XMISS) {
      fail<"(' ...ERROR..WEIGHT IS NEGATIVE IN OBS ', I0)">(DATCOM.MBEG + t);
      return false;
    }
  }
  if (job.print) say<"(' STATISTICS ARE WEIGHTED BY VARIABLE ', A)">(option.text);
  return true;
}

// A row that no column may use: skipped, or without a weight.
bool marked(const StatJob& job, std::span<const double> skip, std::int64_t t) {
  const auto at = static_cast<std::size_t>(t + DATCOM.MBEG - 1);
  const double mark = at < skip.size() ? skip[at] : 0.0;
  if (mark > 0.0 && mark != SKIP_MISSING) return true;
  if (job.weight == nullptr) return false;
  const double w = job.weight[t];
  return !(w > 0.0) || !std::isfinite(w);
}

// Fills `marks` and points the job at them if a row is marked.
void take_marks(Workspace ws, StatJob& job, std::span<double> marks) {
  const std::span<double> skip = skipping() ? skip_vector(ws) : std::span<double>{};
  bool any = false;
  for (std::int64_t t = 0; t < job.rows; ++t) {
    const bool out = marked(job, skip, t);
    marks[static_cast<std::size_t>(t)] = out ? 1.0 : 0.0;
    any = any || out;
    if (out && job.weight != nullptr && !(job.weight[t] > 0.0)) {
      warn<"(' ...WARNING..OBSERVATION', I6, ' SKIPPED AS WEIGHT IS ZERO OR UNDEFINED')">(
          DATCOM.MBEG + t);
    }
  }
  if (any) job.marks = marks.first(static_cast<std::size_t>(job.rows));
}

// ---- Moments -----------------------------------------------------------------------------------

void column_moments(const StatJob& job, bool common, std::span<SeriesMoments> out,
                    std::span<double> work) {
  std::vector<SeriesRows> rows(job.columns.size());
  for (std::size_t c = 0; c < rows.size(); ++c) {
    rows[c] = common ? job.common_rows_of(c) : job.rows_of(c);
    // The observations of the sample are no rows of a matrix.
    if (job.columns[c].whole) rows[c].marks = {};
  }
  series_moments(rows, out, work);
}

void warn_no_numbers(const StatJob& job) {
  for (std::size_t c = 0; c < job.columns.size(); ++c) {
    if (job.moments[c].no_number == 0) continue;
    warn<"(' ...WARNING..', I0, ' VALUES OF ', A, ' ARE NO NUMBERS AND ARE LEFT OUT')">(
        job.moments[c].no_number, job.columns[c].name());
  }
}

// The rows that all columns have, and their moments.
bool take_common(StatJob& job, std::span<double> marks, std::span<double> work) {
  std::int64_t in_range = 0;
  for (std::int64_t t = 0; t < job.common_rows; ++t) {
    if (job.marks.empty() || !(job.marks[static_cast<std::size_t>(t)] > 0.0)) ++in_range;
  }
  job.same_rows =
      std::ranges::all_of(job.moments, [&](const SeriesMoments& m) { return m.n == in_range; });
  job.same_rows = job.same_rows && job.common_rows == job.rows;
  job.common_marks = job.marks;
  job.common_n = in_range;
  if (job.same_rows) {
    job.common = job.moments;
    return true;
  }
  if (std::ssize(marks) < job.common_rows) return false;
  std::vector<const double*> x;
  for (const StatColumn& c : job.columns) x.push_back(c.x);
  if (job.marks.empty()) {
    std::ranges::fill(marks, 0.0);
  }
  job.common_n = mark_common({.x = x, .rows = job.common_rows}, job.missing, MACOM.XMISS, marks);
  job.common_marks = marks.first(static_cast<std::size_t>(job.common_rows));
  job.common.resize(job.columns.size());
  column_moments(job, true, job.common, work);
  return true;
}

bool needs_common() {
  return rows_wanted() || StatOption::chosen<"ANOVA">() || StatOption::chosen<"NPARAM">();
}

void settle_max() {
  if (!StatOption::chosen<"MAX">()) return;
  for (const char* word :
       {"PCORRELA", "PCOVARIA", "PCPRODUC", "PCPDEV", "PRANKCOR", "PMEDIAN", "LIST"}) {
    int place = 0;
    for (const OptionWord& w : STATOPT.view()) {
      if (w.kind != OptionKind::Logical) break;
      if (w.word == word) OPTCOM.LOPT[static_cast<std::size_t>(place)] = true;
      ++place;
    }
  }
}

}  // namespace

void STATS(Workspace ws) {
  const Trace trace("STATS");
  // 1. Options.
  OPTION_START(STATOPT.view());
  StatOption::set<"MAX">(OSCOM.OMXX);
  StatOption::set<"DUMP">(OSCOM.ODMMP);
  StatOption::set<"WIDE">(OSCOM.OWIDE);
  OPTION_SCAN(ws, STATOPT.view());
  if (OCOM.ODONT || OSCOM.OSCAN || name_lacking(STATOPT.view())) return;
  if (StatOption::given<"NPOP">() && StatOption::integer<"NPOP">() < 1) {
    bad_option_value("NPOP");
    return;
  }
  settle_max();
  StatJob job;
  job.print = OCOM.OPUT;
  job.missing = OSCOM.OSMISS;
  if (SCNCOM.NF == 0 && !StatOption::chosen<"ALL">())
    return say(" COMMAND STRUCTURE: STAT vars / options");
  // 2. The list and the sample.
  if (!take_list(ws, job) || !take_range(ws, job)) return;
  for (const StatColumn& c : job.columns) {
    if (c.whole && rows_wanted()) {
      return fail<"(' ...ERROR..VARIABLE ', A, ' IS INVALID')">(c.name());
    }
  }
  if (!take_weight(ws, job)) return;
  for (const StatColumn& c : job.columns) {
    if (c.x == nullptr && job.print) {
      say<"(1X, A8, ' VARIABLE IS NOT DATA - NO STATS')">(c.name());
    }
  }
  std::erase_if(job.columns, [](const StatColumn& c) { return c.x == nullptr; });
  if (job.columns.empty()) return say(" NO OBSERVATIONS FOUND");
  // 3. Moments of every column, and of the rows that they share.
  const auto K = static_cast<std::int64_t>(job.columns.size());
  const bool marks = skipping() || job.weight != nullptr;
  Scratch mark_room(ws, marks ? job.rows : 0);
  if (!mark_room) return;
  if (marks) take_marks(ws, job, mark_room.words());
  Scratch work(ws, series_moments_words(K, job.rows));
  if (!work) return;
  job.moments.resize(job.columns.size());
  column_moments(job, false, job.moments, work.words());
  warn_no_numbers(job);
  std::int64_t own_marks = 0;
  if (needs_common()) {
    const bool whole = std::ranges::all_of(job.moments, [&](const SeriesMoments& m) {
      return m.n == job.common_rows && job.common_rows == job.rows;
    });
    own_marks = whole ? 0 : job.common_rows;
  }
  Scratch common_room(ws, own_marks);
  if (!common_room) return;
  if (own_marks > 0 && !job.marks.empty()) {
    std::copy_n(job.marks.begin(), own_marks, common_room.words().begin());
  }
  if (needs_common() && !take_common(job, common_room.words(), work.words())) return;
  if (StatOption::chosen<"SAMEOBS">()) {
    if (job.print) say("USING COMMON OBSERVATIONS");
    job.moments = job.common;
    job.marks = job.common_marks;
    job.missing = false;
    for (StatColumn& c : job.columns) c.rows = job.common_rows;
  }
  if (std::ranges::all_of(job.moments, [](const SeriesMoments& m) { return m.n == 0; })) {
    if (job.print) say(" NO OBSERVATIONS FOUND");
  }
  // 4. Tables and matrices.
  if (job.print && StatOption::chosen<"LIST">()) print_statistics(job);
  if (StatOption::chosen<"SAMPSIZE">() && job.print) print_sample_sizes(job);
  make_sorted(ws, job);
  if (OCOM.ODONT || stop_requested()) return;
  make_matrices(ws, job);
  // 5. Tests.
  if (StatOption::chosen<"ANOVA">() && !OCOM.ODONT) make_anova(ws, job);
  if (StatOption::chosen<"BARTLETT">() && !OCOM.ODONT) make_bartlett(job);
  if (StatOption::chosen<"NPARAM">() && !OCOM.ODONT) make_rank_tests(ws, job);
  if ((StatOption::chosen<"NPARAM">() || StatOption::chosen<"BEHRENSF">()) && !OCOM.ODONT) {
    make_two_samples(ws, job);
  }
  // 6. Vector results, and those that had to wait.
  store_vectors(ws, job);
  store_late(ws, job);
}

}  // namespace korvel
