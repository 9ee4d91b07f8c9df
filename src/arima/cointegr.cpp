// COINTEGR: tests for a unit root in each listed series and for cointegration among them.
#include <cmath>

#include "arima/bj.h"
#include "arima/unitroot.h"
#include "expr/kernels/gsreg.h"
#include "expr/kernels/packed.h"

namespace korvel {
namespace {

enum class TestType : std::uint8_t { DF, PP, RESD, RESP };
constexpr std::array<std::string_view, 4> TYPE_WORDS = {"DF", "PP", "RESD", "RESP"};
constexpr std::array<std::string_view, 3> MODEL_WORDS = {"NO CONSTANT", "CONSTANT", "TREND"};
constexpr std::size_t MOST_VARIABLES = 100;
constexpr std::size_t VALUES_A_SERIES = 9;  // statistics of a series, more than those of a pair
constexpr double LAG_T =
    1.645;  // a last lag with a smaller t is dropped (Hall 1994; Ng, Perron 1995)

std::string_view type_word(TestType type) { return TYPE_WORDS[static_cast<std::size_t>(type)]; }

// One run of the command.
struct CointegrJob {
  int T = 0;               // observations of each series
  int N = 0;               // series
  std::span<double> data;  // N columns of T
  std::array<std::string_view, MOST_VARIABLES> name{};
  std::span<double> residual, work, values;
  std::size_t stored = 0;  // values in print order
  std::size_t level = 2;   // column that SIGLEVEL= looks at

  std::span<double> column(int i) const {
    const auto rows = static_cast<std::size_t>(T);
    return data.subspan(static_cast<std::size_t>(i) * rows, rows);
  }
};

bool singular(std::string_view name, int IFAULT) {
  if (IFAULT == 1) return bj_fail<"(' ...ERROR..TOO FEW OBSERVATIONS')">(BJ_COMMAND);
  return bj_fail<"(' ...ERROR..REGRESSION FOR ', A, ' IS SINGULAR')">(BJ_COMMAND, name);
}

// Lags that the length of the series suggests: Schwert (1989) for regressions, the Newey-West
// window for variances.
int automatic_lags(TestType type, int T) {
  const double most = type == TestType::DF || type == TestType::RESD ? 12.0 : 4.0;
  const int lags = static_cast<int>(most * std::pow((T - 1) / 100.0, 0.25));
  return std::clamp(lags, 0, std::min(MAXLAGS, std::max((T - 6) / 2, 0)));
}

// ---- Printing ----------------------------------------------------------------------------------

void print_heading() {
  const Line blank;
  Line head;
  head.text(" MODEL         STATISTIC    VALUE        1%        5%       10%   P-VALUE  LAGS");
  OUTLINE();
}

// Columns: 2-15 model, 16-21 statistic, 22-33 value, 34-63 critical values, one of them marked when
// the value lies beyond it, 64-73 p-value, 74-79 lags.
void print_row(CointegrJob& job, Deterministic terms, std::string_view statistic, double value,
               const CriticalValues& critical, double p, int lags) {
  if (job.stored < job.values.size()) job.values[job.stored++] = value;
  if (!OCOM.OPUT) return;
  Line row;
  row.put<"(1X, A14, A6, F12.4)">(MODEL_WORDS[static_cast<std::size_t>(terms)], statistic, value);
  if (critical.known) {
    for (const double c : critical.at) row.put<"(F10.3)">(c);
    const double limit = critical.at[job.level];
    if (limit < 0.0 ? value < limit : value > limit) {
      row.column(44 + 10 * static_cast<int>(job.level));
      row.text("*");
    }
  }
  row.column(65);
  if (p >= 0.0) row.put<"(F9.3)">(p);
  row.column(74);
  row.put<"(I6)">(lags);
  OUTLINE();
}

void print_test_title(const CointegrJob& job, TestType type, int NLAG, int series) {
  if (!OCOM.OPUT) return;
  const Line blank;
  Line row;
  if (series >= 0) {
    row.put<"(' UNIT ROOT TEST - VARIABLE=', A8)">(job.name[static_cast<std::size_t>(series)]);
  } else {
    row.put<"(' COINTEGRATION TEST - VARIABLES=')">();
    constexpr int a_line = 6;
    for (int i = 0; i < job.N; ++i) {
      if (i > 0 && i % a_line == 0) {
        row = Line();
        row.column(33);
      }
      row.put<"(A8, 1X)">(job.name[static_cast<std::size_t>(i)]);
    }
    row = Line();
  }
  row.put<"(' TYPE=', A4)">(type_word(type));
  if (NLAG < 0) {
    row.put<"(' LAGS=AUTOMATIC')">();
  } else {
    row.put<"(' LAGS=', I4)">(NLAG);
  }
  row.put<"(' OBSERVATIONS=', I7)">(job.T);
  OUTLINE();
}

// ---- Tests -------------------------------------------------------------------------------------

// The regression of Dickey and Fuller with the lags asked for, or with those that are left when the
// last one is dropped while it explains nothing.
DickeyFuller dickey_fuller(const CointegrJob& job, TestType type, std::span<const double> y,
                           Deterministic terms, int NLAG, int& p) {
  p = NLAG >= 0 ? NLAG : automatic_lags(type, job.T);
  for (;;) {
    const DickeyFuller df = DICKEYF(y, p, terms, job.work);
    const bool drop = NLAG < 0 && p > 0 && (df.IFAULT != 0 || std::fabs(df.t_last) < LAG_T);
    if (!drop || stop_requested()) return df;
    --p;
  }
}

// TAU and Z, and for a series by itself the F statistics. N and n choose the critical values.
bool test_dickey_fuller(CointegrJob& job, TestType type, std::span<const double> y,
                        Deterministic fit, Deterministic terms, int N, int NLAG,
                        std::string_view name) {
  int p = 0;
  const DickeyFuller df = dickey_fuller(job, type, y, fit, NLAG, p);
  if (df.IFAULT != 0) return singular(name, df.IFAULT);
  const double n = N == 1 ? df.n : job.T - 1;
  const auto critical = [&](UnitRootKind kind) { return unit_root_critical(kind, terms, N, n); };
  print_row(job, terms, "TAU", df.tau, critical(UnitRootKind::tau),
            unit_root_p_value(df.tau, terms, N), p);
  print_row(job, terms, "Z", df.z, critical(UnitRootKind::z), -1.0, p);
  if (N > 1) return true;
  if (terms == Deterministic::constant) {
    print_row(job, terms, "PHI1", df.phi1, critical(UnitRootKind::phi1), -1.0, p);
  } else if (terms == Deterministic::trend) {
    print_row(job, terms, "PHI2", df.phi2, critical(UnitRootKind::phi2), -1.0, p);
    print_row(job, terms, "PHI3", df.phi3, critical(UnitRootKind::phi3), -1.0, p);
  }
  return true;
}

bool test_phillips(CointegrJob& job, TestType type, std::span<const double> y, Deterministic fit,
                   Deterministic terms, int N, int NLAG, std::string_view name) {
  const int L = NLAG >= 0 ? NLAG : automatic_lags(type, job.T);
  const PhillipsPerron pp = PHILLIPP(y, L, fit, job.work);
  if (pp.IFAULT != 0) return singular(name, pp.IFAULT);
  const double n = job.T - 1;
  print_row(job, terms, "Z(T)", pp.zt, unit_root_critical(UnitRootKind::tau, terms, N, n),
            unit_root_p_value(pp.zt, terms, N), L);
  print_row(job, terms, "Z(A)", pp.za, unit_root_critical(UnitRootKind::z, terms, N, n), -1.0, L);
  return true;
}

bool test_series(CointegrJob& job, TestType type, int NLAG) {
  for (int i = 0; i < job.N; ++i) {
    print_test_title(job, type, NLAG, i);
    if (OCOM.OPUT) print_heading();
    const auto test = type == TestType::DF ? test_dickey_fuller : test_phillips;
    for (const Deterministic terms :
         {Deterministic::none, Deterministic::constant, Deterministic::trend}) {
      const std::string_view name = job.name[static_cast<std::size_t>(i)];
      if (!test(job, type, job.column(i), terms, terms, 1, NLAG, name)) return false;
      if (stop_requested()) return false;
    }
  }
  return true;
}

// Least squares of the first series on the others, a constant and, for `trend`, the observation
// number; leaves the residuals in job.residual.
bool cointegrating_regression(CointegrJob& job, Deterministic terms) {
  const auto T = static_cast<std::size_t>(job.T);
  const bool trend = terms == Deterministic::trend;
  const std::span<double> time = job.work.first(T);
  for (std::size_t t = 0; t < T; ++t) time[t] = static_cast<double>(t + 1);
  std::array<const double*, MOST_VARIABLES + 2> columns{};
  std::size_t k = 0;
  for (int i = 1; i < job.N; ++i) columns[k++] = job.column(i).data();
  columns[k++] = nullptr;
  if (trend) columns[k++] = time.data();
  columns[k] = job.column(0).data();
  const std::span<const double* const> all = std::span(columns).first(k + 1);
  std::array<double, MOST_VARIABLES + 2> b{};
  const std::span<double> used = std::span(b).first(k);
  const SmallFit fit = small_fit(all, job.T, job.work.subspan(T), used, {});
  if (fit.IFAULT != 0) {
    return singular(job.name[0], fit.IFAULT == FEWER_ROWS ? 1 : 2);
  }
  gs_residuals({all, job.T, nullptr, {}}, used, job.residual);
  if (!OCOM.OPUT) return true;
  double SSE = 0.0, change = 0.0;
  for (std::size_t t = 0; t < T; ++t) {
    const double e = job.residual[t];
    SSE += e * e;
    if (t > 0) change += (e - job.residual[t - 1]) * (e - job.residual[t - 1]);
  }
  const double SST = series_moments(job.column(0)).variance * static_cast<double>(T);
  const Line blank;
  Line head;
  head.put<"(' COINTEGRATING REGRESSION - ', A, '  R-SQUARE =', F7.4, '  DURBIN-WATSON =', F7.4)">(
      MODEL_WORDS[static_cast<std::size_t>(terms)], SST > 0.0 ? 1.0 - SSE / SST : 0.0,
      SSE > 0.0 ? change / SSE : 0.0);
  OUTLINE();
  for (int i = 1; i < job.N; ++i) {
    say<"(1X, A8, G13.5)">(job.name[static_cast<std::size_t>(i)],
                           b[static_cast<std::size_t>(i - 1)]);
  }
  const auto constant = static_cast<std::size_t>(job.N - 1);
  say<"(1X, A8, G13.5)">("CONSTANT", b[constant]);
  if (trend) say<"(1X, A8, G13.5)">("TREND", b[constant + 1]);
  return true;
}

bool test_residuals(CointegrJob& job, TestType type, int NLAG) {
  print_test_title(job, type, NLAG, -1);
  const auto test = type == TestType::RESD ? test_dickey_fuller : test_phillips;
  for (const Deterministic terms : {Deterministic::constant, Deterministic::trend}) {
    if (!cointegrating_regression(job, terms)) return false;
    if (OCOM.OPUT) print_heading();
    if (!test(job, type, job.residual, Deterministic::none, terms, job.N, NLAG, job.name[0])) {
      return false;
    }
    if (stop_requested()) return false;
  }
  return true;
}

// ---- The command -------------------------------------------------------------------------------

// TYPE=; without it DF, and RESD behind it for two or more series. False after an error.
bool take_types(int N, std::span<TestType> types, std::size_t& count) {
  if (BJCOM.TYPE.text.empty()) {
    types[count++] = TestType::DF;
    if (N > 1) types[count++] = TestType::RESD;
    return true;
  }
  const auto at = std::ranges::find(TYPE_WORDS, BJCOM.TYPE.text);
  if (at == TYPE_WORDS.end()) {
    return bj_fail<"(' ...ERROR..INVALID TYPE= OPTION')">(BJ_COMMAND);
  }
  const auto type = static_cast<TestType>(at - TYPE_WORDS.begin());
  if (N < 2 && (type == TestType::RESD || type == TestType::RESP)) {
    return bj_fail<"(' ...ERROR..INCOMPATIBLE OPTIONS')">(BJ_COMMAND);
  }
  types[count++] = type;
  return true;
}

bool take_level(std::size_t& level) {
  constexpr std::array<double, 3> levels = {1.0, 5.0, 10.0};
  const auto at = std::ranges::find(levels, BJCOM.SIGLEVEL);
  if (at == levels.end()) {
    return bj_fail<"(' ...ERROR..IN RIGHT HAND SIDE OF OPTION..SIGLEVEL')">(BJ_COMMAND);
  }
  level = static_cast<std::size_t>(at - levels.begin());
  return true;
}

}  // namespace

void COINTEGR(Workspace ws, int BEG, int END) {
  const Trace trace("COINTEGR");
  const std::span<ListItem> list = SCNCOM.list();
  // 1. The tests.
  if (list.empty()) {
    bj_fail<"(' ...ERROR..NO VARIABLE SPECIFIED FOR ANALYSIS')">(BJ_COMMAND);
    return;
  }
  if (list.size() > MOST_VARIABLES) {
    bj_fail<"(' ...ERROR..STATEMENT TOO LONG')">(BJ_COMMAND);
    return;
  }
  CointegrJob job;
  job.N = static_cast<int>(list.size());
  std::array<TestType, 2> types{};
  std::size_t count = 0;
  if (!take_types(job.N, types, count) || !take_level(job.level)) return;
  const int NLAG = BJCOM.NLAG;
  if (NLAG < -1 || NLAG > MAXLAGS) {
    bj_fail<"(' ...ERROR..INVALID NLAG OR NLAGP')">(BJ_COMMAND);
    return;
  }
  // 2. The series.
  for (const ListItem& item : list) {
    if (!valid_series(ws, item)) return;
  }
  if (!take_rows(ws, list, BEG, END)) return;
  const BjOrders differences{.NDIFF = BJCOM.orders.NDIFF};
  if (DATCOM.NOB - std::int64_t{differences.NDIFF} < 4) {
    bj_fail<"(' ...ERROR..TOO FEW OBSERVATIONS')">(BJ_COMMAND);
    return;
  }
  const auto rows = static_cast<std::size_t>(DATCOM.NOB);
  job.T = DATCOM.NOB - differences.NDIFF;
  const int longest = std::max(NLAG, automatic_lags(TestType::DF, job.T));
  const int columns = std::max(longest + 4, job.N + 2);
  const std::int64_t work = unit_root_words(DATCOM.NOB, columns) + DATCOM.NOB;
  std::int64_t words = 0;
  if (!checked_product(job.N + 3, DATCOM.NOB, words)) return NOCORE();
  Scratch room(ws, words + work + static_cast<std::int64_t>(VALUES_A_SERIES) * (job.N + 1));
  if (!room) return;
  const std::span<double> y = room.take(rows), spare = room.take(rows);
  job.data = room.take(static_cast<std::size_t>(job.N) * rows);
  job.residual = room.take(rows).first(static_cast<std::size_t>(job.T));
  job.values = room.take(VALUES_A_SERIES * static_cast<std::size_t>(job.N + 1));
  job.work = room.take(static_cast<std::size_t>(work));
  for (int i = 0; i < job.N; ++i) {
    const ListItem& item = list[static_cast<std::size_t>(i)];
    job.name[static_cast<std::size_t>(i)] = NAME(ws, item.var);
    std::span<double> w;
    if (!load_rows(ws, item.var, BJCOM.LOG, y)) return;
    difference_series(differences, y, spare, w);
    std::copy(w.begin(), w.end(), job.column(i).begin());
  }
  // 3. One test after the other.
  for (const TestType type : head(std::span<TestType>(types), static_cast<int>(count))) {
    const bool pair = type == TestType::RESD || type == TestType::RESP;
    if (!(pair ? test_residuals(job, type, NLAG) : test_series(job, type, NLAG))) return;
  }
  store_vector(ws, BJCOM.TESTSTAT, job.values.first(job.stored));
}

}  // namespace korvel
