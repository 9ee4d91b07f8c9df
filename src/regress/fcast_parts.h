// Pieces of FC that lie in files of their own.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "data/format.h"
#include "engine/options.h"
#include "engine/workspace.h"
#include "regress/fcast.h"
#include "regress/yhat.h"

namespace korvel {

// Options by their words.
using FcastOption = OptionValues<FCASTOPT>;

// How a model predicts.
enum class ForecastKind : std::uint8_t {
  Linear,  // x'b: least squares, instruments, systems, generalised least squares
  Auto,    // x'b and what the errors before tell
  Box,     // x'b is the Box-Cox transformation of the dependent variable
  Probit,  // the probability of a one
  Logit,
  Choices,  // the probabilities of several choices
  Tobit,    // the expected value of the censored variable
  Nlinear,  // the formula
  Pool,     // x'b and the effect of a cross-section
  Mle,      // the mean of the family
  Het,      // the mean equation
};

// The model of one FCAST. The spans point into storage of fcast_model.cpp and into SAVED.
struct ForecastModel {
  ForecastKind kind = ForecastKind::Linear;
  bool plain = true;                   // least squares: its forecast standard errors are exact
  bool stored = false;                 // coefficients and data are those of SAVED
  std::span<const ListItem> list;      // K regressors, the constant included
  ListItem dependent;                  // dependent variable
  std::string_view name;               // its name
  std::span<double> coef;              // K; Tobit K+1 (the last is 1/sigma); Choices K a choice
  std::span<const double> rho, theta;  // of the errors, by lag
  bool blup = false;                   // errors before enter the forecasts
  bool own_errors = false;             // ... as the estimate has them, rho and theta being its own
  bool estimated_rho = false;          // an equation of instruments or a system with AUTO
  int cov_first = -1;                  // place (from 0) of coef[0] in SAVED.cov, -1: no covariance
  double sigma2 = 0.0;                 // error variance, 0 not known
  int equation = 0;                    // Nlinear: number of the equation, from 0
  double lambda = 0.0;                 // Box
  double limit = 0.0, side = 1.0;      // Tobit: side -1 for a limit from above
  double low = 0.0, share = 1.0;       // Probit, Logit: P = low + share F(z)
  int choices = 2;
  int family = -1;                  // Mle: its MleType
  bool second_index = false;        // Mle: K coefficients of a second index behind the first K
  int NCROSS = 0, CSNUMBER = 0;     // Pool: cross-sections; the one of all rows, 0: row by row
  std::span<const double> effects;  // Pool: one a cross-section, or empty
  int K() const { return static_cast<int>(list.size()); }
};

// The rows of one FCAST: kept observations from the first one that the recursions need. Rows from
// `first` on are the forecasts asked for.
struct ForecastRows {
  std::size_t n = 0, first = 0;
  std::span<const double* const> x;  // K columns of n, null for the constant
  std::span<double> obs;             // observation numbers
  std::span<double> y;               // dependent variable, NaN where it isn't known
  std::span<double> yhat;            // forecasts, NaN where there is none
  std::span<double> index;           // x'b
  std::span<double> se;              // standard errors; empty: not wanted
  double e(std::size_t r) const { return y[r] - yhat[r]; }
  bool known(std::size_t r) const { return y[r] == y[r] && yhat[r] == yhat[r]; }
};

// What the options say of time.
struct ForecastRange {
  int BEG = 1, END = 0;
  int ESTEND = 0;
  bool iterate = false;  // behind ESTEND forecasts stand for what isn't known
  bool dynamic = false;  // ... also for lags of the dependent variable
};

// Rows, work space and kernel of one FCAST. The spans lie in one scratch area.
struct ForecastPlan {
  ForecastRows rows;
  bool wants_se = false;
  int columns = 0;       // of rows.x
  int coefficients = 0;  // of the covariance
  YhatModel kernel;
  std::span<double> C;  // packed covariance, empty: none
  std::span<double> P;  // Choices: probabilities, a column a choice
  std::span<double> work;
  std::size_t whole = 0;  // first row whose errors before are all there
  std::int64_t copies = 0, cov_words = 0, made = 0, work_words = 0;
};

// ---- fcast_predict.cpp

// Sizes and kernel; returns the words that the forecast needs.
std::int64_t plan_forecast(Workspace ws, const ForecastModel& model, const ForecastRange& range,
                           ForecastPlan& plan);
// Loads the columns and the dependent variable. False after an error.
bool load_forecast(Workspace ws, Scratch& scratch, const ForecastModel& model,
                   const ForecastRange& range, ForecastPlan& plan);
// Fills rows.yhat, rows.index and rows.se. False after an error or a stop.
bool predict(const ForecastModel& model, ForecastPlan& plan);

// ---- fcast_model.cpp

// The model from SAVED, COEF= and the list. False after an error.
bool settle_model(Workspace ws, ForecastModel& model);
// Header and coefficients.
void print_model(const ForecastModel& model, std::size_t rows);
// The covariance of the model's first n coefficients as a packed matrix of its own in `to`.
void take_covariance(const ForecastModel& model, int n, std::span<double> to);
// Regressors that are the dependent variable some observations before: lag[k], 0 for others. A
// variable counts as that when it equals it in every row of from..to.
void find_lags(Workspace ws, const ForecastModel& model, int from, int to, std::span<int> lag);

// ---- fcast_families.cpp

// Several choices: P[choice * n + row]; yhat is the most likely choice.
void predict_choices(const ForecastModel& model, ForecastRows& rows, std::span<double> P);
// MLE: the mean, and with C, the packed covariance of all coefficients, its standard error by the
// delta method. work: twice the coefficients.
void predict_family(const ForecastModel& model, ForecastRows& rows, std::span<const double> C,
                    std::span<double> work);

// ---- fcast_formula.cpp

// Values of that equation of NLINEAR at the coefficients and the kept rows of MBEG..MEND and,
// unless slopes is empty, their derivatives by the first coefficients, a column each. all: one word
// an observation. False after an error.
bool formula_rows(Workspace ws, const ForecastModel& model, std::span<double> all,
                  std::span<double> value, std::span<double> slopes);

// ---- fcast_stats.cpp, fcast_list.cpp, fcast_plot.cpp

// Error statistics and decompositions.
struct ErrorStatistics {
  double n = 0.0;  // rows with a known dependent variable and a forecast
  double ME = 0.0, SSE = 0.0, MSE = 0.0, MAE = 0.0, RMSE = 0.0, MSPE = 0.0;
  double U = 0.0;  // Theil
  double bias = 0.0, variance = 0.0, covariance = 0.0, regression = 0.0, disturbance = 0.0;
};
ErrorStatistics error_statistics(const ForecastRows& rows, int section);
void print_error_statistics(const ErrorStatistics& s);

void print_forecasts(Workspace ws, const ForecastModel& model, const ForecastRows& rows,
                     double sigma);
// Several choices: y, then the probabilities, P[choice * n + row].
void print_choice_forecasts(const ForecastModel& model, const ForecastRows& rows,
                            std::span<const double> P);
void print_right_choices(const ForecastRows& rows);
// ESTEND: rows behind it are drawn as a part of their own.
void plot_forecast_rows(Workspace ws, const ForecastModel& model, const ForecastRows& rows,
                        int ESTEND);

}  // namespace korvel
