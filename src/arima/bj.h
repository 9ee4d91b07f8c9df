// What the routines of ARIMA share: the options of the running command, its series, the last
// estimate, and the pieces that lie in files of their own.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "arima/autocorr.h"
#include "arima/bjearm.h"
#include "data/results.h"
#include "engine/options.h"
#include "engine/output.h"
#include "engine/shared_areas.h"
#include "engine/workspace.h"

namespace korvel {

// Codes of $ERR.
enum BjError : int {
  BJ_COMMAND = 72010,     // the command's own checks, an illegal log
  BJ_START = 72019,       // start values
  BJ_PRESAMPLE = 72020,   // lags beyond the places before the sample
  BJ_TOO_FEW = 72021,     // too few observations
  BJ_PARAMETERS = 72022,  // parameters of a forecast, a model that can't be used
  BJ_ORIGIN = 72024,      // origin of a forecast
  BJ_LIMIT = 72028,       // no convergence
  BJ_NO_STEP = 72029,     // failed to reduce, singular matrix
};
inline void set_error(BjError code) { temporary(temporary_place("ERR")) = code; }

// A failure with its code.
template <FixedText FMT, class... Args>
bool bj_fail(BjError code, const Args&... args) {
  fail<FMT>(args...);
  set_error(code);
  return false;
}

inline constexpr int MAXSTEPS = 200;  // of a forecast

// A model with values: what an estimation leaves and a forecast takes.
struct BjValues {
  BjOrders orders;
  bool LOG = false;
  double sigma2 = 0.0;  // 0 while it is not known
  std::array<double, MAXBJ> b{};
  std::span<double> coef() {
    return std::span(b).first(static_cast<std::size_t>(orders.parameters()));
  }
};

// Options of the running command, by their words, and the last estimate (it stands while
// ADDCOM.IDBJ is 1). Set by BJCON and BJEST.
struct BjCom {
  bool DUMP = false, IAC = false, ALL = false, TABLE = true;
  bool PLOTAC = false, PLOTDATA = false, PLOTPAC = false, PLOTRES = false, PLOTFORC = false;
  bool GRAPHAC = false, GRAPHDAT = false, GRAPHPAC = false, GRAPHRES = false, GRAPHFOR = false;
  bool INSTART = false, PITER = false, LOG = false, STOCHAST = false, WIDE = false;
  bool MEANDIST = true, ANOVA = false, PCOV = false, PCOR = false, DN = false, RESTRICT = false;
  bool IDENTIFY = false, ESTIMATE = false, FORECAST = false;
  int NLAG = 24, NLAGP = 12, ITER = 50, FBEG = 0, FEND = 0;
  double SIGMA = 0.0, STEPSIZE = 0.0, SIGLEVEL = 10.0;
  int STARTING = 0;          // variable number, 0 none
  bool values_read = false;  // the lines behind INSTART
  NameOption RESIDUAL, PREDICT, COEFFICI, COVARIAN, TYPE, TESTSTAT, TRATIO, STDERR, ACF, PACF, FCSE,
      PSI;
  BjOrders orders;
  BjValues last;
};
inline constinit BjCom BJCOM{};

// The series of a command: kept rows of MBEG..MEND one behind the other, in logs with LOG.
struct BjSeries {
  std::string_view name;
  int var = 0;
  std::span<double> y;
  std::span<double> w;       // y differenced
  std::span<double> length;  // of the variable: what lies behind MEND is known, too
};

template <class T>
std::span<T> head(std::span<T> s, int n) {
  return s.first(static_cast<std::size_t>(std::max(n, 0)));
}

// ---- bjdata.cpp

// Rows of MBEG..MEND that are in use, in order: while (rows.next()) uses rows.obs and rows.row.
class BjRows {
 public:
  explicit BjRows(Workspace ws);
  bool next();
  int obs = 0;   // observation number
  int row = -1;  // rank, from 0

 private:
  std::span<const double> skip_;
};

// Checks a listed variable: a series or a column of numbers. False after a failure.
bool valid_series(Workspace ws, const ListItem& item);
// The working range and the count of kept rows (NOB), after CKSMPL. False after a failure.
bool take_rows(Workspace ws, std::span<const ListItem> list, int BEG, int END);
// Copies the kept rows of a variable to `to` (NOB words), as logs when asked. False after a
// failure: a value that has no logarithm.
bool load_rows(Workspace ws, int var, bool logs, std::span<double> to);
// Copies y to `room` (which may be y itself) and differences it there. False when too few are left,
// which the caller reports.
bool difference_series(const BjOrders& orders, std::span<const double> y, std::span<double> room,
                       std::span<double>& w);

// Variables that keep results; an option that was not given is passed over. value(i) for i from 0.
// A series of `length` elements, missing but for those that the caller sets; empty: not wanted.
std::span<double> store_series(Workspace ws, const NameOption& option, int length);

// "(1-B)1(1-B12)1" for the titles of charts and tables.
std::string difference_title(const BjOrders& orders);

// ---- bjiden.cpp
bool BJIDEN(Workspace ws, const BjSeries& series);
std::int64_t BJIDEN_words(std::int64_t n);
// Moments of a differenced series; false when it does not vary.
bool varies(const SeriesMoments& m);

// ---- bjiser.cpp
// Twelve lags a line; under ALL with one error a row, else with a line of errors below each row
// (none when errors is empty).
void BJISER(std::string_view title, std::span<const double> r, std::span<const double> errors);
void print_ljung_box(std::span<const double> Q, int m);
// BJECRO: cross-correlations of the differenced series with the residuals, all of one length.
void BJECRO(std::span<const double> w, std::span<const double> e, int lags);

// ---- bjipla.cpp
void BJIPLA(std::string_view title, std::span<const double> r, std::span<const double> band);
void BJEPLT(std::string_view title, std::span<const double> x, int first_obs);
// Place of a value on a scale of so many columns (from 1), held inside it.
int chart_column(double value, double least, double most, int columns);

// ---- bjplot.cpp: files for gnuplot. False after a reported failure.
bool plot_correlations(std::string_view title, std::span<const double> r,
                       std::span<const double> band);
bool plot_series(std::string_view title, std::span<const double> x, int first_obs);
struct ForecastRow {
  int obs = 0;
  double actual = 0.0, forecast = 0.0, lower = 0.0, upper = 0.0;  // NaN: none
};
bool plot_forecasts(std::string_view title, std::string_view name,
                    std::span<const ForecastRow> rows);

// ---- bjstart.cpp
// Parameter values from START=, or from input lines with the prompts. `needed`: the title line of
// the prompts. False after a failure with the code.
bool start_vector(Workspace ws, const BjOrders& orders, std::span<double> b, BjError code,
                  std::string_view message);
bool read_parameters(const BjOrders& orders, std::string_view title, std::span<double> b,
                     BjError code, std::string_view message);
// Row names AR(  1) .. CONSTANT, 8 characters.
struct ParameterName {
  std::array<char, 8> text{};
  operator std::string_view() const { return {text.data(), text.size()}; }  // NOLINT
};
ParameterName parameter_name(const BjOrders& orders, int i);

// ---- bjest.cpp, bjest_out.cpp
bool BJEST(Workspace ws, const BjSeries& series);
std::int64_t BJEST_words(int k, std::int64_t n);
struct BjEstimate {
  std::span<const double> w, e;    // n differenced values and residuals
  std::span<const double> b, cov;  // all parameters; cov is scaled
  SeriesMoments moments;           // of w
  int n = 0, k = 0;                // k: parameters that count
  double S = 0.0, sigma2 = 0.0;
  bool estimated(int i) const { return !BJCOM.RESTRICT || b[static_cast<std::size_t>(i)] != 0.0; }
};
void print_estimate(const BjEstimate& est);
void examine_residuals(Workspace ws, const BjEstimate& est, std::span<double> room);
void store_estimate(Workspace ws, const BjSeries& series, const BjEstimate& est);

// ---- bjfcas.cpp, bjfcas_out.cpp, bjfplo.cpp
bool BJFCAS(Workspace ws, const BjSeries& series);
std::int64_t BJFCAS_words(const BjOrders& orders, std::int64_t n);
struct BjForecast {
  BjOrders orders;
  std::string_view name;
  double c = 0.0, sigma2 = 0.0;
  int origin = 0, steps = 0;           // observation number and count
  std::span<const double> f, se, psi;  // steps long; psi(1) ..; in logs with LOG
  std::span<const double> y;           // known to the origin, in logs with LOG
  std::span<const double> all;         // the variable as it is
};
inline constexpr double LIMITS = 1.96;  // standard errors of the printed limits
void print_forecasts(const BjForecast& fc);
void print_mean_times(std::span<const double> rho);
// bjtrend.cpp
void print_trend(Workspace ws, const BjForecast& fc, const BjModel& model,
                 std::span<const double> ar, std::span<const double> a, double factor,
                 std::span<double> path);
void BJFPLO(const BjForecast& fc);
bool graph_forecasts(const BjForecast& fc);

// ---- cointegr.cpp
void COINTEGR(Workspace ws, int BEG, int END);

}  // namespace korvel
