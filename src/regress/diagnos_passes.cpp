// Recursive residuals with their tests and plots, and tests of split samples.

#include <algorithm>
#include <array>
#include <cmath>

#include "engine/output.h"
#include "graphics/gnuplot.h"
#include "regress/diagnos_parts.h"
#include "regress/ols_parts.h"
#include "stats/probability.h"

namespace korvel {
namespace {

int whole(std::size_t n) { return static_cast<int>(n); }

// What the pass leaves for the tests: the recursive residuals behind the first K rows, in the order
// of the pass.
struct Residuals {
  std::span<double> w, obs;  // n words each
  std::span<double> cusum;   // running sums of w over their scale
  std::span<double> square;  // running sums of w^2 over their total
  double unit = 1.0;         // what w is multiplied by to be shown
  int level = 5;
  bool backward = false;
  int n() const { return whole(w.size()); }
  double bound(int j) const { return cusum_bound(level, n(), j); }
  double width() const { return cusumsq_width(level, n()); }
};

// Runs the pass: listing of the estimates, the file of RECUNIT=, the residuals. False after a stop
// or a reported failure.
bool run_pass(Workspace ws, const DiagnosWork& d, const DiagnosPlan& plan, Residuals& res) {
  const int K = d.m.K;
  const auto k = static_cast<std::size_t>(K);
  UnitRows file;
  if (!file.open(FcastOption::integer<"RECUNIT">())) return false;
  Scratch scratch(ws, static_cast<std::int64_t>(RecursivePass::words(K) + 2 * k));
  if (!scratch) return false;
  const std::span<double> change = scratch.take(k);
  const std::span<double> b = scratch.take(k);
  RecursivePass pass(d.m, res.backward, scratch.rest());
  const bool estimates = plan.estimates && OCOM.OPUT;
  if (estimates) say(" RECURSIVE COEFFICIENT ESTIMATES");
  const bool dump = FcastOption::chosen<"DUMP">() && OCOM.OPUT;
  if (dump) say(" DUMP: OB, VT, FT, REC-RES, SSET");
  std::size_t j = 0;
  for (std::int64_t t = 0; t < d.m.N; ++t) {
    if (stop_requested()) return false;
    const int obs = static_cast<int>(d.obs[static_cast<std::size_t>(pass.obs())]);
    const RecursiveStep step = pass.step();
    if (t < K) continue;
    res.w[j] = step.residual();
    res.obs[j] = obs;
    const bool determined = pass.full() > 0;
    if (!determined) {
      std::ranges::fill(b, MACOM.XMISS);
    } else if (estimates || file) {
      pass.coefficients(change);
      for (int i = 0; i < K; ++i) {
        const auto place = static_cast<std::size_t>(i);
        b[place] = d.coef[place] + change[static_cast<std::size_t>(d.column_of(i))];
      }
    }
    if (estimates && determined) print_coefficient_row(obs, b);
    const double unit = res.unit;
    if (dump) {
      say<"(1X, I7, 4G13.5)">(obs, step.error * unit, step.variance, res.w[j] * unit,
                              pass.SSE() * unit * unit);
    }
    if (file) {
      file.value(obs);
      file.value(res.w[j] * unit);
      for (const double v : b) file.value(v);
      file.end_row();
    }
    ++j;
  }
  file.finish();
  // The first K rows alone may not determine the coefficients: those that come to them later have
  // no residual.
  if (pass.full() != K) warn(" ...WARNING..RESULTS MAY BE UNRELIABLE");
  return true;
}

void running_sums(Residuals& res) {
  double squares = 0.0;
  for (const double w : res.w) squares += w * w;
  const double scale = std::sqrt(squares / res.n());
  double sum = 0.0, part = 0.0;
  for (std::size_t j = 0; j < res.w.size(); ++j) {
    sum += res.w[j];
    part += res.w[j] * res.w[j];
    res.cusum[j] = scale > 0.0 ? sum / scale : 0.0;
    res.square[j] = squares > 0.0 ? part / squares : 0.0;
  }
}

// Columns: 1-6 observation, 7-19 residual, 20-32 CUSUM, 33-41 its bound, 42-53 lower line of
// CUSUMSQ, 54-64 CUSUMSQ, 65-71 upper line.
void print_residuals(const Residuals& res) {
  say<"(' RECURSIVE RESIDUALS - SIGNIFICANCE LEVEL =', I2, '%')">(res.level);
  say("   OBS   REC-RES       CUSUM   BOUND            LOWER    CUSUMSQ  UPPER");
  const double width = res.width();
  for (int j = 1; j <= res.n(); ++j) {
    const auto i = static_cast<std::size_t>(j - 1);
    const double expected = static_cast<double>(j) / res.n();
    Line row;
    row.put<"(I6, 2G13.5, F9.4, F12.4, F11.4, F7.4)">(
        static_cast<int>(res.obs[i]), res.w[i] * res.unit, res.cusum[i], res.bound(j),
        expected - width, res.square[i], expected + width);
    if (width < 0.0) {  // too few residuals for the lines
      row.blank(42, 53);
      row.blank(65, 71);
    }
    OUTLINE();
  }
}

// Harvey and Collier (1977): the mean of w is 0. Harvey and Phillips (1974): the last m squares
// against the first m.
void print_recursive_tests(const Residuals& res) {
  const int n = res.n();
  double mean = 0.0, spread = 0.0;
  for (const double w : res.w) mean += w / n;
  for (const double w : res.w) spread += (w - mean) * (w - mean);
  if (n >= 2 && spread > 0.0) {
    const double t = mean * std::sqrt(static_cast<double>(n)) / std::sqrt(spread / (n - 1));
    Line row;
    row.put<"(' HARVEY-COLLIER  [1977] RECURSIVE T-TEST =', F10.4, '  WITH ')">(t);
    put_df(row, n - 1);
    row.put<"(' D.F.')">();
    OUTLINE();
  } else {
    not_fitted("THE HARVEY-COLLIER TEST");
  }
  const int m = FcastOption::given<"MHET">() ? FcastOption::integer<"MHET">() : n / 3;
  double first = 0.0, last = 0.0;
  if (m >= 1 && 2 * m <= n) {
    for (const double w : res.w.first(static_cast<std::size_t>(m))) first += w * w;
    for (const double w : res.w.last(static_cast<std::size_t>(m))) last += w * w;
  }
  if (!(first > 0.0)) return not_fitted("THE HARVEY-PHILLIPS TEST");
  Line row;
  row.put<"(' HARVEY-PHILLIPS [1974] HETEROSKEDASTICITY TEST =', F10.4, '  WITH M = ')">(last /
                                                                                         first);
  put_df(row, m);
  OUTLINE();
}

const NameOption& name_option(std::size_t place) { return OPTCOM.VOPT[place]; }

void plot_residuals(Workspace ws, const Residuals& res) {
  // 1. Where the plots go.
  PlotWords words;
  if (!plot_word(ws, name_option(FCASTOPT.place("DEVICE")), "DEVICE", {}, words.DEVICE) ||
      !plot_word(ws, name_option(FCASTOPT.place("OUTPUT")), "OUTPUT", "PLOT", words.OUTPUT) ||
      !plot_word(ws, name_option(FCASTOPT.place("COMMFILE")), "COMMFILE", {}, words.COMMFILE)) {
    return;
  }
  words.APPEND = FcastOption::chosen<"APPEND">();
  words.WIDE = OSCOM.OWIDE;
  words.fixed_data = "DATA.GNU";
  words.fixed_commands = "COMM.GNU";
  PlotJob job;
  if (!job.open(words)) return;
  // 2. The columns of the table.
  const double width = res.width();
  const auto value = [&](std::size_t i, std::size_t column) {
    const int j = whole(i) + 1;
    const double expected = static_cast<double>(j) / res.n();
    switch (column) {
      case 0:
        return res.obs[i];
      case 1:
        return res.w[i] * res.unit;
      case 2:
        return res.cusum[i];
      case 3:
        return res.bound(j);
      case 4:
        return expected - width;
      case 5:
        return res.square[i];
      default:
        return expected + width;
    }
  };
  if (!job.data(plot_rows(res.w.size(), 7, value))) return;
  // 3. Residuals, their sums, the sums of their squares.
  const std::string data = job.file() + job.index();
  const std::string line = std::to_string(res.level) + "% Significance line";
  const std::string kind = res.backward ? "Backwards Recursive Residuals" : "Recursive Residuals";
  const auto head = [&](const std::string& title, const std::string& axis) {
    return "set title " + quoted(title) + "\n" + samples_line(res.w.size()) +
           "set xlabel \"Observation\"\nset ylabel " + quoted(axis) + "\n" KEY_LINES;
  };
  job.plot(head(kind, "Residual") + "plot " + data + " using 1:2 title " + quoted(kind) +
           " w linespoint\npause -1\n");
  job.plot(head(" CUSUM " + kind, "CUSUM") + "plot " + data +
           " using 1:3 title \"CUSUM\" w line lw 2, " + data + " using 1:4 title " + quoted(line) +
           " w line, " + data + " using 1:(-$4) notitle w line\npause -1\n");
  std::string squares = head(" CUSUMSQ " + kind, "CUSUMSQ") + "plot " + data +
                        " using 1:6 title \"CUSUMSQ\" w line lw 2";
  if (width > 0.0) {
    squares += ", " + data + " using 1:5 title " + quoted(line) + " w line, " + data +
               " using 1:7 notitle w line";
  }
  job.plot(squares + "\npause -1\n");
  job.finish();
}

// ---- Split samples

struct SplitTest {
  double CHOW = 0.0, GQ = 0.0;
  int DF1 = 0, DF2 = 0;       // of the Chow test
  int first = 0, second = 0;  // degrees of freedom of the two parts of the Goldfeld-Quandt test
  bool chow = false, gq = false;
};

// Sums of squared errors of all first and last parts, and the rows that a full rank takes there.
struct SplitSums {
  std::span<double> head, tail;
  double whole = 0.0;
  double unit = 1.0;  // what the sums are multiplied by to be shown
  int head_full = 0, tail_full = 0;
  double first(int rows) const { return head[static_cast<std::size_t>(rows - 1)]; }
  double last(int rows) const { return tail[static_cast<std::size_t>(rows - 1)]; }
};

// Split behind row N1, `out` rows around it left out of the Goldfeld-Quandt test alone.
SplitTest split_test(const SplitSums& sums, int N, int K, int N1, int out) {
  SplitTest test{.DF1 = K, .DF2 = N - 2 * K};
  const auto fits = [&](int head, int tail) {
    return head >= sums.head_full && tail >= sums.tail_full;
  };
  if (fits(N1, N - N1) && test.DF2 > 0) {
    const double parts = sums.first(N1) + sums.last(N - N1);
    test.CHOW = (sums.whole - parts) / K / (parts / test.DF2);
    test.chow = std::isfinite(test.CHOW);
  }
  const int head = N1 - out / 2, tail = N - N1 - (out - out / 2);
  test.first = head - K;
  test.second = tail - K;
  if (test.first > 0 && test.second > 0 && fits(head, tail)) {
    test.GQ = sums.last(tail) / test.second / (sums.first(head) / test.first);
    test.gq = std::isfinite(test.GQ);
  }
  return test;
}

// Columns: 1-5, 6-10 rows of the parts, 11-22, 23-34 their sums of squares, 35-45 the Chow test,
// 46-51 its p-value, 52-63 the Goldfeld-Quandt test, 64-68, 69-73 its degrees of freedom, 74-80 its
// p-value.
void print_sequence(const SplitSums& sums, int N, int K, int out) {
  say(" SEQUENTIAL CHOW AND GOLDFELD-QUANDT TESTS");
  say("   N1   N2    SSE1        SSE2       CHOW    PVALUE    G-Q       DF1  DF2 PVALUE");
  bool any_gq = false;
  for (int N1 = K + 1; N1 <= N - K - 1; ++N1) {
    if (stop_requested()) return;
    const SplitTest test = split_test(sums, N, K, N1, out);
    any_gq = any_gq || test.gq;
    Line row;
    row.put<"(2I5, 2G12.5, G11.4, F6.3, G12.4, 2I5, F7.3)">(
        N1, N - N1, sums.first(N1) * sums.unit, sums.last(N - N1) * sums.unit, test.CHOW,
        f_tail(test.CHOW, test.DF1, test.DF2), test.GQ, test.second, test.first,
        f_tail(test.GQ, test.second, test.first));
    if (!test.chow) row.blank(35, 51);
    if (!test.gq) row.blank(52, 80);
    OUTLINE();
  }
  Line law;
  law.put<"(' CHOW TEST - F DISTRIBUTION WITH DF1=', I4, ' AND DF2=')">(K);
  put_df(law, N - 2 * K);
  OUTLINE();
  if (!any_gq) not_fitted("THE GOLDFELD-QUANDT TEST");
}

// Two digits are the form of small samples; larger numbers take the room they need.
void print_one_split(const SplitTest& test) {
  if (!test.chow)
    not_fitted("THE CHOW TEST");
  else if (test.DF1 < 100 && test.DF2 < 1000)
    say<"(' CHOW TEST: F(', I2, ',', I3, ')=', F13.5)">(test.DF1, test.DF2, test.CHOW);
  else
    say<"(' CHOW TEST: F(', I0, ',', I0, ')=', F13.5)">(test.DF1, test.DF2, test.CHOW);
  if (!test.gq)
    not_fitted("THE GOLDFELD-QUANDT TEST");
  else if (test.first < 100 && test.second < 100)
    say<"(' GOLDFELD-QUANDT TEST: F(', I2, ',', I2, ')=', F13.5)">(test.second, test.first,
                                                                   test.GQ);
  else
    say<"(' GOLDFELD-QUANDT TEST: F(', I0, ',', I0, ')=', F13.5)">(test.second, test.first,
                                                                   test.GQ);
}

}  // namespace

void recursive_tests(Workspace ws, const DiagnosWork& d, const DiagnosPlan& plan) {
  const auto n = static_cast<std::size_t>(d.m.N - d.m.K);
  Scratch scratch(ws, static_cast<std::int64_t>(4 * n));
  if (!scratch) return;
  Residuals res;
  res.w = scratch.take(n);
  res.obs = scratch.take(n);
  res.cusum = scratch.take(n);
  res.square = scratch.take(n);
  res.unit = d.m.unit;
  res.level = FcastOption::integer<"SIGLEVEL">();
  res.backward = FcastOption::chosen<"BACKWARD">();
  if (res.backward && OCOM.OPUT) say(" BACKWARDS");
  if (!run_pass(ws, d, plan, res)) return;
  running_sums(res);
  if (OCOM.OPUT && plan.residuals) print_residuals(res);
  if (OCOM.OPUT) print_recursive_tests(res);
  if (plan.plots) plot_residuals(ws, res);
}

void print_chow(Workspace ws, const DiagnosWork& d, const DiagnosPlan& plan) {
  const int N = static_cast<int>(d.m.N), K = d.m.K;
  const auto rows = static_cast<std::size_t>(N);
  const int one = FcastOption::integer<"CHOWONE">();
  const int out = FcastOption::integer<"GQOBS">();
  if (plan.CHOWTEST && N < 2 * K + 2) not_fitted("THE SEQUENTIAL CHOW TEST");
  const bool sequence = plan.CHOWTEST && N >= 2 * K + 2;
  if (!sequence && !plan.CHOWONE) return;
  const std::size_t words = RecursivePass::words(K);
  Scratch scratch(ws, static_cast<std::int64_t>(2 * rows + words));
  if (!scratch) return;
  SplitSums sums;
  sums.head = scratch.take(rows);
  sums.tail = scratch.take(rows);
  sums.head_full = static_cast<int>(split_sums(d.m, false, scratch.rest(), sums.head));
  sums.tail_full = static_cast<int>(split_sums(d.m, true, scratch.rest(), sums.tail));
  sums.whole = sums.head.back();
  sums.unit = d.m.unit * d.m.unit;
  if (sequence) print_sequence(sums, N, K, out);
  if (plan.CHOWONE) print_one_split(split_test(sums, N, K, one, out));
}

}  // namespace korvel
