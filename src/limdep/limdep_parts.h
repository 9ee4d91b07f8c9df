// Pieces of the probit, logit and tobit commands that lie in files of their own.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string_view>

#include "data/results.h"
#include "engine/options.h"
#include "engine/output.h"
#include "engine/workspace.h"
#include "limdep/likelihood.h"
#include "limdep/newton.h"
#include "regress/regress.h"

namespace korvel {

// Options and plan of the running estimation. Set by PROBC from its option table (same names).
struct LimCom {
  bool MAX = false, CONSTANT = true, DUMP = false, LOPRO = false, PCOV = false, PCOR = false;
  bool LIST = false, RSTAT = false, NORMALIZ = false, UPPER = false, READSV = false;
  bool LOG = false, LINLOG = false;
  int ITER = 25, CHOICES = 2, PITER = 1;
  double LOWRESP = 0.0, UPRESP = 0.0;  // natural non-response and response
  double CONV = 0.001, LPDIV = 2.25, LIMIT = 0.0;
  // Names of variables for results; empty: not wanted.
  NameOption PREDICT, INDEX, COEFFICI, COVARIAN, IMRATIO, STDERR, TRATIO;
  int INCOEF = 0;  // variable of the start values, 0 none
  int KWT = 0;     // variable of the weights, 0 none
  int K = 0;       // regressors, the constant included
};
inline constinit LimCom LIMCOM{};

// $ERR of these commands.
inline constexpr double ERR_PIVOT = 55012, ERR_ITER = 55013, ERR_FALLING = 55014, ERR_FIT = 55015;
// Marks a final statistic that could not be computed.
inline constexpr double NO_STATISTIC = 9.9e+31;
// A number as it can be shown: finite.
double shown(double v);
// How far a share lies above another: 0 when they agree as far as a converged fit determines them,
// so that rounding is not printed as a result.
double above(double a, double b);

// The data of a model and the vectors of its iteration. All spans lie in one scratch area. M is the
// number of coefficients: K, K+1 (tobit) or K (CHOICES-1).
struct LimModel {
  std::span<const ListItem> list;          // K regressors, dependent variable
  std::span<const double*> column;         // of the kernel: K, or K+1 for tobit
  std::span<ColumnSurvey> survey;          // likewise
  std::span<double> shift, scale, mean;    // likewise; mean: weighted, 1 for the constant
  std::span<double> b;                     // M, of the scaled columns
  std::span<double> coef, step, gradient;  // M
  std::span<double> scratch;               // M
  std::span<double> information, cov;      // packed M
  std::span<double> counts, observed;      // rows and weights by actual choice
  std::span<double> index;                 // by rows and choices; empty when nobody asks for it
  std::span<double> fitted, residual;      // by rows, for RSTAT
  std::span<double> made, limit;           // tobit: minus the dependent variable, limit marks
  std::span<double> work;                  // of the kernels
  LikelihoodRows rows;
  Units units;
  RowModel model;
  int choices = 2;
  double N = 0.0;    // sum of the weights
  double LLF = 0.0;  // log-likelihood at b
  int K() const { return LIMCOM.K; }
  int M() const { return static_cast<int>(b.size()); }
  const ListItem& dependent() const { return list[static_cast<std::size_t>(LIMCOM.K)]; }
  bool is_constant(int k) const { return k == units.constant; }
};

// ---- probc.cpp

std::string_view command_word();  // PROBIT, LOGIT or TOBIT
// Name of coefficient i (from 0): regressors in blocks, ND behind those of a tobit.
std::string_view coefficient_name(Workspace ws, const LimModel& m, int i);
// Weighted means, shifts and scales of the columns, units, N. False after an error.
bool settle_columns(Workspace ws, LimModel& m);
// Start values of INCOEF= or READSV, in `coef`: `count` of them or, when it is not 0, `fewer`.
// Returns how many were read; 0: none asked for; -1 after an error.
int given_start(Workspace ws, LimModel& m, int count, int fewer);

// ---- probit.cpp, probit_tables.cpp, probit_success.cpp

void PROBIT(Workspace ws, LimModel& m);

// One vector, five numbers a line.
void print_vector(std::span<const double> v);
// A lower triangle by rows with the names of its rows, and of its columns below; five or, with
// WIDE, eight numbers a line.
void print_triangle(Workspace ws, const LimModel& m, std::span<const double> a);
// PCOV and PCOR.
void print_matrices(Workspace ws, const LimModel& m);

// Sums over the fitted values of the last estimates. A square of choices stands by rows.
struct FitSums {
  std::span<double> right;   // square: weights by actual and predicted choice
  std::span<double> shares;  // square: sum of w P(j) over the rows of actual choice i
  std::span<double> slopes;  // K: sum of w f x, binary models
  double f = 0.0;            // sum of w f
  double squares = 0.0;      // (y-P)^2, unweighted
  double weighted = 0.0;     // (y-P)^2 / (P(1-P)), unweighted
  double chow = 0.0;         // w (y-P)^2
  double P = 0.0;            // sum of w P
};
std::int64_t fit_sum_words(int columns, int choices, std::int64_t rows);
// Walks the rows once more; fills m.index when it is wanted. The spans of sums lie in m.work.
void fit_sums(LimModel& m, FitSums& sums);

double constants_only(const LimModel& m);  // the log-likelihood with constants only
void print_coefficient_tables(Workspace ws, const LimModel& m, const FitSums& sums);
double mcfadden(const LimModel& m);
void print_fit_statistics(const LimModel& m, const FitSums& sums);
void print_success(const LimModel& m, const FitSums& sums);
// Probability of a choice in a kept row, by the normal function of DISTRIB.
double fitted_probability(const LimModel& m, std::size_t row, int choice);
void print_choices(Workspace ws, const LimModel& m);  // LIST

// ---- tobit.cpp, tobit_tables.cpp

void TOBIT(Workspace ws, LimModel& m);
// What the results of a tobit are made from.
struct TobitCounts {
  double limit = 0.0, other = 0.0;  // weights at the limit and off it
  int rounds = 0;
};
void TOBITL(Workspace ws, LimModel& m, const TobitCounts& counts);
void TOBP(Workspace ws, LimModel& m);

// ---- limstore.cpp

// COEF=, STDERR=, TRATIO=, COVARIAN=. coef: what COEF= gets.
void store_coefficients(Workspace ws, const LimModel& m, std::span<const double> coef);
// A series or, with columns above 1, a matrix: value(row, column) at the kept rows, the missing
// code elsewhere. A row is read before it is written: the result may replace the variable it is
// made from.
template <class F>
void store_rows(Workspace ws, const NameOption& option, int columns, F&& value) {
  if (option.text.empty() || OCOM.ODONT) return;
  const std::int64_t length = DATCOM.MEND;
  const int var =
      make_result(ws, option, columns > 1 ? MATRIX2 : SERIES, length * columns, columns);
  if (var == 0) return;
  const std::span<double> to = elements(ws, var);
  const std::int64_t rows = columns > 1 ? std::ssize(to) / columns : length;
  for (int c = 0; c < columns; ++c) {
    std::int64_t done = 0;
    for (KeptRows kept(ws); kept.next(); done = kept.obs) {
      std::fill(to.begin() + rows * c + done, to.begin() + rows * c + kept.obs - 1, MACOM.XMISS);
      to[static_cast<std::size_t>(rows * c + kept.obs - 1)] =
          value(static_cast<std::size_t>(kept.row), c);
    }
    std::fill(to.begin() + rows * c + done, to.begin() + rows * c + length, MACOM.XMISS);
  }
}
// SAVED, for TEST, CONFID and FCAST. OLSRES for RSTAT, which wants observed and residuals.
void save_model(Workspace ws, const LimModel& m);
void residual_statistics(Workspace ws, const LimModel& m, std::span<const double> observed,
                         std::span<const double> residual);
double standard_error(const LimModel& m, int i);
// Inverse Mills ratio of an index: n(z)/N(z), or -n(z)/(1-N(z)) for a row at zero (Heckman 1979).
double mills_ratio(double z, bool one);

// Temporaries of the last estimation are gone before new ones are set.
void clear_results();

}  // namespace korvel
