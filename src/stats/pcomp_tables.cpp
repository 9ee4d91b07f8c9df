// PCOMP: eigenvalues and vectors, factor tables, components, and the variables that keep them.
#include <algorithm>
#include <cmath>

#include "data/data.h"
#include "engine/output.h"
#include "expr/kernels/packed.h"
#include "expr/kernels/row_sections.h"
#include "expr/kernels/vector_lanes.h"
#include "stats/pcomp.h"
#include "stats/stats_results.h"

namespace korvel {
namespace {

constexpr double NO_VALUE = -99999.0;
constexpr std::int64_t ROWS = 256;  // observations of a block of components

// Name of column i: matrices in the list have several of one name.
std::string_view variable_name(Workspace ws, int i) {
  for (const ListItem& item : SCNCOM.list()) {
    const int columns = std::max(INFO(ws, item.var).columns(), 1);
    if (i < columns) return NAME(ws, item.var);
    i -= columns;
  }
  return {};
}
std::string_view name_of(const void* workspace, int i) {
  return variable_name(*static_cast<const Workspace*>(workspace), i);
}

// A list of n numbers under its title, 5 a line, 8 under SET WIDE; blank where there is none.
template <class F>
void print_list(std::string_view title, int n, F&& value) {
  const int a_line = OSCOM.OWIDE ? 8 : 5;
  say(title);
  for (int from = 0; from < n; from += a_line) {
    Line row;
    row.put<"(1X)">();
    for (int i = from; i < std::min(n, from + a_line); ++i) {
      const double v = value(i);
      if (v == NO_VALUE)
        row.put<"(13X)">();
      else
        row.put<"(G13.5)">(v);
    }
    OUTLINE();
  }
}

// The columns of PCINFORM, by falling values.
struct Information {
  const PcJob& job;
  double sum = 0.0;
  double reciprocals = 0.0;

  explicit Information(const PcJob& j) : job(j) {
    for (int i = 0; i < j.n; ++i) {
      sum += j.lambda(i);
      if (j.lambda(i) > 0.0) reciprocals += 1.0 / j.lambda(i);
    }
  }
  double percent(int k) const {
    double s = 0.0;
    for (int i = 0; i <= k; ++i) s += job.lambda(i);
    return sum != 0.0 ? 100.0 * s / sum : NO_VALUE;
  }
  // Share of the variance of all coefficients that goes with the components behind the first k+1.
  double benchmark(int k) const {
    double s = 0.0;
    for (int i = 0; i <= k; ++i) {
      if (job.lambda(i) > 0.0) s += 1.0 / job.lambda(i);
    }
    return reciprocals > 0.0 ? 1.0 - s / reciprocals : NO_VALUE;
  }
  double number(int k) const {
    return job.lambda(k) > 0.0 ? job.lambda(0) / job.lambda(k) : NO_VALUE;
  }
  double index(int k) const { return number(k) == NO_VALUE ? NO_VALUE : std::sqrt(number(k)); }
};

double vector_scale(const PcJob& job, int j) {
  return PcOption::chosen<"ESCALE">() ? std::sqrt(std::max(job.lambda(j), 0.0)) : 1.0;
}

// Belsley, Kuh and Welsch (1980), Regression Diagnostics, section 3.2: the share of value j in the
// variance of the coefficient of variable k. Columns: 1-4 number, 5-16 condition index, then 8
// each.
void print_proportions(Workspace ws, const PcJob& job, const Information& info, bool rising) {
  constexpr int A_LINE = 14;
  say(" VARIANCE PROPORTIONS");
  const auto phi = [&](int k, int j) {
    return job.lambda(j) > 0.0 ? job.eigenvector(k, j) * job.eigenvector(k, j) / job.lambda(j)
                               : 0.0;
  };
  for (int from = 0; from < job.n; from += A_LINE) {
    Line head;
    head.column(18);
    for (int k = from; k < std::min(job.n, from + A_LINE); ++k) {
      head.put<"(A8)">(variable_name(ws, k));
    }
    OUTLINE();
    for (int row = 0; row < job.n; ++row) {
      const int j = rising ? job.n - 1 - row : row;
      if (!(job.lambda(j) > 0.0)) continue;
      Line line;
      line.put<"(I4, F12.3)">(j + 1, info.index(j));
      for (int k = from; k < std::min(job.n, from + A_LINE); ++k) {
        double all = 0.0;
        for (int i = 0; i < job.n; ++i) all += phi(k, i);
        line.put<"(F8.3)">(all > 0.0 ? phi(k, j) / all : 0.0);
      }
      OUTLINE();
    }
  }
}

// Loadings, 8 factors a block.
void print_factor_table(Workspace ws, const PcJob& job) {
  constexpr int A_BLOCK = 8;
  for (int from = 0; from < job.m; from += A_BLOCK) {
    const int end = std::min(job.m, from + A_BLOCK);
    Line head;
    head.put<"(' VARIABLE ', ' CORRELATION COEFFICIENT')">();
    Line numbers;
    numbers.column(11);
    for (int j = from; j < end; ++j) numbers.put<"(I8)">(j + 1);
    OUTLINE();
    for (int i = 0; i < job.n; ++i) {
      Line row;
      row.put<"(1X, A8, 1X)">(variable_name(ws, i));
      for (int j = from; j < end; ++j) {
        row.put<"(F8.4)">(job.factor[static_cast<std::size_t>(j * job.n + i)]);
      }
      OUTLINE();
    }
  }
}

double communality(const PcJob& job, int i) {
  double sum = 0.0;
  for (int j = 0; j < job.m; ++j) {
    const double v = job.factor[static_cast<std::size_t>(j * job.n + i)];
    sum += v * v;
  }
  return sum;
}

void print_communalities(Workspace ws, const PcJob& job, std::span<const double> original) {
  say(" CHECK ON COMMUNALITIES");
  say<"(' VAR.', 9X, 'ORIGINAL', 7X, 'FINAL', 2X, 'DIFFERENCE', 5X, 'ADJ.ORIG', 4X, 'ADJ.FINAL', "
      "5X, 'ADJ.DIFF')">();
  for (int i = 0; i < job.n; ++i) {
    const double before = original[static_cast<std::size_t>(i)];
    const double after = communality(job, i);
    const double M = job.diagonal(i);
    say<"(1X, A8, 1X, 3F12.4, 2G13.5, F13.4)">(variable_name(ws, i), before, after, after - before,
                                               before * M, after * M, (after - before) * M);
  }
}

}  // namespace

void print_eigen(Workspace ws, const PcJob& job) {
  if (!job.print) return;
  const bool rising = PcOption::chosen<"ORDER">();
  const auto listed = [&](int i) { return rising ? job.n - 1 - i : i; };
  const Information info(job);
  if (PcOption::chosen<"DUMP">()) {
    say(" MOMENT MATRIX");
    print_packed(job.moment, job.n, name_of, &ws);
  }
  print_list(" EIGENVALUES", job.n, [&](int i) { return job.lambda(listed(i)); });
  say<"(' SUM OF EIGENVALUES =', G13.5)">(info.sum);
  print_list(" CUMULATIVE PERCENTAGE OF EIGENVALUES", job.n,
             [&](int i) { return info.percent(i); });
  print_list(" VARIANCE REDUCTION BENCHMARK FUNCTION", job.n,
             [&](int i) { return info.benchmark(i); });
  print_list(" CONDITION NUMBERS", job.n, [&](int i) { return info.number(listed(i)); });
  print_list(" CONDITION INDEXES", job.n, [&](int i) { return info.index(listed(i)); });
  if (PcOption::chosen<"PEVECTOR">()) {
    say(" EIGENVECTORS");
    for (int k = 0; k < job.n; ++k) {
      const int j = listed(k);
      char title[12];
      const int end = compose<"(' VECTOR', I4)">(title, 12, 0, j + 1);
      print_list({title, static_cast<std::size_t>(end)}, job.n,
                 [&](int i) { return job.eigenvector(i, j) * vector_scale(job, j); });
    }
  }
  if (PcOption::chosen<"PCOLLINE">()) print_proportions(ws, job, info, rising);
}

void print_factors(Workspace ws, PcJob& job, std::span<double> work) {
  if (!job.print || (!PcOption::chosen<"PFMATRIX">() && !PcOption::chosen<"PRMATRIX">())) return;
  for (int j = 0; j < job.m; ++j) {
    const double root = std::sqrt(std::max(job.lambda(j), 0.0));
    for (int i = 0; i < job.n; ++i) {
      const double M = job.diagonal(i);
      job.factor[static_cast<std::size_t>(j * job.n + i)] =
          M > 0.0 ? job.eigenvector(i, j) * root / std::sqrt(M) : 0.0;
    }
  }
  if (PcOption::chosen<"PFMATRIX">()) {
    say<"(' FACTOR MATRIX (', I0, ' FACTORS)')">(job.m);
    print_factor_table(ws, job);
  }
  if (!PcOption::chosen<"PRMATRIX">()) return;
  if (job.m == 1) return say<"(' ONLY ', I0, ' FACTOR RETAINED.  NO ROTATION')">(job.m);
  const auto n = static_cast<std::size_t>(job.n);
  const std::span<double> original = work.first(n);
  for (int i = 0; i < job.n; ++i) original[static_cast<std::size_t>(i)] = communality(job, i);
  PCOMPV(job.factor, job.n, job.m, PcOption::chosen<"MAX">(), work.subspan(n, n));
  say<"(' ROTATED FACTOR MATRIX (', I0, ' FACTORS)')">(job.m);
  print_factor_table(ws, job);
  print_communalities(ws, job, original);
}

// ---- Components --------------------------------------------------------------------------------

PcColumn pc_column(const PcJob& job, int i) {
  const SeriesMoments& m = job.moments[static_cast<std::size_t>(i)];
  const auto N = static_cast<double>(job.N);
  switch (job.form) {
    case PcForm::Covariance:
      return {m.mean, 1.0};
    case PcForm::Correlation: {
      const double sd = std::ldexp(std::sqrt(m.squares / (N - 1.0)), m.exponent);
      return {m.mean, sd > 0.0 ? sd : 1.0};
    }
    case PcForm::Scaled: {
      const double squares = std::ldexp(m.squares, 2 * m.exponent) + N * m.mean * m.mean;
      return {0.0, squares > 0.0 ? std::sqrt(squares) : 1.0};
    }
    default:
      return {0.0, 1.0};
  }
}

namespace {

// What component j is multiplied by; negative: it has no variance to be divided by.
double component_scale(const PcJob& job, int j) {
  const double root = std::sqrt(std::max(job.lambda(j), 0.0));
  switch (PcOption::integer<"NCODE">()) {
    case 1:
      return root > 0.0 ? 1.0 / root : -1.0;
    case 2:
      return root;
    default:
      return 1.0;
  }
}

// Components of rows from..from+n (n at most ROWS) to the columns `out`, ld words apart.
void component_block(const PcJob& job, std::int64_t from, std::int64_t n, double* out,
                     std::int64_t ld) {
  const VectorLanes& lanes = vector_lanes();
  for (int j = 0; j < job.m; ++j) std::fill_n(out + ld * j, n, 0.0);
  double column[ROWS];
  for (int i = 0; i < job.n; ++i) {
    const PcColumn c = pc_column(job, i);
    const double* x = job.x[static_cast<std::size_t>(i)] + from;
    for (std::int64_t t = 0; t < n; ++t) column[t] = (x[t] - c.about) / c.unit;
    for (int j = 0; j < job.m; ++j) {
      const double scale = component_scale(job, j);
      if (scale >= 0.0) lanes.add(job.eigenvector(i, j) * scale, column, n, out + ld * j);
    }
  }
  for (int j = 0; j < job.m; ++j) {
    const bool none = component_scale(job, j) < 0.0;
    for (std::int64_t t = 0; t < n; ++t) {
      const auto row = static_cast<std::size_t>(from + t);
      const bool marked = row < job.marks.size() && job.marks[row] > 0.0;
      double& z = out[ld * j + t];
      if (marked || none || !std::isfinite(z)) z = MACOM.XMISS;
    }
  }
}

}  // namespace

void list_components(Workspace ws, const PcJob& job) {
  if (!job.print || !PcOption::chosen<"LIST">()) return;
  const Scratch room(ws, ROWS * job.m);
  if (!room) return;
  say<"('1OB. NO.', ' FIRST ', I0, ' PRINCIPAL COMPONENTS', ' NORMALIZATION CODE =', I0)">(
      job.m, PcOption::integer<"NCODE">());
  const int a_line = OSCOM.OWIDE ? 8 : 5;
  double* const z = room.words().data();
  for (std::int64_t from = 0; from < job.rows; from += ROWS) {
    const std::int64_t n = std::min(ROWS, job.rows - from);
    component_block(job, from, n, z, ROWS);
    for (std::int64_t t = 0; t < n; ++t) {
      const auto row = static_cast<std::size_t>(from + t);
      if (row < job.marks.size() && job.marks[row] > 0.0) continue;
      Line line;
      line.put<"(I7)">(DATCOM.MBEG + from + t);
      for (int j = 0; j < job.m; ++j) {
        if (j > 0 && j % a_line == 0) {
          OUTLINE();
          line = Line();
          line.column(8);
        }
        line.put<"(G13.5)">(z[ROWS * j + t]);
      }
      OUTLINE();
    }
    if (stop_requested()) return;
  }
}

namespace {

// All components to a matrix whose columns are ld words apart; its first row is that of MBEG.
void all_components(const PcJob& job, double* out, std::int64_t ld) {
  const RowSections sections(job.rows);
  sections.run([&](int s) {
    for (std::int64_t from = sections.begin(s); from < sections.end(s); from += ROWS) {
      component_block(job, from, std::min(ROWS, sections.end(s) - from), out + from, ld);
    }
  });
}

}  // namespace

void store_components(Workspace ws, const PcJob& job) {
  const NameOption& option = PcOption::named<"PCOMPONE">();
  if (option.text.empty()) return;
  std::int64_t words = 0;
  if (!checked_product(DATCOM.MEND, job.m, words)) {
    ADDCOM.NEED = std::int64_t{1} << 31;
    return NOCORE();
  }
  // A result that takes the place of a listed variable is made when that is no longer needed.
  const bool in_the_way = std::ranges::any_of(
      SCNCOM.list(), [&](const ListItem& item) { return owner_of(item.var).var == option.var; });
  const Scratch copy(ws, in_the_way ? job.rows * job.m : 0);
  if (!copy) return;
  if (in_the_way) all_components(job, copy.words().data(), job.rows);
  const std::span<double> to = result_variable(ws, option, MATRIX2, words, job.m);
  if (to.empty()) return;
  double* const first = to.data() + (DATCOM.MBEG - 1);
  if (in_the_way) {
    for (int j = 0; j < job.m; ++j) {
      std::copy_n(copy.words().data() + job.rows * j, job.rows,
                  first + std::int64_t{DATCOM.MEND} * j);
    }
  } else {
    all_components(job, first, DATCOM.MEND);
  }
  if (job.print) say<"(' COMPONENTS STORED IN MATRIX ', A)">(option.text);
}

void store_eigen(Workspace ws, const PcJob& job) {
  const Information info(job);
  const auto n = static_cast<std::size_t>(job.n);
  store_result(ws, PcOption::named<"EVALUES">(), SERIES, job.value);
  if (!PcOption::named<"EVECTORS">().text.empty()) {
    const std::span<double> to =
        result_variable(ws, PcOption::named<"EVECTORS">(), MATRIX2, std::ssize(job.vector), job.n);
    for (std::size_t k = 0; k < to.size(); ++k) {
      to[k] = job.vector[k] * vector_scale(job, static_cast<int>(k / n));
    }
  }
  if (PcOption::named<"PCINFORM">().text.empty()) return;
  constexpr int COLUMNS = 5;
  const std::span<double> to = result_variable(ws, PcOption::named<"PCINFORM">(), MATRIX2,
                                               std::int64_t{COLUMNS} * job.n, COLUMNS);
  for (std::size_t k = 0; k < to.size() / COLUMNS; ++k) {
    const int i = static_cast<int>(k);
    to[k] = job.lambda(i);
    to[n + k] = info.percent(i);
    to[2 * n + k] = info.benchmark(i);
    to[3 * n + k] = info.number(i);
    to[4 * n + k] = info.index(i);
  }
}

}  // namespace korvel
