// PCOMC: the command PCOMP. Moment matrix, eigenvalues and vectors, components, factors, rotation.
//   reads SCNCOM list, OPTCOM, the sample; sets MBEG, MEND, NOB, $ERR and the failure flags.
#include "stats/pcomp.h"

#include <algorithm>
#include <cmath>

#include "data/data.h"
#include "engine/output.h"
#include "expr/kernels/moments.h"
#include "expr/kernels/packed.h"
#include "expr/kernels/symmetric_eigen.h"
#include "stats/stats.h"
#include "stats/stats_results.h"

namespace korvel {
namespace {

constexpr int T_ERR = temporary_place("ERR");
constexpr double ERR_PCOMP = 65011;

void mark_error() { temporary(T_ERR) = ERR_PCOMP; }

void settle_options() {
  if (PcOption::chosen<"MAX">()) {
    PcOption::set<"LIST">(true);
    PcOption::set<"PEVECTOR">(true);
    PcOption::set<"PFMATRIX">(true);
    PcOption::set<"PRMATRIX">(true);
    PcOption::set<"PCOLLINE">(true);
  }
}

PcForm form_of_options() {
  if (PcOption::chosen<"CORRELAT">()) return PcForm::Correlation;
  if (PcOption::chosen<"SCALED">()) return PcForm::Scaled;
  return PcOption::chosen<"RAW">() ? PcForm::Raw : PcForm::Covariance;
}

// The columns of the list: series, columns of matrices, matrices with all their columns.
bool take_columns(Workspace ws, PcJob& job) {
  for (const ListItem& item : SCNCOM.list()) {
    const Place place = INFO(ws, item.var);
    if (OCOM.ODONT) return false;
    const std::span<double> data = elements(ws, item.var);
    if (data.empty() || place.ITYPE < SERIES || place.ITYPE > MATRIX2) {
      fail<"(' ...ERROR..VARIABLE ', A, ' IS NOT VALID')">(NAME(ws, item.var));
      return false;
    }
    if (item.lag != 0 || item.order != 0 || item.group) {
      fail(" ...ERROR..LAGS AND GROUPS ARE NOT ALLOWED IN PCOMP");
      return false;
    }
    const auto rows = static_cast<std::size_t>(place.rows());
    for (std::size_t at = 0; at + rows <= data.size(); at += rows) job.x.push_back(&data[at]);
  }
  job.n = static_cast<int>(job.x.size());
  return true;
}

bool take_sample(Workspace ws, PcJob& job) {
  DATCOM.MBEG = std::max(PcOption::integer<"BEG">(), 1);
  DATCOM.MEND = PcOption::integer<"END">();
  CKSMPL(ws, SCNCOM.list());
  if (OCOM.ODONT) return false;
  if (DATCOM.MEND < DATCOM.MBEG) {
    fail<"(' ...ERROR..BEG AND END OBSERVATIONS INCONSISTENT', 2I10)">(DATCOM.MBEG, DATCOM.MEND);
    return false;
  }
  for (const double*& x : job.x) x += DATCOM.MBEG - 1;
  job.rows = DATCOM.MEND - DATCOM.MBEG + 1;
  if (skipping()) {
    const std::span<const double> skip = skip_vector(ws);
    const auto first = std::min(static_cast<std::size_t>(DATCOM.MBEG - 1), skip.size());
    const std::span<const double> marks = skip.subspan(first);
    if (std::ranges::any_of(marks, [](double m) { return m > 0.0; })) job.marks = marks;
  }
  return true;
}

void form_series(const PcJob& job, std::span<SeriesMoments> out, std::span<double> work) {
  std::vector<SeriesRows> series(job.x.size());
  for (std::size_t c = 0; c < series.size(); ++c) {
    series[c] = {.x = job.x[c], .rows = job.rows, .marks = job.marks};
  }
  series_moments(series, out, work);
}

// A row with a value that is no number drops out. `own`: a word a row.
void drop_spoilt(PcJob& job, std::int64_t spoilt, std::span<double> own, std::span<double> work) {
  std::ranges::fill(own, 0.0);
  std::copy_n(job.marks.begin(), std::min(own.size(), job.marks.size()), own.begin());
  mark_common({.x = job.x, .rows = job.rows}, false, 0.0, own);
  job.marks = own;
  form_series(job, job.moments, work);
  warn<"(' ...WARNING..', I0, ' VALUES ARE NO NUMBERS. THEIR OBSERVATIONS ARE LEFT OUT')">(spoilt);
}

void warn_constants(Workspace ws, const PcJob& job) {
  std::size_t c = 0;
  for (const ListItem& item : SCNCOM.list()) {
    const int columns = std::max(INFO(ws, item.var).columns(), 1);
    for (int j = 0; j < columns && c < job.moments.size(); ++j, ++c) {
      if (job.moments[c].squares == 0.0) {
        warn<"(' ...WARNING..VARIABLE ', A, ' IS A CONSTANT')">(NAME(ws, item.var));
      }
    }
  }
}

// The moment matrix, packed. False when a sum of squares leaves the range of reals.
bool form_matrix(PcJob& job, std::span<double> work, std::span<double> matrix) {
  const int n = job.n;
  common_cross({.x = job.x, .rows = job.rows, .marks = job.marks}, job.moments, work, matrix);
  job.moment = matrix;
  if (job.form == PcForm::Correlation) {
    correlations(matrix, n, work);
    return true;
  }
  for (int i = 1; i <= n; ++i) {
    for (int j = 1; j <= i; ++j) {
      const int e = job.moments[static_cast<std::size_t>(i - 1)].exponent +
                    job.moments[static_cast<std::size_t>(j - 1)].exponent;
      if (e != 0) matrix[packed(i, j)] = std::ldexp(matrix[packed(i, j)], e);
    }
  }
  const auto N = static_cast<double>(job.N);
  const std::span<double> means = work.first(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) {
    means[static_cast<std::size_t>(i)] = job.moments[static_cast<std::size_t>(i)].mean;
  }
  if (job.form == PcForm::Covariance) {
    MATMOM(matrix, matrix, n, N - 1.0, means, means, MomentMode::Divide);
  } else {
    MATMOM(matrix, matrix, n, N, means, means, MomentMode::Raw);
    if (job.form == PcForm::Scaled) correlations(matrix, n, work);
  }
  return std::ranges::all_of(matrix, [](double v) { return std::isfinite(v); });
}

// Turns the vector so that its element of greatest size is positive, the first one on a tie.
void settle_sign(std::span<double> v) {
  double largest = 0.0;
  for (const double e : v) largest = std::max(largest, std::fabs(e));
  for (const double e : v) {
    if (std::fabs(e) < largest - 1e-10) continue;
    if (e < 0.0) {
      for (double& other : v) other = -other;
    }
    return;
  }
}

// Eigenvalues from the largest down and their vectors. A value lost in rounding becomes 0.
bool solve(PcJob& job, std::span<double> square, std::span<double> value, std::span<double> vector,
           std::span<double> work) {
  const int n = job.n;
  const auto order = static_cast<std::size_t>(n);
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j < n; ++j) {
      square[static_cast<std::size_t>(j * n + i)] = job.moment[packed(i + 1, j + 1)];
    }
  }
  const std::span<double> ascending = work.first(order);
  const int IFAULT = symmetric_eigen(square.data(), n, true, ascending, work.subspan(order));
  if (IFAULT != 0) {
    OCOM.IFAULT = IFAULT;
    mark_error();
    fail<"(' ...ERROR..DISASTER...IN EIGENVALUE OF ROW', I5)">(IFAULT);
    return false;
  }
  const double largest = std::max(std::fabs(ascending.front()), std::fabs(ascending.back()));
  const double least = n * 0x1p-52 * largest;
  for (std::size_t j = 0; j < order; ++j) {
    const double v = ascending[order - 1 - j];
    value[j] = std::fabs(v) <= least ? 0.0 : v;
    const std::span<double> to = vector.subspan(j * order, order);
    std::ranges::copy(square.subspan((order - 1 - j) * order, order), to.begin());
    settle_sign(to);
  }
  job.value = value;
  job.vector = vector;
  for (int j = 0; j < n; ++j) {
    if (job.lambda(j) == 0.0) warn<"(' ...WARNING..EIGENVALUE ', I0, ' IS ZERO')">(j + 1);
  }
  return true;
}

// Factors kept. A value below MINEIGEN is dropped with its factor.
int factors(const PcJob& job) {
  const double least = PcOption::real<"MINEIGEN">();
  int m = 0;
  while (m < job.m && job.lambda(m) >= least) ++m;
  return m;
}

}  // namespace

void PCOMC(Workspace ws) {
  const Trace trace("PCOMC");
  // 1. Options.
  OPTION_START(PCOPT.view());
  PcOption::set<"MAX">(OSCOM.OMXX);
  PcOption::set<"DUMP">(OSCOM.ODMMP);
  OPTION_SCAN(ws, PCOPT.view());
  if (OCOM.ODONT || OSCOM.OSCAN || name_lacking(PCOPT.view())) return;
  settle_options();
  if (SCNCOM.NF == 0) return say(" COMMAND STRUCTURE: PCOMP vars / options");
  PcJob job;
  job.print = OCOM.OPUT;
  job.form = form_of_options();
  const int NCODE = PcOption::integer<"NCODE">();
  const int MAXFACTO = PcOption::integer<"MAXFACTO">();
  if (NCODE < 0 || NCODE > 2 || MAXFACTO < 0) {
    mark_error();
    return fail<"(' ...ERROR..IN RIGHT HAND SIDE OF OPTION..', A)">(MAXFACTO < 0 ? "MAXFACTO"
                                                                                 : "NCODE");
  }
  // 2. The list, the sample, room for all that has a size of n.
  if (!take_columns(ws, job) || !take_sample(ws, job)) return mark_error();
  const std::int64_t n = job.n;
  const std::int64_t square = n * n;
  const std::int64_t work_words =
      std::max({common_cross_words(n, job.rows), series_moments_words(n, job.rows),
                symmetric_eigen_words(n) + n, 2 * n});
  const std::int64_t words =
      static_cast<std::int64_t>(packed_words(job.n)) + 3 * square + n + work_words;
  Scratch room(ws, fits32(words) ? words : -1);
  if (!room) return mark_error();
  const std::span<double> matrix = room.take(packed_words(job.n));
  const std::span<double> a = room.take(static_cast<std::size_t>(square));
  const std::span<double> vector = room.take(static_cast<std::size_t>(square));
  job.factor = room.take(static_cast<std::size_t>(square));
  const std::span<double> value = room.take(static_cast<std::size_t>(n));
  const std::span<double> work = room.rest();
  // 3. Means of the rows that all columns have.
  job.moments.resize(job.x.size());
  form_series(job, job.moments, work);
  std::int64_t spoilt = 0;
  for (const SeriesMoments& m : job.moments) spoilt += m.no_number;
  Scratch marks(ws, spoilt > 0 ? job.rows : 0);
  if (!marks) return mark_error();
  if (spoilt > 0) drop_spoilt(job, spoilt, marks.words(), work);
  job.N = job.moments.front().n;
  DATCOM.NOB = static_cast<int>(job.N);
  if (job.N < 2) {
    mark_error();
    return fail<"(' ...ERROR..FEWER OBSERVATIONS THAN VARIABLES:', I10)">(job.N);
  }
  // 4. The moment matrix and its values.
  job.m = MAXFACTO > 0 ? std::min(job.n, MAXFACTO) : job.n;
  if (job.print) {
    say<"(1X, 'PRINCIPAL COMPONENTS ON ', I0, ' VARIABLES')">(job.n);
    say<"(' MAXIMUM OF ', I0, ' FACTORS RETAINED')">(job.m);
  }
  if (!form_matrix(job, work, matrix)) {
    mark_error();
    return fail(" ...ERROR..SUMS OF SQUARES ARE TOO LARGE. USE CORRELAT OR SCALE THE VARIABLES");
  }
  if (job.form == PcForm::Correlation) warn_constants(ws, job);
  if (!solve(job, a, value, vector, work)) return;
  job.m = factors(job);
  print_eigen(ws, job);
  // 5. Factors, components, results.
  if (job.m == 0) {
    if (job.print) say<"(' ONLY ', I0, ' FACTOR RETAINED.  NO ROTATION')">(0);
  } else {
    list_components(ws, job);
    if (OCOM.ODONT || stop_requested()) return;
    print_factors(ws, job, work);
    store_components(ws, job);
  }
  store_eigen(ws, job);
}

}  // namespace korvel
