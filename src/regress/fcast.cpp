// FC: the command routine of FCAST and DIAGNOS. Options, what both refuse, then the tests or the
// forecasts: model, sample, predictions, listing, error statistics, stored results.

#include "regress/fcast.h"

#include <algorithm>
#include <cmath>

#include "data/data.h"
#include "engine/commands.h"
#include "engine/output.h"
#include "engine/units.h"
#include "regress/fcast_parts.h"
#include "regress/ols_parts.h"
#include "regress/tests.h"

namespace korvel {
namespace {

constexpr ResultProfile FCAST_PROFILE{.word = "FCAST", .forecast = true};

// A name option without a name behind "=".
bool check_names() {
  std::size_t place = 0;
  for (const OptionWord& w : FCASTOPT.view()) {
    if (w.kind != OptionKind::Variable) continue;
    if (OPTCOM.VOPT[place++].text == "********") {
      fail<"(' ...ERROR..MISSING RIGHT HAND SIDE OF OPTION..', A)">(w.word);
      return false;
    }
  }
  return true;
}

// WIDE counts for the command alone, and a failed command stops no loop under SET CONTINUE.
class CommandState {
 public:
  CommandState() : wide_(OSCOM.OWIDE) {}
  CommandState(const CommandState&) = delete;
  CommandState& operator=(const CommandState&) = delete;
  ~CommandState() { OSCOM.OWIDE = wide_; }

 private:
  bool wide_;
  ContinueGuard continue_;
};

// The switches and sums of the last estimation, which the results stage reads and later commands
// still want.
class EstimationState {
 public:
  EstimationState() : ols_(OLSCOM), sums_(FCOM) {}
  EstimationState(const EstimationState&) = delete;
  EstimationState& operator=(const EstimationState&) = delete;
  ~EstimationState() {
    OLSCOM = ols_;
    FCOM = sums_;
  }

 private:
  OlsCom ols_;
  FCom sums_;
};

// Variables that take results: they are there and long enough, or the command ends. 0: not wanted.
struct Results {
  int PREDICT = 0, RESID = 0, FCSE = 0;
};
bool find_result(Workspace ws, const NameOption& option, int columns, int& var) {
  if (option.text.empty()) return true;
  const std::span<double> room = option.var > 0 ? elements(ws, option.var) : std::span<double>{};
  const Place place = option.var > 0 ? INFO(ws, option.var) : Place{};
  const bool numbers = place.ITYPE == SERIES || place.ITYPE == MATRIX2;
  const bool fits = columns == 1 ? std::ssize(room) >= DATCOM.MEND
                                 : place.N2 == columns && place.rows() >= DATCOM.MEND;
  if (OCOM.ODONT) return false;
  if (!numbers || !fits) {
    error_line<"(' ...ERROR..VARIABLE ', A, ' NOT DIMENSIONED PROPERLY')">(option.text);
    say(" ...NOTE..USE DIMENSION COMMAND TO CREATE IT");
    mark_failed();
    return false;
  }
  var = option.var;
  return true;
}

int largest_lag(std::span<const ListItem> list) {
  int largest = 0;
  for (const ListItem& item : list) largest = std::max(largest, item.lag);
  return largest;
}

// BEG, END and ESTEND. False after an error.
bool settle_range(const ForecastModel& model, ForecastRange& range) {
  range.BEG = FcastOption::integer<"BEG">();
  range.END = FcastOption::integer<"END">();
  if (range.END == -999) range.END = DATCOM.IEND;
  // Rows that lags reach beyond the first observation don't exist.
  if (OSCOM.ODELL && range.BEG >= 1) range.BEG = std::max(range.BEG, 1 + largest_lag(model.list));
  if (range.BEG < 1) {
    fail<"(' ...ERROR..SAMPLE RANGE BEGINS AT OBSERVATION', I7)">(range.BEG);
    return false;
  }
  if (range.END < range.BEG) {
    fail(" ...ERROR..YOU DO NOT HAVE ENOUGH OBSERVATIONS");
    return false;
  }
  range.dynamic = FcastOption::chosen<"DYNAMIC">();
  range.iterate = range.dynamic || FcastOption::chosen<"IBLUP">();
  if (range.dynamic && model.kind == ForecastKind::Nlinear) {  // its lags stand in the formula
    return incompatible_options();
  }
  const int end_of_estimate = ADDCOM.KTEST != 0 ? SAVED.MEND : range.BEG - 1;
  range.ESTEND =
      FcastOption::given<"ESTEND">() ? FcastOption::integer<"ESTEND">() : end_of_estimate;
  return true;
}

// The first observation that the recursions need.
int first_observation(const ForecastModel& model, const ForecastRange& range) {
  const int least = 1 + std::max(largest_lag(model.list), 0);
  int start = range.BEG;
  if (model.kind == ForecastKind::Pool) return std::max(start, least);
  if (range.iterate) start = std::min(start, range.ESTEND + 1);
  if (!model.blup) return std::max({start, least, 1});
  // From the start of the estimate on, its own fitted values come back; rows that it dropped tell
  // of the errors before.
  if (model.own_errors && start >= SAVED.MBEG && SAVED.first_rows) return SAVED.MBEG;
  if (skipping() || !model.theta.empty()) return least;
  return std::max({start - static_cast<int>(model.rho.size()), least, 1});
}

// What stands above the listing.
void print_notes(const ForecastModel& model, const ForecastRange& range, const ForecastPlan& plan) {
  const ForecastRows& rows = plan.rows;
  if (range.iterate && !FcastOption::given<"ESTEND">()) {
    say<"(' ..ASSUMING ESTIMATION ENDED AT OBSERVATION', I7)">(range.ESTEND);
  }
  if (model.blup) say(" BLUP IS ACTIVE - PREDICTED VALUES ADJUSTED WITH LAGGED RESIDUALS");
  if (model.blup && plan.wants_se) {
    const std::string_view equation = FcastOption::chosen<"AFCSE">() ? "14" : "13";
    say<"(' ..FORECAST STD. ERRORS USE JUDGE(1985, EQ. 8.3.', A, ')')">(equation);
  } else if (!model.plain && plan.wants_se) {
    warn(" ...WARNING..FORECAST STD. ERRORS ONLY VALID FOR OLS");
  }
  if (model.blup && plan.whole > rows.first && plan.whole < rows.n) {
    say<"(' IGNORE FORECASTS AND STD. ERRORS BEFORE OBS. ', I7)">(
        static_cast<std::int64_t>(rows.obs[plan.whole]));
  }
}

// RSTAT, GF, LM: the residual statistics of the rows with a known dependent variable.
void residual_statistics(Workspace ws, const ForecastModel& model, const ForecastRows& rows,
                         const ErrorStatistics& s, std::span<double> work) {
  const std::span<double> observed = work.first(rows.n), residual = work.subspan(rows.n, rows.n);
  std::size_t n = 0;
  for (std::size_t r = rows.first; r < rows.n; ++r) {
    if (!rows.known(r)) continue;
    observed[n] = rows.y[r];
    residual[n++] = rows.e(r);
  }
  if (n == 0) return;
  OLSCOM.GF = FcastOption::chosen<"GF">() || FcastOption::chosen<"MAX">();
  OLSCOM.LM = FcastOption::chosen<"LM">() || FcastOption::chosen<"MAX">();
  OLSCOM.CONSTANT =
      std::ranges::any_of(model.list, [](const ListItem& item) { return item.var == DATCOM.MCON; });
  FCOM.ZZ = FCOM.DF = s.n;
  FCOM.SSE = s.SSE;
  FCOM.SEPLOT = s.RMSE;
  Estimate est{.profile = &FCAST_PROFILE,
               .list = {},
               .coef = model.coef,
               .cov = {},
               .means = {},
               .squares = {},
               .observed = observed.first(n),
               .residual = residual.first(n)};
  OLSRES(ws, est);
}

// UNIT=: one line at the end of its file.
void write_unit(const ErrorStatistics& s) {
  FileOutput file;
  if (!open_output_file(file, FcastOption::integer<"UNIT">(), {}, WriteMode::append)) return;
  char line[LINELEN];
  std::fill_n(line, sizeof line, ' ');
  const int used =
      compose<"(' FORECAST ROOT MEAN SQUARE ERROR =', F21.5)">(line, LINELEN, 0, s.RMSE);
  file.write({line, static_cast<std::size_t>(used)});
  file.write("\n");
  commit_output_file(file);
}

// Stores value(row) at the observations asked for; other elements stay.
template <class F>
void store(Workspace ws, int var, const ForecastRows& rows, F&& value) {
  if (var == 0) return;
  const std::span<double> to = elements(ws, var);
  for (std::size_t r = rows.first; r < rows.n; ++r) {
    const double v = value(r);
    to[static_cast<std::size_t>(rows.obs[r]) - 1] = v == v ? v : MACOM.XMISS;
  }
}

// The working range without skipped rows, for the regressors: the dependent variable may end before
// it. False after an error.
bool settle_sample(Workspace ws, const ForecastModel& model, const ForecastRange& range) {
  DATCOM.MBEG = first_observation(model, range);
  DATCOM.MEND = range.END;
  CKSMPL(ws, model.list);
  if (OCOM.ODONT) return false;
  count_rows(ws);
  if (DATCOM.NOB < 1) {
    fail(" ...ERROR..YOU DO NOT HAVE ENOUGH OBSERVATIONS");
    return false;
  }
  // Cross-sections that share the rows have the same number of them.
  if (model.NCROSS > 0 && model.CSNUMBER == 0 && DATCOM.NOB % model.NCROSS != 0) {
    return bad_option_value("NCROSS");
  }
  return true;
}

// PREDICT=, RESID=, FCSE= and IDVAR=. False after an error.
bool find_variables(Workspace ws, const ForecastModel& model, Results& results) {
  if (!find_result(ws, FcastOption::named<"PREDICT">(), model.choices > 2 ? model.choices : 1,
                   results.PREDICT) ||
      !find_result(ws, FcastOption::named<"RESID">(), 1, results.RESID) ||
      !find_result(ws, FcastOption::named<"FCSE">(), 1, results.FCSE)) {
    return false;
  }
  const NameOption& id = FcastOption::named<"IDVAR">();
  if (id.text.empty()) return true;
  if (id.var <= 0) {
    fail<"(' ...ERROR..VARIABLE ', A, ' IS NOT VALID')">(id.text);
    return false;
  }
  OLSCOM.KID = id.var;
  return true;
}

// Standard errors: whether they are wanted, and whether the model has them. False after an error.
bool settle_errors_wanted(const ForecastModel& model, bool& wanted) {
  wanted = !FcastOption::named<"FCSE">().text.empty() || FcastOption::chosen<"AFCSE">() ||
           FcastOption::chosen<"MEANPRED">();
  const bool first_order = model.blup && model.rho.size() == 1 && model.theta.empty();
  if (wanted && (model.choices > 2 || (FcastOption::chosen<"AFCSE">() && !first_order))) {
    return incompatible_options();
  }
  if (wanted && model.cov_first < 0 && !(model.sigma2 > 0.0)) {
    fail(" ...ERROR..FORECAST STD. ERRORS NEED THE COVARIANCE MATRIX OF AN ESTIMATION");
    return false;
  }
  return true;
}

// The statistics of the errors, or of the choices; UNIT=.
void report(Workspace ws, const ForecastModel& model, const ForecastPlan& plan,
            const ErrorStatistics& s) {
  const bool all = FcastOption::chosen<"MAX">();
  if (model.choices > 2) {
    if (OCOM.OPUT && (all || FcastOption::chosen<"LIST">())) {
      print_choice_forecasts(model, plan.rows, plan.P);
    }
    if (OCOM.OPUT) print_right_choices(plan.rows);
    return;
  }
  if (OCOM.OPUT && (all || FcastOption::chosen<"LIST">())) {
    print_forecasts(ws, model, plan.rows, model.sigma2 > 0.0 ? std::sqrt(model.sigma2) : s.RMSE);
  }
  if (all || FcastOption::chosen<"RSTAT">() || FcastOption::chosen<"GF">() ||
      FcastOption::chosen<"LM">()) {
    residual_statistics(ws, model, plan.rows, s, plan.work);
  }
  if (OCOM.OPUT) print_error_statistics(s);
  if (FcastOption::given<"UNIT">() && s.n > 0.0) write_unit(s);
}

void forecast(Workspace ws) {
  const Trace trace("FCAST");
  // 1. The model and the rows; the options that its kind takes.
  ForecastModel model;
  ForecastRange range;
  ForecastPlan plan;
  if (!settle_model(ws, model) || !settle_range(model, range)) return;
  if (!settle_errors_wanted(model, plan.wants_se)) return;
  const EstimationState state;
  OLSCOM = OlsCom{};
  Results results;
  if (!settle_sample(ws, model, range) || !find_variables(ws, model, results)) return;
  // 2. Room and columns.
  Scratch scratch(ws, plan_forecast(ws, model, range, plan));
  if (!scratch || !load_forecast(ws, scratch, model, range, plan)) return;
  const ForecastRows& rows = plan.rows;
  if (rows.first == rows.n) return fail(" ...ERROR..YOU DO NOT HAVE ENOUGH OBSERVATIONS");
  if (OCOM.OPUT) print_model(model, rows.n - rows.first);
  // 3. The forecasts.
  if (!predict(model, plan)) return;
  // 4. Charts, listing, statistics.
  if (FcastOption::chosen<"GNU">() || FcastOption::chosen<"GRAPHICS">()) {
    plot_forecast_rows(ws, model, rows, range.ESTEND);
    if (OCOM.ODONT) return;
  }
  if (OCOM.OPUT) print_notes(model, range, plan);
  const ErrorStatistics s = error_statistics(rows, static_cast<int>(plan.kernel.section));
  report(ws, model, plan, s);
  if (OCOM.ODONT) return;
  // 5. Stored results.
  if (results.PREDICT != 0 && model.choices > 2) {
    for (int j = 0; j < model.choices; ++j) {
      store(ws, results.PREDICT * DATCOM.MXCOL + j + 1, rows,
            [&](std::size_t r) { return plan.P[static_cast<std::size_t>(j) * rows.n + r]; });
    }
  } else {
    store(ws, results.PREDICT, rows, [&](std::size_t r) { return rows.yhat[r]; });
  }
  store(ws, results.RESID, rows, [&](std::size_t r) { return rows.e(r); });
  store(ws, results.FCSE, rows, [&](std::size_t r) { return rows.se[r]; });
}

}  // namespace

void FC(Workspace ws) {
  const Trace trace("FC");
  const CommandState state;
  // 1. Options; the defaults of some are switches.
  OPTION_START(FCASTOPT.view());
  FcastOption::set<"MAX">(OSCOM.OMXX);
  FcastOption::set<"DUMP">(OSCOM.ODMMP);
  FcastOption::set<"WIDE">(OSCOM.OWIDE);
  if (SCNCOM.NOPS > 0) OPTION_SCAN(ws, FCASTOPT.view());
  if (OCOM.ODONT || !check_names() || OSCOM.OSCAN) return;
  OSCOM.OWIDE = FcastOption::chosen<"WIDE">();
  // 2. The tests work on the estimate alone.
  if (INPCOM.IKOD == K_DIAGNOSE) {
    if (ADDCOM.KTEST == 0) {
      return fail(" ...ERROR..ABOVE COMMAND MUST IMMEDIATELY FOLLOW AN ESTIMATION COMMAND");
    }
    return FDIAG(ws);
  }
  // 3. The forecasts.
  forecast(ws);
}

}  // namespace korvel
